// The system: shaders through a renderer, the frame entry points, and the queue that
// hands work from other threads to the GUI's thread.
#include <atomic>
#include <thread>

#include "zemgui/tests/GuiTestKit.h"

namespace ZemGui::Test
{
    namespace
    {
        class RecordingRenderer : public GuiRenderer
        {
        public:
            GuiShader* LoadShader(const char* file) override
            {
                loaded.push_back(file);
                return file == std::string("Toolchain/Shaders/GuiFontOutline.zff") ? nullptr
                                                                                    : reinterpret_cast<GuiShader*>(&marker + loaded.size());
            }
            void ReleaseShader(GuiShader*) override { ++released; }
            void BeginMarker(const char* name) override { markers += std::string("<") + name; }
            void EndMarker() override { markers += ">"; }

            std::vector<std::string> loaded;
            int released = 0;
            std::string markers;
            char marker[8] = {};
        };

        class CountingSubObj : public RecordingSubObj
        {
        public:
            using RecordingSubObj::RecordingSubObj;
            void Draw(GuiShader* shader) override
            {
                RecordingSubObj::Draw(shader);
                lastShader = shader;
            }
            GuiShader* lastShader = nullptr;
        };
    }

    TEST(SystemStart, ShadersByNameWhenARendererIsThere)
    {
        RecordingRenderer renderer;
        System* s = System::Create(nullptr, &renderer);
        ASSERT_NE(s, nullptr);
        EXPECT_EQ(System::Create(nullptr, nullptr), s) << "one system";
        const std::vector<std::string> expected = {"Toolchain/Shaders/Gui.zff", "Toolchain/Shaders/GuiFont.zff",
                                                   "Toolchain/Shaders/GuiFontOutline.zff",
                                                   "Toolchain/Shaders/GuiFontOutlineBackground.zff"};
        EXPECT_EQ(renderer.loaded, expected);
        EXPECT_NE(s->GetShader(eGuiShader), nullptr);
        EXPECT_EQ(s->GetShader(eGuiFontOutlineShader), nullptr);
        EXPECT_EQ(s->GetReferenceSize(), Vec2(1920, 1080));
        EXPECT_EQ(s->GetScreen().GetSize(), Vec2(1920, 1080));
        EXPECT_EQ(s->GetPointerManager().GetInteractRoot(), s->GetObjManager().GetRoot());

        s->Draw();
        EXPECT_EQ(renderer.markers, "<DrawGUI>");
        EXPECT_FALSE(s->IsInDraw());

        BaseObj* o = s->GetObjManager().CreateObj<Node>("Obj", s->GetObjManager().GetRoot());
        auto* sub = MEM_NEW(CountingSubObj, o, "Img");
        o->AddSubObj(sub);
        s->Draw();
        EXPECT_EQ(sub->uDraws, 1u);
        EXPECT_EQ(sub->lastShader, s->GetShader(eGuiShader));
        o->SetVisible(false);
        s->Draw();
        EXPECT_EQ(sub->uDraws, 1u);
        System::Destroy();
        EXPECT_EQ(renderer.released, 3);
        EXPECT_EQ(System::GetInstance(), nullptr);
    }

    using SystemTest = GuiTest;

    TEST_F(SystemTest, WithoutRendererEverythingButDrawingRuns)
    {
        BaseObj* o = Make("Obj");
        auto* sub = MEM_NEW(RecordingSubObj, o, "Img");
        o->AddSubObj(sub);
        EXPECT_EQ(m_pSystem->GetShader(eGuiShader), nullptr);
        m_pSystem->Update(33);
        EXPECT_EQ(m_pSystem->GetScreen().GetFrameTimeMs(), 33u);
        EXPECT_FALSE(m_pSystem->IsInUpdate());
        m_pSystem->Draw();
        EXPECT_EQ(sub->uDraws, 0u);
        EXPECT_EQ(sub->sLastState, "EnabledState") << "updaters ran";
        EXPECT_GT(sub->uInvalidations, 0u);

        // Restricted passes.
        o->SetAlpha(0.5f);
        m_pSystem->DrawChild("Nobody");  // unknown: the whole tree
        EXPECT_EQ(o->GetDirtyUpdaterCount(), 0u);
        o->SetAlpha(0.25f);
        m_pSystem->DrawObj(o);
        EXPECT_EQ(o->GetDirtyUpdaterCount(), 0u);
        m_pSystem->DrawObj(nullptr);

        m_pSystem->SetTexturePath("Toolchain/UI/Version/Textures");
        EXPECT_STREQ(m_pSystem->GetTexturePath(), "Toolchain/UI/Version/Textures");
        m_pSystem->PlaySound("click");  // no player: nothing
    }

