#include "zemrenderer/device/gl/GLSamplerCache.h"

#include <algorithm>

namespace ZemRenderer::GL
{
    namespace
    {
        GLenum Wrap(SamplerAddress address)
        {
            switch (address)
            {
                case SamplerAddress::Mirror: return GL_MIRRORED_REPEAT;
                case SamplerAddress::Clamp: return GL_CLAMP_TO_EDGE;
                case SamplerAddress::Border: return GL_CLAMP_TO_BORDER;
                default: return GL_REPEAT;
            }
        }
    }

    GLuint GLSamplerCache::Get(const SamplerDesc& desc)
    {
        for (const Entry& e : m_aEntries)
            if (e.kDesc == desc) return e.uSampler;
        GLuint sampler = 0;
        glCreateSamplers(1, &sampler);
        GLenum minFilter = GL_LINEAR, magFilter = GL_LINEAR;
        switch (desc.eFilter)
        {
            case SamplerFilter::Point: minFilter = GL_NEAREST_MIPMAP_NEAREST, magFilter = GL_NEAREST; break;
            case SamplerFilter::Linear: minFilter = GL_LINEAR_MIPMAP_NEAREST; break;
            case SamplerFilter::Trilinear:
            case SamplerFilter::Anisotropic: minFilter = GL_LINEAR_MIPMAP_LINEAR; break;
        }
        glSamplerParameteri(sampler, GL_TEXTURE_MIN_FILTER, static_cast<GLint>(minFilter));
        glSamplerParameteri(sampler, GL_TEXTURE_MAG_FILTER, static_cast<GLint>(magFilter));
        glSamplerParameteri(sampler, GL_TEXTURE_WRAP_S, static_cast<GLint>(Wrap(desc.eAddressU)));
        glSamplerParameteri(sampler, GL_TEXTURE_WRAP_T, static_cast<GLint>(Wrap(desc.eAddressV)));
        glSamplerParameteri(sampler, GL_TEXTURE_WRAP_R, static_cast<GLint>(Wrap(desc.eAddressW)));
        glSamplerParameterf(sampler, GL_TEXTURE_LOD_BIAS, desc.fMipLodBias);
        glSamplerParameterf(sampler, GL_TEXTURE_MIN_LOD, desc.fMinLod);
        glSamplerParameterf(sampler, GL_TEXTURE_MAX_LOD, desc.fMaxLod);
        glSamplerParameterfv(sampler, GL_TEXTURE_BORDER_COLOR, desc.afBorderColour);
        if (desc.eFilter == SamplerFilter::Anisotropic)
            glSamplerParameterf(sampler, GL_TEXTURE_MAX_ANISOTROPY,
                                static_cast<float>(std::clamp<unsigned>(desc.uMaxAnisotropy, 1u, 16u)));
        if (desc.bCompare)
        {
            glSamplerParameteri(sampler, GL_TEXTURE_COMPARE_MODE, GL_COMPARE_REF_TO_TEXTURE);
            glSamplerParameteri(sampler, GL_TEXTURE_COMPARE_FUNC,
                                static_cast<GLint>(GL_NEVER + static_cast<GLenum>(desc.eCompare)));
        }
        m_aEntries.push_back({desc, sampler});
        return sampler;
    }

    void GLSamplerCache::Release()
    {
        for (const Entry& e : m_aEntries) glDeleteSamplers(1, &e.uSampler);
        m_aEntries.clear();
    }
}
