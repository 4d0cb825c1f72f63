#include "zemrenderer/texture/TextureWorkers.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"
#include "zemrenderer/device/Renderer.h"
#include "zemrenderer/device/Texture.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/texture/TextureLoadTraits.h"
#include "zemrenderer/thread/LoadingThread.hpp"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    bool UpdateTextureWorker::Post(RenderThread* thread, Texture* texture, const TextureBox& source,
                                   const TextureBox& target, uint32_t firstMip, uint32_t lastMip, const QueryPtr& query)
    {
        LoadingThread* loader = thread ? thread->GetLoader() : nullptr;
        if (!texture || !loader || !loader->IsAcceptingWork())
        {
            if (query) query->SetState(Query::eCancelled);
            return false;
        }
        UpdateTextureWorker* worker = UpdateTextureWorker::New(texture, source, target, firstMip, lastMip, query);
        if (!worker)
        {
            if (query) query->SetState(Query::eCancelled);
            return false;
        }
        if (query) query->SetState(Query::eQueued);
        // A refused worker is cancelled, which ends the query.
        return loader->AddWork(worker);
    }

    UpdateTextureWorker::UpdateTextureWorker(Texture* texture, const TextureBox& source, const TextureBox& target,
                                             uint32_t firstMip, uint32_t lastMip, const QueryPtr& query)
        : m_pTexture(texture), m_kSource(source), m_kTarget(target), m_uFirstMip(firstMip), m_uLastMip(lastMip),
          m_spQuery(query)
    {
        m_pTexture->AddRef();
    }

    bool UpdateTextureWorker::DoWork(RenderThread* context)
    {
        if (m_spQuery) m_spQuery->SetState(Query::eRunning);
        DataProvider::AssetQuery reference;
        DataProvider::AssetResult result;
        bool done = DataProvider::MakeAssetQuery(reference, LoadTraits<Texture>::TypeId(), m_pTexture->GetName()) &&
                    DataProvider::ResolveOrReport(result, reference);
        if (done)
        {
            IOSTreamDisk stream;
            if (!stream.OpenToRead(result.m_szFilePath))
            {
                Common::Log("Could not open file : %s\n", result.m_szFilePath);
                done = false;
            }
            else
            {
                TextureLoadParams params;
                params.bCreate = false;
                params.uFirstMip = m_uFirstMip;
                params.uLastMip = m_uLastMip;
                params.pSourceBox = m_kSource.IsEmpty() ? nullptr : &m_kSource;
                params.pTargetBox = m_kTarget.IsEmpty() ? nullptr : &m_kTarget;
                done = LoadTextureFile(*m_pTexture, stream, context, params);
            }
        }
        Finish(done);
        return true;
    }

    void UpdateTextureWorker::OnCancel() { Finish(false); }

    void UpdateTextureWorker::Finish(bool done)
    {
        if (m_spQuery) m_spQuery->SetState(done ? Query::eDone : Query::eCancelled);
        m_spQuery = QueryPtr();
        if (m_pTexture) m_pTexture->Release();
        m_pTexture = nullptr;
    }

    bool ReloadTextureWorker::Post(Bucket* owner, Texture* texture, const QueryPtr& query)
    {
        RenderThread* thread = owner ? owner->GetRenderThread() : nullptr;
        if (!texture || !thread || !thread->IsAcceptingWork())
        {
            if (query) query->SetState(Query::eCancelled);
            return false;
        }
        ReloadTextureWorker* worker = ReloadTextureWorker::New(owner, texture, query);
        if (!worker)
        {
            if (query) query->SetState(Query::eCancelled);
            return false;
        }
        if (query) query->SetState(Query::eQueued);
        return thread->AddWork(worker);
    }

    ReloadTextureWorker::ReloadTextureWorker(Bucket* owner, Texture* texture, const QueryPtr& query)
        : m_pOwner(owner), m_pTexture(texture), m_spQuery(query)
    {
        m_pTexture->AddRef();
    }

    bool ReloadTextureWorker::DoWork(Renderer* renderer)
    {
        // Nothing in flight draws the texture once the device has finished its work.
        if (renderer) renderer->Flush();
        RenderThread* thread = m_pOwner->GetRenderThread();
        LoadingThread* loader = thread ? thread->GetLoader() : nullptr;
        if (loader)
            loader->AddLoaderWork<Texture>(m_pTexture, m_pTexture->GetName(), m_pOwner, false, m_spQuery);
        else if (m_spQuery)
            m_spQuery->SetState(Query::eCancelled);
        Finish();
        return true;
    }

    void ReloadTextureWorker::OnCancel()
    {
        if (m_spQuery) m_spQuery->SetState(Query::eCancelled);
        Finish();
    }

    void ReloadTextureWorker::Finish()
    {
        m_spQuery = QueryPtr();
        if (m_pTexture) m_pTexture->Release();
        m_pTexture = nullptr;
    }
}
