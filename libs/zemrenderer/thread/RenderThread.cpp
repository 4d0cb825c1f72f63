#include "zemrenderer/thread/RenderThread.h"

#include <cstring>
#include <thread>
#include <type_traits>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/utils/pool/PoolStaticManager.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/thread/IAnimManager.h"
#include "zemrenderer/thread/LoadingThread.h"
#include "zemrenderer/thread/ProcessThread.h"
#include "zemrenderer/thread/RenderThreadWorkers.h"
#include "zemrenderer/thread/ThreadId.h"
#include "zemrenderer/thread/WorkerThread.h"

namespace ZemRenderer
{
    std::atomic<uint32_t> RenderThread::m_uiCurrentDrawGeometryID{0};

    namespace
    {
        // An idle loop sleeps until a push wakes it; the time-out only bounds a lost wake-up.
        constexpr unsigned int kIdleWaitRunningMs = 100;
        constexpr unsigned int kIdleWaitStoppedMs = 20;
        constexpr unsigned int kOverheadWaitMs = 100;
        // A few microseconds of polling, then a few yields, before an idle loop sleeps.
        constexpr int kIdlePolls = 64;
        constexpr int kIdleYields = 8;
        constexpr unsigned int kSceneFailureSleepMs = 100;
        constexpr unsigned int kStartWaitStepMs = 100;
        // Loader and processor priority levels (below normal, above normal).
        constexpr int kLoaderPriority = 4;
        constexpr int kProcessorPriority = 2;

        class MutexHold
        {
        public:
            explicit MutexHold(Common::CMutex& mutex) : m_kMutex(mutex) { m_kMutex.Lock(); }
            ~MutexHold() { m_kMutex.Unlock(); }
            MutexHold(const MutexHold&) = delete;
            MutexHold& operator=(const MutexHold&) = delete;

        private:
            Common::CMutex& m_kMutex;
        };

        // Frame stamps wrap; a stamp is due when it is not ahead of the current frame.
        bool IsDue(uint32_t frame, uint32_t current) { return static_cast<int32_t>(frame - current) <= 0; }

        bool EndsFrameOf(WorkerFields* worker)
        {
            return VisitWorker(worker, [](auto* w) { return w->EndsFrame(); });
        }
        unsigned int QueueOf(WorkerFields* worker)
        {
            return VisitWorker(worker, [](auto* w) { return w->GetQueue(); });
        }
        void ReleaseOf(WorkerFields* worker)
        {
            VisitWorker(worker, [](auto* w) { w->ReleaseToPool(); });
        }
        void CancelAndReleaseOf(WorkerFields* worker)
        {
            VisitWorker(worker, [](auto* w) { CancelAndRelease(w); });
        }
        void TickDelayOf(WorkerFields* worker, float seconds)
        {
            VisitWorker(worker, [seconds](auto* w) { w->TickDelay(seconds); });
        }
    }

    // ---------------------------------------------------------------- workers' bodies

    bool BeginSceneWorker::DoWork(Renderer* renderer)
    {
        if (!renderer->BeginScene(m_fElapsed, m_fFixedStep)) Common::CThread::Sleep(kSceneFailureSleepMs);
        if (IAnimManager* anim = m_pOwner ? m_pOwner->GetAnimManager() : nullptr)
            anim->BeginFrame(m_uFrameId, m_fElapsed, m_fFixedStep, m_bAnimate);
        return true;
    }

    bool EndSceneWorker::DoWork(Renderer* renderer)
    {
        if (!renderer->EndScene()) Common::CThread::Sleep(kSceneFailureSleepMs);
        // Buffers given back during this frame may be handed out from the next one on.
        renderer->GetBuffers().GetManager().EndOfFrame();
        if (IAnimManager* anim = m_pOwner ? m_pOwner->GetAnimManager() : nullptr) anim->EndFrame();
        return true;
    }

    bool BeginSessionWorker::DoWork(Renderer*)
    {
        if (IAnimManager* anim = m_pOwner ? m_pOwner->GetAnimManager() : nullptr) anim->BeginSession(m_uViewId);
        return true;
    }

    bool EndSessionWoker::DoWork(Renderer*)
    {
        if (IAnimManager* anim = m_pOwner ? m_pOwner->GetAnimManager() : nullptr) anim->EndSession(m_uViewId);
        return true;
    }

