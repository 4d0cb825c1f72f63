// Buckets: their strings, buffer references and their life across threads.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "common/system/debug/Log.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"

namespace ZemRenderer::SceneTest
{
    TEST(Bucket, StringsStayValidAcrossChunksUpToTheChunkLimit)
    {
        Bucket bucket(nullptr, "strings");
        std::vector<const char*> kept;
        std::vector<std::string> texts;
        for (int i = 0; i < 2000; ++i)
        {
            texts.push_back("name_" + std::to_string(i));
            kept.push_back(bucket.AddString(texts.back().c_str()));
        }
        EXPECT_GT(bucket.GetStringChunkCount(), 1u);
        for (size_t i = 0; i < texts.size(); ++i) ASSERT_STREQ(kept[i], texts[i].c_str());

        // The longest text that fits takes a chunk of its own.
        const std::string longest(Bucket::StringChunk::Length - 2, 'x');
        const unsigned int before = bucket.GetStringChunkCount();
        EXPECT_STREQ(bucket.AddString(longest.c_str()), longest.c_str());
        EXPECT_EQ(bucket.GetStringChunkCount(), before + 1);

        Common::ScopedLogCapture capture;
        const std::string tooLong(Bucket::StringChunk::Length - 1, 'y');
        EXPECT_EQ(bucket.AddString(tooLong.c_str()), nullptr);
        EXPECT_TRUE(capture.Contains("StringChunk::Length-1"));
        EXPECT_EQ(bucket.AddString(nullptr), nullptr);
        EXPECT_EQ(bucket.GetStringChunkCount(), before + 1);
    }

    TEST(Bucket, BufferReferencesByNameRefuseBadNamesAndSecondRegistrations)
    {
        Bucket bucket(nullptr, "refs");
        int a = 0;
        int b = 0;
        BufferReference* first = reinterpret_cast<BufferReference*>(&a);
        BufferReference* second = reinterpret_cast<BufferReference*>(&b);
        EXPECT_TRUE(bucket.RegisterBufferReference("Positions", first));
        EXPECT_EQ(bucket.FindBufferReference("Positions"), first);
        EXPECT_EQ(bucket.FindBufferReference("Normals"), nullptr);
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(bucket.RegisterBufferReference("Positions", second));
            EXPECT_TRUE(capture.Contains("BufferReference Positions already registered in Bucket refs"));
            EXPECT_EQ(bucket.FindBufferReference("Positions"), first);
        }
        for (const char* bad : {static_cast<const char*>(nullptr), ""})
        {
            Common::ScopedLogCapture capture;
            EXPECT_FALSE(bucket.RegisterBufferReference(bad, second));
            EXPECT_EQ(bucket.FindBufferReference(bad), nullptr);
            EXPECT_TRUE(capture.Contains("Name must be valid !"));
        }
    }

    TEST(Bucket, CountMisuseIsReportedAndLeavesTheCountSafe)
    {
        Bucket* bucket = MEM_NEW(Bucket, nullptr, "count");
        {
            Common::ScopedLogCapture capture;
            bucket->Reference();
            EXPECT_TRUE(capture.Contains(
                "Bucket should be scheduled for destruction : can't add a reference to it know !"));
            EXPECT_EQ(bucket->GetRefCount(), 0);
            EXPECT_EQ(bucket->Release(), 0);
            EXPECT_TRUE(capture.Contains("Too much Bucket Release"));
            EXPECT_EQ(bucket->GetRefCount(), 0);
        }
        bucket->InitReference();
        {
            Common::ScopedLogCapture capture;
            bucket->InitReference();
            EXPECT_TRUE(capture.Contains("Can't init reference if bucket already referenced. Call Reference instead."));
        }
        bucket->Reference();
        EXPECT_EQ(bucket->GetRefCount(), 2);
        EXPECT_EQ(bucket->Release(), 1);
        // Without a render thread nothing can draw from it: the last release deletes it.
        std::atomic<bool> done{false};
        bucket->SetDoneFlag(&done);
        EXPECT_EQ(bucket->Release(), 0);
        EXPECT_TRUE(done.load());
    }

    TEST(Bucket, ClearedWhileReferencedIsReported)
    {
        Bucket* bucket = MEM_NEW(Bucket, nullptr, "held");
        bucket->InitReference();
        bucket->Reference();
        Common::ScopedLogCapture capture;
        MEM_DELETE(bucket);
        EXPECT_TRUE(capture.Contains("Bucket cleared while refcount == 2"));
    }

    TEST(Bucket, LastReleaseOnAnyThreadDeletesItOnTheReleaseQueue)
    {
        Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        RenderThread* thread = engine.Get();
        for (int round = 0; round < 5; ++round)
        {
            Bucket* bucket = MEM_NEW(Bucket, thread, "shared");
            bucket->InitReference();
            std::atomic<bool> done{false};
            bucket->SetDoneFlag(&done);
            // Work that holds the bucket runs on several threads at once.
            std::vector<std::thread> holders;
            std::atomic<int> go{0};
            for (int t = 0; t < 4; ++t)
                holders.emplace_back([&] {
                    while (!go.load()) std::this_thread::yield();
                    for (int i = 0; i < 2000; ++i)
                    {
                        bucket->Reference();
                        UserData* block = UserData::Create(bucket, UserDataTag::MESH, 16);
                        UserData::Destroy(block);
                        bucket->Release();
                    }
                });
            go.store(1);
            for (std::thread& h : holders) h.join();
            EXPECT_EQ(bucket->GetRefCount(), 1);
            EXPECT_FALSE(done.load());
            EXPECT_EQ(bucket->GetUserDataPool().GetUsedCount(), 0u);

            // The owner lets go on a thread of its own; the render thread deletes it.
            std::thread last([&] { bucket->Release(); });
            last.join();
            ASSERT_TRUE(WaitUntil([&] { return done.load(); }));
        }
    }
}
