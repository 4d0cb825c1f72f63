#pragma once
// The unit of ownership of scene data: a named container that several threads hold by
// reference count. Everything a world or a GUI page needs is made from one: links and
// their octrees, user-data blocks, strings that live as long as the bucket. It is
// deleted by a delete worker on the render thread's release queue, never in place, so
// that nothing the frame in flight draws goes before it is drawn.
#include <atomic>
#include <cstdint>
#include <utility>

#include "common/system/memorymanager/MemoryManager.h"
#include "common/system/mutex/Mutex.h"
#include "common/utils/TArray.h"
#include "common/utils/TMap.h"
#include "common/utils/pool/TPool.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/scene/RUserID.h"
#include "zemrenderer/scene/UserData.h"
#include "zemrenderer/texture/TextureLibrary.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class BufferReference;
    class Effect;
    class InputLayout;
    class Link;
    class Property;
    class LOctreeRoot;
    class RenderThread;
    class Texture;
    struct TextureDesc;

    class Bucket
    {
    public:
        static constexpr unsigned int kNameSize = 256;

        // Text that lives as long as the bucket, packed into chunks.
        struct StringChunk
        {
            static constexpr unsigned int Length = 8176;
            char acData[Length];
            unsigned int uiUsed;
            StringChunk* pNext;
        };

        Bucket(RenderThread* renderThread, const char* name);
        // Destroys the octrees made here; reports a bucket that goes while still referenced.
        ~Bucket();
        Bucket(const Bucket&) = delete;
        Bucket& operator=(const Bucket&) = delete;

        const char* GetName() const { return m_szName; }
        const char* GetPath() const { return m_szPath; }
        void SetPath(const char* path);
        RenderThread* GetRenderThread() const { return m_pRenderThread; }

        // The first count; the count decides the bucket's end from then on.
        void InitReference();
        // One more holder; refused on a bucket whose count reached 0.
        void Reference();
        // One holder less. At 0 the render thread deletes the bucket on its release
        // queue (a bucket without a render thread is deleted at once). Returns the count.
        int Release();
        // A count that its owner ends itself with AddDeleteBucketWork; Release does not
        // schedule the deletion of a bucket counted only this way.
        int AddRef() { return m_refcount.fetch_add(1, std::memory_order_relaxed) + 1; }
        int GetRefCount() const { return m_refcount.load(std::memory_order_acquire); }
        // Set when the bucket has been deleted, from the deleting thread.
        void SetDoneFlag(std::atomic<bool>* done) { m_pDoneFlag.store(done, std::memory_order_release); }

        // Loads under way; a bucket with none is loaded.
        void AddPending() { m_iPending.fetch_add(1, std::memory_order_relaxed); }
        void RemovePending() { m_iPending.fetch_sub(1, std::memory_order_acq_rel); }
        int GetPendingCount() const { return m_iPending.load(std::memory_order_acquire); }
        bool IsLoaded() const { return GetPendingCount() == 0; }

        // Set once its deletion is asked for; loaders give up on a closing bucket.
        void SetClosing() { m_bClosing.store(true, std::memory_order_release); }
        bool IsClosing() const { return m_bClosing.load(std::memory_order_acquire); }

        Common::CMutex& GetMutex() { return m_kMutex; }

        // An engine object from the memory manager, charged to the caller's place.
        template <class T, class... Args>
        T* Create(const Common::Mem::Location& where, Args&&... args)
        {
            return Common::Mem::New<T>(where.file, where.line, std::forward<Args>(args)...);
        }

        // A copy of `text` valid for the bucket's life; null (with a report) for a null
        // text or one of StringChunk::Length - 1 characters or more.
        const char* AddString(const char* text);
        unsigned int GetStringChunkCount() const;

        Link* CreateLink(const char* name, RUserID id = RUserID());
        // At once: the caller makes sure that nothing else holds the link.
        void DestroyLink(Link* link);
        // The octree of a scene of half extent `size`; the bucket deletes it at its end
        // unless DestroyLOctree came first.
        LOctreeRoot* CreateLOctree(float size, unsigned short depth);
        void DestroyLOctree(LOctreeRoot* octree);

        // Reads the link file `name` into `link` on the loading and process threads; the
        // query goes to done, or to cancelled when the file cannot be read. The link is
        // loading until then.
        bool AddLinkLoading(Link* link, const char* name, const QueryPtr& query);
        // An instance of the file `name` in `octree`, through its link library.
        Link* RetrieveLink(LOctreeRoot* octree, const char* name, QueryPtr* query = nullptr, Link* link = nullptr,
                           uint32_t flags = 0);

        // Geometry from this bucket's pool, with one count for the caller, which lets go of it
        // with the render thread's AddDeleteGeometryWork. Made empty, from a vertex count and
        // layout (one stream of `flags`), from an index list (an "INDICE" stream of 32-bit
        // indices, sent to the device), or from references (each takes a count).
        Geometry* CreateGeometry(const GeometryInit& init);
        Geometry* CreateGeometry(const GeometryInit& init, uint32_t vertexCount, InputLayout* layout,
                                 uint32_t flags = 0x1);
        Geometry* CreateGeometry(const GeometryInit& init, const uint32_t* indices, uint32_t indexCount);
        Geometry* CreateGeometry(const GeometryInit& init, BufferReference* const* streams, uint32_t count,
                                 BufferReference* index = nullptr);
        // A draw geometry over `geometry`, with one count for the caller
        // (AddDeleteDrawGeometryWork).
        DrawGeometry* CreateDrawGeometry(Geometry* geometry, Property* property = nullptr, Effect* effect = nullptr);
        TPool<Geometry>& GetGeometryPool() { return m_kGeometryPool; }
        TPool<DrawGeometry>& GetDrawGeometryPool() { return m_kDrawGeometryPool; }
        // A texture of the bucket's library made from a description, with a reference for
        // the caller. A name already in the library is refused ("Texture already created
        // => use update texture instead").
        Texture* CreateTexture(const char* name, const TextureDesc& desc);
        // The texture file `name`, shared: the library's texture if it has one, else a new
        // one read through the loading and process threads. The caller gets a reference.
        // `query` goes to done, or to cancelled when the file could not be read, in which
        // case the texture shows the fallback picture.
        Texture* AddTextureLoading(const char* name, const QueryPtr& query = QueryPtr(),
                                   void (*callback)(Texture*, bool, void*) = nullptr, void* userData = nullptr);
        TextureLibrary& GetTextureLibrary() { return m_kTextureLibrary; }

        bool RegisterBufferReference(const char* name, BufferReference* reference);
        BufferReference* FindBufferReference(const char* name);

        TPool<UserData>& GetUserDataPool() { return m_kUserDataPool; }

    private:
        void ScheduleDeletion();

        RenderThread* m_pRenderThread;
        char m_szName[kNameSize] = {};
        char m_szPath[kNameSize] = {};
        std::atomic<int> m_refcount{0};
        std::atomic<int> m_iPending{0};
        std::atomic<bool> m_bClosing{false};
        // Set by InitReference: reaching 0 schedules the deletion.
        std::atomic<bool> m_bCountOwnsLife{false};
        std::atomic<std::atomic<bool>*> m_pDoneFlag{nullptr};
        Common::CMutex m_kMutex;

        // Pools of what the bucket's workers allocate from several threads; each locks itself.
        TPool<UserData> m_kUserDataPool{64};
        TPool<Geometry> m_kGeometryPool{64};
        TPool<DrawGeometry> m_kDrawGeometryPool{64};
        TMap<unsigned int, BufferReference*> m_BufferRefCollection;
        StringChunk* m_pFirstChunk = nullptr;
        StringChunk* m_pLastChunk = nullptr;
        TArray<LOctreeRoot*> m_aOctrees;
        TextureLibrary m_kTextureLibrary;
    };
}
