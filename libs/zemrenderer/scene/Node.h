#pragma once
// What a link draws: a RenderNode holds the link's nodes, each a placed piece of draw
// geometry with its own flags.
#include <cstdint>

#include "common/math/MathTypes.h"
#include "common/utils/TArray.h"
#include "zemrenderer/serialization/Serializable.h"

namespace ZemRenderer
{
    class DrawGeometry;
    class Serializer;

    class Node
    {
    public:
        enum Flags : uint32_t
        {
            eOccluder = 0x1,
            eFirstEntryFlag = 0x2,
            eDistanceRange = 0x4,
            eVisible = 0x10,
            eForceRenderCommand = 0x20,
            eAlwaysVisible = 0x40,
            eScaledRadius = 0x80,
        };

        // Position, rotation, draw group, draw geometry, radius, key, the two 16-bit
        // values and the flags.
        void Serialize(Serializer& serializer);

        Math::Float3 m_kPosition;
        Math::Quaternion m_kRotation;
        uint32_t m_uiDrawGroup = 0;
        DrawGeometry* m_pDrawGeometry = nullptr;
        float m_fRadius = 0.0f;
        uint32_t m_uiKey = 0;
        // Lower and upper distance bounds, as half-precision floats.
        uint16_t m_usDistanceMin = 0;
        uint16_t m_usDistanceMax = 0;
        uint32_t m_uiFlags = eVisible;
    };

    class RenderNode
    {
    public:
        // The nodes are a counted array like any other in a file: the count and the
        // array's key here, the nodes themselves later, when the pending pointers are
        // flushed. A read leaves them in a separate array until AdoptReadNodes.
        void Serialize(Serializer& serializer);
        // After a successful read: the nodes read become m_nodes. False, with a report
        // naming `linkName`, when the file announced nodes without their array.
        bool AdoptReadNodes(const char* linkName);
        // Frees what a read left behind without adopting it.
        void DropReadNodes();

        TArray<Node> m_nodes;

    private:
        Node* m_pFileNodes = nullptr;
        unsigned int m_uFileNodeCount = 0;
    };
}
