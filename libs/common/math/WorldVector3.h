#pragma once
// World positions are integers in millionths of a world unit, so that precision is the
// same everywhere in a large world. Float work happens relative to a camera or a link:
// the difference of two world positions is taken in integers and only then converted.
#include <cstdint>

namespace Math
{
    // Three floats relative to a camera or a link.
    struct LocalVector3
    {
        float x = 0.0f;
        float y = 0.0f;
        float z = 0.0f;
    };

    struct WorldVector3
    {
        static constexpr double kUnitsPerWorldUnit = 1e6;

        int64_t x = 0;
        int64_t y = 0;
        int64_t z = 0;

        // Rounds half away from zero, then truncates. Values beyond the range saturate.
        static int64_t FromFloat(double value)
        {
            const double scaled = value * kUnitsPerWorldUnit;
            const double rounded = scaled + (scaled < 0.0 ? -0.5 : 0.5);
            if (!(rounded == rounded)) return 0;
            if (rounded >= 9.2233720368547758e18) return INT64_MAX;
            if (rounded <= -9.2233720368547758e18) return INT64_MIN;
            return static_cast<int64_t>(rounded);
        }
        static float ToFloat(int64_t value) { return static_cast<float>(value) / static_cast<float>(kUnitsPerWorldUnit); }

        static WorldVector3 FromLocal(float fx, float fy, float fz)
        {
            return WorldVector3{FromFloat(fx), FromFloat(fy), FromFloat(fz)};
        }
        static WorldVector3 FromLocal(const LocalVector3& v) { return FromLocal(v.x, v.y, v.z); }

        // This position seen from `origin`, in floats.
        LocalVector3 RelativeTo(const WorldVector3& origin) const
        {
            return LocalVector3{ToFloat(Sub(x, origin.x)), ToFloat(Sub(y, origin.y)), ToFloat(Sub(z, origin.z))};
        }
        LocalVector3 ToLocal() const { return LocalVector3{ToFloat(x), ToFloat(y), ToFloat(z)}; }

        // Adds a float offset, converted to millionths first.
        WorldVector3 Offset(const LocalVector3& delta) const
        {
            return WorldVector3{Add(x, FromFloat(delta.x)), Add(y, FromFloat(delta.y)), Add(z, FromFloat(delta.z))};
        }

        WorldVector3 operator+(const WorldVector3& o) const { return WorldVector3{Add(x, o.x), Add(y, o.y), Add(z, o.z)}; }
        WorldVector3 operator-(const WorldVector3& o) const { return WorldVector3{Sub(x, o.x), Sub(y, o.y), Sub(z, o.z)}; }
        bool operator==(const WorldVector3& o) const { return x == o.x && y == o.y && z == o.z; }
        bool operator!=(const WorldVector3& o) const { return !(*this == o); }

    private:
        // Saturating, so that a corrupt position cannot overflow into undefined behaviour.
        static int64_t Add(int64_t a, int64_t b)
        {
            int64_t r;
            if (__builtin_add_overflow(a, b, &r)) return b > 0 ? INT64_MAX : INT64_MIN;
            return r;
        }
        static int64_t Sub(int64_t a, int64_t b)
        {
            int64_t r;
            if (__builtin_sub_overflow(a, b, &r)) return b < 0 ? INT64_MAX : INT64_MIN;
            return r;
        }
    };
}
