#include "zemgui/obj/BaseObj.h"
#include "zemgui/GuiAssert.h"

#include <cmath>
#include <cstdio>
#include <cstring>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "common/utils/pool/ObjectPool.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/obj/PointerObj.h"
#include "zemgui/subobj/SubObj.h"

namespace ZemGui
{
    namespace
    {
        const char* const kBaseEvents[] = {
            "ChildAttachedEvent", "ChildDetachedEvent", "SubObjAddedEvent",    "SubObjRemovedEvent",
            "DeleteEvent",        "FocusGotEvent",      "FocusLostEvent",      "EndEase",
            "PointerMovedEvent",  "PointerEnteredEvent", "PointerLeftEvent",   "ButtonPressedEvent",
            "ButtonReleasedEvent", "PointerScrolledEvent",
        };

        // Headers in chunks of 256: objects made together have their headers together.
        Common::CObjectPool<PassHeader, Common::Mem::DefaultModel, Common::Pool::CPoolGrowthConstantN<256>>& PassPool()
        {
            static Common::CObjectPool<PassHeader, Common::Mem::DefaultModel, Common::Pool::CPoolGrowthConstantN<256>> s_kPool;
            return s_kPool;
        }

        PassHeader* NewPassHeader(BaseObj* obj)
        {
            PassHeader* h = PassPool().Allocate();
            // Out of memory is the end of the GUI; a header of its own keeps the object usable.
            if (!h) h = MEM_NEW(PassHeader);
            h->pObj = obj;
            return h;
        }

        // Deletion stays locked while callbacks run, so that a handler may delete any object,
        // the firing one included, without pulling memory from under the caller.
        struct DeletionLockScope
        {
            ObjManager* pManager;
            DeletionLockScope() : pManager(Access::Objects())
            {
                if (pManager) pManager->LockDeletion(true);
            }
            ~DeletionLockScope()
            {
                if (pManager) pManager->LockDeletion(false);
            }
        };
    }

    BaseObj::BaseObj(const char* name, BaseObj* parent, const char* lookName, const char* protoName)
        : m_pPass(NewPassHeader(this)), m_pParent(parent), m_kName(name ? name : ""), m_kLookName(lookName ? lookName : ""),
          m_kProtoName(protoName ? protoName : "")
    {
        m_apUpdaters[eRedrawUpdater] = &m_kRedrawUpdater;
        m_apUpdaters[ePositionUpdater] = &m_kPositionUpdater;
        m_apUpdaters[eSizeUpdater] = &m_kSizeUpdater;
        m_apUpdaters[eOrientationUpdater] = &m_kOrientationUpdater;
        m_apUpdaters[eMatrixUpdater] = &m_kMatrixUpdater;
        m_apUpdaters[eClippingUpdater] = &m_kClippingUpdater;
        m_apUpdaters[eSubObjUpdater] = &m_kSubObjUpdater;
        m_apUpdaters[ePointerUpdater] = &m_kPointerUpdater;
        m_apUpdaters[eStateUpdater] = &m_kStateUpdater;
        m_apUpdaters[eAutoRepeatPressUpdater] = &m_kAutoRepeatPressUpdater;
        m_apUpdaters[eAlphaUpdater] = &m_kAlphaUpdater;
        m_apUpdaters[eEnabledUpdater] = &m_kEnabledUpdater;
        m_apUpdaters[eFocusableObjUpdater] = &m_kFocusableObjUpdater;
        m_apUpdaters[eFocusedUpdater] = &m_kFocusedUpdater;
        m_apUpdaters[eEasePositionUpdater] = &m_kEasePositionUpdater;
        m_apUpdaters[eEaseAlphaUpdater] = &m_kEaseAlphaUpdater;
        m_apUpdaters[eEaseRotationUpdater] = &m_kEaseRotationUpdater;
        m_apUpdaters[eEaseSizeUpdater] = &m_kEaseSizeUpdater;

        // Run order: sizes before positions (an anchor needs the size), eases before the
        // value they drive, alpha and the flags last.
        static const UpdaterId kRunOrder[] = {
            eRedrawUpdater,      eEaseSizeUpdater, eSizeUpdater,    eEasePositionUpdater, ePositionUpdater,
            eEaseRotationUpdater, eOrientationUpdater, eMatrixUpdater, eClippingUpdater,  eSubObjUpdater,
            eStateUpdater,       eEaseAlphaUpdater, eAlphaUpdater,   eEnabledUpdater,      eFocusableObjUpdater,
            eFocusedUpdater,
        };
        for (unsigned int id = 0; id < eUpdaterCount; ++id) m_apUpdaters[id]->SetHeaderBit(1u << id);
        m_aFirstUpdaters.Reserve(sizeof(kRunOrder) / sizeof(kRunOrder[0]));
        m_aFirstBits.Reserve(sizeof(kRunOrder) / sizeof(kRunOrder[0]));
        for (UpdaterId id : kRunOrder)
        {
            m_aFirstUpdaters.Add(m_apUpdaters[id]);
            m_aFirstBits.Add(1u << id);
        }

        if (m_pParent) m_uRootIndex = m_pParent->m_uRootIndex;
        BuildPath();

        // Everything computed starts out stale.
        static const UpdaterId kStale[] = {eRedrawUpdater,  ePositionUpdater,    eSizeUpdater,
                                           eOrientationUpdater, eMatrixUpdater,  eClippingUpdater,
                                           eAlphaUpdater,   eEnabledUpdater,     eFocusableObjUpdater,
                                           eFocusedUpdater};
        for (UpdaterId id : kStale) m_apUpdaters[id]->MarkDirty();

        m_aDeclaredNames.Reserve(4 + sizeof(kBaseEvents) / sizeof(kBaseEvents[0]));
        DeclareName(eStateName, kEnabledState);
        DeclareName(eStateName, kDisabledState);
        DeclareName(eStateName, kPointedState);
        DeclareName(eStateName, kFocusedState);
        for (const char* e : kBaseEvents) DeclareName(eEventName, e);

        ResetProperties();
    }

