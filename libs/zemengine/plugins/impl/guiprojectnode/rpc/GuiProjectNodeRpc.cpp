#include "zemengine/plugins/impl/guiprojectnode/rpc/GuiProjectNodeRpc.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/CommandManager.h"
#include "zemengine/plugins/impl/guiprojectnode/zemguimanager/ZemGuiLink.h"

namespace RPC
{
    using Plugin::ZemGuiLink::NameList;
    namespace Gui = Plugin::ZemGuiLink;

    std::atomic<CGuiProjectNodeBuilder*> CGuiProjectNodeBuilder::s_pInstance{nullptr};

    namespace
    {
        unsigned int InstanceIdOf(CGuiProjectNode* node)
        {
            return ZemEngine::CInstanceManager<IRPCStub_CGuiProjectNode>::GetInstanceID(node);
        }

        typedef ZemRenderer::TArray<CGuiProjectNode*, unsigned int> NodeArray;

        // The builder's list lock, held around node state that a loading thread may
        // touch too; no lock when there is no builder.
        Common::CScopeLock<NodeArray> LockNodeState()
        {
            CGuiProjectNodeBuilder* builder = CGuiProjectNodeBuilder::GetInstance();
            return builder ? builder->LockNodes() : Common::CScopeLock<NodeArray>(nullptr, nullptr);
        }
    }

    // ---- CGuiProjectNode ----------------------------------------------------------------

    CGuiProjectNode::CGuiProjectNode(ZemRenderer::Link* link, ZemEngine::CWorldInstance* world)
        : m_pLink(link), m_pWorld(world)
    {
    }

    CGuiProjectNode::~CGuiProjectNode()
    {
        if (CGuiProjectNodeBuilder* builder = CGuiProjectNodeBuilder::GetInstance()) builder->Forget(this);
    }

    bool CGuiProjectNode::LoadProjectFile()
    {
        auto lock = LockNodeState();
        if (!Gui::FindGuiSystem())
        {
            Common::Log("Could not find ZemGui System\n");
            return false;
        }
        if (!Gui::EnsureDefaultFont())
        {
            Common::Log("Invalid font loading\n");
            return false;
        }
        if (m_kData.m_kFileName.empty()) return false;
        m_kData.m_pProject = Gui::LoadProject(m_kData.m_kFileName.c_str());
        return true;
    }

    bool CGuiProjectNode::IsLoaded()
    {
        auto lock = LockNodeState();
        return m_kData.m_pProject != nullptr && Gui::IsProjectLoaded(m_kData.m_pProject);
    }

    void CGuiProjectNode::SetFileName(const char* name)
    {
        auto lock = LockNodeState();
        m_kData.m_kFileName = name;
        LoadProjectFile();
    }

    ZemRenderer::TArray<Common::String> CGuiProjectNode::GetPageList()
    {
        auto lock = LockNodeState();
        NameList names;
        if (IsLoaded()) Gui::GetPageNames(m_kData.m_pProject, names);
        return names;
    }

    ZemRenderer::TArray<Common::String> CGuiProjectNode::GetPageElementsList()
    {
        auto lock = LockNodeState();
        NameList names;
        if (IsLoaded() && m_kData.m_pPage) Gui::GetTreeNames(m_kData.m_pPage, names);
        return names;
    }

    void CGuiProjectNode::ActivatePage(const char* name)
    {
        auto lock = LockNodeState();
        m_kData.m_kPageName = name;
        if (m_kData.m_pPage) Gui::SetActive(m_kData.m_pPage, false);
        // The element singled out before stays as it is.
        m_kData.m_pPage = Gui::ActivatePage(m_kData.m_pProject, name);
        if (m_kData.m_pPage) Gui::SetActive(m_kData.m_pPage, true);
    }

    void CGuiProjectNode::ActivatePageElement(const char* name)
    {
        auto lock = LockNodeState();
        if (!m_kData.m_pPage || !m_kData.m_pProject) return;
        if (ZemGui::BaseObj* found = Gui::FindLastByName(m_kData.m_pPage, name)) m_kData.m_pElement = found;
    }

    // ---- CGuiProjectNodeBuilder -----------------------------------------------------------

    CGuiProjectNode* CGuiProjectNodeBuilder::GetPrefabComponent(const char* _pPrefab)
    {
        if (!ZEM_ASSERT(_pPrefab, "")) return nullptr;
        if (!ZEM_ASSERT(std::strlen(_pPrefab) < Common::String::kCapacity, "Element key too long")) return nullptr;
        auto nodes = m_aNodes.Lock();
        for (CGuiProjectNode* node : *nodes)
            if (node->GetElementKey() == _pPrefab) return node;
        // No world manager in this build: the node has no world to remember.
        CGuiProjectNode* node = MEM_NEW(CGuiProjectNode, nullptr, nullptr);
        if (!node) return nullptr;
        node->SetElementKey(_pPrefab);
        nodes->Add(node);
        return node;
    }

