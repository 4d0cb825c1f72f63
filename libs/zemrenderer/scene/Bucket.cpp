#include "zemrenderer/scene/Bucket.h"

#include <cstring>

#include "zemrenderer/buffer/Buffer.h"
#include "zemrenderer/buffer/BufferReference.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "common/system/debug/Log.h"
#include "common/utils/Hash.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/scene/LinkWorkers.h"
#include "zemrenderer/texture/TextureLoadTraits.h"
#include "zemrenderer/thread/LoadingThread.hpp"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    namespace
    {
        void CopyText(char* dest, const char* text)
        {
            if (!text) text = "";
            std::strncpy(dest, text, Bucket::kNameSize - 1);
            dest[Bucket::kNameSize - 1] = '\0';
        }

        struct MutexHold
        {
            explicit MutexHold(Common::CMutex& m) : rMutex(m) { rMutex.Lock(); }
            ~MutexHold() { rMutex.Unlock(); }
            Common::CMutex& rMutex;
        };
    }

    Bucket::Bucket(RenderThread* renderThread, const char* name) : m_pRenderThread(renderThread)
    {
        CopyText(m_szName, name);
        CopyText(m_szPath, ".\\");
    }

    Bucket::~Bucket()
    {
        const int count = GetRefCount();
        if (count != 0) Common::Log("Bucket cleared while refcount == %i\n", count);
        // Octrees go first: their link libraries give blocks back to the pools below.
        TArray<LOctreeRoot*> octrees(static_cast<TArray<LOctreeRoot*>&&>(m_aOctrees));
        for (LOctreeRoot* octree : octrees) MEM_DELETE(octree);
        if (m_kGeometryPool.GetUsedCount() || m_kDrawGeometryPool.GetUsedCount())
            Common::Log("Bucket %s ends with %u geometries and %u draw geometries still held\n", m_szName,
                        m_kGeometryPool.GetUsedCount(), m_kDrawGeometryPool.GetUsedCount());
        for (StringChunk* chunk = m_pFirstChunk; chunk;)
        {
            StringChunk* next = chunk->pNext;
            MEM_FREE(chunk);
            chunk = next;
        }
        if (std::atomic<bool>* done = m_pDoneFlag.load(std::memory_order_acquire))
            done->store(true, std::memory_order_release);
    }

    void Bucket::SetPath(const char* path) { CopyText(m_szPath, path); }

    // ---------------------------------------------------------------- geometry

    Geometry* Bucket::CreateGeometry(const GeometryInit& init)
    {
        Geometry* geometry = m_kGeometryPool.Allocate();
        if (!geometry) return nullptr;
        geometry->SetPool(&m_kGeometryPool);
        geometry->AddRef();
        if (!geometry->Init(init))
        {
            geometry->Release(nullptr);
            return nullptr;
        }
        return geometry;
    }

    Geometry* Bucket::CreateGeometry(const GeometryInit& init, uint32_t vertexCount, InputLayout* layout, uint32_t flags)
    {
        if (!ZEM_ASSERT(layout != nullptr && layout->GetStride() > 0, "Buffer has no layout")) return nullptr;
        const uint64_t size = static_cast<uint64_t>(vertexCount) * layout->GetStride();
        if (!ZEM_ASSERT(size > 0 && size < 0x80000000ull, "Bad rawbuffer size. Maybe a GetBufferSize missing on a PropertyModifier"))
            return nullptr;
        BufferReference* stream = BufferReference::Create(static_cast<uint32_t>(size), flags, layout);
        if (!stream) return nullptr;
        return CreateGeometry(init, &stream, 1);
    }

    Geometry* Bucket::CreateGeometry(const GeometryInit& init, const uint32_t* indices, uint32_t indexCount)
    {
        if (!ZEM_ASSERT(indices != nullptr && indexCount > 0, "Index list needs indices")) return nullptr;
        InputLayout* layout = InputLayout::Create("INDICE", IET_UINT_INDEX);
        if (!layout) return nullptr;
        BufferReference* index = BufferReference::Create(indexCount * 4u, BBF_INDEX, layout);
        if (!index)
        {
            InputLayout::Destroy(layout);
            return nullptr;
        }
        Geometry* geometry = CreateGeometry(init, nullptr, 0, index);
        if (!geometry) return nullptr;
        if (m_pRenderThread)
            if (Buffer* block = m_pRenderThread->RetrieveBuffer(index))
            {
                std::memcpy(block->GetData(), indices, indexCount * 4u);
                m_pRenderThread->AddUpdateBufferWork(block);
            }
        return geometry;
    }

    Geometry* Bucket::CreateGeometry(const GeometryInit& init, BufferReference* const* streams, uint32_t count,
                                     BufferReference* index)
    {
        Geometry* geometry = CreateGeometry(init);
        if (!geometry) return nullptr;
        bool ok = true;
        for (uint32_t i = 0; i < count && ok; ++i) ok = geometry->SetStream(i, streams[i]);
        if (ok && index) ok = geometry->SetIndexBuffer(index);
        if (!ok)
        {
            geometry->Release(nullptr);
            return nullptr;
        }
        return geometry;
    }

    DrawGeometry* Bucket::CreateDrawGeometry(Geometry* geometry, Property* property, Effect* effect)
    {
        if (!ZEM_ASSERT(geometry != nullptr, "Null geometry")) return nullptr;
        DrawGeometry* draw = m_kDrawGeometryPool.Allocate();
        if (!draw) return nullptr;
        draw->SetPool(&m_kDrawGeometryPool);
        draw->AddRef();
        draw->Init(geometry, property, effect);
        return draw;
    }

    // ---------------------------------------------------------------- reference count

    void Bucket::InitReference()
    {
        int expected = 0;
        if (!ZEM_ASSERT(m_refcount.compare_exchange_strong(expected, 1, std::memory_order_acq_rel),
                        "Can't init reference if bucket already referenced. Call Reference instead."))
            return;
        m_bCountOwnsLife.store(true, std::memory_order_release);
    }

    void Bucket::Reference()
    {
        int count = m_refcount.load(std::memory_order_acquire);
        do
        {
            if (!ZEM_ASSERT(count > 0,
                            "Bucket should be scheduled for destruction : can't add a reference to it know !"))
                return;
        } while (!m_refcount.compare_exchange_weak(count, count + 1, std::memory_order_acq_rel));
    }

    int Bucket::Release()
    {
        int count = m_refcount.load(std::memory_order_acquire);
        do
        {
            if (!ZEM_ASSERT(count > 0, "Too much Bucket Release")) return 0;
        } while (!m_refcount.compare_exchange_weak(count, count - 1, std::memory_order_acq_rel));
        if (count - 1 == 0 && m_bCountOwnsLife.load(std::memory_order_acquire)) ScheduleDeletion();
        return count - 1;
    }

    void Bucket::ScheduleDeletion()
    {
        // Nothing can still be drawing from a bucket that no render thread knows.
        if (!m_pRenderThread)
        {
            Bucket* self = this;
            MEM_DELETE(self);
            return;
        }
        m_pRenderThread->AddDeleteBucketWork(this);
    }

    // ---------------------------------------------------------------- strings

    const char* Bucket::AddString(const char* text)
    {
        if (!ZEM_ASSERT(text != nullptr, "Pointer must be non null")) return nullptr;
        const size_t length = std::strlen(text);
        if (!ZEM_ASSERT(length < StringChunk::Length - 1, "StringChunk::Length-1")) return nullptr;
        const unsigned int needed = static_cast<unsigned int>(length) + 1;
        MutexHold hold(m_kMutex);
        StringChunk* chunk = m_pLastChunk;
        if (!chunk || StringChunk::Length - chunk->uiUsed < needed)
        {
            chunk = static_cast<StringChunk*>(MEM_ALLOC(sizeof(StringChunk)));
            if (!ZEM_ASSERT(chunk != nullptr, "No memory left !")) return nullptr;
            chunk->uiUsed = 0;
            chunk->pNext = nullptr;
            if (m_pLastChunk)
                m_pLastChunk->pNext = chunk;
            else
                m_pFirstChunk = chunk;
            m_pLastChunk = chunk;
        }
        char* out = chunk->acData + chunk->uiUsed;
        std::memcpy(out, text, needed);
        chunk->uiUsed += needed;
        return out;
    }

    unsigned int Bucket::GetStringChunkCount() const
    {
        MutexHold hold(const_cast<Common::CMutex&>(m_kMutex));
        unsigned int count = 0;
        for (const StringChunk* chunk = m_pFirstChunk; chunk; chunk = chunk->pNext) ++count;
        return count;
    }

    // ---------------------------------------------------------------- links and octrees

    Link* Bucket::CreateLink(const char* name, RUserID id) { return Create<Link>(ZEM_LOCATION, this, name, id); }

    void Bucket::DestroyLink(Link* link)
    {
        if (!link) return;
        ZEM_ASSERT(link->GetBucket() == this, "Link %s destroyed by a bucket it does not belong to", link->GetName());
        MEM_DELETE(link);
    }

    LOctreeRoot* Bucket::CreateLOctree(float size, unsigned short depth)
    {
        LOctreeRoot* octree = Create<LOctreeRoot>(ZEM_LOCATION, this, size, depth);
        if (!octree) return nullptr;
        MutexHold hold(m_kMutex);
        m_aOctrees.Add(octree);
        return octree;
    }

    void Bucket::DestroyLOctree(LOctreeRoot* octree)
    {
        if (!octree) return;
        {
            MutexHold hold(m_kMutex);
            if (!ZEM_ASSERT(m_aOctrees.RemoveValue(octree), "Octree not made by bucket %s", m_szName)) return;
        }
        MEM_DELETE(octree);
    }

    bool Bucket::AddLinkLoading(Link* link, const char* name, const QueryPtr& query)
    {
        if (!ZEM_ASSERT(link != nullptr && name != nullptr, "Pointer must be non null")) return false;
        link->SetFlags(Link::eLoading);
        link->SetQuery(query);
        if (query) query->SetState(Query::eQueued);
        return LinkLoadWorker::Post(this, link, name, query);
    }

    Link* Bucket::RetrieveLink(LOctreeRoot* octree, const char* name, QueryPtr* query, Link* link, uint32_t flags)
    {
        if (!ZEM_ASSERT(octree != nullptr, "Pointer must be non null")) return nullptr;
        return octree->GetLinkLibrary().RetrieveLink(this, octree, name, query, link, flags);
    }

    // ---------------------------------------------------------------- textures

    Texture* Bucket::CreateTexture(const char* name, const TextureDesc& desc)
    {
        if (!ZEM_ASSERT(name != nullptr && name[0] != '\0', "Name must be valid !")) return nullptr;
        if (Texture* existing = m_kTextureLibrary.Find(name))
        {
            existing->Release();
            Common::Log("Texture already created => use update texture instead\n");
            return nullptr;
        }
        Texture* texture = Texture::Create(desc, name);
        if (!texture) return nullptr;
        if (!m_kTextureLibrary.Add(name, texture))
        {
            // Another thread made it between the two looks.
            texture->Release();
            Common::Log("Texture already created => use update texture instead\n");
            return nullptr;
        }
        return texture;
    }

    Texture* Bucket::AddTextureLoading(const char* name, const QueryPtr& query,
                                       void (*callback)(Texture*, bool, void*), void* userData)
    {
        if (!ZEM_ASSERT(name != nullptr && name[0] != '\0', "Name must be valid !")) return nullptr;
        if (Texture* existing = m_kTextureLibrary.Find(name))
        {
            // Shared: its own load tells its own requester; this one is told at once.
            if (query) query->SetState(existing->GetLoadState() == Texture::eFallback ? Query::eCancelled : Query::eDone);
            if (callback) callback(existing, existing->GetLoadState() != Texture::eFallback, userData);
            return existing;
        }
        // A placeholder shape until the file gives its own.
        TextureDesc desc;
        desc.uWidth = desc.uHeight = 1;
        desc.uFormat = TFMT_BGRA8;
        Texture* texture = Texture::Create(desc, name);
        if (!texture) return nullptr;
        if (!m_kTextureLibrary.Add(name, texture))
        {
            texture->Release();
            return AddTextureLoading(name, query, callback, userData);
        }
        texture->SetLoadState(Texture::eLoading);
        LoadingThread* loader = m_pRenderThread ? m_pRenderThread->GetLoader() : nullptr;
        if (!loader)
        {
            if (query) query->SetState(Query::eCancelled);
            UseFallbackTexture(*texture, m_pRenderThread, "no loading thread");
            if (callback) callback(texture, false, userData);
            return texture;
        }
        loader->AddLoaderWork<Texture>(texture, name, this, false, query, callback, userData);
        return texture;
    }

    // ---------------------------------------------------------------- buffer references

    bool Bucket::RegisterBufferReference(const char* name, BufferReference* reference)
    {
        if (!ZEM_ASSERT(name != nullptr && name[0] != '\0', "Name must be valid !")) return false;
        const unsigned int id = GenerateUIntIdFromString(name);
        MutexHold hold(m_kMutex);
        if (!ZEM_ASSERT(!m_BufferRefCollection.Contains(id), "BufferReference %s already registered in Bucket %s",
                        name, m_szName))
            return false;
        m_BufferRefCollection.Insert(id, reference);
        return true;
    }

    BufferReference* Bucket::FindBufferReference(const char* name)
    {
        if (!ZEM_ASSERT(name != nullptr && name[0] != '\0', "Name must be valid !")) return nullptr;
        const unsigned int id = GenerateUIntIdFromString(name);
        MutexHold hold(m_kMutex);
        return m_BufferRefCollection.Find(id);
    }
}
