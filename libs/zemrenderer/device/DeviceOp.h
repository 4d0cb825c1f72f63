#pragma once
// The one list of what the engine asks of a graphics device, in the order of Renderer's
// operations. Recording devices and traces name calls by it.
#include <cstdint>

#define ZEM_DEVICE_OPS(X)      \
    X(Init)                    \
    X(Release)                 \
    X(CreateWindow)            \
    X(Flush)                   \
    X(BeginScene)              \
    X(EndScene)                \
    X(BeginViewport)           \
    X(EndViewport)             \
    X(CreateRenderViewport)    \
    X(ResizeViewport)          \
    X(ReleaseViewport)         \
    X(Clear)                   \
    X(SetRenderTargets)        \
    X(SetViewport)             \
    X(SetScissorTest)          \
    X(SetBlendFactor)          \
    X(SetRenderState)          \
    X(GenerateMips)            \
    X(CopyResource)            \
    X(ResolveTexture)          \
    X(ResizeTexture)           \
    X(DeleteTexture)           \
    X(UpdateTexture)           \
    X(UploadTexture)           \
    X(RenderImmediate)         \
    X(DrawSortedCommands)      \
    X(RenderText)              \
    X(StartUserPrimitive)      \
    X(EndUserPrimitive)        \
    X(PerfEventBegin)          \
    X(PerfEventEnd)            \
    X(SaveScreenshot)          \
    X(SaveTextureToFile)       \
    X(RetrieveDeviceData)      \
    X(SetCursor)

namespace ZemRenderer
{
    enum class DeviceOp : uint16_t
    {
#define ZEM_DEVICE_OP_ENUM(name) name,
        ZEM_DEVICE_OPS(ZEM_DEVICE_OP_ENUM)
#undef ZEM_DEVICE_OP_ENUM
            Count
    };

    const char* GetDeviceOpName(DeviceOp op);
}
