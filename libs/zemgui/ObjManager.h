#pragma once
// Registry and factory of all GUI objects: the three roots, the map from path id to
// object, the looks, deletion with its lock, cloning by type name and the update-and-draw
// pass.
#include "common/utils/CMap.h"
#include "common/utils/TArray.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemgui/obj/BaseObj.h"

namespace ZemGui
{
    class Look;

    enum RootIndex : unsigned int
    {
        eDrawnObjRoot = 0,
        ePointerObjRoot = 1,
        eLookRoot = 2,
        eRootCount,
        eHolderTree = eRootCount  // the root index of what lies under a holder
    };

    class ObjManager
    {
    public:
        static constexpr unsigned int kMaxLooks = 128;
        static constexpr unsigned int kMaxPendingDeletes = 2048;

        ObjManager();
        virtual ~ObjManager();
        ObjManager(const ObjManager&) = delete;
        ObjManager& operator=(const ObjManager&) = delete;

        // A new object of class T named `name` under `parent`, with the parent's look and
        // prototype names. Null when refused.
        template <class T>
        T* CreateObj(const char* name, BaseObj* parent)
        {
            if (!CheckCreate(name, parent)) return nullptr;
            T* obj = MEM_NEW(T, name, parent, parent->GetLookName(), parent->GetProtoName());
            return static_cast<T*>(FinishCreate(obj, nullptr));
        }
        // The same by type name ("ButtonObj", "Node", ...); null for an unknown name.
        BaseObj* CreateObjByType(const char* typeName, const char* name, BaseObj* parent);
        BaseObj* CreateObjFromObj(const char* name, BaseObj* parent, const BaseObj* source, bool keepLook);
        BaseObj* CreateObjFromLook(const char* name, BaseObj* parent, const char* lookName, const char* protoName);
        void DeleteObj(BaseObj* obj);
        // A parentless node outside the three roots, in the map under its name: a place
        // where objects wait unseen (loaded pages). Never drawn; `DeleteObj` ends it.
        BaseObj* CreateHolder(const char* name);
        void DeleteObjFromLook(Look* look, const char* protoName);
        void ClearRoot(unsigned int index);

        BaseObj* GetObj(unsigned int id) const;
        BaseObj* GetObjByPath(const char* path) const;
        BaseObj* GetRoot() const { return m_apRoots[eDrawnObjRoot]; }
        BaseObj* GetRootAt(unsigned int index) const { return index < eRootCount ? m_apRoots[index] : nullptr; }
        unsigned int GetObjectCount() const { return static_cast<unsigned int>(m_kObjects.GetSize()); }

        Look* CreateLook(const char* name);
        Look* GetLook(const char* name) const;
        void DeleteLook(const char* name);
        void DeleteAllLooks();
        unsigned int GetLookCount() const { return m_aLooks.GetSize(); }

        void LockDeletion(bool lock);
        bool IsDeletionLocked() const { return m_iDeletionLock != 0; }
        int GetDeletionLock() const { return m_iDeletionLock; }
        // Destroys the pending objects, last first; true when `watched` was one of them.
        bool FlushDeletions(const BaseObj* watched);
        unsigned int GetPendingDeleteCount() const { return m_aPendingDeletes.GetSize(); }
        bool IsPendingDelete(const BaseObj* obj) const;

        void Refresh(BaseObj* obj);

        // Update and draw in one walk over `root` (the drawn root when null), then the
        // pointers' objects.
        void DrawPass(BaseObj* root);

        // Objects whose second list must run every pass whatever the pointers do (an
        // active auto repeat); the pass skips the pointer walk when none is and no
        // pointer waits for a test.
        void AddFrameActive() { ++m_uFrameActive; }
        void RemoveFrameActive()
        {
            if (m_uFrameActive) --m_uFrameActive;
        }

        // The class of a type name, as the clone chain tests them.
        typedef BaseObj* (*Factory)(const char* name, BaseObj* parent, const char* look, const char* proto);
        static Factory FindFactory(const char* typeName);
        static unsigned int GetTypeCount();
        static const char* GetTypeNameAt(unsigned int i);

        // Re-enters an object and its descendants in the map after a rename or a move.
        void Reindex(BaseObj* obj, unsigned int oldId);

    private:
        bool CheckCreate(const char* name, BaseObj* parent);
        BaseObj* FinishCreate(BaseObj* obj, const BaseObj* source);
        void Register(BaseObj* obj);
        void DeleteUnchecked(BaseObj* obj);
        void Destroy(BaseObj* obj);
        void UpdateTree(PassHeader* h);
        void PointerTree(BaseObj* obj);
        void ReindexTree(BaseObj* obj);

        BaseObj* m_apRoots[eRootCount] = {};
        Common::CMap<unsigned int, BaseObj*> m_kObjects;
        ZemRenderer::TArray<Look*> m_aLooks;
        int m_iDeletionLock = 0;
        ZemRenderer::TArray<BaseObj*> m_aPendingDeletes;
        unsigned int m_uFrameActive = 0;
    };
}
