// Where an object stands: measures with anchors and aspect correction, self-sizing,
// stacking, orientation, the drawing matrix and the clip rectangles.
#include <algorithm>
#include <cmath>
#include <limits>

#include "common/math/QuaternionMath.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/obj/BaseObj.h"
#include "zemgui/subobj/SubObj.h"

namespace ZemGui
{
    namespace
    {
        // Angle of a rotation about z, from its quaternion: cos and sin of the full angle.
        void AngleOf(const Math::Quaternion& q, float& c, float& s)
        {
            c = q.w * q.w - q.z * q.z;
            s = 2.0f * q.w * q.z;
        }

        // One sense of rotation everywhere: a positive angle turns the x axis towards
        // -y on a screen whose y goes down, which is counter-clockwise as seen.
        Vec2 RotateOnScreen(const Math::Quaternion& q, float x, float y)
        {
            float c, s;
            AngleOf(q, c, s);
            return Vec2(c * x + s * y, -s * x + c * y);
        }
    }

    float BaseObj::AspectFactor() const
    {
        const Vec2 inv = Access::ScreenInvSize();
        System* sys = System::GetInstance();
        const float reference = sys ? sys->GetReferenceAspect() : 1920.0f / 1080.0f;
        return (inv.x / inv.y) * reference;
    }

    UDim2 BaseObj::CorrectedPosition() const
    {
        UDim2 p = m_kPosition;
        if (!m_bAspectRatioPreserved) return p;
        const float f = AspectFactor();
        if (m_eAspectRatioStretchDirection == eHorizontal)
        {
            switch (m_eAspectRatioStretchAlignment)
            {
                case eLeftTop: p.x.scale *= f; break;
                case eMiddle: p.x.scale = 0.5f - (0.5f - p.x.scale) * f; break;
                default: p.x.scale = 1.0f - (1.0f - p.x.scale) * f; break;
            }
        }
        else
        {
            switch (m_eAspectRatioStretchAlignment)
            {
                case eLeftTop: p.y.scale /= f; break;
                case eMiddle: p.y.scale = 0.5f - (0.5f - p.y.scale) / f; break;
                default: p.y.scale = 1.0f - (1.0f - p.y.scale) / f; break;
            }
        }
        return p;
    }

    UDim2 BaseObj::CorrectedSize() const
    {
        UDim2 s = m_kSize;
        if (!m_bAspectRatioPreserved) return s;
        const float f = AspectFactor();
        if (m_eAspectRatioStretchDirection == eHorizontal)
            s.x.scale *= f;
        else
            s.y.scale /= f;
        return s;
    }

    Vec2 BaseObj::ComputeAbsPosition(const Vec2& parentSize, bool ignoreParentPosition)
    {
        const UDim2 p = CorrectedPosition();
        UDim2 final = p;
        if (m_pParent && m_bInheritPosition)
        {
            Vec2 origin;
            if (!ignoreParentPosition)
            {
                const Vec2 inv = Access::ScreenInvSize();
                const UDim2 wp = m_pParent->GetWorldPosition();
                origin = Vec2(wp.x.Relative(inv.x), wp.y.Relative(inv.y));
            }
            const float lx = p.x.scale * parentSize.x + p.x.offset;
            const float ly = p.y.scale * parentSize.y + p.y.offset;
            const Vec2 r = RotateOnScreen(m_pParent->GetWorldOrientation(), lx, ly);
            final = UDim2(origin.x, r.x, origin.y, r.y);
        }
        const Vec2 abs = GetAbsSize();
        final.x.offset -= abs.x * m_kAnchor.x.scale + m_kAnchor.x.offset;
        final.y.offset -= abs.y * m_kAnchor.y.scale + m_kAnchor.y.offset;
        const Vec2 screen = Access::ScreenSize();
        return Vec2(final.x.Absolute(screen.x), final.y.Absolute(screen.y));
    }

    void BaseObj::ComputeWorldPosition()
    {
        const Vec2 parentSize = m_pParent ? m_pParent->GetAbsSize() : Access::ScreenSize();
        const Vec2 r = ComputeAbsPosition(parentSize, false);
        m_kWorldPosition = UDim2(0.0f, r.x, 0.0f, r.y);
    }

