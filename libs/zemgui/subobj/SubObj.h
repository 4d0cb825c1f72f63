#pragma once
// What an object draws: a sub-object with named states of its own. This is the part of
// the sub-object that the object model calls; states, links, brushes and the concrete
// image, text, clock and sound classes build on it.
#include "zemgui/GuiTypes.h"
#include "zemgui/OwnedText.h"

namespace ZemGui
{
    class BaseObj;
    struct GuiShader;

    class SubObj
    {
    public:
        SubObj(BaseObj* owner, const char* name) : m_pOwner(owner), m_kName(name) {}
        virtual ~SubObj() = default;
        SubObj(const SubObj&) = delete;
        SubObj& operator=(const SubObj&) = delete;

        virtual const char* GetTypeName() const { return "SubObj"; }
        virtual void Update() = 0;
        virtual void Draw(GuiShader* shader) = 0;
        // The owner entered a state: the sub-object picks the state linked to it.
        virtual void ApplyOwnerState(const char* ownerState) = 0;
        virtual void GetMinimumSize(Vec2& out, const Vec2& availableSize) = 0;
        virtual void Invalidate() { m_bDirty = true; }
        // A deep copy of the same class and name, owned by `newOwner` (not yet added).
        virtual SubObj* Clone(BaseObj* newOwner) const = 0;

        BaseObj* GetOwner() const { return m_pOwner; }
        const char* GetName() const { return m_kName.Get(); }
        bool IsDirty() const { return m_bDirty; }

    protected:
        BaseObj* m_pOwner;
        OwnedText m_kName;
        bool m_bDirty = true;
    };
}
