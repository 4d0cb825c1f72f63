#include "zemengine/plugins/impl/guiprojectnode/zemguimanager/ZemGuiLink.h"

#include "common/system/debug/Log.h"

namespace Plugin::ZemGuiLink
{
    ZemGui::System* FindGuiSystem() { return nullptr; }

    bool CreateGuiSystem(void*)
    {
        Common::Log("ZemGui System cannot be created: this build has no GUI framework\n");
        return false;
    }

    bool EnsureDefaultFont() { return false; }
    ZemGui::ZemGuiProject* LoadProject(const char*) { return nullptr; }
    bool IsProjectLoaded(const ZemGui::ZemGuiProject*) { return false; }
    void GetPageNames(const ZemGui::ZemGuiProject*, NameList&) {}
    ZemGui::BaseObj* ActivatePage(ZemGui::ZemGuiProject*, const char*) { return nullptr; }
    void SetActive(ZemGui::BaseObj*, bool) {}
    void GetTreeNames(const ZemGui::BaseObj*, NameList&) {}
    ZemGui::BaseObj* FindLastByName(ZemGui::BaseObj*, const char*) { return nullptr; }
}
