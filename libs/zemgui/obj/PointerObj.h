#pragma once
// The visible pointer: an image under the pointer root that follows a `Pointer`.
#include "zemgui/obj/WidgetClasses.h"

namespace ZemGui
{
    class Pointer;

    class PointerObj : public ImageObj
    {
    public:
        PointerObj(const char* name, BaseObj* parent, const char* look, const char* proto)
            : ImageObj(name, parent, look, proto)
        {
            SetIsPointerObj();
        }
        const char* GetTypeName() const override { return "PointerObj"; }
        void Init(const BaseObj* source) override;

        const char* GetDefaultPointerState() const { return m_szDefaultPointerState; }
        void SetDefaultPointerState(const char* state);
        Pointer* GetLinkedPointer() const { return m_pLinkedPointer; }

    private:
        friend class Pointer;
        friend class PointerManager;
        char m_szDefaultPointerState[kNameCapacity] = {};
        Pointer* m_pLinkedPointer = nullptr;
    };
}