    void BaseObj::ComputeWorldSize()
    {
        const UDim2 s = CorrectedSize();
        const Vec2 screen = Access::ScreenSize();
        const bool inherit = m_pParent && m_bInheritSize;
        if (inherit)
        {
            const Vec2 pa = m_pParent->GetAvailableSize();
            m_kAvailableSize = Vec2(std::fabs(s.x.scale) * pa.x + s.x.offset, std::fabs(s.y.scale) * pa.y + s.y.offset);
        }
        else
        {
            m_kAvailableSize = screen;
        }
        UDim2 ws = s;
        if (inherit)
        {
            const Vec2 inv = Access::ScreenInvSize();
            const UDim2 pws = m_pParent->GetWorldSize();
            ws.x.scale *= std::fabs(pws.x.Relative(inv.x));
            ws.y.scale *= std::fabs(pws.y.Relative(inv.y));
        }
        m_kWorldSize = ws;
        if (IsSizedOnChildren())
        {
            // Stacking writes the children's places even when the size is stated.
            const Vec2 c = GetChildrenSize();
            if (ws.x.scale < 0.0f)
                m_kWorldSize.x = UDim(0.0f, std::min(c.x + m_kSize.x.offset, m_kAvailableSize.x) * std::fabs(m_kSize.x.scale));
            if (ws.y.scale < 0.0f)
                m_kWorldSize.y = UDim(0.0f, std::min(c.y + m_kSize.y.offset, m_kAvailableSize.y) * std::fabs(m_kSize.y.scale));
        }
    }

    Vec2 BaseObj::GetChildrenSize()
    {
        Vec2 c;
        for (unsigned int i = 0; i < m_vChildren.GetSize(); ++i)
        {
            BaseObj* child = m_vChildren[i];
            if (!child->m_pPass->bVisible) continue;
            const Vec2 a = child->GetAbsSize();
            if (m_bStack)
            {
                const Vec2 anchor(a.x * child->m_kAnchor.x.scale + child->m_kAnchor.x.offset,
                                  a.y * child->m_kAnchor.y.scale + child->m_kAnchor.y.offset);
                UDim2 pos = child->m_kPosition;
                if (m_eStackDirection == eHorizontal)
                {
                    pos.x = UDim(0.0f, c.x + anchor.x);
                    c.x += a.x;
                    c.y = std::max(c.y, a.y);
                }
                else
                {
                    pos.y = UDim(0.0f, c.y + anchor.y);
                    c.y += a.y;
                    c.x = std::max(c.x, a.x);
                }
                child->SetPosition(pos);
            }
            else
            {
                c.x = std::max(c.x, a.x);
                c.y = std::max(c.y, a.y);
            }
        }

        if (!m_bOverlap)
        {
            const bool selfX = m_kSize.x.scale < 0.0f;
            const bool selfY = m_kSize.y.scale < 0.0f;
            const float inf = std::numeric_limits<float>::infinity();
            for (unsigned int i = 0; i < m_vChildren.GetSize(); ++i)
            {
                BaseObj* ci = m_vChildren[i];
                if (!ci->m_pPass->bVisible) continue;
                for (unsigned int j = i + 1; j < m_vChildren.GetSize(); ++j)
                {
                    BaseObj* cj = m_vChildren[j];
                    if (!cj->m_pPass->bVisible) continue;
                    const Vec2 area(selfX ? c.x : m_kAvailableSize.x, selfY ? c.y : m_kAvailableSize.y);
                    const Vec2 pi = ci->ComputeAbsPosition(area, true);
                    const Vec2 pj = cj->ComputeAbsPosition(area, true);
                    const Vec2 si = ci->GetAbsSize();
                    const Vec2 sj = cj->GetAbsSize();
                    const UDim2& a = ci->m_kPosition;
                    const UDim2& b = cj->m_kPosition;
                    const UDim2 dist(std::fabs(a.x.scale - b.x.scale), std::fabs(a.x.offset - b.x.offset),
                                     std::fabs(a.y.scale - b.y.scale), std::fabs(a.y.offset - b.y.offset));
                    Vec2 grow(inf, inf);
                    // How much the area must grow so that the scale distance pulls the two apart.
                    if (selfX && dist.x.scale > 0.001f)
                    {
                        const float ix = std::min(pi.x + si.x, pj.x + sj.x) - std::max(pi.x, pj.x);
                        if (ix > 0.0f) grow.x = (ix - dist.x.offset) / dist.x.scale;
                    }
                    if (selfY && dist.y.scale > 0.001f)
                    {
                        const float iy = std::min(pi.y + si.y, pj.y + sj.y) - std::max(pi.y, pj.y);
                        if (iy > 0.0f) grow.y = (iy - dist.y.offset) / dist.y.scale;
                    }
                    if (grow.y > grow.x && m_kAvailableSize.x > grow.x && grow.x > 0.0f)
                        c.x += grow.x;
                    else if (grow.x > grow.y && m_kAvailableSize.y > grow.y && grow.y > 0.0f)
                        c.y += grow.y;
                }
            }
        }

        for (unsigned int i = 0; i < m_vSubObjs.GetSize(); ++i)
        {
            Vec2 m;
            m_vSubObjs[i]->GetMinimumSize(m, m_kAvailableSize);
            c.x = std::max(c.x, m.x);
            c.y = std::max(c.y, m.y);
        }
        return c;
    }

