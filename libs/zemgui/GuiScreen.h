#pragma once
// The screen the GUI is laid out on: its size in pixels, the projection from pixels
// (y downward) to clip space, the frame's time step and the pool of draw buffers.
#include "common/utils/TArray.h"
#include "zemgui/GuiTypes.h"

namespace ZemGui
{
    struct GuiShader;

    // One draw buffer record: room for `faceCapacity` faces of `verticesPerFace` vertices,
    // bound to a shader. The device geometry behind it belongs to the drawing code.
    struct GfxObj
    {
        GuiShader* pShader = nullptr;
        unsigned short uFaceCapacity = 0;
        unsigned short uVerticesPerFace = 3;
        bool bInUse = false;
        void* pGeometry = nullptr;
    };

    // Records are pooled so that a state change does not reach the device for buffers.
    class GfxObjPool
    {
    public:
        static constexpr unsigned int kCapacity = 1024;

        GfxObjPool() = default;
        ~GfxObjPool();
        GfxObjPool(const GfxObjPool&) = delete;
        GfxObjPool& operator=(const GfxObjPool&) = delete;

        // The free record of that shader and face form with the smallest capacity that
        // holds `faces`. Else a new record; when the pool is full, a free record of that
        // form that is too small grows. Null when nothing can serve.
        GfxObj* Get(unsigned int faces, unsigned int verticesPerFace, GuiShader* shader);
        // Marks the record free; it is kept for the next Get.
        void Release(GfxObj* obj);
        unsigned int GetSize() const { return m_aRecords.GetSize(); }
        unsigned int GetInUseCount() const;

    private:
        ZemRenderer::TArray<GfxObj*> m_aRecords;
    };

    class GuiScreen
    {
    public:
        GuiScreen();

        // Zero sizes are refused. Every object of the drawn tree is marked for redraw,
        // position, size and clipping.
        void SetSize(unsigned short width, unsigned short height);

        const Vec2& GetSize() const { return m_kSize; }
        const GuiRect& GetRect() const { return m_kRect; }
        const Vec2& GetInvSize() const { return m_kInvSize; }
        const Matrix44& GetProjection() const { return m_kProjection; }
        unsigned int GetFrameTimeMs() const { return m_uFrameTimeMs; }
        void SetFrameTimeMs(unsigned int ms) { m_uFrameTimeMs = ms; }
        GfxObjPool& GetGfxObjPool() { return m_kGfxObjPool; }

    private:
        unsigned int m_uFrameTimeMs = 0;
        Vec2 m_kSize;
        GuiRect m_kRect;
        Vec2 m_kInvSize;
        Matrix44 m_kProjection;
        GfxObjPool m_kGfxObjPool;
    };
}
