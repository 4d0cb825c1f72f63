#pragma once
// A GUI system without a renderer for each test, and small helpers: a recording
// sub-object, callbacks from lambdas, and the pass run until nothing is dirty.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemgui/GuiScreen.h"
#include "zemgui/Look.h"
#include "zemgui/ObjManager.h"
#include "zemgui/PointerManager.h"
#include "zemgui/System.h"
#include "zemgui/obj/ButtonObj.h"
#include "zemgui/obj/PointerObj.h"
#include "zemgui/subobj/SubObj.h"

namespace ZemGui::Test
{
    using Common::ScopedLogCapture;

    // A callback that runs a std::function; the function lives in the test.
    class LambdaCallback
    {
    public:
        explicit LambdaCallback(std::function<bool(EventArgs&)> fn) : m_kFn(std::move(fn)) {}
        EventCallbackFunctorFree Functor() { return EventCallbackFunctorFree(&Call, this); }

    private:
        static bool Call(void* self, EventArgs& args) { return static_cast<LambdaCallback*>(self)->m_kFn(args); }
        std::function<bool(EventArgs&)> m_kFn;
    };

    // Records what the object model asks of a sub-object.
    class RecordingSubObj : public SubObj
    {
    public:
        RecordingSubObj(BaseObj* owner, const char* name, Vec2 minimum = Vec2()) : SubObj(owner, name), m_kMinimum(minimum) {}
        void Update() override { ++uUpdates; }
        void Draw(GuiShader*) override { ++uDraws; }
        void ApplyOwnerState(const char* state) override { sLastState = state ? state : ""; ++uStates; }
        void GetMinimumSize(Vec2& out, const Vec2&) override { out = m_kMinimum; }
        void Invalidate() override
        {
            SubObj::Invalidate();
            ++uInvalidations;
        }
        SubObj* Clone(BaseObj* newOwner) const override
        {
            return MEM_NEW(RecordingSubObj, newOwner, GetName(), m_kMinimum);
        }

        unsigned int uUpdates = 0, uDraws = 0, uStates = 0, uInvalidations = 0;
        std::string sLastState;

    private:
        Vec2 m_kMinimum;
    };

    class GuiTest : public ::testing::Test
    {
    protected:
        void SetUp() override
        {
            m_pSystem = System::Create(nullptr, nullptr);
            ASSERT_NE(m_pSystem, nullptr);
            m_pSystem->GetScreen().SetSize(1920, 1080);
        }
        void TearDown() override { System::Destroy(); }

        ObjManager& Objects() { return m_pSystem->GetObjManager(); }
        PointerManager& Pointers() { return m_pSystem->GetPointerManager(); }
        BaseObj* Root() { return Objects().GetRoot(); }

        template <class T = Node>
        T* Make(const char* name, BaseObj* parent = nullptr)
        {
            return Objects().CreateObj<T>(name, parent ? parent : Root());
        }

        // A pixel rectangle under `parent`.
        template <class T = Node>
        T* MakeRect(const char* name, float x, float y, float w, float h, BaseObj* parent = nullptr)
        {
            T* o = Make<T>(name, parent);
            if (o)
            {
                o->SetPosition(UDim2(0, x, 0, y));
                o->SetSize(UDim2(0, w, 0, h));
            }
            return o;
        }

        // One frame: time step, then the pass.
        void Frame(unsigned int ms = 16)
        {
            m_pSystem->Update(ms);
            m_pSystem->Draw();
        }

        System* m_pSystem = nullptr;
    };
}
