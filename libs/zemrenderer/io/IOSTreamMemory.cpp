#include "zemrenderer/io/IOSTreamMemory.h"

#include <cstring>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDisk.h"

namespace ZemRenderer
{
    IOSTreamMemory::~IOSTreamMemory() { Close(); }

    bool IOSTreamMemory::OpenToRead(const char* path)
    {
        Close();
        m_bReadable = true;
        IOSTreamDisk disk;
        if (!disk.OpenToRead(path))
        {
            Close();
            return false;
        }
        unsigned char chunk[kBlockSize];
        for (;;)
        {
            const size_t n = disk.Read(chunk, sizeof(chunk));
            if (n == 0) break;
            if (Append(chunk, n) != n)
            {
                Close();
                return false;
            }
        }
        disk.Close();
        Rewind();
        return true;
    }

    bool IOSTreamMemory::OpenToWrite(const char*)
    {
        Close();
        m_bWritable = true;
        return true;
    }

    bool IOSTreamMemory::Close()
    {
        Block* b = m_pFirst;
        while (b)
        {
            Block* next = b->pNext;
            MEM_FREE(b);
            b = next;
        }
        m_pFirst = m_pCurrent = m_pLast = nullptr;
        m_uiOffset = m_uiSize = m_uiLastUsed = m_uiPosition = 0;
        m_bReadable = m_bWritable = false;
        return true;
    }

    bool IOSTreamMemory::Rewind()
    {
        m_pCurrent = m_pFirst;
        m_uiOffset = 0;
        m_uiPosition = 0;
        return true;
    }

    bool IOSTreamMemory::SwitchToRead()
    {
        m_bWritable = false;
        m_bReadable = true;
        return Rewind();
    }

    unsigned int IOSTreamMemory::GetBlockCount() const
    {
        unsigned int n = 0;
        for (const Block* b = m_pFirst; b; b = b->pNext) ++n;
        return n;
    }

    size_t IOSTreamMemory::Append(const void* in, size_t bytes)
    {
        const unsigned char* src = static_cast<const unsigned char*>(in);
        size_t done = 0;
        while (done < bytes)
        {
            if (!m_pLast || m_uiLastUsed == kBlockSize)
            {
                Block* b = static_cast<Block*>(
                    Common::Mem::CMemoryManager::GetInstance()->AllocAligned(sizeof(Block), 16, __FILE__, __LINE__));
                if (!b) break;
                b->pNext = nullptr;
                if (m_pLast)
                    m_pLast->pNext = b;
                else
                    m_pFirst = m_pCurrent = b;
                m_pLast = b;
                m_uiLastUsed = 0;
            }
            size_t n = kBlockSize - m_uiLastUsed;
            if (n > bytes - done) n = bytes - done;
            std::memcpy(m_pLast->aData + m_uiLastUsed, src + done, n);
            m_uiLastUsed += n;
            done += n;
        }
        if (m_pLast && m_uiLastUsed < kBlockSize) m_pLast->aData[m_uiLastUsed] = 0;
        m_uiSize += done;
        return done;
    }

    size_t IOSTreamMemory::Write(const void* in, size_t bytes)
    {
        if (!m_bWritable || !in || bytes == 0) return 0;
        const size_t n = Append(in, bytes);
        m_uiPosition = m_uiSize;
        return n;
    }

    size_t IOSTreamMemory::Read(void* out, size_t bytes)
    {
        if (!m_bReadable || !out) return 0;
        if (bytes > m_uiSize - m_uiPosition) bytes = m_uiSize - m_uiPosition;
        unsigned char* dst = static_cast<unsigned char*>(out);
        size_t done = 0;
        while (done < bytes)
        {
            if (m_uiOffset == kBlockSize)
            {
                m_pCurrent = m_pCurrent->pNext;
                m_uiOffset = 0;
            }
            size_t n = kBlockSize - m_uiOffset;
            if (n > bytes - done) n = bytes - done;
            std::memcpy(dst + done, m_pCurrent->aData + m_uiOffset, n);
            m_uiOffset += n;
            done += n;
        }
        m_uiPosition += done;
        return done;
    }

    void IOSTreamMemory::SeekTo(size_t position)
    {
        // A position on a block boundary stays at the end of the block before it, so
        // that the end of a full last block needs no next block. Forward seeks walk on
        // from the current block, so reading rows with gaps stays linear in the size.
        size_t left;
        if (position >= m_uiPosition && m_pCurrent)
            left = m_uiOffset + (position - m_uiPosition);
        else
        {
            Rewind();
            left = position;
        }
        while (left > kBlockSize)
        {
            m_pCurrent = m_pCurrent->pNext;
            left -= kBlockSize;
        }
        m_uiOffset = left;
        m_uiPosition = position;
    }

    bool IOSTreamMemory::Skip(int64_t bytes)
    {
        if (!m_bReadable) return bytes == 0;
        const int64_t target = static_cast<int64_t>(m_uiPosition) + bytes;
        size_t clamped;
        bool ok = true;
        if (target < 0)
        {
            clamped = 0;
            ok = false;
        }
        else if (static_cast<uint64_t>(target) > m_uiSize)
        {
            clamped = m_uiSize;
            ok = false;
        }
        else
            clamped = static_cast<size_t>(target);
        if (clamped >= m_uiPosition && clamped - m_uiPosition <= kBlockSize - m_uiOffset)
        {
            m_uiOffset += clamped - m_uiPosition;
            m_uiPosition = clamped;
        }
        else
            SeekTo(clamped);
        return ok;
    }
}
