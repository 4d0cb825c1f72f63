// Building a package from a folder. The walk is sorted by name, so the same folder
// gives the same bytes on every machine.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/ByteSwap.h"
#include "zemrenderer/io/IOStreamPackage.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr size_t kMaxListLine = 2048;
        constexpr size_t kCopyChunk = 1 << 20;
        constexpr uint64_t kMaxPackageOffset = 0xFFFFFFFFull;

        // Names packed into one block of characters, with a sorted view for look-ups.
        class NameList
        {
        public:
            bool Add(const char* name)
            {
                const size_t length = std::strlen(name) + 1;
                const unsigned int at = m_aChars.GetSize();
                if (static_cast<uint64_t>(at) + length >= TArray<char>::uiMaxValue) return false;
                const unsigned int needed = static_cast<unsigned int>(at + length);
                if (needed > m_aChars.GetCapacity())
                {
                    const unsigned int cap = m_aChars.GetCapacity();
                    const unsigned int grown = cap > TArray<char>::uiMaxValue / 2 ? TArray<char>::uiMaxValue : cap * 2;
                    if (!m_aChars.Reserve(std::max(needed, grown))) return false;
                }
                m_aChars.SetSize(needed);
                std::memcpy(m_aChars.GetData() + at, name, length);
                m_aOffsets.Add(at);
                m_bSorted = false;
                return true;
            }
            unsigned int GetCount() const { return m_aOffsets.GetSize(); }
            const char* Get(unsigned int i) const { return m_aChars.GetData() + m_aOffsets[i]; }
            bool Contains(const char* name)
            {
                if (!m_bSorted)
                {
                    m_aSorted = m_aOffsets;
                    const char* chars = m_aChars.GetData();
                    std::sort(m_aSorted.begin(), m_aSorted.end(),
                              [chars](unsigned int a, unsigned int b) { return std::strcmp(chars + a, chars + b) < 0; });
                    m_bSorted = true;
                }
                const char* chars = m_aChars.GetData();
                return std::binary_search(m_aSorted.begin(), m_aSorted.end(), name,
                                          [chars](const auto& a, const auto& b) {
                                              return std::strcmp(Text(chars, a), Text(chars, b)) < 0;
                                          });
            }

        private:
            static const char* Text(const char*, const char* s) { return s; }
            static const char* Text(const char* chars, unsigned int offset) { return chars + offset; }

            TArray<char> m_aChars;
            TArray<unsigned int> m_aOffsets;
            TArray<unsigned int> m_aSorted;
            bool m_bSorted = false;
        };

        struct FileId
        {
            dev_t dev = 0;
            ino_t ino = 0;
            bool valid = false;
        };
        FileId IdOf(const char* path)
        {
            struct stat st;
            if (!path || stat(path, &st) != 0) return {};
            return {st.st_dev, st.st_ino, true};
        }

        struct WalkState
        {
            FILE* pList;
            NameList* pWalk;
            FileId aSkip[2];
        };

        bool Walk(WalkState& state, const char* dir, const char* relative)
        {
            DIR* d = opendir(dir);
            if (!d)
            {
                Common::Log("Package: cannot read the folder %s.\n", dir);
                return false;
            }
            NameList names;
            TArray<unsigned int> order;
            while (const dirent* e = readdir(d))
            {
                // Dot entries are the hidden ones on this system.
                if (e->d_name[0] == '.') continue;
                order.Add(names.GetCount());
                names.Add(e->d_name);
            }
            closedir(d);
            std::sort(order.begin(), order.end(),
                      [&names](unsigned int a, unsigned int b) { return std::strcmp(names.Get(a), names.Get(b)) < 0; });

            for (unsigned int index : order)
            {
                const char* name = names.Get(index);
                char full[4096];
                char rel[4096];
                if (std::snprintf(full, sizeof(full), "%s/%s", dir, name) >= static_cast<int>(sizeof(full)) ||
                    std::snprintf(rel, sizeof(rel), "%s%s", relative, name) >= static_cast<int>(sizeof(rel)))
                {
                    Common::Log("Package: path too long below %s.\n", dir);
                    return false;
                }
                struct stat st;
                if (lstat(full, &st) != 0) continue;
                // Links to folders are not followed, so that a walk always ends.
                if (S_ISLNK(st.st_mode) && (stat(full, &st) != 0 || !S_ISREG(st.st_mode))) continue;
                bool skip = false;
                for (const FileId& id : state.aSkip)
                    skip |= id.valid && id.dev == st.st_dev && id.ino == st.st_ino;
                if (skip) continue;
                if (S_ISDIR(st.st_mode))
                {
                    std::strcat(rel, "/");
                    if (!Walk(state, full, rel)) return false;
                }
                else if (S_ISREG(st.st_mode))
                {
                    if (std::strpbrk(rel, "\r\n"))
                    {
                        Common::Log("Package: \"%s\" has a line break in its name; left out.\n", full);
                        continue;
                    }
                    std::fprintf(state.pList, "%s\n", rel);
                    if (!state.pWalk->Add(rel)) return false;
                }
            }
            return true;
        }

        bool ReadList(const char* path, NameList& files, NameList& named)
        {
            FILE* f = std::fopen(path, "r");
            if (!f)
            {
                Common::Log("Package: cannot read the list %s.\n", path);
                return false;
            }
            char line[kMaxListLine + 2];
            while (std::fgets(line, sizeof(line), f))
            {
                size_t n = std::strlen(line);
                if (n && line[n - 1] != '\n' && !std::feof(f))
                {
                    Common::Log("Package: a line of %s is longer than %zu characters.\n", path, kMaxListLine);
                    std::fclose(f);
                    return false;
                }
                while (n && (line[n - 1] == '\n' || line[n - 1] == '\r')) line[--n] = '\0';
                if (!n || named.Contains(line)) continue;
                files.Add(line);
                named.Add(line);
            }
            std::fclose(f);
            return true;
        }

        void SwapEntry(unsigned char* record)
        {
            ByteSwapInPlace(record, 4);
            ByteSwapInPlace(record + 4, 4);
        }

        bool CopyFile(const char* source, const stFileDesc& entry, FILE* out, void* buffer)
        {
            FILE* in = std::fopen(source, "rb");
            uint64_t left = entry.uiSize;
            bool readOk = in != nullptr;
            while (readOk && left)
            {
                const size_t want = left < kCopyChunk ? static_cast<size_t>(left) : kCopyChunk;
                const size_t got = std::fread(buffer, 1, want, in);
                if (got != want) readOk = false;
                if (got && std::fwrite(buffer, 1, got, out) != got)
                {
                    Common::Log("Package: file write not finished: %s\n", source);
                    if (in) std::fclose(in);
                    return false;
                }
                left -= got;
            }
            if (in) std::fclose(in);
            if (!readOk) Common::Log("Package: file read not finished: %s\n", source);
            return readOk;
        }
    }

    bool IOStreamPackage::Create(const char* rootDir, const char* listFile, const char* packagePath, bool swapBytes,
                                 const char* orderFile)
    {
        if (!rootDir || !rootDir[0] || !listFile || !listFile[0] || !packagePath || !packagePath[0]) return false;

        // 1. The walk, written to the list.
        FILE* list = std::fopen(listFile, "w");
        if (!list)
        {
            Common::Log("Package: cannot write the list %s.\n", listFile);
            return false;
        }
        NameList walk;
        WalkState state{list, &walk, {IdOf(listFile), IdOf(packagePath)}};
        const bool walked = Walk(state, rootDir, "");
        if (std::fclose(list) != 0 || !walked) return false;

        // 2. and 3. The order: the order file's names first, then the rest of the walk.
        NameList files;
        NameList named;
        if (!ReadList(orderFile && orderFile[0] ? orderFile : listFile, files, named)) return false;
        if (orderFile && orderFile[0])
            for (unsigned int i = 0; i < walk.GetCount(); ++i)
                if (!named.Contains(walk.Get(i))) files.Add(walk.Get(i));

        // 4. The header.
        const unsigned int count = files.GetCount();
        const uint64_t directorySize = (static_cast<uint64_t>(count) + 1) * kPackageRecordSize;
        if (directorySize > kMaxPackageOffset)
        {
            Common::Log("Package: %u files are too many for one package.\n", count);
            return false;
        }
        unsigned char* directory = static_cast<unsigned char*>(MEM_ALLOC(static_cast<size_t>(directorySize)));
        void* buffer = MEM_ALLOC(kCopyChunk);
        if (!directory || !buffer)
        {
            if (directory) MEM_FREE(directory);
            if (buffer) MEM_FREE(buffer);
            return false;
        }
        std::memset(directory, 0, static_cast<size_t>(directorySize));
        stPackageHeader* header = reinterpret_cast<stPackageHeader*>(directory);
        header->uiMagic = kPackageMagic;
        header->uiCount = count;
        const char* root = std::strstr(rootDir, "Data");
        std::strncpy(header->szRoot, root ? root : rootDir, kPackageNameSize - 1);
        stFileDesc* entries = reinterpret_cast<stFileDesc*>(directory + kPackageRecordSize);

        // 5. The entries.
        bool ok = true;
        uint64_t offset = directorySize;
        for (unsigned int i = 0; i < count && ok; ++i)
        {
            char source[4096];
            std::snprintf(source, sizeof(source), "%s/%s", rootDir, files.Get(i));
            struct stat st;
            const int fd = open(source, O_RDONLY);
            if (fd < 0 || fstat(fd, &st) != 0 || !S_ISREG(st.st_mode))
            {
                if (fd >= 0) close(fd);
                Common::Log("Package: cannot read %s; it is left out.\n", source);
                continue;
            }
            close(fd);
            if (offset + static_cast<uint64_t>(st.st_size) > kMaxPackageOffset)
            {
                Common::Log("Package: %s would end past the 4 GB a package can address.\n", source);
                ok = false;
                break;
            }
            if (std::strlen(files.Get(i)) >= kPackageNameSize)
                Common::Log("Package: the name %s is cut to %zu characters.\n", files.Get(i), kPackageNameSize - 1);
            entries[i].uiSize = static_cast<unsigned int>(st.st_size);
            entries[i].uiOffset = static_cast<unsigned int>(offset);
            std::strncpy(entries[i].szName, files.Get(i), kPackageNameSize - 1);
            offset += static_cast<uint64_t>(st.st_size);
        }

        // 6. The directory, then 7. the files.
        FILE* out = ok ? std::fopen(packagePath, "wb") : nullptr;
        if (ok && !out)
        {
            Common::Log("Package: cannot write %s.\n", packagePath);
            ok = false;
        }
        if (ok)
        {
            if (swapBytes)
            {
                for (unsigned int i = 0; i < count; ++i) SwapEntry(reinterpret_cast<unsigned char*>(entries + i));
                SwapEntry(directory);
            }
            if (std::fwrite(directory, 1, static_cast<size_t>(directorySize), out) != directorySize)
            {
                Common::Log("Package: file write not finished: %s\n", packagePath);
                ok = false;
            }
            if (swapBytes)
            {
                SwapEntry(directory);
                for (unsigned int i = 0; i < count; ++i) SwapEntry(reinterpret_cast<unsigned char*>(entries + i));
            }
        }
        for (unsigned int i = 0; i < count && ok; ++i)
        {
            if (!entries[i].szName[0]) continue;
            char source[4096];
            std::snprintf(source, sizeof(source), "%s/%s", rootDir, files.Get(i));
            ok = CopyFile(source, entries[i], out, buffer);
        }
        if (out && std::fclose(out) != 0)
        {
            Common::Log("Package: file write not finished: %s\n", packagePath);
            ok = false;
        }
        if (!ok && out) std::remove(packagePath);
        MEM_FREE(buffer);
        MEM_FREE(directory);
        return ok;
    }
}
