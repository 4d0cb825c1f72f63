#include "common/system/debug/Log.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <pthread.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace Common
{
    namespace
    {
        constexpr int kMaxThread = 6;
        constexpr int kBufferSize = 2048;
        constexpr int kPathSize = 1024;

        // Per-thread text buffers: a thread formats into its own slot, so logging needs
        // no lock. Slots are claimed with a compare-and-swap on the id table and given
        // back when the thread exits, so the limit is on threads logging at the same time.
        char s_aBuffers[kMaxThread][kBufferSize];
        std::atomic<pid_t> s_aThreadIds[kMaxThread];
        thread_local int t_iSlot = -1;

        pthread_key_t s_kSlotKey;
        pthread_once_t s_kSlotKeyOnce = PTHREAD_ONCE_INIT;

        void ReleaseSlot(void* value)
        {
            const int slot = static_cast<int>(reinterpret_cast<intptr_t>(value)) - 1;
            if (slot >= 0 && slot < kMaxThread) s_aThreadIds[slot].store(0, std::memory_order_release);
            t_iSlot = -1;
        }
        void CreateSlotKey() { pthread_key_create(&s_kSlotKey, &ReleaseSlot); }

        // Log settings: written by InitLog, read by every line that reaches the file sink.
        std::mutex s_kSettingsMutex;
        char s_szLogDirectory[kPathSize];
        char s_szDefaultFile[kPathSize];

        std::mutex& CaptureMutex()
        {
            static std::mutex m;
            return m;
        }
        std::vector<ScopedLogCapture*>& Captures()
        {
            static std::vector<ScopedLogCapture*> v;
            return v;
        }
        void FeedCaptures(const char* text)
        {
            std::lock_guard<std::mutex> lock(CaptureMutex());
            for (ScopedLogCapture* c : Captures()) c->Append(text);
        }

        int64_t MonotonicMs()
        {
            timespec ts;
            clock_gettime(CLOCK_MONOTONIC, &ts);
            return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
        }

        // Reading /proc on every line would cost more than the line itself; a debugger
        // attached a moment ago is seen within a second.
        std::atomic<int64_t> s_iTracerCheckedAt{-1};
        std::atomic<bool> s_bTraced{false};
        bool TracedCached()
        {
            const int64_t now = MonotonicMs();
            const int64_t last = s_iTracerCheckedAt.load(std::memory_order_relaxed);
            if (last < 0 || now - last > 1000)
            {
                s_bTraced.store(CheckDebugger(), std::memory_order_relaxed);
                s_iTracerCheckedAt.store(now, std::memory_order_relaxed);
            }
            return s_bTraced.load(std::memory_order_relaxed);
        }

        void DebuggerOutput(const char* text)
        {
            if (TracedCached()) std::fputs(text, stderr);
        }

        void AppendToFile(const char* path, const char* text, bool newLine)
        {
            FILE* f = std::fopen(path, "a");
            if (!f) return;
            std::fputs(text, f);
            if (newLine) std::fputc('\n', f);
            std::fclose(f);
        }

        // Builds "<log directory><name>"; false when there is no file to write to.
        bool LogFilePath(const char* channel, char* out, size_t outSize)
        {
            std::lock_guard<std::mutex> lock(s_kSettingsMutex);
            const char* name = channel ? channel : s_szDefaultFile;
            if (!name[0]) return false;
            const int n = std::snprintf(out, outSize, "%s%s", s_szLogDirectory, name);
            return n > 0 && static_cast<size_t>(n) < outSize;
        }

        void Emit(const char* text)
        {
            DebuggerOutput(text);
            std::fputs(text, stdout);
            std::fflush(stdout);
            char path[2 * kPathSize];
            if (LogFilePath(nullptr, path, sizeof(path))) AppendToFile(path, text, false);
            FeedCaptures(text);
        }

        thread_local ILogFilter* t_pFilter = nullptr;

        // False when the thread's filter keeps the line out; a line the filter puts in
        // front of it is written first.
        bool PassFilter(const char* key, const char* text)
        {
            ILogFilter* filter = t_pFilter;
            if (!filter) return true;
            char before[kBufferSize];
            before[0] = '\0';
            const bool pass = filter->Pass(key, text, before, sizeof(before));
            if (before[0]) Emit(before);
            return pass;
        }

        // The calling thread's buffer, or null for a thread beyond the limit.
        char* ThreadBuffer()
        {
            if (t_iSlot >= 0) return s_aBuffers[t_iSlot];
            pthread_once(&s_kSlotKeyOnce, &CreateSlotKey);
            const pid_t tid = gettid();
            for (int i = 0; i < kMaxThread; ++i)
            {
                pid_t expected = 0;
                if (s_aThreadIds[i].compare_exchange_strong(expected, tid, std::memory_order_acq_rel))
                {
                    t_iSlot = i;
                    pthread_setspecific(s_kSlotKey, reinterpret_cast<void*>(static_cast<intptr_t>(i + 1)));
                    return s_aBuffers[i];
                }
            }
            DebuggerOutput("Increase CDebugLog MaxThread\n");
            FeedCaptures("Increase CDebugLog MaxThread\n");
            return nullptr;
        }

        // Formats into a buffer of kBufferSize bytes. A text that does not fit is not
        // copied at all: a cut line could read as a different message.
        bool FormatBounded(char* out, const char* format, va_list args)
        {
            va_list copy;
            va_copy(copy, args);
            const int n = std::vsnprintf(out, kBufferSize, format, copy);
            va_end(copy);
            if (n < 0) return false;
            const int length = n + 1;
            if (!ZEM_ASSERT(length <= 2048, "Input buffer is too large. Size is %d; Max is %d.", length, kBufferSize))
            {
                out[0] = '\0';
                return false;
            }
            return true;
        }

        void MakeDirectories(const char* path)
        {
            char partial[kPathSize];
            const size_t len = std::strlen(path);
            if (len == 0 || len >= sizeof(partial)) return;
            for (size_t i = 1; i <= len; ++i)
            {
                if (path[i] != '/' && path[i] != '\0') continue;
                std::memcpy(partial, path, i);
                partial[i] = '\0';
                if (mkdir(partial, 0755) != 0 && errno != EEXIST)
                {
                    ReportError("InitLog", errno);
                    return;
                }
            }
        }

        // Appends `part` and one separator to `dir`; false if it would not fit.
        bool AppendDirectory(std::string& dir, const char* part)
        {
            if (!part || !part[0]) return true;
            dir += part;
            if (dir.back() != '/') dir += '/';
            return dir.size() < static_cast<size_t>(kPathSize);
        }
    }

    struct ScopedLogCapture::Impl
    {
        mutable std::mutex mutex;
        std::string text;
    };

    ScopedLogCapture::ScopedLogCapture() : m_pImpl(new Impl)
    {
        std::lock_guard<std::mutex> lock(CaptureMutex());
        Captures().push_back(this);
    }
    ScopedLogCapture::~ScopedLogCapture()
    {
        {
            std::lock_guard<std::mutex> lock(CaptureMutex());
            auto& v = Captures();
            v.erase(std::remove(v.begin(), v.end(), this), v.end());
        }
        delete m_pImpl;
    }
    std::string ScopedLogCapture::Text() const
    {
        std::lock_guard<std::mutex> lock(m_pImpl->mutex);
        return m_pImpl->text;
    }
    bool ScopedLogCapture::Contains(const char* needle) const { return Text().find(needle) != std::string::npos; }
    void ScopedLogCapture::Clear()
    {
        std::lock_guard<std::mutex> lock(m_pImpl->mutex);
        m_pImpl->text.clear();
    }
    void ScopedLogCapture::Append(const char* text)
    {
        std::lock_guard<std::mutex> lock(m_pImpl->mutex);
        m_pImpl->text += text;
    }

    ScopedLogFilter::ScopedLogFilter(ILogFilter* filter) : m_pPrevious(t_pFilter) { t_pFilter = filter; }
    ScopedLogFilter::~ScopedLogFilter() { t_pFilter = m_pPrevious; }

    void LogV(const char* format, va_list args)
    {
        char* buffer = ThreadBuffer();
        if (!buffer) return;
        if (FormatBounded(buffer, format, args) && PassFilter(format, buffer)) Emit(buffer);
    }
    void Log(const char* format, ...)
    {
        va_list args;
        va_start(args, format);
        LogV(format, args);
        va_end(args);
    }

    void LogToFile(const char* channel, const char* line)
    {
        char path[2 * kPathSize];
        if (!line || !LogFilePath(channel, path, sizeof(path))) return;
        AppendToFile(path, line, true);
    }

    void LogToFilef(const char* channel, const char* format, ...)
    {
        char text[kBufferSize];
        va_list args;
        va_start(args, format);
        const bool ok = FormatBounded(text, format, args);
        va_end(args);
        if (ok) LogToFile(channel, text);
    }

    void InitLog(bool useDocuments, const char* subFolder, const char* fileName)
    {
        std::string dir;
        if (useDocuments)
        {
            // An unset documents folder leaves the directory relative, never the root.
            const char* docs = std::getenv("XDG_DOCUMENTS_DIR");
            std::string fromHome;
            if (!docs || !docs[0])
            {
                const char* home = std::getenv("HOME");
                if (home && home[0]) fromHome = std::string(home) + "/Documents";
                docs = fromHome.c_str();
            }
            AppendDirectory(dir, docs);
        }
        const bool fits = AppendDirectory(dir, subFolder);
        const size_t nameLength = fileName ? std::strlen(fileName) : 0;
        if (!ZEM_ASSERT(fits && nameLength < static_cast<size_t>(kPathSize), "Log path is too long"))
            return;

        MakeDirectories(dir.c_str());
        std::lock_guard<std::mutex> lock(s_kSettingsMutex);
        std::memcpy(s_szLogDirectory, dir.c_str(), dir.size() + 1);
        if (fileName) std::memcpy(s_szDefaultFile, fileName, nameLength + 1);
        else s_szDefaultFile[0] = '\0';
    }

    const char* GetLogDirectory() { return s_szLogDirectory; }

    int GetFreeLogThreadSlots()
    {
        int free = 0;
        for (const auto& id : s_aThreadIds)
            if (id.load(std::memory_order_acquire) == 0) ++free;
        return free;
    }

    void ReportError(const char* context, int code)
    {
        char text[256];
        const char* message = strerror_r(code, text, sizeof(text));
        Log("Error : %s : %i -- %s \n", context ? context : "", code, message);
    }

    bool CheckDebugger()
    {
        const int fd = open("/proc/self/status", O_RDONLY | O_CLOEXEC);
        if (fd < 0) return false;
        char status[4096];
        ssize_t total = 0;
        while (total < static_cast<ssize_t>(sizeof(status)) - 1)
        {
            const ssize_t n = read(fd, status + total, sizeof(status) - 1 - total);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            total += n;
        }
        close(fd);
        status[total] = '\0';
        const char* tracer = std::strstr(status, "TracerPid:");
        return tracer && std::atoi(tracer + std::strlen("TracerPid:")) != 0;
    }

    void ReportAssert(const char*, const char* file, int line, const char* format, ...)
    {
        char* buffer = ThreadBuffer();
        if (buffer)
        {
            // An assertion message is cut rather than dropped: it must always be seen.
            int n = std::snprintf(buffer, kBufferSize - 1, "%s(%d) : ", file ? file : "", line);
            n = std::clamp(n, 0, kBufferSize - 2);
            va_list args;
            va_start(args, format);
            const int m = std::vsnprintf(buffer + n, kBufferSize - 1 - n, format, args);
            va_end(args);
            n = std::clamp(n + std::max(m, 0), 0, kBufferSize - 2);
            buffer[n] = '\n';
            buffer[n + 1] = '\0';
            if (!PassFilter(format, buffer)) return;
            Emit(buffer);
        }
        if (CheckDebugger()) std::raise(SIGTRAP);
    }
}
