#include "zemrenderer/texture/TextureUpload.h"

#include <string>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    TextureUpdateBufferPool& GetTextureUpdatePool()
    {
        static TextureUpdateBufferPool s_kPool;
        return s_kPool;
    }

    UploadTextureWorker::UploadTextureWorker(Texture* texture, TextureUpdateBuffer* buffer, bool create, bool last,
                                             uint32_t state)
        : m_pTexture(texture), m_pBuffer(buffer), m_bCreate(create), m_bLast(last), m_uState(state)
    {
        m_pTexture->AddRef();
    }

    bool UploadTextureWorker::DoWork(Renderer* renderer)
    {
        if (!renderer || !renderer->UploadTexture(m_pTexture, *m_pBuffer, m_bCreate))
            Common::Log("Texture \"%s\": the device refused an upload\n", m_pTexture->GetName());
        if (m_bLast) m_pTexture->SetLoadState(static_cast<Texture::LoadState>(m_uState));
        Finish();
        return true;
    }

    void UploadTextureWorker::OnCancel() { Finish(); }

    void UploadTextureWorker::Finish()
    {
        GetTextureUpdatePool().Give(m_pBuffer);
        m_pBuffer = nullptr;
        if (m_pTexture) m_pTexture->Release();
        m_pTexture = nullptr;
    }

    TextureDeviceTarget::TextureDeviceTarget(RenderThread* thread, Texture* texture, bool create, uint32_t finalState)
        : m_pThread(thread), m_pTexture(texture), m_bCreate(create), m_uFinalState(finalState)
    {
    }

    TextureUpdateBuffer* TextureDeviceTarget::AcquireUpdateBuffer(size_t bytes)
    {
        return GetTextureUpdatePool().Acquire(bytes);
    }

    bool TextureDeviceTarget::Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool last)
    {
        if (!m_pThread || !m_pThread->IsAcceptingWork())
        {
            GetTextureUpdatePool().Give(buffer);
            return false;
        }
        UploadTextureWorker* worker = UploadTextureWorker::New(m_pTexture, buffer, m_bCreate, last, m_uFinalState);
        if (!worker)
        {
            GetTextureUpdatePool().Give(buffer);
            return false;
        }
        m_bCreate = false;
        // A refused worker is cancelled, which gives the buffer back.
        return m_pThread->AddWork(worker);
    }

    void TextureDeviceTarget::Discard(TextureUpdateBuffer* buffer) { GetTextureUpdatePool().Give(buffer); }

    bool LoadTextureFile(Texture& texture, IOSTreamBase& stream, RenderThread* thread, const TextureLoadParams& params)
    {
        if (params.bCreate) texture.SetLoadState(Texture::eLoading);
        Common::ScopedLogCapture log;
        TextureDeviceTarget target(thread, &texture, params.bCreate, Texture::eLoaded);
        TextureInfo& info = texture.GetFileInfo();
        // A texture that shows the fallback has no file shape to update.
        if (params.bCreate) info = TextureInfo();
        if (TextureReader::LoadTexture(&info, &stream, params, target)) return true;
        if (!params.bCreate)
        {
            Common::Log("Texture \"%s\": update refused\n", texture.GetName());
            return false;
        }
        std::string why = log.Text();
        while (!why.empty() && (why.back() == '\n' || why.back() == ' ')) why.pop_back();
        const size_t lastLine = why.rfind('\n');
        if (lastLine != std::string::npos) why = why.substr(lastLine + 1);
        UseFallbackTexture(texture, thread, why.empty() ? "unreadable file" : why.c_str());
        return false;
    }

    bool UseFallbackTexture(Texture& texture, RenderThread* thread, const char* why)
    {
        Common::Log("Texture \"%s\" could not be loaded: %s; showing the fallback\n", texture.GetName(), why);
        uint8_t pixels[8 * 8 * 4];
        for (uint32_t y = 0; y < 8; ++y)
            for (uint32_t x = 0; x < 8; ++x)
            {
                uint8_t* p = pixels + (y * 8 + x) * 4;
                const bool magenta = ((x / 4) ^ (y / 4)) & 1;
                p[0] = magenta ? 255 : 0;  // blue first in the file
                p[1] = 0;
                p[2] = magenta ? 255 : 0;
                p[3] = 255;
            }
        texture.GetFileInfo() = TextureInfo();
        TextureDeviceTarget target(thread, &texture, true, Texture::eFallback);
        return TextureReader::LoadFromMemory(&texture.GetFileInfo(), pixels, 8, 8, TFMT_BGRA8, target);
    }
}
