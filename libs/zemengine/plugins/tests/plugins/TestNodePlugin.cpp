// A second plugin for the tests of plugin loading: a data node "TestNode" with two
// callbacks on one step, built like the real plugin (its own copy of the engine), plus
// the export TestPluginProbe that tells what its copy sees. Built a second time with
// ZEM_TEST_PLUGIN_REFUSE, its InitPlugin refuses after taking the host's objects.
#include <new>

#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/core/commandmanager/PointerResolver.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"
#include "zemengine/plugins/DataPluginNode.h"
#include "zemengine/plugins/IPluginManager.h"
#include "zemengine/plugins/tests/plugins/TestPluginProbe.h"

#define ZEM_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

namespace ZemEngine::PluginTest
{
    namespace
    {
        ProbeState g_kState;
    }

    struct TestData
    {
        int m_iValue = 0;
    };

    class TestNode : public DataPluginNode<TestNode, 1>
    {
    public:
        typedef TestData DataType;

        static bool ParseData(const Json::Value& json, TestData& out)
        {
            const Json::Value* value = Json::FindMember(json, "Value");
            if (!value || !value->IsInt()) return false;
            out.m_iValue = value->GetInt();
            return true;
        }
        static bool IsDataReady(const TestData&, Collection*) { return true; }
        static void BuildData(ZemRenderer::Link*, Collection*, const TestData& data, void*, ZemAnim::TransitionEngine*)
        {
            ++g_kState.iBuildCount;
            g_kState.iLastBuildValue = data.m_iValue;
        }
        static CustomNodeDesc& GetDesc();
    };

    namespace
    {
        void Mark(void* context, int mark)
        {
            StepLog* log = static_cast<StepLog*>(context);
            if (log && log->iCount < 16) log->aMarks[log->iCount++] = mark;
        }
        void StepFirst(void* context) { Mark(context, 1); }
        void StepSecond(void* context) { Mark(context, 2); }
    }

    CustomNodeDesc& TestNode::GetDesc()
    {
        // Never destroyed: its arrays belong to the host's memory manager.
        alignas(CustomNodeDesc) static unsigned char s_aStorage[sizeof(CustomNodeDesc)];
        static CustomNodeDesc* s_pDesc = [] {
            CustomNodeDesc* desc = new (s_aStorage) CustomNodeDesc;
            desc->m_kHeader.SetName(kNodeName);
            desc->m_kHeader.SetDescription("Node of the plugin tests");
            desc->m_kHeader.SetIconPath("Plugin/Test.ico");
            desc->m_kHeader.SetWatchLabelProperty("Value");
            desc->m_kHeader.m_uMode = CustomNodeMode::WorldNode | CustomNodeMode::PrefabSocket;
            desc->AddDependency("PLUGIN_TestNode");
            desc->AddProperty("int", "Value", "", "Base", 5, 3);
            desc->AddRenderStep(kStepName, &StepFirst);
            desc->AddRenderStep(kStepName, &StepSecond);
            return desc;
        }();
        return *s_pDesc;
    }
}

using namespace ZemEngine;
using namespace ZemEngine::PluginTest;

ZEM_PLUGIN_EXPORT bool InitPlugin(PluginParam* param)
{
    if (!param) return false;
    ++g_kState.iInitCount;
    if (param->m_pMemoryManager) Common::Mem::CMemoryManager::SetInstance(param->m_pMemoryManager);
    if (param->m_pEngine) CEngine::SetInstance(param->m_pEngine);
    SetEditorPickCallback(param->m_pfnEditorPick);
#ifdef ZEM_TEST_PLUGIN_REFUSE
    return false;
#else
    if (!param->m_pBuildInfo || *param->m_pBuildInfo != PluginBuildInfo::Current()) return false;
    CEngine* engine = CEngine::PeekInstance();
    if (engine && engine->GetEngineNet() && engine->GetEngineNet()->GetCommandManager())
        CPointerResolver::SetInstance(engine->GetEngineNet()->GetCommandManager()->GetResolver());
    CustomNodeDesc& desc = TestNode::GetDesc();
    param->m_pPluginManager->RegisterNodeBuilder(&TestNode::DefaultBuilder::Get());
    for (const CustomNodeRenderStepDesc& step : desc.m_aRenderSteps)
        param->m_pPluginManager->RegisterStepCallback(step.m_szName, step.m_pfnCallback);
    return true;
#endif
}

ZEM_PLUGIN_EXPORT bool ReleasePlugin(IPluginManager* manager)
{
    ++g_kState.iReleaseCount;
    CustomNodeDesc& desc = TestNode::GetDesc();
    manager->UnregisterNodeBuilder(&desc);
    for (const CustomNodeRenderStepDesc& step : desc.m_aRenderSteps)
        manager->UnregisterStepCallback(step.m_szName, step.m_pfnCallback);
    CPointerResolver::ClearInstance(CPointerResolver::PeekInstance());
    return true;
}

ZEM_PLUGIN_EXPORT void TestPluginProbe(ProbeState* out, bool peekMemoryManager, void* host)
{
    if (!out) return;
    *out = g_kState;
    if (peekMemoryManager)
    {
        Common::Mem::CMemoryManager* own = Common::Mem::CMemoryManager::GetInstance();
        out->pMemoryManager = own;
        if (own != host) Common::Mem::CMemoryManager::DestroyInstance();
    }
    out->pEngine = CEngine::PeekInstance();
    out->pResolver = CPointerResolver::PeekInstance();
    out->pfnResolverSetInstance = reinterpret_cast<void*>(&CPointerResolver::SetInstance);
    out->pfnEngineSetInstance = reinterpret_cast<void*>(&CEngine::SetInstance);
}
