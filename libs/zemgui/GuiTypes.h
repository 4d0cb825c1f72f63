#pragma once
// The GUI's measures and small value types. A `UDim` is a fraction of an extent plus
// pixels; a `UDim2` holds one per axis. Matrices act on column vectors (translation in
// the last column), rows stored first, like the screen projection.
#include <cmath>

namespace ZemGui
{
    struct UDim
    {
        float scale = 0.0f;
        float offset = 0.0f;

        UDim() = default;
        UDim(float s, float o) : scale(s), offset(o) {}

        float Absolute(float extent) const { return scale * extent + offset; }
        // Fraction of the extent, from the reciprocal of the extent.
        float Relative(float invExtent) const { return scale + offset * invExtent; }
        bool IsFinite() const { return std::isfinite(scale) && std::isfinite(offset); }

        UDim operator+(const UDim& o) const { return UDim(scale + o.scale, offset + o.offset); }
        UDim operator-(const UDim& o) const { return UDim(scale - o.scale, offset - o.offset); }
        bool operator==(const UDim& o) const { return scale == o.scale && offset == o.offset; }
        bool operator!=(const UDim& o) const { return !(*this == o); }
    };

    // x then y; stored x.scale, x.offset, y.scale, y.offset.
    struct UDim2
    {
        UDim x;
        UDim y;

        UDim2() = default;
        UDim2(const UDim& ux, const UDim& uy) : x(ux), y(uy) {}
        UDim2(float xs, float xo, float ys, float yo) : x(xs, xo), y(ys, yo) {}

        bool IsFinite() const { return x.IsFinite() && y.IsFinite(); }
        bool IsZero() const { return x.scale == 0.0f && x.offset == 0.0f && y.scale == 0.0f && y.offset == 0.0f; }

        UDim2 operator+(const UDim2& o) const { return UDim2(x + o.x, y + o.y); }
        UDim2 operator-(const UDim2& o) const { return UDim2(x - o.x, y - o.y); }
        bool operator==(const UDim2& o) const { return x == o.x && y == o.y; }
        bool operator!=(const UDim2& o) const { return !(*this == o); }
    };

    struct Vec2
    {
        float x = 0.0f;
        float y = 0.0f;

        Vec2() = default;
        Vec2(float px, float py) : x(px), y(py) {}
        bool operator==(const Vec2& o) const { return x == o.x && y == o.y; }
    };

    // left <= x < right, top <= y < bottom holds a point.
    struct GuiRect
    {
        float left = 0.0f;
        float top = 0.0f;
        float right = 0.0f;
        float bottom = 0.0f;

        GuiRect() = default;
        GuiRect(float l, float t, float r, float b) : left(l), top(t), right(r), bottom(b) {}

        bool Contains(float x, float y) const { return left <= x && x < right && top <= y && y < bottom; }
        bool IsZero() const { return left == 0.0f && top == 0.0f && right == 0.0f && bottom == 0.0f; }
        // The overlap, or the zero rectangle when there is none (a zero clip draws nothing).
        GuiRect Intersect(const GuiRect& o) const;
        GuiRect Moved(float dx, float dy) const { return GuiRect(left + dx, top + dy, right + dx, bottom + dy); }
        bool operator==(const GuiRect& o) const
        {
            return left == o.left && top == o.top && right == o.right && bottom == o.bottom;
        }
    };

    struct Matrix44
    {
        float m[4][4] = {{1, 0, 0, 0}, {0, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 0, 1}};

        static Matrix44 Translation(float x, float y);
        static Matrix44 RotationZ(float cosA, float sinA);
        Matrix44 operator*(const Matrix44& o) const;
        // The inverse, or the identity when the matrix is singular or not finite.
        Matrix44 Inverse() const;
        // The same for a plane transform (z and the last row untouched), in closed form;
        // any other matrix takes the general way.
        Matrix44 InversePlane() const;
        Vec2 TransformPoint(float x, float y) const;
    };

    enum Direction : unsigned int
    {
        eHorizontal = 0,
        eVertical = 1,
    };

    enum Alignment : unsigned int
    {
        eLeftTop = 0,
        eMiddle = 1,
        eRightBottom = 2,
    };

    const char* DirectionToWord(Direction d);
    // An unknown word reads as VERTICAL.
    Direction DirectionFromWord(const char* word);
    const char* AlignmentToWord(Alignment a);
    // An unknown word reads as RIGHT_BOTTOM.
    Alignment AlignmentFromWord(const char* word);

    // Pixel snapping of absolute values: the floor, or the ceiling when the fraction is
    // above one half, so that exactly .5 goes down.
    inline float RoundToPixel(float v)
    {
        const float f = std::floor(v);
        return (v - f > 0.5f) ? std::ceil(v) : f;
    }

    // Default state names every object knows.
    inline constexpr const char* kEnabledState = "EnabledState";
    inline constexpr const char* kDisabledState = "DisabledState";
    inline constexpr const char* kPointedState = "PointedState";
    inline constexpr const char* kFocusedState = "FocusedState";

    // Fixed limits of the object model.
    inline constexpr unsigned int kNameCapacity = 64;   // state, event and pointer-state names
    inline constexpr unsigned int kPathCapacity = 512;  // full object path, terminator included
    inline constexpr unsigned int kMaxChildren = 512;
    inline constexpr unsigned int kMaxSubObjs = 128;
    inline constexpr unsigned int kMaxUpdaters = 128;
    inline constexpr unsigned int kMaxEvents = 20;
    inline constexpr unsigned int kMaxCallbacks = 5;
    inline constexpr unsigned int kMaxDeclaredNames = 128;
}
