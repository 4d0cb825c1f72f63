#pragma once
// What a host hands to a plugin library. The library carries its own copy of the engine
// code, so every static in it starts empty; InitPlugin points them at the host's objects
// given here.
#include <cstdint>

namespace Common::Mem
{
    class CMemoryManager;
}
namespace DataProvider
{
    class DataPoviderInterface;
}

namespace ZemEngine
{
    class CEngine;
    class IPluginManager;

    // The per-object pick colour callback of the world editor: the colour that the pick
    // pass writes for an object.
    typedef unsigned int (*EditorPickCallback)(const void* object);

    // This library's pick callback slot. The host fills it in world_editor mode; a plugin
    // copies the host's value into its own slot.
    EditorPickCallback GetEditorPickCallback();
    void SetEditorPickCallback(EditorPickCallback callback);

    // Host and plugin must agree on all three or the plugin refuses to start.
    struct PluginBuildInfo
    {
        uint8_t m_uFlavour = 0;  // 1: debug build
        uint64_t m_uPointerSize = 0;
        uint64_t m_uCompilerVersion = 0;

        bool operator==(const PluginBuildInfo& other) const
        {
            return m_uFlavour == other.m_uFlavour && m_uPointerSize == other.m_uPointerSize &&
                   m_uCompilerVersion == other.m_uCompilerVersion;
        }
        bool operator!=(const PluginBuildInfo& other) const { return !(*this == other); }

        // The record of the code that is compiling this.
        static constexpr PluginBuildInfo Current()
        {
            PluginBuildInfo info;
#ifdef NDEBUG
            info.m_uFlavour = 0;
#else
            info.m_uFlavour = 1;
#endif
            info.m_uPointerSize = sizeof(void*);
            info.m_uCompilerVersion = static_cast<uint64_t>(__GNUC__) * 100 + __GNUC_MINOR__;
            return info;
        }
    };

    // Made on the stack for one library load and freed after it.
    struct PluginParam
    {
        IPluginManager* m_pPluginManager = nullptr;
        Common::Mem::CMemoryManager* m_pMemoryManager = nullptr;
        CEngine* m_pEngine = nullptr;
        DataProvider::DataPoviderInterface* m_pDataProvider = nullptr;
        // Heap copy of the host's record, freed with the param.
        PluginBuildInfo* m_pBuildInfo = nullptr;
        // Set only in world_editor mode.
        EditorPickCallback m_pfnEditorPick = nullptr;

        PluginParam() = default;
        // Fills the memory manager and a heap copy of this build's record.
        explicit PluginParam(IPluginManager* manager);
        ~PluginParam();
        PluginParam(const PluginParam&) = delete;
        PluginParam& operator=(const PluginParam&) = delete;
    };

    // The two exports of a plugin library, found by these names.
    typedef bool (*PluginInitFunction)(PluginParam* param);
    typedef bool (*PluginReleaseFunction)(IPluginManager* manager);
    constexpr const char* kPluginInitName = "InitPlugin";
    constexpr const char* kPluginReleaseName = "ReleasePlugin";
}
