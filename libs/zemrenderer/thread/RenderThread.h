#pragma once
// The thread that owns the Renderer, the buckets and every device object. Producers
// reach it only through workers put on its three queues: update, render and release.
// Every worker carries the frame stamp of the producer; the render thread runs a
// queue's worker only when its own frame has reached that stamp, update first, then
// render, then release.
#include <atomic>
#include <cstdint>

#include "common/system/mutex/Mutex.h"
#include "common/system/thread/Event.h"
#include "common/system/thread/Thread.h"
#include "common/utils/TArray.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/FlowQueue.h"
#include "zemrenderer/thread/WakeSignal.h"
#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    class Bucket;
    class Buffer;
    class BufferReference;
    class DrawGeometry;
    class Geometry;
    class IAnimManager;
    class InputLayout;
    class LoadingThread;
    class ProcessThread;
    class WorkerThread;
    class InitRendererWorker;
    class DeleteBucketWorker;

    class RenderThread : public Common::CThread
    {
    public:
        static constexpr uint32_t MaxOverhead = 4;
        static constexpr uint32_t kRenderQueueCapacity = 0x20000;
        static constexpr uint32_t kSharedQueueCapacity = 512;
        static constexpr unsigned int kWorkerThreadCount = 4;

        typedef void (*ViewportCallback)(void* userData);

        // Starts the loader, the processor and the four worker threads. No device yet.
        RenderThread();
        ~RenderThread() override;

        // Before Init. The record is copied; without a window of its own the caller's
        // thread gets one from the Renderer, and becomes the message pump thread.
        void SetRenderer(Renderer* renderer);
        // On this thread only: anywhere else it reports and gives null.
        Renderer* GetRenderer() const;
        void SetInitParameters(const RendererInitRecord& record);
        // Starts the thread; true only if it runs and the device was created.
        bool Init();
        // Begins the stop chain: loader, then processor, then the render loop; the release
        // queue is drained and every worker pool cleared at the end.
        void Stop() override;
        // After Stop: blocks until the thread has ended and released all it owned.
        void WaitForStop();

        // The one way into the three render queues, from any thread.
        bool AddWork(WorkerBase<Renderer>* worker);
        bool AddWork(WorkerBase<RenderThread>* worker);
        // A job for the worker threads' shared queue.
        bool AddWorkerThreadWork(WorkerBase<RenderThread>* worker);
        bool IsInMyThread() const;

        // Message pump thread only: waits while more than min(allowed, MaxOverhead)
        // frames are queued and not finished. 0 waits for every closed frame.
        void WaitForOverhead(unsigned int allowed);
        uint32_t GetOverhead() const { return m_overhead.load(std::memory_order_acquire); }
        uint32_t GetProducerFrame() const { return m_uProducerFrame.load(std::memory_order_relaxed); }
        // The frame the consumer has reached; exact on the render thread only.
        uint32_t GetCurrentFrame() const { return m_uCurrentFrame.load(std::memory_order_relaxed); }
        bool IsAcceptingWork() const { return m_bAcceptWork.load(std::memory_order_acquire); }
        bool IsSceneOpened() const { return m_bSceneOpened.load(std::memory_order_relaxed); }

        // Buckets by name. CreateBucket hands out one reference.
        Bucket* CreateBucket(const char* name);
        // Null gives the default bucket.
        Bucket* FindBucket(const char* name);
        Bucket* GetDefaultBucket() const { return m_pDefaultBucket; }
        unsigned int GetBucketCount() const;
        // Null for a freed slot.
        const char* GetBucketName(unsigned int index) const;
        unsigned int GetNotLoadedBucketCount() const;

        // Render thread only.
        bool RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size);

        bool AddBeginSceneWork(bool animate, uint32_t frameId, float elapsed, float fixedStep);
        bool AddEndSceneWork(bool rebuild);
        bool AddBeginSessionWork(uint32_t viewId);
        bool AddEndSessionWork(uint32_t viewId);
        bool AddBeginViewportWork(RenderViewport* viewport);
        bool AddEndViewportWork(bool saveImage, const char* path, ViewportCallback callback, void* userData);
        bool AddRenderTextWork(const char* text, float x, float y, float scale, uint32_t colour);
        bool AddSetScissorTestWork(bool enable, const ScissorRect& rect);
        bool AddSetViewportWork(const ViewportRect& rect);
        bool AddResizeViewportWork(RenderViewport* viewport, uint32_t width, uint32_t height);
        bool AddResizeTextureWork(Texture* texture, uint32_t width, uint32_t height);
        bool AddResolveWork(Texture* texture, uint32_t subresource);
        bool AddSaveTextureToFileWork(Texture* texture, const char* path);
        bool AddSetVSyncWork(bool enable);
        bool AddSetCursorWork(int32_t cursor);
        bool AddPerfEventStartWork(uint32_t colour, const char* name);
        bool AddPerfEventEndWork();
        bool AddDeleteBucketWork(Bucket* bucket);
        // ---- Buffers and geometry, from any thread.
        // A reference with one count, for the caller.
        BufferReference* CreateBufferReference(uint32_t size, uint32_t flags, InputLayout* layout);
        // A block to fill for `reference`: `size` bytes (0: the reference's size) at `offset`.
        Buffer* RetrieveBuffer(BufferReference* reference, uint32_t size = 0, uint32_t offset = 0, uint16_t sub1 = 0,
                               uint16_t sub2 = 0);
        // A block of elements `first` to `first + count` of a stream, by the layout's stride.
        Buffer* RetrieveBuffer(Geometry* geometry, uint32_t stream, uint32_t first, uint32_t count);
        Buffer* RetrieveIndexBuffer(Geometry* geometry, uint32_t first, uint32_t count);
        // The whole stream, in a block the geometry keeps for the next call; send it with the
        // copy flag so that the geometry keeps its own.
        Buffer* RetrieveAndStoreBuffer(Geometry* geometry, uint32_t stream);
        // A block that is not sent after all.
        static void GiveBackBuffer(Buffer* block);
        // Sends a filled block to its reference. Immutable data made on this thread goes up at
        // once; otherwise an UpdateBufferWorker on the update queue (render queue with
        // `toRenderQueue`). `copy` sends a copy and leaves the block to the caller. `usage`
        // is a BufferMapMode.
        bool AddUpdateBufferWork(Buffer* block, bool reload = false, bool copy = false, const QueryPtr& query = QueryPtr(),
                                 uint32_t usage = 4, bool toRenderQueue = false);
        bool AddAllocateDeviceBufferWork(BufferReference* reference);
        // Every 32-bit word of the buffer becomes `value`.
        bool AddClearBufferWork(BufferReference* reference, uint32_t value = 0);
        // Swaps a geometry's streams (each counted by the caller); dropped at the call for a
        // geometry of 4 streams or more.
        bool AddReplaceBuffersWork(Geometry* geometry, BufferReference* const* streams, uint32_t count);
        bool AddChangeGeometryCountWork(Geometry* geometry, uint32_t stream, uint32_t count);
        bool AddUpdateBufferStatusWork(BufferReference* reference, uint32_t status);
        // Gives a buffer of the device's BufferManager back after the frame.
        bool AddReleaseBufferWork(BufferReference* buffer, uint32_t size, uint32_t stride, uint32_t flags);
        // Drops one count of the reference; the last deletes it.
        bool AddDeleteBufferWork(BufferReference* reference);
        // The device object goes, the record stays.
        bool AddReleaseBufferReferenceHandleWork(BufferReference* reference);
        bool AddDeleteGeometryWork(Geometry* geometry);
        bool AddDeleteDrawGeometryWork(DrawGeometry* draw);
        // Restores a lost device; waits for the device's CanReset.
        bool AddUpdateDeviceWork(uint32_t a, uint32_t b);
        // Draws at once inside the open scene ("AddRenderImmediateWork : Scene not opened").
        bool AddRenderImmediateWork(Geometry* geometry, Property* property, uint32_t flags);
        bool AddRenderImmediateWork(DrawGeometry* draw, uint32_t flags);

        // The end of the stop chain: the render loop ends when this worker runs. From then
        // on only the render thread itself may add work.
        void AddReleaseRendererWork();

        LoadingThread* GetLoader() const { return m_pLoader; }
        ProcessThread* GetProcessor() const { return m_pProcessor; }
        WorkerThread* GetWorkerThread(unsigned int index) const;
        void SetAnimManager(IAnimManager* manager) { m_pAnimManager.store(manager, std::memory_order_release); }
        IAnimManager* GetAnimManager() const { return m_pAnimManager.load(std::memory_order_acquire); }

        // Ids of draw geometries, process-wide, 27 bits.
        static uint32_t GetNewDrawGeometryID();

        void Run() override;

    private:
        friend class DeleteBucketWorker;

        Renderer* RendererUnchecked() const { return m_pRenderer.load(std::memory_order_acquire); }

        typedef FlowQueue<WorkerFields> RenderQueueType;

        // What the loop took off one queue and has not run yet, oldest first. Its front
        // is the queue's held slot; taking several at once spares the queue's lock.
        struct HeldWork
        {
            static constexpr uint32_t kBatch = 32;
            WorkerFields* apItems[kBatch] = {};
            uint32_t uHead = 0;
            uint32_t uCount = 0;

            WorkerFields* Front() const { return uCount ? apItems[uHead] : nullptr; }
            WorkerFields* Take()
            {
                --uCount;
                return apItems[uHead++];
            }
            WorkerFields* Refill(RenderQueueType& queue)
            {
                if (!uCount)
                {
                    uHead = 0;
                    uCount = queue.PopBatch(apItems, kBatch);
                }
                return Front();
            }
        };

        bool AddWorkItem(WorkerFields* worker, bool checkAccept);
        RenderQueueType& QueueFor(unsigned int queue);
        WorkerFields* SelectWorker();
        bool AwaitBriefly();
        void FlushFinished();
        void Loop();
        bool RunAny(WorkerFields* worker);
        void LowerOverhead();
        void BeginRelease();
        void Shutdown();
        void DrainReleaseQueue();
        void DiscardQueue(RenderQueueType& queue, HeldWork& held);
        void DeleteBucket(Bucket* bucket);
        void ReleaseBucketsLeft();

        std::atomic<Renderer*> m_pRenderer{nullptr};
        LoadingThread* m_pLoader = nullptr;
        ProcessThread* m_pProcessor = nullptr;
        TArray<WorkerThread*> m_aWorkerThreads;
        FlowQueue<WorkerBase<RenderThread>> m_kSharedQueue;
        // One sleeper (this thread) waits on the three render queues together.
        WakeSignal m_kWorkSignal{true};
        RenderQueueType m_kUpdateQueue;
        RenderQueueType m_kRenderQueue;
        RenderQueueType m_kReleaseQueue;
        // The consumer's own state, on lines that producers never write.
        alignas(64) HeldWork m_aHeld[3];
        static constexpr uint32_t kFinishedBatch = 32;
        WorkerFields* m_apFinished[kFinishedBatch] = {};
        uint32_t m_uFinished = 0;
        std::atomic<IAnimManager*> m_pAnimManager{nullptr};

        Bucket* m_pDefaultBucket = nullptr;
        TArray<Bucket*> m_Buckets;
        mutable Common::CMutex m_kBucketMutex;

        alignas(64) std::atomic<uint32_t> m_uCurrentFrame{0};
        // What producers write, apart from what the consumer writes.
        alignas(64) std::atomic<uint32_t> m_uProducerFrame{0};
        std::atomic<bool> m_bAcceptWork{false};
        alignas(64) std::atomic<uint32_t> m_overhead{0};
        WakeSignal m_kOverheadSignal;
        InitRendererWorker* m_pInitWorker = nullptr;
        RendererInitRecord m_kInitRecord;
        Common::CEvent m_kStartedEvent;
        std::atomic<int> m_iMessagePumpThreadId{0};
        std::atomic<int> m_iThreadId{0};
        std::atomic<bool> m_bRunning{false};
        std::atomic<bool> m_bSceneOpened{false};
        std::atomic<WorkerFields*> m_pReleaseRendererWorker{nullptr};

        alignas(64) std::atomic<bool> m_bThreadStarted{false};
        std::atomic<bool> m_bInitFailed{false};
        std::atomic<bool> m_bStopRequested{false};
        std::atomic<bool> m_bReleaseRequested{false};
        std::atomic<bool> m_bReleaseRendererAdded{false};
        // Set when the loop has ended; producers stop waiting on frames then.
        std::atomic<bool> m_bLoopEnded{false};
        std::atomic<bool> m_bShutdownDone{false};

        static std::atomic<uint32_t> m_uiCurrentDrawGeometryID;
    };
}