    TEST_F(SystemTest, SubObjectUpdatesAndRedrawsRunInThePass)
    {
        BaseObj* o = Make("Obj");
        auto* sub = MEM_NEW(RecordingSubObj, o, "Img");
        o->AddSubObj(sub);
        Frame();
        const unsigned int invalidations = sub->uInvalidations;
        o->QueueSubObjUpdate(sub);
        o->QueueSubObjUpdate(sub);
        Frame();
        EXPECT_EQ(sub->uUpdates, 1u);
        o->SetSize(UDim2(0, 10, 0, 10));
        Frame();
        EXPECT_EQ(sub->uInvalidations, invalidations + 1);
        o->QueueSubObjUpdate(sub);
        o->RemoveSubObj(sub);
        Frame();
        EXPECT_EQ(o->GetSubObjCount(), 0u);
    }

    TEST_F(SystemTest, WorkFromOtherThreadsRunsOnTheGuiThreadAtTheNextFrame)
    {
        MainThreadQueue& q = m_pSystem->GetMainThreadQueue();
        struct Work
        {
            std::thread::id ranOn;
            int value = 0;
        };
        std::vector<Work> works(400);
        std::atomic<int> posted{0};
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&, t] {
                for (int i = 0; i < 100; ++i)
                {
                    Work* w = &works[t * 100 + i];
                    q.Post(
                        [](void* c) {
                            auto* wk = static_cast<Work*>(c);
                            wk->ranOn = std::this_thread::get_id();
                            wk->value = 1;
                        },
                        w);
                    ++posted;
                }
            });
        for (auto& t : threads) t.join();
        EXPECT_EQ(q.GetPendingCount(), 400u);
        for (const Work& w : works) EXPECT_EQ(w.value, 0) << "nothing runs before the frame";
        m_pSystem->Update(16);
        for (const Work& w : works)
        {
            EXPECT_EQ(w.value, 1);
            EXPECT_EQ(w.ranOn, std::this_thread::get_id());
        }

        // Work that posts work: the new task waits for the next frame. It may build objects.
        struct Chain
        {
            System* sys;
            int runs = 0;
        } chain{m_pSystem};
        q.Post(
            [](void* c) {
                auto* ch = static_cast<Chain*>(c);
                ++ch->runs;
                ch->sys->GetObjManager().CreateObj<Node>("FromLoader", ch->sys->GetObjManager().GetRoot());
                ch->sys->GetMainThreadQueue().Post([](void* c2) { ++static_cast<Chain*>(c2)->runs; }, c);
            },
            &chain);
        m_pSystem->Update(16);
        EXPECT_EQ(chain.runs, 1);
        EXPECT_NE(Root()->GetChild("FromLoader"), nullptr);
        m_pSystem->Update(16);
        EXPECT_EQ(chain.runs, 2);

        // Closing discards what waits and refuses more.
        int discarded = 0;
        auto discard = [](void* c) { ++*static_cast<int*>(c); };
        auto never = [](void*) { FAIL() << "ran after close"; };
        q.Post(never, &discarded, discard);
        q.Close();
        EXPECT_EQ(discarded, 1);
        EXPECT_FALSE(q.Post(never, &discarded, discard));
        EXPECT_EQ(discarded, 2);
        EXPECT_EQ(q.Drain(), 0u);
    }

    TEST_F(SystemTest, ObjectsAreRefusedOffTheGuiThread)
    {
        ScopedLogCapture log;
        BaseObj* made = reinterpret_cast<BaseObj*>(1);
        std::thread([&] { made = Objects().CreateObj<Node>("Off", Root()); }).join();
        EXPECT_EQ(made, nullptr);
        EXPECT_TRUE(log.Contains("GUI objects belong to the GUI's thread"));
        EXPECT_EQ(Root()->GetChild("Off"), nullptr);
    }
}
