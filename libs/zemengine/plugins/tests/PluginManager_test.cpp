#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemengine/plugins/BasePluginManager.h"
#include "zemengine/plugins/CustomNodeDescJson.h"
#include "zemengine/plugins/DataPluginNode.h"
#include "zemengine/plugins/tests/PluginTestUtil.h"
#include "zemrenderer/thread/tests/WorkerTestKit.h"

using namespace ZemEngine;

namespace
{
    // ---- a plugin linked into the test program -----------------------------------------

    struct InProcData
    {
        int m_iValue = 0;
    };

    struct InProcBuild
    {
        int iValue;
        std::thread::id kThread;
    };

    std::vector<InProcBuild> g_aBuilds;
    std::atomic<int> g_iNotReadyLeft{0};
    ZemRenderer::RenderThread* g_pRenderThread = nullptr;

    class InProcNode : public DataPluginNode<InProcNode, 7>
    {
    public:
        typedef InProcData DataType;

        static bool ParseData(const Json::Value& json, InProcData& out)
        {
            const Json::Value* value = Json::FindMember(json, "Value");
            if (!value || !value->IsInt()) return false;
            out.m_iValue = value->GetInt();
            return true;
        }
        static bool IsDataReady(const InProcData&, Collection*) { return g_iNotReadyLeft.fetch_sub(1) <= 0; }
        static void BuildData(ZemRenderer::Link*, Collection*, const InProcData& data, void*, ZemAnim::TransitionEngine*)
        {
            g_aBuilds.push_back({data.m_iValue, std::this_thread::get_id()});
        }
        static ZemRenderer::RenderThread* GetRenderThread(Collection*) { return g_pRenderThread; }
        static CustomNodeDesc& GetDesc()
        {
            alignas(CustomNodeDesc) static unsigned char s_aStorage[sizeof(CustomNodeDesc)];
            static CustomNodeDesc* s_pDesc = [] {
                CustomNodeDesc* desc = new (s_aStorage) CustomNodeDesc;
                desc->m_kHeader.SetName("InProcNode");
                return desc;
            }();
            return *s_pDesc;
        }
    };

    // Builders of other names, for the table order.
    struct NamedBuilder : PluginBuilder
    {
        explicit NamedBuilder(const char* name) : PluginBuilder(&m_kDesc) { m_kDesc.m_kHeader.SetName(name); }
        PluginNode* BuildNode() override { return MEM_NEW(InProcNode); }
        void* BuildNodeData(const Json::Value&, Collection*, ZemAnim::TransitionEngine*) override { return nullptr; }
        void ReleaseNodeData(void*) override {}
        CustomNodeDesc m_kDesc;
    };

    std::vector<int> g_aSteps;
    void StepA(void*) { g_aSteps.push_back(1); }
    void StepB(void*) { g_aSteps.push_back(2); }

    int g_iStaticReleases = 0;
    bool StaticInit(PluginParam* param)
    {
        EXPECT_NE(param->m_pBuildInfo, nullptr);
        EXPECT_EQ(*param->m_pBuildInfo, PluginBuildInfo::Current());
        EXPECT_EQ(param->m_pMemoryManager, Common::Mem::CMemoryManager::GetInstance());
        param->m_pPluginManager->RegisterNodeBuilder(&InProcNode::DefaultBuilder::Get());
        return true;
    }
    bool StaticRelease(IPluginManager* manager)
    {
        ++g_iStaticReleases;
        manager->UnregisterNodeBuilder(&InProcNode::GetDesc());
        return true;
    }
    bool StaticRefuse(PluginParam*) { return false; }

    std::string ToText(const Json::Value& value)
    {
        Json::StringBuffer buffer;
        Json::ToText(value, buffer);
        return buffer.GetString();
    }

    Json::Document Parse(const char* text)
    {
        Json::Document document;
        document.Parse<Json::kParseFlags>(text);
        return document;
    }
}