    BaseObj::~BaseObj()
    {
        if (!GUI_CHECK(m_vChildren.IsEmpty(), "Anormal behavior! This object should not have children"))
        {
            // Orphans rather than children that point at freed memory.
            for (BaseObj* c : m_vChildren) c->m_pParent = nullptr;
        }
        for (SubObj* s : m_vSubObjs) MEM_DELETE(s);
        if (m_pEvents)
        {
            for (unsigned int e = 0; e < m_uEventCount; ++e)
                for (unsigned int c = 0; c < m_pEvents[e].uCount; ++c) MEM_DELETE(m_pEvents[e].apCallbacks[c]);
            for (unsigned int e = 0; e < kMaxEvents; ++e) m_pEvents[e].~EventEntry();
            MEM_FREE(m_pEvents);
        }
        for (EventCallbackFunctorBase* f : m_aRetiredCallbacks) MEM_DELETE(f);
        PassPool().Release(m_pPass);
        m_pPass = nullptr;
    }

    bool BaseObj::BuildPath()
    {
        char path[kPathCapacity * 2];
        const int n = m_pParent ? std::snprintf(path, sizeof(path), "%s/%s", m_pParent->m_szPath, m_kName.Get())
                                : std::snprintf(path, sizeof(path), "%s", m_kName.Get());
        if (!GUI_CHECK(n >= 0 && n < static_cast<int>(kPathCapacity),
                        "Path is too long, resize the string or rename GUI objects."))
        {
            // The path is cut; the creator refuses such an object before it is made.
            std::memcpy(m_szPath, path, kPathCapacity - 1);
            m_szPath[kPathCapacity - 1] = '\0';
        }
        else
        {
            std::memcpy(m_szPath, path, static_cast<size_t>(n) + 1);
        }
        m_uId = GenerateUIntIdFromString(m_szPath);
        return n >= 0 && n < static_cast<int>(kPathCapacity);
    }

    const PropertyTable& BaseObj::GetPropertyTable() const { return GetBaseObjTable(); }

