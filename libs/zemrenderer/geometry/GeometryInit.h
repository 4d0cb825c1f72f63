#pragma once
// The shape of a geometry before it has buffers: how its vertices make primitives and
// how many there are. Geometries are lines or triangles; any other topology is refused.
#include <cstdint>

#include "zemrenderer/device/PrimitiveTopology.h"

namespace ZemRenderer
{
    struct GeometryInit
    {
        uint32_t uTopology = eTopologyUnknown;
        uint32_t uVertexCount = 0;
        uint32_t uIndexCount = 0;
        bool bIndexed = false;

        static GeometryInit CreateLineList(uint32_t vertexCount);
        static GeometryInit CreateLineStrip(uint32_t vertexCount);
        static GeometryInit CreateTriangleList(uint32_t vertexCount);
        static GeometryInit CreateTriangleStrip(uint32_t vertexCount);
        static GeometryInit CreateIndexedTriangleList(uint32_t vertexCount, uint32_t indexCount);

        // Reports "Unknown topology" for a code that is none of the shapes above.
        static bool IsKnownTopology(uint32_t topology);
        // Primitives drawn from `count` vertices (or indices).
        static uint32_t GetPrimitiveCount(uint32_t topology, uint32_t count);
    };
}
