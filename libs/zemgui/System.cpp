#include "zemgui/System.h"
#include "zemgui/GuiAssert.h"

#include <new>

#include "common/system/debug/Log.h"
#include "zemgui/GuiAccess.h"
#include "zemgui/ResourceManagers.h"

namespace ZemGui
{
    System* System::s_pInstance = nullptr;

    namespace
    {
        const char* const kShaderFiles[eShaderCount] = {
            "Toolchain/Shaders/Gui.zff",
            "Toolchain/Shaders/GuiFont.zff",
            "Toolchain/Shaders/GuiFontOutline.zff",
            "Toolchain/Shaders/GuiFontOutlineBackground.zff",
        };
    }

    const char* System::GetShaderFile(ShaderId id) { return id < eShaderCount ? kShaderFiles[id] : nullptr; }

    System* System::Create(void* engine, GuiRenderer* renderer)
    {
        if (s_pInstance) return s_pInstance;
        void* mem = MEM_ALLOC(sizeof(System));
        if (!GUI_CHECK(mem != nullptr, "Invalid parameters")) return nullptr;
        new (mem) System(engine, renderer);
        return s_pInstance;
    }

    void System::Destroy()
    {
        System* s = s_pInstance;
        if (!s) return;
        s->~System();
        MEM_FREE(s);
        s_pInstance = nullptr;
    }

    System::System(void* engine, GuiRenderer* renderer)
        : m_pEngine(engine), m_pRenderer(renderer), m_kGuiThread(std::this_thread::get_id())
    {
        // The managers find the system while they are built.
        s_pInstance = this;
        if (m_pRenderer)
            for (unsigned int i = 0; i < eShaderCount; ++i) m_apShaders[i] = m_pRenderer->LoadShader(kShaderFiles[i]);
        m_pObjManager = MEM_NEW(ObjManager);
        m_pTextureManager = MEM_NEW(TextureManager);
        m_pImageManager = MEM_NEW(ImageManager);
        m_pFontManager = MEM_NEW(FontManager);
        m_pScreen = MEM_NEW(GuiScreen);
        m_pPointerManager = MEM_NEW(PointerManager);
        m_pPointerManager->SetInteractRoot(m_pObjManager->GetRoot());
    }

    System::~System()
    {
        // Work still waiting refers to objects that are about to go.
        m_kMainThreadQueue.Close();
        PointerManager* pm = m_pPointerManager;
        m_pPointerManager = nullptr;
        MEM_DELETE(pm);
        ObjManager* om = m_pObjManager;
        MEM_DELETE(om);
        m_pObjManager = nullptr;
        GuiScreen* screen = m_pScreen;
        m_pScreen = nullptr;
        MEM_DELETE(screen);
        MEM_DELETE(m_pFontManager);
        MEM_DELETE(m_pImageManager);
        MEM_DELETE(m_pTextureManager);
        if (m_pRenderer)
            for (GuiShader*& s : m_apShaders)
                if (s)
                {
                    m_pRenderer->ReleaseShader(s);
                    s = nullptr;
                }
    }

    void System::Update(unsigned int deltaMs)
    {
        if (!GUI_CHECK(IsGuiThread(), "GUI objects belong to the GUI's thread")) return;
        m_bInUpdate = true;
        m_kMainThreadQueue.Drain();
        m_pScreen->SetFrameTimeMs(deltaMs);
        if (!m_pObjManager->IsDeletionLocked()) m_pObjManager->FlushDeletions(nullptr);
        m_bInUpdate = false;
    }

    void System::RunPass(BaseObj* root)
    {
        if (!GUI_CHECK(IsGuiThread(), "GUI objects belong to the GUI's thread")) return;
        const bool wasInDraw = m_bInDraw;
        m_bInDraw = true;
        if (m_pRenderer) m_pRenderer->BeginMarker("DrawGUI");
        m_pPointerManager->PreparePointers();
        m_pObjManager->DrawPass(root);
        if (m_pRenderer) m_pRenderer->EndMarker();
        m_bInDraw = wasInDraw;
    }

    void System::Draw() { RunPass(nullptr); }

    void System::DrawChild(const char* name) { RunPass(m_pObjManager->GetRoot()->GetChild(name)); }

    void System::DrawObj(BaseObj* obj)
    {
        if (!obj)
        {
            m_pPointerManager->PreparePointers();
            return;
        }
        RunPass(obj);
    }

    void System::SetTexturePath(const char* path)
    {
        if (!GUI_CHECK(CopyFixedText(m_szTexturePath, path), "Invalid parameters")) return;
    }

    void System::PlaySound(const char* name)
    {
        if (name && m_pSoundPlayer) m_pSoundPlayer->Play(name);
    }
}
