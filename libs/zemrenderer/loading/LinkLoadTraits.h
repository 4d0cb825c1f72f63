#pragma once
// Links on the load road: the bytes are a link engine file.
#include "zemrenderer/loading/LoadTraits.h"
#include "zemrenderer/scene/Link.h"

namespace ZemRenderer
{
    template <>
    struct LoadTraits<Link>
    {
        static unsigned int TypeId() { return Link::GetStaticClassId(); }
        static bool Load(Link& link, IOSTreamBase& stream, Bucket* owner) { return link.Load(stream, owner); }
        // The owner's count is the road's; a link that was not read stays as it was.
        static void Abort(Link*, Bucket*) {}
    };
}
