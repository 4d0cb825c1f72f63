// The GUI's pass and its heavy operations, each against a baseline in this binary:
// - the update-and-draw pass over 10,000 unchanged objects against a plain pre-order walk
//   that calls one virtual function per object (same shape, same count);
// - moving the parent of 1,000 objects, and 1,000 alpha eases at once, against the pass
//   over the same 1,000 objects with nothing changed;
// - cloning a 1,000-object subtree against making 1,000 plain objects of the same shape.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "zemgui/ObjManager.h"
#include "zemgui/System.h"
#include "zemgui/obj/BaseObj.h"

namespace
{
    using namespace ZemGui;

    // A root holding `panels` nodes of `perPanel` children each.
    BaseObj* BuildTree(ObjManager& om, BaseObj* parent, const char* name, int panels, int perPanel)
    {
        BaseObj* top = om.CreateObj<Node>(name, parent);
        for (int p = 0; p < panels; ++p)
        {
            BaseObj* panel = om.CreateObj<Node>(("Panel" + std::to_string(p)).c_str(), top);
            panel->SetPosition(UDim2(0, 10.0f * p, 0, 0));
            panel->SetSize(UDim2(0, 400, 0, 300));
            for (int c = 0; c < perPanel; ++c)
            {
                BaseObj* o = om.CreateObj<Node>(("Item" + std::to_string(c)).c_str(), panel);
                o->SetPosition(UDim2(0, 2.0f * c, 0, 3.0f * c));
                o->SetSize(UDim2(0, 20, 0, 10));
            }
        }
        return top;
    }

    struct SystemScope
    {
        System* pSystem;
        SystemScope() : pSystem(System::Create(nullptr, nullptr)) {}
        ~SystemScope() { System::Destroy(); }
    };

    // ---------------------------------------------------------------- the pass

    void BM_PassUnchanged10k(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        BuildTree(om, om.GetRoot(), "Tree", 100, 99);  // 1 + 100 + 9,900 = 10,001 objects
        s.pSystem->Update(16);
        s.pSystem->Draw();
        for (auto _ : state) s.pSystem->Draw();
        state.SetItemsProcessed(state.iterations() * 10001);
    }
    BENCHMARK(BM_PassUnchanged10k)->Unit(benchmark::kMicrosecond);

    struct PlainNode
    {
        virtual ~PlainNode() = default;
        virtual void Visit(unsigned int& counter) { ++counter; }
        std::vector<PlainNode*> children;
    };

    void PlainWalk(PlainNode* n, unsigned int& counter)
    {
        n->Visit(counter);
        for (PlainNode* c : n->children) PlainWalk(c, counter);
    }

    void BM_PlainVirtualWalk10k(benchmark::State& state)
    {
        // Nodes allocated one by one, as the objects are.
        std::vector<PlainNode*> all;
        PlainNode* root = new PlainNode;
        all.push_back(root);
        for (int p = 0; p < 100; ++p)
        {
            PlainNode* panel = new PlainNode;
            root->children.push_back(panel);
            all.push_back(panel);
            for (int c = 0; c < 99; ++c)
            {
                PlainNode* o = new PlainNode;
                panel->children.push_back(o);
                all.push_back(o);
            }
        }
        unsigned int counter = 0;
        for (auto _ : state)
        {
            PlainWalk(root, counter);
            benchmark::DoNotOptimize(counter);
        }
        state.SetItemsProcessed(state.iterations() * 10001);
        for (PlainNode* n : all) delete n;
    }
    BENCHMARK(BM_PlainVirtualWalk10k)->Unit(benchmark::kMicrosecond);

    // ---------------------------------------------------------------- changes

    void BM_PassUnchanged1k(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        BaseObj* tree = BuildTree(om, om.GetRoot(), "Tree", 10, 99);  // 1,000 under the top
        benchmark::DoNotOptimize(tree);
        s.pSystem->Update(16);
        s.pSystem->Draw();
        for (auto _ : state)
        {
            s.pSystem->Update(16);
            s.pSystem->Draw();
        }
        state.SetItemsProcessed(state.iterations() * 1000);
    }
    BENCHMARK(BM_PassUnchanged1k)->Unit(benchmark::kMicrosecond);

    void BM_MoveParentOf1k(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        BaseObj* top = BuildTree(om, om.GetRoot(), "Tree", 10, 99);  // the parent of 1,000 objects
        s.pSystem->Update(16);
        s.pSystem->Draw();
        float x = 0.0f;
        for (auto _ : state)
        {
            x = x > 500.0f ? 0.0f : x + 1.0f;
            top->SetPosition(UDim2(0, x, 0, 0));
            s.pSystem->Update(16);
            s.pSystem->Draw();
        }
        state.SetItemsProcessed(state.iterations() * 1000);
    }
    BENCHMARK(BM_MoveParentOf1k)->Unit(benchmark::kMicrosecond);

    void BM_AlphaEases1k(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        BaseObj* top = BuildTree(om, om.GetRoot(), "Tree", 10, 99);
        BaseObj* panel = top->GetChildAt(0);
        // 1,000 eases: the ten panels and their 990 items.
        for (unsigned int p = 0; p < top->GetChildCount(); ++p)
        {
            BaseObj* group = top->GetChildAt(p);
            group->EaseAlpha(0.0f, 1e6f, &SineEase::kInstance, eEaseInOut);
            for (unsigned int i = 0; i < group->GetChildCount(); ++i)
                group->GetChildAt(i)->EaseAlpha(0.0f, 1e6f, &SineEase::kInstance, eEaseInOut);
        }
        for (auto _ : state)
        {
            s.pSystem->Update(16);
            s.pSystem->Draw();
        }
        benchmark::DoNotOptimize(panel->GetChildAt(0)->GetAlpha());
        state.SetItemsProcessed(state.iterations() * 1000);
    }
    BENCHMARK(BM_AlphaEases1k)->Unit(benchmark::kMicrosecond);

    // ---------------------------------------------------------------- making objects

    void BM_Clone1kSubtree(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        BaseObj* holder = om.CreateObj<Node>("Holder", om.GetRoot());
        BaseObj* source = BuildTree(om, holder, "Source", 10, 99);  // 1 + 10 + 990 = 1,001
        for (auto _ : state)
        {
            BaseObj* copy = om.CreateObjFromObj("Copy", om.GetRoot(), source, true);
            state.PauseTiming();
            om.DeleteObj(copy);
            state.ResumeTiming();
        }
        state.SetItemsProcessed(state.iterations() * 1001);
    }
    BENCHMARK(BM_Clone1kSubtree)->Unit(benchmark::kMicrosecond);

    void BM_Make1kPlain(benchmark::State& state)
    {
        SystemScope s;
        ObjManager& om = s.pSystem->GetObjManager();
        std::vector<std::string> panelNames, itemNames;
        for (int i = 0; i < 10; ++i) panelNames.push_back("Panel" + std::to_string(i));
        for (int i = 0; i < 99; ++i) itemNames.push_back("Item" + std::to_string(i));
        for (auto _ : state)
        {
            BaseObj* top = om.CreateObj<Node>("Copy", om.GetRoot());
            for (const std::string& p : panelNames)
            {
                BaseObj* panel = om.CreateObj<Node>(p.c_str(), top);
                for (const std::string& c : itemNames) om.CreateObj<Node>(c.c_str(), panel);
            }
            state.PauseTiming();
            om.DeleteObj(top);
            state.ResumeTiming();
        }
        state.SetItemsProcessed(state.iterations() * 1001);
    }
    BENCHMARK(BM_Make1kPlain)->Unit(benchmark::kMicrosecond);
}
