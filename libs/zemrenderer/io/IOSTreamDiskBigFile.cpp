#include "zemrenderer/io/IOSTreamDiskBigFile.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "zemrenderer/io/IOPath.h"

namespace ZemRenderer
{
    bool IOSTreamDiskBigFile::Open(const char* path, bool write)
    {
        Close();
        char normalized[1024];
        if (!path || !IOPath::Normalize(path, normalized, sizeof(normalized))) return false;
        m_iFile = write ? open(normalized, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644)
                        : open(normalized, O_RDONLY | O_CLOEXEC);
        if (m_iFile < 0) return false;
        if (write && flock(m_iFile, LOCK_EX | LOCK_NB) != 0)
        {
            Close();
            return false;
        }
        m_bReadable = !write;
        m_bWritable = write;
        return true;
    }

    bool IOSTreamDiskBigFile::OpenToRead(const char* path) { return Open(path, false); }
    bool IOSTreamDiskBigFile::OpenToWrite(const char* path) { return Open(path, true); }

    bool IOSTreamDiskBigFile::Close()
    {
        const bool wasOpen = m_iFile >= 0;
        if (wasOpen) close(m_iFile);
        m_iFile = -1;
        m_uiPosition = 0;
        m_iPendingSkip = 0;
        m_bReadable = m_bWritable = false;
        return wasOpen;
    }

    bool IOSTreamDiskBigFile::Skip(int64_t bytes)
    {
        const int64_t target = static_cast<int64_t>(m_uiPosition) + m_iPendingSkip + bytes;
        if (target < 0)
        {
            m_iPendingSkip = -static_cast<int64_t>(m_uiPosition);
            return false;
        }
        m_iPendingSkip += bytes;
        return true;
    }

    bool IOSTreamDiskBigFile::Rewind()
    {
        m_iPendingSkip = -static_cast<int64_t>(m_uiPosition);
        return m_iFile >= 0;
    }

    bool IOSTreamDiskBigFile::ApplyPendingSkip()
    {
        if (m_iPendingSkip == 0) return true;
        const off_t at = lseek(m_iFile, static_cast<off_t>(m_iPendingSkip), SEEK_CUR);
        if (at < 0) return false;
        m_uiPosition = static_cast<uint64_t>(at);
        m_iPendingSkip = 0;
        return true;
    }

    uint64_t IOSTreamDiskBigFile::Read(void* out, uint64_t bytes)
    {
        if (m_iFile < 0 || !m_bReadable || !out || !ApplyPendingSkip()) return 0;
        char* p = static_cast<char*>(out);
        uint64_t done = 0;
        while (done < bytes)
        {
            const ssize_t n = read(m_iFile, p + done, static_cast<size_t>(bytes - done));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<uint64_t>(n);
        }
        m_uiPosition += done;
        return done;
    }

    uint64_t IOSTreamDiskBigFile::Write(const void* in, uint64_t bytes)
    {
        if (m_iFile < 0 || !m_bWritable || !in || !ApplyPendingSkip()) return 0;
        const char* p = static_cast<const char*>(in);
        uint64_t done = 0;
        while (done < bytes)
        {
            const ssize_t n = write(m_iFile, p + done, static_cast<size_t>(bytes - done));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<uint64_t>(n);
        }
        m_uiPosition += done;
        return done;
    }

    uint64_t IOSTreamDiskBigFile::GetSize() const
    {
        struct stat st;
        if (m_iFile < 0 || fstat(m_iFile, &st) != 0) return ~0ull;
        return static_cast<uint64_t>(st.st_size);
    }
}
