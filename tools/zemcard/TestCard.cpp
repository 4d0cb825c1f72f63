#include "TestCard.h"

#include <cstdio>

#include "zemrenderer/device/RenderState.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/device/Texture.h"

namespace ZemCard
{
    using namespace ZemRenderer;

    namespace
    {
        constexpr uint32_t Rgba(uint32_t r, uint32_t g, uint32_t b, uint32_t a = 255)
        {
            return r | (g << 8) | (b << 16) | (a << 24);
        }

        // Drawing in the card's own units: 256 across, whatever the target's size.
        struct Painter
        {
            Renderer& kDevice;
            float fScale;

            float X(float x) const { return x / 128.0f - 1.0f; }
            float Y(float y) const { return 1.0f - y / 128.0f; }

            void State(CRenderState state) { kDevice.SetRenderState(state.GetValue(), CRenderState::kFullMask); }

            // Clockwise on screen unless asked otherwise: the engine's front faces.
            void Rect(float x0, float y0, float x1, float y1, float z, uint32_t top, uint32_t bottom,
                      bool clockwise = true)
            {
                auto* v = static_cast<UserPrimitiveVertex*>(kDevice.StartUserPrimitive(eTopologyTriangleList, 16, 6));
                if (!v) return;
                const UserPrimitiveVertex tl{{X(x0), Y(y0), z}, top}, tr{{X(x1), Y(y0), z}, top};
                const UserPrimitiveVertex br{{X(x1), Y(y1), z}, bottom}, bl{{X(x0), Y(y1), z}, bottom};
                if (clockwise)
                    v[0] = tl, v[1] = tr, v[2] = br, v[3] = tl, v[4] = br, v[5] = bl;
                else
                    v[0] = tl, v[1] = br, v[2] = tr, v[3] = tl, v[4] = bl, v[5] = br;
                kDevice.EndUserPrimitive(6);
            }
            void Rect(float x0, float y0, float x1, float y1, float z, uint32_t colour, bool clockwise = true)
            {
                Rect(x0, y0, x1, y1, z, colour, colour, clockwise);
            }

            void Triangle(float x0, float y0, float x1, float y1, float x2, float y2, uint32_t colour)
            {
                auto* v = static_cast<UserPrimitiveVertex*>(kDevice.StartUserPrimitive(eTopologyTriangleList, 16, 3));
                if (!v) return;
                v[0] = {{X(x0), Y(y0), 0.0f}, colour};
                v[1] = {{X(x1), Y(y1), 0.0f}, colour};
                v[2] = {{X(x2), Y(y2), 0.0f}, colour};
                kDevice.EndUserPrimitive(3);
            }

            void Text(const char* text, float x, float y, float size, uint32_t colour)
            {
                kDevice.RenderText(text, x * fScale, y * fScale, size * fScale, colour);
            }
        };

        // One labelled cell of the card's 4x3 grid of 56-unit tiles under the title.
        void CellOrigin(int index, float& x, float& y)
        {
            x = 12.0f + static_cast<float>(index % 4) * 60.0f;
            y = 40.0f + static_cast<float>(index / 4) * 66.0f;
        }
    }

