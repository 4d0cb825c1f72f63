#include "zemgui/PointerManager.h"
#include "zemgui/GuiAssert.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/obj/PointerObj.h"

namespace ZemGui
{
    namespace
    {
        // Every pointer operation runs with deletion locked: a handler may delete any
        // object, and none is destroyed before the operation has stopped using it. At the
        // end no field may keep an object that was deleted meanwhile.
        // A pointer deleted by a handler is kept until its operations are over.
        class PointerScope
        {
        public:
            explicit PointerScope(Pointer* pointer) : m_pManager(pointer->GetManager()), m_pObjects(Access::Objects())
            {
                if (m_pObjects) m_pObjects->LockDeletion(true);
                m_pManager->EnterOperation();
            }
            ~PointerScope()
            {
                m_pManager->LeaveOperation();
                if (!m_pObjects) return;
                m_pObjects->LockDeletion(false);
                if (!m_pObjects->IsDeletionLocked()) m_pObjects->FlushDeletions(nullptr);
            }

        private:
            PointerManager* m_pManager;
            ObjManager* m_pObjects;
        };

        bool IsGone(const BaseObj* obj) { return obj && obj->IsPendingDelete(); }
    }

    // ---------------------------------------------------------------- Pointer

    PointerEventArgs Pointer::MakeArgs(BaseObj* obj)
    {
        PointerEventArgs args(obj, this);
        args.m_uButton = m_uHeldButton;
        args.m_uExtra = m_uHeldExtra;
        return args;
    }

    void Pointer::SetPointed(BaseObj* obj)
    {
        PointerScope scope(this);
        if (IsGone(obj)) obj = nullptr;
        if (obj != m_pPointed)
        {
            BaseObj* old = m_pPointed;
            PointerEventArgs leave = MakeArgs(old);
            m_pOwner->Deliver(old, &BaseObj::OnPointerLeft, leave);
            if (!IsGone(obj))
            {
                PointerEventArgs enter = MakeArgs(obj);
                m_pOwner->Deliver(obj, &BaseObj::OnPointerEntered, enter);
            }
            // Deleted meanwhile: it was forgotten then, and is not taken back now.
            m_pPointed = IsGone(obj) ? nullptr : obj;
        }
        m_pOwner->RemovePointerToTest(this);
    }

    void Pointer::SetFocused(BaseObj* obj)
    {
        if (obj && (!obj->IsEnabledFinal() || IsGone(obj))) return;
        PointerScope scope(this);
        BaseObj* next = obj ? obj->GetFocusableObj() : nullptr;
        if (IsGone(next)) next = nullptr;
        PointerEventArgs args = MakeArgs(next);
        if (m_pFocused && m_pFocused != next)
        {
            BaseObj* old = m_pFocused;
            m_pFocused = nullptr;
            old->OnFocusLost(args);
        }
        if (IsGone(next)) next = nullptr;
        m_pFocused = next;
        if (next)
        {
            next->OnFocusGot(args);
            if (IsGone(m_pFocused)) m_pFocused = nullptr;
        }
    }

    bool Pointer::OnButtonDown(unsigned int button, unsigned int extra, bool flag)
    {
        PointerScope scope(this);
        if (m_pPressed && m_uHeldButton == button && m_uHeldExtra == extra) return true;
        if (m_bFocusEnabled)
        {
            const unsigned int mask = m_pPointed ? static_cast<unsigned int>(m_pPointed->GetFocusMask()) : 1u;
            if (button & mask) SetFocused(m_pPointed);
        }
        if (!m_pFocused)
        {
            m_uHeldButton = m_uHeldExtra = 0;
            return false;
        }
        BaseObj* target = (m_pPointed && m_pPointed->GetFocusableObj() == m_pFocused) ? m_pPointed : m_pFocused;
        if (target != m_pPressed)
        {
            m_pPressed = target;
            m_uPressCount = 1;
        }
        else
        {
            ++m_uPressCount;
        }
        PointerEventArgs args(m_pPointed, this);
        args.m_uButton = button;
        args.m_uExtra = extra;
        args.m_bFlag = flag;
        const bool taken = m_pOwner->Deliver(target, &BaseObj::OnButtonPressed, args);
        m_uHeldButton = taken ? button : 0;
        m_uHeldExtra = taken ? extra : 0;
        if (IsGone(m_pPressed))
        {
            m_pPressed = nullptr;
            m_uPressCount = 0;
        }
        return taken;
    }

