#include "zemgui/Look.h"
#include "zemgui/GuiAssert.h"

#include "common/system/debug/Log.h"
#include "zemgui/GuiAccess.h"

namespace ZemGui
{
    BaseObj* Look::GetProto(const char* name) const { return m_pRoot ? m_pRoot->GetChild(name) : nullptr; }

    BaseObj* Look::AddProto(const char* name, const BaseObj* source)
    {
        ObjManager* om = Access::Objects();
        if (!GUI_CHECK(om && name && source, "Invalid parameters")) return nullptr;
        if (!GUI_CHECK(GetProto(name) == nullptr, "A propotype already exists with this name.")) return nullptr;
        return om->CreateObjFromObj(name, m_pRoot, source, true);
    }

    void Look::DeleteProto(const char* name)
    {
        ObjManager* om = Access::Objects();
        BaseObj* proto = GetProto(name);
        if (om && proto) om->DeleteObj(proto);
    }
}
