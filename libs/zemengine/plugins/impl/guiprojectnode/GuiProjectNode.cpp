#include "zemengine/plugins/impl/guiprojectnode/GuiProjectNode.h"

#include <atomic>
#include <new>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/core/commandmanager/PointerResolver.h"
#include "zemengine/engine/Engine.h"
#include "zemengine/engine/EngineNet.h"
#include "zemengine/plugins/impl/guiprojectnode/rpc/GuiProjectNodeRpc.h"
#include "zemengine/plugins/impl/guiprojectnode/zemguimanager/ZemGuiLink.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"

namespace Plugin
{
    namespace
    {
        // Evaluated by the editing tool, not by the engine.
        constexpr const char* kProjectPathDefault =
            "new CoreCommon.RpcGuiCreator( \t\t\t\t(rpcClient, prefab, datas) => { \t\t\t\t\tvar t = "
            "RPC.GuiProjectNodeBuilderRpc.GetRPCSingleton(rpcClient).GetPrefabComponent(prefab); \t\t\t\t\tvar "
            "guiPlugin = new GuiDataPlugin(); \t\t\t\t\treturn guiPlugin.GeneratePropertyEditor(t as "
            "RPC.GuiProjectNodeRpc, datas); \t\t\t\t})";

        std::atomic<bool> g_bGuiSystemDone{false};
    }

    ZemEngine::CustomNodeDesc& GuiProjectNode::GetDesc()
    {
        // Never destroyed: its arrays live on the host's memory manager, which may be
        // gone when this library's statics are torn down.
        alignas(ZemEngine::CustomNodeDesc) static unsigned char s_aStorage[sizeof(ZemEngine::CustomNodeDesc)];
        static ZemEngine::CustomNodeDesc* s_pDesc = new (s_aStorage) ZemEngine::CustomNodeDesc;
        static bool s_bFilled = false;
        if (s_bFilled) return *s_pDesc;
        s_bFilled = true;

        ZemEngine::CustomNodeDesc& desc = *s_pDesc;
        desc.m_kHeader.SetName("GuiProjectNode");
        desc.m_kHeader.SetDescription("GuiProject");
        desc.m_kHeader.SetIconPath("Plugin/Decal.ico");
        desc.m_kHeader.SetWatchLabelProperty("");
        desc.m_kHeader.m_uMode = ZemEngine::CustomNodeMode::WorldNode;
        if (desc.m_aProperties.IsEmpty())
        {
            desc.AddDependency("PLUGIN_GuiProjectNode");
            desc.AddProperty("CoreCommon.RpcGuiCreator", "ProjectPath", kProjectPathDefault, "Base", 10, 0);
            desc.AddProperty("FxCommon.ParticleFloatN", "Opacity", "new FxCommon.ParticleFloatN(30.0f)", "Emitter", 1, 0);
            desc.AddProperty("List<string>", "AnimableProperties", "new List<string>() {\"Opacity\"}", "", 2, 0);
        }
        if (desc.m_aRenderSteps.IsEmpty()) desc.AddRenderStep("PostDeferred", &GuiProjectNode::EnsureGuiSystem);
        return desc;
    }

    bool GuiProjectNode::ParseData(const ZemEngine::Json::Value& json, GuiProjectData& out)
    {
        const ZemEngine::Json::Value* path = ZemEngine::Json::FindMember(json, "ProjectPath");
        const ZemEngine::Json::Value* id = path ? ZemEngine::Json::FindMember(*path, "ElementId") : nullptr;
        if (id && id->IsString())
        {
            out.m_kElementId = id->GetString();
            // Binding also loads the node's project.
            if (RPC::CGuiProjectNodeBuilder* builder = RPC::CGuiProjectNodeBuilder::GetInstance())
                builder->BindData(out);
        }
        return true;
    }

