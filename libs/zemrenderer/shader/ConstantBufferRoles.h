#pragma once
// The four constant-buffer roles and the register each has across all shaders. Draw code
// binds a role's buffer once for every shader, so every shader must declare a role at the
// same register; the first shader to use a role fixes it. A shader that differs is a
// content error: it is logged and the shader still loads.
#include <mutex>
#include <string_view>

#include "zemrenderer/shader/ShaderTypes.h"

namespace ZemRenderer
{
    class ConstantBufferRoles
    {
    public:
        static constexpr int kRoleCount = 4;
        // Table position: 0 ConstantPerObject, 1 DynamicPerObject, 2 ConstantShared, 3 DynamicShared.
        static const char* RoleName(int role);
        static int RoleOf(std::string_view cbufferName); // -1 for a buffer of no role

        // Checks every stage of every technique; logs each mismatch and returns how many.
        int Check(const CompiledShader& shader, const char* shaderName);
        int RegisterOf(int role) const; // -1 until a shader has used the role

        static ConstantBufferRoles& Process();

    private:
        mutable std::mutex m_mutex;
        int m_registers[kRoleCount] = {-1, -1, -1, -1};
    };
}
