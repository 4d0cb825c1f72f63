#pragma once
// Loading thread: one asset of class T by name. The data provider turns the name into a
// file, LoadingHelper reads it, and the object goes on to the process thread.
#include <cstring>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemrenderer/dataprovider/DataPoviderInterface.h"
#include "zemrenderer/loading/BaseLoader.h"
#include "zemrenderer/loading/LoadingHelper.h"

namespace ZemRenderer
{
    template <class T>
    class LoaderT : public PooledWorker<LoaderT<T>, RenderThread>, public BaseLoader
    {
    public:
        typedef typename LoadTicket<T>::Callback Callback;

        LoaderT() = default;
        LoaderT(LoadTicket<T>&& ticket, const char* name, bool skipData)
            : m_kTicket(std::move(ticket)), m_bSkipData(skipData)
        {
            SetName(name);
        }

        unsigned int GetQueue() const override { return 0; }

        // Batch start: tells the provider what is about to be asked.
        bool PrepareWork() override
        {
            if (this->IsCancelled() || m_kTicket.IsOwnerClosing()) return true;
            DataProvider::AssetQuery reference;
            if (DataProvider::MakeAssetQuery(reference, LoadTraits<T>::TypeId(), m_szName))
                DataProvider::Prefetch(reference);
            return true;
        }

        bool DoWork(RenderThread* context) override
        {
            if (m_kTicket.IsOwnerClosing())
            {
                Fail(context);
                return true;
            }
            DataProvider::AssetQuery reference;
            DataProvider::AssetResult result;
            m_szPath[0] = '\0';
            bool found = DataProvider::MakeAssetQuery(reference, LoadTraits<T>::TypeId(), m_szName) &&
                         DataProvider::Resolve(result, reference);
            if (found)
            {
                std::memcpy(m_szPath, result.m_szFilePath, sizeof(result.m_szFilePath));
                m_szPath[sizeof(result.m_szFilePath)] = '\0';
                found = LoadingHelper<0, T>::Load(m_szPath, m_kTicket, m_bSkipData, context);
            }
            else
            {
                std::memcpy(m_szPath, result.m_szFilePath, sizeof(result.m_szFilePath));
                m_szPath[sizeof(result.m_szFilePath)] = '\0';
                Common::Log("File not found: \"%s\" \n", m_szPath[0] ? m_szPath : m_szName);
            }
            if (!found) Fail(context);
            return true;
        }

        void OnCancel() override
        {
            m_kTicket.SetQueryState(Query::eCancelled);
            LoadTraits<T>::Abort(m_kTicket.pObject, m_kTicket.pOwner);
            m_kTicket.End(false);
        }

        const char* GetResolvedPath() const { return m_szPath; }

    private:
        void Fail(RenderThread* context)
        {
            LoadTraits<T>::Abort(m_kTicket.pObject, m_kTicket.pOwner);
            m_kTicket.SetQueryState(Query::eCancelled);
            LoadedT<T>::Post(context, std::move(m_kTicket), false);
        }

        LoadTicket<T> m_kTicket;
        char m_szPath[kNameSize] = {};
        bool m_bSkipData = false;
    };

    // A stream that the caller polls: no process step, and the stream is opened on the
    // resolved path whatever the provider said, so that a missing file leaves it closed.
    template <>
    class LoaderT<IOSTreamMemory> : public PooledWorker<LoaderT<IOSTreamMemory>, RenderThread>, public BaseLoader
    {
    public:
        LoaderT() = default;
        LoaderT(IOSTreamMemory* stream, const char* name, Bucket* owner, bool skipData)
            : m_pOwner(owner), m_pObject(stream), m_bSkipData(skipData)
        {
            SetName(name);
        }
        ~LoaderT() override
        {
            if (m_bOwnsObject) MEM_DELETE(m_pObject);
        }

        unsigned int GetQueue() const override { return 0; }

        bool DoWork(RenderThread*) override
        {
            if (m_pOwner && m_pOwner->IsClosing()) return true;
            if (!m_pObject)
            {
                // Nobody asked for the bytes: the stream only shows that the file is there.
                m_pObject = MEM_NEW(IOSTreamMemory, m_bSkipData);
                m_bOwnsObject = m_pObject != nullptr;
                if (!m_pObject) return true;
            }
            DataProvider::AssetQuery reference;
            DataProvider::AssetResult result;
            m_szPath[0] = '\0';
            bool found = DataProvider::MakeAssetQuery(reference, TypeId(), m_szName, true) &&
                         DataProvider::Resolve(result, reference);
            std::memcpy(m_szPath, result.m_szFilePath, sizeof(result.m_szFilePath));
            m_szPath[sizeof(result.m_szFilePath)] = '\0';
            if (!found) Common::Log("%s(%i): File not found: %s\n", __FILE__, __LINE__, m_szName);
            m_pObject->OpenToRead(m_szPath);
            return true;
        }

        static unsigned int TypeId() { return ::GenerateUIntIdFromString("ZemRenderer::IOSTreamMemory"); }
        IOSTreamMemory* GetObject() const { return m_pObject; }

    private:
        Bucket* m_pOwner = nullptr;
        IOSTreamMemory* m_pObject = nullptr;
        char m_szPath[kNameSize] = {};
        bool m_bSkipData = false;
        bool m_bOwnsObject = false;
    };
}
