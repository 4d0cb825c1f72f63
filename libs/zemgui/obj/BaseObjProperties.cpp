// The property table of every object and the setters behind it.
#include <cmath>
#include "zemgui/GuiAssert.h"
#include <cstring>

#include "common/system/debug/Log.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/obj/BaseObj.h"

namespace ZemGui
{
    const PropertyTable& BaseObj::GetBaseObjTable()
    {
        static const PropertyTable kTable = [] {
            PropertyTable t;
            typedef BaseObj C;
            t.Add(ZEM_PROP_UDIM2(C, "Position", UDim2(), GetPosition(), SetPosition));
            t.Add(ZEM_PROP_UDIM2(C, "Size", UDim2(1.0f, 0.0f, 1.0f, 0.0f), GetSize(), SetSize));
            t.Add(ZEM_PROP_UDIM2(C, "Anchor", UDim2(), GetAnchor(), SetAnchor));
            t.Add(ZEM_PROP_FLOAT(C, "Rotation", 0.0f, GetRotation(), SetRotation));
            t.Add(ZEM_PROP_BOOL(C, "AlignToPixel", true, GetAlignToPixel(), SetAlignToPixel));
            t.Add(ZEM_PROP_BOOL(C, "InheritOrientation", true, GetInheritOrientation(), SetInheritOrientation));
            t.Add(ZEM_PROP_BOOL(C, "InheritPosition", true, GetInheritPosition(), SetInheritPosition));
            t.Add(ZEM_PROP_BOOL(C, "InheritSize", true, GetInheritSize(), SetInheritSize));
            t.Add(ZEM_PROP_BOOL(C, "Visible", true, IsVisible(), SetVisible));
            t.Add(ZEM_PROP_BOOL(C, "Enabled", true, IsEnabled(), SetEnabled));
            t.Add(ZEM_PROP_BOOL(C, "Overlap", true, GetOverlap(), SetOverlap));
            t.Add(ZEM_PROP_BOOL(C, "Stack", false, GetStack(), SetStack));
            t.Add(ZEM_PROP_DIRECTION(C, "StackDirection", eHorizontal, GetStackDirection(), SetStackDirection));
            t.Add(ZEM_PROP_FLOAT(C, "Alpha", 1.0f, GetAlpha(), SetAlpha));
            t.Add(ZEM_PROP_BOOL(C, "InheritAlpha", true, GetInheritAlpha(), SetInheritAlpha));
            t.Add(ZEM_PROP_BOOL(C, "ClippedByParent", true, GetClippedByParent(), SetClippedByParent));
            t.Add(ZEM_PROP_BOOL(C, "InteractEnabled", false, IsInteractEnabled(), SetInteractEnabled));
            t.Add(ZEM_PROP_BOOL(C, "InteractTransparent", true, IsInteractTransparent(), SetInteractTransparent));
            t.Add(ZEM_PROP_BOOL(C, "FocusKept", false, GetFocusKept(), SetFocusKept));
            t.Add(ZEM_PROP_BOOL(C, "Focusable", false, IsFocusable(), SetFocusable));
            t.Add(ZEM_PROP_BOOL(C, "InheritFocus", false, GetInheritFocus(), SetInheritFocus));
            t.Add(ZEM_PROP_BOOL(C, "AutoRepeatPressEnabled", false, IsAutoRepeatPressEnabled(), SetAutoRepeatPressEnabled));
            t.Add(ZEM_PROP_INT(C, "AutoRepeatPressRate", 60, GetAutoRepeatPressRate(), SetAutoRepeatPressRate));
            t.Add(ZEM_PROP_INT(C, "AutoRepeatPressDelay", 300, GetAutoRepeatPressDelay(), SetAutoRepeatPressDelay));
            t.Add(ZEM_PROP_BOOL(C, "ChangePointerEnabled", false, GetChangePointerEnabled(), SetChangePointerEnabled));
            t.Add(ZEM_PROP_TEXT(C, "ChangePointerState", "", GetChangePointerState(), SetChangePointerState));
            t.Add(ZEM_PROP_TEXT(C, "TooltipText", "", GetTooltipText(), SetTooltipText));
            t.Add(ZEM_PROP_BOOL(C, "AlwaysOnTop", false, IsAlwaysOnTop(), SetAlwaysOnTop));
            t.Add(ZEM_PROP_BOOL(C, "AspectRatioPreserved", false, GetAspectRatioPreserved(), SetAspectRatioPreserved));
            t.Add(ZEM_PROP_ALIGNMENT(C, "AspectRatioStretchAlignment", eLeftTop, GetAspectRatioStretchAlignment(),
                                     SetAspectRatioStretchAlignment));
            t.Add(ZEM_PROP_DIRECTION(C, "AspectRatioStretchDirection", eHorizontal, GetAspectRatioStretchDirection(),
                                     SetAspectRatioStretchDirection));
            t.Add(ZEM_PROP_INT(C, "FocusMask", 1, GetFocusMask(), SetFocusMask));
            t.Add(ZEM_PROP_BOOL(C, "InheritState", false, GetInheritState(), SetInheritState));
            return t;
        }();
        return kTable;
    }

