#pragma once
// The GL form of the texture formats the device makes render and depth targets of. The
// full table of texture formats comes with the texture reader; this one covers targets.
#include <epoxy/gl.h>

#include <cstdint>

namespace ZemRenderer::GL
{
    struct GLFormat
    {
        GLenum eInternal = 0;
        // Client format and type of read-back and uploads.
        GLenum eFormat = 0;
        GLenum eType = 0;
        uint32_t uBytesPerPixel = 0;
        bool bDepth = false;
        bool bStencil = false;
    };

    // False for a format without a GL form ("Unknown format !" is the caller's to say).
    bool FindFormat(uint32_t format, GLFormat& out);
}
