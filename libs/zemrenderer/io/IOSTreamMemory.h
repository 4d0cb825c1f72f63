#pragma once
// A growing chain of 4096-byte blocks. Writing appends at the end of the chain; the
// byte behind the written data is kept at 0, so text written into a one-block stream
// reads back as a C string.
#include "zemrenderer/io/IOSTreamBase.h"

namespace ZemRenderer
{
    class IOSTreamMemory : public IOSTreamBase
    {
    public:
        static constexpr size_t kBlockSize = 4096;
        struct Block
        {
            unsigned char aData[kBlockSize];
            Block* pNext;
        };

        explicit IOSTreamMemory(bool skipsData = false) : m_bSkipsData(skipsData) {}
        ~IOSTreamMemory() override;
        IOSTreamMemory(const IOSTreamMemory&) = delete;
        IOSTreamMemory& operator=(const IOSTreamMemory&) = delete;

        // Reads the whole file (through the packages first) into the chain.
        bool OpenToRead(const char* path) override;
        // Starts an empty chain for writing; the path is not used.
        bool OpenToWrite(const char* path) override;
        bool Close() override;
        bool Rewind() override;
        bool IsReadable() override { return m_bReadable; }
        size_t Read(void* out, size_t bytes) override;
        size_t Write(const void* in, size_t bytes) override;
        // Reading only; clamps to [0, size] and returns false when it had to.
        bool Skip(int64_t bytes) override;
        bool SkipsData() override { return m_bSkipsData; }
        size_t GetSize() override { return m_uiSize; }
        size_t GetPosition() override { return m_uiPosition; }

        // Turns what was written into a readable stream at position 0.
        bool SwitchToRead();
        const Block* GetFirstBlock() const { return m_pFirst; }
        unsigned int GetBlockCount() const;

    private:
        size_t Append(const void* in, size_t bytes);
        void SeekTo(size_t position);

        Block* m_pFirst = nullptr;
        Block* m_pCurrent = nullptr;
        size_t m_uiOffset = 0;
        size_t m_uiSize = 0;
        size_t m_uiLastUsed = 0;
        size_t m_uiPosition = 0;
        bool m_bReadable = false;
        bool m_bWritable = false;
        bool m_bSkipsData = false;
        // Where writing appends; the chain is only ever walked forwards.
        Block* m_pLast = nullptr;
    };
}
