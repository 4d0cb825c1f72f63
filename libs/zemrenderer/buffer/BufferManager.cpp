#include "zemrenderer/buffer/BufferManager.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/buffer/BufferDevice.h"
#include "zemrenderer/buffer/BufferReference.h"

namespace ZemRenderer
{
    namespace
    {
        class Hold
        {
        public:
            explicit Hold(Common::CMutex& mutex) : m_kMutex(mutex) { m_kMutex.Lock(); }
            ~Hold() { m_kMutex.Unlock(); }
            Hold(const Hold&) = delete;
            Hold& operator=(const Hold&) = delete;

        private:
            Common::CMutex& m_kMutex;
        };
    }

    BufferManager::~BufferManager()
    {
        // The device deletes what is left with Clear before it goes; records alone here.
        for (PoolMap& pools : m_aPools)
        {
            for (unsigned int i = 0; i < pools.GetSize(); ++i)
            {
                SizePool* pool = pools.GetValueAt(i);
                ZEM_ASSERT(pool->aFree.IsEmpty() && pool->aPending.IsEmpty(), "BufferManager not cleared before its end");
                MEM_DELETE(pool);
            }
            pools.ClearAndFree();
        }
    }

    bool BufferManager::SetContext(void* context)
    {
        Hold hold(m_kMutex);
        if (m_pContext == context) return true;
        if (!ZEM_ASSERT(m_pContext == nullptr, "Do not change context")) return false;
        m_pContext = context;
        return true;
    }

    uint64_t BufferManager::KeyOf(uint32_t size, uint32_t stride, uint32_t flags)
    {
        const uint64_t rounded = RoundUp16(size);
        return ClassOf(flags) == ManagerClass::Structured ? (static_cast<uint64_t>(stride) << 32) | rounded : rounded;
    }

    BufferManager::SizePool* BufferManager::FindPool(uint32_t size, uint32_t stride, uint32_t flags)
    {
        return MapOf(flags).Find(KeyOf(size, stride, flags));
    }

    BufferReference* BufferManager::Allocate(uint32_t size, uint32_t stride, uint32_t flags)
    {
        const uint64_t key = KeyOf(size, stride, flags);
        {
            Hold hold(m_kMutex);
            PoolMap& pools = MapOf(flags);
            SizePool* pool = pools.Find(key);
            if (!pool)
            {
                pool = MEM_NEW(SizePool);
                if (!pool) return nullptr;
                pools.Insert(key, pool);
            }
            if (!pool->aFree.IsEmpty()) return pool->aFree.RemoveLast();
        }
        // Made outside the lock: a device call may take its time.
        if (!m_pDevice) return nullptr;
        BufferReference* buffer = m_pDevice->CreateManagedBuffer(RoundUp16(size), stride, flags);
        if (buffer)
        {
            Hold hold(m_kMutex);
            ++m_uiCreated;
        }
        return buffer;
    }

    bool BufferManager::Release(BufferReference* buffer, uint32_t size, uint32_t stride, uint32_t flags)
    {
        if (!ZEM_ASSERT(buffer != nullptr, "Null buffer !")) return false;
        Hold hold(m_kMutex);
        SizePool* pool = FindPool(size, stride, flags);
        if (!pool)
        {
            if (ClassOf(flags) == ManagerClass::Structured)
                ZEM_ASSERT(pool != nullptr, "Pool of structured constant buffer doesn't know %i size stride %i...",
                           static_cast<int>(size), static_cast<int>(stride));
            else
                ZEM_ASSERT(pool != nullptr, "Pool of constant buffer doesn't know this size...");
            return false;
        }
        pool->aPending.Add(buffer);
        return true;
    }

    void BufferManager::EndOfFrame()
    {
        Hold hold(m_kMutex);
        for (PoolMap& pools : m_aPools)
            for (unsigned int i = 0; i < pools.GetSize(); ++i)
            {
                SizePool* pool = pools.GetValueAt(i);
                for (BufferReference* buffer : pool->aPending) pool->aFree.Add(buffer);
                pool->aPending.Clear();
            }
    }

    void BufferManager::Clear()
    {
        TArray<BufferReference*> all;
        {
            Hold hold(m_kMutex);
            for (PoolMap& pools : m_aPools)
                for (unsigned int i = 0; i < pools.GetSize(); ++i)
                {
                    SizePool* pool = pools.GetValueAt(i);
                    for (BufferReference* buffer : pool->aFree) all.Add(buffer);
                    for (BufferReference* buffer : pool->aPending) all.Add(buffer);
                    pool->aFree.ClearAndFree();
                    pool->aPending.ClearAndFree();
                }
        }
        for (BufferReference* buffer : all)
            if (m_pDevice) m_pDevice->DeleteBuffer(buffer);
    }

    unsigned int BufferManager::GetFreeCount(uint32_t size, uint32_t stride, uint32_t flags)
    {
        Hold hold(m_kMutex);
        SizePool* pool = FindPool(size, stride, flags);
        return pool ? pool->aFree.GetSize() : 0;
    }

    unsigned int BufferManager::GetPendingCount(uint32_t size, uint32_t stride, uint32_t flags)
    {
        Hold hold(m_kMutex);
        SizePool* pool = FindPool(size, stride, flags);
        return pool ? pool->aPending.GetSize() : 0;
    }

    unsigned int BufferManager::GetPoolCount()
    {
        Hold hold(m_kMutex);
        unsigned int count = 0;
        for (PoolMap& pools : m_aPools) count += pools.GetSize();
        return count;
    }
}
