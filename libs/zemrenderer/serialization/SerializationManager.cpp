#include "zemrenderer/serialization/SerializationManager.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/ByteSwap.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    SerializationManager::SerializationManager()
        : m_kNodePool(sizeof(Node), alignof(Node)), m_pending(32), m_aMain(32)
    {
    }

    SerializationManager::~SerializationManager() { ReleaseAllNodes(); }

    void SerializationManager::ReleaseNode(Node* node)
    {
        if (!node) return;
        node->~Node();
        m_kNodePool.Free(node);
    }

    void SerializationManager::ReleaseAllNodes()
    {
        for (stNodeKey& k : m_pending) ReleaseNode(k.pNode);
        for (stNodeKey& k : m_batch) ReleaseNode(k.pNode);
        for (stNodeKey& k : m_aMain) ReleaseNode(k.pNode);
        for (stNodeKey& k : m_aRecent) ReleaseNode(k.pNode);
        m_pending.Clear();
        m_batch.Clear();
        m_aMain.Clear();
        m_aRecent.Clear();
    }

    void SerializationManager::Fail(const char* format, ...)
    {
        if (m_bFailed) return;
        m_bFailed = true;
        char text[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        Common::Log("%s\n", text);
    }

    bool SerializationManager::Begin(IOSTreamBase* stream, Bucket* owner, bool swap)
    {
        if (!stream)
        {
            Common::Log("No Stream : can't serialize !\n");
            return false;
        }
        if (m_bBroken)
        {
            Common::Log("Serialization refused: this manager failed to read an earlier object.\n");
            return false;
        }
        m_pStream = stream;
        m_pOwner = owner;
        m_bSwap = swap;
        m_bReading = stream->IsReadable();
        m_bSkipsData = stream->SkipsData();
        m_bFailed = false;
        if (!m_bKeepObjects)
        {
            m_aFields.Clear();
            m_aAllocations.Clear();
        }
        m_aPostLoads.Clear();
        m_uiPassFirstField = m_aFields.GetSize();
        m_uiPassFirstAllocation = m_aAllocations.GetSize();
        return true;
    }

    void SerializationManager::Unhook(unsigned int firstField, unsigned int firstAllocation)
    {
        // Every pointer first, while every object is still alive, then the objects.
        for (unsigned int i = firstField; i < m_aFields.GetSize(); ++i) *m_aFields[i] = nullptr;
        for (unsigned int i = m_aAllocations.GetSize(); i-- > firstAllocation;)
            m_aAllocations[i].pfnDestroy(m_aAllocations[i].pObject);
        m_aFields.Resize(firstField);
        m_aAllocations.Resize(firstAllocation);
    }

    void SerializationManager::ReleaseObjects() { Unhook(0, 0); }

    bool SerializationManager::End()
    {
        const bool ok = !m_bFailed;
        if (!ok && IsLoading())
        {
            Unhook(m_uiPassFirstField, m_uiPassFirstAllocation);
            m_bBroken = true;
        }
        else if (ok)
        {
            // Fix-ups run once the whole graph stands, so that a failed read runs none.
            for (unsigned int i = 0; i < m_aPostLoads.GetSize(); ++i)
                m_aPostLoads[i].pfnPostLoad(m_aPostLoads[i].pObject, *this);
        }
        if (!m_bKeepObjects)
        {
            m_aFields.Clear();
            m_aAllocations.Clear();
        }
        m_aPostLoads.Clear();
        m_pStream = nullptr;
        m_pOwner = nullptr;
        return ok;
    }

    void SerializationManager::MoveValue(void* value, size_t size)
    {
        if (m_bFailed) return;
        if (IsSkipping())
        {
            m_pStream->Skip(static_cast<int64_t>(size));
            return;
        }
        MoveRaw(value, size);
    }

    void SerializationManager::MoveBlock(void* value, size_t size)
    {
        if (m_bFailed) return;
        if (IsSkipping())
        {
            m_pStream->Skip(static_cast<int64_t>(size));
            return;
        }
        unsigned char temp[64];
        if (!ZEM_ASSERT(size <= sizeof(temp), "block of %zu bytes", size)) return Fail("Block too large to serialize.");
        const bool words = m_bSwap && size % 4 == 0;
        if (m_bReading)
        {
            // A stream without data reads nothing into the block: the value stays.
            std::memcpy(temp, value, size);
            if (m_pStream->Read(temp, size) != size) return Fail("Unexpected end of Zemora Engine File!");
            if (words)
                for (size_t i = 0; i < size; i += 4) ByteSwapInPlace(temp + i, 4);
            std::memcpy(value, temp, size);
        }
        else
        {
            std::memcpy(temp, value, size);
            if (words)
                for (size_t i = 0; i < size; i += 4) ByteSwapInPlace(temp + i, 4);
            if (m_pStream->Write(temp, size) != size) Fail("Could not write the Zemora Engine File!");
        }
    }

    void SerializationManager::MoveRaw(void* value, size_t size)
    {
        if (m_bFailed) return;
        unsigned char temp[8];
        std::memcpy(temp, value, size);
        if (m_bReading)
        {
            const size_t n = m_pStream->Read(temp, size);
            // A walk reads through a stream without data: the live value stays.
            if (IsSkipping()) return;
            if (n != size) return Fail("Unexpected end of Zemora Engine File!");
            if (m_bSwap) ByteSwapInPlace(temp, size);
            std::memcpy(value, temp, size);
        }
        else
        {
            if (m_bSwap && !IsSkipping()) ByteSwapInPlace(temp, size);
            if (m_pStream->Write(temp, size) != size) Fail("Could not write the Zemora Engine File!");
        }
    }

    void SerializationManager::MoveBytes(void* data, size_t size)
    {
        if (m_bFailed || size == 0) return;
        if (IsSkipping())
        {
            m_pStream->Skip(static_cast<int64_t>(size));
            return;
        }
        if (m_bReading)
        {
            if (m_pStream->Read(data, size) != size) Fail("Unexpected end of Zemora Engine File!");
        }
        else if (m_pStream->Write(data, size) != size)
            Fail("Could not write the Zemora Engine File!");
    }

    uint64_t SerializationManager::GetRemainingBytes() const
    {
        if (!m_pStream) return 0;
        const size_t size = m_pStream->GetSize();
        const size_t position = m_pStream->GetPosition();
        if (size == static_cast<size_t>(-1) || size < position) return ~0ull;
        return size - position;
    }

    void SerializationManager::AddPending(unsigned long long key, Node* node) { m_pending.Add(stNodeKey{key, node}); }

    void SerializationManager::TrackField(void** field) { m_aFields.Add(field); }

    void SerializationManager::TrackAllocation(void* object, void (*destroy)(void*))
    {
        m_aAllocations.Add(stAllocation{object, destroy});
    }

    void SerializationManager::DeferPostLoad(void* object, void (*postLoad)(void*, SerializationManager&))
    {
        m_aPostLoads.Add(stPostLoad{object, postLoad});
    }

    SerializationManager::Node* SerializationManager::FindKey(unsigned long long key) const
    {
        for (const TArray<stNodeKey>* table : {&m_aMain, &m_aRecent})
        {
            // New keys mostly come in rising order: they lie past the end of the table.
            if (table->IsEmpty() || key < (*table)[0].uiKey || key > table->GetLast().uiKey) continue;
            unsigned int low = 0;
            unsigned int high = table->GetSize();
            while (low < high)
            {
                const unsigned int mid = low + (high - low) / 2;
                const unsigned long long k = (*table)[mid].uiKey;
                if (k == key) return (*table)[mid].pNode;
                if (k < key)
                    low = mid + 1;
                else
                    high = mid;
            }
        }
        return nullptr;
    }

    void SerializationManager::InsertKey(unsigned long long key, Node* node)
    {
        if (m_aRecent.IsEmpty() && (m_aMain.IsEmpty() || m_aMain.GetLast().uiKey < key))
        {
            m_aMain.Add(stNodeKey{key, node});
            return;
        }
        unsigned int low = 0;
        unsigned int high = m_aRecent.GetSize();
        while (low < high)
        {
            const unsigned int mid = low + (high - low) / 2;
            if (m_aRecent[mid].uiKey < key)
                low = mid + 1;
            else
                high = mid;
        }
        m_aRecent.Insert(low, stNodeKey{key, node});
        if (m_aRecent.GetSize() < m_uiRecentLimit) return;

        // Merge the small table into the large one.
        m_aMerge.Clear();
        m_aMerge.Reserve(m_aMain.GetSize() + m_aRecent.GetSize());
        unsigned int a = 0;
        unsigned int b = 0;
        while (a < m_aMain.GetSize() || b < m_aRecent.GetSize())
        {
            if (b == m_aRecent.GetSize() || (a < m_aMain.GetSize() && m_aMain[a].uiKey < m_aRecent[b].uiKey))
                m_aMerge.Add(m_aMain[a++]);
            else
                m_aMerge.Add(m_aRecent[b++]);
        }
        TArray<stNodeKey> swap(static_cast<TArray<stNodeKey>&&>(m_aMain));
        m_aMain = static_cast<TArray<stNodeKey>&&>(m_aMerge);
        m_aMerge = static_cast<TArray<stNodeKey>&&>(swap);
        m_aRecent.Clear();
        while (static_cast<unsigned long long>(m_uiRecentLimit) * m_uiRecentLimit < m_aMain.GetSize())
            m_uiRecentLimit *= 2;
    }

    void SerializationManager::Flush(Serializer& serializer)
    {
        while (!m_pending.IsEmpty())
        {
            // One generation: what the previous one pointed to, in order of first sight.
            TArray<stNodeKey> batch(static_cast<TArray<stNodeKey>&&>(m_pending));
            m_pending = static_cast<TArray<stNodeKey>&&>(m_batch);
            m_pending.Clear();
            for (unsigned int i = 0; i < batch.GetSize(); ++i)
            {
                const stNodeKey entry = batch[i];
                batch[i].pNode = nullptr;
                if (!ZEM_ASSERT(entry.pNode != nullptr, "pending pointer without a node")) continue;
                if (m_bFailed)
                {
                    ReleaseNode(entry.pNode);
                    continue;
                }
                Node* existing = entry.uiKey ? FindKey(entry.uiKey) : nullptr;
                const bool keep = entry.uiKey && !existing;
                if (keep) InsertKey(entry.uiKey, entry.pNode);
                entry.pNode->Serialize(*this, serializer, entry.uiKey, existing);
                if (!keep) ReleaseNode(entry.pNode);
            }
            batch.Clear();
            m_batch = static_cast<TArray<stNodeKey>&&>(batch);
        }
    }
}
