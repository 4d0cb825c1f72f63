#pragma once
// The links of one scene. All placement goes through a double-buffered command queue
// that the main thread applies at one point of the frame: producers append to one
// buffer while the main thread runs the other, and a producer that gets more than a
// buffer's worth ahead waits for the main thread.
//
// The tree itself is the root of a loose octree. Links are placed in its root node for
// now; PlaceLink is where subdivision takes over once culling needs it.
#include <atomic>
#include <cstdint>
#include <thread>

#include "common/math/MathTypes.h"
#include "common/math/WorldVector3.h"
#include "common/system/mutex/Mutex.h"
#include "common/utils/Lockable.h"
#include "common/utils/TArray.h"
#include "zemrenderer/scene/LinkLibrary.h"
#include "zemrenderer/thread/WorkerBase.h"

namespace ZemRenderer
{
    class Bucket;
    class Link;
    class Query;

    // A plain record, copied by value into the buffer.
    struct LinkCommand
    {
        enum Kind : uint32_t
        {
            eSetPosition = 0,
            eSetRotation = 1,
            eSetScale = 2,
            eSetTransform = 3,
            eCopy = 4,
            eSetStreamStatus = 5,
            eRunWorker = 6,
        };

        uint32_t uiKind = eSetPosition;
        Link* pTarget = nullptr;
        // Kinds 0 to 3: the values are local to this link's current transform.
        Link* pParent = nullptr;
        // Kind 4: the link whose data is copied.
        Link* pSource = nullptr;
        // Kind 5: the tree node's index.
        uint32_t uiArgument = 0;
        Math::WorldVector3 kPosition;
        Math::Quaternion kRotation;
        Math::Float3 kScale{1.0f, 1.0f, 1.0f};
        // Set to done when the command has run; the buffer holds one reference.
        Query* pQuery = nullptr;
        // Kind 6: the worker, run with the render thread and then released.
        WorkerBase<RenderThread>* pWorker = nullptr;
        // Kind 5: the stream status, 0 to 3.
        uint32_t uiValue = 0;
    };

    struct TreeNode
    {
        static constexpr uint32_t kDepthMask = 0xFF;
        static constexpr uint32_t kStatusShift = 8;
        static constexpr uint32_t kStatusMask = 0x300;
        static constexpr uint32_t kLeaf = 0x400;
        static constexpr uint32_t kAlwaysChanged = 0xFFFFFFFFu;

        Math::WorldVector3 kCentre;
        TArray<Link*> aLinks;
        // Distance in elements to the first of the eight adjacent children.
        int32_t iFirstChild = 0;
        // Per link type (static, dynamic): the frame of the last change here.
        uint32_t auiChangeCounters[2] = {0, 0};
        uint32_t uiBits = kLeaf;

        uint32_t GetDepth() const { return uiBits & kDepthMask; }
        bool IsLeaf() const { return (uiBits & kLeaf) != 0; }
        uint32_t GetStreamStatus() const { return (uiBits & kStatusMask) >> kStatusShift; }
    };

    class LOctreeRoot : public Common::CLockable
    {
    public:
        // A producer that finds this many commands or more in the buffer waits.
        static constexpr unsigned int kStallCommandCount = 129;
        // A buffer that grew to this capacity gives its storage back after a run.
        static constexpr unsigned int kKeepCapacity = 2048;

        // `size` is the world's half extent to cover; the thread that makes the octree is
        // its main thread. Links leave it (RemoveLink or their end) before it goes.
        LOctreeRoot(Bucket* bucket, float size, unsigned short depth);
        ~LOctreeRoot() override;

        // The thread allowed to run ExecuteCommands; the creator's until changed.
        void SetMainThread(std::thread::id id) { m_kMainThread.store(id, std::memory_order_release); }
        bool IsMainThread() const { return std::this_thread::get_id() == m_kMainThread.load(std::memory_order_acquire); }

