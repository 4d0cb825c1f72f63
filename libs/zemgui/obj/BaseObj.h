#pragma once
// The node of the GUI tree: a place in the tree, a geometry pulled lazily through
// dirty-flagged updaters, sub-objects that do the drawing, a named state, named events
// and a table of properties. Objects are made, cloned and deleted by `ObjManager` only.
#include "common/math/MathTypes.h"
#include "common/utils/TArray.h"
#include "zemgui/EventArgs.h"
#include "zemgui/GuiTypes.h"
#include "zemgui/OwnedText.h"
#include "zemgui/obj/ObjEvents.h"
#include "zemgui/obj/PropertyTable.h"
#include "zemgui/updaters/AutoRepeatPressUpdater.h"
#include "zemgui/updaters/EaseValueUpdater.h"
#include "zemgui/updaters/ObjUpdaters.h"

namespace ZemGui
{
    class SubObj;
    class ObjManager;

    // The 18 updaters, by their place in the object.
    enum UpdaterId : unsigned int
    {
        eRedrawUpdater,
        ePositionUpdater,
        eSizeUpdater,
        eOrientationUpdater,
        eMatrixUpdater,
        eClippingUpdater,
        eSubObjUpdater,
        ePointerUpdater,
        eStateUpdater,
        eAutoRepeatPressUpdater,
        eAlphaUpdater,
        eEnabledUpdater,
        eFocusableObjUpdater,
        eFocusedUpdater,
        eEasePositionUpdater,
        eEaseAlphaUpdater,
        eEaseRotationUpdater,
        eEaseSizeUpdater,
        eUpdaterCount
    };

    // What a class offers to tools, declared by its constructor.
    enum DeclaredNameKind : unsigned int
    {
        eStateName,
        eEventName,
        eAutoChildName,
        eAutoSubObjName,
    };

    // What the pass reads of an object, kept apart in a dense pool: a walk over
    // unchanged objects reads these headers and leaves the (large) objects alone.
    struct PassHeader
    {
        BaseObj* pObj = nullptr;
        ZemRenderer::TArray<PassHeader*> aChildren;  // the children's headers, in child order
        unsigned int uDirtyUpdaters = 0;
        unsigned int uDirtyBits = 0;  // one bit per updater of the object's own, by UpdaterId
        bool bVisible = true;
        bool bIsPointerObj = false;
        bool bPendingDelete = false;
        bool bHasSubObjs = false;
    };

    class BaseObj : public PropertyList
    {
    public:
        BaseObj(const char* name, BaseObj* parent, const char* lookName, const char* protoName);
        ~BaseObj() override;
        BaseObj(const BaseObj&) = delete;
        BaseObj& operator=(const BaseObj&) = delete;

        // ---- Virtual operations ----
        const PropertyTable& GetPropertyTable() const override;
        virtual const char* GetTypeName() const { return "BaseObj"; }
        // Once, right after construction: clones the source's sub-objects and children,
        // copies its properties, attaches to the parent, computes the state.
        virtual void Init(const BaseObj* source);

        virtual void MarkRedraw();
        virtual void MarkPosition();
        virtual void MarkSize();
        virtual void MarkOrientation();
        virtual void MarkEnabled();
        virtual void MarkAlpha();
        virtual void MarkClipping();
        virtual void MarkFocusableObj();
        virtual void MarkFocused();
        virtual void QueueSubObjUpdate(SubObj* subObj);

        virtual void AddChild(BaseObj* child);
        virtual void RemoveChild(BaseObj* child);
        // Takes ownership; false when refused (the sub-object is then the caller's).
        virtual bool AddSubObj(SubObj* subObj);
        virtual void RemoveSubObj(SubObj* subObj);

        // Mode 1: `value` is an absolute target in pixels; any other mode: the stated value.
        virtual void SetPosition(const UDim2& value, unsigned int mode);
        void SetPosition(const UDim2& value) { SetPosition(value, 0); }
        virtual void EasePosition(const UDim2& target, float seconds, const EaseFunction* ease, unsigned int easeMode);
        virtual void MovePosition(const UDim2& delta, unsigned int mode);
        virtual void SetSize(const UDim2& value, unsigned int mode);
        void SetSize(const UDim2& value) { SetSize(value, 0); }
        virtual void EaseSize(const UDim2& target, float seconds, const EaseFunction* ease, unsigned int easeMode);
        virtual void ResizeBy(const UDim2& delta, unsigned int mode);
        virtual void SetRotation(float degrees);
        virtual void EaseRotation(float target, float seconds, const EaseFunction* ease, unsigned int easeMode);
        virtual void Rotate(float degrees);
        virtual void SetInheritOrientation(bool b);
        virtual void SetInheritPosition(bool b);
        virtual void SetInheritSize(bool b);
        virtual void SetInheritAlpha(bool b);

