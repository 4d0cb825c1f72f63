#pragma once
// Texture files on the GL device: the storage of a texture as its file describes it, and
// the regions of an update buffer uploaded into it. Render thread only.
#include <epoxy/gl.h>

#include "zemrenderer/texture/TextureReader.h"

namespace ZemRenderer::GL
{
    // The GL target of a texture of this kind: 2D, cube map or 3D.
    GLenum TextureTarget(const TextureInfo& info);
    // Immutable storage of every level; 0 for a format without a device form.
    GLuint CreateTextureStorage(const TextureInfo& info);
    // Each region into its face, level and box. False (nothing uploaded after the first
    // bad region) for a region that does not fit the texture.
    bool UploadRegions(GLuint name, const TextureInfo& info, const TextureUpdateBuffer& buffer);
}
