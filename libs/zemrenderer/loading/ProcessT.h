#pragma once
// Process thread: builds the object out of the bytes the loader read, then sends it to
// the render thread to land.
#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamBase.h"
#include "zemrenderer/loading/LoadTraits.h"
#include "zemrenderer/loading/LoadedT.h"

namespace ZemRenderer
{
    template <class T>
    class ProcessT : public PooledWorker<ProcessT<T>, RenderThread>
    {
    public:
        ProcessT() = default;
        // Takes the stream.
        ProcessT(LoadTicket<T>&& ticket, IOSTreamBase* stream) : m_kTicket(std::move(ticket)), m_pStream(stream) {}
        ~ProcessT() override { MEM_DELETE(m_pStream); }

        unsigned int GetQueue() const override { return 0; }

        bool DoWork(RenderThread* context) override
        {
            bool loaded = false;
            if (m_kTicket.IsOwnerClosing())
            {
                LoadTraits<T>::Abort(m_kTicket.pObject, m_kTicket.pOwner);
            }
            else
            {
                loaded = LoadTraits<T>::Load(*m_kTicket.pObject, *m_pStream, m_kTicket.pOwner);
                if (!loaded) Common::Log("Failed to process\n");
            }
            // The bytes are not needed once the object is built.
            MEM_DELETE(m_pStream);
            m_pStream = nullptr;
            if (!loaded) m_kTicket.SetQueryState(Query::eCancelled);
            LoadedT<T>::Post(context, std::move(m_kTicket), loaded);
            return true;
        }

        void OnCancel() override
        {
            m_kTicket.SetQueryState(Query::eCancelled);
            LoadTraits<T>::Abort(m_kTicket.pObject, m_kTicket.pOwner);
            m_kTicket.End(false);
        }

    private:
        LoadTicket<T> m_kTicket;
        IOSTreamBase* m_pStream = nullptr;
    };
}
