#pragma once
// Internal: the current system's parts, null-safe, for code that may run while the system
// is being built or taken down.
#include "zemgui/GuiScreen.h"
#include "zemgui/ObjManager.h"
#include "zemgui/PointerManager.h"
#include "zemgui/System.h"

namespace ZemGui::Access
{
    ObjManager* Objects();
    PointerManager* Pointers();
    GuiScreen* Screen();
    // Screen size and its reciprocal; the reference size while no screen exists.
    Vec2 ScreenSize();
    Vec2 ScreenInvSize();
    GuiRect ScreenRect();
}