    // ---------------------------------------------------------------- geometry setters

    void BaseObj::SetPosition(const UDim2& value, unsigned int mode)
    {
        if (!GUI_CHECK(value.IsFinite(), "Invalid parameters")) return;
        UDim2 v = value;
        if (mode == 1)
        {
            // An absolute target in pixels: the position moves by what is missing.
            const Vec2 screen = Access::ScreenSize();
            const Vec2 cur = GetAbsPosition();
            v = m_kPosition + UDim2(0.0f, value.x.Absolute(screen.x) - cur.x, 0.0f, value.y.Absolute(screen.y) - cur.y);
            if (!v.IsFinite()) return;
        }
        if (v == m_kPosition) return;
        m_kPosition = v;
        MarkPosition();
        MarkClipping();
    }

    void BaseObj::MovePosition(const UDim2& delta, unsigned int mode)
    {
        if (!GUI_CHECK(delta.IsFinite(), "Invalid parameters")) return;
        UDim2 d = delta;
        if (mode == 1)
        {
            const Vec2 screen = Access::ScreenSize();
            d = UDim2(0.0f, delta.x.Absolute(screen.x), 0.0f, delta.y.Absolute(screen.y));
        }
        if (d.IsZero()) return;
        const UDim2 v = m_kPosition + d;
        if (!v.IsFinite()) return;
        m_kPosition = v;
        MarkPosition();
        MarkClipping();
    }

    void BaseObj::SetSize(const UDim2& value, unsigned int mode)
    {
        if (!GUI_CHECK(value.IsFinite(), "Invalid parameters")) return;
        UDim2 v = value;
        if (mode == 1)
        {
            const Vec2 screen = Access::ScreenSize();
            const Vec2 cur = GetAbsSize();
            v = m_kSize + UDim2(0.0f, value.x.Absolute(screen.x) - cur.x, 0.0f, value.y.Absolute(screen.y) - cur.y);
            if (!v.IsFinite()) return;
        }
        if (v == m_kSize) return;
        const bool wasSizedOnChildren = IsSizedOnChildren();
        m_kSize = v;
        MarkRedraw();
        MarkSize();
        MarkClipping();
        // Starting or ending to size itself changes what a child's mark must reach.
        if (wasSizedOnChildren != IsSizedOnChildren())
            for (BaseObj* c : m_vChildren) c->MarkPosition();
    }

    void BaseObj::ResizeBy(const UDim2& delta, unsigned int mode)
    {
        if (!GUI_CHECK(delta.IsFinite(), "Invalid parameters")) return;
        UDim2 d = delta;
        if (mode == 1)
        {
            const Vec2 screen = Access::ScreenSize();
            d = UDim2(0.0f, delta.x.Absolute(screen.x), 0.0f, delta.y.Absolute(screen.y));
        }
        if (d.IsZero()) return;
        SetSize(m_kSize + d, 0);
    }