    bool SetVSyncWorker::DoWork(Renderer*)
    {
        const bool implemented = false;
        ZEM_ASSERT(implemented, "Not implemented");
        return true;
    }

    // ---------------------------------------------------------------- start

    RenderThread::RenderThread()
        : m_kSharedQueue(kSharedQueueCapacity),
          m_kUpdateQueue(kRenderQueueCapacity, &m_kWorkSignal),
          m_kRenderQueue(kRenderQueueCapacity, &m_kWorkSignal),
          m_kReleaseQueue(kRenderQueueCapacity, &m_kWorkSignal)
    {
        m_pLoader = MEM_NEW(LoadingThread, this);
        m_pProcessor = MEM_NEW(ProcessThread, this);
        for (unsigned int i = 0; i < kWorkerThreadCount; ++i)
        {
            WorkerThread* worker = MEM_NEW(WorkerThread, this, &m_kSharedQueue);
            m_aWorkerThreads.Add(worker);
            worker->Start("WorkerThread");
        }
        m_pDefaultBucket = CreateBucket("Default");
        m_pLoader->Start("LoadingThread");
        m_pLoader->SetPriority(kLoaderPriority);
        m_pProcessor->Start("ProcessThread");
        m_pProcessor->SetPriority(kProcessorPriority);
    }

    RenderThread::~RenderThread()
    {
        Stop();
        WaitForStop();
        ZEM_ASSERT(!m_pLoader->IsAlive(), "Loading thread still running");
        ZEM_ASSERT(!m_pProcessor->IsAlive(), "Process thread still running");
        for (WorkerThread* worker : m_aWorkerThreads) MEM_DELETE(worker);
        m_aWorkerThreads.Clear();
        MEM_DELETE(m_pProcessor);
        MEM_DELETE(m_pLoader);
        if (m_pInitWorker) m_pInitWorker->ReleaseToPool();
    }

    void RenderThread::SetRenderer(Renderer* renderer) { m_pRenderer.store(renderer, std::memory_order_release); }

    Renderer* RenderThread::GetRenderer() const
    {
        if (!ZEM_ASSERT(IsInMyThread(), "Unsafe call to RenderThread::GetRenderer : call should be in RenderThread"))
            return nullptr;
        return RendererUnchecked();
    }

    void RenderThread::SetInitParameters(const RendererInitRecord& record)
    {
        m_kInitRecord = record;
        Renderer* renderer = RendererUnchecked();
        if (!m_kInitRecord.pWindow && !m_kInitRecord.bNoWindow && renderer)
            m_kInitRecord.pWindow = renderer->CreateWindow(m_kInitRecord);
        if (m_pInitWorker) m_pInitWorker->ReleaseToPool();
        m_pInitWorker = InitRendererWorker::New(m_kInitRecord);
        m_iMessagePumpThreadId.store(CurrentThreadId(), std::memory_order_release);
    }

    bool RenderThread::Init()
    {
        Renderer* renderer = RendererUnchecked();
        if (!ZEM_ASSERT(renderer != nullptr, "SetRenderer must come before Init")) return false;
        if (!ZEM_ASSERT(m_pInitWorker != nullptr, "SetInitParameters must come before Init")) return false;
        if (!ZEM_ASSERT(!m_bThreadStarted.load() && !m_bStopRequested.load(), "RenderThread already started"))
            return false;

        m_kStartedEvent.Create(true);
        m_bThreadStarted.store(true, std::memory_order_release);
        if (!Start("RenderThread"))
        {
            m_bThreadStarted.store(false, std::memory_order_release);
            return false;
        }
        const uint32_t any = RendererInitRecord::kAnyProcessor;
        if (m_kInitRecord.uLoaderProcessor != any) m_pLoader->SetAffinity(1ull << (m_kInitRecord.uLoaderProcessor & 63));
        if (m_kInitRecord.uProcessorProcessor != any)
            m_pProcessor->SetAffinity(1ull << (m_kInitRecord.uProcessorProcessor & 63));
        if (m_kInitRecord.uRenderProcessor != any) SetAffinity(1ull << (m_kInitRecord.uRenderProcessor & 63));
        m_bRunning.store(true, std::memory_order_release);

        // Window creation on the render thread may need this thread's messages.
        while (!m_kStartedEvent.Wait(kStartWaitStepMs)) renderer->PumpMessage();

        if (!m_bAcceptWork.load(std::memory_order_acquire)) return false;
        renderer->SetRenderThread(this);
        for (unsigned int i = 0; i < m_aWorkerThreads.GetSize() && i < kWorkerThreadCount; ++i)
            renderer->RegisterProcessingThread(m_aWorkerThreads[i]->GetThreadId());
        return true;
    }

