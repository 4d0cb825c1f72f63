#include "zemengine/engine/EngineDevice.h"

#include <cstdio>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/device/RenderViewport.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/device/gl/GLRenderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemEngine
{
    using namespace ZemRenderer;

    namespace
    {
        // The view's background until render contexts draw into it.
        class ClearViewWorker : public PooledWorker<ClearViewWorker, Renderer>
        {
        public:
            unsigned int GetQueue() const override { return eRenderQueue; }
            bool DoWork(Renderer* renderer) override
            {
                ClearRequest clear;
                clear.afColour[0] = 24.0f / 255.0f;
                clear.afColour[1] = 26.0f / 255.0f;
                clear.afColour[2] = 30.0f / 255.0f;
                clear.afColour[3] = 1.0f;
                clear.uFlags = eClearColour | eClearDepth | eClearStencil;
                renderer->Clear(clear);
                return true;
            }
        };

        // The view and its device objects go on the render thread, before the device does;
        // the viewport's target goes with it.
        class ReleaseViewWorker : public PooledWorker<ReleaseViewWorker, Renderer>
        {
        public:
            ReleaseViewWorker() = default;
            explicit ReleaseViewWorker(RenderViewport* view) : m_pView(view) {}
            unsigned int GetQueue() const override { return eReleaseQueue; }
            bool DoWork(Renderer* renderer) override
            {
                if (renderer) renderer->ReleaseViewport(m_pView);
                MEM_DELETE(m_pView);
                return true;
            }

        private:
            RenderViewport* m_pView = nullptr;
        };
    }

    bool CEngineDevice::Start(void* window, uint32_t width, uint32_t height)
    {
        if (m_pThread) return true;
        setenv("LP_NUM_THREADS", "2", 0);
        m_pDevice = MEM_NEW(GLRenderer);
        m_pThread = MEM_NEW(RenderThread);
        m_pThread->SetRenderer(m_pDevice);
        RendererInitRecord record;
        record.pWindow = window;
        record.bNoWindow = window ? 0 : 1;
        record.uWidth = width ? width : 1280;
        record.uHeight = height ? height : 720;
        m_pThread->SetInitParameters(record);
        if (!m_pThread->Init())
        {
            Common::Log("[Engine] no drawing device: the engine runs without drawing\n");
            Stop();
            return false;
        }
        Texture* offscreen = nullptr;
        if (!window)
        {
            TextureDesc desc;
            desc.uWidth = record.uWidth;
            desc.uHeight = record.uHeight;
            desc.uBindFlags = eBindRenderTarget | eBindShaderResource;
            offscreen = Texture::Create(desc, "mainview");
        }
        m_pMainView = MEM_NEW(RenderViewport, window, offscreen, record.uWidth, record.uHeight);
        // The view holds its target from now on.
        if (offscreen) offscreen->Release();
        m_bDrew = true;
        Common::Log("[Engine] render thread and device up (%s), main view \"mainview\" %ux%u\n",
                    window ? "window" : "off-screen", record.uWidth, record.uHeight);
        return true;
    }

    void CEngineDevice::OnPresented(void* self)
    {
        static_cast<CEngineDevice*>(self)->m_uPresented.fetch_add(1, std::memory_order_acq_rel);
    }

    void CEngineDevice::Frame(float elapsedSeconds, float fixedStepSeconds)
    {
        if (!m_pThread) return;
        ++m_uFrameId;
        m_pThread->AddBeginSceneWork(false, m_uFrameId, elapsedSeconds, fixedStepSeconds);
        m_pThread->AddBeginViewportWork(m_pMainView);
        if (ClearViewWorker* clear = ClearViewWorker::New()) m_pThread->AddWork(clear);
        char status[64];
        std::snprintf(status, sizeof(status), "Zemora  frame %u", m_uFrameId);
        m_pThread->AddRenderTextWork(status, 8.0f, 6.0f, 16.0f, 0xFFC8C8C8u);
        m_pThread->AddEndViewportWork(false, "", &OnPresented, this);
        m_pThread->AddEndSceneWork(false);
        m_pThread->WaitForOverhead(2);
    }

    void CEngineDevice::Stop()
    {
        if (m_pThread)
        {
            if (m_pMainView)
                if (ReleaseViewWorker* release = ReleaseViewWorker::New(m_pMainView))
                    if (m_pThread->AddWork(release)) m_pMainView = nullptr;
            m_pThread->Stop();
            m_pThread->WaitForStop();
            MEM_DELETE(m_pThread);
            m_pThread = nullptr;
            if (m_pDevice && m_bDrew)
                Common::Log("[Engine] render thread stopped after %u frames presented\n", GetPresentedFrames());
        }
        if (m_pMainView) MEM_DELETE(m_pMainView);
        m_pMainView = nullptr;
        if (m_pDevice) MEM_DELETE(m_pDevice);
        m_pDevice = nullptr;
    }
}
