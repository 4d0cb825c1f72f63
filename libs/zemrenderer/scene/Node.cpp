#include "zemrenderer/scene/Node.h"

#include <cstdint>

#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    namespace
    {
        // What one node takes in a file; a count is checked against it before anything is made.
        constexpr uint64_t kNodeBytes = 12 + 16 + 4 + 8 + 4 + 4 + 2 + 2 + 4;
    }

    void Node::Serialize(Serializer& s)
    {
        s.Serialize(m_kPosition.x);
        s.Serialize(m_kPosition.y);
        s.Serialize(m_kPosition.z);
        s.Serialize(m_kRotation);
        s.Serialize(m_uiDrawGroup);
        // Counted by the link once the whole file has been read.
        s.SerializePointer(m_pDrawGeometry);
        s.Serialize(m_fRadius);
        s.Serialize(m_uiKey);
        s.Serialize(m_usDistanceMin);
        s.Serialize(m_usDistanceMax);
        s.Serialize(m_uiFlags);
    }

    void RenderNode::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        unsigned int count = m_nodes.GetSize();
        m.MoveRaw(&count, sizeof(count));
        if (m.HasFailed()) return;
        if (s.IsLoading())
        {
            if (count * kNodeBytes > m.GetRemainingBytes())
                return m.Fail("A link of %u nodes runs past the end of the Zemora Engine File!", count);
            m_nodes.Clear();
            if (!m_nodes.Resize(count)) return m.Fail("No memory for %u link nodes of a Zemora Engine File!", count);
        }
        for (unsigned int i = 0; i < m_nodes.GetSize() && !m.HasFailed(); ++i) m_nodes[i].Serialize(s);
    }
}
