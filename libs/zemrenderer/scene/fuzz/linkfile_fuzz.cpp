// Link files from arbitrary bytes: a read either gives a link that writes and reads back
// to the same nodes and blocks, or fails and leaves the link without nodes or blocks.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/scene/Bucket.h"
#include "zemrenderer/scene/Link.h"

using namespace ZemRenderer;

namespace
{
    bool SameBlocks(const Link& a, const Link& b)
    {
        const UserData* x = a.GetUserData();
        const UserData* y = b.GetUserData();
        for (; x && y; x = x->m_pNext, y = y->m_pNext)
            if (x->m_uiTag != y->m_uiTag || x->m_uiSize != y->m_uiSize ||
                (x->m_uiSize && std::memcmp(x->m_pBuffer, y->m_pBuffer, x->m_uiSize) != 0))
                return false;
        return !x && !y;
    }
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Bucket bucket(nullptr, "fuzz");
    Link link(&bucket, "input");
    const uint32_t before = link.GetFlags();
    IOSTreamExistingMemory in(data, size);
    if (!link.Load(in, &bucket))
    {
        if (link.GetNodeCount() || link.GetUserData() || link.GetFlags() != before) std::abort();
        return 0;
    }
    IOSTreamMemory out;
    out.OpenToWrite(nullptr);
    if (!link.Save(out)) std::abort();
    out.SwitchToRead();
    Link copy(&bucket, "copy");
    if (!copy.Load(out, &bucket)) std::abort();
    if (copy.GetNodeCount() != link.GetNodeCount() || !SameBlocks(link, copy) ||
        (copy.GetFlags() & 0x1FF) != (link.GetFlags() & 0x1FF))
        std::abort();
    if (!link.Walk() || !link.IsUnloaded()) std::abort();
    return 0;
}
