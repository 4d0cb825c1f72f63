// The GL device driven by the render thread: its context lives there, and a texture whose
// last reference goes on another thread is deleted there, by the release queue.
#include <gtest/gtest.h>

#include <atomic>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/device/tests/GLTestKit.h"
#include "zemrenderer/thread/GenericWorker.h"
#include "zemrenderer/thread/RenderThread.h"
#include "zemrenderer/thread/ThreadId.h"

namespace ZemRenderer::Testing
{
    namespace
    {
        struct Seen
        {
            std::atomic<int> iDestroyedOn{0};
            std::atomic<uint32_t> uDeviceObject{0};
        };

        class WatchedTexture : public Texture
        {
        public:
            WatchedTexture(const TextureDesc& desc, Seen* seen) : Texture(desc, "watched"), m_pSeen(seen) {}
            ~WatchedTexture() override { m_pSeen->iDestroyedOn = CurrentThreadId(); }

        private:
            Seen* m_pSeen;
        };

        void MakeDeviceObject(RenderThread* thread, Texture* texture, Seen* seen)
        {
            auto* device = static_cast<GLRenderer*>(thread->GetRenderer());
            if (device->EnsureTexture(texture)) seen->uDeviceObject = texture->GetDeviceObject();
        }
    }

    TEST(GLRenderThread, TexturesLeaveOnTheRenderThreadAndPerfMarkersPairUp)
    {
        UseSmallSoftwareRasteriser();
        GLRenderer device;
        RenderThread* thread = MEM_NEW(RenderThread);
        thread->SetRenderer(&device);
        RendererInitRecord record;
        record.bNoWindow = 1;
        thread->SetInitParameters(record);
        if (!thread->Init())
        {
            thread->Stop();
            thread->WaitForStop();
            MEM_DELETE(thread);
            GTEST_SKIP() << "GL test skipped: no EGL device on this machine";
        }
        Seen seen;
        TextureDesc desc;
        desc.uWidth = desc.uHeight = 8;
        desc.uBindFlags = eBindRenderTarget;
        Texture* texture = new WatchedTexture(desc, &seen);
        thread->AddWork(MakeGenericWorker(&MakeDeviceObject, thread, texture, &seen));
        Common::ScopedLogCapture log;
        thread->AddBeginSceneWork(false, 1, 0.016f, 0.05f);
        thread->AddPerfEventStartWork(0xFF00FF00u, "pass");
        thread->AddPerfEventEndWork();
        thread->AddPerfEventEndWork();
        thread->AddEndSceneWork(false);
        thread->WaitForOverhead(0);
        EXPECT_NE(seen.uDeviceObject.load(), 0u);
        EXPECT_TRUE(log.Contains("PerfEventEnd without PerfEventBegin"));

        // The last reference goes here, off the render thread.
        texture->Release();
        thread->AddBeginSceneWork(false, 2, 0.016f, 0.05f);
        thread->AddEndSceneWork(false);
        thread->WaitForOverhead(0);
        const int renderThreadId = thread->GetThreadId();
        thread->Stop();
        thread->WaitForStop();
        MEM_DELETE(thread);
        EXPECT_EQ(seen.iDestroyedOn.load(), renderThreadId) << "deleted by the release queue on the render thread";
        EXPECT_FALSE(log.Contains("Potential leak"));
        EXPECT_FALSE(device.IsDeviceCreated()) << "released with the render thread";
    }
}
