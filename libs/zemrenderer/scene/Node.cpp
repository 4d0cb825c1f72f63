#include "zemrenderer/scene/Node.h"

#include <cstdint>

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
        SerializationManager& m = s.GetManager();
        s.Serialize(m_kPosition.x);
        s.Serialize(m_kPosition.y);
        s.Serialize(m_kPosition.z);
        s.Serialize(m_kRotation);
        s.Serialize(m_uiDrawGroup);
        // Draw geometry keeps its place in the layout; the geometry classes come later.
        unsigned long long key = static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(m_pDrawGeometry));
        if (!s.IsReading() && key) return m.Fail("Draw geometry of a link node cannot be written yet.");
        m.MoveRaw(&key, sizeof(key));
        if (s.IsLoading() && key && !m.HasFailed())
            return m.Fail("Link node with draw geometry in Zemora Engine File: not supported by this engine!");
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
