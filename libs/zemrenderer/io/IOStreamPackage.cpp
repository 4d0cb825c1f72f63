#include "zemrenderer/io/IOStreamPackage.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/Hash.h"
#include "zemrenderer/io/ByteSwap.h"
#include "zemrenderer/io/IOSTreamPackageSingle.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr size_t kCopyChunk = 1 << 20;

        // A name from a package may only lead below the folder it is written to.
        bool IsSafeRelativePath(const char* path)
        {
            if (IOPath::IsSeparator(path[0])) return false;
            const char* part = path;
            for (const char* p = path;; ++p)
            {
                if (*p == '\0' || IOPath::IsSeparator(*p))
                {
                    const size_t n = static_cast<size_t>(p - part);
                    if (n == 2 && part[0] == '.' && part[1] == '.') return false;
                    if (*p == '\0') return true;
                    part = p + 1;
                }
            }
        }

        bool MakeParentDirectories(char* path)
        {
            for (char* p = path + 1; *p; ++p)
            {
                if (*p != '/') continue;
                *p = '\0';
                const bool ok = mkdir(path, 0755) == 0 || errno == EEXIST;
                *p = '/';
                if (!ok) return false;
            }
            return true;
        }
    }

    IOStreamPackage::IOStreamPackage(const char* path, unsigned int flag) : m_uiFlag(flag)
    {
        IOPath::Normalize(path, m_szPath, sizeof(m_szPath));
    }

    IOStreamPackage::~IOStreamPackage() { Close(false); }

    bool IOStreamPackage::Reject(const char* format, ...)
    {
        char text[512];
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof(text), format, args);
        va_end(args);
        Common::Log("Package %s: %s; it is passed over.\n", m_szPath, text);
        DropDirectory();
        m_kStream.Close();
        m_eState = eRejected;
        return false;
    }

    void IOStreamPackage::DropDirectory()
    {
        if (m_pDirectory) MEM_FREE(m_pDirectory);
        m_pDirectory = nullptr;
        m_dFiles.ClearAndFree();
        m_aUsedFlags.ClearAndFree();
        m_aUsed.ClearAndFree();
        m_szRoot[0] = '\0';
        m_bSwapped = false;
    }

    const stFileDesc* IOStreamPackage::FindHash(unsigned int hash) const
    {
        const stFileKey* end = m_dFiles.end();
        const stFileKey* it = std::lower_bound(m_dFiles.begin(), end, hash,
                                               [](const stFileKey& k, unsigned int h) { return k.uiHash < h; });
        return it != end && it->uiHash == hash ? it->pDesc : nullptr;
    }

    bool IOStreamPackage::PostMount()
    {
        if (m_eState != eUnmounted) return m_eState == eLive;
        if (!m_szPath[0] || !m_kStream.OpenToRead(m_szPath)) return false;
        const size_t fileSize = m_kStream.GetSize();
        if (fileSize == static_cast<size_t>(-1)) return Reject("its size cannot be read");
        m_uiFileSize = fileSize;

        stPackageHeader header;
        if (m_kStream.Read(&header, sizeof(header)) != sizeof(header))
            return Reject("truncated, %zu bytes is shorter than the 128-byte header", fileSize);
        if (header.uiMagic == kPackageMagicSwapped)
        {
            m_bSwapped = true;
            header.uiMagic = kPackageMagic;
            header.uiCount = ByteSwap32(header.uiCount);
        }
        else if (header.uiMagic != kPackageMagic)
            return Reject("bad magic 0x%08X, not a package", header.uiMagic);

        const uint64_t directorySize = (static_cast<uint64_t>(header.uiCount) + 1) * kPackageRecordSize;
        if (directorySize > fileSize)
            return Reject("truncated, the directory of %u files needs %llu bytes and the file has %zu", header.uiCount,
                          static_cast<unsigned long long>(directorySize), fileSize);
        if (!std::memchr(header.szRoot, 0, kPackageNameSize)) return Reject("root path without its terminator");

        m_pDirectory = static_cast<unsigned char*>(MEM_ALLOC(static_cast<size_t>(directorySize)));
        if (!m_pDirectory) return Reject("no memory for a directory of %u files", header.uiCount);
        std::memcpy(m_pDirectory, &header, sizeof(header));
        const size_t rest = static_cast<size_t>(directorySize) - kPackageRecordSize;
        if (m_kStream.Read(m_pDirectory + kPackageRecordSize, rest) != rest)
            return Reject("truncated inside its directory");

        if (!IOPath::Normalize(header.szRoot, m_szRoot, sizeof(m_szRoot))) return Reject("root path too long");
        for (size_t n = std::strlen(m_szRoot); n > 0 && m_szRoot[n - 1] == IOPath::kSeparator; --n)
            m_szRoot[n - 1] = '\0';

        stFileDesc* entries = reinterpret_cast<stFileDesc*>(m_pDirectory + kPackageRecordSize);
        if (!m_dFiles.Reserve(header.uiCount) || !m_aUsedFlags.Reserve(header.uiCount))
            return Reject("no memory for a directory of %u files", header.uiCount);
        for (unsigned int i = 0; i < header.uiCount; ++i)
        {
            stFileDesc& e = entries[i];
            if (m_bSwapped)
            {
                e.uiSize = ByteSwap32(e.uiSize);
                e.uiOffset = ByteSwap32(e.uiOffset);
            }
            if (!std::memchr(e.szName, 0, kPackageNameSize))
                return Reject("the name of entry %u has no terminator", i);
            if (e.uiSize && static_cast<uint64_t>(e.uiOffset) + e.uiSize > fileSize)
                return Reject("entry %u (%s) points past the end of the file", i, e.szName);
            // The image is ours: names are normalised in place once.
            char name[kPackageNameSize];
            IOPath::Normalize(e.szName, name, sizeof(name));
            std::memcpy(e.szName, name, sizeof(name));
            // An entry without a name is a file that could not be read when packing.
            if (e.szName[0]) m_dFiles.Add(stFileKey{GenerateUIntIdFromString(e.szName), &e});
        }
        std::stable_sort(m_dFiles.begin(), m_dFiles.end(),
                         [](const stFileKey& a, const stFileKey& b) { return a.uiHash < b.uiHash; });
        unsigned int kept = 0;
        for (unsigned int i = 0; i < m_dFiles.GetSize(); ++i)
        {
            if (kept && m_dFiles[kept - 1].uiHash == m_dFiles[i].uiHash)
            {
                const stFileDesc* earlier = m_dFiles[kept - 1].pDesc;
                if (std::strcmp(earlier->szName, m_dFiles[i].pDesc->szName) != 0)
                    Common::Log("Package %s: \"%s\" and \"%s\" share an id; the later one is served.\n", m_szPath,
                                earlier->szName, m_dFiles[i].pDesc->szName);
                m_dFiles[kept - 1] = m_dFiles[i];
                continue;
            }
            m_dFiles[kept++] = m_dFiles[i];
        }
        m_dFiles.Resize(kept);
        m_aUsedFlags.SetSize(header.uiCount);
        if (header.uiCount) std::memset(m_aUsedFlags.GetData(), 0, header.uiCount);
        m_eState = eLive;
        return true;
    }

    IOSTreamPackageSingle* IOStreamPackage::Open(const char* normalizedPath, bool logOrder)
    {
        if (!normalizedPath || !PostMount()) return nullptr;
        const size_t rootLength = std::strlen(m_szRoot);
        const char* rest = normalizedPath;
        if (rootLength)
        {
            if (std::strlen(normalizedPath) <= rootLength || std::strncmp(normalizedPath, m_szRoot, rootLength) != 0 ||
                normalizedPath[rootLength] != IOPath::kSeparator)
                return nullptr;
            rest = normalizedPath + rootLength + 1;
        }
        if (!rest[0]) return nullptr;
        const stFileDesc* desc = FindHash(GenerateUIntIdFromString(rest));
        if (!desc || std::strcmp(desc->szName, rest) != 0) return nullptr;
        if (logOrder)
        {
            const unsigned int index = static_cast<unsigned int>(desc - GetFile(0));
            if (!m_aUsedFlags[index])
            {
                m_aUsedFlags[index] = 1;
                m_aUsed.Add(index);
            }
        }
        return OpenEntry(desc);
    }

    const stFileDesc* IOStreamPackage::FindFile(const char* name) const
    {
        if (!name || m_eState != eLive) return nullptr;
        char normalized[IOPath::kMaxPackagePath];
        if (!IOPath::Normalize(name, normalized, sizeof(normalized))) return nullptr;
        const stFileDesc* desc = FindHash(GenerateUIntIdFromString(normalized));
        return desc && std::strcmp(desc->szName, normalized) == 0 ? desc : nullptr;
    }

    IOSTreamPackageSingle* IOStreamPackage::OpenEntry(const stFileDesc* desc)
    {
        if (!desc || m_eState != eLive) return nullptr;
        ZEM_ASSERT(m_pCurrent == nullptr, "forgot to close file");
        IOSTreamPackageSingle* file = MEM_NEW(IOSTreamPackageSingle, this, desc);
        if (!file) return nullptr;
        m_aOpenFiles.Add(file);
        m_pCurrent = file;
        m_kStream.Rewind();
        m_kStream.Skip(desc->uiOffset);
        return file;
    }

    void IOStreamPackage::CloseFile(IOSTreamPackageSingle* file)
    {
        m_aOpenFiles.RemoveValue(file);
        if (!ZEM_ASSERT(file == m_pCurrent, "not same file")) return;
        m_pCurrent = nullptr;
    }

    size_t IOStreamPackage::ReadAt(uint64_t offset, void* out, size_t bytes)
    {
        // Positional reads: one system call per read, whatever was read before.
        const size_t n = m_kStream.ReadAt(offset, out, bytes);
        m_kStream.Rewind();
        m_kStream.Skip(static_cast<int64_t>(offset + n));
        return n;
    }

    unsigned int IOStreamPackage::GetFileCount() const
    {
        return m_pDirectory ? reinterpret_cast<const stPackageHeader*>(m_pDirectory)->uiCount : 0;
    }

    const stFileDesc* IOStreamPackage::GetFile(unsigned int index) const
    {
        if (index >= GetFileCount()) return nullptr;
        return reinterpret_cast<const stFileDesc*>(m_pDirectory + kPackageRecordSize) + index;
    }

    bool IOStreamPackage::UnCompress(const char* destDir)
    {
        if (!PostMount()) return false;
        // An absolute root is placed below the destination too.
        const char* root = m_szRoot;
        while (*root == IOPath::kSeparator) ++root;
        if (root[0] && !IsSafeRelativePath(root))
        {
            Common::Log("Package %s: root \"%s\" leads outside the destination; nothing unpacked.\n", m_szPath, m_szRoot);
            return false;
        }
        const char* base = destDir && destDir[0] ? destDir : ".";
        void* buffer = MEM_ALLOC(kCopyChunk);
        if (!buffer) return false;
        bool ok = true;
        for (unsigned int i = 0; i < GetFileCount(); ++i)
        {
            const stFileDesc* desc = GetFile(i);
            if (!desc->szName[0]) continue;
            if (!IsSafeRelativePath(desc->szName))
            {
                Common::Log("Package %s: \"%s\" leads outside the destination; not unpacked.\n", m_szPath, desc->szName);
                ok = false;
                continue;
            }
            char target[4096];
            const int n = root[0] ? std::snprintf(target, sizeof(target), "%s/%s/%s", base, root, desc->szName)
                                  : std::snprintf(target, sizeof(target), "%s/%s", base, desc->szName);
            if (n < 0 || static_cast<size_t>(n) >= sizeof(target) || !MakeParentDirectories(target))
            {
                Common::Log("Package %s: cannot make the folder for \"%s\".\n", m_szPath, desc->szName);
                ok = false;
                continue;
            }
            IOSTreamPackageSingle* in = OpenEntry(desc);
            FILE* out = std::fopen(target, "wb");
            size_t done = 0;
            if (in && out)
            {
                while (done < desc->uiSize)
                {
                    const size_t got = in->Read(buffer, kCopyChunk);
                    if (got == 0 || std::fwrite(buffer, 1, got, out) != got) break;
                    done += got;
                }
            }
            if (out && std::fclose(out) != 0) done = static_cast<size_t>(-1);
            if (!in || !out || done != desc->uiSize)
            {
                Common::Log("Package %s: could not unpack \"%s\" to %s.\n", m_szPath, desc->szName, target);
                ok = false;
            }
            MEM_DELETE(in);
        }
        MEM_FREE(buffer);
        return ok;
    }

    bool IOStreamPackage::WriteOrderLog() const
    {
        char path[IOPath::kMaxPackagePath + 16];
        std::snprintf(path, sizeof(path), "%s_order.txt", m_szPath);
        FILE* f = std::fopen(path, "w");
        if (!f)
        {
            Common::Log("Package %s: cannot write %s.\n", m_szPath, path);
            return false;
        }
        for (unsigned int index : m_aUsed) std::fprintf(f, "%s\n", GetFile(index)->szName);
        for (unsigned int i = 0; i < GetFileCount(); ++i)
            if (!m_aUsedFlags[i] && GetFile(i)->szName[0]) std::fprintf(f, "%s\n", GetFile(i)->szName);
        return std::fclose(f) == 0;
    }

    void IOStreamPackage::Close(bool logOrder)
    {
        if (logOrder && m_eState == eLive) WriteOrderLog();
        for (IOSTreamPackageSingle* file : m_aOpenFiles) file->Detach();
        m_aOpenFiles.ClearAndFree();
        m_pCurrent = nullptr;
        DropDirectory();
        m_kStream.Close();
        m_eState = eUnmounted;
    }
}
