// The GuiProjectNode plugin loaded from its built library, driven through the host's
// plugin manager and command manager. Its log lines come from its own copy of the log,
// which writes to standard output like the host's, so the tests read standard output.
#include <gtest/gtest.h>

#include <map>
#include <memory>

#include <dlfcn.h>

#include <string>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/scene/UserData.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"
#include "zemengine/plugins/BasePluginManager.h"
#include "zemengine/plugins/CustomNodeDescJson.h"
#include "zemengine/plugins/impl/guiprojectnode/GuiProjectData.h"
#include "zemengine/plugins/impl/guiprojectnode/rpc/GuiProjectNodeRpc.h"
#include "zemengine/plugins/tests/PluginTestUtil.h"

using namespace ZemEngine;
using namespace ZemEngine::PluginTest;

namespace
{
    const std::string kBuilt = ZEM_GUI_PLUGIN_DIR;
    const char* kNode = "GuiProjectNode";

    std::string Command(const std::string& className, const std::string& method, const std::string& args = "",
                        unsigned int instance = 0)
    {
        std::string s = "{\"ClassName\":\"" + className + "\",\"InstanceID\":" + std::to_string(instance) +
                        ",\"MethodName\":\"" + method + "\",\"UseTcpThread\":true,\"WaitAck\":true";
        if (!args.empty()) s += "," + args;
        return s + "}";
    }

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

    // The node's class lives only in the plugin library, so this program has no type
    // information for it (the build turns the sanitizer's type check off here).
    ZemRenderer::Link* LinkOf(const RPC::CGuiProjectNode* node)
    {
        return node->GetLink();
    }
    std::string KeyOf(const RPC::CGuiProjectNode* node)
    {
        return node->GetElementKey().c_str();
    }

    // Real links, one per number, living as long as the test program: builds mark them.
    ZemRenderer::Link* FakeLink(int n)
    {
        static std::map<int, std::unique_ptr<ZemRenderer::Link>> s_kLinks;
        std::unique_ptr<ZemRenderer::Link>& link = s_kLinks[n];
        if (!link) link = std::make_unique<ZemRenderer::Link>(nullptr, "node link");
        return link.get();
    }

    uint32_t GproCount(ZemRenderer::Link* link)
    {
        ZemRenderer::UserData* record = link->FindUserData(ZemRenderer::UserDataTag::GPRO);
        return record ? ZemRenderer::UserDataHelper::GetCount(record) : 0;
    }

    class GuiPluginTest : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            m_kFolder.AddLibrary(kBuilt, "GuiProjectNode", m_sFile);
            ASSERT_TRUE(m_kEngine.InitRpcConnection(0));
            m_pManager = MEM_NEW(BasePluginManager, &m_kEngine);
            ASSERT_TRUE(m_pManager->LoadPlugin(m_kFolder.Folder().c_str(), m_sFile.c_str()));
        }
        void TearDown() override
        {
            MEM_DELETE(m_pManager);
            m_kEngine.Destroy();
        }

        std::string Run(const std::string& className, const std::string& method, const std::string& args = "",
                        unsigned int instance = 0)
        {
            CReturnBuffer result;
            m_kEngine.GetEngineNet()->GetCommandManager()->ExecuteJSon(
                Command(className, method, args, instance).c_str(), &result);
            return result.GetText();
        }
        std::string Builder(const std::string& method, const std::string& args = "")
        {
            return Run("GuiProjectNodeBuilderRpc", method, args);
        }
        std::string Node(unsigned int id, const std::string& method, const std::string& args = "")
        {
            return Run("GuiProjectNodeRpc", method, args, id);
        }
        // The instance id in {"Res":{"InstanceID":n}}, or -1.
        static long IdOf(const std::string& reply)
        {
            Json::Document d = Parse(reply.c_str());
            const Json::Value* res = d.HasParseError() ? nullptr : Json::FindMember(d, "Res");
            const Json::Value* id = res ? Json::FindMember(*res, "InstanceID") : nullptr;
            return id && id->IsUint() ? static_cast<long>(id->GetUint()) : -1;
        }
        Plugin::GuiProjectData* BuildData(const char* json)
        {
            return static_cast<Plugin::GuiProjectData*>(m_pManager->BuildNodeData(kNode, Parse(json), nullptr, nullptr));
        }

        TempPluginFolder m_kFolder;
        std::string m_sFile = PluginFileName("GuiProjectNode");
        CEngine m_kEngine;
        BasePluginManager* m_pManager = nullptr;
    };
}

