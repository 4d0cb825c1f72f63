#pragma once
// The 32-bit id of something a pick or the editor can name: a kind in the top 4 bits,
// its indices below. Links, nodes, sockets and bones pack a link index with a second
// (and third) index; every other kind holds one value of 28 bits.
#include <cstdint>

namespace ZemRenderer
{
    class RUserID
    {
    public:
        enum Type : uint32_t
        {
            None = 0,
            Link = 1,
            Node = 2,
            Light = 3,
            Volume = 4,
            Gizmo = 5,
            Socket = 6,
            World = 7,
            Custom = 8,
            Bone = 9,
            Probe = 10,
            PostProcess = 11,
            Dummy = 12,
            Spline = 13,
            Camera = 14,
        };

        static constexpr uint32_t kInvalid = ~0u;
        static constexpr uint32_t kValueMask = 0x0FFFFFFFu;
        static constexpr uint32_t kLinkMask = 0x7FFFu;     // bits 13 to 27
        static constexpr uint32_t kSubMask = 0x1FFFu;      // bits 0 to 12
        static constexpr uint32_t kSocketMask = 0x7Fu;     // bits 6 to 12
        static constexpr uint32_t kSubObjectMask = 0x3Fu;  // bits 0 to 5

        RUserID() = default;
        explicit RUserID(uint32_t raw) : m_uiID(raw) {}
        // Node and Bone take (link, index); Socket takes (link, socket, sub-object); any
        // other kind takes one value and no second. A missing index is reported and packs
        // as all ones in its field.
        RUserID(Type type, uint32_t value, uint32_t second = kInvalid, uint32_t third = kInvalid);

        uint32_t GetRaw() const { return m_uiID; }
        Type GetType() const { return static_cast<Type>(m_uiID >> 28); }
        // The whole 28 bits, for simple kinds.
        uint32_t GetValue() const { return m_uiID & kValueMask; }
        // Node, Socket and Bone ids.
        uint32_t GetLinkIndex() const { return (m_uiID >> 13) & kLinkMask; }
        uint32_t GetNodeIndex() const { return m_uiID & kSubMask; }
        uint32_t GetBoneIndex() const { return m_uiID & kSubMask; }
        uint32_t GetSocketIndex() const { return (m_uiID >> 6) & kSocketMask; }
        uint32_t GetSubObjectIndex() const { return m_uiID & kSubObjectMask; }
        // Kinds that carry a link index in bits 13 to 27.
        bool HasLinkAndIndex() const
        {
            const Type t = GetType();
            return t == Node || t == Socket || t == Bone;
        }

        bool operator==(const RUserID& o) const { return m_uiID == o.m_uiID; }
        bool operator!=(const RUserID& o) const { return m_uiID != o.m_uiID; }

    private:
        uint32_t m_uiID = 0;
    };
}