    void RenderThread::Run()
    {
        m_iThreadId.store(CurrentThreadId(), std::memory_order_release);
        InitRendererWorker* init = std::exchange(m_pInitWorker, nullptr);
        const bool created = init && RunWorker<Renderer>(init, RendererUnchecked());
        if (init) init->ReleaseToPool();
        m_bAcceptWork.store(created, std::memory_order_seq_cst);
        if (!created) m_bInitFailed.store(true, std::memory_order_release);
        m_kStartedEvent.Set();
        if (!created) return;

        Loop();
        Shutdown();
    }

    // ---------------------------------------------------------------- adding work

    bool RenderThread::AddWork(WorkerBase<Renderer>* worker) { return AddWorkItem(worker, true); }
    bool RenderThread::AddWork(WorkerBase<RenderThread>* worker) { return AddWorkItem(worker, true); }

    bool RenderThread::IsInMyThread() const
    {
        return m_iThreadId.load(std::memory_order_acquire) == CurrentThreadId();
    }

    RenderThread::RenderQueueType& RenderThread::QueueFor(unsigned int queue)
    {
        if (queue == eUpdateQueue) return m_kUpdateQueue;
        if (queue == eRenderQueue) return m_kRenderQueue;
        return m_kReleaseQueue;
    }

    bool RenderThread::AddWorkItem(WorkerFields* worker, bool checkAccept)
    {
        if (!ZEM_ASSERT(worker != nullptr, "Pointer must be non null")) return false;
        RenderQueueType& queue = QueueFor(QueueOf(worker));
        worker->SetFrame(m_uProducerFrame.load(std::memory_order_relaxed));
        // The place is taken before acceptance is read: the end of the thread waits for
        // every place taken before it closed, and whoever takes one later sees it closed.
        const uint32_t ticket = queue.Claim();
        if (ticket == RenderQueueType::kNoTicket)
        {
            ZEM_ASSERT(ticket != RenderQueueType::kNoTicket, "Worker stack is full !");
            CancelAndReleaseOf(worker);
            return false;
        }
        const bool accepted = !checkAccept || m_bAcceptWork.load(std::memory_order_seq_cst) || IsInMyThread();
        if (!ZEM_ASSERT(accepted, "During release, RenderThread doesn't accept more work from other thread."))
        {
            queue.Abandon(ticket);
            CancelAndReleaseOf(worker);
            return false;
        }
        if (EndsFrameOf(worker)) m_overhead.fetch_add(1, std::memory_order_acq_rel);
        if (worker->spQuery) worker->spQuery->SetState(Query::eQueued);
        queue.Publish(ticket, worker);
        return true;
    }

    bool RenderThread::AddWorkerThreadWork(WorkerBase<RenderThread>* worker)
    {
        if (!ZEM_ASSERT(worker != nullptr, "Pointer must be non null")) return false;
        const uint32_t ticket = m_kSharedQueue.Claim();
        if (ticket == FlowQueue<WorkerBase<RenderThread>>::kNoTicket)
        {
            ZEM_ASSERT(ticket != FlowQueue<WorkerBase<RenderThread>>::kNoTicket, "Worker stack is full !");
            CancelAndRelease(worker);
            return false;
        }
        const bool accepted = m_bAcceptWork.load(std::memory_order_seq_cst) || IsInMyThread();
        if (!ZEM_ASSERT(accepted, "During release, RenderThread doesn't accept more work from other thread."))
        {
            m_kSharedQueue.Abandon(ticket);
            CancelAndRelease(worker);
            return false;
        }
        if (worker->spQuery) worker->spQuery->SetState(Query::eQueued);
        m_kSharedQueue.Publish(ticket, worker);
        return true;
    }

