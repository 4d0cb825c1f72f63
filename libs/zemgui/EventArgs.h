#pragma once
// What an event hands its callbacks.
#include "zemgui/GuiTypes.h"

namespace ZemGui
{
    class BaseObj;
    class SubObj;
    class Pointer;

    class EventArgs
    {
    public:
        virtual ~EventArgs() = default;
    };

    class ObjEventArgs : public EventArgs
    {
    public:
        ObjEventArgs() = default;
        explicit ObjEventArgs(BaseObj* obj) : m_pObj(obj) {}
        BaseObj* m_pObj = nullptr;
    };

    class SubObjEventArgs : public EventArgs
    {
    public:
        SubObjEventArgs() = default;
        explicit SubObjEventArgs(SubObj* subObj) : m_pSubObj(subObj) {}
        SubObj* m_pSubObj = nullptr;
    };

    class PointerEventArgs : public ObjEventArgs
    {
    public:
        PointerEventArgs() = default;
        PointerEventArgs(BaseObj* obj, Pointer* pointer) : ObjEventArgs(obj), m_pPointer(pointer) {}

        Pointer* m_pPointer = nullptr;
        unsigned int m_uButton = 0;
        unsigned int m_uExtra = 0;
        bool m_bFlag = false;
        Vec2 m_kDelta;
        float m_fScroll = 0.0f;
    };
}
