#pragma once
// A persistently mapped buffer written by the CPU and read by draws: per-draw constants
// and user primitives. It is cut in four quarters; entering a quarter waits on the fence
// set when the ring last left it, so nothing the GPU still reads is overwritten.
#include <epoxy/gl.h>

#include <cstdint>

namespace ZemRenderer::GL
{
    class GLStreamRing
    {
    public:
        static constexpr uint32_t kQuarters = 4;

        bool Create(uint32_t size);
        void Release();

        // Room for `size` bytes at an offset aligned to `alignment`; null when larger than
        // a quarter of the ring.
        uint8_t* Allocate(uint32_t size, uint32_t alignment, uint32_t& offset);
        GLuint GetBuffer() const { return m_uBuffer; }
        uint32_t GetMaxAllocation() const { return m_uSize / kQuarters; }

    private:
        void Enter(uint32_t quarter);

        GLuint m_uBuffer = 0;
        uint8_t* m_pMapped = nullptr;
        uint32_t m_uSize = 0;
        uint32_t m_uHead = 0;
        uint32_t m_uQuarter = 0;
        GLsync m_aFences[kQuarters] = {};
    };
}
