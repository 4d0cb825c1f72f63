// The worker classes and the queue they travel in.
#include <gtest/gtest.h>

#include <tuple>

#include "zemrenderer/thread/ExecuteRenderComponentWorker.h"
#include "zemrenderer/thread/FlowQueue.h"
#include "zemrenderer/thread/GenericWorker.h"
#include "zemrenderer/thread/VisitorWorker.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        std::atomic<int> g_iGenericSum{0};
        void Add1(int a) { g_iGenericSum += a; }
        void Add2(int a, int b) { g_iGenericSum += a + b; }
        void Add3(int a, short b, long c) { g_iGenericSum += a + b + static_cast<int>(c); }
        void Add4(int a, int b, int c, unsigned d) { g_iGenericSum += a + b + c + static_cast<int>(d); }
        void Add5(int a, int b, int c, int d, char e) { g_iGenericSum += a + b + c + d + e; }

        struct FakeVisitor
        {
            float fRemaining = 0.0f;
            int* pVisits = nullptr;
            float* pTicked = nullptr;
            float GetRemainingTime() const { return fRemaining; }
            void Tick(float seconds) { *pTicked += seconds; }
        };

        struct FakeModifier
        {
            void* pOwner = nullptr;
            bool Accept(FakeVisitor& visitor)
            {
                ++*visitor.pVisits;
                return true;
            }
            void* GetOwner() const { return pOwner; }
        };

        struct MipsComponent
        {
            Texture* pTexture = nullptr;
            void Draw(Renderer* renderer, Camera*, unsigned, unsigned) { renderer->GenerateMips(pTexture); }
        };
    }

    TEST(GenericWorker, CallsTheFunctionWithEveryStoredArgument)
    {
        g_iGenericSum = 0;
        auto run = [](auto* worker) {
            EXPECT_EQ(worker->GetQueue(), eUpdateQueue);
            EXPECT_TRUE(worker->DoWork(nullptr));
            worker->ReleaseToPool();
        };
        run(MakeGenericWorker(&Add1, 1));
        run(MakeGenericWorker(&Add2, 1, 2));
        run(MakeGenericWorker(&Add3, 1, 2, 3));
        run(MakeGenericWorker(&Add4, 1, 2, 3, 4));
        run(MakeGenericWorker(&Add5, 1, 2, 3, 4, 5));
        EXPECT_EQ(g_iGenericSum.load(), 1 + 3 + 6 + 10 + 15);
        static_assert(std::is_same_v<GenericWorker2<int, int>, GenericWorker<int, int>>);
    }

    TEST(VisitorWorker, VisitsOncePerFrameForTheVisitorsTimeOnItsChosenQueue)
    {
        Engine engine;
        int visits = 0;
        float ticked = 0.0f;
        int owner = 0;
        FakeModifier modifier{&owner};
        auto* worker = VisitorWorker<FakeVisitor, FakeModifier>::New(FakeVisitor{1.5f, &visits, &ticked}, &modifier,
                                                                      eRenderQueue);
        EXPECT_EQ(worker->GetQueue(), eRenderQueue);
        EXPECT_EQ(worker->GetTarget(), &owner);
        EXPECT_FLOAT_EQ(worker->GetDelay(), 1.5f);
        for (uint32_t frame = 1; frame <= 4; ++frame)
        {
            engine->AddBeginSceneWork(false, frame, 1.0f, 1.0f);
            if (frame == 1) engine->AddWork(worker);
            engine->AddEndSceneWork(false);
            engine->WaitForOverhead(0);
        }
        // 1.5 s at 1 s a frame: runs with 1.5, 0.5 and 0 left.
        EXPECT_EQ(visits, 3);
        EXPECT_FLOAT_EQ(ticked, 2.0f);
    }

    TEST(ExecuteRenderComponentWorker, DrawsTheHeldComponentWithTheRenderer)
    {
        Engine engine;
        Texture* texture = reinterpret_cast<Texture*>(0x1234);
        auto* worker = ExecuteRenderComponentWorker<MipsComponent>::New(MipsComponent{texture}, eReleaseQueue);
        EXPECT_EQ(worker->GetQueue(), eReleaseQueue);
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        engine->AddWork(worker);
        engine->AddEndSceneWork(false);
        ASSERT_TRUE(WaitUntil([&] { return engine.Device().CountCalls(DeviceOp::GenerateMips) == 1; }));
        const DeviceCall mips = engine.Device().GetCalls()[engine.Device().FindCall(DeviceOp::GenerateMips)];
        EXPECT_EQ(mips.auArgs[0], reinterpret_cast<uintptr_t>(texture));
        EXPECT_EQ(mips.iThreadId, engine->GetThreadId());
    }

    TEST(PooledWorker, PoolGrowsBySixteenAndSteadyFramesAddNoBlocks)
    {
        Engine engine;
        std::vector<RecordWorker*> held;
        for (int i = 0; i < 17; ++i) held.push_back(Record(engine.Get(), "held", eRenderQueue, nullptr));
        const unsigned int grown = RecordWorker::GetPoolPointer()->Lock()->GetBlockCount();
        EXPECT_GE(grown, 32u);
        EXPECT_EQ(grown % 16, 0u);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 17u);
        for (RecordWorker* w : held) w->ReleaseToPool();
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);

        // Every frame's workers are back before the next one starts: once a frame had all
        // of them out at once, the same blocks serve every later frame.
        Latch entered, gate;
        auto frame = [&](uint32_t id) {
            engine->AddBeginSceneWork(false, id, 0.016f, 0.016f);
            for (int i = 0; i < 40; ++i) engine->AddWork(Record(engine.Get(), "steady", eRenderQueue, nullptr));
            engine->AddEndSceneWork(false);
            gate.Open();
            engine->WaitForOverhead(0);
        };
        ParkRenderThread(engine.Get(), entered, gate);
        frame(1);
        const unsigned int warm = RecordWorker::GetPoolPointer()->Lock()->GetBlockCount();
        for (uint32_t id = 2; id <= 50; ++id) frame(id);
        EXPECT_EQ(RecordWorker::GetPoolPointer()->Lock()->GetBlockCount(), warm);
        EXPECT_EQ(RecordWorker::GetUsedCount(), 0u);
    }

    TEST(FlowQueue, BoundedFifoThatRefusesNullAndFull)
    {
        FlowQueue<int> queue(4);
        int values[5] = {0, 1, 2, 3, 4};
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(queue.Push(nullptr));
            EXPECT_TRUE(capture.Contains("Pointer must be non null"));
        }
        // Enough rounds to wrap the slots several times.
        for (int round = 0; round < 3; ++round)
        {
            for (int i = 0; i < 4; ++i) EXPECT_TRUE(queue.Push(&values[i]));
            EXPECT_FALSE(queue.Push(&values[4]));
            EXPECT_EQ(queue.GetCount(), 4u);
            for (int i = 0; i < 4; ++i) EXPECT_EQ(queue.Pop(), &values[i]);
            EXPECT_EQ(queue.Pop(), nullptr);
        }
        EXPECT_EQ(RenderThread::kRenderQueueCapacity, 131072u);
        EXPECT_EQ(RenderThread::kSharedQueueCapacity, 512u);
    }

    TEST(FlowQueue, WaitNotEmptySleepsUntilAPush)
    {
        FlowQueue<int> queue(8);
        int value = 7;
        std::atomic<bool> woke{false};
        std::thread waiter([&] {
            queue.WaitNotEmpty();
            woke = true;
        });
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        EXPECT_FALSE(woke.load());
        queue.Push(&value);
        waiter.join();
        EXPECT_TRUE(woke.load());
        EXPECT_EQ(queue.Pop(), &value);
    }
}
