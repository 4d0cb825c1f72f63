// Link files whose nodes draw geometry: written with their buffers' content, read back
// sharing what the file shares, sent to the device, and let go of when the link goes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/buffer/tests/BufferTestKit.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"

namespace ZemRenderer::GeometryTest
{
    namespace
    {
        constexpr uint32_t kVertexCount = 0x00112233u;
        constexpr uint32_t kIndexCount = 0x00445566u;
        constexpr uint32_t kBias = 29;

        BufferReference* WithContent(uint32_t size, uint32_t flags, InputLayout* layout, unsigned char seed)
        {
            BufferReference* r = BufferReference::Create(size, flags, layout);
            Buffer* copy = Buffer::Create(r, size, 0);
            for (uint32_t i = 0; i < size; ++i) static_cast<unsigned char*>(copy->GetData())[i] = static_cast<unsigned char>(seed + i);
            r->SetCpuCopy(copy);
            return r;
        }

        // Three nodes: the first two share one draw geometry, the third draws nothing.
        std::vector<unsigned char> SavedDrawingLink()
        {
            Bucket bucket(nullptr, "writer");
            Link link(&bucket, "drawing");
            InputElementDesc e[2];
            std::strcpy(e[0].szSemantic, "POSITION");
            e[0].uiType = IET_FLOAT3;
            std::strcpy(e[1].szSemantic, "TEXCOORD");
            e[1].uiType = IET_FLOAT2;
            InputLayout* layout = InputLayout::Create(e, 2);
            BufferReference* vertices = WithContent(60, BBF_VERTEX, layout, 1);
            BufferReference* index = WithContent(24, BBF_INDEX, InputLayout::Create("INDICE", IET_UINT_INDEX), 100);
            GeometryInit init = GeometryInit::CreateIndexedTriangleList(kVertexCount, kIndexCount);
            Geometry* g = bucket.CreateGeometry(init, &vertices, 1, index);
            DrawGeometry* draw = bucket.CreateDrawGeometry(g);
            draw->SetBias(kBias);
            g->Release(nullptr);
            TArray<Node>& nodes = link.GetRenderNode().m_nodes;
            nodes.Resize(3);
            nodes[0].m_pDrawGeometry = draw;
            nodes[1].m_pDrawGeometry = draw;
            nodes[0].m_uiKey = 11;
            nodes[2].m_uiKey = 33;
            // The link's counts, one per node: the creator's and one more.
            draw->AddRef();
            link.SetFlags(0x11);
            IOSTreamMemory out;
            out.OpenToWrite(nullptr);
            EXPECT_TRUE(link.Save(out));
            return SceneTest::Bytes(out);
        }

        bool Load(Link& link, const std::vector<unsigned char>& bytes)
        {
            IOSTreamExistingMemory in(bytes.data(), bytes.size());
            return link.Load(in, link.GetBucket());
        }

        size_t Find(const std::vector<unsigned char>& bytes, const std::vector<unsigned char>& pattern)
        {
            auto it = std::search(bytes.begin(), bytes.end(), pattern.begin(), pattern.end());
            return it == bytes.end() ? std::string::npos : static_cast<size_t>(it - bytes.begin());
        }
        void Put(std::vector<unsigned char>& v, uint32_t x)
        {
            for (int i = 0; i < 4; ++i) v.push_back(static_cast<unsigned char>(x >> (8 * i)));
        }
    }

