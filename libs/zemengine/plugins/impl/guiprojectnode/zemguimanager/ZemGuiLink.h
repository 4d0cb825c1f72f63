#pragma once
// The plugin's calls into the GUI framework and its project manager. The GUI framework
// is not part of this build: no GUI system can be published, so FindGuiSystem finds
// none, no project is ever loaded, and the operations on projects and objects below
// are never reached with a live object. They answer as for an absent one.
#include "common/utils/String.h"
#include "common/utils/TArray.h"

namespace ZemGui
{
    class System;
    class BaseObj;
    class ZemGuiProject;
}

namespace Plugin::ZemGuiLink
{
    typedef ZemRenderer::TArray<Common::String> NameList;

    // The GUI system published in the engine's instance table, or null.
    ZemGui::System* FindGuiSystem();
    // Brings up the GUI system and the project manager for the engine (once); false
    // when that cannot be done.
    bool CreateGuiSystem(void* renderFlow);

    // Loads the font "arial_32" if the font manager lacks it; false on failure.
    bool EnsureDefaultFont();
    // The project of that file, loaded or on its way; null when it cannot be had.
    ZemGui::ZemGuiProject* LoadProject(const char* fileName);
    bool IsProjectLoaded(const ZemGui::ZemGuiProject* project);
    // Page names in the order of the project's page map.
    void GetPageNames(const ZemGui::ZemGuiProject* project, NameList& out);
    // A fresh clone of the page under the object manager's root, or null.
    ZemGui::BaseObj* ActivatePage(ZemGui::ZemGuiProject* project, const char* pageName);
    void SetActive(ZemGui::BaseObj* object, bool active);
    // The names of `root` and its descendants, parent first, children in stored order.
    void GetTreeNames(const ZemGui::BaseObj* root, NameList& out);
    // The last object of that name met by the same walk, or null.
    ZemGui::BaseObj* FindLastByName(ZemGui::BaseObj* root, const char* name);
}
