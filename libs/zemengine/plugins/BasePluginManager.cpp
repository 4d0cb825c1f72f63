#include "zemengine/plugins/BasePluginManager.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fnmatch.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/filesystem/FileSystem.h"
#include "common/utils/Hash.h"

#ifndef ZEM_PLUGIN_CONFIG
#ifdef NDEBUG
#define ZEM_PLUGIN_CONFIG "Release"
#else
#define ZEM_PLUGIN_CONFIG "Debug"
#endif
#endif

namespace ZemEngine
{
    namespace
    {
        constexpr size_t kPathSize = 4096;
        // The world_editor mode (see CEngine's modes).
        constexpr int kWorldEditorMode = 4;
        constexpr const char* kPluginPattern = "PLUGIN_*_DLL_" ZEM_PLUGIN_CONFIG "_64.so";

        // Paths may come with either separator; this system uses '/'.
        void NormaliseSeparators(char* path)
        {
            for (char* p = path; *p; ++p)
                if (*p == '\\') *p = '/';
        }
    }

    BasePluginManager::BasePluginManager(CEngine* engine, DataProvider::DataPoviderInterface* dataProvider, int mode)
        : m_pEngine(engine), m_pDataProvider(dataProvider), m_iMode(mode)
    {
    }

    BasePluginManager::~BasePluginManager()
    {
        for (PluginReleaseFunction release : m_aReleaseFunctions) release(this);
        m_aReleaseFunctions.ClearAndFree();
        for (auto& pair : m_kNodes) DeletePluginObject(pair.value);
        for (PluginNode* node : m_aRetiredNodes) DeletePluginObject(node);
        for (auto& pair : m_kStepCallbacks) MEM_DELETE(pair.value);
        m_kNodes.ClearAndFree();
        m_aRetiredNodes.ClearAndFree();
        m_kStepCallbacks.ClearAndFree();
        m_kNodeBuilders.ClearAndFree();
        m_kComponentBuilders.ClearAndFree();
    }

    const char* BasePluginManager::GetConfigName() { return ZEM_PLUGIN_CONFIG; }

    bool BasePluginManager::MatchesPluginPattern(const char* fileName)
    {
        return fileName && fnmatch(kPluginPattern, fileName, 0) == 0;
    }

    // ---- loading ----------------------------------------------------------------------

    bool BasePluginManager::LoadPlugins(const char* root)
    {
        const char* const base = root ? root : "";
        // A relative root is looked for beside the program first, so that the engine finds
        // its plugins wherever it is started from, then in the working directory.
        char programFolder[kPathSize];
        const bool relative = base[0] != '/' && base[0] != '\\';
        const bool besideProgram = relative && Common::CFileSystem::GetProgramDirectory(programFolder, sizeof(programFolder));

        char folder[kPathSize];
        DIR* dir = nullptr;
        for (int attempt = besideProgram ? 0 : 1; attempt < 2 && !dir; ++attempt)
        {
            const int n = attempt == 0 ? std::snprintf(folder, sizeof(folder), "%s/%sPlugins", programFolder, base)
                                       : std::snprintf(folder, sizeof(folder), "%sPlugins", base);
            if (!ZEM_ASSERT(n > 0 && static_cast<size_t>(n) < sizeof(folder), "Plugin folder path too long")) continue;
            NormaliseSeparators(folder);
            Common::Log("%s\n", folder);
            dir = opendir(folder);
            if (!dir)
            {
                const int error = errno;
                Common::Log("Cannot open plugin folder %s : %s\n", folder, std::strerror(error));
            }
        }
        if (!dir) return false;
        // Names first: a plugin's start must not disturb the walk.
        ZemRenderer::TArray<Common::String> names;
        while (const dirent* entry = readdir(dir))
            if (MatchesPluginPattern(entry->d_name)) names.Add(Common::String(entry->d_name));
        closedir(dir);

        bool anyLoaded = false;
        for (const Common::String& name : names)
        {
            const bool ok = LoadPlugin(folder, name.c_str());
            Common::Log("plugin %s/%s loading : %s\n", folder, name.c_str(), ok ? "Ok" : "Failed");
            anyLoaded |= ok;
        }
        return anyLoaded;
    }