    void RenderThread::LowerOverhead()
    {
        uint32_t value = m_overhead.load(std::memory_order_acquire);
        while (value != 0 && !m_overhead.compare_exchange_weak(value, value - 1, std::memory_order_acq_rel)) {}
        m_kOverheadSignal.Notify(true);
    }

    void RenderThread::WaitForOverhead(unsigned int allowed)
    {
        const uint32_t limit = allowed < MaxOverhead ? allowed : MaxOverhead;
        auto settled = [&] {
            return m_overhead.load(std::memory_order_acquire) <= limit || m_bLoopEnded.load(std::memory_order_acquire);
        };
        if (settled()) return;
        // Any other thread could wait for a frame it must itself produce.
        if (!ZEM_ASSERT(CurrentThreadId() == m_iMessagePumpThreadId.load(std::memory_order_acquire),
                        "Only the thread which pump message must call WaitForOverhead"))
            return;
        while (!settled())
        {
            Renderer* renderer = RendererUnchecked();
            const bool pumping = renderer && renderer->IsPumpingMessages();
            if (pumping) renderer->PumpMessage();
            m_kOverheadSignal.Wait(settled, pumping ? 1u : kOverheadWaitMs);
        }
    }

    // ---------------------------------------------------------------- the loop

    WorkerFields* RenderThread::SelectWorker()
    {
        RenderQueueType* queues[3] = {&m_kUpdateQueue, &m_kRenderQueue, &m_kReleaseQueue};
        for (;;)
        {
            const uint32_t current = m_uCurrentFrame.load(std::memory_order_relaxed);
            bool restart = false;
            for (unsigned int q = 0; q < 3 && !restart; ++q)
            {
                HeldWork& held = m_aHeld[q];
                WorkerFields* front = held.Refill(*queues[q]);
                if (!front || !IsDue(front->GetFrame(), current)) continue;
                WorkerFields* worker = held.Take();
                if (q != eRenderQueue || m_bRunning.load(std::memory_order_acquire)) return worker;
                // Drawing before the thread runs is dropped, not delayed.
                if (EndsFrameOf(worker)) LowerOverhead();
                CancelAndReleaseOf(worker);
                restart = true;
            }
            if (restart) continue;

            // Nothing is due: move to the frame of the first held worker, update first.
            WorkerFields* next = nullptr;
            for (unsigned int q = 0; q < 3 && !next; ++q) next = m_aHeld[q].Front();
            if (next) m_uCurrentFrame.store(next->GetFrame(), std::memory_order_relaxed);
            else if (FlushFinished(), !AwaitBriefly())
            {
                const bool running = m_bRunning.load(std::memory_order_acquire);
                m_kWorkSignal.Wait(
                    [this] { return m_kUpdateQueue.HasPublished() || m_kRenderQueue.HasPublished() || m_kReleaseQueue.HasPublished(); },
                    running ? kIdleWaitRunningMs : kIdleWaitStoppedMs);
            }
        }
    }

    bool RenderThread::AwaitBriefly()
    {
        // A producer in the middle of a burst is a few hundred nanoseconds away; going to
        // sleep would cost it a system call for its next push. Past the first polls the
        // core is offered to others, the producer among them.
        auto arrived = [this] {
            return m_kUpdateQueue.HasPublished() || m_kRenderQueue.HasPublished() || m_kReleaseQueue.HasPublished();
        };
        for (int i = 0; i < kIdlePolls; ++i)
        {
#if defined(__x86_64__) || defined(__i386__)
            __builtin_ia32_pause();
#endif
            if (arrived()) return true;
        }
        for (int i = 0; i < kIdleYields; ++i)
        {
            std::this_thread::yield();
            if (arrived()) return true;
        }
        return false;
    }

    bool RenderThread::RunAny(WorkerFields* worker)
    {
        return VisitWorker(worker, [this](auto* w) -> bool {
            using Context = typename std::remove_pointer_t<decltype(w)>::ContextType;
            if constexpr (std::is_same_v<Context, Renderer>)
            {
                Renderer* renderer = RendererUnchecked();
                if (!renderer)
                {
                    // Without a device nothing of the device can run.
                    w->Cancel();
                    return RunWorker<Renderer>(w, nullptr);
                }
                return RunWorker<Renderer>(w, renderer);
            }
            else
            {
                return RunWorker<RenderThread>(w, this);
            }
        });
    }

