#pragma once
// The road of a link file: the loading thread reads the bytes, the process thread reads
// the link out of them; and the end of a link.
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class Bucket;
    class IOSTreamBase;
    class Link;

    // Loading thread: the file into memory, then a LinkProcessWorker to the process thread.
    // The request's query is carried, not run: it is done only when the link is read.
    class LinkLoadWorker : public PooledWorker<LinkLoadWorker, RenderThread>
    {
    public:
        static constexpr unsigned int kNameSize = 2048;

        // Raises the owner's pending count, and holds a reference on a counted owner until
        // the load ends; false (query cancelled) if it cannot be queued.
        static bool Post(Bucket* owner, Link* link, const char* name, const QueryPtr& request);

        LinkLoadWorker() = default;
        LinkLoadWorker(Bucket* owner, Link* link, const char* name, const QueryPtr& request, bool held);
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread* context) override;
        void OnCancel() override;

    private:
        void Abort();

        Bucket* m_pOwner = nullptr;
        Link* m_pLink = nullptr;
        QueryPtr m_spRequest;
        bool m_bHeld = false;
        char m_szName[kNameSize] = {};
    };

    // Process thread: the link out of the bytes; its query is the request's.
    class LinkProcessWorker : public PooledWorker<LinkProcessWorker, RenderThread>
    {
    public:
        LinkProcessWorker() = default;
        LinkProcessWorker(Bucket* owner, Link* link, IOSTreamBase* stream, const QueryPtr& request, bool held)
            : m_pOwner(owner), m_pLink(link), m_pStream(stream), m_spRequest(request), m_bHeld(held)
        {
        }
        ~LinkProcessWorker();
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread* context) override;
        void OnCancel() override;

    private:
        void Finish();

        Bucket* m_pOwner = nullptr;
        Link* m_pLink = nullptr;
        IOSTreamBase* m_pStream = nullptr;
        QueryPtr m_spRequest;
        bool m_bHeld = false;
        bool m_bFinished = false;
    };

    // The end of a link: out of its octree, then destroyed by its bucket. Queued as a
    // command of the link's octree, it runs after every command queued before it.
    class DeleteLinkWorker : public PooledWorker<DeleteLinkWorker, RenderThread>
    {
    public:
        // Through the link's octree when it has one, else on the render thread's update
        // queue, else at once.
        static bool Post(Link* link);

        DeleteLinkWorker() = default;
        explicit DeleteLinkWorker(Link* link) : m_pLink(link) {}
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(RenderThread* context) override;
        // A worker that will not run still ends its link.
        void OnCancel() override;

        static void DeleteNow(Link* link);

    private:
        Link* m_pLink = nullptr;
    };
}
