#pragma once
// Random access to files past 4 GB (pages of large textures): 64-bit positions and a
// pending skip applied by one seek before the next read or write. Not an IOSTreamBase.
#include <cstddef>
#include <cstdint>

namespace ZemRenderer
{
    class IOSTreamDiskBigFile
    {
    public:
        IOSTreamDiskBigFile() = default;
        ~IOSTreamDiskBigFile() { Close(); }
        IOSTreamDiskBigFile(const IOSTreamDiskBigFile&) = delete;
        IOSTreamDiskBigFile& operator=(const IOSTreamDiskBigFile&) = delete;

        bool OpenToRead(const char* path);
        // Creates or truncates; the file is not shared while open.
        bool OpenToWrite(const char* path);
        bool Close();
        bool IsReadable() const { return m_bReadable; }
        uint64_t Read(void* out, uint64_t bytes);
        uint64_t Write(const void* in, uint64_t bytes);
        // Only remembered; false (and position 0) for a target before the start.
        bool Skip(int64_t bytes);
        bool Rewind();
        uint64_t GetPosition() const { return static_cast<uint64_t>(static_cast<int64_t>(m_uiPosition) + m_iPendingSkip); }
        // All ones when nothing is open.
        uint64_t GetSize() const;

    private:
        bool Open(const char* path, bool write);
        bool ApplyPendingSkip();

        int m_iFile = -1;
        uint64_t m_uiPosition = 0;
        int64_t m_iPendingSkip = 0;
        bool m_bReadable = false;
        bool m_bWritable = false;
    };
}