    void RenderThread::FlushFinished()
    {
        // Runs of one pooled class go back together.
        uint32_t i = 0;
        while (i < m_uFinished)
        {
            const WorkerFields::ReleaseManyFn releaseMany = m_apFinished[i]->GetReleaseMany();
            uint32_t end = i + 1;
            if (releaseMany)
                while (end < m_uFinished && m_apFinished[end]->GetReleaseMany() == releaseMany) ++end;
            if (releaseMany) releaseMany(m_apFinished + i, end - i);
            else ReleaseOf(m_apFinished[i]);
            i = end;
        }
        m_uFinished = 0;
    }

    void RenderThread::Loop()
    {
        for (;;)
        {
            WorkerFields* worker = SelectWorker();
            const bool result = RunAny(worker);
            const bool endsFrame = EndsFrameOf(worker);
            if (worker->GetDelay() > 0.0f && !worker->IsCancelled() && result)
            {
                if (endsFrame) LowerOverhead();
                Renderer* renderer = RendererUnchecked();
                const float frameTime = renderer ? renderer->GetFrameTime() : 0.0f;
                const float delay = worker->GetDelay() - frameTime;
                worker->SetDelay(delay > 0.0f ? delay : 0.0f);
                TickDelayOf(worker, frameTime);
                // Its own frame + 1: it can't overtake the frames queued behind it.
                worker->SetFrame(worker->GetFrame() + 1);
                if (endsFrame) m_overhead.fetch_add(1, std::memory_order_acq_rel);
                if (!ZEM_ASSERT(QueueFor(QueueOf(worker)).Push(worker), "Worker stack is full !"))
                {
                    if (endsFrame) LowerOverhead();
                    CancelAndReleaseOf(worker);
                }
            }
            else
            {
                // Given back in small groups, so that the pools see the render thread in
                // bursts; everything is back before a frame is reported done.
                m_apFinished[m_uFinished++] = worker;
                if (endsFrame || !result || m_uFinished == kFinishedBatch) FlushFinished();
                if (endsFrame) LowerOverhead();
            }
            if (!result)
            {
                if (worker != m_pReleaseRendererWorker.load(std::memory_order_acquire))
                    Common::Log("RenderThread : a worker ended the render loop before release\n");
                break;
            }
        }
    }

    // ---------------------------------------------------------------- stop

    void RenderThread::BeginRelease()
    {
        if (m_bReleaseRequested.exchange(true)) return;
        if (IAnimManager* anim = m_pAnimManager.exchange(nullptr)) anim->ReleaseThread(this);
        // The loader ends after what it has, then releases the processor, which then
        // asks for the render loop's end. An ended manager passes the request on at once.
        m_pLoader->Release(m_pProcessor);
        for (WorkerThread* worker : m_aWorkerThreads) worker->SetRunning(false);
    }

    void RenderThread::Stop()
    {
        if (m_bStopRequested.exchange(true)) return;
        BeginRelease();
        // A thread that never reached its loop leaves its end to the caller.
        if (!m_bThreadStarted.load(std::memory_order_acquire) || m_bInitFailed.load(std::memory_order_acquire))
        {
            Wait();
            Shutdown();
        }
    }

    void RenderThread::WaitForStop()
    {
        Wait();
        if (!m_bShutdownDone.load(std::memory_order_acquire) && m_bStopRequested.load())
        {
            // Stop came from another thread while this one never started: finish here.
            Shutdown();
        }
    }

    void RenderThread::AddReleaseRendererWork()
    {
        if (m_bReleaseRendererAdded.exchange(true)) return;
        // Queued past the accept test: it is the chain's own last step. A full queue is
        // waited out while the loop still drains it; an ended loop needs no end marker.
        for (;;)
        {
            ReleaseRendererWorker* worker = ReleaseRendererWorker::New();
            if (!worker) break;
            m_pReleaseRendererWorker.store(worker, std::memory_order_release);
            if (AddWorkItem(worker, false) || m_bLoopEnded.load(std::memory_order_acquire)) break;
            Common::CThread::Sleep(1);
        }
        m_bAcceptWork.store(false, std::memory_order_seq_cst);
    }

