#pragma once
// One placed instance of scene data, in a file and at run time: a transform, the nodes
// it draws and its user data. A link belongs to a bucket, which gives it its memory,
// its name and its user-data blocks; it stands in at most one LOctreeRoot.
//
// The transform of a link in a scene belongs to the main thread: other threads move a
// link through its octree's commands.
#include <cstdint>

#include "common/math/MathTypes.h"
#include "common/math/WorldVector3.h"
#include "zemrenderer/scene/Node.h"
#include "zemrenderer/scene/RUserID.h"
#include "zemrenderer/scene/UserData.h"
#include "zemrenderer/serialization/Serializable.h"
#include "zemrenderer/thread/Query.h"

namespace ZemRenderer
{
    class Bucket;
    class IOSTreamBase;
    class LOctreeRoot;
    class SerializationManager;
    class Serializer;

    class Link : public Serializable
    {
    public:
        ZEM_SERIALIZABLE_CLASS("ZemRenderer::Link")

        enum Flags : uint32_t
        {
            eStoredByte = 0xFF,
            eStoredBit = 0x100,
            ePositionChanged = 0x200,
            eBoundsChanged = 0x400,
            eHidden = 0x800,
            eLoading = 0x1000,
            eUnloaded = 0x2000,
            eBillboardX = 0x8000,
            eBillboardY = 0x10000,
            eBillboardUp = 0x20000,
            eUserDataRead = 0x40000,
            eMaster = 0x80000,
            eDynamic = 0x100000,
            eNoChangeCounters = 0x200000,
            eInstance = 0x400000,
            eFieldMask = 0x7800000,
            eStaysAtRoot = 0x8000000,
            eInTree = 0x10000000,
        };
        static constexpr uint32_t kFieldShift = 23;
        static constexpr uint32_t kNewLinkFlags = 1u << kFieldShift;
        static constexpr uint32_t kNoAnimation = 0xFFFFFFFFu;

        // The name is kept in the bucket's strings; without a bucket it is "Unnamed".
        Link(Bucket* bucket, const char* name, RUserID id = RUserID());
        // Leaves its octree; frees the user data this link added itself (not what it
        // shares with a master).
        ~Link();
        Link(const Link&) = delete;
        Link& operator=(const Link&) = delete;

        const char* GetName() const { return m_szName; }
        Bucket* GetBucket() const { return m_pBucket; }
        RUserID GetUserId() const { return m_kUserId; }
        void SetUserId(RUserID id) { m_kUserId = id; }

        // Each marks what changed for the next octree update.
        void SetPosition(const Math::WorldVector3& position);
        void SetRotation(const Math::Quaternion& rotation);
        void SetScale(const Math::Float3& scale);
        const Math::WorldVector3& GetPosition() const { return m_kPosition; }
        const Math::Quaternion& GetRotation() const { return m_kRotation; }
        const Math::Float3& GetScale() const { return m_kScale; }
        // The scale culling uses: the largest of the three.
        float GetMaxScale() const;

        uint32_t GetFlags() const { return m_uiFlags; }
        void SetFlags(uint32_t flags) { m_uiFlags |= flags; }
        void ClearFlags(uint32_t flags) { m_uiFlags &= ~flags; }
        bool HasFlags(uint32_t flags) const { return (m_uiFlags & flags) != 0; }
        bool IsLoaded() const { return !HasFlags(eLoading); }
        bool IsUnloaded() const { return HasFlags(eUnloaded); }
        // The 4-bit field at bits 23 to 26.
        uint32_t GetField() const { return (m_uiFlags & eFieldMask) >> kFieldShift; }

        LOctreeRoot* GetOwner() const { return m_pOwner; }
        uint32_t GetTreeIndex() const { return m_uiTreeIndex; }
        void SetTreeIndex(uint32_t index) { m_uiTreeIndex = index; }
        uint32_t GetAnimationId() const { return m_uiAnimationId; }
        void SetAnimationId(uint32_t id) { m_uiAnimationId = id; }
        int32_t GetAnimationSlot() const { return m_iAnimationSlot; }
        void SetAnimationSlot(int32_t slot) { m_iAnimationSlot = slot; }
        const QueryPtr& GetQuery() const { return m_spQuery; }
        void SetQuery(const QueryPtr& query) { m_spQuery = query; }

        RenderNode& GetRenderNode() { return m_kRenderNode; }
        const RenderNode& GetRenderNode() const { return m_kRenderNode; }
        unsigned int GetNodeCount() const { return m_kRenderNode.m_nodes.GetSize(); }
        Node* GetNode(unsigned int index);
        // Each reports its own name for an index out of range and then does nothing.
        void HideNode(unsigned int index);
        void ShowNode(unsigned int index);
        void SetNodeAlwaysVisible(unsigned int index);
        void SetNodeForceRenderCommand(unsigned int index);
        bool IsNodeVisible(unsigned int index) const;

        // Pushes a block at the head of the list; the block must be new to any list.
        bool AddUserData(UserData* block);
        // The block added last under this tag, or null.
        UserData* FindUserData(uint32_t tag) const;
        UserData* GetUserData() const { return m_pUserData; }
        // Replaces the data of this link with what `source` read: its nodes, stored bits and
        // user data (shared, not copied). Own user data stays in front of the shared list.
        void CopyDataFrom(const Link& source);
        // Runs the render thread's user-data handler over the list, unless this is a
        // master copy or the link has not read its user data.
        void DispatchUserData();

        // The file's routine: the render node, the stored byte and bit, the user data list.
        void Serialize(Serializer& serializer);

        // Reads a link file into this link. On success the blocks are added, the octree
        // updated, the link marked loaded (0x400 set if `boundsChanged`) and its user data
        // dispatched. On failure the link is left as it was, without nodes or own user data.
        bool Load(IOSTreamBase& stream, Bucket* owner, bool boundsChanged = true);
        // Writes a link file: the header, then the link, in `swap` byte order.
        bool Save(IOSTreamBase& stream, bool swap = false);
        // Walks the link with a stream without data: the link counts as unloaded after.
        bool Walk();

    private:
        friend class LOctreeRoot;

        void ReleaseOwnUserData();
        // Each node's draw geometry counts this link once; these let go of those counts.
        void HoldDrawGeometries();
        void ReleaseDrawGeometries();
        bool AdoptReadUserData();

        Math::WorldVector3 m_kPosition;
        Math::Quaternion m_kRotation;
        Math::Float3 m_kScale{1.0f, 1.0f, 1.0f};
        RenderNode m_kRenderNode;
        uint32_t m_uiAnimationId = kNoAnimation;
        LOctreeRoot* m_pOwner = nullptr;
        // Where the owner lists this link.
        uint32_t m_uiOwnerSlot = 0;
        uint32_t m_uiTreeIndex = 0;
        uint32_t m_uiFlags = kNewLinkFlags;
        int32_t m_iAnimationSlot = -1;
        UserData* m_pUserData = nullptr;
        QueryPtr m_spQuery;

        // Blocks from here on belong to a master copy; this link frees only those before.
        UserData* m_pSharedUserData = nullptr;
        Bucket* m_pBucket;
        const char* m_szName;
        RUserID m_kUserId;
    };
}
