#include "zemengine/plugins/PluginNode.h"

namespace ZemEngine
{
    // Links do not carry flags, transforms or a hide flag in this build yet; the link
    // defaults below touch nothing until they do.
    void PluginNode::SetVisible(ZemRenderer::Link*, bool) {}
    void PluginNode::SetLayer(ZemRenderer::Link*, unsigned int) {}
    void PluginNode::SetTransform(ZemRenderer::Link*, const RPC::RPCTransform&) {}
    void PluginNode::SetEditorFlag(ZemRenderer::Link*, bool) {}

    void PluginNode::GetLinks(ZemRenderer::Link* link, ZemRenderer::TArray<ZemRenderer::Link*>& links)
    {
        if (link) links.Add(link);
    }

    void PluginNode::Update(ZemRenderer::Link*, float, float, unsigned int) {}
    unsigned int PluginNode::Query(ZemRenderer::Link*, unsigned int) { return 0; }
    void* PluginNode::GetExtra() { return nullptr; }
    void PluginNode::OnResize(unsigned int, unsigned int) {}
}