        virtual bool OnPointerMoved(PointerEventArgs& args);
        virtual bool OnPointerEntered(PointerEventArgs& args);
        virtual bool OnPointerLeft(PointerEventArgs& args);
        virtual bool OnPointerScrolled(PointerEventArgs& args);
        virtual bool OnButtonPressed(PointerEventArgs& args);
        virtual bool OnButtonReleased(PointerEventArgs& args);
        virtual bool OnFocusGot(PointerEventArgs& args);
        virtual bool OnFocusLost(PointerEventArgs& args);
        virtual bool OnEndEase(ObjEventArgs& args);

        virtual void SetState(const char* name);
        virtual void SetInheritState(bool b);
        virtual const char* ComputeState();
        virtual const char* ComputeChildState(BaseObj* child);
        virtual Vec2 GetChildrenSize();
        virtual bool IsAutoChild(const BaseObj* child) const;

        // ---- Tree ----
        BaseObj* GetParent() const { return m_pParent; }
        unsigned int GetChildCount() const { return m_vChildren.GetSize(); }
        BaseObj* GetChildAt(unsigned int i) const { return i < m_vChildren.GetSize() ? m_vChildren[i] : nullptr; }
        BaseObj* GetChild(const char* name) const;
        BaseObj* GetByRelativePath(const char* text) const;
        bool IsAncestorOf(const BaseObj* obj) const;
        // False when a sibling has the name, or the path would be too long.
        bool SetName(const char* name);
        void SetLook(const char* name);
        SubObj* GetSubObj(const char* name) const;
        unsigned int GetSubObjCount() const { return m_vSubObjs.GetSize(); }
        SubObj* GetSubObjAt(unsigned int i) const { return i < m_vSubObjs.GetSize() ? m_vSubObjs[i] : nullptr; }

        const char* GetName() const { return m_kName.Get(); }
        const char* GetPath() const { return m_szPath; }
        const char* GetLookName() const { return m_kLookName.Get(); }
        const char* GetProtoName() const { return m_kProtoName.Get(); }
        void SetProtoName(const char* name) { m_kProtoName.Set(name); }
        unsigned int GetId() const { return m_uId; }
        unsigned int GetRootIndex() const { return m_uRootIndex; }

        // ---- Child order ----
        void RaiseChild(BaseObj* child);
        void LowerChild(BaseObj* child);
        void BringChildToFront(BaseObj* child);
        void SendChildToBack(BaseObj* child);
        // The index, or -1 for an object that is not a child here.
        int GetChildIndex(const BaseObj* child) const;
        bool SetChildIndex(BaseObj* child, int index);
        unsigned int GetAlwaysOnTopFirstId() const { return m_uAlwaysOnTopFirstId; }

        // ---- Getters that pull (each runs its updater first) ----
        Math::Quaternion GetWorldOrientation();
        void GetAbsPosition(Vec2& out);
        void GetAbsSize(Vec2& out);
        Vec2 GetAbsPosition();
        Vec2 GetAbsSize();
        void GetRelPosition(Vec2& out);
        void GetRelSize(Vec2& out);
        Vec2 GetAvailableSize();
        const Matrix44& GetMatrix();
        const Matrix44& GetInverseMatrix();
        const GuiRect& GetLocalClip();
        const GuiRect& GetWorldClip();
        float GetFinalAlpha();
        bool IsEnabledFinal();
        BaseObj* GetFocusableObj();
        bool IsFocusedFinal();
        UDim2 GetWorldPosition();
        UDim2 GetWorldSize();
        // 0 to 3 when the world orientation is that many quarter turns, else -1.
        int GetQuarterTurn();
        // The place against a parent extent, as layouts measure it.
        Vec2 ComputeAbsPosition(const Vec2& parentSize, bool ignoreParentPosition);

        // ---- Events ----
        // Keeps its own copy of the functor. False when refused.
        bool ConnectEventCallback(const char* eventName, const EventCallbackFunctorBase& functor);
        bool DisconnectEventCallback(const char* eventName, const EventCallbackFunctorBase& functor);
        bool FireEvent(const char* eventName, EventArgs& args);
        unsigned int GetEventCount() const { return m_uEventCount; }
        // Callbacks connected to an event (nulls excluded); 0 for an unknown event.
        unsigned int GetCallbackCount(const char* eventName) const;

