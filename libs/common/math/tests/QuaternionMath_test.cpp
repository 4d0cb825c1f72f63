// The product orders of the math module, pinned by vectors worked out by hand from the
// right-hand rule: +90 degrees about X takes y to z and z to -y; about Y it takes z to x
// and x to -z; about Z it takes x to y and y to -x.
#include <cmath>

#include <gtest/gtest.h>

#include "common/math/LinkTransform.h"
#include "common/math/MatrixMath.h"
#include "common/math/QuaternionMath.h"

namespace
{
    const float s = std::sqrt(0.5f);
    const Math::Quaternion qx{s, 0.0f, 0.0f, s};
    const Math::Quaternion qy{0.0f, s, 0.0f, s};
    const Math::Quaternion qz{0.0f, 0.0f, s, s};

    void ExpectVec(const Math::LocalVector3& v, float x, float y, float z, float eps = 1e-5f)
    {
        EXPECT_NEAR(v.x, x, eps);
        EXPECT_NEAR(v.y, y, eps);
        EXPECT_NEAR(v.z, z, eps);
    }

    void ExpectQuat(const Math::Quaternion& q, float x, float y, float z, float w, float eps = 1e-5f)
    {
        EXPECT_NEAR(q.x, x, eps);
        EXPECT_NEAR(q.y, y, eps);
        EXPECT_NEAR(q.z, z, eps);
        EXPECT_NEAR(q.w, w, eps);
    }

    TEST(QuaternionMath, RotateFollowsTheRightHandRule)
    {
        struct Case
        {
            Math::Quaternion q;
            Math::LocalVector3 in, out;
        } cases[] = {
            {qx, {0, 1, 0}, {0, 0, 1}}, {qx, {0, 0, 1}, {0, -1, 0}}, {qy, {0, 0, 1}, {1, 0, 0}},
            {qy, {1, 0, 0}, {0, 0, -1}}, {qz, {1, 0, 0}, {0, 1, 0}}, {qz, {0, 1, 0}, {-1, 0, 0}},
        };
        for (const Case& c : cases)
        {
            ExpectVec(Math::Rotate(c.q, c.in), c.out.x, c.out.y, c.out.z);
            ExpectVec(Math::InverseRotate(c.q, c.out), c.in.x, c.in.y, c.in.z);
        }
        ExpectQuat(Math::RotationAxis({2.0f, 0.0f, 0.0f}, 1.5707963f), s, 0.0f, 0.0f, s);
    }

    TEST(QuaternionMath, MultiplyIsTheFirstRotationThenTheSecond)
    {
        // (0,0,1): about X to (0,-1,0), which about Y stays put.
        ExpectVec(Math::Rotate(Math::Multiply(qx, qy), {0, 0, 1}), 0.0f, -1.0f, 0.0f);
        // (0,0,1): about Y to (1,0,0), which about X stays put.
        ExpectVec(Math::Rotate(Math::Multiply(qy, qx), {0, 0, 1}), 1.0f, 0.0f, 0.0f);
        // The components, from the product formula by hand.
        ExpectQuat(Math::Multiply(qx, qy), 0.5f, 0.5f, -0.5f, 0.5f);
        ExpectQuat(Math::Multiply(qy, qx), 0.5f, 0.5f, 0.5f, 0.5f);
        // The textbook product is the other order.
        ExpectQuat(Math::HamiltonProduct(qx, qy), 0.5f, 0.5f, 0.5f, 0.5f);
        // Three in a row: x about Z to y, about X to z, about Y to x.
        ExpectVec(Math::Rotate(Math::Multiply(Math::Multiply(qz, qx), qy), {1, 0, 0}), 1.0f, 0.0f, 0.0f);
    }

    TEST(QuaternionMath, ConjugateAndInverseUndoARotation)
    {
        ExpectQuat(Math::Conjugate(qx), -s, 0.0f, 0.0f, s);
        ExpectVec(Math::Rotate(Math::Conjugate(qx), {0, 1, 0}), 0.0f, 0.0f, -1.0f);
        ExpectQuat(Math::Multiply(qx, Math::Conjugate(qx)), 0.0f, 0.0f, 0.0f, 1.0f);
        // Twice the length: the inverse is the conjugate over the squared length (4).
        const Math::Quaternion big{2 * s, 0.0f, 0.0f, 2 * s};
        ExpectQuat(Math::Inverse(big), -s / 2, 0.0f, 0.0f, s / 2);
        ExpectQuat(Math::Multiply(Math::Inverse(big), big), 0.0f, 0.0f, 0.0f, 1.0f);
        // Degenerate input stays finite.
        ExpectQuat(Math::Inverse({0, 0, 0, 0}), 0.0f, 0.0f, 0.0f, 0.0f);
        ExpectQuat(Math::Normalize({0, 0, 0, 0}), 0.0f, 0.0f, 0.0f, 1.0f);
        ExpectQuat(Math::Normalize(big), s, 0.0f, 0.0f, s);
    }