    bool BasePluginManager::LoadPlugin(const char* folder, const char* fileName)
    {
        char path[kPathSize];
        const int n = std::snprintf(path, sizeof(path), "%s/%s", folder ? folder : ".", fileName ? fileName : "");
        if (!ZEM_ASSERT(n > 0 && static_cast<size_t>(n) < sizeof(path), "Plugin path too long")) return false;
        NormaliseSeparators(path);

        errno = 0;
        // Local symbols: the library keeps its own copy of every engine static.
        void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
        if (!library)
        {
            const long error = errno;
            const char* reason = dlerror();
            Common::Log("Error %ld loading %s\n", error, path);
            if (reason) Common::Log("%s\n", reason);
            return false;
        }
        // Libraries stay loaded even when they refuse: nothing they did can be undone.
        auto init = reinterpret_cast<PluginInitFunction>(dlsym(library, kPluginInitName));
        auto release = reinterpret_cast<PluginReleaseFunction>(dlsym(library, kPluginReleaseName));
        return InitLoaded(init, release, path);
    }

    bool BasePluginManager::LoadStaticPlugin(PluginInitFunction init, PluginReleaseFunction release)
    {
        if (!init || !release) return false;
        return InitLoaded(init, release, "(static)");
    }

    bool BasePluginManager::InitLoaded(PluginInitFunction init, PluginReleaseFunction release, const char* name)
    {
        if (!init)
        {
            Common::Log("Unable to init plugin %s\n", name);
            return false;
        }
        PluginParam param(this);
        param.m_pEngine = m_pEngine;
        param.m_pDataProvider = m_pDataProvider;
        if (m_iMode == kWorldEditorMode) param.m_pfnEditorPick = GetEditorPickCallback();
        if (!init(&param))
        {
            Common::Log("Unable to init plugin %s\n", name);
            return false;
        }
        if (release) m_aReleaseFunctions.Add(release);
        return true;
    }

    // ---- node builders --------------------------------------------------------------------

    void BasePluginManager::RegisterNodeBuilder(PluginBuilder* builder)
    {
        if (!ZEM_ASSERT(builder != nullptr && builder->GetDesc() != nullptr, "Plugin builder without description"))
            return;
        const unsigned int id = GetNameId(builder->GetDesc()->m_kHeader.m_szName);
        m_kNodeBuilders.Insert(id, builder);
        PluginNode* node = builder->BuildNode();
        PluginNode* old = m_kNodes.Find(id);
        if (old && old != node) RetireNode(old);
        m_kNodes.Insert(id, node);
    }

    void BasePluginManager::RetireNode(PluginNode* node)
    {
        if (!m_aRetiredNodes.Contains(node)) m_aRetiredNodes.Add(node);
    }

    void BasePluginManager::UnregisterNodeBuilder(const CustomNodeDesc* desc)
    {
        if (!desc) return;
        const unsigned int id = GetNameId(desc->m_kHeader.m_szName);
        m_kNodeBuilders.Remove(id);
        const unsigned int index = m_kNodes.FindIndex(id);
        if (index == m_kNodes.npos) return;
        PluginNode* node = m_kNodes.GetValueAt(index);
        if (node) DeletePluginObject(node);
        m_kNodes.GetValueAt(index) = nullptr;
        m_kNodes.RemoveAt(index);
    }

    PluginBuilder* BasePluginManager::GetNodeBuilderAt(unsigned int index) const
    {
        return index < m_kNodeBuilders.GetSize() ? m_kNodeBuilders.GetValueAt(index) : nullptr;
    }

    PluginNode* BasePluginManager::GetPluginNode(const char* name) { return m_kNodes.Find(GetNameId(name)); }

    void* BasePluginManager::BuildNodeData(const char* name, const Json::Value& json, Collection* collection,
                                           ZemAnim::TransitionEngine* transitionEngine)
    {
        PluginBuilder* builder = m_kNodeBuilders.Find(GetNameId(name));
        return builder ? builder->BuildNodeData(json, collection, transitionEngine) : nullptr;
    }

    void BasePluginManager::ReleaseNodeData(const char* name, void* data)
    {
        if (!data) return;
        PluginBuilder* builder = m_kNodeBuilders.Find(GetNameId(name));
        if (!ZEM_ASSERT(builder != nullptr, "No plugin builder to release node data of %s", name ? name : "(null)"))
            return;
        builder->ReleaseNodeData(data);
    }

