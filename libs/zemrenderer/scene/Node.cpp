#include "zemrenderer/scene/Node.h"

#include <cstdint>

#include "common/system/debug/Log.h"
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
        // Writing and walking follow the live nodes; a read fills a new array.
        DropReadNodes();
        unsigned int count = m_nodes.GetSize();
        m_pFileNodes = count ? m_nodes.GetData() : nullptr;
        s.SerializeArray(m_pFileNodes, count);
        if (!s.IsLoading()) return;
        m_uFileNodeCount = count;
        // What follows the array's key in the link (flags byte, flag bit, user-data key)
        // and the nodes themselves must still be there.
        if (!m.HasFailed() && count * kNodeBytes + 10 > m.GetRemainingBytes())
            m.Fail("A link of %u nodes runs past the end of the Zemora Engine File!", count);
    }

    bool RenderNode::AdoptReadNodes(const char* linkName)
    {
        const unsigned int count = m_uFileNodeCount;
        Node* read = m_pFileNodes;
        m_pFileNodes = nullptr;
        m_uFileNodeCount = 0;
        m_nodes.Clear();
        if (count && !read)
        {
            Common::Log("Link %s : %u nodes without their array in Zemora Engine File!\n", linkName, count);
            return false;
        }
        bool ok = true;
        if (count)
        {
            ok = m_nodes.Resize(count);
            if (ok)
                for (unsigned int i = 0; i < count; ++i) m_nodes[i] = read[i];
            else
                Common::Log("Link %s : no memory for %u nodes\n", linkName, count);
            SerializationManager::FreeArray(read);
        }
        return ok;
    }

    void RenderNode::DropReadNodes()
    {
        if (m_uFileNodeCount && m_pFileNodes) SerializationManager::FreeArray(m_pFileNodes);
        m_pFileNodes = nullptr;
        m_uFileNodeCount = 0;
    }
}