    void BaseObj::Init(const BaseObj* source)
    {
        if (source)
        {
            for (unsigned int i = 0; i < source->m_vSubObjs.GetSize(); ++i)
            {
                SubObj* clone = source->m_vSubObjs[i]->Clone(this);
                if (clone && !AddSubObj(clone)) MEM_DELETE(clone);
            }
            if (ObjManager* om = Access::Objects())
            {
                for (unsigned int i = 0; i < source->m_vChildren.GetSize(); ++i)
                {
                    const BaseObj* child = source->m_vChildren[i];
                    om->CreateObjFromObj(child->GetName(), this, child, true);
                }
            }
            CopyProperties(source);
        }
        if (m_pParent) m_pParent->AddChild(this);
        RefreshState();
    }

    // ---------------------------------------------------------------- marks

    void BaseObj::MarkRedraw() { m_kRedrawUpdater.MarkDirty(); }

    void BaseObj::MarkLayoutOfParent()
    {
        if (m_pParent && m_pParent->IsSizedOnChildren()) m_pParent->MarkSize();
    }

    void BaseObj::MarkPosition()
    {
        m_kPositionUpdater.MarkDirty();
        m_kMatrixUpdater.MarkDirty();
        MarkLayoutOfParent();
    }

    void BaseObj::MarkSize()
    {
        m_kSizeUpdater.MarkDirty();
        m_kMatrixUpdater.MarkDirty();
        if (!m_kAnchor.IsZero()) m_kPositionUpdater.MarkDirty();
        if (m_pParent && m_pParent->IsSizedOnChildren())
        {
            m_pParent->MarkRedraw();
            m_pParent->MarkSize();
            m_pParent->MarkClipping();
        }
    }

    void BaseObj::MarkOrientation()
    {
        m_kOrientationUpdater.MarkDirty();
        m_kMatrixUpdater.MarkDirty();
    }

    void BaseObj::MarkEnabled() { m_kEnabledUpdater.MarkDirty(); }
    void BaseObj::MarkAlpha() { m_kAlphaUpdater.MarkDirty(); }
    void BaseObj::MarkClipping() { m_kClippingUpdater.MarkDirty(); }
    void BaseObj::MarkFocusableObj() { m_kFocusableObjUpdater.MarkDirty(); }
    void BaseObj::MarkFocused() { m_kFocusedUpdater.MarkDirty(); }
    void BaseObj::QueueSubObjUpdate(SubObj* subObj) { m_kSubObjUpdater.Queue(subObj); }

    // ---------------------------------------------------------------- tree

    BaseObj* BaseObj::GetChild(const char* name) const
    {
        if (!name) return nullptr;
        for (BaseObj* c : m_vChildren)
            if (std::strcmp(c->GetName(), name) == 0) return c;
        return nullptr;
    }

    BaseObj* BaseObj::GetByRelativePath(const char* text) const
    {
        ObjManager* om = Access::Objects();
        if (!text || !om) return nullptr;
        char path[kPathCapacity * 2];
        const int n = std::snprintf(path, sizeof(path), text[0] == '/' ? "%s%s" : "%s/%s", m_szPath, text);
        if (n < 0 || n >= static_cast<int>(kPathCapacity)) return nullptr;
        return om->GetObjByPath(path);
    }

    bool BaseObj::IsAncestorOf(const BaseObj* obj) const
    {
        for (const BaseObj* p = obj ? obj->m_pParent : nullptr; p; p = p->m_pParent)
            if (p == this) return true;
        return false;
    }

    bool BaseObj::SetName(const char* name)
    {
        if (!GUI_CHECK(name != nullptr && name[0] != '\0', "Invalid parameters")) return false;
        if (m_kName.Equals(name)) return true;
        if (m_pParent && !GUI_CHECK(m_pParent->GetChild(name) == nullptr, "An object with the same name already exists"))
            return false;
        const size_t parentLen = m_pParent ? std::strlen(m_pParent->m_szPath) + 1 : 0;
        if (!GUI_CHECK(parentLen + std::strlen(name) < kPathCapacity,
                        "Path is too long, resize the string or rename GUI objects."))
            return false;
        const unsigned int oldId = m_uId;
        m_kName.Set(name);
        if (ObjManager* om = Access::Objects())
            om->Reindex(this, oldId);
        else
            BuildPath();
        return true;
    }

