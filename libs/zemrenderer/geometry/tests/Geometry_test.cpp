// Geometry and its streams, draw geometry ids, user instancing and the filling of an
// instanced draw.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/FillInstancingBuffer.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/geometry/UserInstanced.h"
#include "zemrenderer/scene/Bucket.h"

namespace ZemRenderer::GeometryTest
{
    namespace
    {
        InputLayout* Layout(std::initializer_list<std::pair<const char*, uint32_t>> elements)
        {
            std::vector<InputElementDesc> e(elements.size());
            size_t i = 0;
            for (const auto& [name, type] : elements)
            {
                std::strcpy(e[i].szSemantic, name);
                e[i++].uiType = type;
            }
            return InputLayout::Create(e.data(), static_cast<uint32_t>(e.size()));
        }
    }

    TEST(GeometryInit, ShapesAndTheirPrimitiveCounts)
    {
        struct Case
        {
            GeometryInit init;
            uint32_t topology;
            bool indexed;
            uint32_t primitives;
        };
        const Case cases[] = {
            {GeometryInit::CreateLineList(6), eTopologyLineList, false, 3},
            {GeometryInit::CreateLineStrip(6), eTopologyLineStrip, false, 5},
            {GeometryInit::CreateTriangleList(9), eTopologyTriangleList, false, 3},
            {GeometryInit::CreateTriangleStrip(6), eTopologyTriangleStrip, false, 4},
            {GeometryInit::CreateIndexedTriangleList(4, 6), eTopologyTriangleList, true, 2},
        };
        for (const Case& c : cases)
        {
            EXPECT_EQ(c.init.uTopology, c.topology);
            EXPECT_EQ(c.init.bIndexed, c.indexed);
            const uint32_t count = c.indexed ? c.init.uIndexCount : c.init.uVertexCount;
            EXPECT_EQ(GeometryInit::GetPrimitiveCount(c.topology, count), c.primitives) << c.topology;
        }
        EXPECT_EQ(GeometryInit::GetPrimitiveCount(eTopologyTriangleStrip, 2), 0u);
        EXPECT_EQ(GeometryInit::GetPrimitiveCount(eTopologyLineStrip, 0), 0u);
    }

