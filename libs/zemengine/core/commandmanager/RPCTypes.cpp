#include "zemengine/core/commandmanager/RPCTypes.h"

#include <cstring>

#include "common/system/debug/Log.h"

namespace RPC
{
    namespace
    {
        const char* const kTypeNames[RUserID::TypeCount] = {
            "None", "Link",  "Node",  "Light", "Volume",      "Gizmo", "Socket", "World",
            "Custom", "Bone", "Probe", "PostProcess", "Dummy", "Spline", "Camera",
        };

        constexpr unsigned int kLinkShift = 13;
        constexpr unsigned int kLinkMask = 0x7FFFu;   // bits 13 to 27
        constexpr unsigned int kLowMask = 0x1FFFu;    // bits 0 to 12
        constexpr unsigned int kSocketMask = 0x7Fu;   // bits 6 to 12
        constexpr unsigned int kSubMask = 0x3Fu;      // bits 0 to 5
        constexpr unsigned int kValueMask = 0x0FFFFFFFu;
    }

    RUserID::RUserID(unsigned int type, unsigned int first, unsigned int second, unsigned int third)
    {
        type &= 0xFu;
        unsigned int low = 0;
        switch (type)
        {
            case Node:
                ZEM_ASSERT(second != kInfinite, "RUserId : look alike a bad init (Node with infinite id)");
                low = ((first & kLinkMask) << kLinkShift) | (second & kLowMask);
                break;
            case Bone:
                ZEM_ASSERT(second != kInfinite, "RUserId : look alike a bad init (Bone with infinite id)");
                low = ((first & kLinkMask) << kLinkShift) | (second & kLowMask);
                break;
            case Socket:
                ZEM_ASSERT(second != kInfinite && third != kInfinite,
                           "RUserId : look alike a bad init (SocketIndex or SubPrefabIndex with infinite id)");
                low = ((first & kLinkMask) << kLinkShift) | ((second & kSocketMask) << 6) | (third & kSubMask);
                break;
            default:
                ZEM_ASSERT(second == kInfinite, "RUserId : look alike a bad init (there are only two parameters for node)");
                low = first & kValueMask;
                break;
        }
        m_uID = (type << 28) | low;
    }

    unsigned int RUserID::GetParams(unsigned int out[3]) const
    {
        const unsigned int low = m_uID & kValueMask;
        switch (GetType())
        {
            case Node:
            case Bone:
                out[0] = (low >> kLinkShift) & kLinkMask;
                out[1] = low & kLowMask;
                return 2;
            case Socket:
                out[0] = (low >> kLinkShift) & kLinkMask;
                out[1] = (low >> 6) & kSocketMask;
                out[2] = low & kSubMask;
                return 3;
            default:
                out[0] = low;
                return 1;
        }
    }

    unsigned int RUserID::TypeFromName(const char* name)
    {
        if (!name) return None;
        for (unsigned int i = 0; i < TypeCount; ++i)
            if (std::strcmp(kTypeNames[i], name) == 0) return i;
        return None;
    }

    const char* RUserID::TypeName(unsigned int type) { return type < TypeCount ? kTypeNames[type] : "None"; }
}
