#pragma once
// Texture files on their way to the device: update buffers filled by the reader on the
// loading or process thread go to the render thread as upload workers, and a texture
// whose file cannot be read shows a fallback picture instead, with a log line naming it.
#include "zemrenderer/texture/TextureReader.h"
#include "zemrenderer/thread/PooledWorker.h"

namespace ZemRenderer
{
    class Renderer;
    class RenderThread;
    class Texture;
    class IOSTreamBase;

    // The update buffers of every texture load: kept after their upload for the next one.
    TextureUpdateBufferPool& GetTextureUpdatePool();

    // Render thread, update queue: the buffer's regions into the texture, then the buffer
    // back to the pool. Holds a reference on the texture until then.
    class UploadTextureWorker : public PooledWorker<UploadTextureWorker, Renderer>
    {
    public:
        UploadTextureWorker() = default;
        UploadTextureWorker(Texture* texture, TextureUpdateBuffer* buffer, bool create, bool last, uint32_t state);
        unsigned int GetQueue() const override { return eUpdateQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override;

    private:
        void Finish();

        Texture* m_pTexture = nullptr;
        TextureUpdateBuffer* m_pBuffer = nullptr;
        bool m_bCreate = false;
        bool m_bLast = false;
        // The load state the texture takes after the last buffer.
        uint32_t m_uState = 0;
    };

    // A reader's target that uploads through the render thread. The first commit of a
    // load that creates the texture makes its storage anew.
    class TextureDeviceTarget : public ITextureUpdateTarget
    {
    public:
        TextureDeviceTarget(RenderThread* thread, Texture* texture, bool create, uint32_t finalState);
        TextureUpdateBuffer* AcquireUpdateBuffer(size_t bytes) override;
        bool Commit(TextureInfo& texture, TextureUpdateBuffer* buffer, bool last) override;
        void Discard(TextureUpdateBuffer* buffer) override;

    private:
        RenderThread* m_pThread;
        Texture* m_pTexture;
        bool m_bCreate;
        uint32_t m_uFinalState;
    };

    // Reads a texture file into `texture` and sends it to the device. On failure the
    // texture takes the fallback picture and the reason is logged with its name.
    bool LoadTextureFile(Texture& texture, IOSTreamBase& stream, RenderThread* thread,
                         const TextureLoadParams& params = {});

    // The picture of a texture that could not be loaded: 8x8 texels of magenta and black
    // squares of 4, BGRA8, one mip. Logs "Texture \"name\" could not be loaded: <why>;
    // showing the fallback".
    bool UseFallbackTexture(Texture& texture, RenderThread* thread, const char* why);
}
