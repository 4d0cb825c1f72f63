#pragma once
// The few rotation operations that scene code needs on the plain storage types.
// Quaternions are in x, y, z, w order; Multiply(a, b) is the rotation b followed by a.
#include "common/math/MathTypes.h"
#include "common/math/WorldVector3.h"

namespace Math
{
    inline Quaternion Multiply(const Quaternion& a, const Quaternion& b)
    {
        Quaternion r;
        r.w = a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z;
        r.x = a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y;
        r.y = a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x;
        r.z = a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w;
        return r;
    }

    // v rotated by the unit quaternion q.
    inline LocalVector3 Rotate(const Quaternion& q, const LocalVector3& v)
    {
        // t = 2 (q.xyz x v); v' = v + w t + q.xyz x t
        const float tx = 2.0f * (q.y * v.z - q.z * v.y);
        const float ty = 2.0f * (q.z * v.x - q.x * v.z);
        const float tz = 2.0f * (q.x * v.y - q.y * v.x);
        LocalVector3 r;
        r.x = v.x + q.w * tx + (q.y * tz - q.z * ty);
        r.y = v.y + q.w * ty + (q.z * tx - q.x * tz);
        r.z = v.z + q.w * tz + (q.x * ty - q.y * tx);
        return r;
    }

    inline Float3 MultiplyComponents(const Float3& a, const Float3& b) { return Float3{a.x * b.x, a.y * b.y, a.z * b.z}; }
}