    void BaseObj::SetAnchor(const UDim2& value)
    {
        if (!GUI_CHECK(value.IsFinite(), "Invalid parameters")) return;
        if (value == m_kAnchor) return;
        m_kAnchor = value;
        MarkPosition();
        MarkClipping();
    }

    namespace
    {
        float WrapDegrees(float d)
        {
            d = std::fmod(d, 360.0f);
            if (d < 0.0f) d += 360.0f;
            // -0.00001 wraps to 360 in float: that is 0.
            if (d >= 360.0f) d = 0.0f;
            return d;
        }
    }

    void BaseObj::SetRotation(float degrees)
    {
        if (!GUI_CHECK(std::isfinite(degrees), "Invalid parameters")) return;
        const float d = WrapDegrees(degrees);
        if (d == m_fRotation) return;
        m_fRotation = d;
        MarkPosition();
        MarkOrientation();
        MarkClipping();
    }

    void BaseObj::Rotate(float degrees)
    {
        if (!GUI_CHECK(std::isfinite(degrees), "Invalid parameters")) return;
        const float d = std::fmod(degrees, 360.0f);
        if (d == 0.0f) return;
        m_fRotation = WrapDegrees(m_fRotation + d);
        MarkOrientation();
        MarkClipping();
    }

    void BaseObj::EasePosition(const UDim2& target, float seconds, const EaseFunction* ease, unsigned int easeMode)
    {
        if (!GUI_CHECK(target.IsFinite(), "Invalid parameters")) return;
        m_kEasePositionUpdater.Start(seconds, m_kPosition, target, ease, easeMode);
    }

    void BaseObj::EaseSize(const UDim2& target, float seconds, const EaseFunction* ease, unsigned int easeMode)
    {
        if (!GUI_CHECK(target.IsFinite(), "Invalid parameters")) return;
        m_kEaseSizeUpdater.Start(seconds, m_kSize, target, ease, easeMode);
    }

    void BaseObj::EaseRotation(float target, float seconds, const EaseFunction* ease, unsigned int easeMode)
    {
        if (!GUI_CHECK(std::isfinite(target), "Invalid parameters")) return;
        m_kEaseRotationUpdater.Start(seconds, m_fRotation, target, ease, easeMode);
    }

    void BaseObj::EaseAlpha(float target, float seconds, const EaseFunction* ease, unsigned int easeMode)
    {
        if (!GUI_CHECK(std::isfinite(target), "Invalid parameters")) return;
        m_kEaseAlphaUpdater.Start(seconds, m_fAlpha, target, ease, easeMode);
    }

    void BaseObj::SetInheritOrientation(bool b)
    {
        if (b == m_bInheritOrientation) return;
        m_bInheritOrientation = b;
        MarkOrientation();
    }

    void BaseObj::SetInheritPosition(bool b)
    {
        if (b == m_bInheritPosition) return;
        m_bInheritPosition = b;
        MarkPosition();
        MarkClipping();
    }

    void BaseObj::SetInheritSize(bool b)
    {
        if (b == m_bInheritSize) return;
        m_bInheritSize = b;
        MarkRedraw();
        MarkSize();
        MarkClipping();
    }

    void BaseObj::SetInheritAlpha(bool b)
    {
        if (b == m_bInheritAlpha) return;
        m_bInheritAlpha = b;
        MarkAlpha();
        MarkRedraw();
    }

    void BaseObj::SetVisible(bool b)
    {
        if (b == m_pPass->bVisible) return;
        m_pPass->bVisible = b;
        if (m_pParent && m_pParent->IsSizedOnChildren()) m_pParent->MarkSize();
    }

    void BaseObj::SetEnabled(bool b)
    {
        if (b == m_bEnabled) return;
        m_bEnabled = b;
        MarkEnabled();
        RefreshState();
    }

    void BaseObj::SetOverlap(bool b)
    {
        if (b == m_bOverlap) return;
        m_bOverlap = b;
        MarkSize();
    }

    void BaseObj::SetStack(bool b)
    {
        if (b == m_bStack) return;
        m_bStack = b;
        MarkSize();
    }

