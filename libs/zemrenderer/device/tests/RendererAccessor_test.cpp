// The accessor lets device work through on the render thread only.
#include <gtest/gtest.h>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/RendererAccessor.h"
#include "zemrenderer/thread/GenericWorker.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        struct Outcome
        {
            std::atomic<int> iRan{0};
            std::atomic<bool> bCopied{false};
        };

        void CountRun(Renderer&, void* data) { static_cast<Outcome*>(data)->iRan++; }

        void OnRenderThread(RenderThread* thread, Outcome* outcome)
        {
            RendererAccessor accessor(thread);
            accessor.RunComponent(&CountRun, outcome);
            outcome->bCopied = accessor.CopyResource(reinterpret_cast<Texture*>(0x10), 0,
                                                     reinterpret_cast<Texture*>(0x20), 0);
        }
    }

    TEST(RendererAccessor, PassesWorkOnOnlyOnTheRenderThread)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        RendererAccessor accessor(engine.Get());
        Outcome outcome;
        {
            Common::ScopedLogCapture log;
            EXPECT_FALSE(accessor.RunComponent(&CountRun, &outcome));
            EXPECT_FALSE(accessor.CopyResource(nullptr, 0, nullptr, 0));
            EXPECT_EQ(accessor.GetRenderer(), nullptr);
            EXPECT_TRUE(log.Contains("Wrong thread access ! must be called by RenderThread only"));
        }
        EXPECT_EQ(outcome.iRan.load(), 0);
        EXPECT_EQ(engine.Device().CountCalls(DeviceOp::CopyResource), 0u);

        ASSERT_TRUE(engine->AddWork(MakeGenericWorker(&OnRenderThread, engine.Get(), &outcome)));
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);
        EXPECT_EQ(outcome.iRan.load(), 1);
        EXPECT_TRUE(outcome.bCopied.load());
        EXPECT_EQ(engine.Device().CountCalls(DeviceOp::CopyResource), 1u);
    }
}