TEST(PluginDescription, PropertyOrderAndCheckedCopies)
{
    CustomNodeDesc desc;
    EXPECT_TRUE(desc.AddProperty("int", "A", "", "G", 10, 0));
    EXPECT_TRUE(desc.AddProperty("int", "B", "1", "G", 1, 4));
    const std::string longest(126, 'x');
    const std::string tooLong(127, 'x');
    EXPECT_TRUE(desc.AddProperty(longest.c_str(), "C", "", "", 0, 0));
    {
        Common::ScopedLogCapture capture;
        EXPECT_FALSE(desc.AddProperty(tooLong.c_str(), "D", "", "", 0, 0));
        EXPECT_FALSE(desc.AddProperty("int", "E", std::string(2048, 'v').c_str(), "", 0, 0));
        EXPECT_FALSE(desc.m_kHeader.SetName(tooLong.c_str()));
        EXPECT_FALSE(desc.AddRenderStep(std::string(128, 's').c_str(), &StepA));
        EXPECT_TRUE(capture.Contains("does not fit"));
    }
    EXPECT_TRUE(desc.AddProperty("int", "F", std::string(2047, 'v').c_str(), "", 0, 0));
    ASSERT_EQ(desc.m_aProperties.GetSize(), 4u);
    EXPECT_EQ(desc.m_aProperties[0].m_iOrder, 10);
    EXPECT_EQ(desc.m_aProperties[1].m_iOrder, 2);
    EXPECT_EQ(desc.m_aProperties[2].m_iOrder, 2);
    EXPECT_EQ(desc.m_aProperties[3].m_iOrder, 3);
    EXPECT_EQ(desc.m_kHeader.m_szName[0], '\0');
    EXPECT_TRUE(desc.m_aRenderSteps.IsEmpty());

    Json::Document scratch;
    bool nonFinite = false;
    EXPECT_EQ(ToText(Encode(desc.m_aProperties[1], scratch.GetAllocator(), nonFinite)),
              "{\"Name\":\"B\",\"Type\":\"int\",\"Group\":\"G\",\"DefaultValue\":\"1\",\"Order\":2,\"UserFlags\":4}");
    EXPECT_EQ(ToText(Encode(desc.m_aProperties[0], scratch.GetAllocator(), nonFinite)),
              "{\"Name\":\"A\",\"Type\":\"int\",\"Group\":\"G\",\"Order\":10,\"UserFlags\":0}");
    CustomNodeHeaderDesc header;
    header.SetName("N");
    header.m_uMode = CustomNodeMode::WorldNode | CustomNodeMode::PrefabSocket;
    EXPECT_EQ(ToText(Encode(header, scratch.GetAllocator(), nonFinite)),
              "{\"Name\":\"N\",\"Description\":\"\",\"IconPath\":\"\",\"WatchLabelProperty\":\"\","
              "\"Mode\":[\"WorldNode\",\"PrefabSocket\"]}");
}

TEST(PluginManager, TablesInKeyOrderAndSameNameReplaces)
{
    BasePluginManager manager;
    EXPECT_EQ(manager.GetNodeBuilderCount(), 0u);
    EXPECT_EQ(manager.GetCustomNodeHeaderDesc(0).m_szName[0], '\0');
    EXPECT_EQ(manager.GetCustomNodeHeaderDesc(0).m_uMode, 0u);
    EXPECT_TRUE(manager.GetCustomNodeDesc(3).IsEmpty());
    EXPECT_TRUE(manager.GetCustomNodeDependencies(3).IsEmpty());

    NamedBuilder a("Alpha"), b("Beta"), c("Gamma"), again("Beta");
    for (PluginBuilder* builder : {static_cast<PluginBuilder*>(&c), static_cast<PluginBuilder*>(&a),
                                   static_cast<PluginBuilder*>(&b)})
        manager.RegisterNodeBuilder(builder);
    ASSERT_EQ(manager.GetNodeBuilderCount(), 3u);
    for (unsigned int i = 1; i < 3; ++i)
        EXPECT_LT(IPluginManager::GetNameId(manager.GetCustomNodeHeaderDesc(i - 1).m_szName),
                  IPluginManager::GetNameId(manager.GetCustomNodeHeaderDesc(i).m_szName));
    EXPECT_EQ(manager.GetNodeBuilderAt(3), nullptr);

    PluginNode* first = manager.GetPluginNode("Beta");
    ASSERT_NE(first, nullptr);
    manager.RegisterNodeBuilder(&again);
    EXPECT_EQ(manager.GetNodeBuilderCount(), 3u);
    EXPECT_NE(manager.GetPluginNode("Beta"), first);
    EXPECT_EQ(manager.GetPluginNode("Delta"), nullptr);

    manager.UnregisterNodeBuilder(&again.m_kDesc);
    EXPECT_EQ(manager.GetPluginNode("Beta"), nullptr);
    EXPECT_EQ(manager.GetNodeBuilderCount(), 2u);
    manager.UnregisterNodeBuilder(&again.m_kDesc);
    EXPECT_EQ(manager.GetNodeBuilderCount(), 2u);
}

