#pragma once
// Repeats a held press: one after `AutoRepeatPressDelay`, then one per
// `AutoRepeatPressRate` milliseconds, while active. Lives in the second list.
#include "zemgui/EventArgs.h"
#include "zemgui/updaters/ObjUpdater.h"

namespace ZemGui
{
    class AutoRepeatPressUpdater : public ObjUpdater
    {
    public:
        using ObjUpdater::ObjUpdater;
        ~AutoRepeatPressUpdater() override;

        void Start(const PointerEventArgs& args);
        void Stop();
        void Resume();
        void Update() override;

        bool IsActive() const { return m_bActive; }
        bool IsRepeating() const { return m_bRepeating; }
        unsigned int GetElapsed() const { return m_uElapsed; }
        // The press goes to a pointer that no longer exists: stop without firing.
        void ForgetPointer(const Pointer* pointer);

    private:
        void SetActive(bool active);

        bool m_bActive = false;
        bool m_bRepeating = false;
        unsigned int m_uElapsed = 0;
        PointerEventArgs m_kArgs;
    };
}
