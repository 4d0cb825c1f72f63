#pragma once
// Rotation operations on the plain storage types, with one product order everywhere:
// Multiply(a, b) is "rotation a, then rotation b", the order in which scene, animation
// and socket code writes its compositions (a child's world rotation is
// Multiply(child, parent)). Quaternions are in x, y, z, w order. The table of orders
// with a test vector for each is in docs/design-notes.md ("Math conventions").
#include <cmath>

#include <glm/gtc/quaternion.hpp>

#include "common/math/MathTypes.h"
#include "common/math/WorldVector3.h"

namespace Math
{
    // The textbook product a ⊗ b, which applies b first and a second. Kept under its own
    // name for formulas written that way; scene code composes with Multiply.
    inline Quaternion HamiltonProduct(const Quaternion& a, const Quaternion& b)
    {
        Quaternion r;
        r.w = a.w * b.w - a.x * b.x - a.y * b.y - a.z * b.z;
        r.x = a.w * b.x + a.x * b.w + a.y * b.z - a.z * b.y;
        r.y = a.w * b.y - a.x * b.z + a.y * b.w + a.z * b.x;
        r.z = a.w * b.z + a.x * b.y - a.y * b.x + a.z * b.w;
        return r;
    }

    // Rotation a, then rotation b.
    inline Quaternion Multiply(const Quaternion& a, const Quaternion& b) { return HamiltonProduct(b, a); }

    inline float Dot(const Quaternion& a, const Quaternion& b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }
    inline float Length(const Quaternion& q) { return std::sqrt(Dot(q, q)); }

    inline Quaternion Conjugate(const Quaternion& q) { return Quaternion{-q.x, -q.y, -q.z, q.w}; }

    // Works for quaternions that are not unit length; a zero quaternion gives zero rather
    // than NaNs, so one bad key cannot poison a whole pose.
    inline Quaternion Inverse(const Quaternion& q)
    {
        const float n = Dot(q, q);
        if (n <= 0.0f) return Quaternion{0.0f, 0.0f, 0.0f, 0.0f};
        return Quaternion{-q.x / n, -q.y / n, -q.z / n, q.w / n};
    }

    // A zero quaternion normalises to the identity.
    inline Quaternion Normalize(const Quaternion& q)
    {
        const float n = Length(q);
        if (n <= 0.0f) return Quaternion{};
        return Quaternion{q.x / n, q.y / n, q.z / n, q.w / n};
    }

    // Counter-clockwise by `radians` about `axis` when looking down the axis at the origin;
    // the axis need not be unit length.
    inline Quaternion RotationAxis(const Float3& axis, float radians)
    {
        const float len = std::sqrt(axis.x * axis.x + axis.y * axis.y + axis.z * axis.z);
        if (len <= 0.0f) return Quaternion{};
        const float s = std::sin(radians * 0.5f) / len;
        return Quaternion{axis.x * s, axis.y * s, axis.z * s, std::cos(radians * 0.5f)};
    }

    // v rotated by the unit quaternion q, i.e. q v q*.
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

    // v rotated by the inverse of the unit quaternion q: undoes Rotate(q, v).
    inline LocalVector3 InverseRotate(const Quaternion& q, const LocalVector3& v) { return Rotate(Conjugate(q), v); }

    namespace Detail
    {
        inline glm::quat ToGlm(const Quaternion& q) { return glm::quat(q.w, q.x, q.y, q.z); }
        inline Quaternion FromGlm(const glm::quat& q) { return Quaternion{q.x, q.y, q.z, q.w}; }
    }

    // Spherical interpolation from a (t = 0) to b (t = 1) along the shorter arc, at a
    // constant angular speed.
    inline Quaternion Slerp(const Quaternion& a, const Quaternion& b, float t)
    {
        return Normalize(Detail::FromGlm(glm::slerp(Detail::ToGlm(a), Detail::ToGlm(b), t)));
    }

    // Normalised linear interpolation from a (t = 0) to b (t = 1) along the shorter arc:
    // cheaper than Slerp, with the same end points and halfway point but an uneven speed.
    inline Quaternion Nlerp(const Quaternion& a, const Quaternion& b, float t)
    {
        const float sign = Dot(a, b) < 0.0f ? -1.0f : 1.0f;
        const float u = 1.0f - t;
        const float v = t * sign;
        return Normalize(Quaternion{a.x * u + b.x * v, a.y * u + b.y * v, a.z * u + b.z * v, a.w * u + b.w * v});
    }

    inline Float3 MultiplyComponents(const Float3& a, const Float3& b) { return Float3{a.x * b.x, a.y * b.y, a.z * b.z}; }
}
