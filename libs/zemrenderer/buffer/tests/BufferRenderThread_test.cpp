// Buffers and geometry through the render thread: blocks filled by a producer and sent
// by workers, geometry streams changed and deleted on the release queue, the manager's
// frame delay, immediate draws, and the render thread's own renderer access.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/buffer/tests/BufferTestKit.h"
#include "zemrenderer/buffer/tests/GLTestContext.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/scene/Bucket.h"

namespace ZemRenderer::BufferTest
{
    namespace
    {
        typedef EngineOn<NullRenderer> NullEngine;

        std::vector<unsigned char> ReadOnDevice(RenderThread* thread, BufferReference* r)
        {
            std::vector<unsigned char> out(r->GetSize(), 0xEE);
            OnRenderThread(thread, [&](Renderer* renderer) {
                EXPECT_TRUE(renderer->GetBuffers().ReadBuffer(r, 0, out.data(), r->GetSize()));
            });
            return out;
        }

        InputLayout* Float4Layout() { return InputLayout::Create("POSITION", IET_FLOAT4); }
    }

    TEST(BufferRenderThread, AFilledBlockReachesTheDeviceThroughItsWorker)
    {
        NullEngine engine;
        ASSERT_TRUE(engine.IsStarted());
        for (uint32_t flags : {uint32_t(BBF_VERTEX), uint32_t(BBF_VERTEX | BBF_CPU_WRITEACCESS)})
        {
            BufferReference* r = engine->CreateBufferReference(64, flags, Float4Layout());
            ASSERT_EQ(r->GetRefCount(), 1);
            Buffer* block = engine->RetrieveBuffer(r);
            ASSERT_NE(block, nullptr);
            EXPECT_EQ(block->GetSize(), 64u) << "size 0 asks for the reference's own";
            EXPECT_EQ(reinterpret_cast<uintptr_t>(block->GetData()) % 16, 0u);
            std::memset(block->GetData(), 0x31, 64);
            QueryPtr query(Query::Create());
            ASSERT_TRUE(engine->AddUpdateBufferWork(block, false, false, query));
            EXPECT_TRUE(query->WaitFinished(10000));
            EXPECT_EQ(query->GetState(), Query::eDone);
            EXPECT_EQ(ReadOnDevice(engine.Get(), r), std::vector<unsigned char>(64, 0x31));
            EXPECT_EQ(r->GetStreamStatus(), uint32_t(BSS_UPDATED));
            EXPECT_EQ(r->GetRefCount(), 1) << "the worker's count went with it";
            // A part, by a copy: the caller keeps its block.
            Buffer* part = engine->RetrieveBuffer(r, 16, 32);
            std::memset(part->GetData(), 0x42, 16);
            if (r->GetUsage() == BufferUsage::Dynamic)
            {
                ASSERT_TRUE(engine->AddUpdateBufferWork(part, true, true));
                std::vector<unsigned char> want(64, 0x31);
                std::memset(want.data() + 32, 0x42, 16);
                EXPECT_EQ(ReadOnDevice(engine.Get(), r), want);
                EXPECT_EQ(r->GetStreamStatus(), uint32_t(BSS_UPDATED_RELOADABLE));
            }
            RenderThread::GiveBackBuffer(part);
            ASSERT_TRUE(engine->AddDeleteBufferWork(r));
        }
        OnRenderThread(engine.Get(), [](Renderer* renderer) { EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 0); });
        Common::ScopedLogCapture capture;
        EXPECT_FALSE(engine->AddUpdateBufferWork(nullptr));
        EXPECT_TRUE(capture.Contains("Null buffer !"));
    }

    TEST(BufferRenderThread, BlocksOfGeometryStreamsByElementsAndTheirChecks)
    {
        NullEngine engine;
        Bucket* bucket = engine->CreateBucket("streams");
        InputLayout* layout = Float4Layout();
        Geometry* g = bucket->CreateGeometry(GeometryInit::CreateTriangleList(8), 8, layout, BBF_VERTEX | BBF_CPU_WRITEACCESS);
        ASSERT_NE(g, nullptr);
        Buffer* block = engine->RetrieveBuffer(g, 0, 2, 3);
        ASSERT_NE(block, nullptr);
        EXPECT_EQ(block->GetOffset(), 32u);
        EXPECT_EQ(block->GetSize(), 48u);
        RenderThread::GiveBackBuffer(block);

        Buffer* stored = engine->RetrieveAndStoreBuffer(g, 0);
        ASSERT_NE(stored, nullptr);
        EXPECT_TRUE(stored->IsWhole());
        EXPECT_EQ(engine->RetrieveAndStoreBuffer(g, 0), stored) << "kept for the next call";
        std::memset(stored->GetData(), 0x66, stored->GetSize());
        ASSERT_TRUE(engine->AddUpdateBufferWork(stored, false, true));
        EXPECT_EQ(ReadOnDevice(engine.Get(), g->GetStream(0)), std::vector<unsigned char>(128, 0x66));

        // A stream whose reference has no layout, a hole, an index past the count.
        Geometry* bare = bucket->CreateGeometry(GeometryInit::CreateTriangleList(3));
        bare->SetStream(1, BufferReference::Create(36, BBF_VERTEX, nullptr));
        struct Case
        {
            Geometry* geometry;
            uint32_t stream;
            const char* report;
        };
        const Case cases[] = {{nullptr, 0, "Null geometry"},
                              {bare, 2, "RetrieveBuffer : Invalid buffer index 2"},
                              {bare, 0, "Null buffer at index 0"},
                              {bare, 1, "Buffer has no layout"}};
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(engine->RetrieveBuffer(c.geometry, c.stream, 0, 1), nullptr) << c.report;
            EXPECT_EQ(engine->RetrieveAndStoreBuffer(c.geometry, c.stream), nullptr) << c.report;
            EXPECT_TRUE(capture.Contains(c.report)) << c.report;
        }
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(engine->RetrieveBuffer(g, 0, 6, 3), nullptr);
            EXPECT_TRUE(capture.Contains("past the buffer"));
        }
        engine->AddDeleteGeometryWork(g);
        engine->AddDeleteGeometryWork(bare);
        bucket->Release();
        engine->AddDeleteBucketWork(bucket);
        OnRenderThread(engine.Get(), [](Renderer* renderer) { EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 0); });
    }

    TEST(BufferRenderThread, StreamsAreReplacedAndCountsChangedByWorkers)
    {
        NullEngine engine;
        Bucket* bucket = engine->CreateBucket("replace");
        BufferReference* a = engine->CreateBufferReference(32, BBF_VERTEX, nullptr);
        BufferReference* b = engine->CreateBufferReference(32, BBF_VERTEX, nullptr);
        BufferReference* c = engine->CreateBufferReference(32, BBF_VERTEX, nullptr);
        BufferReference* two[] = {a, b};
        Geometry* g = bucket->CreateGeometry(GeometryInit::CreateTriangleList(3), two, 2);
        EXPECT_EQ(a->GetRefCount(), 2);
        // The caller's count on c goes to the geometry; a and b are let go.
        ASSERT_TRUE(engine->AddReplaceBuffersWork(g, &c, 1));
        OnRenderThread(engine.Get(), [](Renderer*) {});
        EXPECT_EQ(g->GetNumBuffers(), 1u);
        EXPECT_EQ(g->GetStream(0), c);
        EXPECT_EQ(a->GetRefCount(), 1);
        EXPECT_EQ(b->GetRefCount(), 1);

        // A stream beyond the count changes nothing.
        ASSERT_TRUE(engine->AddChangeGeometryCountWork(g, 5, 99));
        ASSERT_TRUE(engine->AddChangeGeometryCountWork(g, 0, 12));
        OnRenderThread(engine.Get(), [](Renderer*) {});
        EXPECT_EQ(g->GetVertexCount(), 12u);
        EXPECT_EQ(g->GetIndexCount(), 0u);

        // Four streams or more: dropped at the call.
        BufferReference* four[] = {a, b, a, b};
        Geometry* wide = bucket->CreateGeometry(GeometryInit::CreateTriangleList(3), four, 4);
        EXPECT_FALSE(engine->AddReplaceBuffersWork(wide, &c, 1));
        EXPECT_EQ(wide->GetStream(0), a);

        for (BufferReference* r : {a, b}) engine->AddDeleteBufferWork(r);
        engine->AddDeleteGeometryWork(g);
        engine->AddDeleteGeometryWork(wide);
        bucket->Release();
        engine->AddDeleteBucketWork(bucket);
        OnRenderThread(engine.Get(), [](Renderer* renderer) { EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 0); });
    }

    TEST(BufferRenderThread, DeletingADrawGeometryLetsGoOfEverythingOnTheReleaseQueue)
    {
        NullEngine engine;
        Bucket* bucket = engine->CreateBucket("delete");
        const uint32_t indices[] = {0, 1, 2, 2, 1, 3};
        Geometry* g = bucket->CreateGeometry(GeometryInit::CreateIndexedTriangleList(4, 6), indices, 6);
        ASSERT_NE(g, nullptr);
        ASSERT_NE(g->GetIndexBuffer(), nullptr);
        uint32_t size = 0;
        EXPECT_EQ(g->GetIndexBuffer()->GetLayout()->GetOffsetAndSize("INDICE", size), 0);
        EXPECT_EQ(size, 4u);
        Buffer* vertices = nullptr;
        {
            BufferReference* stream = engine->CreateBufferReference(64, BBF_VERTEX, Float4Layout());
            g->SetStream(0, stream);
            vertices = engine->RetrieveBuffer(stream);
            std::memset(vertices->GetData(), 1, 64);
            engine->AddUpdateBufferWork(vertices);
            engine->AddDeleteBufferWork(stream);
        }
        DrawGeometry* draw = bucket->CreateDrawGeometry(g);
        engine->AddDeleteGeometryWork(g);
        std::vector<unsigned char> index(24);
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 2);
            EXPECT_TRUE(renderer->GetBuffers().ReadBuffer(g->GetIndexBuffer(), 0, index.data(), 24));
        });
        EXPECT_EQ(std::memcmp(index.data(), indices, 24), 0);
        EXPECT_EQ(g->GetRefCount(), 1) << "only the draw holds the geometry now";
        engine->AddDeleteDrawGeometryWork(draw);
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 0);
            EXPECT_EQ(bucket->GetGeometryPool().GetUsedCount(), 0u);
            EXPECT_EQ(bucket->GetDrawGeometryPool().GetUsedCount(), 0u);
        });
        bucket->Release();
        engine->AddDeleteBucketWork(bucket);
    }

    TEST(BufferRenderThread, ManagedBuffersComeBackOneFrameAfterTheyAreGivenBack)
    {
        NullEngine engine;
        BufferReference* first = nullptr;
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            first = renderer->GetBuffers().GetManager().Allocate(256, 0, BBF_CONSTANT);
        }, eRenderQueue);
        ASSERT_NE(first, nullptr);
        ASSERT_TRUE(engine->AddReleaseBufferWork(first, 256, 0, BBF_CONSTANT));
        // The release queue runs after this frame's drawing; the buffer waits for the end.
        BufferReference* sameFrame = nullptr;
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            sameFrame = renderer->GetBuffers().GetManager().Allocate(256, 0, BBF_CONSTANT);
            renderer->GetBuffers().GetManager().Release(sameFrame, 256, 0, BBF_CONSTANT);
        }, eReleaseQueue);
        EXPECT_NE(sameFrame, first);
        engine->AddEndSceneWork(false);
        engine->AddBeginSceneWork(false, 2, 0.016f, 0.016f);
        BufferReference* next = nullptr;
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            next = renderer->GetBuffers().GetManager().Allocate(256, 0, BBF_CONSTANT);
            EXPECT_EQ(renderer->GetBuffers().GetManager().GetCreatedCount(), 2u);
            renderer->GetBuffers().GetManager().Release(next, 256, 0, BBF_CONSTANT);
        }, eRenderQueue);
        EXPECT_TRUE(next == first || next == sameFrame);
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);
    }

    TEST(BufferRenderThread, ImmediateDrawsGoToTheDeviceAndNeedAScene)
    {
        NullEngine engine;
        Bucket* bucket = engine->CreateBucket("immediate");
        Geometry* g = bucket->CreateGeometry(GeometryInit::CreateTriangleList(3));
        DrawGeometry* draw = bucket->CreateDrawGeometry(g);
        {
            Common::ScopedLogCapture capture;
            EXPECT_TRUE(engine->AddRenderImmediateWork(g, nullptr, 5));
            EXPECT_TRUE(capture.Contains("AddRenderImmediateWork : Scene not opened"));
        }
        engine->AddBeginSceneWork(false, 1, 0.016f, 0.016f);
        {
            Common::ScopedLogCapture capture;
            EXPECT_TRUE(engine->AddRenderImmediateWork(draw, 6));
            EXPECT_FALSE(capture.Contains("Scene not opened"));
        }
        engine->AddEndSceneWork(false);
        engine->WaitForOverhead(0);
        OnRenderThread(engine.Get(), [](Renderer*) {});
        const TArray<DeviceCall> calls = engine.Dev().GetCalls();
        std::vector<uint64_t> flags;
        for (const DeviceCall& call : calls)
            if (call.eOp == DeviceOp::RenderImmediate)
            {
                EXPECT_EQ(call.auArgs[0], reinterpret_cast<uintptr_t>(g));
                flags.push_back(call.auArgs[2]);
            }
        EXPECT_EQ(flags, (std::vector<uint64_t>{5, 6}));
        EXPECT_EQ(g->GetRefCount(), 2) << "the workers' counts are back";
        engine->AddDeleteDrawGeometryWork(draw);
        engine->AddDeleteGeometryWork(g);
        bucket->Release();
        engine->AddDeleteBucketWork(bucket);
    }

    TEST(BufferRenderThread, TheRendererIsReachedOnTheRenderThreadOnly)
    {
        NullEngine engine;
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(engine->GetRenderer(), nullptr);
            EXPECT_TRUE(capture.Contains("Unsafe call to RenderThread::GetRenderer : call should be in RenderThread"));
        }
        OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(engine->GetRenderer(), renderer);
            EXPECT_EQ(engine->GetRenderer(), &engine.Dev());
            EXPECT_FALSE(capture.Contains("Unsafe call"));
        });
        Common::ScopedLogCapture capture;
        ASSERT_TRUE(engine->AddUpdateDeviceWork(1, 2));
        OnRenderThread(engine.Get(), [](Renderer*) {}, eRenderQueue);
        EXPECT_TRUE(capture.Contains("UpdateDeviceWorker : the device can't be reset (1, 2)"));
    }

    TEST(BufferRenderThread, GLBuffersRoundTripThroughTheRenderThread)
    {
        EngineOn<GLBufferRenderer> engine;
        if (!engine.IsStarted()) GTEST_SKIP() << "GL test skipped: " << engine.Dev().Why();
        InputLayout* layout = Float4Layout();
        std::vector<BufferReference*> refs;
        for (uint32_t flags : {uint32_t(BBF_VERTEX), uint32_t(BBF_VERTEX | BBF_CPU_WRITEACCESS),
                               uint32_t(BBF_INDEX | BBF_DEVICE_WRITE)})
        {
            BufferReference* r = engine->CreateBufferReference(256, flags, layout);
            Buffer* block = engine->RetrieveBuffer(r);
            for (uint32_t i = 0; i < 256; ++i) static_cast<unsigned char*>(block->GetData())[i] = static_cast<unsigned char>(i ^ flags);
            ASSERT_TRUE(engine->AddUpdateBufferWork(block));
            refs.push_back(r);
        }
        OnRenderThread(engine.Get(), [&](Renderer*) {
            for (BufferReference* r : refs)
            {
                ASSERT_NE(GLBufferBackend::GetName(*r), 0u);
                std::vector<unsigned char> out(256);
                glGetNamedBufferSubData(GLBufferBackend::GetName(*r), 0, 256, out.data());
                for (uint32_t i = 0; i < 256; ++i)
                    ASSERT_EQ(out[i], static_cast<unsigned char>(i ^ r->GetFlags())) << i;
            }
            EXPECT_EQ(glGetError(), GLenum(GL_NO_ERROR));
        });
        for (BufferReference* r : refs) engine->AddDeleteBufferWork(r);
        engine.Stop();
        EXPECT_EQ(engine.Dev().LiveAtRelease(), 0);
        EXPECT_EQ(engine.Dev().ErrorAtRelease(), 0u);
    }
}
