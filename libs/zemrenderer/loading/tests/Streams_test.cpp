#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>

#include "common/system/debug/Log.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/BaseLoader.h"
#include "zemrenderer/loading/LoadFileWorker.h"
#include "zemrenderer/loading/tests/LoadingTestKit.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/thread/LoadingThread.h"

namespace ZemRenderer
{
    using LoadingTest::FolderProvider;
    using SceneTest::Engine;
    using SceneTest::WaitUntil;

    namespace
    {
        std::string Content(IOSTreamMemory& stream)
        {
            std::string text(stream.GetSize(), '\0');
            if (!text.empty()) stream.Read(text.data(), text.size());
            return text;
        }
    }

    TEST(LoaderStreams, SimpleLoadingWorkFillsTheStreamOrLeavesItClosed)
    {
        FolderProvider provider;
        provider.Write("Shaders/a.txt", "shader text", 11);
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        LoadingThread* loader = engine.Get()->GetLoader();

        QueryPtr found(Query::Create());
        IOSTreamMemory* stream = loader->AddSimpleLoadingWork("Shaders/a.txt -param X", found);
        ASSERT_NE(stream, nullptr);
        ASSERT_TRUE(found->WaitFinished(5000));
        EXPECT_EQ(found->GetState(), Query::eDone);
        ASSERT_TRUE(stream->IsReadable());
        EXPECT_EQ(Content(*stream), "shader text");
        MEM_DELETE(stream);
        const auto queries = provider.Queries();
        ASSERT_EQ(queries.size(), 1u);
        EXPECT_STREQ(queries[0].m_szFilePath, "Shaders/a.txt") << "a blank parts the path from its parameters";
        EXPECT_STREQ(queries[0].m_szParams, "-param X");
        EXPECT_TRUE(provider.Prefetched().empty()) << "a stream request is not announced ahead";

        Common::ScopedLogCapture capture;
        QueryPtr missing(Query::Create());
        stream = loader->AddSimpleLoadingWork("Shaders/none.txt", missing);
        ASSERT_NE(stream, nullptr);
        ASSERT_TRUE(missing->WaitFinished(5000));
        EXPECT_FALSE(stream->IsReadable());
        EXPECT_TRUE(capture.Contains(": File not found: Shaders/none.txt\n")) << capture.Text();
        MEM_DELETE(stream);

        const std::string tooLong(BaseLoader::kNameSize, 'n');
        QueryPtr refused(Query::Create());
        EXPECT_EQ(loader->AddSimpleLoadingWork(tooLong.c_str(), refused), nullptr);
        EXPECT_EQ(refused->GetState(), Query::eCancelled);
        engine.Stop();
    }

    TEST(LoaderStreams, LoadingFileOpensTheNameAsItIsOnDisk)
    {
        FolderProvider provider;
        provider.Write("plain.bin", "0123456789", 10);
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        LoadingThread* loader = engine.Get()->GetLoader();

        IOSTreamMemory stream;
        QueryPtr query(Query::Create());
        ASSERT_TRUE(loader->AddLoadingFile(&stream, provider.PathOf("plain.bin").c_str(), query));
        ASSERT_TRUE(query->WaitFinished(5000));
        EXPECT_EQ(query->GetState(), Query::eDone);
        EXPECT_EQ(Content(stream), "0123456789");
        EXPECT_TRUE(provider.Queries().empty()) << "a file by path does not go through the provider";

        Common::ScopedLogCapture capture;
        IOSTreamMemory absent;
        const std::string missingPath = provider.PathOf("none.bin");
        QueryPtr lost(Query::Create());
        ASSERT_TRUE(loader->AddLoadingFile(&absent, missingPath.c_str(), lost));
        ASSERT_TRUE(lost->WaitFinished(5000));
        EXPECT_EQ(lost->GetState(), Query::eCancelled);
        EXPECT_FALSE(absent.IsReadable());
        EXPECT_TRUE(capture.Contains(("LoadFileWorker::DoWork: failed to load: " + missingPath + "\n").c_str()));

        const std::string tooLong(LoadFileWorker::kNameSize, 'p');
        QueryPtr refused(Query::Create());
        EXPECT_FALSE(loader->AddLoadingFile(&absent, tooLong.c_str(), refused));
        EXPECT_EQ(refused->GetState(), Query::eCancelled);
        engine.Stop();
    }

    TEST(LoaderStreams, ListAssetsFillsTheListAndCountsDown)
    {
        FolderProvider provider;
        provider.Write("tex_a.zef", "a", 1);
        provider.Write("tex_b.zef", "b", 1);
        provider.Write("mesh_c.zef", "c", 1);
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        TArray<Common::String> textures;
        TArray<Common::String> meshes;
        std::atomic<int> left{2};
        ASSERT_TRUE(engine.Get()->GetLoader()->AddListAssetsWork("PC", "tex_", &textures, &left));
        ASSERT_TRUE(engine.Get()->GetLoader()->AddListAssetsWork("PC", "mesh_", &meshes, &left));
        ASSERT_TRUE(WaitUntil([&] { return left.load() == 0; }));
        EXPECT_EQ(textures.GetSize(), 2u);
        ASSERT_EQ(meshes.GetSize(), 1u);
        EXPECT_STREQ(meshes[0].c_str(), "mesh_c.zef");
        engine.Stop();
    }
}
