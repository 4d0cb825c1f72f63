#pragma once
// How vertices make primitives, numbered as the device's primitive topologies. One list
// for user primitives and geometries, so a code read from a file means the same to both.
#include <cstdint>

namespace ZemRenderer
{
    enum PrimitiveTopology : uint32_t
    {
        eTopologyUnknown = 0,
        eTopologyPointList = 1,
        eTopologyLineList = 2,
        eTopologyLineStrip = 3,
        eTopologyTriangleList = 4,
        eTopologyTriangleStrip = 5,
    };
}
