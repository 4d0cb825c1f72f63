#include "zemgui/GuiScreen.h"
#include "zemgui/GuiAssert.h"

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemgui/GuiAccess.h"

namespace ZemGui
{
    GfxObjPool::~GfxObjPool()
    {
        for (GfxObj* g : m_aRecords) MEM_DELETE(g);
    }

    GfxObj* GfxObjPool::Get(unsigned int faces, unsigned int verticesPerFace, GuiShader* shader)
    {
        if (!GUI_CHECK(verticesPerFace >= 3, "Invalid number of vertex per face")) verticesPerFace = 3;
        if (!GUI_CHECK(faces <= 0xFFFFu && verticesPerFace <= 0xFFFFu, "Invalid parameters")) return nullptr;
        GfxObj* best = nullptr;
        GfxObj* tooSmall = nullptr;
        for (GfxObj* g : m_aRecords)
        {
            if (g->bInUse || g->pShader != shader || g->uVerticesPerFace != verticesPerFace) continue;
            if (g->uFaceCapacity >= faces)
            {
                if (!best || g->uFaceCapacity < best->uFaceCapacity) best = g;
            }
            else if (!tooSmall || g->uFaceCapacity > tooSmall->uFaceCapacity)
            {
                tooSmall = g;
            }
        }
        if (!best)
        {
            if (m_aRecords.GetSize() >= kCapacity)
            {
                if (!tooSmall) return nullptr;
                // Growth replaces the geometry and never shrinks it.
                best = tooSmall;
                best->uFaceCapacity = static_cast<unsigned short>(faces);
            }
            else
            {
                best = MEM_NEW(GfxObj);
                if (!best) return nullptr;
                best->pShader = shader;
                best->uFaceCapacity = static_cast<unsigned short>(faces);
                best->uVerticesPerFace = static_cast<unsigned short>(verticesPerFace);
                m_aRecords.Add(best);
            }
        }
        best->bInUse = true;
        return best;
    }

    void GfxObjPool::Release(GfxObj* obj)
    {
        if (obj) obj->bInUse = false;
    }

    unsigned int GfxObjPool::GetInUseCount() const
    {
        unsigned int n = 0;
        for (GfxObj* g : m_aRecords) n += g->bInUse ? 1u : 0u;
        return n;
    }

    GuiScreen::GuiScreen()
    {
        // Until the owner says otherwise the screen is the reference screen.
        const Vec2 reference = System::GetInstance() ? System::GetInstance()->GetReferenceSize() : Vec2(1920.0f, 1080.0f);
        m_kSize = reference;
        m_kRect = GuiRect(0.0f, 0.0f, reference.x, reference.y);
        m_kInvSize = Vec2(1.0f / reference.x, 1.0f / reference.y);
        m_kProjection.m[0][0] = 2.0f / reference.x;
        m_kProjection.m[0][3] = -1.0f;
        m_kProjection.m[1][1] = -2.0f / reference.y;
        m_kProjection.m[1][3] = 1.0f;
    }

    void GuiScreen::SetSize(unsigned short width, unsigned short height)
    {
        if (!GUI_CHECK(width > 0 && height > 0, "Invalid parameters")) return;
        const float w = width, h = height;
        m_kSize = Vec2(w, h);
        m_kRect = GuiRect(0.0f, 0.0f, w, h);
        m_kInvSize = Vec2(1.0f / w, 1.0f / h);
        m_kProjection = Matrix44();
        m_kProjection.m[0][0] = 2.0f / w;
        m_kProjection.m[0][3] = -1.0f;
        m_kProjection.m[1][1] = -2.0f / h;
        m_kProjection.m[1][3] = 1.0f;
        // Pointer objects follow the screen as the drawn tree does.
        if (ObjManager* om = Access::Objects())
        {
            om->Refresh(om->GetRootAt(eDrawnObjRoot));
            om->Refresh(om->GetRootAt(ePointerObjRoot));
        }
    }
}