TEST(PluginManager, StepCallbacksRunInOrderAndGoWithTheirLast)
{
    BasePluginManager manager;
    g_aSteps.clear();
    manager.RegisterStepCallback("PostDeferred", &StepA);
    manager.RegisterStepCallback("PostDeferred", &StepB);
    manager.RegisterStepCallback("PostDeferred", &StepA);
    manager.RunStepCallbacks("PostDeferred", nullptr);
    manager.RunStepCallbacks("Other", nullptr);
    EXPECT_EQ(g_aSteps, (std::vector<int>{1, 2, 1}));

    manager.UnregisterStepCallback("PostDeferred", &StepA);
    g_aSteps.clear();
    manager.RunStepCallbacks("PostDeferred", nullptr);
    EXPECT_EQ(g_aSteps, (std::vector<int>{2, 1}));

    manager.UnregisterStepCallback("PostDeferred", &StepB);
    manager.UnregisterStepCallback("PostDeferred", &StepA);
    EXPECT_EQ(manager.GetStepCallbacks("PostDeferred"), nullptr);
    g_aSteps.clear();
    manager.RunStepCallbacks("PostDeferred", nullptr);
    EXPECT_TRUE(g_aSteps.empty());
}

TEST(PluginManager, StaticPluginLifecycle)
{
    g_iStaticReleases = 0;
    {
        BasePluginManager manager;
        EXPECT_FALSE(manager.LoadStaticPlugin(nullptr, &StaticRelease));
        EXPECT_FALSE(manager.LoadStaticPlugin(&StaticInit, nullptr));
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(manager.LoadStaticPlugin(&StaticRefuse, &StaticRelease));
            EXPECT_TRUE(capture.Contains("Unable to init plugin"));
        }
        EXPECT_TRUE(manager.LoadStaticPlugin(&StaticInit, &StaticRelease));
        EXPECT_EQ(manager.GetLoadedCount(), 1u);
        EXPECT_EQ(manager.GetCustomNodeHeaderDesc(0).m_szName, std::string("InProcNode"));
    }
    // The refused one kept no release function.
    EXPECT_EQ(g_iStaticReleases, 1);
}

TEST(PluginManager, DataNodeBuildsParsesAndRefuses)
{
    BasePluginManager manager;
    ASSERT_TRUE(manager.LoadStaticPlugin(&StaticInit, &StaticRelease));
    g_aBuilds.clear();
    g_iNotReadyLeft = 0;

    Json::Document good = Parse("{\"Value\":5}");
    Json::Document refused = Parse("{\"Value\":\"five\"}");
    void* data = manager.BuildNodeData("InProcNode", good, nullptr, nullptr);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(manager.BuildNodeData("InProcNode", refused, nullptr, nullptr), nullptr);
    EXPECT_EQ(manager.BuildNodeData("Nobody", good, nullptr, nullptr), nullptr);

    PluginNode* node = manager.GetPluginNode("InProcNode");
    ASSERT_NE(node, nullptr);
    node->BuildFromData(nullptr, nullptr, data, nullptr);
    node->Build(nullptr, nullptr, refused, nullptr);
    node->Build(nullptr, nullptr, Parse("{\"Value\":8}"), nullptr);
    {
        Common::ScopedLogCapture capture;
        node->BuildFromData(nullptr, nullptr, nullptr, nullptr);
        EXPECT_TRUE(capture.Contains("If this is default constructor expected, empty json should be sended"));
    }
    manager.ReleaseNodeData("InProcNode", data);
    ASSERT_EQ(g_aBuilds.size(), 2u);
    EXPECT_EQ(g_aBuilds[0].iValue, 5);
    EXPECT_EQ(g_aBuilds[1].iValue, 8);

    // Not ready, and nowhere to hand it: reported and dropped.
    g_iNotReadyLeft = 1;
    g_pRenderThread = nullptr;
    Common::ScopedLogCapture capture;
    node->Build(nullptr, nullptr, good, nullptr);
    EXPECT_TRUE(capture.Contains("No render thread"));
    EXPECT_EQ(g_aBuilds.size(), 2u);

    // Defaults of a node with no link of its own.
    ZemRenderer::TArray<ZemRenderer::Link*> links;
    node->GetLinks(nullptr, links);
    node->GetLinks(reinterpret_cast<ZemRenderer::Link*>(&links), links);
    EXPECT_EQ(links.GetSize(), 1u);
    EXPECT_EQ(node->Query(nullptr, 3), 0u);
    EXPECT_EQ(node->GetExtra(), nullptr);
}

