#include "zemrenderer/scene/LOctreeRoot.h"

#include "common/math/QuaternionMath.h"
#include "common/system/debug/Log.h"
#include "common/system/thread/Thread.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/Link.h"
#include "zemrenderer/thread/RenderThread.h"

namespace ZemRenderer
{
    namespace
    {
        constexpr unsigned short kMaxDepth = 62;
        constexpr int64_t kMaxRootHalf = int64_t(1) << 62;

        struct Hold
        {
            explicit Hold(Common::CMutex& m) : rMutex(m) { rMutex.Lock(); }
            ~Hold() { rMutex.Unlock(); }
            Common::CMutex& rMutex;
        };
    }

    LOctreeRoot::LOctreeRoot(Bucket* bucket, float size, unsigned short depth)
        : m_pBucket(bucket), m_kMainThread(std::this_thread::get_id())
    {
        m_usMaxDepth = depth > kMaxDepth ? kMaxDepth : depth;
        const int64_t wanted = Math::WorldVector3::FromFloat(size);
        int64_t half = int64_t(1) << m_usMaxDepth;
        while (half < wanted && half < kMaxRootHalf) half <<= 1;
        m_iRootHalf = half;
        Allocate();
    }

    LOctreeRoot::~LOctreeRoot()
    {
        // Commands that never ran: their workers are cancelled, their queries let go.
        for (TArray<LinkCommand>& buffer : m_aCommands)
        {
            for (LinkCommand& command : buffer)
            {
                if (command.pWorker) CancelAndRelease(command.pWorker);
                if (command.pQuery)
                {
                    command.pQuery->SetState(Query::eCancelled);
                    command.pQuery->Release();
                }
            }
            buffer.ClearAndFree();
        }
        // The links themselves belong to their buckets.
        for (Link* link : m_aMembers)
        {
            link->ClearFlags(Link::eInTree);
            link->m_pOwner = nullptr;
        }
    }

    unsigned int LOctreeRoot::Allocate()
    {
        if (m_aTreeNodes.GetSize() == m_aTreeNodes.GetCapacity())
        {
            const unsigned int capacity = m_aTreeNodes.GetCapacity();
            m_aTreeNodes.Reserve(capacity ? capacity * 2 : 9);
        }
        m_aTreeNodes.Add();
        return m_aTreeNodes.GetSize() - 1;
    }

    // ---------------------------------------------------------------- the tree

    void LOctreeRoot::AddLink(Link* link)
    {
        if (!ZEM_ASSERT(link != nullptr, "Pointer must be non null")) return;
        Lock();
        if (Adopt(link))
        {
            link->SetFlags(Link::ePositionChanged | Link::eBoundsChanged);
            UpdateLink(link);
        }
        Unlock();
    }

    bool LOctreeRoot::Adopt(Link* link)
    {
        if (!link) return false;
        Lock();
        const bool ok = link->m_pOwner == this ||
                        ZEM_ASSERT(link->m_pOwner == nullptr, "Link %s already stands in another octree", link->GetName());
        if (ok && link->m_pOwner != this)
        {
            link->m_pOwner = this;
            link->m_uiOwnerSlot = m_aMembers.GetSize();
            m_aMembers.Add(link);
        }
        Unlock();
        return ok;
    }

    unsigned int LOctreeRoot::GetLinkCount() const
    {
        Lock();
        const unsigned int count = m_aMembers.GetSize();
        Unlock();
        return count;
    }

    void LOctreeRoot::RemoveLink(Link* link)
    {
        if (!link || link->GetOwner() != this) return;
        Lock();
        DetachFromNode(link);
        // The last member takes the leaving one's slot.
        const unsigned int slot = link->m_uiOwnerSlot;
        Link* last = m_aMembers.GetLast();
        m_aMembers[slot] = last;
        last->m_uiOwnerSlot = slot;
        m_aMembers.RemoveLast();
        link->m_pOwner = nullptr;
        Unlock();
        // An instance that leaves no longer waits for its master.
        m_kLinkLibrary.ForgetInstance(link);
    }

    void LOctreeRoot::UpdateLink(Link* link)
    {
        if (!link) return;
        Lock();
        if (!m_aTreeNodes.IsEmpty() && link->GetOwner() == this &&
            link->HasFlags(Link::ePositionChanged | Link::eBoundsChanged) &&
            !link->HasFlags(Link::eLoading | Link::eMaster))
        {
            link->ClearFlags(Link::ePositionChanged);
            PlaceLink(link);
        }
        Unlock();
    }

    void LOctreeRoot::PlaceLink(Link* link)
    {
        link->ClearFlags(Link::eBoundsChanged);
        if (!link->HasFlags(Link::eInTree))
            MoveToNode(link, 0);
        else if (link->GetTreeIndex() < m_aTreeNodes.GetSize())
            TouchCounters(link, m_aTreeNodes[link->GetTreeIndex()]);
    }

