#pragma once
// The plugin's remote classes: "GuiProjectNodeBuilderRpc", the singleton that hands out
// one remote node per element key, and "GuiProjectNodeRpc", the node that an editing
// tool drives (project file, pages, element).
#include <atomic>

#include "common/utils/Lockable.h"
#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/InstanceManager.h"
#include "zemengine/plugins/impl/guiprojectnode/GuiProjectData.h"

namespace ZemRenderer
{
    class Link;
}
namespace ZemEngine
{
    class CommandManager;
    class CWorldInstance;
}

namespace RPC
{
    class IRPCStub_CGuiProjectNode : public ZemEngine::CInstanceManager<IRPCStub_CGuiProjectNode>
    {
    public:
        virtual bool IsLoaded() = 0;
        virtual void SetFileName(const char* name) = 0;
        virtual ZemRenderer::TArray<Common::String> GetPageList() = 0;
        virtual ZemRenderer::TArray<Common::String> GetPageElementsList() = 0;
        virtual void ActivatePage(const char* name) = 0;
        virtual void ActivatePageElement(const char* name) = 0;
    };

    class CGuiProjectNode : public IRPCStub_CGuiProjectNode
    {
    public:
        CGuiProjectNode(ZemRenderer::Link* link, ZemEngine::CWorldInstance* world);
        // Leaves the builder's list, so that nothing finds it any more.
        ~CGuiProjectNode() override;

        bool IsLoaded() override;
        void SetFileName(const char* name) override;
        ZemRenderer::TArray<Common::String> GetPageList() override;
        ZemRenderer::TArray<Common::String> GetPageElementsList() override;
        void ActivatePage(const char* name) override;
        void ActivatePageElement(const char* name) override;

        // False, with nothing loaded, without a GUI system, a font or a file name.
        bool LoadProjectFile();

        ZemRenderer::Link* GetLink() const { return m_pLink; }
        void SetLink(ZemRenderer::Link* link) { m_pLink = link; }
        ZemEngine::CWorldInstance* GetWorld() const { return m_pWorld; }
        const Plugin::GuiProjectData& GetData() const { return m_kData; }
        const Common::String& GetElementKey() const { return m_kElementKey; }
        bool SetElementKey(const char* key) { return m_kElementKey.Assign(key); }

    private:
        ZemRenderer::Link* m_pLink;
        ZemEngine::CWorldInstance* m_pWorld;
        Plugin::GuiProjectData m_kData;
        Common::String m_kElementKey;
    };

    class IRPCStub_CGuiProjectNodeBuilder : public ZemEngine::CSingletonManager<IRPCStub_CGuiProjectNodeBuilder>
    {
    public:
        virtual CGuiProjectNode* GetPrefabComponent(const char* _pPrefab) = 0;
    };

    class CGuiProjectNodeBuilder : public IRPCStub_CGuiProjectNodeBuilder
    {
    public:
        typedef Common::SelfLocked<ZemRenderer::TArray<CGuiProjectNode*, unsigned int>> NodeList;

        CGuiProjectNodeBuilder() = default;
        // Nodes still listed are left alone: clients may hold them.
        ~CGuiProjectNodeBuilder() override = default;

        // The node of that element key, made on first request. Null for a null key or
        // one of 1024 characters or more.
        CGuiProjectNode* GetPrefabComponent(const char* _pPrefab) override;
        // The first node bound to `link`, or null.
        CGuiProjectNode* FindByLink(ZemRenderer::Link* link);

        // Points `data` at the node of its element id and loads the node's project, in
        // one step under the list's lock.
        void BindData(Plugin::GuiProjectData& data);
        // Gives the node of `data` its link unless it has one; false when the node is
        // gone or already linked.
        bool AttachLink(const Plugin::GuiProjectData& data, ZemRenderer::Link* link);
        // True if the node of `data` is still alive.
        bool IsNodeAlive(const Plugin::GuiProjectData& data);

        void Forget(CGuiProjectNode* node);
        unsigned int GetNodeCount();
        // The list's lock; node state that loading threads also touch is changed under it.
        Common::CScopeLock<ZemRenderer::TArray<CGuiProjectNode*, unsigned int>> LockNodes() { return m_aNodes.Lock(); }

        // The library's builder, or null before InitPlugin made one.
        static CGuiProjectNodeBuilder* GetInstance() { return s_pInstance.load(std::memory_order_acquire); }
        // Makes the builder for the resolver now set, keeping the one made for the same
        // resolver before.
        static CGuiProjectNodeBuilder* CreateInstance();

        // Registers both remote classes with their commands.
        static void RegisterCommands(ZemEngine::CommandManager& commands);

    private:
        // Under the list's lock: the node of `data` if it is still listed under its id.
        CGuiProjectNode* FindLiveLocked(ZemRenderer::TArray<CGuiProjectNode*, unsigned int>& nodes,
                                        const Plugin::GuiProjectData& data);

        NodeList m_aNodes;
        static std::atomic<CGuiProjectNodeBuilder*> s_pInstance;
    };
}