    CGuiProjectNode* CGuiProjectNodeBuilder::FindByLink(ZemRenderer::Link* link)
    {
        if (!link) return nullptr;
        auto nodes = m_aNodes.Lock();
        for (CGuiProjectNode* node : *nodes)
            if (node->GetLink() == link) return node;
        return nullptr;
    }

    CGuiProjectNode* CGuiProjectNodeBuilder::FindLiveLocked(NodeArray& nodes, const Plugin::GuiProjectData& data)
    {
        if (!data.m_pRpcNode) return nullptr;
        for (CGuiProjectNode* node : nodes)
            if (node == data.m_pRpcNode && InstanceIdOf(node) == data.m_uRpcNodeId) return node;
        return nullptr;
    }

    void CGuiProjectNodeBuilder::BindData(Plugin::GuiProjectData& data)
    {
        auto nodes = m_aNodes.Lock();
        CGuiProjectNode* node = GetPrefabComponent(data.m_kElementId.c_str());
        data.m_pRpcNode = node;
        data.m_uRpcNodeId = node ? InstanceIdOf(node) : ZemEngine::CPointerResolver::kInvalidID;
        if (node) node->LoadProjectFile();
    }

    bool CGuiProjectNodeBuilder::AttachLink(const Plugin::GuiProjectData& data, ZemRenderer::Link* link)
    {
        auto nodes = m_aNodes.Lock();
        CGuiProjectNode* node = FindLiveLocked(*nodes, data);
        if (!node || node->GetLink()) return false;
        node->SetLink(link);
        return true;
    }

    bool CGuiProjectNodeBuilder::IsNodeAlive(const Plugin::GuiProjectData& data)
    {
        auto nodes = m_aNodes.Lock();
        return FindLiveLocked(*nodes, data) != nullptr;
    }

    void CGuiProjectNodeBuilder::Forget(CGuiProjectNode* node)
    {
        auto nodes = m_aNodes.Lock();
        nodes->RemoveValue(node);
    }

    unsigned int CGuiProjectNodeBuilder::GetNodeCount() { return m_aNodes.Lock()->GetSize(); }

    CGuiProjectNodeBuilder* CGuiProjectNodeBuilder::CreateInstance()
    {
        ZemEngine::CPointerResolver* resolver = ZemEngine::CPointerResolver::PeekInstance();
        CGuiProjectNodeBuilder* current = s_pInstance.load(std::memory_order_acquire);
        typedef ZemEngine::CSingletonManager<IRPCStub_CGuiProjectNodeBuilder> SingletonBase;
        if (current && resolver &&
            resolver->GetSingleton(ZemEngine::CPointerResolver::TypeID<IRPCStub_CGuiProjectNodeBuilder>()) ==
                static_cast<SingletonBase*>(current))
            return current;
        // A builder made for an earlier engine belonged to that engine's resolver, which
        // is gone with its clients: it is left as it is, and a new one serves this one.
        CGuiProjectNodeBuilder* made = MEM_NEW(CGuiProjectNodeBuilder);
        s_pInstance.store(made, std::memory_order_release);
        return made;
    }

    void CGuiProjectNodeBuilder::RegisterCommands(ZemEngine::CommandManager& commands)
    {
        const char* builderClass = "GuiProjectNodeBuilderRpc";
        commands.RegisterReleaseRef<IRPCStub_CGuiProjectNodeBuilder>(builderClass);
        commands.RegisterSingleton<IRPCStub_CGuiProjectNodeBuilder>(builderClass);
        commands.Register(builderClass, "GetPrefabComponent", &IRPCStub_CGuiProjectNodeBuilder::GetPrefabComponent);

        const char* nodeClass = "GuiProjectNodeRpc";
        commands.RegisterReleaseRef<IRPCStub_CGuiProjectNode>(nodeClass);
        commands.Register(nodeClass, "IsLoaded", &IRPCStub_CGuiProjectNode::IsLoaded);
        commands.Register(nodeClass, "SetFileName", &IRPCStub_CGuiProjectNode::SetFileName);
        commands.Register(nodeClass, "GetPageList", &IRPCStub_CGuiProjectNode::GetPageList);
        commands.Register(nodeClass, "GetPageElementsList", &IRPCStub_CGuiProjectNode::GetPageElementsList);
        commands.Register(nodeClass, "ActivatePage", &IRPCStub_CGuiProjectNode::ActivatePage);
        commands.Register(nodeClass, "ActivatePageElement", &IRPCStub_CGuiProjectNode::ActivatePageElement);
    }
}
