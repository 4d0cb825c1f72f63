#pragma once
// What a plugin publishes about its custom node: a fixed header, the properties that
// the editing tool builds its property sheet from, the render steps it hooks and the
// libraries it depends on. Texts are fixed arrays with a checked copy: a text that does
// not fit is refused and the field left empty.
#include <cstddef>

#include "common/utils/String.h"
#include "common/utils/TArray.h"

namespace ZemEngine
{
    // Copies `text` into `out` if it fits with its terminator; else empties `out`,
    // reports and returns false. A null text is the empty text.
    bool CheckedCopy(char* out, size_t capacity, const char* text);

    namespace CustomNodeMode
    {
        enum Type : unsigned int
        {
            WorldNode = 1u << 0,
            PrefabSocket = 1u << 1,
        };
    }

    struct CustomNodeHeaderDesc
    {
        static constexpr size_t kTextSize = 127;

        char m_szName[kTextSize] = {};
        char m_szDescription[kTextSize] = {};
        char m_szIconPath[kTextSize] = {};
        char m_szWatchLabelProperty[kTextSize] = {};
        unsigned int m_uMode = CustomNodeMode::WorldNode;

        bool SetName(const char* text) { return CheckedCopy(m_szName, kTextSize, text); }
        bool SetDescription(const char* text) { return CheckedCopy(m_szDescription, kTextSize, text); }
        bool SetIconPath(const char* text) { return CheckedCopy(m_szIconPath, kTextSize, text); }
        bool SetWatchLabelProperty(const char* text) { return CheckedCopy(m_szWatchLabelProperty, kTextSize, text); }
    };
    static_assert(sizeof(CustomNodeHeaderDesc) == 512, "the header is a fixed 512-byte record");

    struct CustomNodePropertyDesc
    {
        static constexpr size_t kTextSize = 127;
        static constexpr size_t kDefaultValueSize = 2048;

        char m_szName[kTextSize] = {};
        char m_szType[kTextSize] = {};
        char m_szGroup[kTextSize] = {};
        // A text that the editing tool evaluates; sent only when not empty.
        char m_szDefaultValue[kDefaultValueSize] = {};
        int m_iOrder = 0;
        unsigned int m_uUserFlags = 0;
    };

    // Called with the step's context (for "PostDeferred", the render flow being built).
    typedef void (*PluginStepCallback)(void* context);

    struct CustomNodeRenderStepDesc
    {
        static constexpr size_t kNameSize = 128;

        char m_szName[kNameSize] = {};
        PluginStepCallback m_pfnCallback = nullptr;

        bool operator==(const CustomNodeRenderStepDesc& other) const = default;
    };

    // One static record per plugin.
    struct CustomNodeDesc
    {
        CustomNodeHeaderDesc m_kHeader;
        ZemRenderer::TArray<CustomNodePropertyDesc> m_aProperties;
        ZemRenderer::TArray<CustomNodeRenderStepDesc> m_aRenderSteps;
        ZemRenderer::TArray<Common::String> m_aDependencies;

        // Order = orderOffset + the number of properties already listed. False (nothing
        // added) when a text does not fit.
        bool AddProperty(const char* type, const char* name, const char* defaultValue, const char* group,
                         int orderOffset, unsigned int userFlags);
        bool AddRenderStep(const char* name, PluginStepCallback callback);
        bool AddDependency(const char* text);
    };
}
