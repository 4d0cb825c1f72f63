#pragma once
// The progress record of one request. A caller keeps a QueryPtr and polls or waits; the
// thread that runs the request's worker moves the state along.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <utility>

#include "common/system/mutex/Mutex.h"

namespace ZemRenderer
{
    class Query
    {
    public:
        enum State : uint32_t
        {
            eNone = 0,
            eQueued = 1,
            eRunning = 2,
            eDone = 3,
            eCancelled = 4,
        };

        // Made through the memory manager with a count of 0; hold it in a QueryPtr.
        static Query* Create();

        void AddRef() { m_iRefCount.fetch_add(1, std::memory_order_relaxed); }
        // Destroys the query when the last reference goes.
        void Release();
        int GetRefCount() const { return m_iRefCount.load(std::memory_order_relaxed); }

        State GetState() const { return static_cast<State>(m_uState.load(std::memory_order_acquire)); }
        void SetState(State state);
        bool IsFinished() const { return GetState() >= eDone; }
        // Blocks until the state is done or cancelled, or `ms` elapsed. True if finished.
        bool WaitFinished(unsigned int ms);

        // Held by the consuming thread for the length of the worker's run.
        void Lock() { m_kLock.Lock(); }
        void Unlock() { m_kLock.Unlock(); }

        Query() = default;
        Query(const Query&) = delete;
        Query& operator=(const Query&) = delete;

    private:
        std::atomic<int> m_iRefCount{0};
        std::atomic<uint32_t> m_uState{eNone};
        Common::CMutex m_kLock;
        std::mutex m_kWaitMutex;
        std::condition_variable m_kFinished;
    };

    // Intrusive reference to a Query.
    class QueryPtr
    {
    public:
        QueryPtr() = default;
        QueryPtr(Query* query) : m_pQuery(query)
        {
            if (m_pQuery) m_pQuery->AddRef();
        }
        QueryPtr(const QueryPtr& other) : QueryPtr(other.m_pQuery) {}
        QueryPtr(QueryPtr&& other) noexcept : m_pQuery(std::exchange(other.m_pQuery, nullptr)) {}
        ~QueryPtr() { Reset(); }
        QueryPtr& operator=(const QueryPtr& other)
        {
            QueryPtr copy(other);
            std::swap(m_pQuery, copy.m_pQuery);
            return *this;
        }
        QueryPtr& operator=(QueryPtr&& other) noexcept
        {
            if (this != &other)
            {
                Reset();
                m_pQuery = std::exchange(other.m_pQuery, nullptr);
            }
            return *this;
        }

        void Reset()
        {
            if (m_pQuery) std::exchange(m_pQuery, nullptr)->Release();
        }
        Query* Get() const { return m_pQuery; }
        Query* operator->() const { return m_pQuery; }
        explicit operator bool() const { return m_pQuery != nullptr; }

    private:
        Query* m_pQuery = nullptr;
    };
}