    void BaseObj::ComputeWorldOrientation()
    {
        const float half = m_fRotation * 0.017453292f * 0.5f;
        m_kLocalOrientation = Math::Quaternion{0.0f, 0.0f, std::sin(half), std::cos(half)};
        if (m_pParent && m_bInheritOrientation)
            m_kWorldOrientation = Math::Multiply(m_pParent->GetWorldOrientation(), m_kLocalOrientation);
        else
            m_kWorldOrientation = m_kLocalOrientation;
    }

    void BaseObj::ComputeMatrix()
    {
        const Vec2 pos = GetAbsPosition();
        const Vec2 size = GetAbsSize();
        const Vec2 pivot(size.x * m_kAnchor.x.scale + m_kAnchor.x.offset, size.y * m_kAnchor.y.scale + m_kAnchor.y.offset);
        float c, s;
        AngleOf(GetWorldOrientation(), c, s);
        // T2 * R * T1 in closed form: R is the transpose of the usual column form (the
        // same sense as RotateOnScreen), the translation R * t1 + t2.
        const float t1x = 0.5f - pivot.x, t1y = 0.5f - pivot.y;
        const float t2x = pos.x - t1x, t2y = pos.y - t1y;
        m_kMatrix = Matrix44();
        m_kMatrix.m[0][0] = c;
        m_kMatrix.m[0][1] = s;
        m_kMatrix.m[1][0] = -s;
        m_kMatrix.m[1][1] = c;
        m_kMatrix.m[0][3] = c * t1x + s * t1y + t2x;
        m_kMatrix.m[1][3] = -s * t1x + c * t1y + t2y;
        m_kInverseMatrix = m_kMatrix.InversePlane();
    }

    int BaseObj::GetQuarterTurn()
    {
        const Math::Quaternion q = GetWorldOrientation();
        float c, s;
        AngleOf(q, c, s);
        const float eps = 1e-5f;
        if (std::fabs(s) < eps) return c > 0.0f ? 0 : 2;
        if (std::fabs(c) < eps) return s > 0.0f ? 1 : 3;
        return -1;
    }

    void BaseObj::ComputeClipping()
    {
        const GuiRect bound = (m_pParent && m_bClippedByParent) ? m_pParent->GetWorldClip() : Access::ScreenRect();
        const int turn = GetQuarterTurn();
        const Vec2 size = GetAbsSize();
        if (turn < 0)
        {
            m_kLocalClip = GuiRect(0.0f, 0.0f, size.x, size.y);
            m_kWorldClip = bound;
            return;
        }
        const Vec2 pos = GetAbsPosition();
        const Vec2 pivot(size.x * m_kAnchor.x.scale + m_kAnchor.x.offset, size.y * m_kAnchor.y.scale + m_kAnchor.y.offset);
        float px = pos.x, py = pos.y, sx = size.x, sy = size.y;
        switch (turn)
        {
            case 1:
                px = pos.x + pivot.x - pivot.y;
                py = pos.y + pivot.x + pivot.y - size.x;
                std::swap(sx, sy);
                break;
            case 2:
                px = pos.x + 2.0f * pivot.x - size.x;
                py = pos.y + 2.0f * pivot.y - size.y;
                break;
            case 3:
                px = pos.x + pivot.x + pivot.y - size.y;
                py = pos.y - pivot.x + pivot.y;
                std::swap(sx, sy);
                break;
            default: break;
        }
        m_kWorldClip = GuiRect(px, py, px + sx, py + sy).Intersect(bound);
        m_kLocalClip = m_kWorldClip.IsZero() ? GuiRect() : m_kWorldClip.Moved(-px, -py);
    }

