#pragma once
// What the load road asks of an asset class T: the type id sent to the data provider,
// the build from the bytes (process thread) and the abort step of a load that will not
// happen. Each loadable class specializes it.
namespace ZemRenderer
{
    class Bucket;
    class IOSTreamBase;

    template <class T>
    struct LoadTraits;
    // static unsigned int TypeId();
    // static bool Load(T& object, IOSTreamBase& stream, Bucket* owner);
    // static void Abort(T* object, Bucket* owner);
}
