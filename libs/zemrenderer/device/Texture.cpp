#include "zemrenderer/device/Texture.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    // Frees the device object of a texture nobody holds any more, then the texture.
    class DeleteTextureWorker : public PooledWorker<DeleteTextureWorker, Renderer>
    {
    public:
        DeleteTextureWorker() = default;
        explicit DeleteTextureWorker(Texture* texture) : m_pTexture(texture) {}
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override
        {
            if (renderer && m_pTexture->GetDeviceObject()) renderer->DeleteTexture(m_pTexture);
            delete m_pTexture;
            return true;
        }
        // The stop chain drops it unrun: the device's Release has freed what it owned.
        void OnCancel() override { delete m_pTexture; }

    private:
        Texture* m_pTexture = nullptr;
    };

    Texture::Texture(const TextureDesc& desc, const char* name) : m_kDesc(desc)
    {
        if (name)
        {
            std::strncpy(m_szName, name, kNameSize - 1);
            m_szName[kNameSize - 1] = '\0';
        }
    }

    void Texture::ApplyFileInfo()
    {
        m_kDesc.uWidth = m_kFileInfo.uWidth;
        m_kDesc.uHeight = m_kFileInfo.uHeight;
        m_kDesc.uFormat = m_kFileInfo.uFormat;
        m_kDesc.uMipLevels = m_kFileInfo.uLevels ? m_kFileInfo.uLevels : 1;
        m_kDesc.uArraySize = 1;
        m_kDesc.uBindFlags = eBindShaderResource | (m_kFileInfo.uFlags == eTextureCube ? eBindCube : 0);
    }

    Texture* Texture::Create(const TextureDesc& desc, const char* name) { return new Texture(desc, name); }

    int32_t Texture::Release()
    {
        const int32_t left = m_iRefCount.fetch_sub(1, std::memory_order_acq_rel) - 1;
        ZEM_ASSERT(left >= 0, "Texture %s released once too often", m_szName);
        if (left == 0) Destroy();
        return left;
    }

    void Texture::Destroy()
    {
        Renderer* device = GetDevice();
        if (!device || !m_uDeviceObject)
        {
            delete this;
            return;
        }
        RenderThread* thread = device->GetRenderThread();
        if (!thread || thread->IsInMyThread())
        {
            device->DeleteTexture(this);
            // A device driven from another thread refuses (and reports); its Release
            // frees the object and the texture with it.
            if (!m_uDeviceObject) delete this;
            return;
        }
        DeleteTextureWorker* worker = DeleteTextureWorker::New(this);
        if (worker && thread->AddWork(worker)) return;
        // The render thread takes no more work: the device's Release, which comes next on
        // that thread, frees the object and the texture with it (its count is 0 now).
        if (worker) worker->ReleaseToPool();
    }
}