    void BaseObj::SetLook(const char* name)
    {
        m_kLookName.Set(name ? name : "");
        for (BaseObj* c : m_vChildren) c->SetLook(name);
    }

    SubObj* BaseObj::GetSubObj(const char* name) const
    {
        if (!name) return nullptr;
        for (SubObj* s : m_vSubObjs)
            if (std::strcmp(s->GetName(), name) == 0) return s;
        return nullptr;
    }

    bool BaseObj::IsVisibleInTree() const
    {
        for (const BaseObj* o = this; o; o = o->m_pParent)
            if (!o->m_pPass->bVisible) return false;
        return true;
    }

    bool BaseObj::IsAutoChild(const BaseObj* child) const
    {
        return child && child->m_pParent == this && GetChildIndex(child) >= 0 && !m_kProtoName.IsEmpty();
    }

    void BaseObj::AddChild(BaseObj* child)
    {
        if (!GUI_CHECK(child != nullptr && child != this && !child->IsAncestorOf(this) && !child->m_pPass->bPendingDelete &&
                            !m_pPass->bPendingDelete,
                        "Invalid parameters"))
            return;
        if (GetChildIndex(child) >= 0) return;
        if (!GUI_CHECK(m_vChildren.GetSize() < kMaxChildren, "Invalid parameters")) return;

        // A child of another parent moves: it leaves that list and takes a new path.
        BaseObj* oldParent = child->m_pParent;
        if (oldParent && oldParent != this && oldParent->GetChildIndex(child) >= 0)
        {
            oldParent->RemoveChild(child);
            if (child->m_pPass->bPendingDelete || GetChildIndex(child) >= 0) return;
        }
        child->m_pParent = this;
        if (oldParent != this)
        {
            if (!GUI_CHECK(GetChild(child->GetName()) == nullptr, "An object with the same name already exists"))
            {
                child->m_pParent = nullptr;
                return;
            }
            child->m_uRootIndex = m_uRootIndex;
            const unsigned int oldId = child->m_uId;
            if (ObjManager* om = Access::Objects()) om->Reindex(child, oldId);
        }

        if (child->m_bAlwaysOnTop)
            InsertChildAt(m_vChildren.GetSize(), child);
        else
        {
            if (!GUI_CHECK(m_uAlwaysOnTopFirstId <= m_vChildren.GetSize(), "Child doesn't link to parent"))
                m_uAlwaysOnTopFirstId = m_vChildren.GetSize();
            InsertChildAt(m_uAlwaysOnTopFirstId, child);
            ++m_uAlwaysOnTopFirstId;
        }

        // Everything the new parent gives is stale.
        child->MarkRedraw();
        child->MarkSize();
        child->MarkPosition();
        child->MarkOrientation();
        child->MarkClipping();
        child->MarkAlpha();
        child->MarkEnabled();
        child->MarkFocusableObj();
        child->MarkFocused();

        ObjEventArgs args(child);
        FireEvent("ChildAttachedEvent", args);
    }

    void BaseObj::RemoveChild(BaseObj* child)
    {
        if (!child) return;
        if (GetChildIndex(child) < 0) return;
        ObjEventArgs args(child);
        FireEvent("ChildDetachedEvent", args);
        // A handler may have moved or removed it already.
        const int index = GetChildIndex(child);
        if (index < 0) return;
        RemoveChildAt(static_cast<unsigned int>(index));
        if (static_cast<unsigned int>(index) < m_uAlwaysOnTopFirstId) --m_uAlwaysOnTopFirstId;
        GUI_CHECK(m_uAlwaysOnTopFirstId <= m_vChildren.GetSize(), "Child doesn't link to parent");
        if (m_uAlwaysOnTopFirstId > m_vChildren.GetSize()) m_uAlwaysOnTopFirstId = m_vChildren.GetSize();
        child->m_pParent = nullptr;
        if (IsSizedOnChildren())
        {
            MarkRedraw();
            MarkSize();
            MarkClipping();
        }
    }

