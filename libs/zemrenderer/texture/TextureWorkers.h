#pragma once
// Work on textures that exist: a box of the file read again into the texture (loading
// thread), and a whole reload at a point where nothing draws it (release queue).
#include "zemrenderer/texture/TextureUpdate.h"
#include "zemrenderer/thread/PooledWorker.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class Bucket;
    class Renderer;
    class RenderThread;
    class Texture;

    // Loading thread: the file of the texture (its name, through the data provider) is
    // opened, and the source box of mips first to last goes to the target box of the
    // texture. Empty boxes mean whole mips. Only what the boxes cover changes.
    class UpdateTextureWorker : public PooledWorker<UpdateTextureWorker, RenderThread>
    {
    public:
        // False (query cancelled) when the loading thread takes no work.
        static bool Post(RenderThread* thread, Texture* texture, const TextureBox& source, const TextureBox& target,
                         uint32_t firstMip, uint32_t lastMip, const QueryPtr& query = QueryPtr());

        UpdateTextureWorker() = default;
        UpdateTextureWorker(Texture* texture, const TextureBox& source, const TextureBox& target, uint32_t firstMip,
                            uint32_t lastMip, const QueryPtr& query);
        unsigned int GetQueue() const override { return 0; }
        bool DoWork(RenderThread* context) override;
        void OnCancel() override;

    private:
        void Finish(bool done);

        Texture* m_pTexture = nullptr;
        TextureBox m_kSource;
        TextureBox m_kTarget;
        uint32_t m_uFirstMip = 0;
        uint32_t m_uLastMip = 0;
        QueryPtr m_spQuery;
    };

    // Release queue: with the device flushed, the texture's file is loaded again through
    // the loaders; its old content stays until the new one is uploaded.
    class ReloadTextureWorker : public PooledWorker<ReloadTextureWorker, Renderer>
    {
    public:
        static bool Post(Bucket* owner, Texture* texture, const QueryPtr& query = QueryPtr());

        ReloadTextureWorker() = default;
        ReloadTextureWorker(Bucket* owner, Texture* texture, const QueryPtr& query);
        unsigned int GetQueue() const override { return eReleaseQueue; }
        bool DoWork(Renderer* renderer) override;
        void OnCancel() override;

    private:
        void Finish();

        Bucket* m_pOwner = nullptr;
        Texture* m_pTexture = nullptr;
        QueryPtr m_spQuery;
    };
}
