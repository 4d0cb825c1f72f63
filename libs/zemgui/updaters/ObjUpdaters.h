#pragma once
// The updaters every object has. Each `MarkDirty` passes the mark on to what depends on
// it, and only when the flag was clear, so a mark walks a subtree at most once.
#include "common/utils/TArray.h"
#include "zemgui/GuiTypes.h"
#include "zemgui/updaters/ObjUpdater.h"

namespace ZemGui
{
    class SubObj;

    // Invalidates the owner's sub-objects so that they rebuild what they draw.
    class RedrawUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
    };

    class PositionUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class SizeUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class OrientationUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class ClippingUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class EnabledUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class AlphaUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class FocusableObjUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    class FocusedUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void MarkDirty() override;
    };

    // Hands the owner's current state to each sub-object.
    class StateUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
    };

    // Sub-objects that asked for an update; the flag stays on while the list holds any.
    class SubObjUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
        void Queue(SubObj* subObj);
        void Forget(SubObj* subObj);
        unsigned int GetQueuedCount() const { return m_aQueue.GetSize(); }

    private:
        ZemRenderer::TArray<SubObj*> m_aQueue;
    };

    // Hit test of the pointers still to test against the owner (second list).
    class PointerUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        void Update() override;
    };
}
