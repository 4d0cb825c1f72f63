#include "zemrenderer/geometry/FillInstancingBuffer.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemrenderer/buffer/InputLayout.h"
#include "zemrenderer/geometry/DrawGeometry.h"
#include "zemrenderer/geometry/Geometry.h"
#include "zemrenderer/geometry/UserInstanced.h"

namespace ZemRenderer
{
    namespace
    {
        // Every element the shader reads is found, of the same size, in the user's layout.
        bool Provides(const InputLayout& user, const InputLayout& shader)
        {
            if (user.IsSameAs(shader)) return true;
            for (uint32_t e = 0; e < shader.GetNumElements(); ++e)
            {
                const InputElementDesc& element = shader.GetElement(e);
                uint32_t index = 0;
                for (uint32_t k = 0; k < e; ++k)
                    if (std::strcmp(shader.GetElement(k).szSemantic, element.szSemantic) == 0) ++index;
                uint32_t size = 0;
                if (user.GetOffsetAndSize(element.szSemantic, size, index) < 0) return false;
                if (size != GetInputElementTypeSize(element.uiType) * element.uiQuantity) return false;
            }
            return true;
        }
    }

    int FillInstancingBuffer(const InstanceBatchEntry* batch, uint32_t count, const InstancingTarget& target)
    {
        if (!ZEM_ASSERT(batch != nullptr && count > 0, "Empty instancing batch")) return -1;
        if (!ZEM_ASSERT(target.pShaderLayout != nullptr && target.pDest != nullptr, "Instance buffer needed")) return -1;
        const char* shader = target.szShaderName ? target.szShaderName : "";
        const Geometry* geometry = batch[0].pDraw ? batch[0].pDraw->GetGeometry() : nullptr;
        if (!ZEM_ASSERT(geometry != nullptr && geometry->IsIndexed(), "Instancing need indexed primitive to work"))
            return -1;
        uint64_t expected = 0;
        for (uint32_t i = 0; i < count; ++i)
        {
            const UserInstanced* data = batch[i].pInstances;
            const InputLayout* layout = data ? data->GetDataLayout() : nullptr;
            if (!ZEM_ASSERT(layout != nullptr && Provides(*layout, *target.pShaderLayout),
                            "UserInstancing layout aren't the same as shader instance layout."))
                return -1;
            expected += data->GetQuantity();
        }
        const uint32_t stride = target.pShaderLayout->GetStride();
        if (!ZEM_ASSERT(expected * stride <= target.uiDestSize, "Buffer too small to store all instance on shader %s.",
                        shader))
            return -1;

        unsigned char* out = static_cast<unsigned char*>(target.pDest);
        uint64_t written = 0;
        for (uint32_t i = 0; i < count; ++i)
        {
            if (target.pfnApply) target.pfnApply(target.pApplyUser, batch[i]);
            const UserInstanced& data = *batch[i].pInstances;
            // What the entry holds now may no longer fit: never past the destination.
            uint32_t quantity = data.GetQuantity();
            if ((written + quantity) * stride > target.uiDestSize)
                quantity = static_cast<uint32_t>(target.uiDestSize / stride - written);
            if (!data.UpdateInstance(out + written * stride, *target.pShaderLayout, 0, quantity)) return -1;
            written += quantity;
        }
        if (!ZEM_ASSERT(written == expected,
                        "Instance number not expected get %u expected %u \n (a property apply called by "
                        "FillInstancingBuffer shouldn't modify quantity) !",
                        static_cast<unsigned>(written), static_cast<unsigned>(expected)))
            return -1;
        return static_cast<int>(written);
    }
}
