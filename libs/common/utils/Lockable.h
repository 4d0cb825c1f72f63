#pragma once
// Locks around data. A class that needs locking derives from CLockable; a value that
// needs it is wrapped in SelfLocked<T>, whose only way to the value is a scope lock.
#include <cstdint>
#include <utility>

#include "common/system/mutex/Mutex.h"
#include "common/utils/NonCopyable.h"

namespace Common
{
    class CLockable
    {
    public:
        CLockable() = default;
        virtual ~CLockable() = default;
        CLockable(const CLockable&) = delete;
        CLockable& operator=(const CLockable&) = delete;

        // Recursive on the owning thread.
        void Lock() const { m_kMutex.Lock(); }
        void Unlock() const { m_kMutex.Unlock(); }
        bool TryLock() const { return m_kMutex.TryLock(); }

    private:
        mutable CMutex m_kMutex;
        uint8_t m_bFlag = 0;
    };

    namespace MT
    {
        // Holds a lockable for its scope. Movable so that it can be handed out by value.
        template <class L = CLockable>
        class CScopeLock : public CNonCopyable
        {
        public:
            explicit CScopeLock(const L* lockable = nullptr) : m_pLockable(lockable)
            {
                if (m_pLockable) m_pLockable->Lock();
            }
            explicit CScopeLock(const L& lockable) : CScopeLock(&lockable) {}
            CScopeLock(CScopeLock&& other) noexcept : m_pLockable(std::exchange(other.m_pLockable, nullptr)) {}
            CScopeLock& operator=(CScopeLock&&) = delete;
            ~CScopeLock()
            {
                if (m_pLockable) m_pLockable->Unlock();
            }

            bool OwnsLock() const { return m_pLockable != nullptr; }

        private:
            const L* m_pLockable;
        };

        template <class L>
        CScopeLock(L*) -> CScopeLock<L>;
        template <class L>
        CScopeLock(const L*) -> CScopeLock<L>;
    }

    // A held lock plus the value it guards; the value is reachable while the lock lives.
    template <class T>
    class CScopeLock : public MT::CScopeLock<CLockable>
    {
    public:
        CScopeLock(const CLockable* lockable, T* value) : MT::CScopeLock<CLockable>(lockable), m_pValue(value) {}
        CScopeLock(CScopeLock&& other) noexcept
            : MT::CScopeLock<CLockable>(std::move(other)), m_pValue(std::exchange(other.m_pValue, nullptr))
        {
        }
        virtual ~CScopeLock() = default;

        virtual T* operator->() const { return m_pValue; }
        virtual T& operator*() const { return *m_pValue; }
        virtual T& Get() const { return *m_pValue; }

    private:
        T* m_pValue;
    };

    template <class T>
    class SelfLocked
    {
    public:
        SelfLocked() = default;
        template <class A0, class... Args>
        explicit SelfLocked(A0&& a0, Args&&... args) : m_kValue(std::forward<A0>(a0), std::forward<Args>(args)...)
        {
        }
        virtual ~SelfLocked() = default;
        SelfLocked(const SelfLocked&) = delete;
        SelfLocked& operator=(const SelfLocked&) = delete;

        virtual CScopeLock<const T> Lock() const { return CScopeLock<const T>(&m_kLock, &m_kValue); }
        virtual CScopeLock<T> Lock() { return CScopeLock<T>(&m_kLock, &m_kValue); }

    private:
        T m_kValue{};
        CLockable m_kLock;
    };
}
