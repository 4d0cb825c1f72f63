// Provisional body: formats and prints. The per-thread buffers, log file sinks and
// InitLog are completed with the OS layer.
#include "common/system/debug/Log.h"

#include <algorithm>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

namespace Common
{
    namespace
    {
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
        void Emit(const char* text)
        {
            std::fputs(text, stdout);
            std::fflush(stdout);
            std::lock_guard<std::mutex> lock(CaptureMutex());
            for (ScopedLogCapture* c : Captures()) c->Append(text);
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

    void LogV(const char* format, va_list args)
    {
        char buffer[2048];
        std::vsnprintf(buffer, sizeof(buffer), format, args);
        Emit(buffer);
    }
    void Log(const char* format, ...)
    {
        va_list args;
        va_start(args, format);
        LogV(format, args);
        va_end(args);
    }
    void LogToFile(const char*, const char*) {}
    void LogToFilef(const char*, const char*, ...) {}
    void InitLog(bool, const char*, const char*) {}
    void ReportError(const char* context, int code) { Log("Error : %s : %i -- \n", context, code); }
    bool CheckDebugger() { return false; }

    void ReportAssert(const char*, const char* file, int line, const char* format, ...)
    {
        char buffer[2048];
        int n = std::snprintf(buffer, sizeof(buffer), "%s(%d) : ", file, line);
        va_list args;
        va_start(args, format);
        std::vsnprintf(buffer + n, sizeof(buffer) - n, format, args);
        va_end(args);
        Log("%s\n", buffer);
    }
}
