#pragma once
// The engine's default sequence: one flat block from the memory manager and a count.
// Growth: 16, then doubling while the capacity is below half the index range, then one
// jump to the largest index value; the array never holds more than that.
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/utils/AllocSite.h"

namespace ZemRenderer
{
    template <class T, class IndexType = unsigned int>
    class TArray
    {
        static_assert(std::is_unsigned_v<IndexType>, "TArray indices are unsigned");

    public:
        typedef T ValueType;
        typedef IndexType SizeType;
        static constexpr IndexType uiMaxValue = std::numeric_limits<IndexType>::max();
        // What the searches return when nothing matches (-1 in the index type).
        static constexpr IndexType npos = uiMaxValue;

        TArray() = default;
        explicit TArray(IndexType initialCapacity, Common::AllocSite site = {})
        {
            if (initialCapacity) Reserve(initialCapacity, site);
        }
        TArray(const TArray& other, Common::AllocSite site = {}) { CopyFrom(other, site); }
        TArray(TArray&& other) noexcept
            : m_pData(other.m_pData), m_uiSize(other.m_uiSize), m_uiCapacity(other.m_uiCapacity)
        {
            other.m_pData = nullptr;
            other.m_uiSize = other.m_uiCapacity = 0;
        }
        ~TArray() { ClearAndFree(); }

        TArray& operator=(const TArray& other)
        {
            if (this != &other) CopyFrom(other, Common::AllocSite{});
            return *this;
        }
        TArray& operator=(TArray&& other) noexcept
        {
            if (this != &other)
            {
                ClearAndFree();
                std::swap(m_pData, other.m_pData);
                std::swap(m_uiSize, other.m_uiSize);
                std::swap(m_uiCapacity, other.m_uiCapacity);
            }
            return *this;
        }

        T& operator[](IndexType i) { return m_pData[i]; }
        const T& operator[](IndexType i) const { return m_pData[i]; }
        IndexType GetSize() const { return m_uiSize; }
        IndexType GetCapacity() const { return m_uiCapacity; }
        bool IsEmpty() const { return m_uiSize == 0; }
        T* GetData() { return m_pData; }
        const T* GetData() const { return m_pData; }
        T& GetLast() { return m_pData[m_uiSize - 1]; }
        const T& GetLast() const { return m_pData[m_uiSize - 1]; }

        T* begin() { return m_pData; }
        T* end() { return m_pData + m_uiSize; }
        const T* begin() const { return m_pData; }
        const T* end() const { return m_pData + m_uiSize; }

        // A new element at the end: default constructed, or left raw for a plain type.
        T& Add(Common::AllocSite site = {})
        {
            T* slot = Grow(site);
            if (!slot) return Sink();
            return *new (slot) T;
        }
        T& Add(const T& value, Common::AllocSite site = {})
        {
            // The value may live in this array; take a copy before a growth frees it.
            if (m_uiSize < m_uiCapacity)
            {
                T* slot = m_pData + m_uiSize++;
                return *new (slot) T(value);
            }
            T copy(value);
            T* slot = Grow(site);
            if (!slot) return Sink() = std::move(copy);
            return *new (slot) T(std::move(copy));
        }
        T& Add(T&& value, Common::AllocSite site = {})
        {
            if (m_uiSize < m_uiCapacity)
            {
                T* slot = m_pData + m_uiSize++;
                return *new (slot) T(std::move(value));
            }
            T moved(std::move(value));
            T* slot = Grow(site);
            if (!slot) return Sink() = std::move(moved);
            return *new (slot) T(std::move(moved));
        }

        // Inserts before index i (i == size appends); the elements behind move up.
        T& Insert(IndexType i, const T& value, Common::AllocSite site = {})
        {
            if (!ZEM_ASSERT(i <= m_uiSize, "Insert index %llu out of range (size %llu)",
                            static_cast<unsigned long long>(i), static_cast<unsigned long long>(m_uiSize)))
                i = m_uiSize;
            T copy(value);
            T* slot = Grow(site);
            if (!slot) return Sink() = std::move(copy);
            if (i == m_uiSize - 1) return *new (slot) T(std::move(copy));
            new (slot) T(std::move(m_pData[m_uiSize - 2]));
            for (IndexType k = m_uiSize - 2; k > i; --k) m_pData[k] = std::move(m_pData[k - 1]);
            m_pData[i] = std::move(copy);
            return m_pData[i];
        }

        // Allocates exactly n elements if n exceeds the capacity; capacity never falls.
        bool Reserve(IndexType n, Common::AllocSite site = {})
        {
            if (n <= m_uiCapacity) return true;
            return Reallocate(n, site);
        }

        // Sets the count; the caller has reserved first. Objects entering or leaving the
        // range are constructed or destroyed; a plain type is left raw.
        void SetSize(IndexType n, Common::AllocSite site = {})
        {
            if (n > m_uiCapacity)
            {
                ZEM_ASSERT(n <= m_uiCapacity, "SetSize without Reserve (%llu > capacity %llu)",
                           static_cast<unsigned long long>(n), static_cast<unsigned long long>(m_uiCapacity));
                if (!Reserve(n, site)) return;
            }
            if constexpr (std::is_trivially_default_constructible_v<T> && std::is_trivially_destructible_v<T>)
                m_uiSize = n;
            else
                Resize(n, site);
        }