    void LOctreeRoot::MoveToNode(Link* link, unsigned int index)
    {
        DetachFromNode(link);
        TreeNode& node = m_aTreeNodes[index];
        node.aLinks.Add(link);
        link->SetTreeIndex(index);
        link->SetFlags(Link::eInTree);
        if (link->HasFlags(Link::eStoredBit)) node.auiChangeCounters[0] = TreeNode::kAlwaysChanged;
        TouchCounters(link, node);
    }

    void LOctreeRoot::DetachFromNode(Link* link)
    {
        if (!link->HasFlags(Link::eInTree)) return;
        link->ClearFlags(Link::eInTree);
        const unsigned int index = link->GetTreeIndex();
        if (index >= m_aTreeNodes.GetSize()) return;
        TreeNode& node = m_aTreeNodes[index];
        node.aLinks.RemoveValue(link);
        TouchCounters(link, node);
        if (link->HasFlags(Link::eStoredBit) && node.auiChangeCounters[0] == TreeNode::kAlwaysChanged)
        {
            bool other = false;
            for (Link* l : node.aLinks) other = other || l->HasFlags(Link::eStoredBit);
            if (!other) node.auiChangeCounters[0] = 0;
        }
    }

    void LOctreeRoot::TouchCounters(const Link* link, TreeNode& node) const
    {
        if (link->HasFlags(Link::eNoChangeCounters)) return;
        const unsigned int types = link->HasFlags(Link::eDynamic) ? 2 : 1;
        const uint32_t frame = GetFrameCount();
        for (unsigned int t = 0; t < types; ++t)
            if (node.auiChangeCounters[t] != TreeNode::kAlwaysChanged) node.auiChangeCounters[t] = frame;
    }

    // ---------------------------------------------------------------- commands

    void LOctreeRoot::AddCommand(const LinkCommand& command) { AddCommands(&command, 1); }

    void LOctreeRoot::AddCommands(const LinkCommand* commands, unsigned int count)
    {
        if (!commands || !count) return;
        for (unsigned int i = 0; i < count; ++i)
            if (Query* query = commands[i].pQuery)
            {
                query->AddRef();
                query->SetState(Query::eQueued);
            }
        const bool mainThread = IsMainThread();
        {
            Hold index(m_kIndexMutex);
            const unsigned int current = m_uiCurrent;
            Hold buffer(m_akBufferMutex[current]);
            TArray<LinkCommand>& target = m_aCommands[current];
            if (count > 1) target.Reserve(target.GetSize() + count);
            for (unsigned int i = 0; i < count; ++i) target.Add(commands[i]);
        }
        if (mainThread)
        {
            // A command queued while the commands run waits for the next run.
            if (!m_bExecuting) ExecuteCommands();
            return;
        }
        // A producer may not run ahead of the main thread by more than a buffer.
        while (GetCommandCount() >= kStallCommandCount) Common::CThread::Sleep(1);
    }

    void LOctreeRoot::SetPosition(Link* link, const Math::WorldVector3& position, Link* parent, Query* query)
    {
        LinkCommand c;
        c.uiKind = LinkCommand::eSetPosition;
        c.pTarget = link;
        c.pParent = parent;
        c.kPosition = position;
        c.pQuery = query;
        AddCommand(c);
    }

    void LOctreeRoot::SetRotation(Link* link, const Math::Quaternion& rotation, Link* parent, Query* query)
    {
        LinkCommand c;
        c.uiKind = LinkCommand::eSetRotation;
        c.pTarget = link;
        c.pParent = parent;
        c.kRotation = rotation;
        c.pQuery = query;
        AddCommand(c);
    }

    void LOctreeRoot::SetScale(Link* link, const Math::Float3& scale, Link* parent, Query* query)
    {
        LinkCommand c;
        c.uiKind = LinkCommand::eSetScale;
        c.pTarget = link;
        c.pParent = parent;
        c.kScale = scale;
        c.pQuery = query;
        AddCommand(c);
    }

    void LOctreeRoot::SetTransform(Link* link, const Math::WorldVector3& position, const Math::Quaternion& rotation,
                                   const Math::Float3& scale, Link* parent, Query* query)
    {
        LinkCommand c;
        c.uiKind = LinkCommand::eSetTransform;
        c.pTarget = link;
        c.pParent = parent;
        c.kPosition = position;
        c.kRotation = rotation;
        c.kScale = scale;
        c.pQuery = query;
        AddCommand(c);
    }

    void LOctreeRoot::CopyLink(Link* target, Link* source, Query* query)
    {
        LinkCommand c;
        c.uiKind = LinkCommand::eCopy;
        c.pTarget = target;
        c.pSource = source;
        c.pQuery = query;
        AddCommand(c);
    }

    unsigned int LOctreeRoot::GetCommandCount() const
    {
        Hold index(m_kIndexMutex);
        Hold buffer(m_akBufferMutex[m_uiCurrent]);
        return m_aCommands[m_uiCurrent].GetSize();
    }

