#include "zemengine/plugins/PluginParam.h"

#include <atomic>

#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    namespace
    {
        std::atomic<EditorPickCallback> g_pfnEditorPick{nullptr};
    }

    EditorPickCallback GetEditorPickCallback() { return g_pfnEditorPick.load(std::memory_order_acquire); }
    void SetEditorPickCallback(EditorPickCallback callback) { g_pfnEditorPick.store(callback, std::memory_order_release); }

    PluginParam::PluginParam(IPluginManager* manager)
        : m_pPluginManager(manager), m_pMemoryManager(Common::Mem::CMemoryManager::GetInstance())
    {
        m_pBuildInfo = MEM_NEW(PluginBuildInfo, PluginBuildInfo::Current());
    }

    PluginParam::~PluginParam() { MEM_DELETE(m_pBuildInfo); }
}
