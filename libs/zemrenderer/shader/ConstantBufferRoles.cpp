#include "zemrenderer/shader/ConstantBufferRoles.h"

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    const char* ConstantBufferRoles::RoleName(int role)
    {
        static const char* const kNames[kRoleCount] = {"ConstantPerObject", "DynamicPerObject", "ConstantShared", "DynamicShared"};
        return role >= 0 && role < kRoleCount ? kNames[role] : "";
    }

    int ConstantBufferRoles::RoleOf(std::string_view name)
    {
        for (int r = 0; r < kRoleCount; ++r)
            if (name == RoleName(r)) return r;
        return -1;
    }

    int ConstantBufferRoles::Check(const CompiledShader& shader, const char* shaderName)
    {
        int mismatches = 0;
        std::lock_guard<std::mutex> lock(m_mutex);
        for (const ShaderTechniqueCode& technique : shader.techniques)
            for (const ShaderStageCode& stage : technique.stages)
                for (const ShaderConstantBuffer& cb : stage.constantBuffers)
                {
                    const int role = RoleOf(cb.name);
                    if (role < 0) continue;
                    if (m_registers[role] < 0)
                        m_registers[role] = cb.registerIndex;
                    else if (m_registers[role] != cb.registerIndex)
                    {
                        ++mismatches;
                        Common::Log("Shader %s doesn't have same register index for cbuffer %s is register(b%i) should be register(b%i)\n",
                                    shaderName, cb.name.c_str(), cb.registerIndex, m_registers[role]);
                    }
                }
        return mismatches;
    }

    int ConstantBufferRoles::RegisterOf(int role) const
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return role >= 0 && role < kRoleCount ? m_registers[role] : -1;
    }

    ConstantBufferRoles& ConstantBufferRoles::Process()
    {
        static ConstantBufferRoles s_roles;
        return s_roles;
    }
}
