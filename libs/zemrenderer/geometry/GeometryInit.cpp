#include "zemrenderer/geometry/GeometryInit.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    namespace
    {
        GeometryInit Make(uint32_t topology, uint32_t vertexCount, uint32_t indexCount, bool indexed)
        {
            GeometryInit init;
            init.uTopology = topology;
            init.uVertexCount = vertexCount;
            init.uIndexCount = indexCount;
            init.bIndexed = indexed;
            return init;
        }
    }

    GeometryInit GeometryInit::CreateLineList(uint32_t n) { return Make(eTopologyLineList, n, 0, false); }
    GeometryInit GeometryInit::CreateLineStrip(uint32_t n) { return Make(eTopologyLineStrip, n, 0, false); }
    GeometryInit GeometryInit::CreateTriangleList(uint32_t n) { return Make(eTopologyTriangleList, n, 0, false); }
    GeometryInit GeometryInit::CreateTriangleStrip(uint32_t n) { return Make(eTopologyTriangleStrip, n, 0, false); }
    GeometryInit GeometryInit::CreateIndexedTriangleList(uint32_t vertexCount, uint32_t indexCount)
    {
        return Make(eTopologyTriangleList, vertexCount, indexCount, true);
    }

    bool GeometryInit::IsKnownTopology(uint32_t topology)
    {
        const bool known = topology == eTopologyLineList || topology == eTopologyLineStrip ||
                           topology == eTopologyTriangleList || topology == eTopologyTriangleStrip;
        return ZEM_ASSERT(known, "Unknown topology");
    }

    uint32_t GeometryInit::GetPrimitiveCount(uint32_t topology, uint32_t count)
    {
        switch (topology)
        {
        case eTopologyLineList: return count / 2;
        case eTopologyLineStrip: return count >= 2 ? count - 1 : 0;
        case eTopologyTriangleList: return count / 3;
        case eTopologyTriangleStrip: return count >= 3 ? count - 2 : 0;
        default: return 0;
        }
    }
}