    void GuiProjectNode::BuildData(ZemRenderer::Link* link, ZemEngine::Collection*, const GuiProjectData& data, void*,
                                   ZemAnim::TransitionEngine*)
    {
        // The opacity behaviour on the transition engine joins here with animation. The
        // first link wins.
        if (data.m_pRpcNode && link)
            if (RPC::CGuiProjectNodeBuilder* builder = RPC::CGuiProjectNodeBuilder::GetInstance())
                builder->AttachLink(data, link);
    }

    void GuiProjectNode::EnsureGuiSystem(void* renderFlow)
    {
        if (g_bGuiSystemDone.load(std::memory_order_acquire)) return;
        if (!ZemGuiLink::FindGuiSystem() && !ZemGuiLink::CreateGuiSystem(renderFlow)) return;
        g_bGuiSystemDone.store(true, std::memory_order_release);
    }

    bool GuiProjectNode::InitPluginStatic(ZemEngine::PluginParam* param)
    {
        if (!ZEM_ASSERT(param != nullptr && param->m_pPluginManager != nullptr, "InitPlugin without a plugin manager"))
            return false;
        // The host's objects first: everything after this allocates from the host's
        // manager and can be freed on either side.
        if (param->m_pMemoryManager) Common::Mem::CMemoryManager::SetInstance(param->m_pMemoryManager);
        if (param->m_pEngine) ZemEngine::CEngine::SetInstance(param->m_pEngine);
        DataProvider::SetDataProvider(param->m_pDataProvider);
        ZemEngine::SetEditorPickCallback(param->m_pfnEditorPick);
        if (!param->m_pBuildInfo || *param->m_pBuildInfo != ZemEngine::PluginBuildInfo::Current()) return false;

        ZemEngine::CustomNodeDesc& desc = GetDesc();
        ZemEngine::IPluginManager* manager = param->m_pPluginManager;
        manager->RegisterNodeBuilder(&DefaultBuilder::Get());
        for (const ZemEngine::CustomNodeRenderStepDesc& step : desc.m_aRenderSteps)
            manager->RegisterStepCallback(step.m_szName, step.m_pfnCallback);

        // Never GetInstance here: that would make a second engine inside this library.
        ZemEngine::CEngine* engine = ZemEngine::CEngine::PeekInstance();
        ZemEngine::CEngineNet* net = engine ? engine->GetEngineNet() : nullptr;
        if (!ZEM_ASSERT(net != nullptr, "No EngineNet instance")) return true;
        ZemEngine::CommandManager* commands = net->GetCommandManager();
        if (!ZEM_ASSERT(commands != nullptr && commands->GetResolver() != nullptr, "No EngineNet instance"))
            return true;
        ZemEngine::CPointerResolver::SetInstance(commands->GetResolver());
        if (!RPC::CGuiProjectNodeBuilder::CreateInstance()) return true;
        RPC::CGuiProjectNodeBuilder::RegisterCommands(*commands);
        return true;
    }

    bool GuiProjectNode::ReleasePluginStatic(ZemEngine::IPluginManager* manager)
    {
        if (!manager) return true;
        ZemEngine::CustomNodeDesc& desc = GetDesc();
        manager->UnregisterNodeBuilder(&desc);
        for (const ZemEngine::CustomNodeRenderStepDesc& step : desc.m_aRenderSteps)
            manager->UnregisterStepCallback(step.m_szName, step.m_pfnCallback);
        // The remote objects stay for clients that still hold them, but this library
        // lets go of the resolver, which ends with the engine's remote calls: a later
        // start for a new engine takes the new one.
        ZemEngine::CPointerResolver::ClearInstance(ZemEngine::CPointerResolver::PeekInstance());
        return true;
    }
}

#define ZEM_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

ZEM_PLUGIN_EXPORT bool InitPlugin(ZemEngine::PluginParam* param) { return Plugin::GuiProjectNode::InitPluginStatic(param); }

ZEM_PLUGIN_EXPORT bool ReleasePlugin(ZemEngine::IPluginManager* manager)
{
    return Plugin::GuiProjectNode::ReleasePluginStatic(manager);
}
