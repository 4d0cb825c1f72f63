#include "zemrenderer/device/gl/GLTextAtlas.h"

#include <ft2build.h>
#include FT_FREETYPE_H

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace ZemRenderer::GL
{
    const char* GetScreenFontPath()
    {
        const char* over = std::getenv("ZEM_SCREEN_FONT");
        return over && *over ? over : "/usr/share/fonts/truetype/liberation2/LiberationSans-Regular.ttf";
    }

    bool GLTextAtlas::Build(const char* fontPath, uint32_t pixelSize, std::string& reason)
    {
        FT_Library library = nullptr;
        if (FT_Init_FreeType(&library))
        {
            reason = "FreeType could not start";
            return false;
        }
        FT_Face face = nullptr;
        if (FT_New_Face(library, fontPath, 0, &face) || FT_Set_Pixel_Sizes(face, 0, pixelSize))
        {
            reason = std::string("cannot read font ") + fontPath;
            if (face) FT_Done_Face(face);
            FT_Done_FreeType(library);
            return false;
        }
        std::vector<uint8_t> pixels(kAtlasSize * kAtlasSize, 0);
        // Shelves left to right, top to bottom, one texel apart so filtering never bleeds.
        uint32_t penX = 1, penY = 1, shelf = 0;
        bool full = false;
        for (uint32_t c = kFirstChar; c <= kLastChar && !full; ++c)
        {
            Glyph& g = m_aGlyphs[c - kFirstChar];
            g = Glyph{};
            if (FT_Load_Char(face, c, FT_LOAD_RENDER)) continue;
            const FT_GlyphSlot slot = face->glyph;
            const FT_Bitmap& bitmap = slot->bitmap;
            g.fAdvance = static_cast<float>(slot->advance.x) / 64.0f;
            g.iLeft = static_cast<int16_t>(slot->bitmap_left);
            g.iTop = static_cast<int16_t>(slot->bitmap_top);
            if (bitmap.width == 0 || bitmap.rows == 0 || bitmap.pixel_mode != FT_PIXEL_MODE_GRAY) continue;
            if (penX + bitmap.width + 1 > kAtlasSize)
            {
                penX = 1;
                penY += shelf + 1;
                shelf = 0;
            }
            if (penY + bitmap.rows + 1 > kAtlasSize)
            {
                full = true;
                break;
            }
            for (uint32_t row = 0; row < bitmap.rows; ++row)
                std::memcpy(&pixels[(penY + row) * kAtlasSize + penX], bitmap.buffer + row * bitmap.pitch, bitmap.width);
            g.uX = static_cast<uint16_t>(penX);
            g.uY = static_cast<uint16_t>(penY);
            g.uWidth = static_cast<uint16_t>(bitmap.width);
            g.uHeight = static_cast<uint16_t>(bitmap.rows);
            penX += bitmap.width + 1;
            shelf = std::max(shelf, static_cast<uint32_t>(bitmap.rows));
        }
        m_fPixelSize = static_cast<float>(pixelSize);
        m_fAscender = static_cast<float>(face->size->metrics.ascender) / 64.0f;
        m_fLineHeight = static_cast<float>(face->size->metrics.height) / 64.0f;
        FT_Done_Face(face);
        FT_Done_FreeType(library);
        if (full)
        {
            reason = "glyphs do not fit the atlas";
            return false;
        }

        glCreateTextures(GL_TEXTURE_2D, 1, &m_uTexture);
        glTextureStorage2D(m_uTexture, 1, GL_R8, kAtlasSize, kAtlasSize);
        glPixelStorei(GL_UNPACK_ALIGNMENT, 1);
        glTextureSubImage2D(m_uTexture, 0, 0, 0, kAtlasSize, kAtlasSize, GL_RED, GL_UNSIGNED_BYTE, pixels.data());
        glPixelStorei(GL_UNPACK_ALIGNMENT, 4);
        return true;
    }

    void GLTextAtlas::Release()
    {
        if (m_uTexture) glDeleteTextures(1, &m_uTexture);
        m_uTexture = 0;
    }

    const GLTextAtlas::Glyph& GLTextAtlas::Find(uint32_t codepoint) const
    {
        if (codepoint < kFirstChar || codepoint > kLastChar) codepoint = '?';
        return m_aGlyphs[codepoint - kFirstChar];
    }

    namespace
    {
        // The next code point of UTF-8 text; a malformed byte counts as one unknown one.
        uint32_t NextCodepoint(const unsigned char*& p)
        {
            const unsigned char lead = *p++;
            if (lead < 0x80) return lead;
            int extra = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
            while (extra-- > 0 && (*p & 0xC0) == 0x80) ++p;
            return 0xFFFD;
        }
    }

    void GLTextAtlas::Layout(const char* text, float x, float y, float size, std::vector<TextVertex>& out) const
    {
        if (!text || m_fPixelSize <= 0.0f || size <= 0.0f) return;
        const float scale = size / m_fPixelSize;
        const float inv = 1.0f / static_cast<float>(kAtlasSize);
        float penX = x;
        float baseline = y + m_fAscender * scale;
        for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p;)
        {
            const uint32_t c = NextCodepoint(p);
            if (c == '\n')
            {
                penX = x;
                baseline += m_fLineHeight * scale;
                continue;
            }
            const Glyph& g = Find(c);
            if (g.uWidth)
            {
                const float x0 = penX + static_cast<float>(g.iLeft) * scale;
                const float y0 = baseline - static_cast<float>(g.iTop) * scale;
                const float x1 = x0 + static_cast<float>(g.uWidth) * scale;
                const float y1 = y0 + static_cast<float>(g.uHeight) * scale;
                const float u0 = static_cast<float>(g.uX) * inv, v0 = static_cast<float>(g.uY) * inv;
                const float u1 = static_cast<float>(g.uX + g.uWidth) * inv;
                const float v1 = static_cast<float>(g.uY + g.uHeight) * inv;
                const TextVertex quad[6] = {{x0, y0, u0, v0}, {x1, y0, u1, v0}, {x0, y1, u0, v1},
                                            {x1, y0, u1, v0}, {x1, y1, u1, v1}, {x0, y1, u0, v1}};
                out.insert(out.end(), quad, quad + 6);
            }
            penX += g.fAdvance * scale;
        }
    }

    float GLTextAtlas::Measure(const char* text, float size) const
    {
        if (!text || m_fPixelSize <= 0.0f) return 0.0f;
        const float scale = size / m_fPixelSize;
        float width = 0.0f, line = 0.0f;
        for (const unsigned char* p = reinterpret_cast<const unsigned char*>(text); *p;)
        {
            const uint32_t c = NextCodepoint(p);
            line = c == '\n' ? 0.0f : line + Find(c).fAdvance * scale;
            width = std::max(width, line);
        }
        return width;
    }
}
