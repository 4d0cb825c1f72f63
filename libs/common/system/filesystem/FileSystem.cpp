#include "common/system/filesystem/FileSystem.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/thread/Thread.h"
#include "common/utils/Hash.h"

namespace Common
{
    namespace
    {
        std::atomic<CFileSystem*> s_pInstance{nullptr};

        // Size of an open file, or -1 if it is not a regular file of at most 4 GiB - 1.
        int64_t RegularFileSize(FILE* f)
        {
            struct stat st;
            if (fstat(fileno(f), &st) != 0 || !S_ISREG(st.st_mode)) return -1;
            if (st.st_size < 0 || st.st_size > static_cast<off_t>(UINT32_MAX)) return -1;
            return static_cast<int64_t>(st.st_size);
        }

        bool ReadAll(FILE* f, uint8_t* data, size_t size)
        {
            size_t done = 0;
            while (done < size)
            {
                const size_t n = std::fread(data + done, 1, size - done, f);
                if (n == 0) return false;
                done += n;
            }
            return true;
        }
    }

    CFileSystem::CFileSystem()
    {
        std::memset(m_aDirectories, 0, sizeof(m_aDirectories));
        std::strcpy(m_aDirectories[AssetsRoot], "./Data/");
    }

    CFileSystem* CFileSystem::GetInstance()
    {
        CFileSystem* instance = s_pInstance.load(std::memory_order_acquire);
        if (instance) return instance;
        static CFileSystem s_kDefault;
        CFileSystem* expected = nullptr;
        s_pInstance.compare_exchange_strong(expected, &s_kDefault, std::memory_order_acq_rel);
        return s_pInstance.load(std::memory_order_acquire);
    }

    void CFileSystem::SetInstance(CFileSystem* instance) { s_pInstance.store(instance, std::memory_order_release); }

    bool CFileSystem::SetDirectory(const char* path, int type)
    {
        if (!ZEM_ASSERT(type >= 0 && type < DirectoryTypeCount, "Unknown System Directory Type")) return false;
        const char* text = path ? path : "";
        const size_t length = std::strlen(text);
        if (!ZEM_ASSERT(length < static_cast<size_t>(DirectorySize), "Directory path is too long (%d bytes)",
                        static_cast<int>(length)))
            return false;
        std::memcpy(m_aDirectories[type], text, length + 1);
        return true;
    }

    const char* CFileSystem::GetDirectory(int type) const
    {
        if (!ZEM_ASSERT(type >= 0 && type < DirectoryTypeCount, "Unknown System Directory Type")) return nullptr;
        return m_aDirectories[type];
    }

    bool CFileSystem::NormalizePath(const char* path, char* out, int _iMaxSize)
    {
        if (!ZEM_ASSERT(path != nullptr && out != nullptr, "NormalizePath needs a path and a buffer")) return false;
        const size_t length = std::strlen(path);
        const int iPathLen = length > static_cast<size_t>(INT_MAX) ? INT_MAX : static_cast<int>(length);
        if (!ZEM_ASSERT(_iMaxSize > iPathLen, "Input path string to format is too big !")) return false;
        int o = 0;
        for (int i = 0; i < iPathLen; ++i)
        {
            const char c = (path[i] == '\\') ? '/' : path[i];
            if (c == '/' && o > 0 && out[o - 1] == '/') continue;
            out[o++] = c;
        }
        out[o] = '\0';
        return true;
    }

    bool CFileSystem::NormalizePath(char* path)
    {
        char buffer[PathBufferSize];
        if (!NormalizePath(path, buffer, PathBufferSize)) return false;
        // The result is never longer than the input, so it fits where the input was.
        std::strcpy(path, buffer);
        return true;
    }

    bool CFileSystem::Open(const char* path, const char* mode, FILE** outFile)
    {
        if (!ZEM_ASSERT(outFile != nullptr, "Open needs somewhere to put the file")) return false;
        *outFile = nullptr;
        if (!ZEM_ASSERT(path != nullptr && mode != nullptr, "Open needs a path and a mode")) return false;
        // Another process (an editor, a virus scanner) may hold the file for a moment.
        int retries = 0;
        for (;;)
        {
            FILE* f = std::fopen(path, mode);
            if (f)
            {
                *outFile = f;
                return true;
            }
            const int error = errno;
            if (error == EINTR) continue;
            if (error == EACCES && retries < 3)
            {
                ++retries;
                CThread::Sleep(100);
                continue;
            }
            Log("fopen_s has launched an error : %i\n", error);
            return false;
        }
    }

    CFileBase* CFileSystem::LoadFile(const char* path)
    {
        FILE* f = nullptr;
        if (!Open(path, "rb", &f)) return nullptr;
        const int64_t size = RegularFileSize(f);
        if (size < 0)
        {
            Log("LoadFile : %s is not a readable file\n", path);
            std::fclose(f);
            return nullptr;
        }
        CFileBase* file = MEM_NEW(CFileBase, static_cast<uint32_t>(size));
        if (file && (!file->IsValid() || !ReadAll(f, file->GetBuffer(), static_cast<size_t>(size))))
        {
            Log("LoadFile : could not read %s\n", path);
            MEM_DELETE(file);
            file = nullptr;
        }
        std::fclose(f);
        return file;
    }

    bool CFileSystem::GetProgramDirectory(char* out, size_t size)
    {
        char path[PathBufferSize];
        const ssize_t n = readlink("/proc/self/exe", path, sizeof(path) - 1);
        if (n <= 0 || !out) return false;
        path[n] = '\0';
        char* slash = std::strrchr(path, '/');
        if (!slash) return false;
        *slash = '\0';
        const char* folder = slash == path ? "/" : path;
        const size_t length = std::strlen(folder);
        if (length >= size) return false;
        std::memcpy(out, folder, length + 1);
        return true;
    }

    bool CFileSystem::IsDirectory(const char* path)
    {
        struct stat st;
        return path && stat(path, &st) == 0 && S_ISDIR(st.st_mode);
    }
}

unsigned int GenerateUIntIdFromFile(const char* path)
{
    constexpr unsigned int kUnreadable = 0xFFFFFFFFu;
    if (!path) return kUnreadable;
    FILE* f = std::fopen(path, "rb");
    if (!f) return kUnreadable;
    const int64_t size = Common::RegularFileSize(f);
    unsigned int id = kUnreadable;
    if (size >= 0)
    {
        uint8_t* data = static_cast<uint8_t*>(MEM_ALLOC(size ? static_cast<size_t>(size) : 1));
        if (data && Common::ReadAll(f, data, static_cast<size_t>(size)))
            id = GenerateUIntIdFromBuffer(data, static_cast<size_t>(size), 0);
        if (data) MEM_FREE(data);
    }
    std::fclose(f);
    return id;
}
