// Engine files from arbitrary bytes: a read either builds a graph that writes and reads
// back to the same bytes count, or fails and leaves nothing behind.
#include <cstdint>
#include <cstdlib>

#include "zemrenderer/io/IOSTreamExistingMemory.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/serialization/tests/SerializationTestTypes.h"

using namespace ZemRenderer;
using namespace ZemRenderer::SerializationTest;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool s_bRegistered = (RegisterTestClasses(), true);
    (void)s_bRegistered;

    SerializationManager manager;
    manager.SetKeepObjects(true);
    Graph graph;
    IOSTreamExistingMemory in(data, size);
    if (!manager.ReadObject(in, graph))
    {
        if (graph.pFirst || graph.pLeaves || graph.pShape || graph.szName || graph.pBytes) std::abort();
        return 0;
    }
    // A graph that was read must write again, and read back.
    IOSTreamMemory out;
    out.OpenToWrite(nullptr);
    if (!SerializationManager::WriteFile(out, graph, false)) std::abort();
    out.SwitchToRead();
    SerializationManager again;
    again.SetKeepObjects(true);
    Graph copy;
    if (!again.ReadObject(out, copy)) std::abort();
    if (copy.uiId != graph.uiId || copy.uiLeafCount != graph.uiLeafCount || copy.uiByteCount != graph.uiByteCount)
        std::abort();
    again.ReleaseObjects();
    manager.ReleaseObjects();
    return 0;
}
