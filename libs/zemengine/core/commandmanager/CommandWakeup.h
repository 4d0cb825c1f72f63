#pragma once
// Ready-made wake-ups for the command queue. A host loop that sleeps in poll/epoll adds
// the eventfd of CEventFdWakeup to its set; a loop of its own blocks in Wait. A single
// thread that is its own main thread (a tool, a fuzzer) runs the queue inline.
#include "zemengine/core/commandmanager/CommandQueue.h"

namespace ZemEngine
{
    class CEventFdWakeup : public ICommandWakeup
    {
    public:
        CEventFdWakeup();
        ~CEventFdWakeup() override;
        CEventFdWakeup(const CEventFdWakeup&) = delete;
        CEventFdWakeup& operator=(const CEventFdWakeup&) = delete;

        bool IsValid() const { return m_iFd >= 0; }
        // Readable while wake-ups are pending.
        int GetFd() const { return m_iFd; }

        void PostCommandWakeup() override;

        // Sleeps until a wake-up is pending or `timeoutMs` has passed (negative: no
        // limit), then takes every pending wake-up. True if there was one.
        bool Wait(int timeoutMs);
        // Takes the pending wake-ups without sleeping; true if there were any.
        bool Consume();

    private:
        int m_iFd = -1;
    };

    // Runs the queue on the thread that pushes: for a process whose only thread is its
    // main thread.
    class CInlineCommandWakeup : public ICommandWakeup
    {
    public:
        explicit CInlineCommandWakeup(CommandQueue* queue) : m_pQueue(queue) {}
        void PostCommandWakeup() override { m_pQueue->Process(); }

    private:
        CommandQueue* m_pQueue;
    };
}
