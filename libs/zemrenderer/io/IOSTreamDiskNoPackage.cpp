#include "zemrenderer/io/IOSTreamDiskNoPackage.h"

#include <cerrno>
#include <cstring>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOPath.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr size_t kMaxDiskPath = 1024;
    }

    IOSTreamDiskNoPackage::~IOSTreamDiskNoPackage() { Close(); }

    bool IOSTreamDiskNoPackage::Open(const char* path, const char* mode)
    {
        Close();
        if (!path || !path[0]) return false;
        char normalized[kMaxDiskPath];
        if (!IOPath::Normalize(path, normalized, sizeof(normalized)))
        {
            Common::Log("IOSTreamDisk: path too long to open: %.64s...\n", path);
            return false;
        }
        m_pFile = std::fopen(normalized, mode);
        if (m_pFile) std::setvbuf(m_pFile, m_acBuffer, _IOFBF, sizeof(m_acBuffer));
        return m_pFile != nullptr;
    }

    bool IOSTreamDiskNoPackage::OpenToRead(const char* path)
    {
        if (!Open(path, "rb")) return false;
        m_bReadable = true;
        return true;
    }

    bool IOSTreamDiskNoPackage::OpenToWrite(const char* path)
    {
        if (!Open(path, "wb")) return false;
        m_bWritable = true;
        return true;
    }

    bool IOSTreamDiskNoPackage::Close()
    {
        FreeCache();
        const bool wasOpen = m_pFile != nullptr;
        bool ok = true;
        if (m_pFile) ok = std::fclose(m_pFile) == 0;
        m_pFile = nullptr;
        m_uiPosition = 0;
        m_iPendingSkip = 0;
        m_bReadable = m_bWritable = false;
        return wasOpen && ok;
    }

    bool IOSTreamDiskNoPackage::Rewind()
    {
        m_iPendingSkip = -static_cast<int64_t>(m_uiPosition);
        return true;
    }

    bool IOSTreamDiskNoPackage::Skip(int64_t bytes)
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

    bool IOSTreamDiskNoPackage::ApplyPendingSkip()
    {
        if (m_iPendingSkip == 0) return true;
        if (fseeko(m_pFile, static_cast<off_t>(m_iPendingSkip), SEEK_CUR) != 0) return false;
        m_uiPosition = static_cast<size_t>(static_cast<int64_t>(m_uiPosition) + m_iPendingSkip);
        m_iPendingSkip = 0;
        return true;
    }

    size_t IOSTreamDiskNoPackage::Read(void* out, size_t bytes)
    {
        if (!m_pFile || !m_bReadable || !out || bytes == 0) return 0;
        if (!ApplyPendingSkip()) return 0;
        const size_t n = std::fread(out, 1, bytes, m_pFile);
        if (n < bytes)
        {
            if (std::ferror(m_pFile))
            {
                // After an error the file's own idea of the position wins.
                const off_t at = ftello(m_pFile);
                m_uiPosition = at >= 0 ? static_cast<size_t>(at) : m_uiPosition + n;
                std::clearerr(m_pFile);
                return 0;
            }
            m_uiPosition += n;
            std::clearerr(m_pFile);
            return n;
        }
        m_uiPosition += n;
        return n;
    }

    size_t IOSTreamDiskNoPackage::ReadAt(uint64_t offset, void* out, size_t bytes)
    {
        if (!m_pFile || !m_bReadable || !out) return 0;
        const int fd = fileno(m_pFile);
        char* p = static_cast<char*>(out);
        size_t done = 0;
        while (done < bytes)
        {
            const ssize_t n = pread(fd, p + done, bytes - done, static_cast<off_t>(offset + done));
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            done += static_cast<size_t>(n);
        }
        return done;
    }

    size_t IOSTreamDiskNoPackage::Write(const void* in, size_t bytes)
    {
        if (!m_pFile || !m_bWritable || !in || bytes == 0) return 0;
        if (!ApplyPendingSkip()) return 0;
        const size_t n = std::fwrite(in, 1, bytes, m_pFile);
        m_uiPosition += n;
        return n;
    }

    size_t IOSTreamDiskNoPackage::GetSize()
    {
        if (!m_pFile || !m_bReadable) return static_cast<size_t>(-1);
        const off_t here = ftello(m_pFile);
        if (here < 0 || fseeko(m_pFile, 0, SEEK_END) != 0) return static_cast<size_t>(-1);
        const off_t end = ftello(m_pFile);
        fseeko(m_pFile, here, SEEK_SET);
        return end < 0 ? static_cast<size_t>(-1) : static_cast<size_t>(end);
    }

    bool IOSTreamDiskNoPackage::ReadAndCache(void* out, size_t bytes)
    {
        if (!out || bytes == 0) return false;
        if (!m_pCache)
        {
            void* block = MEM_ALLOC(bytes);
            if (!block) return false;
            if (Read(block, bytes) != bytes)
            {
                MEM_FREE(block);
                return false;
            }
            m_pCache = block;
            m_uiCacheSize = bytes;
            std::memcpy(out, m_pCache, bytes);
            return true;
        }
        if (bytes != m_uiCacheSize) return false;
        std::memcpy(out, m_pCache, bytes);
        return Skip(static_cast<int64_t>(bytes));
    }

    void IOSTreamDiskNoPackage::FreeCache()
    {
        if (m_pCache) MEM_FREE(m_pCache);
        m_pCache = nullptr;
        m_uiCacheSize = 0;
    }
}