TEST_F(GuiPluginTest, PublishesItsDescription)
{
    ASSERT_EQ(m_pManager->GetNodeBuilderCount(), 1u);
    Json::Document scratch;
    bool nonFinite = false;
    EXPECT_EQ(ToText(Encode(m_pManager->GetCustomNodeHeaderDesc(0), scratch.GetAllocator(), nonFinite)),
              "{\"Name\":\"GuiProjectNode\",\"Description\":\"GuiProject\",\"IconPath\":\"Plugin/Decal.ico\","
              "\"WatchLabelProperty\":\"\",\"Mode\":[\"WorldNode\"]}");

    const auto properties = m_pManager->GetCustomNodeDesc(0);
    ASSERT_EQ(properties.GetSize(), 3u);
    struct Row
    {
        const char* name;
        const char* type;
        const char* group;
        int order;
    } rows[] = {
        {"ProjectPath", "CoreCommon.RpcGuiCreator", "Base", 10},
        {"Opacity", "FxCommon.ParticleFloatN", "Emitter", 2},
        {"AnimableProperties", "List<string>", "", 4},
    };
    for (unsigned int i = 0; i < 3; ++i)
    {
        EXPECT_STREQ(properties[i].m_szName, rows[i].name);
        EXPECT_STREQ(properties[i].m_szType, rows[i].type);
        EXPECT_STREQ(properties[i].m_szGroup, rows[i].group);
        EXPECT_EQ(properties[i].m_iOrder, rows[i].order);
        EXPECT_EQ(properties[i].m_uUserFlags, 0u);
    }
    EXPECT_STREQ(properties[1].m_szDefaultValue, "new FxCommon.ParticleFloatN(30.0f)");
    EXPECT_STREQ(properties[2].m_szDefaultValue, "new List<string>() {\"Opacity\"}");
    const std::string expression = properties[0].m_szDefaultValue;
    EXPECT_EQ(expression.rfind("new CoreCommon.RpcGuiCreator( \t\t\t\t(rpcClient, prefab, datas) => { \t\t\t\t\tvar t = ", 0), 0u);
    EXPECT_NE(expression.find("GetPrefabComponent(prefab); \t\t\t\t\tvar guiPlugin = new GuiDataPlugin();"), std::string::npos);
    EXPECT_EQ(expression.substr(expression.size() - 6), "\t\t\t\t})");

    const auto dependencies = m_pManager->GetCustomNodeDependencies(0);
    ASSERT_EQ(dependencies.GetSize(), 1u);
    EXPECT_EQ(dependencies[0], "PLUGIN_GuiProjectNode");
    ASSERT_NE(m_pManager->GetStepCallbacks("PostDeferred"), nullptr);
    EXPECT_EQ(m_pManager->GetStepCallbacks("PostDeferred")->GetSize(), 1u);

    // Without a GUI framework the step cannot bring a GUI system up, and says so.
    testing::internal::CaptureStdout();
    m_pManager->RunStepCallbacks("PostDeferred", nullptr);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("ZemGui System cannot be created"), std::string::npos);
}