    bool BaseObj::AddSubObj(SubObj* subObj)
    {
        if (!GUI_CHECK(subObj != nullptr, "Invalid parameters")) return false;
        if (!GUI_CHECK(subObj->GetOwner() == this, "Cannot add a SubObj of another object")) return false;
        if (!GUI_CHECK(GetSubObj(subObj->GetName()) == nullptr, "Sub object with same name already composes this object"))
            return false;
        if (!GUI_CHECK(m_vSubObjs.GetSize() < kMaxSubObjs, "Invalid parameters")) return false;
        m_vSubObjs.Add(subObj);
        m_pPass->bHasSubObjs = true;
        m_kStateUpdater.MarkDirty();
        SubObjEventArgs args(subObj);
        FireEvent("SubObjAddedEvent", args);
        return true;
    }

    void BaseObj::RemoveSubObj(SubObj* subObj)
    {
        if (!subObj) return;
        unsigned int i = 0;
        while (i < m_vSubObjs.GetSize() && m_vSubObjs[i] != subObj) ++i;
        if (i == m_vSubObjs.GetSize()) return;
        SubObjEventArgs args(subObj);
        FireEvent("SubObjRemovedEvent", args);
        m_kSubObjUpdater.Forget(subObj);
        // Found again: a handler may have removed it first.
        for (i = 0; i < m_vSubObjs.GetSize(); ++i)
            if (m_vSubObjs[i] == subObj)
            {
                m_vSubObjs.Remove(i);
                m_pPass->bHasSubObjs = !m_vSubObjs.IsEmpty();
                MEM_DELETE(subObj);
                return;
            }
    }

    // ---------------------------------------------------------------- child order

    int BaseObj::GetChildIndex(const BaseObj* child) const
    {
        for (unsigned int i = 0; i < m_vChildren.GetSize(); ++i)
            if (m_vChildren[i] == child) return static_cast<int>(i);
        return -1;
    }

    void BaseObj::MoveChildTo(unsigned int from, unsigned int to)
    {
        if (from == to || from >= m_vChildren.GetSize() || to >= m_vChildren.GetSize()) return;
        BaseObj* c = m_vChildren[from];
        PassHeader* h = m_pPass->aChildren[from];
        auto& heads = m_pPass->aChildren;
        if (from < to)
            for (unsigned int k = from; k < to; ++k)
            {
                m_vChildren[k] = m_vChildren[k + 1];
                heads[k] = heads[k + 1];
            }
        else
            for (unsigned int k = from; k > to; --k)
            {
                m_vChildren[k] = m_vChildren[k - 1];
                heads[k] = heads[k - 1];
            }
        m_vChildren[to] = c;
        heads[to] = h;
        MarkRedraw();
    }

    void BaseObj::InsertChildAt(unsigned int i, BaseObj* child)
    {
        if (i >= m_vChildren.GetSize())
        {
            m_vChildren.Add(child);
            m_pPass->aChildren.Add(child->m_pPass);
        }
        else
        {
            m_vChildren.Insert(i, child);
            m_pPass->aChildren.Insert(i, child->m_pPass);
        }
    }

    void BaseObj::RemoveChildAt(unsigned int i)
    {
        if (i >= m_vChildren.GetSize()) return;
        m_vChildren.Remove(i);
        m_pPass->aChildren.Remove(i);
    }

    void BaseObj::RaiseChild(BaseObj* child)
    {
        const int i = GetChildIndex(child);
        if (i < 0) return;
        const unsigned int zoneEnd = static_cast<unsigned int>(i) < m_uAlwaysOnTopFirstId ? m_uAlwaysOnTopFirstId
                                                                                          : m_vChildren.GetSize();
        if (static_cast<unsigned int>(i) + 1 < zoneEnd) MoveChildTo(static_cast<unsigned int>(i), static_cast<unsigned int>(i) + 1);
    }

    void BaseObj::LowerChild(BaseObj* child)
    {
        const int i = GetChildIndex(child);
        if (i < 0) return;
        const unsigned int zoneStart = static_cast<unsigned int>(i) < m_uAlwaysOnTopFirstId ? 0 : m_uAlwaysOnTopFirstId;
        if (static_cast<unsigned int>(i) > zoneStart) MoveChildTo(static_cast<unsigned int>(i), static_cast<unsigned int>(i) - 1);
    }

