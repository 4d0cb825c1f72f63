#include "zemgui/updaters/ObjUpdaters.h"
#include "zemgui/GuiAssert.h"

#include "zemgui/GuiAccess.h"
#include "zemgui/obj/BaseObj.h"
#include "zemgui/subobj/SubObj.h"
#include "zemgui/updaters/AutoRepeatPressUpdater.h"
#include "zemgui/updaters/EaseValueUpdater.h"

namespace ZemGui
{
    // The owner is going too: its count of dirty updaters no longer matters.
    ObjUpdater::~ObjUpdater() = default;

    bool ObjUpdater::SetDirty()
    {
        if (m_bDirty) return false;
        m_bDirty = true;
        ++m_pOwner->m_pPass->uDirtyUpdaters;
        m_pOwner->m_pPass->uDirtyBits |= m_uHeaderBit;
        return true;
    }

    bool ObjUpdater::TakeDirty()
    {
        if (!m_bDirty) return false;
        m_bDirty = false;
        --m_pOwner->m_pPass->uDirtyUpdaters;
        m_pOwner->m_pPass->uDirtyBits &= ~m_uHeaderBit;
        return true;
    }

    // ---------------------------------------------------------------- the flags

    void RedrawUpdater::Update()
    {
        if (!TakeDirty()) return;
        for (SubObj* s : m_pOwner->m_vSubObjs) s->Invalidate();
    }

    void PositionUpdater::Update()
    {
        if (TakeDirty()) m_pOwner->ComputeWorldPosition();
    }

