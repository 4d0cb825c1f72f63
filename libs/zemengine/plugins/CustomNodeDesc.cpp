#include "zemengine/plugins/CustomNodeDesc.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemengine/plugins/CustomNodeDescJson.h"

namespace ZemEngine
{
    bool CheckedCopy(char* out, size_t capacity, const char* text)
    {
        out[0] = '\0';
        if (!text) return true;
        const size_t length = std::strlen(text);
        if (!ZEM_ASSERT(length < capacity, "Text of %zu characters does not fit in %zu", length, capacity - 1))
            return false;
        std::memcpy(out, text, length + 1);
        return true;
    }

    bool CustomNodeDesc::AddProperty(const char* type, const char* name, const char* defaultValue, const char* group,
                                     int orderOffset, unsigned int userFlags)
    {
        CustomNodePropertyDesc property;
        if (!CheckedCopy(property.m_szType, CustomNodePropertyDesc::kTextSize, type) ||
            !CheckedCopy(property.m_szName, CustomNodePropertyDesc::kTextSize, name) ||
            !CheckedCopy(property.m_szDefaultValue, CustomNodePropertyDesc::kDefaultValueSize, defaultValue) ||
            !CheckedCopy(property.m_szGroup, CustomNodePropertyDesc::kTextSize, group))
            return false;
        property.m_iOrder = orderOffset + static_cast<int>(m_aProperties.GetSize());
        property.m_uUserFlags = userFlags;
        m_aProperties.Add(property);
        return true;
    }

    bool CustomNodeDesc::AddRenderStep(const char* name, PluginStepCallback callback)
    {
        CustomNodeRenderStepDesc step;
        if (!CheckedCopy(step.m_szName, CustomNodeRenderStepDesc::kNameSize, name)) return false;
        step.m_pfnCallback = callback;
        m_aRenderSteps.Add(step);
        return true;
    }

    bool CustomNodeDesc::AddDependency(const char* text)
    {
        Common::String dependency;
        if (!dependency.Assign(text)) return false;
        m_aDependencies.Add(dependency);
        return true;
    }

    // ---- wire forms -----------------------------------------------------------------

    Json::Value Encode(const CustomNodeHeaderDesc& header, Json::PoolAllocator& a, bool&)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Name", Json::Value(header.m_szName, a), a);
        o.AddMember("Description", Json::Value(header.m_szDescription, a), a);
        o.AddMember("IconPath", Json::Value(header.m_szIconPath, a), a);
        o.AddMember("WatchLabelProperty", Json::Value(header.m_szWatchLabelProperty, a), a);
        Json::Value mode(rapidjson::kArrayType);
        if (header.m_uMode & CustomNodeMode::WorldNode) mode.PushBack(Json::Value("WorldNode"), a);
        if (header.m_uMode & CustomNodeMode::PrefabSocket) mode.PushBack(Json::Value("PrefabSocket"), a);
        o.AddMember("Mode", mode, a);
        return o;
    }

    Json::Value Encode(const CustomNodePropertyDesc& property, Json::PoolAllocator& a, bool&)
    {
        Json::Value o(rapidjson::kObjectType);
        o.AddMember("Name", Json::Value(property.m_szName, a), a);
        o.AddMember("Type", Json::Value(property.m_szType, a), a);
        o.AddMember("Group", Json::Value(property.m_szGroup, a), a);
        if (property.m_szDefaultValue[0] != '\0')
            o.AddMember("DefaultValue", Json::Value(property.m_szDefaultValue, a), a);
        o.AddMember("Order", Json::Value(property.m_iOrder), a);
        o.AddMember("UserFlags", Json::Value(property.m_uUserFlags), a);
        return o;
    }

    template <>
    void JSonParamReader::Write<CustomNodeHeaderDesc>(const char* name, const CustomNodeHeaderDesc& value)
    {
        bool nonFinite = false;
        Json::Value encoded = Encode(value, Allocator(), nonFinite);
        m_kResult.AddMember(Json::Value(name, Allocator()), encoded, Allocator());
    }
}
