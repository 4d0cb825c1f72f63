#pragma once
// A position, rotation and scale relative to a parent, and how it becomes a world
// transform: the local position is scaled per axis by the parent's scale, rotated by the
// parent's rotation and added to the parent's position; the rotation is the child's, then
// the parent's; scales multiply per axis.
#include "common/math/QuaternionMath.h"
#include "common/math/WorldVector3.h"

namespace Math
{
    struct LinkTransform
    {
        WorldVector3 position;
        Quaternion rotation;
        Float3 scale{1.0f, 1.0f, 1.0f};
    };

    inline LinkTransform ComposeWithParent(const LinkTransform& local, const LinkTransform& parent)
    {
        const LocalVector3 p = local.position.ToLocal();
        const LocalVector3 scaled{p.x * parent.scale.x, p.y * parent.scale.y, p.z * parent.scale.z};
        LinkTransform world;
        world.position = parent.position.Offset(Rotate(parent.rotation, scaled));
        world.rotation = Multiply(local.rotation, parent.rotation);
        world.scale = MultiplyComponents(local.scale, parent.scale);
        return world;
    }
}
