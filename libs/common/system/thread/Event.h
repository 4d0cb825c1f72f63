#pragma once
// An event between threads. Manual reset: once set it stays set and releases every
// waiter until Reset. Automatic reset: each Set releases exactly one waiter, or the
// next one to come if none is waiting. A waiting thread sleeps; it never spins.
namespace Common
{
    namespace Posix
    {
        class CEvent;
    }

    class CEvent
    {
    public:
        static constexpr unsigned int Infinite = 0xFFFFFFFFu;

        CEvent() = default;
        ~CEvent();
        CEvent(const CEvent&) = delete;
        CEvent& operator=(const CEvent&) = delete;

        // Not signalled afterwards. On an event already made, changes its reset mode and
        // clears it, keeping the threads that wait on it.
        bool Create(bool manualReset);
        bool IsCreated() const { return m_pEvent != nullptr; }

        bool Set();
        bool Reset();
        // True if the event was signalled within `ms` milliseconds (Infinite: no limit).
        // False at once for an event never made.
        bool Wait(unsigned int ms);
        bool Wait() { return Wait(Infinite); }
        // No window messages reach a thread on this platform: the same as Wait().
        bool WaitWithMessages() { return Wait(Infinite); }

    private:
        Posix::CEvent* m_pEvent = nullptr;
    };
}
