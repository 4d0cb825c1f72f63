#include "zemrenderer/scene/Link.h"

#include <algorithm>
#include <utility>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/BufferWorkers.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/LOctreeRoot.h"
#include "zemrenderer/serialization/Serializer.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr const char* kUnnamed = "Unnamed";

        // Floyd's walk: the block where a looping list enters its loop, or null.
        UserData* FindLoop(UserData* head)
        {
            UserData* slow = head;
            UserData* fast = head;
            while (fast && fast->m_pNext)
            {
                slow = slow->m_pNext;
                fast = fast->m_pNext->m_pNext;
                if (slow == fast)
                {
                    slow = head;
                    while (slow != fast)
                    {
                        slow = slow->m_pNext;
                        fast = fast->m_pNext;
                    }
                    return slow;
                }
            }
            return nullptr;
        }
    }

    Link::Link(Bucket* bucket, const char* name, RUserID id) : m_pBucket(bucket), m_szName(kUnnamed), m_kUserId(id)
    {
        if (bucket)
            if (const char* kept = bucket->AddString(name ? name : kUnnamed)) m_szName = kept;
    }

    Link::~Link()
    {
        // Never left behind in a tree node.
        if (m_pOwner) m_pOwner->RemoveLink(this);
        ReleaseOwnUserData();
        ReleaseDrawGeometries();
    }

    void Link::HoldDrawGeometries()
    {
        for (Node& node : m_kRenderNode.m_nodes)
            if (node.m_pDrawGeometry) node.m_pDrawGeometry->AddRef();
    }

    void Link::ReleaseDrawGeometries()
    {
        RenderThread* thread = m_pBucket ? m_pBucket->GetRenderThread() : nullptr;
        for (Node& node : m_kRenderNode.m_nodes)
            if (DrawGeometry* draw = std::exchange(node.m_pDrawGeometry, nullptr)) BufferWork::Release(thread, draw);
    }

    void Link::SetPosition(const Math::WorldVector3& position)
    {
        m_kPosition = position;
        m_uiFlags |= ePositionChanged;
    }

    void Link::SetRotation(const Math::Quaternion& rotation) { m_kRotation = rotation; }

    void Link::SetScale(const Math::Float3& scale)
    {
        m_kScale = scale;
        m_uiFlags |= eBoundsChanged;
    }

    float Link::GetMaxScale() const { return std::max(m_kScale.x, std::max(m_kScale.y, m_kScale.z)); }

    // ---------------------------------------------------------------- nodes

    Node* Link::GetNode(unsigned int index)
    {
        return index < m_kRenderNode.m_nodes.GetSize() ? &m_kRenderNode.m_nodes[index] : nullptr;
    }

    void Link::HideNode(unsigned int index)
    {
        if (!ZEM_ASSERT(index < GetNodeCount(), "HideNode : node index out of range")) return;
        m_kRenderNode.m_nodes[index].m_uiFlags &= ~Node::eVisible;
    }

    void Link::ShowNode(unsigned int index)
    {
        if (!ZEM_ASSERT(index < GetNodeCount(), "ShowNode : node index out of range")) return;
        m_kRenderNode.m_nodes[index].m_uiFlags |= Node::eVisible;
    }

    void Link::SetNodeAlwaysVisible(unsigned int index)
    {
        if (!ZEM_ASSERT(index < GetNodeCount(), "SetNodeAlwaysVisible : node index out of range")) return;
        m_kRenderNode.m_nodes[index].m_uiFlags |= Node::eAlwaysVisible;
    }

    void Link::SetNodeForceRenderCommand(unsigned int index)
    {
        if (!ZEM_ASSERT(index < GetNodeCount(), "SetNodeForceRenderCommand : node index out of range")) return;
        m_kRenderNode.m_nodes[index].m_uiFlags |= Node::eForceRenderCommand;
    }

    bool Link::IsNodeVisible(unsigned int index) const
    {
        if (!ZEM_ASSERT(index < GetNodeCount(), "IsNodeVisible : node index out of range")) return false;
        return (m_kRenderNode.m_nodes[index].m_uiFlags & Node::eVisible) != 0;
    }

    // ---------------------------------------------------------------- user data

    bool Link::AddUserData(UserData* block)
    {
        if (!ZEM_ASSERT(block != nullptr, "Pointer must be non null")) return false;
        if (!ZEM_ASSERT(block->m_pNext == nullptr, "New UserData should have null next")) return false;
        if (!ZEM_ASSERT(block != m_pUserData, "UserData already added")) return false;
        block->m_pNext = m_pUserData;
        m_pUserData = block;
        return true;
    }

    UserData* Link::FindUserData(uint32_t tag) const
    {
        for (UserData* block = m_pUserData; block; block = block->m_pNext)
            if (block->m_uiTag == tag) return block;
        return nullptr;
    }

    void Link::ReleaseOwnUserData()
    {
        UserData* block = m_pUserData;
        while (block && block != m_pSharedUserData)
        {
            UserData* next = block->m_pNext;
            block->m_pNext = nullptr;
            UserData::Destroy(block);
            block = next;
        }
        m_pUserData = nullptr;
        m_pSharedUserData = nullptr;
    }

    void Link::CopyDataFrom(const Link& source)
    {
        if (&source == this) return;
        ReleaseDrawGeometries();
        m_kRenderNode.m_nodes = source.m_kRenderNode.m_nodes;
        HoldDrawGeometries();
        m_uiFlags = (m_uiFlags & ~(eStoredByte | eStoredBit)) | (source.m_uiFlags & (eStoredByte | eStoredBit));
        // Own blocks stay in front; the shared tail becomes the source's list.
        UserData* lastOwn = nullptr;
        for (UserData* block = m_pUserData; block && block != m_pSharedUserData; block = block->m_pNext) lastOwn = block;
        if (lastOwn)
            lastOwn->m_pNext = source.m_pUserData;
        else
            m_pUserData = source.m_pUserData;
        m_pSharedUserData = source.m_pUserData;
    }

    void Link::DispatchUserData()
    {
        if (HasFlags(eMaster) || !HasFlags(eUserDataRead)) return;
        IUserDataHandler* handler = UserDataDispatch::GetHandler(m_pBucket ? m_pBucket->GetRenderThread() : nullptr);
        if (!handler) return;
        for (UserData* block = m_pUserData; block; block = block->m_pNext)
        {
            handler->SetUserData(block);
            handler->ApplyToLink(this);
        }
    }

    // ---------------------------------------------------------------- files

    void Link::Serialize(Serializer& s)
    {
        SerializationManager& m = s.GetManager();
        // A walk without data drops nothing by itself, but the link no longer counts as loaded.
        if (s.IsReading() && s.IsSkipping()) m_uiFlags |= eUnloaded;
        m_kRenderNode.Serialize(s);
        unsigned char stored = static_cast<unsigned char>(m_uiFlags & eStoredByte);
        bool storedBit = (m_uiFlags & eStoredBit) != 0;
        s.Serialize(stored);
        s.Serialize(storedBit);
        if (s.IsLoading() && !m.HasFailed())
            m_uiFlags = (m_uiFlags & ~(eStoredByte | eStoredBit)) | stored | (storedBit ? eStoredBit : 0u);
        s.SerializePointer(m_pUserData);
    }

    bool Link::AdoptReadUserData()
    {
        UserData* head = m_pUserData;
        m_pUserData = nullptr;
        if (UserData* loop = FindLoop(head))
        {
            UserData* last = loop;
            while (last->m_pNext != loop) last = last->m_pNext;
            last->m_pNext = nullptr;
            for (UserData* block = head; block;)
            {
                UserData* next = block->m_pNext;
                UserData::Destroy(block);
                block = next;
            }
            Common::Log("User data list of link %s loops in Zemora Engine File!\n", m_szName);
            return false;
        }
        // Added from the tail, so that the file's first block stays first.
        TArray<UserData*> blocks;
        for (UserData* block = head; block; block = block->m_pNext) blocks.Add(block);
        for (unsigned int i = blocks.GetSize(); i-- > 0;)
        {
            blocks[i]->m_pNext = nullptr;
            AddUserData(blocks[i]);
        }
        return true;
    }

    bool Link::Load(IOSTreamBase& stream, Bucket* owner, bool boundsChanged)
    {
        if (!ZEM_ASSERT(!HasFlags(eUserDataRead) || HasFlags(eUnloaded), "Link %s is already loaded : can't serialize it",
                        m_szName))
            return false;
        // An unreadable stream would be taken for one to write to.
        if (!stream.IsReadable())
        {
            Common::Log("Link %s : nothing to read, the stream is not open for reading.\n", m_szName);
            return false;
        }
        const uint32_t before = m_uiFlags;
        ReleaseOwnUserData();
        ReleaseDrawGeometries();
        m_kRenderNode.m_nodes.Clear();
        SerializationManager manager;
        bool ok = manager.ReadObject(stream, *this, owner);
        if (ok) ok = m_kRenderNode.AdoptReadNodes(m_szName);
        // What was read stays alive through this link's counts from here on.
        if (ok) HoldDrawGeometries();
        if (ok) ok = AdoptReadUserData();
        if (!ok)
        {
            ReleaseDrawGeometries();
            m_kRenderNode.DropReadNodes();
            m_kRenderNode.m_nodes.ClearAndFree();
            m_pUserData = nullptr;
            m_uiFlags = before;
            return false;
        }
        m_uiFlags &= ~(eLoading | eUnloaded);
        m_uiFlags |= eUserDataRead | (boundsChanged ? eBoundsChanged : 0u);
        if (m_pOwner) m_pOwner->UpdateLink(this);
        DispatchUserData();
        return true;
    }

    bool Link::Save(IOSTreamBase& stream, bool swap)
    {
        if (!ZEM_ASSERT(IsLoaded() && !IsUnloaded(), "Link %s is not loaded : can't deserialize it", m_szName))
            return false;
        return SerializationManager::WriteFile(stream, *this, swap);
    }

    bool Link::Walk() { return SerializationManager::Walk(*this); }
}
