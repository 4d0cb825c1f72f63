#pragma once
// Recycles small device buffers between frames. A buffer given back goes on its size's
// pending list; EndOfFrame moves every pending buffer to the free list, so a buffer is
// never handed out again in the frame that gave it back: the frame in flight may still
// read it. Classes: constant, texture buffer, raw, and structured buffers by stride and
// size. Pool sizes go by 16 bytes.
#include <cstdint>

#include "common/system/mutex/Mutex.h"
#include "common/utils/TArray.h"
#include "common/utils/TMap.h"
#include "zemrenderer/buffer/BufferFlags.h"

namespace ZemRenderer
{
    class BufferDevice;
    class BufferReference;

    class BufferManager
    {
    public:
        explicit BufferManager(BufferDevice* device) : m_pDevice(device) {}
        ~BufferManager();
        BufferManager(const BufferManager&) = delete;
        BufferManager& operator=(const BufferManager&) = delete;

        // The context buffers are made with; set once ("Do not change context").
        bool SetContext(void* context);
        void* GetContext() const { return m_pContext; }

        // A buffer of at least `size` bytes: a free one of its pool, or a new one made on
        // the device. Null when none can be made (on another thread than the device's, a
        // free one is handed out but none is made).
        BufferReference* Allocate(uint32_t size, uint32_t stride, uint32_t flags);
        // Gives a buffer back; it is free again after the next EndOfFrame. False (with a
        // report) for a size no pool knows.
        bool Release(BufferReference* buffer, uint32_t size, uint32_t stride, uint32_t flags);
        // From the end of the scene: every pending buffer becomes free.
        void EndOfFrame();
        // Deletes every buffer the pools hold; render thread, when the device goes.
        void Clear();

        // Counts for a pool, by the arguments Allocate takes.
        unsigned int GetFreeCount(uint32_t size, uint32_t stride, uint32_t flags);
        unsigned int GetPendingCount(uint32_t size, uint32_t stride, uint32_t flags);
        unsigned int GetPoolCount();
        uint64_t GetCreatedCount() const { return m_uiCreated; }

        // The pool a request goes to: its class and its key (size rounded up to 16, and the
        // stride above it for structured buffers).
        static ManagerClass ClassOf(uint32_t flags) { return ManagerClassOf(flags); }
        static uint64_t KeyOf(uint32_t size, uint32_t stride, uint32_t flags);

    private:
        struct SizePool
        {
            TArray<BufferReference*> aFree;
            TArray<BufferReference*> aPending;
        };
        typedef TMap<uint64_t, SizePool*> PoolMap;

        PoolMap& MapOf(uint32_t flags) { return m_aPools[static_cast<unsigned>(ClassOf(flags))]; }
        SizePool* FindPool(uint32_t size, uint32_t stride, uint32_t flags);

        BufferDevice* m_pDevice;
        void* m_pContext = nullptr;
        Common::CMutex m_kMutex;
        PoolMap m_aPools[4];
        uint64_t m_uiCreated = 0;
    };
}