        // Immediately, main thread: the link joins or leaves the tree (and, leaving, stops
        // waiting for a master of the link library).
        void AddLink(Link* link);
        void RemoveLink(Link* link);
        // Makes this octree the link's owner without placing it; any thread. False if
        // another octree owns it.
        bool Adopt(Link* link);
        unsigned int GetLinkCount() const;
        // Replaces a link of this octree in the tree after it moved; ignores unmoved,
        // loading and master links.
        void UpdateLink(Link* link);

        // Appends a command; the buffer takes a reference on its query. From the main thread
        // the commands run at once; from another thread this waits while the buffer holds
        // kStallCommandCount commands or more.
        void AddCommand(const LinkCommand& command);
        // Several commands appended at once, with the same rule afterwards.
        void AddCommands(const LinkCommand* commands, unsigned int count);
        // Helpers for the usual commands. With a parent the values are local to it.
        void SetPosition(Link* link, const Math::WorldVector3& position, Link* parent = nullptr, Query* query = nullptr);
        void SetRotation(Link* link, const Math::Quaternion& rotation, Link* parent = nullptr, Query* query = nullptr);
        void SetScale(Link* link, const Math::Float3& scale, Link* parent = nullptr, Query* query = nullptr);
        void SetTransform(Link* link, const Math::WorldVector3& position, const Math::Quaternion& rotation,
                          const Math::Float3& scale, Link* parent = nullptr, Query* query = nullptr);
        void CopyLink(Link* target, Link* source, Query* query = nullptr);

        // Main thread only: flips the buffers and runs what the other one holds, in order.
        bool ExecuteCommands();
        // Runs one command now; ExecuteCommands and the library use it.
        void ExecuteCommand(const LinkCommand& command);

        unsigned int GetCommandCount() const;
        unsigned int GetBufferCapacity(unsigned int buffer) const;
        uint32_t GetFrameCount() const { return m_uiFrameCount.load(std::memory_order_acquire); }
        Bucket* GetBucket() const { return m_pBucket; }
        LinkLibrary& GetLinkLibrary() { return m_kLinkLibrary; }

        // The tree.
        unsigned int GetTreeNodeCount() const { return m_aTreeNodes.GetSize(); }
        TreeNode* GetTreeNode(unsigned int index) { return index < m_aTreeNodes.GetSize() ? &m_aTreeNodes[index] : nullptr; }
        int64_t GetRootHalf() const { return m_iRootHalf; }
        unsigned short GetMaxDepth() const { return m_usMaxDepth; }
        // A new node at the end of the array; earlier TreeNode pointers may not survive it.
        unsigned int Allocate();

    private:
        void ApplyTransform(const LinkCommand& command);
        void ApplyCopy(const LinkCommand& command);
        // Puts a moved link into its tree node. Subdivision by the link's radius belongs
        // to the culling step; every link stands in the root until then.
        void PlaceLink(Link* link);
        void MoveToNode(Link* link, unsigned int index);
        void DetachFromNode(Link* link);
        void TouchCounters(const Link* link, TreeNode& node) const;

        Bucket* m_pBucket;
        TArray<LinkCommand> m_aCommands[2];
        mutable Common::CMutex m_akBufferMutex[2];
        // Guards the index of the buffer to fill.
        mutable Common::CMutex m_kIndexMutex;
        unsigned int m_uiCurrent = 0;
        std::atomic<uint32_t> m_uiFrameCount{0};
        // The main thread is inside ExecuteCommands: its own commands wait for the next run.
        bool m_bExecuting = false;
        std::atomic<std::thread::id> m_kMainThread;

        // Every link this octree owns, placed or not, so that none is left pointing here.
        TArray<Link*> m_aMembers;
        TArray<TreeNode> m_aTreeNodes;
        int64_t m_iRootHalf = 0;
        unsigned short m_usMaxDepth = 0;
        LinkLibrary m_kLinkLibrary;
    };
}
