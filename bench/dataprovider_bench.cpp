// A query answered by the asset manager over loopback (an asset already cooked: the
// asset manager checks source and cooked file and replies), against two baselines in
// this binary: the bare frame round trip of the asset manager's greeting on the same
// connection, and the data provider's local lookup of a cooked file on disk.
// Each reports its median round trip as the counter "median_us".
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include "common/system/debug/Log.h"
#include "common/system/net/TcpSocket.h"
#include "common/utils/Hash.h"
#include "zemengine/dataprovider/AssetManagerServer.h"
#include "zemengine/dataprovider/AssetQueryJson.h"
#include "zemengine/dataprovider/DataProviderImpl.h"

namespace
{
    namespace fs = std::filesystem;
    typedef std::chrono::steady_clock Clock;

    void WriteText(const fs::path& path, const std::string& text)
    {
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << text;
    }

    // One asset manager in this process over a scratch root, with one asset cooked.
    struct CSetup
    {
        CSetup()
        {
            char pattern[] = "/tmp/zem_dpbench_XXXXXX";
            if (mkdtemp(pattern)) m_kRoot = pattern;
            WriteText(m_kRoot / "Toolchain/TypesInfos/Link.assetInfos",
                      "[{\"EngineClassName\": \"ZemRenderer::Link\", \"Name\": \"Link\", \"OutputExt\": \"zef\","
                      " \"ImportTypeExtensions\": [\"zef\"]}]");
            WriteText(m_kRoot / "Meshes/Box.zef", std::string(4096, 'b'));
            m_bReady = m_kServer.Start(nullptr, m_kRoot.c_str(), "127.0.0.1", 0);
            DataProvider::MakeAssetQuery(m_kQuery, GenerateUIntIdFromString("ZemRenderer::Link"), "Meshes/Box.zef");
            DataProvider::AssetResult cooked;
            m_bReady = m_bReady && m_kServer.Cook(m_kQuery, cooked);
        }
        ~CSetup()
        {
            m_kServer.Stop();
            std::error_code ignored;
            fs::remove_all(m_kRoot, ignored);
        }

        fs::path m_kRoot;
        DataProvider::CAssetManagerServer m_kServer;
        DataProvider::AssetQuery m_kQuery;
        bool m_bReady = false;
    };

    CSetup& Setup()
    {
        static CSetup s_kSetup;
        return s_kSetup;
    }

    void ReportMedian(benchmark::State& state, std::vector<double>& samples)
    {
        if (samples.empty()) return;
        std::nth_element(samples.begin(), samples.begin() + samples.size() / 2, samples.end());
        state.counters["median_us"] = samples[samples.size() / 2];
    }

    // A connection to the asset manager, greeted.
    DataProvider::CAssetManagerSockets* Connect(benchmark::State& state)
    {
        Common::TcpSocket* socket = MEM_NEW(Common::TcpSocket);
        if (!Setup().m_bReady || !socket->Connect(Setup().m_kServer.GetPort(), "127.0.0.1"))
        {
            MEM_DELETE(socket);
            state.SkipWithError("no asset manager");
            return nullptr;
        }
        DataProvider::CAssetManagerSockets* client = MEM_NEW(DataProvider::CAssetManagerSockets);
        client->Adopt(socket);
        return client;
    }

    void RoundTrips(benchmark::State& state, const char* json, bool decodeResult)
    {
        DataProvider::CAssetManagerSockets* client = Connect(state);
        if (!client) return;
        std::vector<double> samples;
        samples.reserve(1 << 16);
        ZemEngine::Json::Document reply;
        for (auto _ : state)
        {
            const Clock::time_point start = Clock::now();
            if (!client->CallMethod(json, &reply))
            {
                state.SkipWithError("no reply");
                break;
            }
            if (decodeResult)
            {
                DataProvider::AssetResult result;
                const char* expected = nullptr;
                const ZemEngine::Json::Value* res = ZemEngine::Json::FindMember(reply, "Res");
                if (!res || !DataProvider::DecodeAssetResult(*res, result, expected) || !result.m_bSucceeded)
                {
                    state.SkipWithError("query failed");
                    break;
                }
            }
            samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        }
        ReportMedian(state, samples);
        MEM_DELETE(client);
    }

    void BM_AssetManagerQuery(benchmark::State& state)
    {
        ZemEngine::Json::StringBuffer text;
        DataProvider::WriteAssetManagerCommand(text, "QueryAssetData", 0, &Setup().m_kQuery);
        RoundTrips(state, text.GetString(), true);
    }
    BENCHMARK(BM_AssetManagerQuery)->UseRealTime();

    void BM_Baseline_FrameRoundTrip(benchmark::State& state)
    {
        ZemEngine::Json::StringBuffer text;
        DataProvider::WriteAssetManagerCommand(text, "GetRPCSingleton", 0, nullptr, nullptr);
        RoundTrips(state, text.GetString(), false);
    }
    BENCHMARK(BM_Baseline_FrameRoundTrip)->UseRealTime();

    void BM_Baseline_LocalLookup(benchmark::State& state)
    {
        if (!Setup().m_bReady)
        {
            state.SkipWithError("no setup");
            return;
        }
        DataProvider::DataProviderImpl provider;
        provider.SetAssetsRoot(Setup().m_kRoot.c_str());
        provider.Init(nullptr, false, 0);
        std::vector<double> samples;
        samples.reserve(1 << 16);
        for (auto _ : state)
        {
            const Clock::time_point start = Clock::now();
            DataProvider::AssetResult result;
            if (!provider.QueryAsset(result, Setup().m_kQuery))
            {
                state.SkipWithError("lookup failed");
                break;
            }
            samples.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
        }
        ReportMedian(state, samples);
    }
    BENCHMARK(BM_Baseline_LocalLookup)->UseRealTime();
}
