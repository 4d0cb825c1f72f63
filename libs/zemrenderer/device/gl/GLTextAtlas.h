#pragma once
// Screen text: the printable ASCII glyphs of one font rendered by FreeType once, at a
// fixed size, into a single-channel atlas texture; a line of text becomes two triangles
// per glyph, scaled to the size asked for.
#include <epoxy/gl.h>

#include <cstdint>
#include <string>
#include <vector>

namespace ZemRenderer::GL
{
    struct TextVertex
    {
        float fX, fY;  // pixels, top-left origin
        float fU, fV;
    };

    class GLTextAtlas
    {
    public:
        static constexpr uint32_t kFirstChar = 32;
        static constexpr uint32_t kLastChar = 126;
        static constexpr uint32_t kAtlasSize = 512;

        // Renders the glyphs at `pixelSize` and makes the atlas texture; false, said in
        // `reason`, when the font can't be read.
        bool Build(const char* fontPath, uint32_t pixelSize, std::string& reason);
        void Release();
        bool IsBuilt() const { return m_uTexture != 0; }
        GLuint GetTexture() const { return m_uTexture; }

        // Appends the glyph quads of `text` (UTF-8; what the atlas lacks shows as '?')
        // with its top-left corner at (x, y), `size` pixels high. Lines break at '\n'.
        void Layout(const char* text, float x, float y, float size, std::vector<TextVertex>& out) const;
        // Width in pixels of the longest line of `text` at `size`.
        float Measure(const char* text, float size) const;

    private:
        struct Glyph
        {
            uint16_t uX = 0, uY = 0, uWidth = 0, uHeight = 0;
            int16_t iLeft = 0, iTop = 0;
            float fAdvance = 0.0f;
        };
        const Glyph& Find(uint32_t codepoint) const;

        Glyph m_aGlyphs[kLastChar - kFirstChar + 1];
        float m_fPixelSize = 0.0f;
        float m_fAscender = 0.0f;
        float m_fLineHeight = 0.0f;
        GLuint m_uTexture = 0;
    };

    // Where the font of screen text lies; "Arial" is served by Liberation Sans.
    const char* GetScreenFontPath();
}
