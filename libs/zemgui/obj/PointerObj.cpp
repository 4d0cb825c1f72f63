#include "zemgui/obj/PointerObj.h"
#include "zemgui/GuiAssert.h"

#include "common/system/debug/Log.h"

namespace ZemGui
{
    void PointerObj::Init(const BaseObj* source)
    {
        if (const PointerObj* p = dynamic_cast<const PointerObj*>(source))
            CopyFixedText(m_szDefaultPointerState, p->m_szDefaultPointerState);
        ImageObj::Init(source);
    }

    void PointerObj::SetDefaultPointerState(const char* state)
    {
        if (!GUI_CHECK(CopyFixedText(m_szDefaultPointerState, state), "Invalid parameter.")) return;
    }
}
