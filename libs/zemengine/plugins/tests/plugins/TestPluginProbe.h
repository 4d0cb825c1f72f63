#pragma once
// What the test plugin reports about its own copy of the engine, read by the tests
// through its extra export TestPluginProbe. Plain data: both sides see one layout.
namespace ZemEngine::PluginTest
{
    constexpr const char* kNodeName = "TestNode";
    constexpr const char* kStepName = "TestStep";

    struct ProbeState
    {
        // The library's own singletons, as its copy of the code sees them.
        void* pMemoryManager = nullptr;
        void* pEngine = nullptr;
        void* pResolver = nullptr;
        // Code of the library's copy, to compare with the host's.
        void* pfnResolverSetInstance = nullptr;
        void* pfnEngineSetInstance = nullptr;
        int iInitCount = 0;
        int iReleaseCount = 0;
        int iBuildCount = 0;
        int iLastBuildValue = 0;
    };

    // Each step callback appends its mark to the context.
    struct StepLog
    {
        int aMarks[16] = {};
        int iCount = 0;
    };

    // Fills `out`. With `peekMemoryManager`, reads the library's memory manager slot by
    // making the library's own manager if it has none, and destroys that one at once
    // unless it is `host`: the slot must start empty.
    typedef void (*ProbeFunction)(ProbeState* out, bool peekMemoryManager, void* host);
}
