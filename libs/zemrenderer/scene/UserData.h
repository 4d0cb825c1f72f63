#pragma once
// Per-link data that a subsystem or a plugin hangs on a link under a four-character tag:
// a single-linked list of blocks, newest first. The engine dispatches a link's blocks to
// the render thread's user-data handler once the link has read them.
#include <cstdint>

#include "common/utils/pool/TPool.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class Bucket;
    class Link;
    class RenderThread;
    class Serializer;

    // The four bytes in reading order: "GPRO" is 0x4F525047.
    constexpr uint32_t MakeUserDataTag(const char (&code)[5])
    {
        return static_cast<uint32_t>(static_cast<unsigned char>(code[0])) |
               static_cast<uint32_t>(static_cast<unsigned char>(code[1])) << 8 |
               static_cast<uint32_t>(static_cast<unsigned char>(code[2])) << 16 |
               static_cast<uint32_t>(static_cast<unsigned char>(code[3])) << 24;
    }

    namespace UserDataTag
    {
        inline constexpr uint32_t GPRO = MakeUserDataTag("GPRO"); // GUI project nodes
        inline constexpr uint32_t BBRD = MakeUserDataTag("BBRD"); // billboards
        inline constexpr uint32_t BBOX = MakeUserDataTag("BBOX"); // bounding box
        inline constexpr uint32_t EDCM = MakeUserDataTag("EDCM"); // editor custom mesh
        inline constexpr uint32_t LIGH = MakeUserDataTag("LIGH"); // lights
        inline constexpr uint32_t MESH = MakeUserDataTag("MESH"); // mesh
        inline constexpr uint32_t PROB = MakeUserDataTag("PROB"); // light probes
        inline constexpr uint32_t USRI = MakeUserDataTag("USRI"); // user instancing
        inline constexpr uint32_t POPR = MakeUserDataTag("POPR"); // post process
        inline constexpr uint32_t CAME = MakeUserDataTag("CAME"); // cameras
    }
    static_assert(UserDataTag::GPRO == 0x4F525047u, "tags are the four bytes in reading order");

    class UserData : public Serializable
    {
    public:
        UserData() = default;
        UserData(uint32_t tag, uint32_t size, void* buffer) : m_uiTag(tag), m_uiSize(size), m_pBuffer(buffer) {}
        // Frees the buffer, which always comes from the memory manager.
        ~UserData();
        UserData(const UserData&) = delete;
        UserData& operator=(const UserData&) = delete;

        // A block from the bucket's pool (null bucket: from the memory manager) with a
        // zeroed buffer of `size` bytes, 16-byte aligned. Null when memory runs out.
        static UserData* Create(Bucket* bucket, uint32_t tag, uint32_t size);
        // Gives the block back where it came from, with its buffer.
        static void Destroy(UserData* block);
        // A buffer as blocks hold them, and its release.
        static void* AllocateBuffer(uint32_t size);
        static void FreeBuffer(void* buffer);

        // Tag, size, the buffer as bytes, then the next block.
        void Serialize(Serializer& serializer);

        uint32_t m_uiTag = 0;
        uint32_t m_uiSize = 0;
        void* m_pBuffer = nullptr;
        UserData* m_pNext = nullptr;
        // The pool the block came from; null for one made by the memory manager.
        TPool<UserData>* m_pPool = nullptr;
    };

    // What the engine does with a link's blocks once the link has read them: each block
    // is given to SetUserData, then ApplyToLink is called with the link.
    class IUserDataHandler
    {
    public:
        virtual ~IUserDataHandler() = default;
        virtual void SetUserData(UserData* block) = 0;
        virtual void ApplyToLink(Link* link) = 0;
    };

    namespace UserDataDispatch
    {
        // One handler per render thread; null removes it. The handler must outlive its use.
        void SetHandler(RenderThread* thread, IUserDataHandler* handler);
        IUserDataHandler* GetHandler(RenderThread* thread);
    }

    // A growing array under a tag: the block is an 8-byte head (the tag, then the element
    // count) followed by the elements, all of one size.
    class UserDataHelper
    {
    public:
        static constexpr uint32_t kHeadSize = 8;

        // Appends one element of `elementSize` bytes under `tag`, adding the block (from
        // `bucket`, or the link's bucket when null) if the link has none. Returns the
        // block, or null on bad arguments or when memory runs out (the link is unchanged).
        static UserData* AddElement(Link* link, Bucket* bucket, uint32_t tag, const void* element,
                                    uint32_t elementSize);
        template <class T>
        static UserData* Add(Link* link, Bucket* bucket, uint32_t tag, const T& element)
        {
            return AddElement(link, bucket, tag, &element, static_cast<uint32_t>(sizeof(T)));
        }

        // The element count of a block made this way (0 for one too short to have a head).
        static uint32_t GetCount(const UserData* block);
        // The first element, or null.
        static void* GetElements(UserData* block);
    };
}
