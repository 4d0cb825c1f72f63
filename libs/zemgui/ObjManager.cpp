#include "zemgui/ObjManager.h"
#include "zemgui/GuiAssert.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/Look.h"
#include "zemgui/obj/ButtonObj.h"
#include "zemgui/obj/PointerObj.h"
#include "zemgui/obj/WidgetClasses.h"
#include "zemgui/subobj/SubObj.h"

namespace ZemGui
{
    namespace
    {
        const char* const kRootNames[eRootCount] = {"DrawnObjRoot", "PointerObjRoot", "LookRoot"};

        bool OnGuiThread()
        {
            System* sys = System::GetInstance();
            return GUI_CHECK(!sys || sys->IsGuiThread(), "GUI objects belong to the GUI's thread");
        }
    }

    ObjManager::ObjManager()
    {
        // The property tables, bases first.
        BaseObj::GetBaseObjTable();
        LabelObj::GetLabelObjTable();
        ButtonObj::GetButtonObjTable();
        TooltipObj::GetTooltipObjTable();
        DatagridObj::GetDatagridObjTable();
        ScrollbarObj::GetScrollbarObjTable();

        m_aPendingDeletes.Reserve(64);
        for (unsigned int i = 0; i < eRootCount; ++i)
        {
            BaseObj* root = MEM_NEW(Node, kRootNames[i], nullptr, "", "");
            root->m_uRootIndex = i;
            root->Init(nullptr);
            m_apRoots[i] = root;
            Register(root);
        }
    }

    ObjManager::~ObjManager()
    {
        m_iDeletionLock = 0;
        DeleteAllLooks();
        // Holders still standing go with their trees.
        for (bool found = true; found;)
        {
            found = false;
            for (const auto& pair : m_kObjects)
            {
                BaseObj* obj = pair.value;
                if (obj->m_pParent || obj->m_uRootIndex < eRootCount) continue;
                DeleteObj(obj);
                found = true;
                break;
            }
        }
        for (unsigned int i = 0; i < eRootCount; ++i)
        {
            BaseObj* root = m_apRoots[i];
            unsigned int guard = root->GetChildCount() + 1;
            while (root->GetChildCount() && guard--) DeleteObj(root->GetChildAt(0));
            m_kObjects.Remove(root->GetId());
            Destroy(root);
            m_apRoots[i] = nullptr;
        }
        m_iDeletionLock = 0;
        FlushDeletions(nullptr);
    }

    // ---------------------------------------------------------------- creation

    bool ObjManager::CheckCreate(const char* name, BaseObj* parent)
    {
        if (!OnGuiThread()) return false;
        if (!GUI_CHECK(name != nullptr && parent != nullptr && name[0] != '\0', "Invalid parameters")) return false;
        if (!GUI_CHECK(!parent->IsPendingDelete(), "Invalid parameters")) return false;
        if (!GUI_CHECK(parent->GetChild(name) == nullptr, "An object with the same name already exists")) return false;
        if (!GUI_CHECK(std::strlen(parent->GetPath()) + 1 + std::strlen(name) < kPathCapacity,
                        "Path is too long, resize the string or rename GUI objects."))
            return false;
        if (!GUI_CHECK(parent->GetChildCount() < kMaxChildren, "Invalid parameters")) return false;
        return true;
    }

    BaseObj* ObjManager::FinishCreate(BaseObj* obj, const BaseObj* source)
    {
        if (!obj) return nullptr;
        // A handler of an event fired while the object is built may delete anything.
        LockDeletion(true);
        obj->Init(source);
        const bool gone = obj->IsPendingDelete();
        if (!gone) Register(obj);
        LockDeletion(false);
        if (!IsDeletionLocked()) FlushDeletions(nullptr);
        return gone ? nullptr : obj;
    }

    BaseObj* ObjManager::CreateHolder(const char* name)
    {
        if (!OnGuiThread()) return nullptr;
        if (!GUI_CHECK(name != nullptr && name[0] != '\0' && std::strlen(name) < kPathCapacity, "Invalid parameters"))
            return nullptr;
        if (!GUI_CHECK(m_kObjects.Find(GenerateUIntIdFromString(name)) == nullptr,
                       "An object with the same name already exists"))
            return nullptr;
        BaseObj* holder = MEM_NEW(Node, name, nullptr, "", "");
        holder->m_uRootIndex = eHolderTree;
        return FinishCreate(holder, nullptr);
    }

