#pragma once
// The GuiProjectNode plugin: a custom data node that binds a GUI project to a scene
// link, driven by an editing tool through its remote node.
#include "zemengine/plugins/DataPluginNode.h"
#include "zemengine/plugins/IPluginManager.h"
#include "zemengine/plugins/PluginParam.h"
#include "zemengine/plugins/impl/guiprojectnode/GuiProjectData.h"

namespace Plugin
{
    class GuiProjectNode : public ZemEngine::DataPluginNode<GuiProjectNode, 0>
    {
    public:
        typedef GuiProjectData DataType;

        // A GUI node does not hide its link.
        void SetVisible(ZemRenderer::Link*, bool) override {}
        void OnResize(unsigned int, unsigned int) override {}

        // Reads "ProjectPath"."ElementId" and binds the remote node of that key. Always
        // accepts.
        static bool ParseData(const ZemEngine::Json::Value& json, GuiProjectData& out);
        // Its links carry a "GPRO" record of one-byte elements.
        static constexpr uint32_t kUserDataTag = ZemRenderer::UserDataTag::GPRO;
        typedef unsigned char LinkElement;

        static bool IsDataReady(const GuiProjectData&, ZemEngine::Collection*) { return true; }
        static void BuildData(ZemRenderer::Link* link, ZemEngine::Collection* collection, const GuiProjectData& data,
                              void* userData, ZemAnim::TransitionEngine* transitionEngine);

        // The static description, filled on first use.
        static ZemEngine::CustomNodeDesc& GetDesc();

        static bool InitPluginStatic(ZemEngine::PluginParam* param);
        static bool ReleasePluginStatic(ZemEngine::IPluginManager* manager);

        // The "PostDeferred" callback: brings up the GUI system once.
        static void EnsureGuiSystem(void* renderFlow);
    };
}
