// What the Add...Work operations make reach the device, through the recording device.
#include <gtest/gtest.h>

#include "zemrenderer/thread/IAnimManager.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        class FakeAnimManager : public IAnimManager
        {
        public:
            void BeginFrame(uint32_t frameId, float, float, bool animate) override
            {
                Add("begin " + std::to_string(frameId) + (animate ? " animate" : ""));
            }
            void EndFrame() override { Add("end"); }
            void BeginSession(uint32_t viewId) override { Add("session " + std::to_string(viewId)); }
            void EndSession(uint32_t viewId) override { Add("/session " + std::to_string(viewId)); }
            void ReleaseThread(RenderThread*) override { Add("released"); }

            std::vector<std::string> Get()
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                return m_aEvents;
            }

        private:
            void Add(std::string event)
            {
                std::lock_guard<std::mutex> lock(m_kMutex);
                m_aEvents.push_back(std::move(event));
            }
            std::mutex m_kMutex;
            std::vector<std::string> m_aEvents;
        };

        void CountCallback(void* userData) { ++*static_cast<int*>(userData); }
    }

    TEST(RenderThreadDevice, FrameOperationsReachTheDeviceInStreamOrderOnTheRenderThread)
    {
        Engine engine;
        FakeAnimManager anim;
        engine->SetAnimManager(&anim);
        RenderViewport* viewport = reinterpret_cast<RenderViewport*>(0x10);
        Texture* texture = reinterpret_cast<Texture*>(0x20);
        int callbacks = 0;
        ViewportRect rect;
        rect.fWidth = 640.0f;
        rect.fHeight = 480.0f;
        ScissorRect scissor{1, 2, 3, 4};

        engine->AddBeginSceneWork(true, 7, 0.5f, 0.25f);
        engine->AddBeginSessionWork(3);
        engine->AddBeginViewportWork(viewport);
        engine->AddSetViewportWork(rect);
        engine->AddSetScissorTestWork(true, scissor);
        engine->AddPerfEventStartWork(0xFF00FF00u, "pass");
        engine->AddRenderTextWork("hello", 1.0f, 2.0f, 3.0f, 0xFFFFFFFFu);
        engine->AddPerfEventEndWork();
        engine->AddResolveWork(texture, 2);
        engine->AddResizeTextureWork(texture, 16, 8);
        engine->AddSaveTextureToFileWork(texture, "shot.png");
        engine->AddEndViewportWork(true, "Screen_0.png", &CountCallback, &callbacks);
        engine->AddEndSessionWork(3);
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);

        const TArray<DeviceCall> calls = engine.Device().GetCalls();
        std::vector<DeviceOp> ops;
        for (const DeviceCall& call : calls)
        {
            if (call.eOp == DeviceOp::Init) continue;
            ops.push_back(call.eOp);
            EXPECT_EQ(call.iThreadId, engine->GetThreadId()) << GetDeviceOpName(call.eOp);
        }
        const std::vector<DeviceOp> expected = {
            DeviceOp::BeginScene,     DeviceOp::BeginViewport, DeviceOp::SetViewport,       DeviceOp::SetScissorTest,
            DeviceOp::PerfEventBegin, DeviceOp::RenderText,    DeviceOp::PerfEventEnd,      DeviceOp::ResolveTexture,
            DeviceOp::ResizeTexture,  DeviceOp::SaveTextureToFile, DeviceOp::SaveScreenshot, DeviceOp::EndViewport,
            DeviceOp::EndScene};
        EXPECT_EQ(ops, expected);

        const NullRenderer& device = engine.Device();
        const DeviceCall& begin = calls[device.FindCall(DeviceOp::BeginScene)];
        EXPECT_FLOAT_EQ(begin.afArgs[0], 0.5f);
        EXPECT_FLOAT_EQ(begin.afArgs[1], 0.25f);
        const DeviceCall& text = calls[device.FindCall(DeviceOp::RenderText)];
        EXPECT_STREQ(text.szText, "hello");
        EXPECT_FLOAT_EQ(text.afArgs[2], 3.0f);
        const DeviceCall& scissorCall = calls[device.FindCall(DeviceOp::SetScissorTest)];
        EXPECT_EQ(scissorCall.auArgs[0], 1u);
        EXPECT_EQ(scissorCall.auArgs[4], 4u);
        EXPECT_STREQ(calls[device.FindCall(DeviceOp::SaveScreenshot)].szText, "Screen_0.png");
        EXPECT_EQ(calls[device.FindCall(DeviceOp::ResizeTexture)].auArgs[1], 16u);
        EXPECT_EQ(callbacks, 1);
        EXPECT_EQ(anim.Get(), (std::vector<std::string>{"begin 7 animate", "session 3", "/session 3", "end"}));

        engine.StopAndDelete();
        EXPECT_EQ(anim.Get().back(), "released");
    }

    TEST(RenderThreadDevice, UpdateQueueOperations)
    {
        Engine engine;
        RenderViewport* viewport = reinterpret_cast<RenderViewport*>(0x10);
        {
            Common::ScopedLogCapture capture;
            engine->AddResizeViewportWork(viewport, 800, 600);
            engine->AddSetCursorWork(2);
            engine->AddSetVSyncWork(true);
            engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
            engine->AddEndSceneWork(false);
            engine->WaitForOverhead(0);
            EXPECT_TRUE(capture.Contains("Not implemented"));
        }
        const NullRenderer& device = engine.Device();
        const TArray<DeviceCall> calls = device.GetCalls();
        const int resize = device.FindCall(DeviceOp::ResizeViewport);
        ASSERT_GE(resize, 0);
        EXPECT_EQ(calls[resize].auArgs[1], 800u);
        EXPECT_EQ(calls[resize].auArgs[2], 600u);
        EXPECT_EQ(calls[device.FindCall(DeviceOp::SetCursor)].auArgs[0], 2u);
        EXPECT_LT(resize, device.FindCall(DeviceOp::BeginScene));
    }

    TEST(RenderThreadDevice, SceneBracketMisuseIsReported)
    {
        Engine engine;
        Common::ScopedLogCapture capture;
        engine->AddEndSceneWork(false);
        EXPECT_TRUE(capture.Contains("AddEndSceneWork : Scene not opened"));
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddBeginSceneWork(false, 2, 0.016f, 0.016f);
        EXPECT_TRUE(capture.Contains("AddBeginSceneWork : Scene opened"));
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);
        EXPECT_EQ(engine->GetProducerFrame(), 2u);
    }

    TEST(NullRenderer, KeepsCallsWithArgumentsAndLimitsProcessingThreads)
    {
        NullRenderer device;
        Texture* source = reinterpret_cast<Texture*>(0x40);
        Texture* dest = reinterpret_cast<Texture*>(0x80);
        device.CopyResource(dest, 1, source, 2, 3, 4, 5);
        unsigned char readBack[8] = {9, 9, 9, 9, 9, 9, 9, 9};
        EXPECT_TRUE(device.RetrieveDeviceData(source, 0, readBack, sizeof(readBack)));
        EXPECT_EQ(readBack[7], 0);
        ASSERT_EQ(device.GetCallCount(), 2u);
        const DeviceCall copy = device.GetCalls()[0];
        EXPECT_EQ(copy.auArgs[0], reinterpret_cast<uintptr_t>(dest));
        EXPECT_EQ(copy.auArgs[2], reinterpret_cast<uintptr_t>(source));
        EXPECT_EQ(copy.auArgs[3], 2u);
        EXPECT_EQ(copy.iThreadId, static_cast<int>(gettid()));
        EXPECT_STREQ(GetDeviceOpName(DeviceOp::CopyResource), "CopyResource");

        for (int id = 1; id <= Renderer::NumThreadPool; ++id) EXPECT_TRUE(device.RegisterProcessingThread(100 + id));
        Common::ScopedLogCapture capture;
        EXPECT_FALSE(device.RegisterProcessingThread(200));
        EXPECT_TRUE(capture.Contains("Too much processing thread"));
        EXPECT_EQ(device.GetProcessingThreadSlot(103), 2);
        EXPECT_EQ(device.GetProcessingThreadSlot(200), -1);
    }
}