    void ObjManager::Register(BaseObj* obj) { m_kObjects.Insert(obj->GetId(), obj); }

    BaseObj* ObjManager::CreateObjByType(const char* typeName, const char* name, BaseObj* parent)
    {
        const Factory f = FindFactory(typeName);
        if (!GUI_CHECK(f != nullptr, "Unknown object")) return nullptr;
        if (!CheckCreate(name, parent)) return nullptr;
        return FinishCreate(f(name, parent, parent->GetLookName(), parent->GetProtoName()), nullptr);
    }

    BaseObj* ObjManager::CreateObjFromObj(const char* name, BaseObj* parent, const BaseObj* source, bool keepLook)
    {
        if (!GUI_CHECK(name != nullptr && parent != nullptr && source != nullptr, "Invalid parameters")) return nullptr;
        if (!CheckCreate(name, parent)) return nullptr;
        const Factory f = FindFactory(source->GetTypeName());
        if (!GUI_CHECK(f != nullptr, "Anormal behavior! Check the file which enumerates all type of Obj (ObjEnum.hpp)."))
            return nullptr;
        const char* proto = source->GetProtoName()[0] ? source->GetProtoName() : source->GetName();
        BaseObj* obj = f(name, parent, source->GetLookName(), proto);
        if (!obj) return nullptr;
        if (!keepLook)
        {
            obj->m_kProtoName.Set("");
            obj->m_kLookName.Set("");
        }
        return FinishCreate(obj, source);
    }

    BaseObj* ObjManager::CreateObjFromLook(const char* name, BaseObj* parent, const char* lookName, const char* protoName)
    {
        if (!GUI_CHECK(name && parent && lookName && protoName, "Invalid parameters")) return nullptr;
        Look* look = GetLook(lookName);
        BaseObj* proto = look ? look->GetProto(protoName) : nullptr;
        if (!proto) return nullptr;
        BaseObj* obj = CreateObjFromObj(name, parent, proto, true);
        if (obj) obj->SetLook(lookName);
        return obj;
    }

    // ---------------------------------------------------------------- deletion

    void ObjManager::DeleteObj(BaseObj* obj)
    {
        if (!obj) return;
        if (!OnGuiThread()) return;
        for (BaseObj* root : m_apRoots)
            if (!GUI_CHECK(obj != root, "Cannot delete root")) return;
        // A second deletion of an object that waits for the lock finds no map entry.
        if (!GUI_CHECK(!obj->m_pPass->bPendingDelete && m_kObjects.Find(obj->GetId()) == obj, "Anormal behavior")) return;
        DeleteUnchecked(obj);
        // What handlers deleted while the events fired (under the lock) goes now too.
        if (!IsDeletionLocked()) FlushDeletions(nullptr);
    }

    void ObjManager::DeleteUnchecked(BaseObj* obj)
    {
        if (m_kObjects.Find(obj->GetId()) == obj) m_kObjects.Remove(obj->GetId());
        obj->m_pPass->bPendingDelete = true;

        if (PointerManager* pm = Access::Pointers()) pm->ForgetObj(obj);

        while (obj->GetChildCount())
        {
            BaseObj* child = obj->GetChildAt(0);
            if (child->m_pPass->bPendingDelete)
                obj->RemoveChild(child);
            else
                DeleteUnchecked(child);
            // A handler that put the child back is overruled.
            if (obj->GetChildAt(0) == child)
            {
                child->m_pParent = nullptr;
                obj->RemoveChildAt(0);
                if (obj->m_uAlwaysOnTopFirstId) --obj->m_uAlwaysOnTopFirstId;
            }
        }
        if (obj->m_pParent) obj->m_pParent->RemoveChild(obj);
        obj->m_pParent = nullptr;

        ObjEventArgs args(obj);
        obj->FireEvent("DeleteEvent", args);

        if (m_iDeletionLock > 0)
        {
            if (!IsPendingDelete(obj))
            {
                GUI_CHECK(m_aPendingDeletes.GetSize() < kMaxPendingDeletes, "Too many objects wait for deletion");
                m_aPendingDeletes.Add(obj);
            }
        }
        else
        {
            for (unsigned int k = 0; k < m_aPendingDeletes.GetSize(); ++k)
                if (m_aPendingDeletes[k] == obj)
                {
                    m_aPendingDeletes.Remove(k);
                    break;
                }
            Destroy(obj);
        }
    }