        // Sets the count, reserving exactly what is missing; new elements are default constructed.
        bool Resize(IndexType n, Common::AllocSite site = {})
        {
            if (n < m_uiSize)
            {
                DestroyRange(n, m_uiSize);
                m_uiSize = n;
                return true;
            }
            if (!Reserve(n, site)) return false;
            for (IndexType k = m_uiSize; k < n; ++k) new (m_pData + k) T;
            m_uiSize = n;
            return true;
        }

        // Removes element i and returns it; the elements behind it move down, order kept.
        T Remove(IndexType i)
        {
            if (!ZEM_ASSERT(i < m_uiSize, "Remove index %llu out of range (size %llu)",
                            static_cast<unsigned long long>(i), static_cast<unsigned long long>(m_uiSize)))
                return T();
            T out(std::move(m_pData[i]));
            for (IndexType k = i + 1; k < m_uiSize; ++k) m_pData[k - 1] = std::move(m_pData[k]);
            m_pData[--m_uiSize].~T();
            return out;
        }
        T RemoveLast() { return Remove(m_uiSize - 1); }

        // Removes the first element equal to value; false if there is none.
        bool RemoveValue(const T& value)
        {
            const IndexType i = Find(value);
            if (i == npos) return false;
            Remove(i);
            return true;
        }

        // Linear walk from index 0; npos if absent.
        IndexType Find(const T& value) const
        {
            for (IndexType k = 0; k < m_uiSize; ++k)
                if (m_pData[k] == value) return k;
            return npos;
        }
        bool Contains(const T& value) const { return Find(value) != npos; }

        // Size 0, block kept.
        void Clear() { Resize(0); }

        // Size 0 and the block given back.
        void ClearAndFree()
        {
            DestroyRange(0, m_uiSize);
            Common::AllocSite::Free(m_pData);
            m_pData = nullptr;
            m_uiSize = m_uiCapacity = 0;
        }

    private:
        // Makes room for one more element and returns its raw slot, counted in the size.
        T* Grow(const Common::AllocSite& site)
        {
            if (!ZEM_ASSERT(m_uiSize<uiMaxValue, "TArray capacity is full already")) return nullptr;
            if (m_uiSize == m_uiCapacity)
            {
                IndexType next;
                if (m_uiCapacity == 0)
                    next = 16;
                else if (m_uiCapacity <= uiMaxValue / 2)
                    next = static_cast<IndexType>(m_uiCapacity * 2);
                else
                    next = uiMaxValue;
                if (!Reallocate(next, site)) return nullptr;
            }
            return m_pData + m_uiSize++;
        }

        bool Reallocate(IndexType n, const Common::AllocSite& site)
        {
            T* p = static_cast<T*>(site.Alloc(static_cast<size_t>(n) * sizeof(T), alignof(T)));
            if (!ZEM_ASSERT(p != nullptr, "TArray allocation of %llu elements failed",
                            static_cast<unsigned long long>(n)))
                return false;
            if constexpr (std::is_trivially_copyable_v<T>)
            {
                if (m_uiSize) std::memcpy(static_cast<void*>(p), m_pData, static_cast<size_t>(m_uiSize) * sizeof(T));
            }
            else
            {
                for (IndexType k = 0; k < m_uiSize; ++k)
                {
                    new (p + k) T(std::move_if_noexcept(m_pData[k]));
                    m_pData[k].~T();
                }
            }
            Common::AllocSite::Free(m_pData);
            m_pData = p;
            m_uiCapacity = n;
            return true;
        }

        void CopyFrom(const TArray& other, const Common::AllocSite& site)
        {
            DestroyRange(0, m_uiSize);
            m_uiSize = 0;
            if (m_uiCapacity < other.m_uiSize)
            {
                Common::AllocSite::Free(m_pData);
                m_pData = nullptr;
                m_uiCapacity = 0;
                if (!Reallocate(other.m_uiSize, site)) return;
            }
            for (IndexType k = 0; k < other.m_uiSize; ++k) new (m_pData + k) T(other.m_pData[k]);
            m_uiSize = other.m_uiSize;
        }

        void DestroyRange(IndexType from, IndexType to)
        {
            if constexpr (!std::is_trivially_destructible_v<T>)
                for (IndexType k = from; k < to; ++k) m_pData[k].~T();
        }

        // Where a failed Add writes, so that the caller's reference is always usable and
        // no existing element is overwritten.
        static T& Sink()
        {
            if constexpr (std::is_default_constructible_v<T>)
            {
                thread_local T s_kSink{};
                return s_kSink;
            }
            else
            {
                Common::Log("TArray: no element to return for a type without default constructor\n");
                std::abort();
            }
        }

        T* m_pData = nullptr;
        IndexType m_uiSize = 0;
        IndexType m_uiCapacity = 0;
    };
}