    bool Pointer::OnButtonUp(unsigned int button, unsigned int extra, bool flag)
    {
        PointerScope scope(this);
        m_uHeldButton = m_uHeldExtra = 0;
        if (!m_pPressed) return false;
        if (m_bFocusEnabled && m_pFocused && !m_pFocused->GetFocusKept()) SetFocused(nullptr);
        if (!m_pPressed) return false;
        PointerEventArgs args(m_pPointed, this);
        args.m_uButton = button;
        args.m_uExtra = extra;
        args.m_bFlag = flag;
        BaseObj* pressed = m_pPressed;
        const bool taken = m_pOwner->Deliver(pressed, &BaseObj::OnButtonReleased, args);
        if (m_pPressed == pressed && m_uPressCount > 0 && --m_uPressCount == 0) m_pPressed = nullptr;
        if (IsGone(m_pPressed))
        {
            m_pPressed = nullptr;
            m_uPressCount = 0;
        }
        return taken;
    }

    void Pointer::OnMoved(unsigned int x, unsigned int y)
    {
        const Vec2 next(static_cast<float>(x), static_cast<float>(y));
        if (next == m_kPosition) return;
        PointerScope scope(this);
        m_pOwner->AddPointerToTest(this);
        PointerEventArgs args = MakeArgs(m_pPressed ? m_pPressed : m_pPointed);
        args.m_kDelta = Vec2(next.x - m_kPosition.x, next.y - m_kPosition.y);
        m_kPosition = next;
        if (m_pPointerObj) m_pPointerObj->SetPosition(UDim2(0.0f, next.x, 0.0f, next.y));
        m_pOwner->Deliver(m_pPressed ? m_pPressed : m_pPointed, &BaseObj::OnPointerMoved, args);
    }

    void Pointer::OnScrolled(float amount)
    {
        if (amount == 0.0f || amount != amount) return;
        PointerScope scope(this);
        BaseObj* obj = m_pFocused ? m_pFocused : (m_pPressed ? m_pPressed : m_pPointed);
        bool taken = false;
        while (obj && !taken)
        {
            PointerEventArgs args = MakeArgs(obj);
            args.m_fScroll = amount;
            taken = m_pOwner->Deliver(obj, &BaseObj::OnPointerScrolled, args);
            obj = obj->GetParent();
        }
    }

    void Pointer::GetPosition(unsigned int& x, unsigned int& y) const
    {
        // Positions come from whole pixels; truncation keeps them whole.
        auto whole = [](float v) {
            if (!(v > 0.0f)) return 0u;
            return v >= 4294967040.0f ? 0xFFFFFFFFu : static_cast<unsigned int>(v);
        };
        x = whole(m_kPosition.x);
        y = whole(m_kPosition.y);
    }

    bool Pointer::SetPointerObj(PointerObj* obj)
    {
        if (obj == m_pPointerObj) return true;
        if (obj)
        {
            ObjManager* om = Access::Objects();
            const bool underPointerRoot = om && obj->GetRootIndex() == ePointerObjRoot &&
                                          obj != om->GetRootAt(ePointerObjRoot) && !obj->IsPendingDelete();
            if (!GUI_CHECK(underPointerRoot, "This pointer object cannot be used like that")) return false;
            if (!GUI_CHECK(!obj->m_pLinkedPointer || obj->m_pLinkedPointer == this,
                            "This pointer object is already linked to another pointer"))
                return false;
        }
        if (m_pPointerObj) m_pPointerObj->m_pLinkedPointer = nullptr;
        m_pPointerObj = obj;
        if (obj)
        {
            obj->m_pLinkedPointer = this;
            obj->SetState(obj->GetDefaultPointerState());
        }
        return true;
    }

    // ---------------------------------------------------------------- PointerManager

    PointerManager::~PointerManager()
    {
        for (Pointer* p : m_aPointers)
        {
            if (p->m_pPointerObj) p->m_pPointerObj->m_pLinkedPointer = nullptr;
            MEM_DELETE(p);
        }
        for (Pointer* p : m_aRetired) MEM_DELETE(p);
    }

    void PointerManager::LeaveOperation()
    {
        if (m_uOperations > 0) --m_uOperations;
        if (m_uOperations == 0)
        {
            for (Pointer* p : m_aRetired) MEM_DELETE(p);
            m_aRetired.Clear();
        }
    }

