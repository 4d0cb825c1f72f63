#pragma once
// How an idle consumer sleeps until a producer has something for it. A producer pays
// for a wake-up only while someone sleeps: Notify is one atomic read otherwise.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace ZemRenderer
{
    class WakeSignal
    {
    public:
        // With one sleeper at most, a wake-up already on its way covers later changes too.
        explicit WakeSignal(bool singleSleeper = false) : m_bSingleSleeper(singleSleeper) {}

        // Call after making the change that a sleeper tests for.
        void Notify(bool all = false)
        {
            if (m_uSleepers.load(std::memory_order_seq_cst) == 0) return;
            // One wake-up is on its way already: the sleeper will see this change too.
            if (m_bSingleSleeper && !all && m_bWakePending.exchange(true, std::memory_order_seq_cst)) return;
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                ++m_uGeneration;
            }
            if (all) m_kCondition.notify_all();
            else m_kCondition.notify_one();
        }

        // Sleeps until ready() holds, a Notify comes or `ms` pass. ready() is tested after
        // this thread counts as a sleeper, so a change made before Notify is never missed.
        template <class Ready>
        void Wait(Ready ready, unsigned int ms)
        {
            m_uSleepers.fetch_add(1, std::memory_order_seq_cst);
            m_bWakePending.store(false, std::memory_order_seq_cst);
            {
                std::unique_lock<std::mutex> lock(m_kMutex);
                const uint64_t generation = m_uGeneration;
                if (!ready())
                    m_kCondition.wait_for(lock, std::chrono::milliseconds(ms),
                                          [&] { return m_uGeneration != generation; });
            }
            m_uSleepers.fetch_sub(1, std::memory_order_seq_cst);
        }

    private:
        const bool m_bSingleSleeper;
        std::atomic<uint32_t> m_uSleepers{0};
        std::atomic<bool> m_bWakePending{false};
        std::mutex m_kMutex;
        std::condition_variable m_kCondition;
        uint64_t m_uGeneration = 0;
    };
}
