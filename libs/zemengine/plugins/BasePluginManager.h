#pragma once
// Finds the plugin libraries of this build, calls their entry points and keeps the
// tables. Libraries are loaded with their own symbols (RTLD_LOCAL) and never unloaded:
// code and commands that a plugin registered stay valid for the life of the process.
#include "common/utils/TArray.h"
#include "common/utils/TMap.h"
#include "zemengine/plugins/IPluginManager.h"

namespace ZemEngine
{
    class BasePluginManager : public IPluginManager
    {
    public:
        typedef ZemRenderer::TArray<PluginStepCallback> StepCallbacks;

        // The engine, data provider and mode are what each plugin is told at its load:
        // `mode` 4 (world_editor) hands over the editor pick callback.
        explicit BasePluginManager(CEngine* engine = nullptr, DataProvider::DataPoviderInterface* dataProvider = nullptr,
                                   int mode = 0);
        // Calls each ReleasePlugin in load order, then frees the nodes and step lists.
        ~BasePluginManager() override;

        void ForwardResize(void* world, unsigned int width, unsigned int height) override;
        void RunStepCallbacks(const char* stepName, void* context) override;
        bool LoadPlugins(const char* root) override;
        bool LoadStaticPlugin(PluginInitFunction init, PluginReleaseFunction release) override;

        void RegisterNodeBuilder(PluginBuilder* builder) override;
        void UnregisterNodeBuilder(const CustomNodeDesc* desc) override;
        void RegisterComponentBuilder(PluginComponentBuilder* builder) override;
        void UnregisterComponentBuilder(unsigned int id) override;

        PluginNode* GetPluginNode(const char* name) override;
        void* BuildNodeData(const char* name, const Json::Value& json, Collection* collection,
                            ZemAnim::TransitionEngine* transitionEngine) override;
        void ReleaseNodeData(const char* name, void* data) override;

        PluginComponent* BuildComponent(unsigned int id, void* arg0, void* arg1, void* arg2) override;
        PluginComponent* BuildComponentByName(const char* name, void* arg0, void* arg1, void* arg2) override;
        bool LoadComponents(const char* name, const Json::Value& description, void* context1, void* context2) override;
        void ReleaseComponentByName(const char* name, PluginComponent* component) override;
        void ReleaseComponent(unsigned int id, PluginComponent* component) override;

        void RegisterStepCallback(const char* stepName, PluginStepCallback callback) override;
        void UnregisterStepCallback(const char* stepName, PluginStepCallback callback) override;

        unsigned int GetNodeBuilderCount() const override { return m_kNodeBuilders.GetSize(); }
        PluginBuilder* GetNodeBuilderAt(unsigned int index) const override;

        // Loads one library: "<folder>/<fileName>". True if its InitPlugin accepted.
        bool LoadPlugin(const char* folder, const char* fileName);

        // "PLUGIN_*_DLL_<Debug|Release>_64.so": the libraries of this build.
        static const char* GetConfigName();
        static bool MatchesPluginPattern(const char* fileName);

        unsigned int GetLoadedCount() const { return m_aReleaseFunctions.GetSize(); }
        const StepCallbacks* GetStepCallbacks(const char* stepName) const;
        void SetEngine(CEngine* engine) { m_pEngine = engine; }
        void SetDataProvider(DataProvider::DataPoviderInterface* dataProvider) { m_pDataProvider = dataProvider; }
        void SetMode(int mode) { m_iMode = mode; }

    private:
        bool InitLoaded(PluginInitFunction init, PluginReleaseFunction release, const char* name);
        void RetireNode(PluginNode* node);

        ZemRenderer::TMap<unsigned int, PluginBuilder*> m_kNodeBuilders;
        ZemRenderer::TMap<unsigned int, PluginNode*> m_kNodes;
        ZemRenderer::TMap<unsigned int, PluginComponentBuilder*> m_kComponentBuilders;
        ZemRenderer::TMap<unsigned int, StepCallbacks*> m_kStepCallbacks;
        ZemRenderer::TArray<PluginReleaseFunction> m_aReleaseFunctions;
        // Nodes replaced by a later builder of the same Name: someone may still hold one,
        // so they live until the manager goes.
        ZemRenderer::TArray<PluginNode*> m_aRetiredNodes;
        CEngine* m_pEngine = nullptr;
        DataProvider::DataPoviderInterface* m_pDataProvider = nullptr;
        int m_iMode = 0;
    };
}
