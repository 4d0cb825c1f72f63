#pragma once
// Workers and a running engine thread set for the worker model's tests.
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer::Testing
{
    // What ran, in order, with the frame stamp it carried and the consumer's frame.
    struct RunRecord
    {
        std::string sName;
        uint32_t uStamp = 0;
        uint32_t uCurrentFrame = 0;
        int iThreadId = 0;
        float fDelayAtRun = 0.0f;
        bool bPrepared = false;
    };

    class RunLog
    {
    public:
        void Add(RunRecord record)
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_aRecords.push_back(std::move(record));
        }
        std::vector<RunRecord> Get() const
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            return m_aRecords;
        }
        // Position of the first record named `name`, or -1.
        int IndexOf(const std::string& name) const
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            for (size_t i = 0; i < m_aRecords.size(); ++i)
                if (m_aRecords[i].sName == name) return static_cast<int>(i);
            return -1;
        }

    private:
        mutable std::mutex m_kMutex;
        std::vector<RunRecord> m_aRecords;
    };

    struct Counters
    {
        std::atomic<int> iMade{0};
        std::atomic<int> iRan{0};
        std::atomic<int> iCancelled{0};
        std::atomic<int> iTicks{0};
    };

    // A one-shot gate that a worker can block on.
    class Latch
    {
    public:
        void Open()
        {
            std::lock_guard<std::mutex> lock(m_kMutex);
            m_bOpen = true;
            m_kCondition.notify_all();
        }
        bool WaitOpen(int ms = 10000)
        {
            std::unique_lock<std::mutex> lock(m_kMutex);
            return m_kCondition.wait_for(lock, std::chrono::milliseconds(ms), [this] { return m_bOpen; });
        }

    private:
        std::mutex m_kMutex;
        std::condition_variable m_kCondition;
        bool m_bOpen = false;
    };

    struct RecordSpec
    {
        const char* szName = "";
        unsigned int uQueue = eRenderQueue;
        RunLog* pLog = nullptr;
        Counters* pCounters = nullptr;
        RenderThread* pThread = nullptr;
        bool bEndsFrame = false;
        bool bResult = true;
        Latch* pEntered = nullptr;
        Latch* pGate = nullptr;
        int iSleepMs = 0;
        // Sampled on the consuming thread when it runs.
        std::atomic<uint32_t>* pMaxOverhead = nullptr;
    };

    // A worker of the Renderer kind that logs its run.
    class RecordWorker : public PooledWorker<RecordWorker, Renderer>
    {
    public:
        RecordWorker() = default;
        explicit RecordWorker(const RecordSpec& spec) : m_kSpec(spec)
        {
            if (m_kSpec.pCounters) m_kSpec.pCounters->iMade.fetch_add(1);
        }
        bool EndsFrame() const override { return m_kSpec.bEndsFrame; }
        unsigned int GetQueue() const override { return m_kSpec.uQueue; }
        bool DoWork(Renderer*) override
        {
            if (m_kSpec.pEntered) m_kSpec.pEntered->Open();
            if (m_kSpec.pGate) m_kSpec.pGate->WaitOpen();
            if (m_kSpec.iSleepMs) std::this_thread::sleep_for(std::chrono::milliseconds(m_kSpec.iSleepMs));
            if (m_kSpec.pMaxOverhead && m_kSpec.pThread)
            {
                const uint32_t now = m_kSpec.pThread->GetOverhead();
                uint32_t seen = m_kSpec.pMaxOverhead->load();
                while (now > seen && !m_kSpec.pMaxOverhead->compare_exchange_weak(seen, now)) {}
            }
            if (m_kSpec.pLog)
                m_kSpec.pLog->Add({m_kSpec.szName, GetFrame(),
                                   m_kSpec.pThread ? m_kSpec.pThread->GetCurrentFrame() : 0u,
                                   static_cast<int>(gettid()), GetDelay()});
            if (m_kSpec.pCounters) m_kSpec.pCounters->iRan.fetch_add(1);
            return m_kSpec.bResult;
        }
        void TickDelay(float) override
        {
            if (m_kSpec.pCounters) m_kSpec.pCounters->iTicks.fetch_add(1);
        }
        void OnCancel() override
        {
            if (m_kSpec.pCounters) m_kSpec.pCounters->iCancelled.fetch_add(1);
        }

    private:
        RecordSpec m_kSpec;
    };

    // A worker of the RenderThread kind (loader, processor, worker threads, update queue).
    class JobWorker : public PooledWorker<JobWorker, RenderThread>
    {
    public:
        JobWorker() = default;
        JobWorker(const RecordSpec& spec) : m_kSpec(spec)
        {
            if (m_kSpec.pCounters) m_kSpec.pCounters->iMade.fetch_add(1);
        }
        unsigned int GetQueue() const override { return m_kSpec.uQueue; }
        bool PrepareWork() override
        {
            m_bPrepared = true;
            return true;
        }
        bool DoWork(RenderThread* context) override
        {
            if (m_kSpec.pEntered) m_kSpec.pEntered->Open();
            if (m_kSpec.pGate) m_kSpec.pGate->WaitOpen();
            if (m_kSpec.pLog)
                m_kSpec.pLog->Add({m_kSpec.szName, GetFrame(), context ? context->GetCurrentFrame() : 0u,
                                   static_cast<int>(gettid()), 0.0f, m_bPrepared});
            if (m_kSpec.pCounters) m_kSpec.pCounters->iRan.fetch_add(1);
            return m_kSpec.bResult;
        }
        void OnCancel() override
        {
            if (m_kSpec.pCounters) m_kSpec.pCounters->iCancelled.fetch_add(1);
        }

    private:
        RecordSpec m_kSpec;
        bool m_bPrepared = false;
    };

    // Polls a condition that another thread makes true.
    template <class Pred>
    bool WaitUntil(Pred pred, int ms = 10000)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (!pred())
        {
            if (std::chrono::steady_clock::now() > end) return false;
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        return true;
    }

    // A started engine thread set over a recording device.
    class Engine
    {
    public:
        explicit Engine(bool deviceCreated = true)
        {
            m_kDevice.SetInitResult(deviceCreated);
            m_pThread = MEM_NEW(RenderThread);
            m_pThread->SetRenderer(&m_kDevice);
            RendererInitRecord record;
            record.bNoWindow = 1;
            record.uWidth = 64;
            record.uHeight = 32;
            m_pThread->SetInitParameters(record);
            m_bStarted = m_pThread->Init();
        }
        ~Engine() { StopAndDelete(); }

        void StopAndDelete()
        {
            if (!m_pThread) return;
            m_pThread->Stop();
            m_pThread->WaitForStop();
            MEM_DELETE(m_pThread);
            m_pThread = nullptr;
        }

        RenderThread* operator->() const { return m_pThread; }
        RenderThread* Get() const { return m_pThread; }
        NullRenderer& Device() { return m_kDevice; }
        bool IsStarted() const { return m_bStarted; }

    private:
        NullRenderer m_kDevice;
        RenderThread* m_pThread = nullptr;
        bool m_bStarted = false;
    };

    inline RecordWorker* Record(RenderThread* thread, const char* name, unsigned int queue, RunLog* log,
                                Counters* counters = nullptr)
    {
        RecordSpec spec;
        spec.szName = name;
        spec.uQueue = queue;
        spec.pLog = log;
        spec.pCounters = counters;
        spec.pThread = thread;
        return RecordWorker::New(spec);
    }

    // Parks the render thread inside an update worker until the returned gate opens.
    inline void ParkRenderThread(RenderThread* thread, Latch& entered, Latch& gate)
    {
        RecordSpec spec;
        spec.szName = "gate";
        spec.uQueue = eUpdateQueue;
        spec.pEntered = &entered;
        spec.pGate = &gate;
        thread->AddWork(RecordWorker::New(spec));
        entered.WaitOpen();
    }
}