        void EaseAlpha(float target, float seconds, const EaseFunction* ease, unsigned int easeMode);

        // ---- Properties ----
        const UDim2& GetPosition() const { return m_kPosition; }
        const UDim2& GetSize() const { return m_kSize; }
        const UDim2& GetAnchor() const { return m_kAnchor; }
        void SetAnchor(const UDim2& value);
        float GetRotation() const { return m_fRotation; }
        bool GetAlignToPixel() const { return m_bAlignToPixel; }
        void SetAlignToPixel(bool b) { m_bAlignToPixel = b; }
        bool GetInheritOrientation() const { return m_bInheritOrientation; }
        bool GetInheritPosition() const { return m_bInheritPosition; }
        bool GetInheritSize() const { return m_bInheritSize; }
        bool IsVisible() const { return m_pPass->bVisible; }
        void SetVisible(bool b);
        bool IsEnabled() const { return m_bEnabled; }
        void SetEnabled(bool b);
        bool GetOverlap() const { return m_bOverlap; }
        void SetOverlap(bool b);
        bool GetStack() const { return m_bStack; }
        void SetStack(bool b);
        Direction GetStackDirection() const { return m_eStackDirection; }
        void SetStackDirection(Direction d);
        float GetAlpha() const { return m_fAlpha; }
        void SetAlpha(float a);
        bool GetInheritAlpha() const { return m_bInheritAlpha; }
        bool GetClippedByParent() const { return m_bClippedByParent; }
        void SetClippedByParent(bool b);
        bool IsInteractEnabled() const { return m_bInteractEnabled; }
        void SetInteractEnabled(bool b);
        bool IsInteractTransparent() const { return m_bInteractTransparent; }
        void SetInteractTransparent(bool b);
        bool GetFocusKept() const { return m_bFocusKept; }
        void SetFocusKept(bool b) { m_bFocusKept = b; }
        bool IsFocusable() const { return m_bFocusable; }
        void SetFocusable(bool b);
        bool GetInheritFocus() const { return m_bInheritFocus; }
        void SetInheritFocus(bool b);
        bool IsAutoRepeatPressEnabled() const { return m_bAutoRepeatPressEnabled; }
        void SetAutoRepeatPressEnabled(bool b);
        int GetAutoRepeatPressRate() const { return static_cast<int>(m_uAutoRepeatPressRate); }
        void SetAutoRepeatPressRate(int ms);
        int GetAutoRepeatPressDelay() const { return static_cast<int>(m_uAutoRepeatPressDelay); }
        void SetAutoRepeatPressDelay(int ms);
        bool GetChangePointerEnabled() const { return m_bChangePointerEnabled; }
        void SetChangePointerEnabled(bool b) { m_bChangePointerEnabled = b; }
        const char* GetChangePointerState() const { return m_szChangePointerState; }
        void SetChangePointerState(const char* state);
        const char* GetTooltipText() const { return m_kTooltipText.Get(); }
        void SetTooltipText(const char* text);
        bool IsAlwaysOnTop() const { return m_bAlwaysOnTop; }
        void SetAlwaysOnTop(bool b);
        bool GetAspectRatioPreserved() const { return m_bAspectRatioPreserved; }
        void SetAspectRatioPreserved(bool b);
        Alignment GetAspectRatioStretchAlignment() const { return m_eAspectRatioStretchAlignment; }
        void SetAspectRatioStretchAlignment(Alignment a);
        Direction GetAspectRatioStretchDirection() const { return m_eAspectRatioStretchDirection; }
        void SetAspectRatioStretchDirection(Direction d);
        int GetFocusMask() const { return static_cast<int>(m_uFocusMask); }
        void SetFocusMask(int mask) { m_uFocusMask = static_cast<unsigned int>(mask); }
        bool GetInheritState() const { return m_bInheritState; }

        // ---- State and interaction ----
        const char* GetCurrentState() const { return m_szCurrentState; }
        const char* GetPreviousState() const { return m_szPreviousState; }
        void RefreshState() { SetState(ComputeState()); }
        bool IsPointed() const { return m_bPointed; }
        bool IsFocused() const { return m_bFocused; }
        bool GetDelegateState() const { return m_bDelegateState; }
        void SetDelegateState(bool b) { m_bDelegateState = b; }
        bool GetStopRepeatOnLeave() const { return m_bStopRepeatOnLeave; }
        void SetStopRepeatOnLeave(bool b) { m_bStopRepeatOnLeave = b; }
        // True while the object and its ancestors are visible.
        bool IsVisibleInTree() const;
        // Sizes itself on its children (a negative scale on an axis).
        bool IsSelfSized() const { return m_kSize.x.scale < 0.0f || m_kSize.y.scale < 0.0f; }
        // Its layout depends on its children: self-sized, or stacking them.
        bool IsSizedOnChildren() const { return IsSelfSized() || m_bStack; }
        bool IsPointerObj() const { return m_pPass->bIsPointerObj; }
        // Deleted and waiting for the deletion lock to fall: out of the tree and the map.
        bool IsPendingDelete() const { return m_pPass->bPendingDelete; }