    void BaseObj::BringChildToFront(BaseObj* child)
    {
        const int i = GetChildIndex(child);
        if (i < 0) return;
        const unsigned int zoneEnd = static_cast<unsigned int>(i) < m_uAlwaysOnTopFirstId ? m_uAlwaysOnTopFirstId
                                                                                          : m_vChildren.GetSize();
        MoveChildTo(static_cast<unsigned int>(i), zoneEnd - 1);
    }

    void BaseObj::SendChildToBack(BaseObj* child)
    {
        const int i = GetChildIndex(child);
        if (i < 0) return;
        const unsigned int zoneStart = static_cast<unsigned int>(i) < m_uAlwaysOnTopFirstId ? 0 : m_uAlwaysOnTopFirstId;
        MoveChildTo(static_cast<unsigned int>(i), zoneStart);
    }

    bool BaseObj::SetChildIndex(BaseObj* child, int index)
    {
        const int from = GetChildIndex(child);
        if (from < 0) return false;
        const int count = static_cast<int>(m_vChildren.GetSize());
        const int border = static_cast<int>(m_uAlwaysOnTopFirstId);
        const bool onTop = from >= border;
        if (onTop && index < border) return false;
        if (!onTop && index >= border && count > border) return false;
        int to;
        if (index <= from)
            to = index < 0 ? 0 : index;
        else
            to = index > count ? count - 1 : index - 1;
        MoveChildTo(static_cast<unsigned int>(from), static_cast<unsigned int>(to));
        return true;
    }

    void BaseObj::SetAlwaysOnTop(bool b)
    {
        if (!m_pParent) return;
        if (b == m_bAlwaysOnTop) return;
        m_bAlwaysOnTop = b;
        const int i = m_pParent->GetChildIndex(this);
        if (i < 0) return;
        auto& kids = m_pParent->m_vChildren;
        if (b)
        {
            // Across the border to the very end.
            m_pParent->MoveChildTo(static_cast<unsigned int>(i), kids.GetSize() - 1);
            if (m_pParent->m_uAlwaysOnTopFirstId > 0) --m_pParent->m_uAlwaysOnTopFirstId;
        }
        else
        {
            m_pParent->MoveChildTo(static_cast<unsigned int>(i), 0);
            if (m_pParent->m_uAlwaysOnTopFirstId < kids.GetSize()) ++m_pParent->m_uAlwaysOnTopFirstId;
        }
    }

    // ---------------------------------------------------------------- events

    EventEntry* BaseObj::FindEvent(const char* name) const
    {
        if (!m_pEvents || !name) return nullptr;
        for (unsigned int i = 0; i < m_uEventCount; ++i)
            if (std::strcmp(m_pEvents[i].szName, name) == 0) return &m_pEvents[i];
        return nullptr;
    }

    bool BaseObj::ConnectEventCallback(const char* eventName, const EventCallbackFunctorBase& functor)
    {
        if (!GUI_CHECK(eventName != nullptr && std::strlen(eventName) < kNameCapacity, "Invalid parameter."))
            return false;
        EventEntry* e = FindEvent(eventName);
        if (!e)
        {
            if (!m_pEvents)
            {
                void* block = MEM_ALLOC(sizeof(EventEntry) * kMaxEvents);
                if (!GUI_CHECK(block != nullptr, "Invalid parameters")) return false;
                m_pEvents = static_cast<EventEntry*>(block);
                for (unsigned int i = 0; i < kMaxEvents; ++i) new (&m_pEvents[i]) EventEntry();
            }
            if (!GUI_CHECK(m_uEventCount < kMaxEvents, "Too many events on this object")) return false;
            e = &m_pEvents[m_uEventCount++];
            CopyFixedText(e->szName, eventName);
            e->apCallbacks[0] = functor.Clone();
            e->uCount = 1;
            return true;
        }
        for (unsigned int i = 0; i < e->uCount; ++i)
            if (e->apCallbacks[i] && e->apCallbacks[i]->IsSame(functor)) return true;
        if (e->uCount < kMaxCallbacks)
        {
            e->apCallbacks[e->uCount++] = functor.Clone();
            return true;
        }
        for (unsigned int i = 0; i < e->uCount; ++i)
            if (!e->apCallbacks[i])
            {
                e->apCallbacks[i] = functor.Clone();
                return true;
            }
        GUI_CHECK(false, "Too much call back for this event");
        return false;
    }

