#include "zemrenderer/buffer/BufferFlags.h"

namespace ZemRenderer
{
    UsageDecision ClassifyBufferUsage(uint32_t flags)
    {
        UsageDecision d;
        const bool target = (flags & (BBF_RENDER_TARGET | BBF_DEPTH_STENCIL)) != 0;
        if (target && (flags & BBF_CPU_ONLYACCESS))
            d.szReport = "RenderTarget can't be read by CPU : use resolve method to a buffer with read access";
        else if (target && (flags & BBF_CPU_WRITEACCESS))
            d.szReport = "RenderTarget can't be write by CPU : use resolve method to a buffer with write access";

        if (flags & BBF_CPU_MEMORY)
            d.eUsage = BufferUsage::CpuMemory;
        else if (flags & BBF_CPU_ONLYACCESS)
            d.eUsage = BufferUsage::Staging;
        else if (flags & BBF_RANDOM_ACCESS)
        {
            d.eUsage = BufferUsage::Default;
            if (flags & BBF_CPU_WRITEACCESS) d.szReport = "Random access buffer can't be mapped for CPU for writing";
        }
        else if (flags & BBF_CPU_WRITEACCESS)
            d.eUsage = BufferUsage::Dynamic;
        else if (flags & (BBF_RENDER_TARGET | BBF_DEPTH_STENCIL | BBF_SHADER_RESOURCE | BBF_DEVICE_WRITE))
            d.eUsage = BufferUsage::Default;
        else
        {
            d.eUsage = BufferUsage::Immutable;
            if (flags & BBF_RESOURCE_BUFFER)
                d.szReport = "A resource buffer must have at least a CPU access flag like BBF_CPU_WRITEACCESS";
        }
        return d;
    }

    uint32_t InitialStreamStatus(uint32_t flags)
    {
        const uint32_t fromDescription =
            BBF_RENDER_TARGET | BBF_DEPTH_STENCIL | BBF_SHADER_RESOURCE | BBF_STRUCTURED | BBF_CONSTANT;
        return (flags & fromDescription) ? BSS_FROM_DESCRIPTION : BSS_EMPTY;
    }

    ManagerClass ManagerClassOf(uint32_t flags)
    {
        if (flags & BBF_CONSTANT) return ManagerClass::Constant;
        if (flags & BBF_TEXTURE_BUFFER) return ManagerClass::TextureBuffer;
        if (flags & BBF_STRUCTURED) return ManagerClass::Structured;
        return ManagerClass::Raw;
    }
}
