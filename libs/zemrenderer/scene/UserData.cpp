#include "zemrenderer/scene/UserData.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    namespace
    {
        void FreeTrackedBuffer(void* buffer) { UserData::FreeBuffer(buffer); }

        struct HandlerSlot
        {
            RenderThread* pThread;
            IUserDataHandler* pHandler;
        };

        Common::CMutex& HandlerMutex()
        {
            static Common::CMutex s_kMutex;
            return s_kMutex;
        }
        TArray<HandlerSlot>& Handlers()
        {
            static TArray<HandlerSlot> s_aHandlers;
            return s_aHandlers;
        }
    }

    UserData::~UserData() { FreeBuffer(m_pBuffer); }

    void* UserData::AllocateBuffer(uint32_t size)
    {
        if (size == 0) return nullptr;
        void* buffer = Common::Mem::CMemoryManager::GetInstance()->AllocAligned(size, 16, __FILE__, __LINE__);
        if (buffer) std::memset(buffer, 0, size);
        return buffer;
    }

    void UserData::FreeBuffer(void* buffer)
    {
        if (buffer) MEM_FREE(buffer);
    }

    UserData* UserData::Create(Bucket* bucket, uint32_t tag, uint32_t size)
    {
        void* buffer = AllocateBuffer(size);
        if (size && !ZEM_ASSERT(buffer != nullptr, "No memory left !")) return nullptr;
        UserData* block = nullptr;
        if (bucket)
        {
            block = bucket->GetUserDataPool().Allocate(tag, size, buffer);
            if (block) block->m_pPool = &bucket->GetUserDataPool();
        }
        else
            block = MEM_NEW(UserData, tag, size, buffer);
        if (!block) FreeBuffer(buffer);
        return block;
    }

    void UserData::Destroy(UserData* block)
    {
        if (!block) return;
        if (TPool<UserData>* pool = block->m_pPool)
            pool->Release(block);
        else
            MEM_DELETE(block);
    }

    void UserData::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        s.Serialize(m_uiTag);
        uint32_t size = m_uiSize;
        s.Serialize(size);
        if (m.HasFailed()) return;
        if (!s.IsReading() && m_uiSize && !m_pBuffer)
            return m.Fail("User data %08X of %u bytes has no buffer: can't write it.", m_uiTag, m_uiSize);
        if (s.IsLoading())
        {
            if (m_pBuffer && size != m_uiSize) return m.Fail("Serialize same user data on different stream ???");
            if (!m_pBuffer && size > 0)
            {
                if (size > m.GetRemainingBytes())
                    return m.Fail("User data of %u bytes runs past the end of the Zemora Engine File!", size);
                void* buffer = AllocateBuffer(size);
                if (!buffer) return m.Fail("No memory for %u bytes of user data of a Zemora Engine File!", size);
                m_pBuffer = buffer;
                // A failed read frees the buffer and forgets it with the rest of the graph.
                m.TrackField(&m_pBuffer);
                m.TrackAllocation(buffer, &FreeTrackedBuffer);
            }
            m_uiSize = size;
        }
        if (s.IsSkipping())
            m.GetStream()->Skip(static_cast<int64_t>(m_uiSize));
        else if (m_pBuffer)
            m.MoveBytes(m_pBuffer, m_uiSize);
        s.SerializePointer(m_pNext);
    }

    // ---------------------------------------------------------------- dispatch

    void UserDataDispatch::SetHandler(RenderThread* thread, IUserDataHandler* handler)
    {
        Common::CMutex& mutex = HandlerMutex();
        mutex.Lock();
        TArray<HandlerSlot>& slots = Handlers();
        unsigned int i = 0;
        while (i < slots.GetSize() && slots[i].pThread != thread) ++i;
        if (i < slots.GetSize())
        {
            if (handler)
                slots[i].pHandler = handler;
            else
                slots.Remove(i);
        }
        else if (handler)
            slots.Add(HandlerSlot{thread, handler});
        if (slots.IsEmpty()) slots.ClearAndFree();
        mutex.Unlock();
    }

    IUserDataHandler* UserDataDispatch::GetHandler(RenderThread* thread)
    {
        Common::CMutex& mutex = HandlerMutex();
        mutex.Lock();
        IUserDataHandler* handler = nullptr;
        for (const HandlerSlot& slot : Handlers())
            if (slot.pThread == thread) handler = slot.pHandler;
        mutex.Unlock();
        return handler;
    }

    // ---------------------------------------------------------------- helper

    UserData* UserDataHelper::AddElement(Link* link, Bucket* bucket, uint32_t tag, const void* element,
                                         uint32_t elementSize)
    {
        if (!ZEM_ASSERT(link != nullptr && element != nullptr && elementSize != 0, "Pointer must be non null"))
            return nullptr;
        if (!bucket) bucket = link->GetBucket();
        UserData* block = link->FindUserData(tag);
        if (!block)
        {
            block = UserData::Create(bucket, tag, kHeadSize + elementSize);
            if (!block) return nullptr;
            const uint32_t head[2] = {tag, 0};
            std::memcpy(block->m_pBuffer, head, kHeadSize);
            if (!link->AddUserData(block))
            {
                UserData::Destroy(block);
                return nullptr;
            }
        }
        else
        {
            if (!ZEM_ASSERT(block->m_uiSize >= kHeadSize && block->m_pBuffer, "UserData %08X has no array head", tag))
                return nullptr;
            if (!ZEM_ASSERT(block->m_uiSize <= 0xFFFFFFFFu - elementSize, "UserData %08X is full", tag)) return nullptr;
            void* grown = UserData::AllocateBuffer(block->m_uiSize + elementSize);
            if (!ZEM_ASSERT(grown != nullptr, "No memory left !")) return nullptr;
            std::memcpy(grown, block->m_pBuffer, block->m_uiSize);
            UserData::FreeBuffer(block->m_pBuffer);
            block->m_pBuffer = grown;
            block->m_uiSize += elementSize;
        }
        unsigned char* bytes = static_cast<unsigned char*>(block->m_pBuffer);
        uint32_t count = 0;
        std::memcpy(&count, bytes + 4, sizeof(count));
        std::memcpy(bytes + block->m_uiSize - elementSize, element, elementSize);
        ++count;
        std::memcpy(bytes + 4, &count, sizeof(count));
        return block;
    }

    uint32_t UserDataHelper::GetCount(const UserData* block)
    {
        if (!block || !block->m_pBuffer || block->m_uiSize < kHeadSize) return 0;
        uint32_t count = 0;
        std::memcpy(&count, static_cast<const unsigned char*>(block->m_pBuffer) + 4, sizeof(count));
        return count;
    }

    void* UserDataHelper::GetElements(UserData* block)
    {
        if (!block || !block->m_pBuffer || block->m_uiSize <= kHeadSize) return nullptr;
        return static_cast<unsigned char*>(block->m_pBuffer) + kHeadSize;
    }
}
