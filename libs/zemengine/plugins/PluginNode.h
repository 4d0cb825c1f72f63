#pragma once
// A custom node type as the engine sees it: one stateless PluginNode per plugin (node
// state lives in its data and on the link) and the PluginBuilder that the plugin
// registers to make it and its data.
#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/RPCTypes.h"
#include "zemengine/core/json/Json.h"

namespace ZemRenderer
{
    class Link;
}
namespace ZemAnim
{
    class TransitionEngine;
}

namespace ZemEngine
{
    class Collection;
    struct CustomNodeDesc;

    class PluginNode
    {
    public:
        PluginNode() = default;
        PluginNode(const PluginNode&) = delete;
        PluginNode& operator=(const PluginNode&) = delete;

        virtual ~PluginNode() = default;
        virtual void Build(ZemRenderer::Link* link, Collection* collection, const Json::Value& json,
                           ZemAnim::TransitionEngine* transitionEngine) = 0;
        // `data` is what the builder's BuildNodeData made.
        virtual void BuildFromData(ZemRenderer::Link* link, Collection* collection, const void* data,
                                   ZemAnim::TransitionEngine* transitionEngine) = 0;
        // The link's hide flag becomes !visible.
        virtual void SetVisible(ZemRenderer::Link* link, bool visible);
        virtual void SetLayer(ZemRenderer::Link* link, unsigned int layer);
        virtual void SetTransform(ZemRenderer::Link* link, const RPC::RPCTransform& transform);
        // Bit 20 of the link's flags.
        virtual void SetEditorFlag(ZemRenderer::Link* link, bool set);
        // Appends the link unless it is null.
        virtual void GetLinks(ZemRenderer::Link* link, ZemRenderer::TArray<ZemRenderer::Link*>& links);
        virtual void Update(ZemRenderer::Link* link, float elapsedMs, float timeMs, unsigned int frame);
        virtual unsigned int Query(ZemRenderer::Link* link, unsigned int what);
        virtual void* GetExtra();
        virtual void OnResize(unsigned int width, unsigned int height);

        static constexpr unsigned int kEditorFlag = 0x100000;
    };

    class PluginBuilder
    {
    public:
        explicit PluginBuilder(CustomNodeDesc* desc) : m_pDesc(desc) {}
        PluginBuilder(const PluginBuilder&) = delete;
        PluginBuilder& operator=(const PluginBuilder&) = delete;

        virtual ~PluginBuilder() = default;
        // The plugin's node; the manager owns it and frees it with MEM_DELETE semantics
        // (see DeletePluginObject).
        virtual PluginNode* BuildNode() = 0;
        // The data of one node, or null when the JSON is refused.
        virtual void* BuildNodeData(const Json::Value& json, Collection* collection,
                                    ZemAnim::TransitionEngine* transitionEngine) = 0;
        virtual void ReleaseNodeData(void* data) = 0;

        CustomNodeDesc* GetDesc() const { return m_pDesc; }

    protected:
        CustomNodeDesc* m_pDesc;
    };

    // Frees an object made with MEM_NEW through a pointer to one of its polymorphic
    // bases: the block starts at the most derived object.
    template <class T>
    void DeletePluginObject(T* object)
    {
        if (!object) return;
        void* block = dynamic_cast<void*>(object);
        object->~T();
        Common::Mem::CMemoryManager::GetInstance()->Free(block);
    }
}
