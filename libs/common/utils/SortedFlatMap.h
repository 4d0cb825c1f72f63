#pragma once
// One sorted array of (key, value) pairs, shared by TMap (32-bit count) and CMap (64-bit
// count). Lookups bisect; insertion walks and moves bytes, so small maps are cheap to
// search and dear to build. Keys are integers or pointers compared by value.
#include <cstdint>
#include <cstring>
#include <limits>
#include <type_traits>

#include "common/system/debug/Log.h"
#include "common/utils/AllocSite.h"

namespace Common
{
    template <class K, class V>
    struct TMapPair
    {
        K key;
        V value;
    };

    template <class K, class V, class SizeType>
    class TSortedFlatMap
    {
        static_assert(std::is_trivially_copyable_v<K>, "map keys are moved as bytes");
        static_assert(std::is_trivially_copyable_v<V>, "map values are moved as bytes");
        static_assert(std::is_unsigned_v<SizeType>, "map counts are unsigned");

    public:
        typedef TMapPair<K, V> Pair;
        static constexpr SizeType npos = std::numeric_limits<SizeType>::max();

        TSortedFlatMap() = default;
        explicit TSortedFlatMap(SizeType capacity, AllocSite site = {}) { Reserve(capacity, site); }
        TSortedFlatMap(const TSortedFlatMap& other, AllocSite site = {}) { CopyFrom(other, site); }
        TSortedFlatMap(TSortedFlatMap&& other) noexcept
            : m_pData(other.m_pData), m_uiSize(other.m_uiSize), m_uiCapacity(other.m_uiCapacity)
        {
            other.m_pData = nullptr;
            other.m_uiSize = other.m_uiCapacity = 0;
        }
        TSortedFlatMap& operator=(const TSortedFlatMap& other)
        {
            if (this != &other) CopyFrom(other, AllocSite{});
            return *this;
        }
        TSortedFlatMap& operator=(TSortedFlatMap&& other) noexcept
        {
            if (this != &other)
            {
                ClearAndFree();
                m_pData = other.m_pData;
                m_uiSize = other.m_uiSize;
                m_uiCapacity = other.m_uiCapacity;
                other.m_pData = nullptr;
                other.m_uiSize = other.m_uiCapacity = 0;
            }
            return *this;
        }
        ~TSortedFlatMap() { AllocSite::Free(m_pData); }

        SizeType GetSize() const { return m_uiSize; }
        SizeType GetCapacity() const { return m_uiCapacity; }
        bool IsEmpty() const { return m_uiSize == 0; }

        // Index of the key, or npos (-1). An empty map never touches its array.
        SizeType FindIndex(const K& key) const
        {
            SizeType low = 0;
            SizeType high = m_uiSize;
            const Pair* data = m_pData;
            while (low < high)
            {
                const SizeType mid = (low + high) / 2;
                const K k = data[mid].key;
                if (k == key) return mid;
                if (k < key)
                    low = mid + 1;
                else
                    high = mid;
            }
            return npos;
        }

        // The value, or a null value when the key is absent.
        V Find(const K& key) const
        {
            const SizeType i = FindIndex(key);
            return i == npos ? V{} : m_pData[i].value;
        }
        // Pointer to the stored value, or null; valid until the next Insert or removal.
        V* FindPtr(const K& key)
        {
            const SizeType i = FindIndex(key);
            return i == npos ? nullptr : &m_pData[i].value;
        }
        const V* FindPtr(const K& key) const { return const_cast<TSortedFlatMap*>(this)->FindPtr(key); }
        bool Contains(const K& key) const { return FindIndex(key) != npos; }

        Pair& GetAt(SizeType i) { return m_pData[i]; }
        const Pair& GetAt(SizeType i) const { return m_pData[i]; }
        const K& GetKeyAt(SizeType i) const { return m_pData[i].key; }
        V& GetValueAt(SizeType i) { return m_pData[i].value; }
        const V& GetValueAt(SizeType i) const { return m_pData[i].value; }

        Pair* begin() { return m_pData; }
        Pair* end() { return m_pData + m_uiSize; }
        const Pair* begin() const { return m_pData; }
        const Pair* end() const { return m_pData + m_uiSize; }