    // ---------------------------------------------------------------- pulling getters

    Math::Quaternion BaseObj::GetWorldOrientation()
    {
        m_kOrientationUpdater.Update();
        return m_kWorldOrientation;
    }

    UDim2 BaseObj::GetWorldPosition()
    {
        m_kPositionUpdater.Update();
        return m_kWorldPosition;
    }

    UDim2 BaseObj::GetWorldSize()
    {
        m_kSizeUpdater.Update();
        return m_kWorldSize;
    }

    void BaseObj::GetAbsPosition(Vec2& out)
    {
        m_kPositionUpdater.Update();
        const Vec2 screen = Access::ScreenSize();
        out = Vec2(m_kWorldPosition.x.Absolute(screen.x), m_kWorldPosition.y.Absolute(screen.y));
        if (m_bAlignToPixel) out = Vec2(RoundToPixel(out.x), RoundToPixel(out.y));
    }

    void BaseObj::GetAbsSize(Vec2& out)
    {
        m_kSizeUpdater.Update();
        const Vec2 screen = Access::ScreenSize();
        out = Vec2(m_kWorldSize.x.Absolute(screen.x), m_kWorldSize.y.Absolute(screen.y));
        if (m_bAlignToPixel) out = Vec2(RoundToPixel(out.x), RoundToPixel(out.y));
    }

    Vec2 BaseObj::GetAbsPosition()
    {
        Vec2 v;
        GetAbsPosition(v);
        return v;
    }

    Vec2 BaseObj::GetAbsSize()
    {
        Vec2 v;
        GetAbsSize(v);
        return v;
    }

    void BaseObj::GetRelPosition(Vec2& out)
    {
        m_kPositionUpdater.Update();
        const Vec2 inv = Access::ScreenInvSize();
        out = Vec2(m_kWorldPosition.x.Relative(inv.x), m_kWorldPosition.y.Relative(inv.y));
    }

    void BaseObj::GetRelSize(Vec2& out)
    {
        m_kSizeUpdater.Update();
        const Vec2 inv = Access::ScreenInvSize();
        out = Vec2(m_kWorldSize.x.Relative(inv.x), m_kWorldSize.y.Relative(inv.y));
    }

    Vec2 BaseObj::GetAvailableSize()
    {
        m_kSizeUpdater.Update();
        return m_kAvailableSize;
    }

    const Matrix44& BaseObj::GetMatrix()
    {
        m_kMatrixUpdater.Update();
        return m_kMatrix;
    }

    const Matrix44& BaseObj::GetInverseMatrix()
    {
        m_kMatrixUpdater.Update();
        return m_kInverseMatrix;
    }

    const GuiRect& BaseObj::GetLocalClip()
    {
        m_kClippingUpdater.Update();
        return m_kLocalClip;
    }

    const GuiRect& BaseObj::GetWorldClip()
    {
        m_kClippingUpdater.Update();
        return m_kWorldClip;
    }

    float BaseObj::GetFinalAlpha()
    {
        m_kAlphaUpdater.Update();
        return m_fAlphaFinal;
    }

    bool BaseObj::IsEnabledFinal()
    {
        m_kEnabledUpdater.Update();
        return m_bEnabledFinal;
    }

    BaseObj* BaseObj::GetFocusableObj()
    {
        m_kFocusableObjUpdater.Update();
        return m_pFocusableObj;
    }

    bool BaseObj::IsFocusedFinal()
    {
        m_kFocusedUpdater.Update();
        return m_bFocusedFinal;
    }
}