    void RenderThread::DiscardQueue(RenderQueueType& queue, HeldWork& held)
    {
        while (WorkerFields* worker = held.Refill(queue))
        {
            held.Take();
            if (EndsFrameOf(worker)) LowerOverhead();
            CancelAndReleaseOf(worker);
        }
    }

    void RenderThread::DrainReleaseQueue()
    {
        while (WorkerFields* worker = m_aHeld[eReleaseQueue].Refill(m_kReleaseQueue))
        {
            m_aHeld[eReleaseQueue].Take();
            const bool endsFrame = EndsFrameOf(worker);
            const bool result = RunAny(worker);
            if (endsFrame) LowerOverhead();
            if (worker != m_pReleaseRendererWorker.load(std::memory_order_acquire))
                ZEM_ASSERT(result, "A release worker canceled Release process !");
            ReleaseOf(worker);
        }
    }

    void RenderThread::Shutdown()
    {
        if (m_bShutdownDone.load(std::memory_order_acquire)) return;
        m_bLoopEnded.store(true, std::memory_order_release);
        m_kOverheadSignal.Notify(true);
        // The loop may have ended without a stop: the chain still has to run.
        BeginRelease();

        if (m_pInitWorker) std::exchange(m_pInitWorker, nullptr)->ReleaseToPool();
        m_pLoader->Wait();
        m_pProcessor->Wait();
        for (WorkerThread* worker : m_aWorkerThreads) worker->Wait();
        // The processor's last act queued the end of the loop; no one else may add now.
        // What was on its way in when that happened is waited for and drained below.
        m_bAcceptWork.store(false, std::memory_order_seq_cst);
        m_kUpdateQueue.WaitForClaims();
        m_kRenderQueue.WaitForClaims();
        m_kReleaseQueue.WaitForClaims();
        m_kSharedQueue.WaitForClaims();

        Renderer* renderer = RendererUnchecked();
        if (renderer) renderer->Flush();

        // Frames that will never be drawn.
        DiscardQueue(m_kUpdateQueue, m_aHeld[eUpdateQueue]);
        DiscardQueue(m_kRenderQueue, m_aHeld[eRenderQueue]);
        for (WorkerBase<RenderThread>* job = m_kSharedQueue.Pop(); job; job = m_kSharedQueue.Pop()) CancelAndRelease(job);

        m_kBucketMutex.Lock();
        if (m_pDefaultBucket)
        {
            const unsigned int index = m_Buckets.Find(m_pDefaultBucket);
            if (index != TArray<Bucket*>::npos) m_Buckets[index] = nullptr;
        }
        Bucket* defaultBucket = std::exchange(m_pDefaultBucket, nullptr);
        m_kBucketMutex.Unlock();
        if (defaultBucket && defaultBucket->Release() <= 0) MEM_DELETE(defaultBucket);

        DrainReleaseQueue();
        m_pProcessor->ProcessMainThreadWork(this);
        m_pProcessor->CloseMainThreadList();
        DrainReleaseQueue();
        // Release work may itself have queued more; only this thread can still add.
        while (m_aHeld[eUpdateQueue].Refill(m_kUpdateQueue) || m_aHeld[eRenderQueue].Refill(m_kRenderQueue) ||
               m_aHeld[eReleaseQueue].Refill(m_kReleaseQueue))
        {
            DiscardQueue(m_kUpdateQueue, m_aHeld[eUpdateQueue]);
            DiscardQueue(m_kRenderQueue, m_aHeld[eRenderQueue]);
            DrainReleaseQueue();
        }

        ReleaseBucketsLeft();

        if (renderer)
        {
            // Recycled buffers go before the device that made them.
            renderer->GetBuffers().GetManager().Clear();
            renderer->Release();
            renderer->SetRenderThread(nullptr);
        }
        m_pRenderer.store(nullptr, std::memory_order_release);
        m_overhead.store(0, std::memory_order_release);
        m_kOverheadSignal.Notify(true);
        ZemRenderer::PoolStaticManager::GetInstance()->ClearAll();
        m_bShutdownDone.store(true, std::memory_order_release);
    }

