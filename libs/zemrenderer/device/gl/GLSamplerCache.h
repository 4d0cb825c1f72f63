#pragma once
// One GL sampler object per distinct description, made on first use.
#include <epoxy/gl.h>

#include <vector>

#include "zemrenderer/device/SamplerDesc.h"

namespace ZemRenderer::GL
{
    class GLSamplerCache
    {
    public:
        ~GLSamplerCache() = default;
        GLuint Get(const SamplerDesc& desc);
        void Release();
        size_t GetCount() const { return m_aEntries.size(); }

    private:
        struct Entry
        {
            SamplerDesc kDesc;
            GLuint uSampler;
        };
        // A handful of descriptions in a frame: a linear search beats hashing them.
        std::vector<Entry> m_aEntries;
    };
}
