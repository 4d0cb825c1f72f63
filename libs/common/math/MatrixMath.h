#pragma once
// 4x4 matrices for row vectors: a point p is transformed as p * M, the translation is in
// the last row, and Multiply(A, B) is "transform A, then transform B" (p * A * B), the
// same order as quaternion Multiply. Storage is row-major, so m[3] is the translation row
// and the sixteen floats upload as they are to a shader that multiplies mul(p, M).
#include <cstring>

#include <glm/mat4x4.hpp>

#include "common/math/MathTypes.h"
#include "common/math/QuaternionMath.h"
#include "common/math/WorldVector3.h"

namespace Math
{
    struct Float4x4
    {
        float m[4][4] = {{1.0f, 0.0f, 0.0f, 0.0f}, {0.0f, 1.0f, 0.0f, 0.0f}, {0.0f, 0.0f, 1.0f, 0.0f}, {0.0f, 0.0f, 0.0f, 1.0f}};
    };

    namespace Detail
    {
        // A row-vector matrix stored row-major has the same bytes as its column-vector
        // transpose stored column-major, which is what glm holds.
        inline glm::mat4 ToGlm(const Float4x4& a)
        {
            glm::mat4 g;
            std::memcpy(&g[0][0], &a.m[0][0], sizeof a.m);
            return g;
        }
        inline Float4x4 FromGlm(const glm::mat4& g)
        {
            Float4x4 a;
            std::memcpy(&a.m[0][0], &g[0][0], sizeof a.m);
            return a;
        }
    }

    // Transform a, then transform b.
    inline Float4x4 Multiply(const Float4x4& a, const Float4x4& b)
    {
        // (A B)^T = B^T A^T: glm sees the transposes, so the operands swap.
        return Detail::FromGlm(Detail::ToGlm(b) * Detail::ToGlm(a));
    }

    // The point (x, y, z, 1) * m, divided by w when w is neither 0 nor 1.
    inline LocalVector3 TransformPoint(const LocalVector3& p, const Float4x4& m)
    {
        float r[4];
        for (int c = 0; c < 4; ++c) r[c] = p.x * m.m[0][c] + p.y * m.m[1][c] + p.z * m.m[2][c] + m.m[3][c];
        if (r[3] != 0.0f && r[3] != 1.0f) return LocalVector3{r[0] / r[3], r[1] / r[3], r[2] / r[3]};
        return LocalVector3{r[0], r[1], r[2]};
    }

    // The direction (x, y, z, 0) * m: no translation.
    inline LocalVector3 TransformDirection(const LocalVector3& d, const Float4x4& m)
    {
        return LocalVector3{d.x * m.m[0][0] + d.y * m.m[1][0] + d.z * m.m[2][0], d.x * m.m[0][1] + d.y * m.m[1][1] + d.z * m.m[2][1],
                            d.x * m.m[0][2] + d.y * m.m[1][2] + d.z * m.m[2][2]};
    }

    inline Float4x4 Transpose(const Float4x4& a)
    {
        Float4x4 t;
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) t.m[r][c] = a.m[c][r];
        return t;
    }

    // The matrix of the unit quaternion q: TransformDirection(v, MatrixRotation(q)) equals
    // Rotate(q, v).
    inline Float4x4 MatrixRotation(const Quaternion& q)
    {
        const float xx = q.x * q.x, yy = q.y * q.y, zz = q.z * q.z;
        const float xy = q.x * q.y, xz = q.x * q.z, yz = q.y * q.z;
        const float wx = q.w * q.x, wy = q.w * q.y, wz = q.w * q.z;
        Float4x4 r;
        r.m[0][0] = 1.0f - 2.0f * (yy + zz);
        r.m[0][1] = 2.0f * (xy + wz);
        r.m[0][2] = 2.0f * (xz - wy);
        r.m[1][0] = 2.0f * (xy - wz);
        r.m[1][1] = 1.0f - 2.0f * (xx + zz);
        r.m[1][2] = 2.0f * (yz + wx);
        r.m[2][0] = 2.0f * (xz + wy);
        r.m[2][1] = 2.0f * (yz - wx);
        r.m[2][2] = 1.0f - 2.0f * (xx + yy);
        return r;
    }

    // Scale, then rotate, then translate.
    inline Float4x4 MatrixAffine(const Float3& scale, const Quaternion& rotation, const LocalVector3& translation)
    {
        Float4x4 r = MatrixRotation(rotation);
        const float s[3] = {scale.x, scale.y, scale.z};
        for (int row = 0; row < 3; ++row)
            for (int c = 0; c < 3; ++c) r.m[row][c] *= s[row];
        r.m[3][0] = translation.x;
        r.m[3][1] = translation.y;
        r.m[3][2] = translation.z;
        return r;
    }
}