    Pointer* PointerManager::CreatePointer(const char* name)
    {
        if (!GUI_CHECK(name != nullptr, "Invalid parameters")) return nullptr;
        if (!GUI_CHECK(GetPointer(name) == nullptr, "Pointer with same name already exists")) return nullptr;
        if (!GUI_CHECK(m_aPointers.GetSize() < kMaxPointers, "Invalid parameters")) return nullptr;
        Pointer* p = MEM_NEW(Pointer, this, name);
        m_aPointers.Add(p);
        return p;
    }

    Pointer* PointerManager::GetPointer(const char* name) const
    {
        if (!name) return nullptr;
        for (Pointer* p : m_aPointers)
            if (std::strcmp(p->GetName(), name) == 0) return p;
        return nullptr;
    }

    bool PointerManager::HasPointer(const Pointer* pointer) const
    {
        for (Pointer* p : m_aPointers)
            if (p == pointer) return true;
        return false;
    }

    void PointerManager::DeletePointer(Pointer* pointer)
    {
        for (unsigned int i = 0; i < m_aPointers.GetSize(); ++i)
        {
            if (m_aPointers[i] != pointer) continue;
            RemovePointerToTest(pointer);
            m_aPointers.Remove(i);
            // Leave and focus events go out while the pointer still exists.
            pointer->SetPointed(nullptr);
            pointer->SetFocused(nullptr);
            pointer->SetPointerObj(nullptr);
            RemovePointerToTest(pointer);
            if (m_uOperations)
                m_aRetired.Add(pointer);
            else
                MEM_DELETE(pointer);
            return;
        }
    }

    void PointerManager::ForgetObj(BaseObj* obj)
    {
        if (!obj) return;
        if (obj == m_pInteractRoot)
        {
            ObjManager* om = Access::Objects();
            m_pInteractRoot = om ? om->GetRoot() : nullptr;
        }
        for (unsigned int i = 0; i < m_aPointers.GetSize(); ++i)
        {
            Pointer* p = m_aPointers[i];
            if (p->m_pPointed == obj)
            {
                PointerEventArgs args = p->MakeArgs(obj);
                p->m_pPointed = nullptr;
                Deliver(obj, &BaseObj::OnPointerLeft, args);
            }
            if (p->m_pPressed == obj)
            {
                p->m_pPressed = nullptr;
                p->m_uPressCount = 0;
            }
            if (p->m_pFocused == obj)
            {
                PointerEventArgs args = p->MakeArgs(nullptr);
                p->m_pFocused = nullptr;
                obj->OnFocusLost(args);
            }
            if (p->m_pPointerObj == obj)
            {
                p->m_pPointerObj->m_pLinkedPointer = nullptr;
                p->m_pPointerObj = nullptr;
            }
        }
    }

    void PointerManager::SetInteractRoot(BaseObj* obj)
    {
        ObjManager* om = Access::Objects();
        if (!obj && om) obj = om->GetRoot();
        if (!obj || obj->IsPendingDelete()) return;
        m_pInteractRoot = obj;
        obj->SetInteractTransparent(false);
    }

    void PointerManager::PreparePointers()
    {
        if (m_bTestOnlyWhenMoved) return;
        for (Pointer* p : m_aPointers) AddPointerToTest(p);
    }

    void PointerManager::AddPointerToTest(Pointer* pointer)
    {
        for (Pointer* p : m_aPointersToTest)
            if (p == pointer) return;
        m_aPointersToTest.Add(pointer);
    }

    void PointerManager::RemovePointerToTest(Pointer* pointer)
    {
        for (unsigned int i = 0; i < m_aPointersToTest.GetSize(); ++i)
            if (m_aPointersToTest[i] == pointer)
            {
                m_aPointersToTest.Remove(i);
                return;
            }
    }

    bool PointerManager::Deliver(BaseObj* target, EventOp op, PointerEventArgs& args)
    {
        if (!target || !target->IsInteractEnabled()) return false;
        ObjManager* om = Access::Objects();
        if (om) om->LockDeletion(true);
        bool result = (target->*op)(args);
        if (!result && !target->IsFocusable())
        {
            BaseObj* up = target->GetFocusableObj();
            if (up && up != target && !up->IsPendingDelete() && up->IsEnabledFinal() && up->IsInteractEnabled())
                result = (up->*op)(args);
        }
        if (om)
        {
            om->LockDeletion(false);
            if (!om->IsDeletionLocked()) om->FlushDeletions(target);
        }
        return result;
    }
}
