#pragma once
// Ordered flat map with a 32-bit count: an array of pairs sorted by key, searched by
// bisection. Iteration by index visits keys in ascending order.
#include "common/utils/SortedFlatMap.h"

namespace ZemRenderer
{
    template <class K, class V>
    class TMap : public Common::TSortedFlatMap<K, V, unsigned int>
    {
        typedef Common::TSortedFlatMap<K, V, unsigned int> Base;

    public:
        using Base::Base;
        TMap() = default;
    };
}
