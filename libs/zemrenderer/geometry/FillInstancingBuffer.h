#pragma once
// Fills the instance stream of one instanced draw from a batch of draws over the same
// geometry, each with its user-supplied instances, in the layout the shader expects.
#include <cstdint>

namespace ZemRenderer
{
    class DrawGeometry;
    class InputLayout;
    class UserInstanced;

    struct InstanceBatchEntry
    {
        DrawGeometry* pDraw = nullptr;
        UserInstanced* pInstances = nullptr;
    };

    struct InstancingTarget
    {
        const InputLayout* pShaderLayout = nullptr;
        void* pDest = nullptr;
        uint32_t uiDestSize = 0;
        const char* szShaderName = "";
        // Runs before each entry is copied: a draw's property applies itself there. It must
        // not change how many instances the entry has.
        void (*pfnApply)(void* user, const InstanceBatchEntry& entry) = nullptr;
        void* pApplyUser = nullptr;
    };

    // The number of instances written, or -1 after a report: not indexed, layouts that do
    // not match, a destination too small, or counts that changed while filling.
    int FillInstancingBuffer(const InstanceBatchEntry* batch, uint32_t count, const InstancingTarget& target);
}
