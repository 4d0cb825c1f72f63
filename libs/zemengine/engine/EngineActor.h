#pragma once
// What the engine asks of an actor each frame. The actors' state machine builds on this
// base; the engine only owns actors, steps them and deletes them.
#include <cstdint>

namespace ZemEngine
{
    class CActor
    {
    public:
        CActor() = default;
        CActor(const CActor&) = delete;
        CActor& operator=(const CActor&) = delete;
        virtual ~CActor() = default;

        // One fixed step of `stepMs` milliseconds.
        virtual bool FixedUpdate(int64_t stepMs) = 0;
        // One frame of `scaledMs` (scaled) milliseconds.
        virtual bool Update(int64_t scaledMs) = 0;
    };

    // A camera is an actor that a view looks through.
    class CActorCamera : public CActor
    {
    };
}
