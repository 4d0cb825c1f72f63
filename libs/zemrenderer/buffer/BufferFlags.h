#pragma once
// What a buffer reference promises about its memory, in one word of usage flags, and
// the decisions that follow from it alone: the kind of device storage, the stream
// status it starts with, the recycling class of the buffer manager. Pure functions, so
// that every rule can be checked without a device.
#include <cstdint>

namespace ZemRenderer
{
    enum BufferFlags : uint32_t
    {
        BBF_VERTEX = 0x1,
        BBF_INDEX = 0x2,
        BBF_CONSTANT = 0x4,
        BBF_TEXTURE_BUFFER = 0x10,
        BBF_RENDER_TARGET = 0x100,
        BBF_DEPTH_STENCIL = 0x200,
        BBF_SHADER_RESOURCE = 0x400,
        BBF_RANDOM_ACCESS = 0x800,
        BBF_CPU_ONLYACCESS = 0x1000,
        BBF_CPU_WRITEACCESS = 0x2000,
        BBF_CPU_MEMORY = 0x4000,
        BBF_DEVICE_WRITE = 0x8000,
        BBF_NOT_SERIALIZED = 1u << 20,
        BBF_STRUCTURED = 1u << 23,
        BBF_RESOURCE_BUFFER = 1u << 24,
    };

    // The storage a reference gets on the device, tested in this order: a block of CPU
    // memory, a staging copy, a random-access buffer, one the CPU rewrites often, one
    // written through the device, and else one filled once at creation.
    enum class BufferUsage : uint8_t
    {
        CpuMemory,
        Staging,
        Default,
        Dynamic,
        Immutable,
    };

    struct UsageDecision
    {
        BufferUsage eUsage = BufferUsage::Immutable;
        // The misuse the flags show, or null; the usage above holds all the same.
        const char* szReport = nullptr;
    };

    UsageDecision ClassifyBufferUsage(uint32_t flags);

    // The CPU may write it through a lock (dynamic) or through the device (default).
    inline bool HasCpuWriteUsage(uint32_t flags) { return (flags & (BBF_CPU_WRITEACCESS | BBF_DEVICE_WRITE)) != 0; }

    enum BufferStreamStatus : uint32_t
    {
        BSS_FROM_DESCRIPTION = 1,
        BSS_EMPTY = 8,
        BSS_LOADING = 16,
        BSS_UPDATED = 2048,
        BSS_UPDATED_RELOADABLE = 2049,
    };

    // 1 for what is made from a description alone (targets, views, structured and
    // constant buffers), 8 for what waits for its data.
    uint32_t InitialStreamStatus(uint32_t flags);

    // The buffer manager's pools: constant, texture buffer, raw; structured buffers have
    // a set of their own, keyed by stride and size.
    enum class ManagerClass : uint8_t
    {
        Constant = 0,
        TextureBuffer = 1,
        Raw = 2,
        Structured = 3,
    };
    ManagerClass ManagerClassOf(uint32_t flags);

    // Sizes of the pools and of constant buffers go by 16 bytes.
    inline uint32_t RoundUp16(uint32_t size) { return (size + 15u) & ~15u; }
}

namespace ZemRenderer
{
    // Bytes the device object takes: constant buffers round up to 16.
    inline uint32_t DeviceSizeOf(uint32_t size, uint32_t flags) { return (flags & BBF_CONSTANT) ? RoundUp16(size) : size; }
}