    bool BaseObj::DisconnectEventCallback(const char* eventName, const EventCallbackFunctorBase& functor)
    {
        EventEntry* e = FindEvent(eventName);
        if (!e) return false;
        for (unsigned int i = 0; i < e->uCount; ++i)
        {
            EventCallbackFunctorBase* f = e->apCallbacks[i];
            if (f && f->IsSame(functor))
            {
                // The slot empties but keeps its place: the event may be firing.
                e->apCallbacks[i] = nullptr;
                if (m_uFiringDepth)
                    m_aRetiredCallbacks.Add(f);
                else
                    MEM_DELETE(f);
                return true;
            }
        }
        return false;
    }

    bool BaseObj::FireEvent(const char* eventName, EventArgs& args)
    {
        EventEntry* e = FindEvent(eventName);
        if (!e) return false;
        DeletionLockScope lock;
        ++m_uFiringDepth;
        bool result = false;
        unsigned int w = 0;
        // Read over the slots, closing the gaps behind: callbacks may disconnect anyone.
        for (unsigned int r = 0; r < e->uCount; ++r)
        {
            EventCallbackFunctorBase* cb = e->apCallbacks[r];
            if (!cb) continue;
            if (w != r)
            {
                e->apCallbacks[w] = cb;
                e->apCallbacks[r] = nullptr;
            }
            ++w;
            if ((*cb)(args)) result = true;
        }
        while (e->uCount > 0 && !e->apCallbacks[e->uCount - 1]) --e->uCount;
        if (--m_uFiringDepth == 0)
        {
            for (EventCallbackFunctorBase* f : m_aRetiredCallbacks) MEM_DELETE(f);
            m_aRetiredCallbacks.Clear();
        }
        return result;
    }

    unsigned int BaseObj::GetCallbackCount(const char* eventName) const
    {
        const EventEntry* e = FindEvent(eventName);
        if (!e) return 0;
        unsigned int n = 0;
        for (unsigned int i = 0; i < e->uCount; ++i)
            if (e->apCallbacks[i]) ++n;
        return n;
    }

    // ---------------------------------------------------------------- declared names

    void BaseObj::DeclareName(DeclaredNameKind kind, const char* name)
    {
        if (!name || HasDeclaredName(kind, name)) return;
        if (!GUI_CHECK(GetDeclaredNameCount(kind) < kMaxDeclaredNames, "Invalid parameters")) return;
        m_aDeclaredNames.Add(DeclaredName{kind, name});
    }

    bool BaseObj::HasDeclaredName(DeclaredNameKind kind, const char* name) const
    {
        for (const DeclaredName& d : m_aDeclaredNames)
            if (d.eKind == kind && std::strcmp(d.szName, name) == 0) return true;
        return false;
    }

    unsigned int BaseObj::GetDeclaredNameCount(DeclaredNameKind kind) const
    {
        unsigned int n = 0;
        for (const DeclaredName& d : m_aDeclaredNames)
            if (d.eKind == kind) ++n;
        return n;
    }

    // ---------------------------------------------------------------- updater lists

    bool BaseObj::HasSecondUpdater(const ObjUpdater* u) const
    {
        for (ObjUpdater* x : m_aSecondUpdaters)
            if (x == u) return true;
        return false;
    }

    void BaseObj::AddFirstUpdater(ObjUpdater* u)
    {
        if (!u) return;
        for (ObjUpdater* x : m_aFirstUpdaters)
            if (x == u) return;
        if (!GUI_CHECK(m_aFirstUpdaters.GetSize() < kMaxUpdaters, "Invalid parameters")) return;
        m_aFirstUpdaters.Add(u);
        m_aFirstBits.Add(u->GetOwner() == this ? u->GetHeaderBit() : 0u);
    }

    void BaseObj::AddSecondUpdater(ObjUpdater* u)
    {
        if (!u || HasSecondUpdater(u)) return;
        if (!GUI_CHECK(m_aSecondUpdaters.GetSize() < kMaxUpdaters, "Invalid parameters")) return;
        m_aSecondUpdaters.Add(u);
    }

