#pragma once
// The same sorted flat map as TMap, with a 64-bit count; used for tables keyed by pointer.
#include <cstdint>

#include "common/utils/SortedFlatMap.h"

namespace Common
{
    template <class K, class V>
    class CMap : public TSortedFlatMap<K, V, uint64_t>
    {
        typedef TSortedFlatMap<K, V, uint64_t> Base;

    public:
        using Base::Base;
        CMap() = default;
    };
}
