#pragma once
// The engine's debug log: one printf-like call that reaches three sinks at once
// (debugger output, flushed standard output, and an appended log file).
// A log line is at most 2048 bytes with its terminating zero; a longer one is reported
// and dropped.
#include <cstdarg>
#include <cstddef>
#include <string>

namespace Common
{
    void Log(const char* format, ...) __attribute__((format(printf, 1, 2)));
    void LogV(const char* format, va_list args);

    // Appends line + '\n' to <log directory><channel>; a null channel is the default file.
    void LogToFile(const char* channel, const char* line);
    void LogToFilef(const char* channel, const char* format, ...) __attribute__((format(printf, 2, 3)));

    // Sets the default log file and the log directory (documents folder when asked, then the sub-folder).
    void InitLog(bool useDocuments, const char* subFolder, const char* fileName);

    // Logs "Error : context : code -- system text".
    void ReportError(const char* context, int code);

    // Logs "file(line) : " then the formatted message; breaks only under a debugger.
    void ReportAssert(const char* location, const char* file, int line, const char* format, ...)
        __attribute__((format(printf, 4, 5)));

    bool CheckDebugger();

    // The directory that InitLog settled ("" before InitLog), with its trailing separator.
    const char* GetLogDirectory();

    // How many of the per-thread log buffers no living thread holds. A thread holds one
    // from its first log line until it exits.
    int GetFreeLogThreadSlots();

    // Sees each line that a thread logs while the filter is installed on it, before any
    // sink does. `key` is the line's format text, the same for every line of one message.
    // Returning false keeps the line out of the sinks. A filter must not log from Pass; a
    // line it wants written in front of this one goes into `before` (`beforeSize` bytes).
    class ILogFilter
    {
    public:
        virtual ~ILogFilter() = default;
        virtual bool Pass(const char* key, const char* text, char* before, size_t beforeSize) = 0;
    };

    // Installs `filter` (null: none) on the calling thread for its lifetime; the one that
    // was installed before comes back after.
    class ScopedLogFilter
    {
    public:
        explicit ScopedLogFilter(ILogFilter* filter);
        ~ScopedLogFilter();
        ScopedLogFilter(const ScopedLogFilter&) = delete;
        ScopedLogFilter& operator=(const ScopedLogFilter&) = delete;

    private:
        ILogFilter* m_pPrevious;
    };

    // Copies every formatted log text for as long as it lives; tests read what the
    // engine said. Captures are process-wide, nested captures all receive the text.
    class ScopedLogCapture
    {
    public:
        ScopedLogCapture();
        ~ScopedLogCapture();
        ScopedLogCapture(const ScopedLogCapture&) = delete;
        ScopedLogCapture& operator=(const ScopedLogCapture&) = delete;

        std::string Text() const;
        bool Contains(const char* needle) const;
        void Clear();

        void Append(const char* text);

    private:
        struct Impl;
        Impl* m_pImpl;
    };
}

// Checks a condition and reports, never stops. The message must be a string literal
// (printf format). Evaluates to the condition's value so the caller can take the safe
// path: `if (!ZEM_ASSERT(p != nullptr, "no target")) return false;`.
#define ZEM_ASSERT(expr, fmt, ...)                                                                     \
    __extension__({                                                                                    \
        const bool zemAssertOk_ = static_cast<bool>(expr);                                             \
        if (!zemAssertOk_)                                                                             \
            ::Common::ReportAssert(__func__, __FILE__, __LINE__, "Assertion \"%s\" failed. " fmt, #expr \
                                   __VA_OPT__(, ) __VA_ARGS__);                                          \
        zemAssertOk_;                                                                                  \
    })