    bool DrawTestCard(Renderer& device, Texture* colour, Texture* depth)
    {
        if (!colour || !depth || colour->GetWidth() != colour->GetHeight()) return false;
        if (!device.SetRenderTargets(&colour, 1, depth, nullptr, 0, 0)) return false;
        const float side = static_cast<float>(colour->GetWidth());
        Painter p{device, side / 256.0f};
        ViewportRect rect;
        rect.fWidth = rect.fHeight = side;
        device.SetViewport(rect);

        // A clear covers everything even with a small scissor rectangle on.
        device.SetScissorTest(true, ScissorRect{0, 0, 8, 8});
        ClearRequest clear;
        clear.apColourTargets[0] = colour;
        clear.uColourCount = 1;
        clear.pDepthTarget = depth;
        clear.afColour[0] = clear.afColour[1] = clear.afColour[2] = 0.12f;
        clear.afColour[3] = 1.0f;
        clear.fDepth = 1.0f;
        clear.uFlags = eClearColour | eClearDepth | eClearStencil;
        device.Clear(clear);
        device.SetScissorTest(false, ScissorRect{});

        const CRenderState opaque = CRenderState::Default();
        const CRenderState flat = CRenderState(opaque).SetDepthEnable(false).SetCullMode(false);
        p.State(flat);
        // Orientation: a red corner triangle points at the top-left corner.
        p.Triangle(0, 0, 28, 0, 0, 28, Rgba(230, 30, 30));
        p.Text("Zemora test card", 34, 6, 20, Rgba(240, 240, 240));

        const char* labels[12] = {"opaque", "alpha", "add", "min", "depth", "cull", "ccw front", "wire",
                                  "scissor", "mask RG", "gradient", "lines"};
        for (int i = 0; i < 12; ++i)
        {
            float x, y;
            CellOrigin(i, x, y);
            p.State(flat);
            // Stripes under every cell show what blending does with what lies beneath.
            p.Rect(x, y, x + 56, y + 56, 0.9f, Rgba(70, 70, 90));
            p.Rect(x, y + 14, x + 56, y + 28, 0.9f, Rgba(200, 200, 60));
            p.Rect(x, y + 42, x + 56, y + 56, 0.9f, Rgba(40, 160, 200));
            p.Text(labels[i], x, y + 57, 9, Rgba(220, 220, 220));
        }
        const uint32_t orange = Rgba(255, 120, 0, 160);
        float x, y;
        CellOrigin(0, x, y);
        p.State(opaque);
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, orange);
        CellOrigin(1, x, y);
        p.State(CRenderState(opaque).SetBlendMode(0, {BlendType::SrcAlpha, BlendType::InvSrcAlpha, BlendOp::Add}));
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, orange);
        CellOrigin(2, x, y);
        p.State(CRenderState(opaque).SetBlendMode(0, {BlendType::One, BlendType::One, BlendOp::Add}));
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(0, 90, 160));
        CellOrigin(3, x, y);
        p.State(CRenderState(opaque).SetBlendMode(0, {BlendType::One, BlendType::One, BlendOp::Min}));
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(255, 100, 100));

        // Depth: the green square is nearer; the red one, drawn after it, shows only outside.
        CellOrigin(4, x, y);
        p.State(opaque);
        p.Rect(x + 6, y + 6, x + 36, y + 36, 0.3f, Rgba(40, 220, 60));
        p.Rect(x + 20, y + 20, x + 50, y + 50, 0.6f, Rgba(230, 40, 40));
        // Culling: back faces go. Left half clockwise (kept), right half counter-clockwise (culled).
        CellOrigin(5, x, y);
        p.Rect(x + 4, y + 8, x + 26, y + 48, 0.5f, Rgba(60, 200, 255), true);
        p.Rect(x + 30, y + 8, x + 52, y + 48, 0.5f, Rgba(255, 60, 200), false);
        // With counter-clockwise fronts the other half stays.
        CellOrigin(6, x, y);
        p.State(CRenderState(opaque).SetFrontCCW(true));
        p.Rect(x + 4, y + 8, x + 26, y + 48, 0.5f, Rgba(60, 200, 255), true);
        p.Rect(x + 30, y + 8, x + 52, y + 48, 0.5f, Rgba(255, 60, 200), false);
        CellOrigin(7, x, y);
        p.State(CRenderState(opaque).SetWireframe(true).SetCullMode(false));
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(255, 255, 255));

        // Scissor: a square cut to a band by the scissor rectangle.
        CellOrigin(8, x, y);
        device.SetScissorTest(true, ScissorRect{static_cast<int32_t>((x + 4) * p.fScale),
                                                static_cast<int32_t>((y + 20) * p.fScale),
                                                static_cast<int32_t>((x + 52) * p.fScale),
                                                static_cast<int32_t>((y + 36) * p.fScale)});
        p.State(opaque);
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(255, 220, 0));
        device.SetScissorTest(false, ScissorRect{});
        // Write mask: red and green only, so white shows yellow over the stripes' blue.
        CellOrigin(9, x, y);
        p.State(CRenderState(opaque).SetWriteMask(0, 1 | 2 | 8));
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(255, 255, 255));
        // Vertex colours are interpolated down the quad.
        CellOrigin(10, x, y);
        p.State(opaque);
        p.Rect(x + 8, y + 8, x + 48, y + 48, 0.5f, Rgba(255, 0, 0), Rgba(0, 0, 255));
        // A line list: a star of eight lines.
        CellOrigin(11, x, y);
        p.State(flat);
        auto* lines = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyLineList, 16, 16));
        if (lines)
        {
            const float cx = x + 28, cy = y + 28;
            const float ends[8][2] = {{0, -22}, {16, -16}, {22, 0}, {16, 16}, {0, 22}, {-16, 16}, {-22, 0}, {-16, -16}};
            for (int i = 0; i < 8; ++i)
            {
                lines[2 * i] = {{p.X(cx), p.Y(cy), 0.0f}, Rgba(255, 255, 255)};
                lines[2 * i + 1] = {{p.X(cx + ends[i][0]), p.Y(cy + ends[i][1]), 0.0f}, Rgba(255, 200, 40)};
            }
            device.EndUserPrimitive(16);
        }
        // A frame of lines around the whole card, one unit inside its edge.
        auto* frame = static_cast<UserPrimitiveVertex*>(device.StartUserPrimitive(eTopologyLineStrip, 16, 5));
        if (frame)
        {
            const float e0 = 0.5f / p.fScale, e1 = 256.0f - 0.5f / p.fScale;
            const float corners[5][2] = {{e0, e0}, {e1, e0}, {e1, e1}, {e0, e1}, {e0, e0}};
            for (int i = 0; i < 5; ++i) frame[i] = {{p.X(corners[i][0]), p.Y(corners[i][1]), 0.0f}, Rgba(90, 200, 90)};
            device.EndUserPrimitive(5);
        }
        p.State(opaque);
        return true;
    }
}