    void ObjManager::Destroy(BaseObj* obj)
    {
        // A pending object can take no children (AddChild refuses it), so it leaves alone.
        MEM_DELETE(obj);
    }

    bool ObjManager::IsPendingDelete(const BaseObj* obj) const
    {
        for (BaseObj* p : m_aPendingDeletes)
            if (p == obj) return true;
        return false;
    }

    void ObjManager::DeleteObjFromLook(Look* look, const char* protoName)
    {
        if (look) look->DeleteProto(protoName);
    }

    void ObjManager::ClearRoot(unsigned int index)
    {
        if (!GUI_CHECK(index != eLookRoot, "you cannot directly manipulate a private tree")) return;
        if (!GUI_CHECK(index < eRootCount, "Invalid parameters")) return;
        BaseObj* root = m_apRoots[index];
        while (root->GetChildCount())
        {
            BaseObj* child = root->GetChildAt(0);
            DeleteObj(child);
            if (root->GetChildAt(0) == child) break;
        }
    }

    void ObjManager::LockDeletion(bool lock)
    {
        if (lock)
            ++m_iDeletionLock;
        else if (m_iDeletionLock > 0)
            --m_iDeletionLock;
    }

    bool ObjManager::FlushDeletions(const BaseObj* watched)
    {
        // Objects that a running walk may still hold stay until the lock falls.
        if (m_iDeletionLock > 0) return false;
        bool found = false;
        while (!m_aPendingDeletes.IsEmpty())
        {
            BaseObj* obj = m_aPendingDeletes.GetLast();
            m_aPendingDeletes.Remove(m_aPendingDeletes.GetSize() - 1);
            if (obj == watched) found = true;
            Destroy(obj);
        }
        return found;
    }

    // ---------------------------------------------------------------- lookup

    BaseObj* ObjManager::GetObj(unsigned int id) const
    {
        BaseObj* obj = m_kObjects.Find(id);
        if (!obj) return nullptr;
        if (!GUI_CHECK(obj->GetRootIndex() != eLookRoot, "you cannot directly manipulate a private tree")) return nullptr;
        return obj;
    }

    BaseObj* ObjManager::GetObjByPath(const char* path) const
    {
        if (!path) return nullptr;
        return GetObj(GenerateUIntIdFromString(path));
    }

    void ObjManager::Reindex(BaseObj* obj, unsigned int oldId)
    {
        if (!obj) return;
        const bool mapped = m_kObjects.Find(oldId) == obj;
        if (mapped) m_kObjects.Remove(oldId);
        obj->BuildPath();
        if (mapped) m_kObjects.Insert(obj->GetId(), obj);
        for (unsigned int i = 0; i < obj->GetChildCount(); ++i) ReindexTree(obj->GetChildAt(i));
    }

    void ObjManager::ReindexTree(BaseObj* obj)
    {
        const unsigned int oldId = obj->GetId();
        obj->m_uRootIndex = obj->m_pParent ? obj->m_pParent->m_uRootIndex : obj->m_uRootIndex;
        Reindex(obj, oldId);
    }

    // ---------------------------------------------------------------- looks

    Look* ObjManager::CreateLook(const char* name)
    {
        if (!GUI_CHECK(name != nullptr && name[0] != '\0', "Invalid parameters")) return nullptr;
        if (!GUI_CHECK(GetLook(name) == nullptr, "Look with same name already exists")) return nullptr;
        if (!GUI_CHECK(m_aLooks.GetSize() < kMaxLooks, "Invalid parameters")) return nullptr;
        BaseObj* root = CreateObj<Node>(name, m_apRoots[eLookRoot]);
        if (!root) return nullptr;
        Look* look = MEM_NEW(Look, name, root);
        m_aLooks.Add(look);
        return look;
    }

    Look* ObjManager::GetLook(const char* name) const
    {
        if (!name) return nullptr;
        for (Look* l : m_aLooks)
            if (std::strcmp(l->GetName(), name) == 0) return l;
        return nullptr;
    }

    void ObjManager::DeleteLook(const char* name)
    {
        for (unsigned int i = 0; i < m_aLooks.GetSize(); ++i)
        {
            Look* l = m_aLooks[i];
            if (std::strcmp(l->GetName(), name ? name : "") != 0) continue;
            m_aLooks.Remove(i);
            DeleteObj(l->m_pRoot);
            MEM_DELETE(l);
            return;
        }
    }

