// Moving 10,000 links in one frame: the main thread's ExecuteCommands over a buffer that
// a producer thread filled, against the same moves applied directly on the main thread.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/scene/Link.h"

using namespace ZemRenderer;

namespace
{
    constexpr unsigned int kLinks = 10000;

    struct Scene
    {
        Bucket bucket{nullptr, "bench"};
        LOctreeRoot* octree = bucket.CreateLOctree(10000.0f, 6);
        std::vector<Link*> links;

        Scene()
        {
            for (unsigned int i = 0; i < kLinks; ++i)
            {
                Link* link = bucket.CreateLink("moved");
                link->GetRenderNode().m_nodes.Resize(1);
                octree->AddLink(link);
                links.push_back(link);
            }
        }
        ~Scene()
        {
            for (Link* link : links) bucket.DestroyLink(link);
        }

        std::vector<LinkCommand> Moves(int64_t step) const
        {
            std::vector<LinkCommand> moves(kLinks);
            for (unsigned int i = 0; i < kLinks; ++i)
            {
                moves[i].uiKind = LinkCommand::eSetPosition;
                moves[i].pTarget = links[i];
                moves[i].kPosition = {static_cast<int64_t>(i) * 1000 + step, step, -step};
            }
            return moves;
        }
    };

    double Seconds(std::chrono::steady_clock::time_point a, std::chrono::steady_clock::time_point b)
    {
        return std::chrono::duration<double>(b - a).count();
    }
}

// A producer queues the frame's 10,000 moves in one go and waits, as the stall rule
// says, until the main thread has taken the buffer; only ExecuteCommands is timed.
static void BM_ExecuteCommands(benchmark::State& state)
{
    Scene scene;
    const std::vector<LinkCommand> even = scene.Moves(0);
    const std::vector<LinkCommand> odd = scene.Moves(1);
    std::atomic<int> request{0};
    std::atomic<int> served{0};
    std::atomic<bool> quit{false};
    std::thread producer([&] {
        int seen = 0;
        while (!quit.load())
        {
            const int r = request.load();
            if (r == seen)
            {
                std::this_thread::yield();
                continue;
            }
            seen = r;
            const std::vector<LinkCommand>& moves = (r & 1) ? odd : even;
            scene.octree->AddCommands(moves.data(), kLinks);
            served.store(r);
        }
    });
    int round = 0;
    for (auto _ : state)
    {
        request.store(++round);
        while (scene.octree->GetCommandCount() < kLinks) std::this_thread::yield();
        const auto t0 = std::chrono::steady_clock::now();
        scene.octree->ExecuteCommands();
        const auto t1 = std::chrono::steady_clock::now();
        state.SetIterationTime(Seconds(t0, t1));
        while (served.load() != round) std::this_thread::yield();
    }
    quit.store(true);
    producer.join();
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kLinks);
}
BENCHMARK(BM_ExecuteCommands)->UseManualTime()->Unit(benchmark::kMicrosecond);

// Baseline: the same moves applied in place by the main thread.
static void BM_DirectMoves(benchmark::State& state)
{
    Scene scene;
    const std::vector<LinkCommand> even = scene.Moves(0);
    const std::vector<LinkCommand> odd = scene.Moves(1);
    int round = 0;
    for (auto _ : state)
    {
        const std::vector<LinkCommand>& moves = (++round & 1) ? odd : even;
        const auto t0 = std::chrono::steady_clock::now();
        for (const LinkCommand& move : moves)
        {
            move.pTarget->SetPosition(move.kPosition);
            scene.octree->UpdateLink(move.pTarget);
        }
        const auto t1 = std::chrono::steady_clock::now();
        state.SetIterationTime(Seconds(t0, t1));
    }
    state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kLinks);
}
BENCHMARK(BM_DirectMoves)->UseManualTime()->Unit(benchmark::kMicrosecond);