        // Inserts or replaces. Growth happens once the new pair would fill the capacity,
        // to (count + 1) * 5 / 4: capacities 1, 2, 3, 5, 6, 7, 8, 10, ...
        Pair& Insert(const K& key, const V& value, AllocSite site = {})
        {
            SizeType pos = 0;
            while (pos < m_uiSize && m_pData[pos].key < key) ++pos;
            if (pos < m_uiSize && m_pData[pos].key == key)
            {
                m_pData[pos].value = value;
                return m_pData[pos];
            }
            const Pair pair{key, value};
            if (static_cast<SizeType>(m_uiSize + 1) < m_uiCapacity)
            {
                std::memmove(static_cast<void*>(m_pData + pos + 1), m_pData + pos,
                             static_cast<size_t>(m_uiSize - pos) * sizeof(Pair));
            }
            else
            {
                if (!ZEM_ASSERT(m_uiSize < npos - 1, "Map is full (%llu pairs)",
                                static_cast<unsigned long long>(m_uiSize)))
                    return Sink();
                const SizeType wanted = GrownCapacity(m_uiSize);
                Pair* p = static_cast<Pair*>(site.Alloc(static_cast<size_t>(wanted) * sizeof(Pair), alignof(Pair)));
                if (!ZEM_ASSERT(p != nullptr, "Map allocation of %llu pairs failed",
                                static_cast<unsigned long long>(wanted)))
                    return Sink();
                if (m_pData)
                {
                    std::memcpy(static_cast<void*>(p), m_pData, static_cast<size_t>(pos) * sizeof(Pair));
                    std::memcpy(static_cast<void*>(p + pos + 1), m_pData + pos,
                                static_cast<size_t>(m_uiSize - pos) * sizeof(Pair));
                }
                AllocSite::Free(m_pData);
                m_pData = p;
                m_uiCapacity = wanted;
            }
            std::memcpy(static_cast<void*>(m_pData + pos), &pair, sizeof(Pair));
            ++m_uiSize;
            return m_pData[pos];
        }

        // Raises the capacity only.
        bool Reserve(SizeType n, AllocSite site = {})
        {
            if (n <= m_uiCapacity) return true;
            Pair* p = static_cast<Pair*>(site.Alloc(static_cast<size_t>(n) * sizeof(Pair), alignof(Pair)));
            if (!ZEM_ASSERT(p != nullptr, "Map allocation of %llu pairs failed", static_cast<unsigned long long>(n)))
                return false;
            if (m_uiSize) std::memcpy(static_cast<void*>(p), m_pData, static_cast<size_t>(m_uiSize) * sizeof(Pair));
            AllocSite::Free(m_pData);
            m_pData = p;
            m_uiCapacity = n;
            return true;
        }

        void RemoveAt(SizeType i)
        {
            if (!ZEM_ASSERT(i < m_uiSize, "RemoveAt index %llu out of range (size %llu)",
                            static_cast<unsigned long long>(i), static_cast<unsigned long long>(m_uiSize)))
                return;
            std::memmove(static_cast<void*>(m_pData + i), m_pData + i + 1,
                         static_cast<size_t>(m_uiSize - i - 1) * sizeof(Pair));
            --m_uiSize;
        }
        // False if the key was absent.
        bool Remove(const K& key)
        {
            const SizeType i = FindIndex(key);
            if (i == npos) return false;
            RemoveAt(i);
            return true;
        }

        // Count 0, array kept.
        void Clear() { m_uiSize = 0; }
        void ClearAndFree()
        {
            AllocSite::Free(m_pData);
            m_pData = nullptr;
            m_uiSize = m_uiCapacity = 0;
        }

    private:
        static SizeType GrownCapacity(SizeType count)
        {
            // Widened so that the quarter does not overflow near the top of the range.
            const unsigned long long c = (static_cast<unsigned long long>(count) + 1) * 5 / 4;
            const unsigned long long top = static_cast<unsigned long long>(npos - 1);
            return static_cast<SizeType>(c > top || c < count ? top : c);
        }

        void CopyFrom(const TSortedFlatMap& other, const AllocSite& site)
        {
            m_uiSize = 0;
            if (!Reserve(other.m_uiSize, site)) return;
            if (other.m_uiSize)
                std::memcpy(static_cast<void*>(m_pData), other.m_pData, static_cast<size_t>(other.m_uiSize) * sizeof(Pair));
            m_uiSize = other.m_uiSize;
        }

        static Pair& Sink()
        {
            thread_local Pair s_kSink{};
            return s_kSink;
        }

        Pair* m_pData = nullptr;
        SizeType m_uiSize = 0;
        SizeType m_uiCapacity = 0;
    };
}
