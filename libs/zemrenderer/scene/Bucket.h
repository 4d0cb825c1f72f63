#pragma once
// The unit of ownership of scene data: a named container that several threads hold by
// reference count. It is deleted by a delete worker on the render thread's release
// queue, never in place.
#include <atomic>

#include "common/system/mutex/Mutex.h"

namespace ZemRenderer
{
    class RenderThread;

    class Bucket
    {
    public:
        static constexpr unsigned int kNameSize = 256;

        Bucket(RenderThread* renderThread, const char* name);
        ~Bucket() = default;
        Bucket(const Bucket&) = delete;
        Bucket& operator=(const Bucket&) = delete;

        const char* GetName() const { return m_szName; }
        const char* GetPath() const { return m_szPath; }
        void SetPath(const char* path);
        RenderThread* GetRenderThread() const { return m_pRenderThread; }

        // Return the new count.
        int AddRef() { return m_refcount.fetch_add(1, std::memory_order_relaxed) + 1; }
        int Release() { return m_refcount.fetch_sub(1, std::memory_order_acq_rel) - 1; }
        int GetRefCount() const { return m_refcount.load(std::memory_order_acquire); }

        // Loads under way; a bucket with none is loaded.
        void AddPending() { m_iPending.fetch_add(1, std::memory_order_relaxed); }
        void RemovePending() { m_iPending.fetch_sub(1, std::memory_order_acq_rel); }
        int GetPendingCount() const { return m_iPending.load(std::memory_order_acquire); }
        bool IsLoaded() const { return GetPendingCount() == 0; }

        // Set once its deletion is asked for; loaders give up on a closing bucket.
        void SetClosing() { m_bClosing.store(true, std::memory_order_release); }
        bool IsClosing() const { return m_bClosing.load(std::memory_order_acquire); }

        Common::CMutex& GetMutex() { return m_kMutex; }

    private:
        RenderThread* m_pRenderThread;
        char m_szName[kNameSize] = {};
        char m_szPath[kNameSize] = {};
        std::atomic<int> m_refcount{0};
        std::atomic<int> m_iPending{0};
        std::atomic<bool> m_bClosing{false};
        Common::CMutex m_kMutex;
    };
}
