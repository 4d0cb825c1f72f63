#pragma once
// A caller's buffer seen as a stream. It cannot be opened by path. With `owned` the
// buffer came from the memory manager and is given back by Close and FreeCache.
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOSTreamExistingMemory : public IOSTreamBase
    {
    public:
        IOSTreamExistingMemory(void* buffer, size_t size, bool owned = false, bool readable = true)
            : m_bOwned(owned), m_pBuffer(static_cast<unsigned char*>(buffer)), m_uiSize(buffer ? size : 0),
              m_bReadable(readable)
        {
        }
        IOSTreamExistingMemory(const void* buffer, size_t size)
            : IOSTreamExistingMemory(const_cast<void*>(buffer), size, false, true)
        {
        }
        ~IOSTreamExistingMemory() override { Close(); }
        IOSTreamExistingMemory(const IOSTreamExistingMemory&) = delete;
        IOSTreamExistingMemory& operator=(const IOSTreamExistingMemory&) = delete;

        bool OpenToRead(const char*) override { return false; }
        bool OpenToWrite(const char*) override { return false; }
        bool Close() override;
        bool Rewind() override
        {
            m_uiPosition = 0;
            return true;
        }
        bool IsReadable() override { return m_bReadable && m_pBuffer; }
        size_t Read(void* out, size_t bytes) override;
        // Writes stop at the end of the buffer.
        size_t Write(const void* in, size_t bytes) override;
        // Clamps to [0, size] and returns false when it had to.
        bool Skip(int64_t bytes) override;
        size_t GetSize() override { return m_uiSize; }
        void FreeCache() override;
        size_t GetPosition() override { return m_uiPosition; }

    private:
        bool m_bOwned;
        unsigned char* m_pBuffer;
        size_t m_uiSize;
        size_t m_uiPosition = 0;
        bool m_bReadable;
    };
}