    unsigned int LOctreeRoot::GetBufferCapacity(unsigned int buffer) const
    {
        if (buffer > 1) return 0;
        Hold hold(m_akBufferMutex[buffer]);
        return m_aCommands[buffer].GetCapacity();
    }

    bool LOctreeRoot::ExecuteCommands()
    {
        if (!ZEM_ASSERT(IsMainThread(), "ExecuteCommands must be called by main thread")) return false;
        if (m_bExecuting) return false;
        unsigned int run = 0;
        {
            Hold index(m_kIndexMutex);
            run = m_uiCurrent;
            m_uiCurrent ^= 1u;
            m_uiFrameCount.fetch_add(1, std::memory_order_acq_rel);
        }
        m_bExecuting = true;
        {
            // After the flip only this thread touches the run buffer (producers fill the
            // other one), so its commands run without its lock: a command that queues a
            // command takes the index and the other buffer, never this one.
            TArray<LinkCommand>& commands = m_aCommands[run];
            for (unsigned int i = 0; i < commands.GetSize(); ++i) ExecuteCommand(commands[i]);
            Hold buffer(m_akBufferMutex[run]);
            if (commands.GetCapacity() > kKeepCapacity)
                commands.ClearAndFree();
            else
                commands.Clear();
        }
        m_kLinkLibrary.Update(this);
        m_bExecuting = false;
        return true;
    }

    void LOctreeRoot::ExecuteCommand(const LinkCommand& command)
    {
        switch (command.uiKind)
        {
            case LinkCommand::eSetPosition:
            case LinkCommand::eSetRotation:
            case LinkCommand::eSetScale:
            case LinkCommand::eSetTransform:
                if (ZEM_ASSERT(command.pTarget != nullptr, "Link command without a link")) ApplyTransform(command);
                break;
            case LinkCommand::eCopy:
                ApplyCopy(command);
                break;
            case LinkCommand::eSetStreamStatus:
                Lock();
                if (ZEM_ASSERT(command.uiArgument < m_aTreeNodes.GetSize(), "Tree node %u out of range",
                               command.uiArgument))
                {
                    TreeNode& node = m_aTreeNodes[command.uiArgument];
                    node.uiBits = (node.uiBits & ~TreeNode::kStatusMask) |
                                  ((command.uiValue << TreeNode::kStatusShift) & TreeNode::kStatusMask);
                }
                Unlock();
                break;
            case LinkCommand::eRunWorker:
                if (command.pWorker)
                {
                    RunWorker(command.pWorker, m_pBucket ? m_pBucket->GetRenderThread() : nullptr);
                    command.pWorker->ReleaseToPool();
                }
                break;
            default:
                ZEM_ASSERT(false, "Unknown link command %u", command.uiKind);
                break;
        }
        if (command.pQuery)
        {
            command.pQuery->SetState(Query::eDone);
            command.pQuery->Release();
        }
    }

    void LOctreeRoot::ApplyTransform(const LinkCommand& command)
    {
        Link* link = command.pTarget;
        if (const Link* parent = command.pParent)
        {
            // Composition is of the whole: every kind sets all three.
            const Math::LocalVector3 offset = Math::Rotate(parent->GetRotation(), command.kPosition.ToLocal());
            link->SetPosition(parent->GetPosition().Offset(offset));
            link->SetRotation(Math::Multiply(command.kRotation, parent->GetRotation()));
            link->SetScale(Math::MultiplyComponents(parent->GetScale(), command.kScale));
        }
        else
        {
            const uint32_t kind = command.uiKind;
            if (kind == LinkCommand::eSetPosition || kind == LinkCommand::eSetTransform)
                link->SetPosition(command.kPosition);
            if (kind == LinkCommand::eSetRotation || kind == LinkCommand::eSetTransform)
                link->SetRotation(command.kRotation);
            if (kind == LinkCommand::eSetScale || kind == LinkCommand::eSetTransform) link->SetScale(command.kScale);
        }
        UpdateLink(link);
    }

    void LOctreeRoot::ApplyCopy(const LinkCommand& command)
    {
        Link* target = command.pTarget;
        const Link* source = command.pSource;
        if (!ZEM_ASSERT(target != nullptr && source != nullptr, "Link command without a link")) return;
        if (!ZEM_ASSERT(source->IsLoaded() && !source->IsUnloaded(), "Source link %s not loaded for copy.",
                        source->GetName()))
            return;
        target->CopyDataFrom(*source);
        target->ClearFlags(Link::eLoading | Link::eUnloaded | Link::eInstance);
        target->SetFlags(Link::eUserDataRead | Link::eBoundsChanged);
        if (!target->GetOwner()) Adopt(target);
        if (target->GetOwner() == this) UpdateLink(target);
        target->DispatchUserData();
    }
}
