#include "zemengine/core/commandmanager/ConnectionLogFold.h"

#include <cstdio>
#include <cstring>
#include <ctime>

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    CConnectionLogFold* CConnectionLogFold::Create(const char* peer) { return MEM_NEW(CConnectionLogFold, peer); }

    CConnectionLogFold::CConnectionLogFold(const char* peer)
    {
        std::snprintf(m_szPeer, sizeof(m_szPeer), "%s", peer ? peer : "");
    }

    void CConnectionLogFold::Release()
    {
        if (m_iRefs.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
        Flush();
        MEM_DELETE(this);
    }

    int64_t CConnectionLogFold::NowMs()
    {
        timespec ts;
        clock_gettime(CLOCK_MONOTONIC, &ts);
        return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
    }

    CConnectionLogFold::Message* CConnectionLogFold::Find(const char* key)
    {
        for (unsigned int i = 0; i < m_uMessageCount; ++i)
            if (m_aMessages[i].m_pKey == key) return &m_aMessages[i];
        // Messages beyond the table share its last entry: the log stays bounded all the same.
        Message& message = m_aMessages[m_uMessageCount < kMaxMessages ? m_uMessageCount++ : kMaxMessages - 1];
        if (!message.m_pKey) message.m_pKey = key;
        return &message;
    }

    void CConnectionLogFold::FormatSummary(const char* peer, Message& message, char* out, size_t size)
    {
        std::snprintf(out, size, "[RPC] %s: \"%s\" ... repeated %llu times\n", peer, message.m_szLast,
                      static_cast<unsigned long long>(message.m_uUnreported));
        message.m_uUnreported = 0;
    }

    bool CConnectionLogFold::Pass(const char* key, const char* text, char* before, size_t beforeSize)
    {
        std::lock_guard<std::mutex> lock(m_kLock);
        Message& message = *Find(key);
        if (++message.m_uSeen <= kShownPerMessage) return true;
        // The last text stands for all of them, without its line end.
        size_t length = std::strcspn(text, "\n");
        if (length >= sizeof(message.m_szLast)) length = sizeof(message.m_szLast) - 1;
        std::memcpy(message.m_szLast, text, length);
        message.m_szLast[length] = '\0';
        ++message.m_uUnreported;
        const int64_t now = NowMs();
        if (message.m_iLastSummaryMs == 0) message.m_iLastSummaryMs = now;
        if (now - message.m_iLastSummaryMs >= kSummaryPeriodMs)
        {
            FormatSummary(m_szPeer, message, before, beforeSize);
            message.m_iLastSummaryMs = now;
        }
        return false;
    }

    void CConnectionLogFold::Flush()
    {
        char line[512];
        for (;;)
        {
            {
                std::lock_guard<std::mutex> lock(m_kLock);
                line[0] = '\0';
                for (unsigned int i = 0; i < m_uMessageCount && !line[0]; ++i)
                    if (m_aMessages[i].m_uUnreported) FormatSummary(m_szPeer, m_aMessages[i], line, sizeof(line));
            }
            // Logged outside the lock: this thread's own filter may be this fold.
            if (!line[0]) return;
            Common::ScopedLogFilter none(nullptr);
            Common::Log("%s", line);
        }
    }

    uint64_t CConnectionLogFold::GetFoldedCount()
    {
        std::lock_guard<std::mutex> lock(m_kLock);
        uint64_t total = 0;
        for (unsigned int i = 0; i < m_uMessageCount; ++i) total += m_aMessages[i].m_uUnreported;
        return total;
    }
}