    void BaseObj::SetStackDirection(Direction d)
    {
        if (d == m_eStackDirection) return;
        m_eStackDirection = d;
        MarkSize();
    }

    void BaseObj::SetAlpha(float a)
    {
        if (!GUI_CHECK(!std::isnan(a), "Invalid parameters")) return;
        a = a < 0.0f ? 0.0f : (a > 1.0f ? 1.0f : a);
        if (a == m_fAlpha) return;
        m_fAlpha = a;
        MarkAlpha();
        MarkRedraw();
    }

    void BaseObj::SetClippedByParent(bool b)
    {
        if (b == m_bClippedByParent) return;
        m_bClippedByParent = b;
        MarkClipping();
        MarkRedraw();
    }

    void BaseObj::SetInteractEnabled(bool b)
    {
        if (b == m_bInteractEnabled) return;
        m_bInteractEnabled = b;
        if (b)
        {
            m_bInteractTransparent = false;
            AddSecondUpdater(&m_kPointerUpdater);
        }
        else if (PointerManager* pm = Access::Pointers())
        {
            pm->ForgetObj(this);
        }
    }

    void BaseObj::SetInteractTransparent(bool b)
    {
        if (b == m_bInteractTransparent) return;
        m_bInteractTransparent = b;
        if (b)
        {
            if (m_bInteractEnabled)
            {
                m_bInteractEnabled = false;
                if (PointerManager* pm = Access::Pointers()) pm->ForgetObj(this);
            }
            SetFocusable(false);
            RemoveSecondUpdater(&m_kPointerUpdater);
        }
        else if (!m_bInteractEnabled)
        {
            AddSecondUpdater(&m_kPointerUpdater);
        }
    }

    void BaseObj::SetFocusable(bool b)
    {
        if (b == m_bFocusable) return;
        m_bFocusable = b;
        MarkFocusableObj();
    }

    void BaseObj::SetInheritFocus(bool b)
    {
        if (b == m_bInheritFocus) return;
        m_bInheritFocus = b;
        MarkFocused();
    }

    void BaseObj::SetAutoRepeatPressEnabled(bool b)
    {
        if (b == m_bAutoRepeatPressEnabled) return;
        m_bAutoRepeatPressEnabled = b;
        if (b)
            AddSecondUpdater(&m_kAutoRepeatPressUpdater);
        else
        {
            m_kAutoRepeatPressUpdater.Stop();
            RemoveSecondUpdater(&m_kAutoRepeatPressUpdater);
        }
    }

    void BaseObj::SetAutoRepeatPressRate(int ms) { m_uAutoRepeatPressRate = ms < 0 ? 0u : static_cast<unsigned int>(ms); }
    void BaseObj::SetAutoRepeatPressDelay(int ms) { m_uAutoRepeatPressDelay = ms < 0 ? 0u : static_cast<unsigned int>(ms); }

    void BaseObj::SetChangePointerState(const char* state)
    {
        if (!GUI_CHECK(CopyFixedText(m_szChangePointerState, state), "Invalid parameter.")) return;
    }

    void BaseObj::SetTooltipText(const char* text) { m_kTooltipText.Set(text && text[0] ? text : nullptr); }

    void BaseObj::SetAspectRatioPreserved(bool b)
    {
        if (b == m_bAspectRatioPreserved) return;
        m_bAspectRatioPreserved = b;
        MarkRedraw();
        MarkPosition();
        MarkSize();
        MarkClipping();
    }

    void BaseObj::SetAspectRatioStretchAlignment(Alignment a)
    {
        if (a == m_eAspectRatioStretchAlignment) return;
        m_eAspectRatioStretchAlignment = a;
        MarkRedraw();
        MarkPosition();
        MarkSize();
        MarkClipping();
    }

    void BaseObj::SetAspectRatioStretchDirection(Direction d)
    {
        if (d == m_eAspectRatioStretchDirection) return;
        m_eAspectRatioStretchDirection = d;
        MarkRedraw();
        MarkPosition();
        MarkSize();
        MarkClipping();
    }
}