    // ---- component builders ---------------------------------------------------------------

    void BasePluginManager::RegisterComponentBuilder(PluginComponentBuilder* builder)
    {
        if (!ZEM_ASSERT(builder != nullptr, "Plugin component builder is null")) return;
        m_kComponentBuilders.Insert(builder->GetDesc().m_uId, builder);
    }

    void BasePluginManager::UnregisterComponentBuilder(unsigned int id) { m_kComponentBuilders.Remove(id); }

    void BasePluginManager::ForwardResize(void* world, unsigned int width, unsigned int height)
    {
        for (auto& pair : m_kComponentBuilders)
            if (pair.value) pair.value->OnResize(world, width, height);
    }

    PluginComponent* BasePluginManager::BuildComponent(unsigned int id, void* arg0, void* arg1, void* arg2)
    {
        PluginComponentBuilder* builder = m_kComponentBuilders.Find(id);
        return builder ? builder->Build(arg0, arg1, arg2) : nullptr;
    }

    PluginComponent* BasePluginManager::BuildComponentByName(const char* name, void* arg0, void* arg1, void* arg2)
    {
        return BuildComponent(GetNameId(name), arg0, arg1, arg2);
    }

    bool BasePluginManager::LoadComponents(const char* name, const Json::Value& description, void* context1,
                                           void* context2)
    {
        const unsigned int id = GetNameId(name);
        for (auto& pair : m_kComponentBuilders)
        {
            if (pair.key != id) continue;
            PluginComponentBuilder* builder = pair.value;
            if (!ZEM_ASSERT(builder != nullptr, "Couldn't find plugin component builder")) continue;
            const Json::Value* json = Json::FindMember(description, "Json");
            const Json::Value* type = Json::FindMember(description, "Type");
            if (!json || !json->IsString() || !type || !type->IsString()) continue;
            if (std::strcmp(builder->GetDesc().m_szTypeName, type->GetString()) != 0) continue;
            Json::Document document;
            document.Parse<Json::kParseFlags>(json->GetString(), json->GetStringLength());
            if (!ZEM_ASSERT(!document.HasParseError(), "Could not parse JSON file")) continue;
            builder->BuildFromJson(document, context1, context2);
        }
        return true;
    }

    void BasePluginManager::ReleaseComponentByName(const char* name, PluginComponent* component)
    {
        ReleaseComponent(GetNameId(name), component);
    }

    void BasePluginManager::ReleaseComponent(unsigned int id, PluginComponent* component)
    {
        PluginComponentBuilder* builder = m_kComponentBuilders.Find(id);
        if (builder) builder->Release(component);
    }

    // ---- step callbacks ---------------------------------------------------------------------

    void BasePluginManager::RegisterStepCallback(const char* stepName, PluginStepCallback callback)
    {
        if (!ZEM_ASSERT(callback != nullptr, "Step callback is null")) return;
        const unsigned int id = GetNameId(stepName);
        StepCallbacks* callbacks = m_kStepCallbacks.Find(id);
        if (!callbacks)
        {
            callbacks = MEM_NEW(StepCallbacks);
            if (!callbacks) return;
            m_kStepCallbacks.Insert(id, callbacks);
        }
        callbacks->Add(callback);
    }

    void BasePluginManager::UnregisterStepCallback(const char* stepName, PluginStepCallback callback)
    {
        const unsigned int id = GetNameId(stepName);
        StepCallbacks* callbacks = m_kStepCallbacks.Find(id);
        if (!callbacks) return;
        callbacks->RemoveValue(callback);
        if (!callbacks->IsEmpty()) return;
        MEM_DELETE(callbacks);
        m_kStepCallbacks.Remove(id);
    }

    void BasePluginManager::RunStepCallbacks(const char* stepName, void* context)
    {
        const StepCallbacks* callbacks = m_kStepCallbacks.Find(GetNameId(stepName));
        if (!callbacks) return;
        // A copy: a callback may register or unregister steps.
        const StepCallbacks run(*callbacks);
        for (PluginStepCallback callback : run) callback(context);
    }

    const BasePluginManager::StepCallbacks* BasePluginManager::GetStepCallbacks(const char* stepName) const
    {
        return m_kStepCallbacks.Find(GetNameId(stepName));
    }
}