    void BaseObj::RemoveSecondUpdater(ObjUpdater* u)
    {
        for (unsigned int i = 0; i < m_aSecondUpdaters.GetSize(); ++i)
            if (m_aSecondUpdaters[i] == u)
            {
                m_aSecondUpdaters.Remove(i);
                return;
            }
    }

    // ---------------------------------------------------------------- state

    void BaseObj::SetState(const char* name)
    {
        if (!name || std::strcmp(name, m_szCurrentState) == 0) return;
        if (!GUI_CHECK(std::strlen(name) < kNameCapacity, "Invalid parameter.")) return;
        char copy[kNameCapacity];
        CopyFixedText(copy, name);
        std::memcpy(m_szPreviousState, m_szCurrentState, kNameCapacity);
        std::memcpy(m_szCurrentState, copy, kNameCapacity);
        for (unsigned int i = 0; i < m_vChildren.GetSize(); ++i)
            if (m_vChildren[i]->m_bInheritState) m_vChildren[i]->SetState(copy);
        m_kStateUpdater.MarkDirty();
    }

    void BaseObj::SetInheritState(bool b) { m_bInheritState = b; }

    const char* BaseObj::ComputeState()
    {
        if (m_bDelegateState) return m_pParent ? m_pParent->ComputeChildState(this) : nullptr;
        if (!IsEnabledFinal()) return kDisabledState;
        if (m_bPointed) return kPointedState;
        if (IsFocusedFinal()) return kFocusedState;
        return kEnabledState;
    }

    const char* BaseObj::ComputeChildState(BaseObj* child)
    {
        (void)child;
        if (!m_bDelegateState) return ComputeState();
        return m_pParent ? m_pParent->ComputeChildState(child) : ComputeState();
    }

    // ---------------------------------------------------------------- interaction

    bool BaseObj::OnPointerMoved(PointerEventArgs& args)
    {
        FireEvent("PointerMovedEvent", args);
        return false;
    }

    bool BaseObj::OnPointerEntered(PointerEventArgs& args)
    {
        PointerObj* po = args.m_pPointer ? args.m_pPointer->GetPointerObj() : nullptr;
        if (po && m_bChangePointerEnabled) po->SetState(m_szChangePointerState);
        m_bPointed = true;
        RefreshState();
        FireEvent("PointerEnteredEvent", args);
        return false;
    }

    bool BaseObj::OnPointerLeft(PointerEventArgs& args)
    {
        PointerObj* po = args.m_pPointer ? args.m_pPointer->GetPointerObj() : nullptr;
        if (po && m_bChangePointerEnabled) po->SetState(po->GetDefaultPointerState());
        if (m_bStopRepeatOnLeave) m_kAutoRepeatPressUpdater.Stop();
        m_bPointed = false;
        RefreshState();
        FireEvent("PointerLeftEvent", args);
        return false;
    }

    bool BaseObj::OnPointerScrolled(PointerEventArgs& args) { return FireEvent("PointerScrolledEvent", args); }

    bool BaseObj::OnButtonPressed(PointerEventArgs& args)
    {
        if (m_bAutoRepeatPressEnabled) m_kAutoRepeatPressUpdater.Start(args);
        return FireEvent("ButtonPressedEvent", args);
    }

    bool BaseObj::OnButtonReleased(PointerEventArgs& args)
    {
        m_kAutoRepeatPressUpdater.Stop();
        return FireEvent("ButtonReleasedEvent", args);
    }

    bool BaseObj::OnFocusGot(PointerEventArgs& args)
    {
        m_bFocused = true;
        MarkFocused();
        RefreshState();
        FireEvent("FocusGotEvent", args);
        return true;
    }

    bool BaseObj::OnFocusLost(PointerEventArgs& args)
    {
        m_kAutoRepeatPressUpdater.Stop();
        m_bFocused = false;
        MarkFocused();
        RefreshState();
        FireEvent("FocusLostEvent", args);
        return true;
    }

    bool BaseObj::OnEndEase(ObjEventArgs& args)
    {
        FireEvent("EndEase", args);
        return true;
    }
}
