#pragma once
// A render thread on a chosen device, and a way to run a piece of a test on it.
#include <gtest/gtest.h>

#include <functional>
#include <future>

#include "zemrenderer/device/null/NullRenderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer::BufferTest
{
    template <class Device>
    class EngineOn
    {
    public:
        EngineOn()
        {
            m_pThread = MEM_NEW(RenderThread);
            m_pThread->SetRenderer(&m_kDevice);
            RendererInitRecord record;
            record.bNoWindow = 1;
            record.uWidth = 64;
            record.uHeight = 64;
            m_pThread->SetInitParameters(record);
            m_bStarted = m_pThread->Init();
        }
        ~EngineOn() { Stop(); }
        void Stop()
        {
            if (!m_pThread) return;
            m_pThread->Stop();
            m_pThread->WaitForStop();
            MEM_DELETE(m_pThread);
            m_pThread = nullptr;
        }
        RenderThread* operator->() const { return m_pThread; }
        RenderThread* Get() const { return m_pThread; }
        Device& Dev() { return m_kDevice; }
        bool IsStarted() const { return m_bStarted; }

    private:
        Device m_kDevice;
        RenderThread* m_pThread = nullptr;
        bool m_bStarted = false;
    };

    class CallWorker : public PooledWorker<CallWorker, Renderer>
    {
    public:
        CallWorker() = default;
        CallWorker(std::function<void(Renderer*)> call, unsigned int queue, std::promise<void>* done)
            : m_kCall(std::move(call)), m_uQueue(queue), m_pDone(done)
        {
        }
        unsigned int GetQueue() const override { return m_uQueue; }
        bool DoWork(Renderer* renderer) override
        {
            m_kCall(renderer);
            if (m_pDone) m_pDone->set_value();
            return true;
        }
        void OnCancel() override
        {
            if (m_pDone) m_pDone->set_value();
        }

    private:
        std::function<void(Renderer*)> m_kCall;
        unsigned int m_uQueue = eUpdateQueue;
        std::promise<void>* m_pDone = nullptr;
    };

    // Runs `call` on the render thread after what was queued before on `queue`, and waits.
    inline void OnRenderThread(RenderThread* thread, std::function<void(Renderer*)> call,
                               unsigned int queue = eReleaseQueue)
    {
        std::promise<void> done;
        std::future<void> finished = done.get_future();
        ASSERT_TRUE(thread->AddWork(CallWorker::New(std::move(call), queue, &done)));
        ASSERT_EQ(finished.wait_for(std::chrono::seconds(20)), std::future_status::ready);
    }
}
