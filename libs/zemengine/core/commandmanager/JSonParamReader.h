#pragma once
// Reads the arguments of one command ("Arg0", "Arg1", ... in signature order) and builds
// its result {"Res": value}. Lives on the stack of the invoker.
#include "zemengine/core/commandmanager/CommandQueue.h"
#include "zemengine/core/commandmanager/JSonCodec.h"

namespace ZemEngine
{
    class JSonParamReader
    {
    public:
        typedef CJSonRetWriter RetWriter;

        // `retWriter` is null when the client wants no result.
        JSonParamReader(CommandQueue::Command* command, RetWriter* retWriter);

        // Reads the next argument. False, with a log line naming the argument and what
        // it should have been, when it is missing or of the wrong form.
        template <class T>
        bool Read(T& out)
        {
            const Json::Value* value = NextArgument();
            if (!value) return false;
            const char* expected = nullptr;
            if (JsonCodec::Decode(*value, out, expected)) return true;
            ReportBadArgument(*value, expected);
            return false;
        }

        bool WantsReturn() const { return m_pRetWriter != nullptr; }

        template <class T>
        void Write(const char* name, const T& value)
        {
            bool nonFinite = false;
            Json::Value encoded = JsonCodec::Encode(value, Allocator(), nonFinite);
            if (nonFinite) ReportNonFinite();
            m_kResult.AddMember(Json::Value(name, Allocator()), encoded, Allocator());
        }

        // Writes the result object through the writer; false if there is none or the
        // result could not be written.
        bool Finish();

        const char* GetArgName() const { return m_szArgName; }
        unsigned int GetArgIndex() const { return m_uArgIndex; }
        const Json::Value& GetResult() const { return m_kResult; }

    private:
        const Json::Value* NextArgument();
        void ReportBadArgument(const Json::Value& value, const char* expected) const;
        void ReportNonFinite() const;
        Json::PoolAllocator& Allocator() { return m_pCommand->m_kDocument.GetAllocator(); }

        CommandQueue::Command* m_pCommand;
        RetWriter* m_pRetWriter;
        Json::Value m_kResult;
        char m_szArgName[32];
        unsigned int m_uArgIndex = 0;
    };
}