TEST_F(GuiPluginTest, BuilderHandsOutOneNodePerKeyAndForgetsReleasedOnes)
{
    EXPECT_EQ(Builder("GetRPCSingleton"), "{\"Res\":{\"InstanceID\":0}}");
    const long first = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"k1\""));
    ASSERT_GE(first, 0);
    EXPECT_EQ(IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"k1\"")), first);
    const long other = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"k2\""));
    EXPECT_NE(other, first);

    EXPECT_EQ(Node(first, "ReleaseRef"), "{\"Res\":1}");
    EXPECT_EQ(Node(first, "ReleaseRef"), "{\"Res\":0}");
    // Gone: the id names nothing, and the key makes a new node.
    EXPECT_EQ(Node(first, "IsLoaded").find("Res"), std::string::npos);
    const long again = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"k1\""));
    ASSERT_GE(again, 0);
    EXPECT_NE(again, first);
    EXPECT_EQ(Node(again, "ReleaseRef"), "{\"Res\":0}");
    EXPECT_EQ(Node(other, "ReleaseRef"), "{\"Res\":0}");

    EXPECT_EQ(Builder("ReleaseRef"), "{\"Res\":0}");
    EXPECT_EQ(Builder("GetRPCSingleton"), "{\"Res\":{\"InstanceID\":0}}");
}

TEST_F(GuiPluginTest, NodeCommandsWithoutTheGuiFramework)
{
    const long id = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"page\""));
    ASSERT_GE(id, 0);
    EXPECT_EQ(Node(id, "IsLoaded"), "{\"Res\":false}");
    testing::internal::CaptureStdout();
    Node(id, "SetFileName", "\"Arg0\":\"UI/Project.xml\"");
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Could not find ZemGui System\n"), std::string::npos);
    EXPECT_EQ(Node(id, "IsLoaded"), "{\"Res\":false}");
    EXPECT_EQ(Node(id, "GetPageList"), "{\"Res\":[]}");
    Node(id, "ActivatePage", "\"Arg0\":\"Main\"");
    Node(id, "ActivatePageElement", "\"Arg0\":\"Title\"");
    EXPECT_EQ(Node(id, "GetPageElementsList"), "{\"Res\":[]}");
    EXPECT_EQ(Node(id, "ReleaseRef"), "{\"Res\":0}");
}

TEST_F(GuiPluginTest, NodeDataBindsTheRemoteNodeAndLetsGoOfAReleasedOne)
{
    testing::internal::CaptureStdout();
    Plugin::GuiProjectData* data = BuildData("{\"ProjectPath\":{\"ElementId\":\"k3\"},\"Other\":1}");
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Could not find ZemGui System\n"), std::string::npos);
    ASSERT_NE(data, nullptr);
    ASSERT_NE(data->m_pRpcNode, nullptr);
    EXPECT_STREQ(data->m_kElementId.c_str(), "k3");
    EXPECT_EQ(KeyOf(data->m_pRpcNode), "k3");
    const long id = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"k3\""));
    EXPECT_EQ(id, static_cast<long>(data->m_uRpcNodeId));

    // The first link wins.
    PluginNode* node = m_pManager->GetPluginNode(kNode);
    ASSERT_NE(node, nullptr);
    node->BuildFromData(FakeLink(1), nullptr, data, nullptr);
    node->Build(FakeLink(2), nullptr, Parse("{\"ProjectPath\":{\"ElementId\":\"k3\"}}"), nullptr);
    EXPECT_EQ(LinkOf(data->m_pRpcNode), FakeLink(1));
    // Each built link carries the node's mark once, however often it is built.
    node->BuildFromData(FakeLink(1), nullptr, data, nullptr);
    EXPECT_EQ(GproCount(FakeLink(1)), 1u);
    EXPECT_EQ(GproCount(FakeLink(2)), 1u);
    EXPECT_EQ(FakeLink(1)->FindUserData(ZemRenderer::UserDataTag::GPRO)->m_uiSize, 9u);

    // Without a key, no remote node; the build still goes through.
    for (const char* json : {"{}", "{\"ProjectPath\":{\"ElementId\":null}}", "{\"ProjectPath\":3}"})
    {
        Plugin::GuiProjectData* empty = BuildData(json);
        ASSERT_NE(empty, nullptr) << json;
        EXPECT_EQ(empty->m_pRpcNode, nullptr) << json;
        node->BuildFromData(FakeLink(5), nullptr, empty, nullptr);
        m_pManager->ReleaseNodeData(kNode, empty);
    }

    // The client lets the node go while the data still names it: the data's node is
    // never touched again, and the key gets a fresh node that the stale data leaves alone.
    EXPECT_EQ(Node(id, "ReleaseRef"), "{\"Res\":0}");
    node->BuildFromData(FakeLink(3), nullptr, data, nullptr);
    Plugin::GuiProjectData* fresh = BuildData("{\"ProjectPath\":{\"ElementId\":\"k3\"}}");
    ASSERT_NE(fresh, nullptr);
    ASSERT_NE(fresh->m_pRpcNode, nullptr);
    EXPECT_NE(fresh->m_uRpcNodeId, data->m_uRpcNodeId);
    node->BuildFromData(FakeLink(4), nullptr, data, nullptr);
    EXPECT_EQ(LinkOf(fresh->m_pRpcNode), nullptr);
    node->BuildFromData(FakeLink(4), nullptr, fresh, nullptr);
    EXPECT_EQ(LinkOf(fresh->m_pRpcNode), FakeLink(4));

    m_pManager->ReleaseNodeData(kNode, data);
    m_pManager->ReleaseNodeData(kNode, fresh);
}

