#pragma once
// The one way into RapidJSON. Its checks report through ZEM_ASSERT instead of aborting,
// its memory comes from the memory manager, and parsing is iterative so that deeply
// nested input cannot exhaust the stack. A failed check is still a fault: callers test
// a value's type before reading it.
#include <cstddef>
#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

#define RAPIDJSON_ASSERT(x) ((void)ZEM_ASSERT(x, "JSON access check"))
#define RAPIDJSON_NEW(x) (::Common::Mem::New<decltype(x)>(__FILE__, __LINE__))
#define RAPIDJSON_DELETE(x) (::Common::Mem::Delete(x))
#define RAPIDJSON_PARSE_DEFAULT_FLAGS kParseIterativeFlag
#define RAPIDJSON_HAS_STDSTRING 0

// RapidJSON copies its values with memcpy, which g++ warns about.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wclass-memaccess"
#endif
#include <rapidjson/document.h>
#include <rapidjson/error/en.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

namespace ZemEngine::Json
{
    // RapidJSON base allocator over the memory manager.
    class CAllocator
    {
    public:
        static const bool kNeedFree = true;

        void* Malloc(size_t size)
        {
            return size ? Common::Mem::CMemoryManager::GetInstance()->Alloc(size, __FILE__, __LINE__) : nullptr;
        }
        void* Realloc(void* original, size_t originalSize, size_t newSize)
        {
            (void)originalSize;
            if (newSize == 0)
            {
                Free(original);
                return nullptr;
            }
            return Common::Mem::CMemoryManager::GetInstance()->Realloc(original, newSize, __FILE__, __LINE__);
        }
        static void Free(void* ptr)
        {
            if (ptr) Common::Mem::CMemoryManager::GetInstance()->Free(ptr);
        }

        // Stateless: one shared instance serves every pool.
        static CAllocator* Shared()
        {
            static CAllocator s_kShared;
            return &s_kShared;
        }
    };

    typedef rapidjson::UTF8<> Encoding;
    typedef rapidjson::MemoryPoolAllocator<CAllocator> PoolAllocator;
    typedef rapidjson::GenericDocument<Encoding, PoolAllocator, CAllocator> Document;
    typedef rapidjson::GenericValue<Encoding, PoolAllocator> Value;
    typedef rapidjson::GenericStringBuffer<Encoding, CAllocator> StringBuffer;
    typedef rapidjson::Writer<StringBuffer, Encoding, Encoding, CAllocator> StringWriter;

    constexpr unsigned int kParseFlags = rapidjson::kParseIterativeFlag;

    // Member lookup that is safe on any value: null unless `object` is an object that has it.
    inline const Value* FindMember(const Value& object, const char* name)
    {
        if (!object.IsObject()) return nullptr;
        Value::ConstMemberIterator it = object.FindMember(name);
        return it == object.MemberEnd() ? nullptr : &it->value;
    }

    // The value as compact JSON text into `out` (cleared first); false if it can't be
    // written (a non-finite number).
    inline bool ToText(const Value& value, StringBuffer& out)
    {
        out.Clear();
        StringWriter writer(out);
        return value.Accept(writer);
    }

    // The kind of a value in words, for messages.
    inline const char* KindName(const Value& value)
    {
        switch (value.GetType())
        {
            case rapidjson::kNullType: return "null";
            case rapidjson::kFalseType:
            case rapidjson::kTrueType: return "a boolean";
            case rapidjson::kObjectType: return "an object";
            case rapidjson::kArrayType: return "an array";
            case rapidjson::kStringType: return "a string";
            case rapidjson::kNumberType: return "a number";
        }
        return "unknown";
    }
}
