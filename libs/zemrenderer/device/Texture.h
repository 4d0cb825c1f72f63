#pragma once
// The device side of a texture: its description and the device object behind it. Shared
// by reference count between threads; the device object is made and destroyed on the
// render thread only, so the last Release hands the texture to the render thread's
// release queue when it still has one. Texture readers derive from this class.
#include <atomic>
#include <cstdint>

#include "zemrenderer/texture/TextureReader.h"

namespace ZemRenderer
{
    class Renderer;

    enum TextureBindFlags : uint32_t
    {
        eBindShaderResource = 8,
        eBindCube = 128,
        eBindRenderTarget = 256,
        eBindDepthStencil = 512,
        eBindReadBack = 0x1000,
        eBindFixedSize = 0x40000,
    };

    // Formats are D3DFORMAT numbers.
    enum TextureFormat : uint32_t
    {
        eFormatA8R8G8B8 = 21,
        eFormatA8B8G8R8 = 32,
        eFormatD24S8 = 75,
        eFormatD16 = 80,
        eFormatR16F = 111,
        eFormatG16R16F = 112,
        eFormatA16B16G16R16F = 113,
        eFormatR32F = 114,
        eFormatG32R32F = 115,
        eFormatA32B32G32R32F = 116,
        eFormatR32FUnordered = 118,
    };

    struct TextureDesc
    {
        uint32_t uWidth = 0;
        uint32_t uHeight = 0;
        uint32_t uFormat = eFormatA8B8G8R8;
        uint32_t uBindFlags = eBindShaderResource;
        uint32_t uMipLevels = 1;
        uint32_t uArraySize = 1;
    };

    class Texture
    {
    public:
        // Texture files are named by their path.
        static constexpr unsigned kNameSize = 256;

        // One reference for the caller.
        static Texture* Create(const TextureDesc& desc, const char* name = nullptr);

        int32_t AddRef() { return m_iRefCount.fetch_add(1, std::memory_order_relaxed) + 1; }
        // The last one destroys the texture: at once when it has no device object or the
        // caller is on its device's thread, else through a delete worker on the release queue.
        int32_t Release();
        // For a device whose Release finds a texture nobody holds any more (its last
        // reference went while the render thread stopped): deletes it.
        void DeleteUnreferenced()
        {
            if (GetRefCount() == 0) delete this;
        }
        int32_t GetRefCount() const { return m_iRefCount.load(std::memory_order_relaxed); }

        const TextureDesc& GetDesc() const { return m_kDesc; }
        uint32_t GetWidth() const { return m_kDesc.uWidth; }
        uint32_t GetHeight() const { return m_kDesc.uHeight; }
        uint32_t GetFormat() const { return m_kDesc.uFormat; }
        uint32_t GetBindFlags() const { return m_kDesc.uBindFlags; }
        bool HasBindFlag(uint32_t flag) const { return (m_kDesc.uBindFlags & flag) != 0; }
        const char* GetName() const { return m_szName; }

        // Device side, on the device's thread only. The name is the device's own handle
        // (a GL texture name), 0 while there is none.
        uint32_t GetDeviceObject() const { return m_uDeviceObject; }
        Renderer* GetDevice() const { return m_pDevice.load(std::memory_order_acquire); }
        void SetDeviceObject(Renderer* device, uint32_t object)
        {
            m_uDeviceObject = object;
            m_pDevice.store(object ? device : nullptr, std::memory_order_release);
        }
        // A resize changes the description before the device object is made again.
        void SetSize(uint32_t width, uint32_t height)
        {
            m_kDesc.uWidth = width;
            m_kDesc.uHeight = height;
        }

        // Texture files. The reader fills the file description on the loading or process
        // thread before the first upload; the upload (render thread) makes the device
        // description follow it.
        enum LoadState : uint32_t
        {
            eNotLoaded,
            eLoading,
            eLoaded,
            // The file could not be read: the texture shows the fallback picture.
            eFallback,
        };
        TextureInfo& GetFileInfo() { return m_kFileInfo; }
        const TextureInfo& GetFileInfo() const { return m_kFileInfo; }
        void ApplyFileInfo();
        LoadState GetLoadState() const { return static_cast<LoadState>(m_uLoadState.load(std::memory_order_acquire)); }
        void SetLoadState(LoadState state) { m_uLoadState.store(state, std::memory_order_release); }
        bool IsReady() const { return GetLoadState() == eLoaded || GetLoadState() == eFallback; }

    protected:
        Texture(const TextureDesc& desc, const char* name);
        virtual ~Texture() = default;
        Texture(const Texture&) = delete;
        Texture& operator=(const Texture&) = delete;

    private:
        friend class DeleteTextureWorker;
        void Destroy();

        TextureDesc m_kDesc;
        std::atomic<int32_t> m_iRefCount{1};
        std::atomic<Renderer*> m_pDevice{nullptr};
        uint32_t m_uDeviceObject = 0;
        char m_szName[kNameSize] = {};
        TextureInfo m_kFileInfo;
        std::atomic<uint32_t> m_uLoadState{eNotLoaded};
    };
}
