#pragma once
// The workers behind RenderThread's Add...Work operations: each carries its arguments
// by value and makes its device call on the render thread.
#include <cstring>

#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    namespace WorkerText
    {
        template <unsigned int N>
        void Copy(char (&dest)[N], const char* text)
        {
            if (!text) text = "";
            std::strncpy(dest, text, N - 1);
            dest[N - 1] = '\0';
        }
    }

    class InitRendererWorker : public PooledWorker<InitRendererWorker, Renderer>
    {
    public:
        InitRendererWorker() = default;
        explicit InitRendererWorker(const RendererInitRecord& record) : m_kRecord(record) {}
        unsigned int GetQueue() const override { return eUpdateQueue; }
        // False when no device could be made.
        bool DoWork(Renderer* renderer) override { return renderer && renderer->Init(m_kRecord); }

    private:
        RendererInitRecord m_kRecord;
    };

    class BeginSceneWorker : public PooledWorker<BeginSceneWorker, Renderer>
    {
    public:
        BeginSceneWorker() = default;
        BeginSceneWorker(RenderThread* owner, bool animate, uint32_t frameId, float elapsed, float fixedStep)
            : m_pOwner(owner), m_bAnimate(animate), m_uFrameId(frameId), m_fElapsed(elapsed), m_fFixedStep(fixedStep)
        {
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        RenderThread* m_pOwner = nullptr;
        bool m_bAnimate = false;
        uint32_t m_uFrameId = 0;
        float m_fElapsed = 0.0f;
        float m_fFixedStep = 0.0f;
    };

    class EndSceneWorker : public PooledWorker<EndSceneWorker, Renderer>
    {
    public:
        EndSceneWorker() = default;
        explicit EndSceneWorker(RenderThread* owner) : m_pOwner(owner) {}
        bool EndsFrame() const override { return true; }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        RenderThread* m_pOwner = nullptr;
    };

    class BeginSessionWorker : public PooledWorker<BeginSessionWorker, Renderer>
    {
    public:
        BeginSessionWorker() = default;
        BeginSessionWorker(RenderThread* owner, uint32_t viewId) : m_pOwner(owner), m_uViewId(viewId) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        RenderThread* m_pOwner = nullptr;
        uint32_t m_uViewId = 0;
    };

    class EndSessionWoker : public PooledWorker<EndSessionWoker, Renderer>
    {
    public:
        EndSessionWoker() = default;
        EndSessionWoker(RenderThread* owner, uint32_t viewId) : m_pOwner(owner), m_uViewId(viewId) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override;

    private:
        RenderThread* m_pOwner = nullptr;
        uint32_t m_uViewId = 0;
    };

    class BeginViewportWorker : public PooledWorker<BeginViewportWorker, Renderer>
    {
    public:
        BeginViewportWorker() = default;
        explicit BeginViewportWorker(RenderViewport* viewport) : m_pViewport(viewport) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->BeginViewport(m_pViewport);
            return true;
        }

    private:
        RenderViewport* m_pViewport = nullptr;
    };

    class EndViewportWorker : public PooledWorker<EndViewportWorker, Renderer>
    {
    public:
        EndViewportWorker() = default;
        EndViewportWorker(bool saveImage, const char* path, RenderThread::ViewportCallback callback, void* userData)
            : m_bSaveImage(saveImage), m_pfnCallback(callback), m_pUserData(userData)
        {
            WorkerText::Copy(m_szPath, path);
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            if (m_bSaveImage) renderer->SaveScreenshot(m_szPath);
            renderer->EndViewport();
            if (m_pfnCallback) m_pfnCallback(m_pUserData);
            return true;
        }

    private:
        bool m_bSaveImage = false;
        char m_szPath[260] = {};
        RenderThread::ViewportCallback m_pfnCallback = nullptr;
        void* m_pUserData = nullptr;
    };

    class RenderTextWorker : public PooledWorker<RenderTextWorker, Renderer>
    {
    public:
        RenderTextWorker() = default;
        RenderTextWorker(const char* text, float x, float y, float scale, uint32_t colour)
            : m_fX(x), m_fY(y), m_fScale(scale), m_uColour(colour)
        {
            WorkerText::Copy(m_szText, text);
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->RenderText(m_szText, m_fX, m_fY, m_fScale, m_uColour);
            return true;
        }

    private:
        char m_szText[256] = {};
        float m_fX = 0.0f;
        float m_fY = 0.0f;
        float m_fScale = 1.0f;
        uint32_t m_uColour = 0;
    };

    class SetScissorTestWorker : public PooledWorker<SetScissorTestWorker, Renderer>
    {
    public:
        SetScissorTestWorker() = default;
        SetScissorTestWorker(bool enable, const ScissorRect& rect) : m_bEnable(enable), m_kRect(rect) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->SetScissorTest(m_bEnable, m_kRect);
            return true;
        }

    private:
        bool m_bEnable = false;
        ScissorRect m_kRect;
    };

    class SetViewportWorker : public PooledWorker<SetViewportWorker, Renderer>
    {
    public:
        SetViewportWorker() = default;
        explicit SetViewportWorker(const ViewportRect& rect) : m_kRect(rect) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->SetViewport(m_kRect);
            return true;
        }

    private:
        ViewportRect m_kRect;
    };

    class ResizeViewportWorker : public PooledWorker<ResizeViewportWorker, Renderer>
    {
    public:
        ResizeViewportWorker() = default;
        ResizeViewportWorker(RenderViewport* viewport, uint32_t width, uint32_t height)
            : m_pViewport(viewport), m_uWidth(width), m_uHeight(height)
        {
        }
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->ResizeViewport(m_pViewport, m_uWidth, m_uHeight);
            return true;
        }

    private:
        RenderViewport* m_pViewport = nullptr;
        uint32_t m_uWidth = 0;
        uint32_t m_uHeight = 0;
    };

    class ResizeTextureWorker : public PooledWorker<ResizeTextureWorker, Renderer>
    {
    public:
        ResizeTextureWorker() = default;
        ResizeTextureWorker(Texture* texture, uint32_t width, uint32_t height)
            : m_pTexture(texture), m_uWidth(width), m_uHeight(height)
        {
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->ResizeTexture(m_pTexture, m_uWidth, m_uHeight);
            return true;
        }

    private:
        Texture* m_pTexture = nullptr;
        uint32_t m_uWidth = 0;
        uint32_t m_uHeight = 0;
    };

    class ResolveWorker : public PooledWorker<ResolveWorker, Renderer>
    {
    public:
        ResolveWorker() = default;
        ResolveWorker(Texture* texture, uint32_t subresource) : m_pTexture(texture), m_uSubresource(subresource) {}
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->ResolveTexture(m_pTexture, m_uSubresource);
            return true;
        }

    private:
        Texture* m_pTexture = nullptr;
        uint32_t m_uSubresource = 0;
    };

    class SaveTextureToFileWorker : public PooledWorker<SaveTextureToFileWorker, Renderer>
    {
    public:
        SaveTextureToFileWorker() = default;
        SaveTextureToFileWorker(Texture* texture, const char* path) : m_pTexture(texture)
        {
            WorkerText::Copy(m_szPath, path);
        }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->SaveTextureToFile(m_pTexture, m_szPath);
            return true;
        }

    private:
        Texture* m_pTexture = nullptr;
        char m_szPath[260] = {};
    };

    class SetVSyncWorker : public PooledWorker<SetVSyncWorker, Renderer>
    {
    public:
        SetVSyncWorker() = default;
        explicit SetVSyncWorker(bool enable) : m_bEnable(enable) {}
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;
        bool GetWish() const { return m_bEnable; }

    private:
        bool m_bEnable = false;
    };

    class SetCursorWorker : public PooledWorker<SetCursorWorker, Renderer>
    {
    public:
        SetCursorWorker() = default;
        explicit SetCursorWorker(int32_t cursor) : m_iCursor(cursor) {}
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->SetCursor(m_iCursor);
            return true;
        }

    private:
        int32_t m_iCursor = 0;
    };

    class PerfEventStartWorker : public PooledWorker<PerfEventStartWorker, Renderer>
    {
    public:
        PerfEventStartWorker() = default;
        PerfEventStartWorker(uint32_t colour, const char* name) : m_uColour(colour) { WorkerText::Copy(m_szName, name); }
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->PerfEventBegin(m_uColour, m_szName);
            return true;
        }

    private:
        uint32_t m_uColour = 0;
        char m_szName[64] = {};
    };

    class PerfEventEndWorker : public PooledWorker<PerfEventEndWorker, Renderer>
    {
    public:
        unsigned int GetQueue() const override { return eRenderQueue; }
        bool DoWork(Renderer* renderer) override
        {
            renderer->PerfEventEnd();
            return true;
        }
    };

    class DeleteBucketWorker : public PooledWorker<DeleteBucketWorker, Renderer>
    {
    public:
        DeleteBucketWorker() = default;
        DeleteBucketWorker(RenderThread* owner, Bucket* bucket) : m_pOwner(owner), m_pBucket(bucket) {}
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer*) override
        {
            m_pOwner->DeleteBucket(m_pBucket);
            return true;
        }
        void* GetTarget() const override { return m_pBucket; }

    private:
        RenderThread* m_pOwner = nullptr;
        Bucket* m_pBucket = nullptr;
    };

    // Ends the render loop: the last worker of the stop chain.
    class ReleaseRendererWorker : public PooledWorker<ReleaseRendererWorker, Renderer>
    {
    public:
        bool EndsFrame() const override { return true; }
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer*) override { return false; }
    };
}