        // ---- Names offered to tools ----
        void DeclareName(DeclaredNameKind kind, const char* name);
        bool HasDeclaredName(DeclaredNameKind kind, const char* name) const;
        unsigned int GetDeclaredNameCount(DeclaredNameKind kind) const;

        // ---- Updaters ----
        ObjUpdater* GetUpdater(UpdaterId id) const { return id < eUpdaterCount ? m_apUpdaters[id] : nullptr; }
        unsigned int GetDirtyUpdaterCount() const { return m_pPass->uDirtyUpdaters; }
        PassHeader* GetPassHeader() const { return m_pPass; }
        unsigned int GetFirstUpdaterCount() const { return m_aFirstUpdaters.GetSize(); }
        ObjUpdater* GetFirstUpdaterAt(unsigned int i) const { return m_aFirstUpdaters[i]; }
        unsigned int GetSecondUpdaterCount() const { return m_aSecondUpdaters.GetSize(); }
        ObjUpdater* GetSecondUpdaterAt(unsigned int i) const { return m_aSecondUpdaters[i]; }
        bool HasSecondUpdater(const ObjUpdater* u) const;
        // For widgets: their own updaters join the lists here.
        void AddFirstUpdater(ObjUpdater* u);
        void AddSecondUpdater(ObjUpdater* u);
        void RemoveSecondUpdater(ObjUpdater* u);
        AutoRepeatPressUpdater& GetAutoRepeat() { return m_kAutoRepeatPressUpdater; }
        EaseValueUpdater<PositionSetter>& GetPositionEase() { return m_kEasePositionUpdater; }
        EaseValueUpdater<SizeSetter>& GetSizeEase() { return m_kEaseSizeUpdater; }
        EaseValueUpdater<AlphaSetter>& GetAlphaEase() { return m_kEaseAlphaUpdater; }
        EaseValueUpdater<RotationSetter>& GetRotationEase() { return m_kEaseRotationUpdater; }

        // The property table of this class, built once.
        static const PropertyTable& GetBaseObjTable();

    protected:
        void SetIsPointerObj() { m_pPass->bIsPointerObj = true; }

    private:
        friend class ObjManager;
        friend class ObjUpdater;
        friend class RedrawUpdater;
        friend class PositionUpdater;
        friend class SizeUpdater;
        friend class OrientationUpdater;
        friend class ClippingUpdater;
        friend class EnabledUpdater;
        friend class AlphaUpdater;
        friend class FocusableObjUpdater;
        friend class FocusedUpdater;
        friend class StateUpdater;
        friend class SubObjUpdater;
        friend class PointerUpdater;

        bool BuildPath();
        void SetPendingDelete() { m_pPass->bPendingDelete = true; }
        void MarkLayoutOfParent();
        void MoveChildTo(unsigned int from, unsigned int to);
        // The child arrays change only here, so that the headers' array follows.
        void InsertChildAt(unsigned int i, BaseObj* child);
        void RemoveChildAt(unsigned int i);

        // Updater bodies.
        void ComputeWorldPosition();
        void ComputeWorldSize();
        void ComputeWorldOrientation();
        void ComputeMatrix();
        void ComputeClipping();
        UDim2 CorrectedPosition() const;
        UDim2 CorrectedSize() const;
        float AspectFactor() const;

        EventEntry* FindEvent(const char* name) const;

        // First: the updaters below count their dirty flags in it from construction on.
        PassHeader* m_pPass;
        BaseObj* m_pParent = nullptr;
        ZemRenderer::TArray<BaseObj*> m_vChildren;
        ZemRenderer::TArray<SubObj*> m_vSubObjs;
        OwnedText m_kName;
        char m_szPath[kPathCapacity] = {};
        OwnedText m_kLookName;
        OwnedText m_kProtoName;
        unsigned int m_uId = 0;
        unsigned int m_uRootIndex = 0;