TEST(PluginManager, DataNotReadyIsFinishedOnTheRenderThread)
{
    ZemRenderer::Testing::Engine render;
    ASSERT_TRUE(render.IsStarted());
    BasePluginManager manager;
    ASSERT_TRUE(manager.LoadStaticPlugin(&StaticInit, &StaticRelease));
    g_aBuilds.clear();
    g_pRenderThread = render.Get();
    // Not ready here and at the first try there; the second try builds.
    g_iNotReadyLeft = 2;
    manager.GetPluginNode("InProcNode")->Build(nullptr, nullptr, Parse("{\"Value\":3}"), nullptr);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (g_iNotReadyLeft.load() > -1 && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    render.StopAndDelete();
    g_pRenderThread = nullptr;
    ASSERT_EQ(g_aBuilds.size(), 1u);
    EXPECT_EQ(g_aBuilds[0].iValue, 3);
    EXPECT_NE(g_aBuilds[0].kThread, std::this_thread::get_id());
}

namespace
{
    struct TestComponent : PluginComponent
    {
        int iFrom = 0;
    };

    struct TestComponentBuilder : PluginComponentBuilder
    {
        TestComponentBuilder()
        {
            std::strcpy(m_kDesc.m_szName, "Comp");
            std::strcpy(m_kDesc.m_szTypeName, "CompType");
            m_kDesc.m_uId = IPluginManager::GetNameId("Comp");
        }
        PluginComponent* Build(void*, void*, void*) override { return Made(1); }
        void Release(PluginComponent* component) override
        {
            ++iReleased;
            MEM_DELETE(static_cast<TestComponent*>(component));
        }
        const PluginComponentDesc& GetDesc() const override { return m_kDesc; }
        PluginComponent* BuildFromJson(const Json::Value& json, void*, void*) override
        {
            const Json::Value* x = Json::FindMember(json, "x");
            aJsonValues.push_back(x && x->IsInt() ? x->GetInt() : -1);
            return nullptr;
        }
        void OnResize(void*, unsigned int width, unsigned int height) override { uArea = width * height; }
        unsigned int Query(unsigned int) override { return 0; }

        PluginComponent* Made(int from)
        {
            TestComponent* component = MEM_NEW(TestComponent);
            component->iFrom = from;
            return component;
        }

        PluginComponentDesc m_kDesc;
        std::vector<int> aJsonValues;
        unsigned int uArea = 0;
        int iReleased = 0;
    };
}

TEST(PluginManager, ComponentsByIdNameAndDescription)
{
    BasePluginManager manager;
    TestComponentBuilder builder;
    manager.RegisterComponentBuilder(&builder);

    PluginComponent* byName = manager.BuildComponentByName("Comp", nullptr, nullptr, nullptr);
    ASSERT_NE(byName, nullptr);
    EXPECT_EQ(manager.BuildComponent(IPluginManager::GetNameId("Other"), nullptr, nullptr, nullptr), nullptr);
    manager.ReleaseComponentByName("Comp", byName);
    EXPECT_EQ(builder.iReleased, 1);

    manager.ForwardResize(nullptr, 20, 10);
    EXPECT_EQ(builder.uArea, 200u);

    struct Row
    {
        const char* name;
        const char* description;
        std::vector<int> built;
    } rows[] = {
        {"Comp", "{\"Json\":\"{\\\"x\\\":4}\",\"Type\":\"CompType\"}", {4}},
        {"Comp", "{\"Json\":\"{\\\"x\\\":4}\",\"Type\":\"Else\"}", {}},
        {"Other", "{\"Json\":\"{\\\"x\\\":4}\",\"Type\":\"CompType\"}", {}},
        {"Comp", "{\"Type\":\"CompType\"}", {}},
    };
    for (const Row& row : rows)
    {
        builder.aJsonValues.clear();
        EXPECT_TRUE(manager.LoadComponents(row.name, Parse(row.description), nullptr, nullptr));
        EXPECT_EQ(builder.aJsonValues, row.built) << row.description;
    }
    Common::ScopedLogCapture capture;
    builder.aJsonValues.clear();
    EXPECT_TRUE(manager.LoadComponents("Comp", Parse("{\"Json\":\"{x\",\"Type\":\"CompType\"}"), nullptr, nullptr));
    EXPECT_TRUE(capture.Contains("Could not parse JSON file"));
    EXPECT_TRUE(builder.aJsonValues.empty());

    manager.UnregisterComponentBuilder(builder.m_kDesc.m_uId);
    EXPECT_EQ(manager.BuildComponentByName("Comp", nullptr, nullptr, nullptr), nullptr);
}
