#include <gtest/gtest.h>

#include <mutex>
#include <thread>
#include <string>
#include <vector>

#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/loading/tests/LoadingTestKit.h"
#include "zemrenderer/scene/tests/SceneTestKit.h"
#include "zemrenderer/thread/LoadingThread.h"

namespace ZemRenderer
{
    namespace
    {
        // Records what reaches the hooks, and on which thread.
        class MountingProvider : public LoadingTest::FolderProvider
        {
        public:
            void* MountPackage(const char* path, unsigned int flag) override
            {
                std::lock_guard<std::mutex> lock(m_kCallsMutex);
                m_aCalls.push_back("mount " + std::string(path) + " " + std::to_string(flag));
                m_bOffCaller = m_bOffCaller && std::this_thread::get_id() != m_kCaller;
                return &m_iHandle;
            }
            bool UnMountPackage(void* handle) override
            {
                std::lock_guard<std::mutex> lock(m_kCallsMutex);
                m_aCalls.push_back(handle == &m_iHandle ? "unmount ours" : "unmount other");
                return true;
            }
            std::vector<std::string> Calls()
            {
                std::lock_guard<std::mutex> lock(m_kCallsMutex);
                return m_aCalls;
            }

            int m_iHandle = 0;
            std::thread::id m_kCaller = std::this_thread::get_id();
            bool m_bOffCaller = true;

        private:
            std::mutex m_kCallsMutex;
            std::vector<std::string> m_aCalls;
        };

        // Loading-thread work runs in order: a finished stream request behind the
        // workers under test means they ran.
        void Drain(LoadingThread* loader)
        {
            QueryPtr marker(Query::Create());
            IOSTreamMemory* stream = loader->AddSimpleLoadingWork("none.bin", marker);
            ASSERT_NE(stream, nullptr);
            ASSERT_TRUE(marker->WaitFinished(5000));
            MEM_DELETE(stream);
        }
    }

    TEST(PackageMountWorkers, HooksRunOnTheLoadingThreadAndOnlyWithASlotOrHandle)
    {
        MountingProvider provider;
        SceneTest::Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        LoadingThread* loader = engine.Get()->GetLoader();

        void* handle = nullptr;
        ASSERT_TRUE(loader->AddMountPackageWork("Data/level.pak", 3, &handle));
        ASSERT_TRUE(loader->AddMountPackageWork("Data/ignored.pak", 0, nullptr));
        Drain(loader);
        EXPECT_EQ(handle, &provider.m_iHandle);
        EXPECT_TRUE(provider.m_bOffCaller);

        ASSERT_TRUE(loader->AddUnMountPackageWork(handle));
        ASSERT_TRUE(loader->AddUnMountPackageWork(nullptr));
        Drain(loader);
        EXPECT_EQ(provider.Calls(), (std::vector<std::string>{"mount Data/level.pak 3", "unmount ours"}));
    }

    TEST(PackageMountWorkers, ReservedHooksGiveNoHandle)
    {
        LoadingTest::FolderProvider provider;
        SceneTest::Engine engine;
        ASSERT_TRUE(engine.IsStarted());
        void* handle = &provider;
        ASSERT_TRUE(engine.Get()->GetLoader()->AddMountPackageWork("Data/level.pak", 0, &handle));
        Drain(engine.Get()->GetLoader());
        EXPECT_EQ(handle, nullptr);
    }
}