        float m_fRotation = 0.0f;
        Math::Quaternion m_kLocalOrientation;
        UDim2 m_kPosition;
        UDim2 m_kAnchor;
        UDim2 m_kSize;
        Math::Quaternion m_kWorldOrientation;
        Vec2 m_kAvailableSize;
        UDim2 m_kWorldPosition;
        UDim2 m_kWorldSize;
        Matrix44 m_kMatrix;
        Matrix44 m_kInverseMatrix;

        bool m_bOverlap = true;
        bool m_bStack = false;
        Direction m_eStackDirection = eHorizontal;
        bool m_bInheritOrientation = true;
        bool m_bInheritPosition = true;
        bool m_bInheritSize = true;
        bool m_bAlignToPixel = true;
        bool m_bEnabled = true;
        bool m_bEnabledFinal = true;
        float m_fAlpha = 1.0f;
        bool m_bInheritAlpha = true;
        float m_fAlphaFinal = 1.0f;
        bool m_bClippedByParent = true;
        GuiRect m_kLocalClip;
        GuiRect m_kWorldClip;
        bool m_bInteractEnabled = false;
        bool m_bInteractTransparent = true;
        bool m_bPointed = false;
        bool m_bFocusKept = false;
        bool m_bFocusable = false;
        BaseObj* m_pFocusableObj = nullptr;
        bool m_bFocused = false;
        bool m_bInheritFocus = false;
        bool m_bFocusedFinal = false;
        bool m_bInheritState = false;
        bool m_bDelegateState = false;
        bool m_bAutoRepeatPressEnabled = false;
        bool m_bStopRepeatOnLeave = true;
        unsigned int m_uAutoRepeatPressRate = 60;
        unsigned int m_uAutoRepeatPressDelay = 300;
        bool m_bChangePointerEnabled = false;
        char m_szChangePointerState[kNameCapacity] = {};
        OwnedText m_kTooltipText;
        unsigned int m_uAlwaysOnTopFirstId = 0;
        bool m_bAlwaysOnTop = false;

        RedrawUpdater m_kRedrawUpdater{this};
        PositionUpdater m_kPositionUpdater{this};
        SizeUpdater m_kSizeUpdater{this};
        OrientationUpdater m_kOrientationUpdater{this};
        FctUpdater<BaseObj> m_kMatrixUpdater{this, &BaseObj::ComputeMatrix};
        ClippingUpdater m_kClippingUpdater{this};
        SubObjUpdater m_kSubObjUpdater{this};
        PointerUpdater m_kPointerUpdater{this};
        StateUpdater m_kStateUpdater{this};
        AutoRepeatPressUpdater m_kAutoRepeatPressUpdater{this};
        AlphaUpdater m_kAlphaUpdater{this};
        EnabledUpdater m_kEnabledUpdater{this};
        FocusableObjUpdater m_kFocusableObjUpdater{this};
        FocusedUpdater m_kFocusedUpdater{this};
        EaseValueUpdater<PositionSetter> m_kEasePositionUpdater{this};
        EaseValueUpdater<AlphaSetter> m_kEaseAlphaUpdater{this};
        EaseValueUpdater<RotationSetter> m_kEaseRotationUpdater{this};
        EaseValueUpdater<SizeSetter> m_kEaseSizeUpdater{this};
        ObjUpdater* m_apUpdaters[eUpdaterCount] = {};
        ZemRenderer::TArray<ObjUpdater*> m_aFirstUpdaters;
        ZemRenderer::TArray<unsigned int> m_aFirstBits;  // header bit of each, 0 for a widget's
        ZemRenderer::TArray<ObjUpdater*> m_aSecondUpdaters;

        EventEntry* m_pEvents = nullptr;  // kMaxEvents entries, made on the first connection
        unsigned int m_uEventCount = 0;
        unsigned int m_uFiringDepth = 0;
        // Callbacks disconnected while an event fired; freed when no firing is left.
        ZemRenderer::TArray<EventCallbackFunctorBase*> m_aRetiredCallbacks;

        struct DeclaredName
        {
            DeclaredNameKind eKind;
            const char* szName;
        };
        ZemRenderer::TArray<DeclaredName> m_aDeclaredNames;

        char m_szCurrentState[kNameCapacity] = {};
        char m_szPreviousState[kNameCapacity] = {};
        bool m_bAspectRatioPreserved = false;
        Direction m_eAspectRatioStretchDirection = eHorizontal;
        Alignment m_eAspectRatioStretchAlignment = eLeftTop;
        unsigned int m_uFocusMask = 1;

    };

    // The container: nothing added.
    class Node : public BaseObj
    {
    public:
        using BaseObj::BaseObj;
        const char* GetTypeName() const override { return "Node"; }
    };
}