    // ---------------------------------------------------------------- buckets

    Bucket* RenderThread::CreateBucket(const char* name)
    {
        if (!ZEM_ASSERT(name != nullptr, "User Bucket need a name")) return nullptr;
        Bucket* bucket = MEM_NEW(Bucket, this, name);
        if (!bucket) return nullptr;
        bucket->AddRef();
        m_kBucketMutex.Lock();
        const unsigned int hole = m_Buckets.Find(nullptr);
        if (hole != TArray<Bucket*>::npos) m_Buckets[hole] = bucket;
        else m_Buckets.Add(bucket);
        m_kBucketMutex.Unlock();
        return bucket;
    }

    Bucket* RenderThread::FindBucket(const char* name)
    {
        MutexHold lock(m_kBucketMutex);
        if (!name) return m_pDefaultBucket;
        for (Bucket* bucket : m_Buckets)
            if (bucket && std::strcmp(bucket->GetName(), name) == 0) return bucket;
        return nullptr;
    }

    unsigned int RenderThread::GetBucketCount() const
    {
        MutexHold lock(m_kBucketMutex);
        unsigned int count = 0;
        for (Bucket* bucket : m_Buckets) count += bucket ? 1u : 0u;
        return count;
    }

    const char* RenderThread::GetBucketName(unsigned int index) const
    {
        MutexHold lock(m_kBucketMutex);
        return index < m_Buckets.GetSize() && m_Buckets[index] ? m_Buckets[index]->GetName() : nullptr;
    }

    unsigned int RenderThread::GetNotLoadedBucketCount() const
    {
        MutexHold lock(m_kBucketMutex);
        unsigned int count = 0;
        for (Bucket* bucket : m_Buckets) count += bucket && !bucket->IsLoaded() ? 1u : 0u;
        return count;
    }

    void RenderThread::DeleteBucket(Bucket* bucket)
    {
        if (!bucket) return;
        // Someone still holds it: it stays listed and is reported at the end.
        if (!ZEM_ASSERT(bucket->GetRefCount() <= 0, "Delete bucket while RefCount >0")) return;
        Common::Log("Bucket %s deleted.\n", bucket->GetName());
        m_kBucketMutex.Lock();
        const unsigned int index = m_Buckets.Find(bucket);
        if (index != TArray<Bucket*>::npos) m_Buckets[index] = nullptr;
        if (bucket == m_pDefaultBucket) m_pDefaultBucket = nullptr;
        m_kBucketMutex.Unlock();
        ZEM_ASSERT(index != TArray<Bucket*>::npos, "Bucket not in slot !");
        MEM_DELETE(bucket);
    }

    void RenderThread::ReleaseBucketsLeft()
    {
        TArray<Bucket*> left;
        m_kBucketMutex.Lock();
        for (Bucket* bucket : m_Buckets)
            if (bucket) left.Add(bucket);
        m_Buckets.Clear();
        m_kBucketMutex.Unlock();
        const int count = static_cast<int>(left.GetSize());
        ZEM_ASSERT(count == 0, "%i bucket were not released.", count);
        for (Bucket* bucket : left)
        {
            Common::Log("Bucket %s not released\n", bucket->GetName());
            // Their owner's thread is gone; nothing can reach them any more.
            MEM_DELETE(bucket);
        }
    }

    // ---------------------------------------------------------------- device access