    void PositionUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren)
            if (c->m_bInheritPosition) c->MarkPosition();
    }

    void SizeUpdater::Update()
    {
        BaseObj* parent = m_pOwner->m_pParent;
        if (parent && parent->IsSizedOnChildren()) parent->m_kSizeUpdater.Update();
        if (TakeDirty()) m_pOwner->ComputeWorldSize();
    }

    void SizeUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren)
        {
            if (c->m_bInheritPosition) c->MarkPosition();
            if (c->m_bInheritSize)
            {
                c->MarkSize();
                c->MarkRedraw();
            }
        }
    }

    void OrientationUpdater::Update()
    {
        if (TakeDirty()) m_pOwner->ComputeWorldOrientation();
    }

    void OrientationUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren)
        {
            if (c->m_bInheritPosition) c->MarkPosition();
            if (c->m_bInheritOrientation) c->MarkOrientation();
        }
    }

    void ClippingUpdater::Update()
    {
        if (TakeDirty()) m_pOwner->ComputeClipping();
    }

    void ClippingUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren) c->MarkClipping();
    }

    void EnabledUpdater::Update()
    {
        if (!TakeDirty()) return;
        BaseObj* o = m_pOwner;
        o->m_bEnabledFinal = o->m_bEnabled && (!o->m_pParent || o->m_pParent->IsEnabledFinal());
    }

    void EnabledUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (unsigned int i = 0; i < m_pOwner->m_vChildren.GetSize(); ++i)
        {
            BaseObj* c = m_pOwner->m_vChildren[i];
            c->MarkEnabled();
            c->RefreshState();
        }
    }

    void AlphaUpdater::Update()
    {
        if (!TakeDirty()) return;
        BaseObj* o = m_pOwner;
        const float inherited = (o->m_bInheritAlpha && o->m_pParent) ? o->m_pParent->GetFinalAlpha() : 1.0f;
        o->m_fAlphaFinal = o->m_fAlpha * inherited;
    }

    void AlphaUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren)
            if (c->m_bInheritAlpha)
            {
                c->MarkAlpha();
                c->MarkRedraw();
            }
    }

    void FocusableObjUpdater::Update()
    {
        if (!TakeDirty()) return;
        BaseObj* o = m_pOwner;
        o->m_pFocusableObj = o->m_bFocusable ? o : (o->m_pParent ? o->m_pParent->GetFocusableObj() : nullptr);
    }

    void FocusableObjUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (BaseObj* c : m_pOwner->m_vChildren)
            if (!c->m_bFocusable) c->MarkFocusableObj();
    }

    void FocusedUpdater::Update()
    {
        if (!TakeDirty()) return;
        BaseObj* o = m_pOwner;
        o->m_bFocusedFinal = o->m_bFocused || (o->m_bInheritFocus && o->m_pParent && o->m_pParent->IsFocusedFinal());
    }

    void FocusedUpdater::MarkDirty()
    {
        if (!SetDirty()) return;
        for (unsigned int i = 0; i < m_pOwner->m_vChildren.GetSize(); ++i)
        {
            BaseObj* c = m_pOwner->m_vChildren[i];
            if (!c->m_bInheritFocus) continue;
            c->MarkFocused();
            c->RefreshState();
        }
    }

    void StateUpdater::Update()
    {
        if (!TakeDirty()) return;
        for (unsigned int i = 0; i < m_pOwner->m_vSubObjs.GetSize(); ++i)
            m_pOwner->m_vSubObjs[i]->ApplyOwnerState(m_pOwner->m_szCurrentState);
    }

    // ---------------------------------------------------------------- sub-object updates

    void SubObjUpdater::Queue(SubObj* subObj)
    {
        if (!subObj) return;
        for (SubObj* s : m_aQueue)
            if (s == subObj) return;
        if (!GUI_CHECK(m_aQueue.GetSize() < kMaxSubObjs, "Invalid parameters")) return;
        m_aQueue.Add(subObj);
        SetDirty();
    }

    void SubObjUpdater::Forget(SubObj* subObj)
    {
        for (unsigned int i = 0; i < m_aQueue.GetSize(); ++i)
            if (m_aQueue[i] == subObj)
            {
                m_aQueue.Remove(i);
                break;
            }
        if (m_aQueue.IsEmpty()) TakeDirty();
    }

    void SubObjUpdater::Update()
    {
        if (!m_bDirty) return;
        // Each queued sub-object once; one that queues itself again waits for the next pass.
        ZemRenderer::TArray<SubObj*> run;
        run.Reserve(m_aQueue.GetSize());
        for (SubObj* s : m_aQueue) run.Add(s);
        m_aQueue.Clear();
        TakeDirty();
        for (unsigned int i = 0; i < run.GetSize(); ++i)
        {
            // A sub-object removed by an earlier one's update is no longer the owner's.
            bool present = false;
            for (SubObj* s : m_pOwner->m_vSubObjs) present = present || s == run[i];
            if (present) run[i]->Update();
        }
    }

    // ---------------------------------------------------------------- pointer test

    void PointerUpdater::Update()
    {
        PointerManager* pm = Access::Pointers();
        System* sys = System::GetInstance();
        if (!pm || !sys || !m_pOwner->IsVisible() || pm->GetPointersToTestCount() == 0) return;
        Pointer* copy[PointerManager::kMaxPointers];
        unsigned int n = 0;
        for (unsigned int i = 0; i < pm->GetPointersToTestCount() && n < PointerManager::kMaxPointers; ++i)
            copy[n++] = pm->GetPointerToTestAt(i);
        const bool inDraw = sys->IsInDraw();
        for (unsigned int i = 0; i < n; ++i)
        {
            Pointer* p = copy[i];
            if (!pm->HasPointer(p) || m_pOwner->IsPendingDelete()) continue;
            if (inDraw && m_pOwner == pm->GetInteractRoot())
            {
                // The interaction root stands for nothing under the pointer.
                p->SetPointed(nullptr);
                continue;
            }
            const Vec2 at = p->GetPositionF();
            bool inside;
            if (m_pOwner->GetQuarterTurn() >= 0)
                inside = m_pOwner->GetWorldClip().Contains(at.x, at.y);
            else
            {
                const Vec2 local = m_pOwner->GetInverseMatrix().TransformPoint(at.x, at.y);
                inside = m_pOwner->GetLocalClip().Contains(local.x, local.y);
            }
            if (inside && inDraw) p->SetPointed(m_pOwner);
        }
    }

    // ---------------------------------------------------------------- auto repeat

    AutoRepeatPressUpdater::~AutoRepeatPressUpdater() { SetActive(false); }

    void AutoRepeatPressUpdater::SetActive(bool active)
    {
        if (active == m_bActive) return;
        m_bActive = active;
        // The pass walks the pointer side while a repeat runs, pointers or not.
        if (ObjManager* om = Access::Objects())
        {
            if (active)
                om->AddFrameActive();
            else
                om->RemoveFrameActive();
        }
    }

    void AutoRepeatPressUpdater::Start(const PointerEventArgs& args)
    {
        if (m_bActive && m_kArgs.m_uButton == args.m_uButton && m_kArgs.m_uExtra == args.m_uExtra &&
            m_kArgs.m_pPointer == args.m_pPointer)
            return;
        m_kArgs = args;
        SetActive(true);
        m_bRepeating = false;
        m_uElapsed = 0;
    }

    void AutoRepeatPressUpdater::Stop() { SetActive(false); }
    void AutoRepeatPressUpdater::Resume() { SetActive(true); }

    void AutoRepeatPressUpdater::ForgetPointer(const Pointer* pointer)
    {
        if (m_kArgs.m_pPointer == pointer)
        {
            m_kArgs.m_pPointer = nullptr;
            Stop();
        }
    }

    void AutoRepeatPressUpdater::Update()
    {
        if (!m_bActive) return;
        GuiScreen* screen = Access::Screen();
        m_uElapsed += screen ? screen->GetFrameTimeMs() : 0u;
        const unsigned int rate = static_cast<unsigned int>(m_pOwner->GetAutoRepeatPressRate());
        const unsigned int delay = static_cast<unsigned int>(m_pOwner->GetAutoRepeatPressDelay());
        bool fire = false;
        if (m_bRepeating)
        {
            if (m_uElapsed >= rate)
            {
                m_uElapsed -= rate;
                fire = true;
            }
        }
        else if (m_uElapsed >= delay)
        {
            m_uElapsed = 0;
            m_bRepeating = true;
            fire = true;
        }
        if (!fire) return;
        PointerManager* pm = Access::Pointers();
        if (m_kArgs.m_pPointer && (!pm || !pm->HasPointer(m_kArgs.m_pPointer)))
        {
            Stop();
            return;
        }
        PointerEventArgs args = m_kArgs;
        m_pOwner->OnButtonPressed(args);
    }

    // ---------------------------------------------------------------- ease setters

    void PositionSetter::Apply(BaseObj* owner, const Value& v) { owner->SetPosition(v); }
    void SizeSetter::Apply(BaseObj* owner, const Value& v) { owner->SetSize(v); }
    void AlphaSetter::Apply(BaseObj* owner, const Value& v) { owner->SetAlpha(v); }
    void RotationSetter::Apply(BaseObj* owner, const Value& v) { owner->SetRotation(v); }

    float GetEaseFrameSeconds()
    {
        GuiScreen* screen = Access::Screen();
        return screen ? 0.001f * static_cast<float>(screen->GetFrameTimeMs()) : 0.0f;
    }

    void NotifyEaseEnded(BaseObj* owner)
    {
        ObjEventArgs args(owner);
        owner->OnEndEase(args);
    }
}
