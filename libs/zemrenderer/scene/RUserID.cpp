#include "zemrenderer/scene/RUserID.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    RUserID::RUserID(Type type, uint32_t value, uint32_t second, uint32_t third)
    {
        const uint32_t head = (static_cast<uint32_t>(type) & 0xFu) << 28;
        switch (type)
        {
            case Node:
            case Bone:
                if (type == Node)
                    ZEM_ASSERT(second != kInvalid, "RUserId : look alike a bad init (Node with infinite id)");
                else
                    ZEM_ASSERT(second != kInvalid, "RUserId : look alike a bad init (Bone with infinite id)");
                m_uiID = head | ((value & kLinkMask) << 13) | (second & kSubMask);
                break;
            case Socket:
                ZEM_ASSERT(second != kInvalid && third != kInvalid,
                           "RUserId : look alike a bad init (SocketIndex or SubPrefabIndex with infinite id)");
                m_uiID = head | ((value & kLinkMask) << 13) | ((second & kSocketMask) << 6) | (third & kSubObjectMask);
                break;
            default:
                ZEM_ASSERT(second == kInvalid, "RUserId : look alike a bad init (there are only two parameters for node)");
                m_uiID = head | (value & kValueMask);
                break;
        }
    }
}
