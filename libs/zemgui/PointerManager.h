#pragma once
// Pointer input: each `Pointer` is fed by the application in pixels and finds the object
// under it during the pass; events reach objects by one delivery rule.
#include "common/utils/TArray.h"
#include "zemgui/EventArgs.h"
#include "zemgui/OwnedText.h"

namespace ZemGui
{
    class BaseObj;
    class PointerObj;
    class PointerManager;

    class Pointer
    {
    public:
        Pointer(PointerManager* owner, const char* name) : m_pOwner(owner), m_kName(name) {}

        // True when an object took the event.
        bool OnButtonDown(unsigned int button, unsigned int extra, bool flag);
        bool OnButtonUp(unsigned int button, unsigned int extra, bool flag);
        void OnMoved(unsigned int x, unsigned int y);
        void OnScrolled(float amount);
        void GetPosition(unsigned int& x, unsigned int& y) const;
        // Null unlinks. False when refused.
        bool SetPointerObj(PointerObj* obj);

        void SetPointed(BaseObj* obj);
        void SetFocused(BaseObj* obj);

        const char* GetName() const { return m_kName.Get(); }
        PointerManager* GetManager() const { return m_pOwner; }
        Vec2 GetPositionF() const { return m_kPosition; }
        PointerObj* GetPointerObj() const { return m_pPointerObj; }
        BaseObj* GetPointed() const { return m_pPointed; }
        BaseObj* GetPressed() const { return m_pPressed; }
        unsigned int GetPressCount() const { return m_uPressCount; }
        BaseObj* GetFocused() const { return m_pFocused; }
        bool IsFocusEnabled() const { return m_bFocusEnabled; }
        void SetFocusEnabled(bool b) { m_bFocusEnabled = b; }
        unsigned int GetHeldButton() const { return m_uHeldButton; }
        unsigned int GetHeldExtra() const { return m_uHeldExtra; }

    private:
        friend class PointerManager;
        PointerEventArgs MakeArgs(BaseObj* obj);

        PointerManager* m_pOwner;
        OwnedText m_kName;
        Vec2 m_kPosition;
        PointerObj* m_pPointerObj = nullptr;
        BaseObj* m_pPointed = nullptr;
        BaseObj* m_pPressed = nullptr;
        unsigned int m_uPressCount = 0;
        BaseObj* m_pFocused = nullptr;
        bool m_bFocusEnabled = true;
        unsigned int m_uHeldButton = 0;
        unsigned int m_uHeldExtra = 0;
    };

    class PointerManager
    {
    public:
        static constexpr unsigned int kMaxPointers = 4;

        PointerManager() = default;
        ~PointerManager();
        PointerManager(const PointerManager&) = delete;
        PointerManager& operator=(const PointerManager&) = delete;

        Pointer* CreatePointer(const char* name);
        Pointer* GetPointer(const char* name) const;
        void DeletePointer(Pointer* pointer);
        bool HasPointer(const Pointer* pointer) const;
        unsigned int GetPointerCount() const { return m_aPointers.GetSize(); }
        Pointer* GetPointerAt(unsigned int i) const { return i < m_aPointers.GetSize() ? m_aPointers[i] : nullptr; }

        // Every pointer lets go of the object: pointed (with leave events), pressed,
        // focused (with its events), linked pointer object, interaction root.
        void ForgetObj(BaseObj* obj);
        void SetInteractRoot(BaseObj* obj);
        BaseObj* GetInteractRoot() const { return m_pInteractRoot; }
        bool GetTestOnlyWhenMoved() const { return m_bTestOnlyWhenMoved; }
        void SetTestOnlyWhenMoved(bool b) { m_bTestOnlyWhenMoved = b; }

        // Before a pass: every pointer is to be tested, or only those that moved.
        void PreparePointers();
        void AddPointerToTest(Pointer* pointer);
        void RemovePointerToTest(Pointer* pointer);
        unsigned int GetPointersToTestCount() const { return m_aPointersToTest.GetSize(); }
        Pointer* GetPointerToTestAt(unsigned int i) const { return m_aPointersToTest[i]; }

        // Pointer operations in progress; a pointer deleted meanwhile is freed after them.
        void EnterOperation() { ++m_uOperations; }
        void LeaveOperation();

        typedef bool (BaseObj::*EventOp)(PointerEventArgs& args);
        // The one rule for all pointer events; the result of the object that answered.
        bool Deliver(BaseObj* target, EventOp op, PointerEventArgs& args);

    private:
        ZemRenderer::TArray<Pointer*> m_aPointers;
        ZemRenderer::TArray<Pointer*> m_aPointersToTest;
        BaseObj* m_pInteractRoot = nullptr;
        bool m_bTestOnlyWhenMoved = true;
        unsigned int m_uOperations = 0;
        ZemRenderer::TArray<Pointer*> m_aRetired;
    };
}
