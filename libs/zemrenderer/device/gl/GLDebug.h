#pragma once
// GL errors are never left pending: debug builds (or a debug device) get the driver's
// debug output, and every frame drains glGetError. Both count into one counter that
// tests read.
#include <atomic>
#include <cstdint>

namespace ZemRenderer::GL
{
    // Context current. Errors reported by the driver are logged and counted into `errors`.
    void InstallDebugOutput(std::atomic<uint32_t>* errors);
    void RemoveDebugOutput();
    // Logs and counts every pending error; returns how many there were.
    uint32_t DrainErrors(const char* where, std::atomic<uint32_t>* errors);
}
