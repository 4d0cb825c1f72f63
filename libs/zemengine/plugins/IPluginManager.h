#pragma once
// The engine's view of its plugins: tables from a node or component type name to the
// builder that a plugin registered, and the step callbacks that plugins hook into
// render flows. Registration happens on the main thread while plugins load; afterwards
// the tables are only read (from the threads that build nodes and render flows), so
// they take no lock and must not change once loading has ended.
#include "common/utils/String.h"
#include "common/utils/TArray.h"
#include "zemengine/core/json/Json.h"
#include "zemengine/plugins/CustomNodeDesc.h"
#include "zemengine/plugins/PluginComponent.h"
#include "zemengine/plugins/PluginNode.h"
#include "zemengine/plugins/PluginParam.h"

namespace ZemEngine
{
    class IPluginManager
    {
    public:
        IPluginManager() = default;
        IPluginManager(const IPluginManager&) = delete;
        IPluginManager& operator=(const IPluginManager&) = delete;

        // Releases the plugins in load order.
        virtual ~IPluginManager() = default;

        // Calls OnResize of each component builder.
        virtual void ForwardResize(void* world, unsigned int width, unsigned int height) = 0;
        // Calls each callback of the step, in registration order.
        virtual void RunStepCallbacks(const char* stepName, void* context) = 0;
        // Scans "<root>Plugins" for this build's plugin libraries and loads each. True if
        // at least one loaded.
        virtual bool LoadPlugins(const char* root) = 0;
        // A plugin linked into the program: loaded like a library without the library.
        virtual bool LoadStaticPlugin(PluginInitFunction init, PluginReleaseFunction release) = 0;

        // Key: the id of the description's Name. A later builder of the same Name
        // replaces the earlier one, and its node the earlier node.
        virtual void RegisterNodeBuilder(PluginBuilder* builder) = 0;
        // Removes the builder of that Name and frees its node.
        virtual void UnregisterNodeBuilder(const CustomNodeDesc* desc) = 0;
        virtual void RegisterComponentBuilder(PluginComponentBuilder* builder) = 0;
        virtual void UnregisterComponentBuilder(unsigned int id) = 0;

        // Null for an unknown type.
        virtual PluginNode* GetPluginNode(const char* name) = 0;
        virtual void* BuildNodeData(const char* name, const Json::Value& json, Collection* collection,
                                    ZemAnim::TransitionEngine* transitionEngine) = 0;
        virtual void ReleaseNodeData(const char* name, void* data) = 0;

        virtual PluginComponent* BuildComponent(unsigned int id, void* arg0, void* arg1, void* arg2) = 0;
        virtual PluginComponent* BuildComponentByName(const char* name, void* arg0, void* arg1, void* arg2) = 0;
        // `description` is an AddInObjects entry with "Json" (a JSON text) and "Type".
        virtual bool LoadComponents(const char* name, const Json::Value& description, void* context1,
                                    void* context2) = 0;
        virtual void ReleaseComponentByName(const char* name, PluginComponent* component) = 0;
        virtual void ReleaseComponent(unsigned int id, PluginComponent* component) = 0;

        virtual void RegisterStepCallback(const char* stepName, PluginStepCallback callback) = 0;
        // Removes the first registration equal to `callback`; the step goes with its last one.
        virtual void UnregisterStepCallback(const char* stepName, PluginStepCallback callback) = 0;

        // The node builders, by index in ascending order of the key (not load order).
        virtual unsigned int GetNodeBuilderCount() const = 0;
        // Null for an index out of range.
        virtual PluginBuilder* GetNodeBuilderAt(unsigned int index) const = 0;

        // What the remote root publishes about custom node `index`; an index out of range
        // gives an empty record.
        CustomNodeHeaderDesc GetCustomNodeHeaderDesc(unsigned int index) const;
        ZemRenderer::TArray<CustomNodePropertyDesc> GetCustomNodeDesc(unsigned int index) const;
        ZemRenderer::TArray<Common::String> GetCustomNodeDependencies(unsigned int index) const;

        static unsigned int GetNameId(const char* name);
    };
}
