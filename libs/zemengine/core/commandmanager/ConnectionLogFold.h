#pragma once
// Keeps one client from filling the log. Installed (Common::ScopedLogFilter) while a
// connection's requests are read and run, it lets the first lines of each message
// through, then counts repeats and writes one "... repeated N times" line at most once a
// second per message, and a last one when the connection ends. Shared between the
// connection thread and the commands it hands to the main thread, hence counted.
#include <atomic>
#include <cstdint>
#include <mutex>

#include "common/system/debug/Log.h"

namespace ZemEngine
{
    class CConnectionLogFold final : public Common::ILogFilter
    {
    public:
        static constexpr unsigned int kShownPerMessage = 10;
        static constexpr int64_t kSummaryPeriodMs = 1000;
        static constexpr unsigned int kMaxMessages = 32;

        // `peer` names the connection in the summaries.
        static CConnectionLogFold* Create(const char* peer);
        void AddRef() { m_iRefs.fetch_add(1, std::memory_order_relaxed); }
        // The last release writes what is still counted and frees the fold.
        void Release();

        bool Pass(const char* key, const char* text, char* before, size_t beforeSize) override;

        // Writes a summary for every message with repeats not yet reported.
        void Flush();
        // The repeats not written so far, over all messages.
        uint64_t GetFoldedCount();

        // Made with Create and ended with Release.
        explicit CConnectionLogFold(const char* peer);
        ~CConnectionLogFold() override = default;

    private:

        struct Message
        {
            const char* m_pKey = nullptr;
            uint64_t m_uSeen = 0;
            uint64_t m_uUnreported = 0;
            int64_t m_iLastSummaryMs = 0;
            char m_szLast[160] = {};
        };

        static int64_t NowMs();
        static void FormatSummary(const char* peer, Message& message, char* out, size_t size);
        Message* Find(const char* key);

        std::atomic<int> m_iRefs{1};
        std::mutex m_kLock;
        char m_szPeer[64] = {};
        Message m_aMessages[kMaxMessages];
        unsigned int m_uMessageCount = 0;
    };
}
