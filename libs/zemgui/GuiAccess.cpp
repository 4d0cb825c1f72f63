#include "zemgui/GuiAccess.h"

namespace ZemGui::Access
{
    ObjManager* Objects()
    {
        System* s = System::GetInstance();
        return s ? s->FindObjManager() : nullptr;
    }

    PointerManager* Pointers()
    {
        System* s = System::GetInstance();
        return s ? s->FindPointerManager() : nullptr;
    }

    GuiScreen* Screen()
    {
        System* s = System::GetInstance();
        return s ? s->FindScreen() : nullptr;
    }

    Vec2 ScreenSize()
    {
        if (GuiScreen* screen = Screen()) return screen->GetSize();
        return Vec2(1920.0f, 1080.0f);
    }

    Vec2 ScreenInvSize()
    {
        if (GuiScreen* screen = Screen()) return screen->GetInvSize();
        return Vec2(1.0f / 1920.0f, 1.0f / 1080.0f);
    }

    GuiRect ScreenRect()
    {
        if (GuiScreen* screen = Screen()) return screen->GetRect();
        return GuiRect(0.0f, 0.0f, 1920.0f, 1080.0f);
    }
}