    bool RenderThread::RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size)
    {
        if (!ZEM_ASSERT(IsInMyThread(), "Uncorrect thread for RetrieveDeviceData")) return false;
        Renderer* renderer = RendererUnchecked();
        return renderer && renderer->RetrieveDeviceData(source, subresource, dest, size);
    }

    WorkerThread* RenderThread::GetWorkerThread(unsigned int index) const
    {
        return index < m_aWorkerThreads.GetSize() ? m_aWorkerThreads[index] : nullptr;
    }

    uint32_t RenderThread::GetNewDrawGeometryID()
    {
        uint32_t current = m_uiCurrentDrawGeometryID.load(std::memory_order_relaxed);
        uint32_t next = 0;
        do
        {
            next = (current + 1) & 0x7FFFFFFu;
            if (next == 0)
            {
                ZEM_ASSERT(next != 0, "Conflicting geometry ID is to plan !");
                next = 1;
            }
        } while (!m_uiCurrentDrawGeometryID.compare_exchange_weak(current, next, std::memory_order_relaxed));
        return next;
    }

    // ---------------------------------------------------------------- Add...Work

    namespace
    {
        template <class W, class... Args>
        bool Post(RenderThread* thread, Args&&... args)
        {
            W* worker = W::New(std::forward<Args>(args)...);
            return worker && thread->AddWork(worker);
        }
    }

    bool RenderThread::AddBeginSceneWork(bool animate, uint32_t frameId, float elapsed, float fixedStep)
    {
        ZEM_ASSERT(!m_bSceneOpened.load(std::memory_order_relaxed), "AddBeginSceneWork : Scene opened");
        // Everything added from here to the next begin carries this frame.
        m_uProducerFrame.store(m_uProducerFrame.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
        m_bSceneOpened.store(true, std::memory_order_relaxed);
        return Post<BeginSceneWorker>(this, this, animate, frameId, elapsed, fixedStep);
    }

    bool RenderThread::AddEndSceneWork(bool rebuild)
    {
        const bool added = Post<EndSceneWorker>(this, this);
        ZEM_ASSERT(m_bSceneOpened.load(std::memory_order_relaxed), "AddEndSceneWork : Scene not opened");
        m_bSceneOpened.store(false, std::memory_order_relaxed);
        // Shader rebuilds belong to the buckets' shader libraries, which queue their own work.
        (void)rebuild;
        return added;
    }

    bool RenderThread::AddBeginSessionWork(uint32_t viewId) { return Post<BeginSessionWorker>(this, this, viewId); }
    bool RenderThread::AddEndSessionWork(uint32_t viewId) { return Post<EndSessionWoker>(this, this, viewId); }
    bool RenderThread::AddBeginViewportWork(RenderViewport* viewport)
    {
        return Post<BeginViewportWorker>(this, viewport);
    }
    bool RenderThread::AddEndViewportWork(bool saveImage, const char* path, ViewportCallback callback, void* userData)
    {
        return Post<EndViewportWorker>(this, saveImage, path, callback, userData);
    }
    bool RenderThread::AddRenderTextWork(const char* text, float x, float y, float scale, uint32_t colour)
    {
        return Post<RenderTextWorker>(this, text, x, y, scale, colour);
    }
    bool RenderThread::AddSetScissorTestWork(bool enable, const ScissorRect& rect)
    {
        return Post<SetScissorTestWorker>(this, enable, rect);
    }
    bool RenderThread::AddSetViewportWork(const ViewportRect& rect) { return Post<SetViewportWorker>(this, rect); }
    bool RenderThread::AddResizeViewportWork(RenderViewport* viewport, uint32_t width, uint32_t height)
    {
        return Post<ResizeViewportWorker>(this, viewport, width, height);
    }
    bool RenderThread::AddResizeTextureWork(Texture* texture, uint32_t width, uint32_t height)
    {
        return Post<ResizeTextureWorker>(this, texture, width, height);
    }
    bool RenderThread::AddResolveWork(Texture* texture, uint32_t subresource)
    {
        return Post<ResolveWorker>(this, texture, subresource);
    }
    bool RenderThread::AddSaveTextureToFileWork(Texture* texture, const char* path)
    {
        return Post<SaveTextureToFileWorker>(this, texture, path);
    }
    bool RenderThread::AddSetVSyncWork(bool enable) { return Post<SetVSyncWorker>(this, enable); }
    bool RenderThread::AddSetCursorWork(int32_t cursor) { return Post<SetCursorWorker>(this, cursor); }
    bool RenderThread::AddPerfEventStartWork(uint32_t colour, const char* name)
    {
        return Post<PerfEventStartWorker>(this, colour, name);
    }
    bool RenderThread::AddPerfEventEndWork() { return Post<PerfEventEndWorker>(this); }
    bool RenderThread::AddDeleteBucketWork(Bucket* bucket)
    {
        if (!ZEM_ASSERT(bucket != nullptr, "Pointer must be non null")) return false;
        bucket->SetClosing();
        return Post<DeleteBucketWorker>(this, this, bucket);
    }
}
