#include "zemrenderer/device/null/NullRenderer.h"

#include <unistd.h>

#include <cstring>
#include <initializer_list>

namespace ZemRenderer
{
    struct NullRenderer::Args
    {
        std::initializer_list<uint64_t> kInts;
        std::initializer_list<float> kFloats;
    };

    namespace
    {
        uint64_t P(const void* p) { return reinterpret_cast<uintptr_t>(p); }
    }

    void NullRenderer::Record(DeviceOp op, const Args& args, const char* text)
    {
        DeviceCall call;
        call.eOp = op;
        call.iThreadId = static_cast<int>(gettid());
        unsigned i = 0;
        for (uint64_t v : args.kInts)
            if (i < DeviceCall::kMaxArgs) call.auArgs[i++] = v;
        i = 0;
        for (float v : args.kFloats)
            if (i < DeviceCall::kMaxArgs) call.afArgs[i++] = v;
        if (text)
        {
            std::strncpy(call.szText, text, DeviceCall::kTextSize - 1);
            call.szText[DeviceCall::kTextSize - 1] = '\0';
        }
        std::lock_guard<std::mutex> lock(m_kMutex);
        m_aCalls.Add(call);
    }

    TArray<DeviceCall> NullRenderer::GetCalls() const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        return m_aCalls;
    }

    unsigned int NullRenderer::GetCallCount() const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        return m_aCalls.GetSize();
    }

    unsigned int NullRenderer::CountCalls(DeviceOp op) const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        unsigned int n = 0;
        for (const DeviceCall& call : m_aCalls) n += call.eOp == op ? 1u : 0u;
        return n;
    }

    int NullRenderer::FindCall(DeviceOp op, unsigned int from) const
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        for (unsigned int i = from; i < m_aCalls.GetSize(); ++i)
            if (m_aCalls[i].eOp == op) return static_cast<int>(i);
        return -1;
    }

    void NullRenderer::ClearCalls()
    {
        std::lock_guard<std::mutex> lock(m_kMutex);
        m_aCalls.Clear();
    }

    bool NullRenderer::Init(const RendererInitRecord& record)
    {
        Record(DeviceOp::Init, {{P(record.pWindow), record.bNoWindow, record.uWidth, record.uHeight}, {}});
        const bool ok = m_bInitResult.load();
        m_bDeviceCreated.store(ok, std::memory_order_release);
        return ok;
    }

    void NullRenderer::Release()
    {
        Record(DeviceOp::Release, {});
        m_bDeviceCreated.store(false, std::memory_order_release);
    }

    void* NullRenderer::CreateWindow(const RendererInitRecord& record)
    {
        Record(DeviceOp::CreateWindow, {{record.uWidth, record.uHeight}, {}});
        return nullptr;
    }

    void NullRenderer::Flush() { Record(DeviceOp::Flush, {}); }

    bool NullRenderer::BeginScene(float elapsed, float fixedStep)
    {
        Record(DeviceOp::BeginScene, {{}, {elapsed, fixedStep}});
        m_fFrameTime.store(elapsed, std::memory_order_relaxed);
        return m_bSceneResult.load();
    }

    bool NullRenderer::EndScene()
    {
        Record(DeviceOp::EndScene, {});
        return m_bSceneResult.load();
    }

    bool NullRenderer::BeginViewport(RenderViewport* viewport)
    {
        Record(DeviceOp::BeginViewport, {{P(viewport)}, {}});
        return true;
    }

    bool NullRenderer::EndViewport()
    {
        Record(DeviceOp::EndViewport, {});
        return true;
    }

    bool NullRenderer::CreateRenderViewport(RenderViewport* viewport, const RendererInitRecord& record)
    {
        Record(DeviceOp::CreateRenderViewport, {{P(viewport), record.uWidth, record.uHeight}, {}});
        return true;
    }

    bool NullRenderer::ResizeViewport(RenderViewport* viewport, uint32_t width, uint32_t height)
    {
        Record(DeviceOp::ResizeViewport, {{P(viewport), width, height}, {}});
        return true;
    }

    void NullRenderer::ReleaseViewport(RenderViewport* viewport)
    {
        Record(DeviceOp::ReleaseViewport, {{P(viewport)}, {}});
    }

    void NullRenderer::Clear(const ClearRequest& request)
    {
        Record(DeviceOp::Clear, {{request.uColourCount, P(request.pDepthTarget), request.uFlags, request.uStencil},
                                 {request.afColour[0], request.afColour[1], request.afColour[2], request.afColour[3],
                                  request.fDepth}});
    }

    bool NullRenderer::SetRenderTargets(Texture* const* colour, uint32_t count, Texture* depth, Texture* const* uavs,
                                        uint32_t uavCount, uint32_t firstUav)
    {
        Record(DeviceOp::SetRenderTargets,
               {{count, P(count ? colour[0] : nullptr), P(depth), uavCount, P(uavCount ? uavs[0] : nullptr), firstUav},
                {}});
        return true;
    }

    void NullRenderer::SetViewport(const ViewportRect& rect)
    {
        Record(DeviceOp::SetViewport,
               {{}, {rect.fX, rect.fY, rect.fWidth, rect.fHeight, rect.fMinDepth, rect.fMaxDepth}});
    }

    void NullRenderer::SetScissorTest(bool enable, const ScissorRect& rect)
    {
        Record(DeviceOp::SetScissorTest,
               {{enable, static_cast<uint64_t>(rect.iLeft), static_cast<uint64_t>(rect.iTop),
                 static_cast<uint64_t>(rect.iRight), static_cast<uint64_t>(rect.iBottom)},
                {}});
    }

    void NullRenderer::SetBlendFactor(float r, float g, float b, float a)
    {
        Record(DeviceOp::SetBlendFactor, {{}, {r, g, b, a}});
    }

    void NullRenderer::SetRenderState(uint64_t state, uint64_t mask)
    {
        Record(DeviceOp::SetRenderState, {{state, mask}, {}});
    }

    void NullRenderer::GenerateMips(Texture* texture) { Record(DeviceOp::GenerateMips, {{P(texture)}, {}}); }

    void NullRenderer::CopyResource(Texture* dest, uint32_t destSub, Texture* source, uint32_t sourceSub, uint32_t x,
                                    uint32_t y, uint32_t z)
    {
        Record(DeviceOp::CopyResource, {{P(dest), destSub, P(source), sourceSub, x, y}, {static_cast<float>(z)}});
    }

    void NullRenderer::ResolveTexture(Texture* texture, uint32_t subresource)
    {
        Record(DeviceOp::ResolveTexture, {{P(texture), subresource}, {}});
    }

    bool NullRenderer::ResizeTexture(Texture* texture, uint32_t width, uint32_t height)
    {
        Record(DeviceOp::ResizeTexture, {{P(texture), width, height}, {}});
        return true;
    }

    void NullRenderer::DeleteTexture(Texture* texture) { Record(DeviceOp::DeleteTexture, {{P(texture)}, {}}); }

    bool NullRenderer::UpdateTexture(Texture* texture, uint32_t subresource, const void* data, uint32_t size)
    {
        Record(DeviceOp::UpdateTexture, {{P(texture), subresource, P(data), size}, {}});
        return true;
    }

    bool NullRenderer::UploadTexture(Texture* texture, const TextureUpdateBuffer& buffer, bool create)
    {
        Record(DeviceOp::UploadTexture, {{P(texture), P(&buffer), create}, {}});
        return true;
    }

    void NullRenderer::RenderImmediate(Geometry* geometry, Property* property, uint32_t flags)
    {
        Record(DeviceOp::RenderImmediate, {{P(geometry), P(property), flags}, {}});
    }

    void NullRenderer::DrawSortedCommands(const DrawCommand* commands, uint32_t count)
    {
        Record(DeviceOp::DrawSortedCommands, {{P(commands), count}, {}});
    }

    void NullRenderer::RenderText(const char* text, float x, float y, float scale, uint32_t colour)
    {
        Record(DeviceOp::RenderText, {{colour}, {x, y, scale}}, text);
    }

    void* NullRenderer::StartUserPrimitive(uint32_t topology, uint32_t vertexStride, uint32_t vertexCount)
    {
        Record(DeviceOp::StartUserPrimitive, {{topology, vertexStride, vertexCount}, {}});
        const uint64_t bytes = static_cast<uint64_t>(vertexStride) * vertexCount;
        return bytes <= sizeof(m_aScratch) ? m_aScratch : nullptr;
    }

    void NullRenderer::EndUserPrimitive(uint32_t vertexCount)
    {
        Record(DeviceOp::EndUserPrimitive, {{vertexCount}, {}});
    }

    void NullRenderer::PerfEventBegin(uint32_t colour, const char* name)
    {
        Record(DeviceOp::PerfEventBegin, {{colour}, {}}, name);
    }

    void NullRenderer::PerfEventEnd() { Record(DeviceOp::PerfEventEnd, {}); }

    bool NullRenderer::SaveScreenshot(const char* path)
    {
        Record(DeviceOp::SaveScreenshot, {}, path);
        return true;
    }

    bool NullRenderer::SaveTextureToFile(Texture* texture, const char* path)
    {
        Record(DeviceOp::SaveTextureToFile, {{P(texture)}, {}}, path);
        return true;
    }

    bool NullRenderer::RetrieveDeviceData(Texture* source, uint32_t subresource, void* dest, uint32_t size)
    {
        Record(DeviceOp::RetrieveDeviceData, {{P(source), subresource, P(dest), size}, {}});
        // Nothing was drawn: what comes back is zeros.
        if (dest && size) std::memset(dest, 0, size);
        return true;
    }

    bool NullRenderer::SetCursor(int32_t cursor)
    {
        Record(DeviceOp::SetCursor, {{static_cast<uint64_t>(cursor)}, {}});
        return true;
    }
}