    TEST(LinkDrawGeometry, ReadsBackSharedDrawGeometryWithItsBuffers)
    {
        const std::vector<unsigned char> file = SavedDrawingLink();
        Bucket bucket(nullptr, "reader");
        Link link(&bucket, "read");
        ASSERT_TRUE(Load(link, file));
        ASSERT_EQ(link.GetNodeCount(), 3u);
        DrawGeometry* draw = link.GetNode(0)->m_pDrawGeometry;
        ASSERT_NE(draw, nullptr);
        EXPECT_EQ(link.GetNode(1)->m_pDrawGeometry, draw) << "one object for one key";
        EXPECT_EQ(link.GetNode(2)->m_pDrawGeometry, nullptr);
        EXPECT_EQ(draw->GetRefCount(), 2);
        EXPECT_EQ(draw->GetBias(), kBias);
        EXPECT_EQ(draw->GetID() & 31u, kBias);
        Geometry* g = draw->GetGeometry();
        ASSERT_NE(g, nullptr);
        EXPECT_EQ(g->GetRefCount(), 1);
        EXPECT_EQ(g->GetTopology(), uint32_t(eTopologyTriangleList));
        EXPECT_EQ(g->GetVertexCount(), kVertexCount);
        EXPECT_EQ(g->GetIndexCount(), kIndexCount);
        ASSERT_EQ(g->GetNumBuffers(), 1u);
        BufferReference* vertices = g->GetStream(0);
        ASSERT_NE(vertices, nullptr);
        ASSERT_NE(vertices->GetLayout(), nullptr);
        EXPECT_EQ(vertices->GetLayout()->GetStride(), 20u);
        EXPECT_EQ(vertices->GetElementCount(), 3u);
        ASSERT_NE(vertices->GetCpuCopy(), nullptr);
        EXPECT_EQ(static_cast<unsigned char*>(vertices->GetCpuCopy()->GetData())[59], 60);
        BufferReference* index = g->GetIndexBuffer();
        ASSERT_NE(index, nullptr);
        EXPECT_EQ(index->GetSize(), 24u);
        EXPECT_EQ(static_cast<unsigned char*>(index->GetCpuCopy()->GetData())[0], 100);
        uint32_t size = 0;
        EXPECT_EQ(index->GetLayout()->GetOffsetAndSize("INDICE", size), 0);

        // An instance shares the draw geometry and counts it too; both let go at their end.
        {
            Link instance(&bucket, "instance");
            instance.CopyDataFrom(link);
            EXPECT_EQ(draw->GetRefCount(), 4);
        }
        EXPECT_EQ(draw->GetRefCount(), 2);
        // What was read writes again and reads the same.
        IOSTreamMemory out;
        out.OpenToWrite(nullptr);
        ASSERT_TRUE(link.Save(out));
        Link again(&bucket, "again");
        ASSERT_TRUE(Load(again, SceneTest::Bytes(out)));
        EXPECT_EQ(again.GetNode(0)->m_pDrawGeometry->GetGeometry()->GetIndexCount(), kIndexCount);
        EXPECT_TRUE(again.Walk());
    }

    TEST(LinkDrawGeometry, ReadBuffersReachTheDeviceAndGoWithTheLink)
    {
        const std::vector<unsigned char> file = SavedDrawingLink();
        BufferTest::EngineOn<NullRenderer> engine;
        Bucket* bucket = engine->CreateBucket("device");
        BufferReference* vertices = nullptr;
        {
            Link link(bucket, "read");
            ASSERT_TRUE(Load(link, file));
            vertices = link.GetNode(0)->m_pDrawGeometry->GetGeometry()->GetStream(0);
            std::vector<unsigned char> onDevice(60);
            BufferTest::OnRenderThread(engine.Get(), [&](Renderer* renderer) {
                EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 2);
                EXPECT_TRUE(renderer->GetBuffers().ReadBuffer(vertices, 0, onDevice.data(), 60));
            });
            for (uint32_t i = 0; i < 60; ++i) ASSERT_EQ(onDevice[i], static_cast<unsigned char>(1 + i));
            EXPECT_EQ(vertices->GetStreamStatus(), uint32_t(BSS_UPDATED));
        }
        BufferTest::OnRenderThread(engine.Get(), [&](Renderer* renderer) {
            EXPECT_EQ(renderer->GetBuffers().GetLiveCount(), 0) << "the link's end freed the device's buffers";
        });
        bucket->Release();
        engine->AddDeleteBucketWork(bucket);
    }

    TEST(LinkDrawGeometry, BadGeometryInAFileIsRefusedWithNothingLeft)
    {
        const std::vector<unsigned char> file = SavedDrawingLink();
        std::vector<unsigned char> counts;
        Put(counts, uint32_t(eTopologyTriangleList));
        Put(counts, kVertexCount);
        Put(counts, kIndexCount);
        const size_t geometry = Find(file, counts);
        ASSERT_NE(geometry, std::string::npos);
        std::vector<unsigned char> keys(16, 0);
        Put(keys, kBias);
        const size_t draw = Find(file, keys);
        ASSERT_NE(draw, std::string::npos);

        struct Case
        {
            const char* name;
            size_t at;
            unsigned char value;
            const char* report;
        };
        const Case cases[] = {
            {"topology", geometry, 9, "Unknown topology"},
            {"streams", geometry + 13, 9, "Geometry of 9 streams in Zemora Engine File!"},
            {"property", draw, 1, "Draw geometry with a property or an effect in Zemora Engine File"},
            {"effect", draw + 8, 1, "Draw geometry with a property or an effect in Zemora Engine File"},
            {"bias", draw + 16, 40, "Render bias can only handle 32 bias value"},
        };
        Bucket bucket(nullptr, "bad");
        for (const Case& c : cases)
        {
            std::vector<unsigned char> bad = file;
            bad[c.at] = c.value;
            Link link(&bucket, "target");
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(Load(link, bad)) << c.name;
            EXPECT_TRUE(capture.Contains(c.report)) << c.name << "\n" << capture.Text();
            EXPECT_EQ(link.GetNodeCount(), 0u) << c.name;
        }
        // Every cut of the file fails cleanly.
        for (size_t n = 1; n < file.size(); n += 7)
        {
            Link link(&bucket, "cut");
            EXPECT_FALSE(Load(link, std::vector<unsigned char>(file.begin(), file.begin() + n))) << n;
        }
    }
}
