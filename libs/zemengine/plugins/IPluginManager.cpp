#include "zemengine/plugins/IPluginManager.h"

#include "common/utils/Hash.h"

namespace ZemEngine
{
    unsigned int IPluginManager::GetNameId(const char* name) { return GenerateUIntIdFromString(name); }

    CustomNodeHeaderDesc IPluginManager::GetCustomNodeHeaderDesc(unsigned int index) const
    {
        PluginBuilder* builder = GetNodeBuilderAt(index);
        if (builder && builder->GetDesc()) return builder->GetDesc()->m_kHeader;
        CustomNodeHeaderDesc empty;
        empty.m_uMode = 0;
        return empty;
    }

    ZemRenderer::TArray<CustomNodePropertyDesc> IPluginManager::GetCustomNodeDesc(unsigned int index) const
    {
        PluginBuilder* builder = GetNodeBuilderAt(index);
        if (builder && builder->GetDesc()) return builder->GetDesc()->m_aProperties;
        return {};
    }

    ZemRenderer::TArray<Common::String> IPluginManager::GetCustomNodeDependencies(unsigned int index) const
    {
        PluginBuilder* builder = GetNodeBuilderAt(index);
        if (builder && builder->GetDesc()) return builder->GetDesc()->m_aDependencies;
        return {};
    }
}
