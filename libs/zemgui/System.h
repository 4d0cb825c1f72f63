#pragma once
// The root of the GUI: reference size, shaders, the six managers, the frame entry points
// and the queue through which other threads hand GUI work to the main thread.
#include <thread>

#include "zemgui/GuiRenderer.h"
#include "zemgui/GuiTypes.h"
#include "zemgui/MainThreadQueue.h"

namespace ZemGui
{
    class ObjManager;
    class TextureManager;
    class ImageManager;
    class FontManager;
    class GuiScreen;
    class PointerManager;
    class BaseObj;

    enum ShaderId : unsigned int
    {
        eGuiShader,
        eGuiFontShader,
        eGuiFontOutlineShader,
        eGuiFontOutlineBackgroundShader,
        eShaderCount
    };

    class System
    {
    public:
        // Builds the singleton on the first call; later calls return it. The thread that
        // builds it is the GUI's thread. `renderer` may be null: then nothing is drawn.
        static System* Create(void* engine, GuiRenderer* renderer);
        static System* GetInstance() { return s_pInstance; }
        // Ends the GUI: the engine at its stop, tests between cases.
        static void Destroy();

        // Start of the GUI's frame: runs the work other threads handed over, then keeps
        // the frame's time step for eases and repeats.
        void Update(unsigned int deltaMs);
        void Draw();
        void DrawChild(const char* name);
        void DrawObj(BaseObj* obj);

        void SetTexturePath(const char* path);
        const char* GetTexturePath() const { return m_szTexturePath; }
        void PlaySound(const char* name);
        void SetSoundPlayer(ISoundPlayer* player) { m_pSoundPlayer = player; }
        ISoundPlayer* GetSoundPlayer() const { return m_pSoundPlayer; }

        const Vec2& GetReferenceSize() const { return m_kReferenceSize; }
        float GetReferenceAspect() const { return m_kReferenceSize.x / m_kReferenceSize.y; }
        bool GetScaleImages() const { return m_bScaleImages; }
        void SetScaleImages(bool b) { m_bScaleImages = b; }
        GuiShader* GetShader(ShaderId id) const { return id < eShaderCount ? m_apShaders[id] : nullptr; }
        static const char* GetShaderFile(ShaderId id);
        void* GetEngine() const { return m_pEngine; }
        GuiRenderer* GetRenderer() const { return m_pRenderer; }
        bool IsInUpdate() const { return m_bInUpdate; }
        bool IsInDraw() const { return m_bInDraw; }
        unsigned int GetDeviceStamp() const { return m_uDeviceStamp; }
        void BumpDeviceStamp() { ++m_uDeviceStamp; }
        // True on the thread that built the system.
        bool IsGuiThread() const { return std::this_thread::get_id() == m_kGuiThread; }

        ObjManager& GetObjManager() { return *m_pObjManager; }
        TextureManager& GetTextureManager() { return *m_pTextureManager; }
        ImageManager& GetImageManager() { return *m_pImageManager; }
        FontManager& GetFontManager() { return *m_pFontManager; }
        GuiScreen& GetScreen() { return *m_pScreen; }
        PointerManager& GetPointerManager() { return *m_pPointerManager; }
        MainThreadQueue& GetMainThreadQueue() { return m_kMainThreadQueue; }

        // Null while the part is not built (or no longer exists).
        ObjManager* FindObjManager() const { return m_pObjManager; }
        GuiScreen* FindScreen() const { return m_pScreen; }
        PointerManager* FindPointerManager() const { return m_pPointerManager; }

    private:
        System(void* engine, GuiRenderer* renderer);
        ~System();
        void RunPass(BaseObj* root);

        static System* s_pInstance;

        Vec2 m_kReferenceSize{1920.0f, 1080.0f};
        bool m_bScaleImages = false;
        void* m_pEngine;
        GuiRenderer* m_pRenderer;
        GuiShader* m_apShaders[eShaderCount] = {};
        ObjManager* m_pObjManager = nullptr;
        TextureManager* m_pTextureManager = nullptr;
        ImageManager* m_pImageManager = nullptr;
        FontManager* m_pFontManager = nullptr;
        GuiScreen* m_pScreen = nullptr;
        PointerManager* m_pPointerManager = nullptr;
        ISoundPlayer* m_pSoundPlayer = nullptr;
        bool m_bInUpdate = false;
        bool m_bInDraw = false;
        unsigned int m_uDeviceStamp = 0;
        char m_szTexturePath[kPathCapacity] = {};
        std::thread::id m_kGuiThread;
        MainThreadQueue m_kMainThreadQueue;
    };
}
