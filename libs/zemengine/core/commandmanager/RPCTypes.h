#pragma once
// Value types of remote calls: transforms, spheres, editing state and the RUserID.
#include "common/math/MathTypes.h"
#include "common/utils/String.h"

namespace RPC
{
    struct RPCTransform
    {
        Math::Float3 m_kTranslation;
        Math::Quaternion m_kRotation;
        Math::Float3 m_kScale{1.0f, 1.0f, 1.0f};
    };

    struct BoundingSphere
    {
        Math::Float3 m_kCenter;
        float m_fRadius = 0.0f;
    };

    struct stBoneEditingParams
    {
        bool m_bIsEditingBone = false;
        Common::String m_szEditBoneName;
        Math::Quaternion m_kEditRotation;
    };

    // The sub-edition state of a view. `TPrefab` is the remote prefab class, written as
    // a reference, and only when set.
    template <class TPrefab>
    struct EditInfoT
    {
        RPCTransform m_kTransform;
        Math::Float3 m_kPosition;
        unsigned int m_uGizmoFlags = 0;
        int m_iEType = 0;
        TPrefab* m_pPrefab = nullptr;
    };

    // The 32-bit id of a thing that a pick or the editor can name: its kind in the top 4
    // bits, parameters below by kind.
    class RUserID
    {
    public:
        enum Type : unsigned int
        {
            None = 0,
            Link,
            Node,
            Light,
            Volume,
            Gizmo,
            Socket,
            World,
            Custom,
            Bone,
            Probe,
            PostProcess,
            Dummy,
            Spline,
            Camera,
            TypeCount
        };

        static constexpr unsigned int kInfinite = 0xFFFFFFFFu;

        RUserID() = default;
        explicit RUserID(unsigned int id) : m_uID(id) {}
        // Packs the parameters by the layout of `type`; a parameter that the layout
        // needs but is kInfinite, or a surplus one, is reported ("look alike a bad
        // init") and packed masked.
        RUserID(unsigned int type, unsigned int first, unsigned int second = kInfinite, unsigned int third = kInfinite);

        unsigned int GetID() const { return m_uID; }
        unsigned int GetType() const { return m_uID >> 28; }
        // The parameters of the kind, in order; returns how many (1 to 3).
        unsigned int GetParams(unsigned int out[3]) const;

        // The type of a wire name ("Bone" -> 9); an unknown name is None.
        static unsigned int TypeFromName(const char* name);
        static const char* TypeName(unsigned int type);

        bool operator==(const RUserID& other) const { return m_uID == other.m_uID; }

    private:
        unsigned int m_uID = 0;
    };
}