    TEST(Geometry, InitOnceKnownTopologiesAndStreamRules)
    {
        Bucket bucket(nullptr, "geometry");
        {
            Common::ScopedLogCapture capture;
            GeometryInit bad = GeometryInit::CreateTriangleList(3);
            bad.uTopology = 1;
            EXPECT_EQ(bucket.CreateGeometry(bad), nullptr);
            EXPECT_TRUE(capture.Contains("Unknown topology"));
            EXPECT_EQ(bucket.GetGeometryPool().GetUsedCount(), 0u) << "a refused geometry goes back to the pool";
        }
        Geometry* g = bucket.CreateGeometry(GeometryInit::CreateTriangleList(3));
        ASSERT_NE(g, nullptr);
        BufferReference* a = BufferReference::Create(36, BBF_VERTEX, nullptr);
        BufferReference* b = BufferReference::Create(36, BBF_VERTEX, nullptr);
        struct Case
        {
            uint32_t index;
            BufferReference* reference;
            bool ok;
            const char* report;
        };
        const Case cases[] = {
            {0, a, true, nullptr},
            {0, b, false, "Stream already defined"},
            {2, b, true, nullptr},
            {Geometry::kMaxStreams, b, false, "Bad buffer index"},
            {1, nullptr, false, "Null buffer !"},
        };
        for (const Case& c : cases)
        {
            Common::ScopedLogCapture capture;
            EXPECT_EQ(g->SetStream(c.index, c.reference), c.ok) << c.index;
            if (c.report)
            {
                EXPECT_TRUE(capture.Contains(c.report)) << c.report;
            }
        }
        EXPECT_EQ(g->GetNumBuffers(), 3u) << "a hole stays a hole";
        EXPECT_EQ(g->GetStream(1), nullptr);
        EXPECT_EQ(a->GetRefCount(), 1);
        EXPECT_EQ(b->GetRefCount(), 1);
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(g->Init(GeometryInit::CreateLineList(2)));
            EXPECT_TRUE(capture.Contains("Geometry already initialized"));
            EXPECT_EQ(g->GetTopology(), uint32_t(eTopologyTriangleList));
        }
        // Counts: streams below the count set vertices, the count itself the indices.
        EXPECT_TRUE(g->ChangeCount(1, 30));
        EXPECT_TRUE(g->ChangeCount(3, 60));
        EXPECT_FALSE(g->ChangeCount(4, 90));
        EXPECT_EQ(g->GetVertexCount(), 30u);
        EXPECT_EQ(g->GetIndexCount(), 60u);
        // The last count lets go of its references.
        EXPECT_EQ(g->Release(nullptr), 0);
        EXPECT_EQ(bucket.GetGeometryPool().GetUsedCount(), 0u);
    }

    TEST(DrawGeometry, IdsGroupByGeometryWithInstanceOrBias)
    {
        Bucket bucket(nullptr, "draws");
        Geometry* g = bucket.CreateGeometry(GeometryInit::CreateTriangleList(3));
        Geometry* h = bucket.CreateGeometry(GeometryInit::CreateTriangleList(3));
        std::vector<DrawGeometry*> draws;
        for (int i = 0; i < 3; ++i) draws.push_back(bucket.CreateDrawGeometry(g));
        DrawGeometry* other = bucket.CreateDrawGeometry(h);
        for (int i = 0; i < 3; ++i)
        {
            EXPECT_EQ(draws[i]->GetID() >> g_ciNumInstanceBits, draws[0]->GetID() >> g_ciNumInstanceBits);
            EXPECT_EQ(draws[i]->GetID() & 31u, uint32_t(i));
        }
        EXPECT_NE(other->GetID() >> g_ciNumInstanceBits, draws[0]->GetID() >> g_ciNumInstanceBits);
        EXPECT_NE(draws[0]->GetID() >> g_ciNumInstanceBits, 0u);
        EXPECT_EQ(g->GetRefCount(), 4);

        draws[1]->SetBias(7);
        EXPECT_EQ(draws[1]->GetID() & 31u, 7u);
        {
            Common::ScopedLogCapture capture;
            draws[1]->SetBias(32);
            EXPECT_TRUE(capture.Contains("Render bias can only handle 32 bias value"));
            EXPECT_EQ(draws[1]->GetBias(), 31u);
        }
        {
            // Past 32 draws over one geometry: reported, and cut to 31.
            Common::ScopedLogCapture capture;
            for (int i = 3; i < 33; ++i) draws.push_back(bucket.CreateDrawGeometry(g));
            EXPECT_TRUE(capture.Contains("Batch render can only render 32 differents instances of the same Geometry"));
            EXPECT_EQ(draws.back()->GetInstance(), 31u);
            EXPECT_EQ(draws[31]->GetInstance(), 31u);
        }
        for (DrawGeometry* d : draws) d->Release(nullptr);
        other->Release(nullptr);
        // The bucket's own counts on the geometries were the creators'.
        g->Release(nullptr);
        h->Release(nullptr);
        EXPECT_EQ(bucket.GetGeometryPool().GetUsedCount(), 0u);
        EXPECT_EQ(bucket.GetDrawGeometryPool().GetUsedCount(), 0u);
    }

    TEST(UserInstanced, DataOnceAndCopiesByElementWhenLayoutsDiffer)
    {
        UserInstanced user;
        InputLayout* source = Layout({{"COLOR", IET_FLOAT4}, {"WORLD", IET_FLOAT3}, {"ID", IET_INT}});
        ASSERT_TRUE(user.SetDataLayout(source));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(user.SetDataLayout(source));
            EXPECT_TRUE(capture.Contains("Data layout already declared !"));
        }
        ASSERT_TRUE(user.AllocateData(4));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(user.AllocateData(8));
            EXPECT_TRUE(capture.Contains("UserInstancing Data buffer already allocated with size 128 !"));
        }
        struct Instance
        {
            float colour[4];
            float world[3];
            int32_t id;
        } instances[4];
        for (int i = 0; i < 4; ++i)
        {
            for (int k = 0; k < 4; ++k) instances[i].colour[k] = float(i * 10 + k);
            for (int k = 0; k < 3; ++k) instances[i].world[k] = float(100 + i * 10 + k);
            instances[i].id = 1000 + i;
        }
        ASSERT_TRUE(user.SetData(instances, 4));
        EXPECT_EQ(user.GetQuantity(), 4u);

        // The shader reads the world position and the id only, in its own order.
        InputLayout* shader = Layout({{"ID", IET_INT}, {"WORLD", IET_FLOAT3}});
        std::vector<unsigned char> out(4 * shader->GetStride(), 0);
        ASSERT_TRUE(user.UpdateInstance(out.data(), *shader, 0, 4));
        for (int i = 0; i < 4; ++i)
        {
            int32_t id = 0;
            float world[3] = {};
            std::memcpy(&id, out.data() + i * 16, 4);
            std::memcpy(world, out.data() + i * 16 + 4, 12);
            EXPECT_EQ(id, 1000 + i);
            EXPECT_EQ(world[2], float(100 + i * 10 + 2));
        }
        // Same layout: one copy.
        std::vector<unsigned char> same(4 * sizeof(Instance));
        ASSERT_TRUE(user.UpdateInstance(same.data(), *source, 0, 4));
        EXPECT_EQ(std::memcmp(same.data(), instances, sizeof(instances)), 0);
        // A semantic the data lacks.
        InputLayout* missing = Layout({{"NORMAL", IET_FLOAT3}});
        EXPECT_FALSE(user.UpdateInstance(out.data(), *missing, 0, 1));
        InputLayout::Destroy(shader);
        InputLayout::Destroy(missing);
    }

    namespace
    {
        struct Batch
        {
            Bucket bucket{nullptr, "instancing"};
            InputLayout* pData = nullptr;
            InputLayout* pShader = nullptr;
            Geometry* pGeometry = nullptr;
            UserInstanced kUser[3];
            std::vector<InstanceBatchEntry> aEntries;
            std::vector<DrawGeometry*> aDraws;

            explicit Batch(bool indexed)
            {
                pData = Layout({{"WORLD", IET_FLOAT4}, {"TINT", IET_FLOAT4}});
                pShader = Layout({{"TINT", IET_FLOAT4}});
                pGeometry = bucket.CreateGeometry(indexed ? GeometryInit::CreateIndexedTriangleList(4, 6)
                                                          : GeometryInit::CreateTriangleList(6));
                for (uint32_t i = 0; i < 3; ++i)
                {
                    kUser[i].SetDataLayout(pData);
                    kUser[i].AllocateData(i + 1);
                    std::vector<float> values((i + 1) * 8);
                    for (size_t k = 0; k < values.size(); ++k) values[k] = float(i * 100 + k);
                    kUser[i].SetData(values.data(), i + 1);
                    aDraws.push_back(bucket.CreateDrawGeometry(pGeometry));
                    aEntries.push_back({aDraws.back(), &kUser[i]});
                }
            }
            ~Batch()
            {
                for (DrawGeometry* d : aDraws) d->Release(nullptr);
                pGeometry->Release(nullptr);
                InputLayout::Destroy(pShader);
            }
        };
    }

    TEST(FillInstancingBuffer, CopiesEveryInstanceOfTheBatchInTheShadersLayout)
    {
        Batch batch(true);
        std::vector<float> dest(6 * 4, -1.0f);
        InstancingTarget target;
        target.pShaderLayout = batch.pShader;
        target.pDest = dest.data();
        target.uiDestSize = static_cast<uint32_t>(dest.size() * sizeof(float));
        target.szShaderName = "Basic";
        ASSERT_EQ(FillInstancingBuffer(batch.aEntries.data(), 3, target), 6);
        // Instance k of entry i: its TINT, the second float4 of the data.
        const float want[6] = {4, 104, 112, 204, 212, 220};
        for (int n = 0; n < 6; ++n) EXPECT_EQ(dest[n * 4], want[n]) << n;
    }

    TEST(FillInstancingBuffer, RefusesWhatCannotBeDrawnInstanced)
    {
        struct Case
        {
            const char* name;
            bool indexed;
            uint32_t destFloats;
            bool wrongLayout;
            bool changesQuantity;
            const char* report;
        };
        const Case cases[] = {
            {"not indexed", false, 24, false, false, "Instancing need indexed primitive to work"},
            {"too small", true, 20, false, false, "Buffer too small to store all instance on shader Basic."},
            {"layout", true, 24, true, false, "UserInstancing layout aren't the same as shader instance layout."},
            {"quantity", true, 24, false, true,
             "Instance number not expected get 5 expected 6 \n (a property apply called by FillInstancingBuffer "
             "shouldn't modify quantity) !"},
        };
        for (const Case& c : cases)
        {
            Batch batch(c.indexed);
            InputLayout* wrong = Layout({{"NORMAL", IET_FLOAT4}});
            std::vector<float> dest(c.destFloats, 0.0f);
            InstancingTarget target;
            target.pShaderLayout = c.wrongLayout ? wrong : batch.pShader;
            target.pDest = dest.data();
            target.uiDestSize = static_cast<uint32_t>(dest.size() * sizeof(float));
            target.szShaderName = "Basic";
            if (c.changesQuantity)
                target.pfnApply = [](void*, const InstanceBatchEntry& e) {
                    if (e.pInstances->GetQuantity() == 3) e.pInstances->SetQuantity(2);
                };
            Common::ScopedLogCapture capture;
            EXPECT_EQ(FillInstancingBuffer(batch.aEntries.data(), 3, target), -1) << c.name;
            EXPECT_TRUE(capture.Contains(c.report)) << c.name << "\n" << capture.Text();
            InputLayout::Destroy(wrong);
        }
    }
}