    TEST(QuaternionMath, SlerpAndNlerpGoFromTheFirstToTheSecondTheShortWay)
    {
        const Math::Quaternion id{};
        ExpectQuat(Math::Slerp(id, qz, 0.0f), 0.0f, 0.0f, 0.0f, 1.0f);
        ExpectQuat(Math::Slerp(id, qz, 1.0f), 0.0f, 0.0f, s, s);
        // Halfway to 90 degrees about Z is 45 degrees: (0, 0, sin 22.5, cos 22.5).
        ExpectQuat(Math::Slerp(id, qz, 0.5f), 0.0f, 0.0f, 0.3826834f, 0.9238795f);
        ExpectQuat(Math::Nlerp(id, qz, 0.5f), 0.0f, 0.0f, 0.3826834f, 0.9238795f);
        // -q is the same rotation: both still take the 45 degree way, not the 315 one.
        const Math::Quaternion negated{-qz.x, -qz.y, -qz.z, -qz.w};
        ExpectVec(Math::Rotate(Math::Slerp(id, negated, 0.5f), {1, 0, 0}), 0.7071068f, 0.7071068f, 0.0f);
        ExpectVec(Math::Rotate(Math::Nlerp(id, negated, 0.5f), {1, 0, 0}), 0.7071068f, 0.7071068f, 0.0f);
        // A quarter of the way: slerp turns 22.5 degrees; nlerp of (0,0,s/4,3/4+s/4) turns
        // 2 atan(0.1767767 / 0.9267767) = 21.598 degrees.
        const Math::LocalVector3 a = Math::Rotate(Math::Slerp(id, qz, 0.25f), {1, 0, 0});
        const Math::LocalVector3 b = Math::Rotate(Math::Nlerp(id, qz, 0.25f), {1, 0, 0});
        EXPECT_NEAR(std::atan2(a.y, a.x) * 57.2957795f, 22.5f, 1e-3f);
        EXPECT_NEAR(std::atan2(b.y, b.x) * 57.2957795f, 21.598f, 1e-2f);
    }

    TEST(MatrixMath, RowVectorsAndTheSameProductOrder)
    {
        // Rows are the images of the axes: about X, row 1 (y) is z and row 2 (z) is -y.
        const Math::Float4x4 rx = Math::MatrixRotation(qx);
        const float expected[4][4] = {{1, 0, 0, 0}, {0, 0, 1, 0}, {0, -1, 0, 0}, {0, 0, 0, 1}};
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(rx.m[r][c], expected[r][c], 1e-6f) << r << "," << c;
        const Math::Float4x4 ry = Math::MatrixRotation(qy);
        ExpectVec(Math::TransformDirection({0, 0, 1}, Math::Multiply(rx, ry)), 0.0f, -1.0f, 0.0f);
        ExpectVec(Math::TransformDirection({0, 0, 1}, Math::Multiply(ry, rx)), 1.0f, 0.0f, 0.0f);
        // The matrix of a quaternion product is the product of the matrices, same order.
        const Math::Float4x4 fromQuat = Math::MatrixRotation(Math::Multiply(qx, qy));
        const Math::Float4x4 product = Math::Multiply(rx, ry);
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 4; ++c) EXPECT_NEAR(fromQuat.m[r][c], product.m[r][c], 1e-6f);
        // Translate by 10 then scale x by 2 moves (1,0,0) to 22; the other order to 12.
        const Math::Float4x4 t = Math::MatrixAffine({1, 1, 1}, {}, {10, 0, 0});
        const Math::Float4x4 sc = Math::MatrixAffine({2, 1, 1}, {}, {0, 0, 0});
        ExpectVec(Math::TransformPoint({1, 0, 0}, Math::Multiply(t, sc)), 22.0f, 0.0f, 0.0f);
        ExpectVec(Math::TransformPoint({1, 0, 0}, Math::Multiply(sc, t)), 12.0f, 0.0f, 0.0f);
        // Affine: scale (2,3,4), then 90 about Z, then +(5,6,7): (1,1,1) -> (2,3,4) -> (-3,2,4) -> (2,8,11).
        const Math::Float4x4 srt = Math::MatrixAffine({2, 3, 4}, qz, {5, 6, 7});
        ExpectVec(Math::TransformPoint({1, 1, 1}, srt), 2.0f, 8.0f, 11.0f);
        ExpectVec(Math::TransformDirection({1, 1, 1}, srt), -3.0f, 2.0f, 4.0f);
        ExpectVec(Math::TransformDirection({1, 1, 1}, Math::Transpose(Math::Transpose(srt))), -3.0f, 2.0f, 4.0f);
    }

    TEST(LinkTransform, ChildIsScaledRotatedAndMovedByItsParent)
    {
        Math::LinkTransform parent;
        parent.position = Math::WorldVector3::FromLocal(10.0f, 0.0f, 0.0f);
        parent.rotation = qz;
        parent.scale = {2.0f, 3.0f, 4.0f};
        Math::LinkTransform local;
        local.position = Math::WorldVector3::FromLocal(1.0f, 1.0f, 0.0f);
        local.rotation = qx;
        local.scale = {1.0f, 1.0f, 2.0f};
        const Math::LinkTransform world = Math::ComposeWithParent(local, parent);
        // (1,1,0) scaled to (2,3,0), about Z to (-3,2,0), plus (10,0,0).
        EXPECT_EQ(world.position, Math::WorldVector3::FromLocal(7.0f, 2.0f, 0.0f));
        // The child's X turn first, then the parent's Z turn: y -> z -> z, z -> -y -> x.
        ExpectVec(Math::Rotate(world.rotation, {0, 1, 0}), 0.0f, 0.0f, 1.0f);
        ExpectVec(Math::Rotate(world.rotation, {0, 0, 1}), 1.0f, 0.0f, 0.0f);
        EXPECT_FLOAT_EQ(world.scale.x, 2.0f);
        EXPECT_FLOAT_EQ(world.scale.y, 3.0f);
        EXPECT_FLOAT_EQ(world.scale.z, 8.0f);
    }
}