    void ObjManager::DeleteAllLooks()
    {
        while (!m_aLooks.IsEmpty())
        {
            Look* l = m_aLooks.GetLast();
            m_aLooks.Remove(m_aLooks.GetSize() - 1);
            DeleteObj(l->m_pRoot);
            MEM_DELETE(l);
        }
    }

    // ---------------------------------------------------------------- the pass

    void ObjManager::Refresh(BaseObj* obj)
    {
        if (!obj) return;
        obj->MarkRedraw();
        obj->MarkPosition();
        obj->MarkSize();
        obj->MarkClipping();
        for (unsigned int i = 0; i < obj->GetChildCount(); ++i) Refresh(obj->GetChildAt(i));
    }

    void ObjManager::DrawPass(BaseObj* root)
    {
        if (!OnGuiThread()) return;
        LockDeletion(true);
        if (!root) root = m_apRoots[eDrawnObjRoot];
        if (!root->m_pPass->bPendingDelete)
        {
            UpdateTree(root->m_pPass);
            PointerManager* pm = Access::Pointers();
            const bool pointerWalk = m_uFrameActive > 0 || (pm && pm->GetPointersToTestCount() > 0);
            if (pointerWalk) PointerTree(root);
            // Pointer objects stand in front of everything, wherever they lie.
            for (unsigned int i = 0; pm && i < pm->GetPointerCount(); ++i)
            {
                BaseObj* po = pm->GetPointerAt(i)->GetPointerObj();
                if (!po || po->m_pPass->bPendingDelete) continue;
                UpdateTree(po->m_pPass);
                if (pointerWalk) PointerTree(po);
            }
        }
        LockDeletion(false);
        if (!IsDeletionLocked()) FlushDeletions(nullptr);
    }

    void ObjManager::UpdateTree(PassHeader* h)
    {
        // Only the header is read unless the object has work or something to draw.
        if (!h->bVisible && !h->bIsPointerObj) return;
        if (h->uDirtyUpdaters)
        {
            BaseObj* obj = h->pObj;
            // Each updater does nothing while clean; the test is made here, not behind a call.
            // An updater of the object's own is found dirty by its bit; a widget's by its flag.
            for (unsigned int i = 0; i < obj->m_aFirstUpdaters.GetSize(); ++i)
            {
                const unsigned int bit = obj->m_aFirstBits[i];
                if (bit ? !(h->uDirtyBits & bit) : !obj->m_aFirstUpdaters[i]->IsDirty()) continue;
                obj->m_aFirstUpdaters[i]->Update();
                if (h->bPendingDelete) return;
            }
        }
        if (h->bVisible && h->bHasSubObjs)
        {
            System* sys = System::GetInstance();
            if (sys && sys->GetRenderer())
            {
                BaseObj* obj = h->pObj;
                GuiShader* shader = sys->GetShader(eGuiShader);
                for (unsigned int i = 0; i < obj->m_vSubObjs.GetSize(); ++i) obj->m_vSubObjs[i]->Draw(shader);
            }
        }
        // Indices, not pointers into the array: handlers may reorder or delete children.
        const ZemRenderer::TArray<PassHeader*>& kids = h->aChildren;
        unsigned int i = 0;
        while (i < kids.GetSize())
        {
            PassHeader* child = kids[i];
            UpdateTree(child);
            if (h->bPendingDelete) return;
            if (i < kids.GetSize() && kids[i] == child) ++i;
        }
    }

    void ObjManager::PointerTree(BaseObj* obj)
    {
        if (!obj->m_pPass->bVisible) return;
        unsigned int i = obj->m_vChildren.GetSize();
        while (i > 0)
        {
            --i;
            if (i >= obj->m_vChildren.GetSize())
            {
                i = obj->m_vChildren.GetSize();
                continue;
            }
            PointerTree(obj->m_vChildren[i]);
            if (obj->m_pPass->bPendingDelete) return;
        }
        for (unsigned int k = 0; k < obj->m_aSecondUpdaters.GetSize(); ++k)
        {
            obj->m_aSecondUpdaters[k]->Update();
            if (obj->m_pPass->bPendingDelete) return;
        }
    }
}
