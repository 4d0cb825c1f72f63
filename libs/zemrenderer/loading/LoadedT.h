#pragma once
// The last step of a load, on the render thread: the object lands in its owner (the
// owner's pending count falls) and the requester's callback sees it. Failed loads end
// here too, so that a requester hears of every load on one thread.
#include <utility>

#include "zemrenderer/loading/LoadTicket.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    template <class T>
    class LoadedT : public PooledWorker<LoadedT<T>, RenderThread>
    {
    public:
        LoadedT() = default;
        LoadedT(LoadTicket<T>&& ticket, bool loaded) : m_kTicket(std::move(ticket)), m_bLoaded(loaded) {}

        // Ends the ticket on `thread`, or at once where no render thread takes work.
        static void Post(RenderThread* thread, LoadTicket<T>&& ticket, bool loaded)
        {
            if (thread && thread->IsAcceptingWork())
            {
                if (LoadedT* worker = LoadedT::New(std::move(ticket), loaded))
                {
                    // A refused worker is cancelled, which ends the ticket.
                    thread->AddWork(worker);
                    return;
                }
            }
            ticket.End(loaded);
        }

        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread*) override
        {
            m_kTicket.End(m_bLoaded);
            return true;
        }
        void OnCancel() override { m_kTicket.End(false); }

    private:
        LoadTicket<T> m_kTicket;
        bool m_bLoaded = false;
    };
}
