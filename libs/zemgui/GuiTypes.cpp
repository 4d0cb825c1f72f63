#include "zemgui/GuiTypes.h"

#include <algorithm>
#include <cstring>

namespace ZemGui
{
    GuiRect GuiRect::Intersect(const GuiRect& o) const
    {
        const GuiRect r(std::max(left, o.left), std::max(top, o.top), std::min(right, o.right),
                        std::min(bottom, o.bottom));
        // Written as negations so that a NaN side also gives the empty rectangle.
        if (!(r.left < r.right) || !(r.top < r.bottom)) return GuiRect();
        return r;
    }

    Matrix44 Matrix44::Translation(float x, float y)
    {
        Matrix44 r;
        r.m[0][3] = x;
        r.m[1][3] = y;
        return r;
    }

    Matrix44 Matrix44::RotationZ(float cosA, float sinA)
    {
        Matrix44 r;
        r.m[0][0] = cosA;
        r.m[0][1] = -sinA;
        r.m[1][0] = sinA;
        r.m[1][1] = cosA;
        return r;
    }

    Matrix44 Matrix44::operator*(const Matrix44& o) const
    {
        Matrix44 r;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
                r.m[i][j] = m[i][0] * o.m[0][j] + m[i][1] * o.m[1][j] + m[i][2] * o.m[2][j] + m[i][3] * o.m[3][j];
        return r;
    }

    Matrix44 Matrix44::Inverse() const
    {
        // Gauss-Jordan with partial pivoting; GUI matrices are small affine ones.
        double a[4][8];
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
            {
                a[i][j] = m[i][j];
                a[i][j + 4] = (i == j) ? 1.0 : 0.0;
            }
        for (int c = 0; c < 4; ++c)
        {
            int pivot = c;
            for (int r = c + 1; r < 4; ++r)
                if (std::fabs(a[r][c]) > std::fabs(a[pivot][c])) pivot = r;
            if (!(std::fabs(a[pivot][c]) > 1e-12)) return Matrix44();
            if (pivot != c)
                for (int j = 0; j < 8; ++j) std::swap(a[c][j], a[pivot][j]);
            const double inv = 1.0 / a[c][c];
            for (int j = 0; j < 8; ++j) a[c][j] *= inv;
            for (int r = 0; r < 4; ++r)
            {
                if (r == c) continue;
                const double f = a[r][c];
                if (f == 0.0) continue;
                for (int j = 0; j < 8; ++j) a[r][j] -= f * a[c][j];
            }
        }
        Matrix44 r;
        for (int i = 0; i < 4; ++i)
            for (int j = 0; j < 4; ++j)
            {
                r.m[i][j] = static_cast<float>(a[i][j + 4]);
                if (!std::isfinite(r.m[i][j])) return Matrix44();
            }
        return r;
    }

    Matrix44 Matrix44::InversePlane() const
    {
        const bool plane = m[0][2] == 0.0f && m[1][2] == 0.0f && m[2][0] == 0.0f && m[2][1] == 0.0f &&
                           m[2][2] == 1.0f && m[2][3] == 0.0f && m[3][0] == 0.0f && m[3][1] == 0.0f &&
                           m[3][2] == 0.0f && m[3][3] == 1.0f;
        if (!plane) return Inverse();
        const float a = m[0][0], b = m[0][1], c = m[1][0], d = m[1][1];
        const float det = a * d - b * c;
        if (!(std::fabs(det) > 1e-12f)) return Matrix44();
        const float inv = 1.0f / det;
        Matrix44 r;
        r.m[0][0] = d * inv;
        r.m[0][1] = -b * inv;
        r.m[1][0] = -c * inv;
        r.m[1][1] = a * inv;
        r.m[0][3] = -(r.m[0][0] * m[0][3] + r.m[0][1] * m[1][3]);
        r.m[1][3] = -(r.m[1][0] * m[0][3] + r.m[1][1] * m[1][3]);
        for (int i = 0; i < 2; ++i)
            for (int j = 0; j < 4; ++j)
                if (!std::isfinite(r.m[i][j])) return Matrix44();
        return r;
    }

    Vec2 Matrix44::TransformPoint(float x, float y) const
    {
        const float w = m[3][0] * x + m[3][1] * y + m[3][3];
        Vec2 r(m[0][0] * x + m[0][1] * y + m[0][3], m[1][0] * x + m[1][1] * y + m[1][3]);
        if (w != 1.0f && w != 0.0f)
        {
            r.x /= w;
            r.y /= w;
        }
        return r;
    }

    const char* DirectionToWord(Direction d) { return d == eHorizontal ? "HORIZONTAL" : "VERTICAL"; }

    Direction DirectionFromWord(const char* word)
    {
        return (word && std::strcmp(word, "HORIZONTAL") == 0) ? eHorizontal : eVertical;
    }

    const char* AlignmentToWord(Alignment a)
    {
        switch (a)
        {
            case eLeftTop: return "LEFT_TOP";
            case eMiddle: return "MIDDLE";
            default: return "RIGHT_BOTTOM";
        }
    }

    Alignment AlignmentFromWord(const char* word)
    {
        if (word && std::strcmp(word, "LEFT_TOP") == 0) return eLeftTop;
        if (word && std::strcmp(word, "MIDDLE") == 0) return eMiddle;
        return eRightBottom;
    }
}