TEST_F(GuiPluginTest, StartsAgainForANewManagerOfTheSameEngine)
{
    const long id = IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"kept\""));
    ASSERT_GE(id, 0);
    MEM_DELETE(m_pManager);
    m_pManager = nullptr;
    // Released: the library no longer reaches the resolver, so its commands fail cleanly.
    EXPECT_EQ(Builder("GetPrefabComponent", "\"Arg0\":\"kept\"").find("Res"), std::string::npos);

    m_pManager = MEM_NEW(BasePluginManager, &m_kEngine);
    ASSERT_TRUE(m_pManager->LoadPlugin(m_kFolder.Folder().c_str(), m_sFile.c_str()));
    EXPECT_EQ(m_pManager->GetNodeBuilderCount(), 1u);
    EXPECT_EQ(IdOf(Builder("GetPrefabComponent", "\"Arg0\":\"kept\"")), id);
    EXPECT_EQ(Node(id, "ReleaseRef"), "{\"Res\":1}");
}

TEST(GuiPlugin, RefusesAnotherBuildRecordAndRunsWithoutRemoteCalls)
{
    TempPluginFolder folder;
    const std::string file = PluginFileName("GuiProjectNode");
    folder.AddLibrary(kBuilt, "GuiProjectNode", file);
    CEngine engine;
    BasePluginManager manager(&engine);

    void* library = dlopen(folder.PathOf(file).c_str(), RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    auto init = reinterpret_cast<PluginInitFunction>(dlsym(library, "InitPlugin"));
    ASSERT_NE(init, nullptr);
    {
        PluginParam param(&manager);
        param.m_pEngine = &engine;
        param.m_pBuildInfo->m_uCompilerVersion += 1;
        EXPECT_FALSE(init(&param));
    }
    EXPECT_EQ(manager.GetNodeBuilderCount(), 0u);

    // No remote host: the node works, the remote classes are absent.
    testing::internal::CaptureStdout();
    EXPECT_TRUE(manager.LoadPlugin(folder.Folder().c_str(), file.c_str()));
    EXPECT_NE(testing::internal::GetCapturedStdout().find("No EngineNet instance"), std::string::npos);
    EXPECT_EQ(manager.GetNodeBuilderCount(), 1u);
    void* data = manager.BuildNodeData(kNode, Parse("{\"ProjectPath\":{\"ElementId\":\"k\"}}"), nullptr, nullptr);
    ASSERT_NE(data, nullptr);
    EXPECT_EQ(static_cast<Plugin::GuiProjectData*>(data)->m_pRpcNode, nullptr);
    manager.GetPluginNode(kNode)->BuildFromData(FakeLink(1), nullptr, data, nullptr);
    manager.ReleaseNodeData(kNode, data);
    dlclose(library);
}
