#pragma once
// A worker is a small command object that a producer fills in and hands to one of the
// engine's consuming threads; its DoWork runs there. The template argument names only
// the class of the context that DoWork receives: where a worker runs is decided by the
// queue it is put on.
#include <cstdint>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class Renderer;
    class RenderThread;

    // The three render queues. Any other number means the release queue.
    enum RenderQueue : unsigned int
    {
        eUpdateQueue = 0,
        eRenderQueue = 1,
        eReleaseQueue = 2,
    };

    // Which context a worker's DoWork takes; lets one queue carry both kinds.
    enum class WorkerContext : uint8_t
    {
        Renderer,
        RenderThread,
    };

    template <class Context>
    struct WorkerContextOf;
    template <>
    struct WorkerContextOf<Renderer>
    {
        static constexpr WorkerContext value = WorkerContext::Renderer;
    };
    template <>
    struct WorkerContextOf<RenderThread>
    {
        static constexpr WorkerContext value = WorkerContext::RenderThread;
    };

    // The data every worker carries, whatever its context. Queues that take both kinds
    // hold pointers to this part.
    class WorkerFields
    {
    public:
        // Gives several workers of one pooled class back at once; null for a worker that
        // is not pooled.
        typedef void (*ReleaseManyFn)(WorkerFields* const* workers, uint32_t count);

        QueryPtr spQuery;

        float GetDelay() const { return m_fDelay; }
        // A worker with a delay above 0 runs again on each consumer frame until it is 0.
        void SetDelay(float seconds) { m_fDelay = seconds; }
        uint32_t GetFrame() const { return m_uFrame; }
        void SetFrame(uint32_t frame) { m_uFrame = frame; }
        bool IsCancelled() const { return m_bCancelled; }
        uint32_t GetMemoryTag() const { return m_uMemoryTag; }
        WorkerContext GetContextKind() const { return m_eContext; }
        ReleaseManyFn GetReleaseMany() const { return m_pfnReleaseMany; }

    protected:
        explicit WorkerFields(WorkerContext context);
        ~WorkerFields() = default;
        WorkerFields(const WorkerFields&) = delete;
        WorkerFields& operator=(const WorkerFields&) = delete;

        float m_fDelay = 0.0f;
        uint32_t m_uFrame = 0;
        bool m_bCancelled = false;
        WorkerContext m_eContext;
        uint32_t m_uMemoryTag = 0;
        ReleaseManyFn m_pfnReleaseMany = nullptr;
    };

    template <class Context>
    class WorkerBase : public WorkerFields
    {
    public:
        typedef Context ContextType;

        WorkerBase() : WorkerFields(WorkerContextOf<Context>::value) {}
        virtual ~WorkerBase() = default;

        // True if running this worker ends one frame of the render thread's overhead.
        virtual bool EndsFrame() const { return false; }
        virtual unsigned int GetQueue() const = 0;
        // Called right before DoWork; the result is ignored.
        virtual bool BeforeWork(Context*) { return true; }
        // First pass over a batch of a ThreadedWorkManager.
        virtual bool PrepareWork() { return true; }
        // The job. False stops the consuming thread's loop.
        virtual bool DoWork(Context* context) = 0;
        // The frame time, each time a delayed worker is put back on its queue.
        virtual void TickDelay(float) {}
        // What the worker refers to, so that it can be cancelled when that goes.
        virtual void* GetTarget() const { return nullptr; }
        virtual void ReleaseToPool() = 0;
        // A worker that holds a reference drops it here.
        virtual void OnCancel() {}

        // Runs OnCancel once; the worker still passes its queue but is released unrun.
        void Cancel()
        {
            if (m_bCancelled) return;
            m_bCancelled = true;
            OnCancel();
        }
    };

    // Calls f with the worker seen as its own kind.
    template <class F>
    decltype(auto) VisitWorker(WorkerFields* worker, F&& f)
    {
        if (worker->GetContextKind() == WorkerContext::Renderer)
            return f(static_cast<WorkerBase<Renderer>*>(worker));
        return f(static_cast<WorkerBase<RenderThread>*>(worker));
    }

    namespace WorkerRun
    {
        // Pushes the worker's memory tag on this thread for the length of its run.
        class TagScope
        {
        public:
            explicit TagScope(uint32_t tag) : m_bPushed(tag != 0 && Common::Mem::CMemoryManager::GetInstance()->PushTagId(tag)) {}
            ~TagScope()
            {
                if (m_bPushed) Common::Mem::CMemoryManager::GetInstance()->PopTag();
            }
            TagScope(const TagScope&) = delete;
            TagScope& operator=(const TagScope&) = delete;

        private:
            bool m_bPushed;
        };
    }

    // How every consumer runs a worker: the query moves to running, then done, or to
    // cancelled if the worker was cancelled and did not run. Returns DoWork's result,
    // or true if it did not run.
    template <class Context>
    bool RunWorker(WorkerBase<Context>* worker, Context* context)
    {
        Query* query = worker->spQuery.Get();
        if (query)
        {
            query->Lock();
            query->SetState(Query::eRunning);
        }
        bool result = true;
        if (!worker->IsCancelled())
        {
            WorkerRun::TagScope tag(worker->GetMemoryTag());
            worker->BeforeWork(context);
            result = worker->DoWork(context);
        }
        else if (query)
        {
            query->SetState(Query::eCancelled);
        }
        if (query)
        {
            if (query->GetState() == Query::eRunning) query->SetState(Query::eDone);
            query->Unlock();
        }
        return result;
    }

    // A worker that will never run: cancelled, its query cancelled, back to its pool.
    template <class W>
    void CancelAndRelease(W* worker)
    {
        worker->Cancel();
        if (worker->spQuery) worker->spQuery->SetState(Query::eCancelled);
        worker->ReleaseToPool();
    }
}
