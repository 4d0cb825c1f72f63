#include "zemrenderer/shader/SpirvToGlsl.h"

#include <algorithm>
#include <cctype>
#include <spirv_cross_c.h>

#include "zemrenderer/shader/ShaderCache.h"

namespace ZemRenderer
{
    namespace
    {
        // Owns a SPIRV-Cross context for the length of one stage.
        struct Context
        {
            spvc_context ctx = nullptr;
            std::string error;
            Context()
            {
                spvc_context_create(&ctx);
                spvc_context_set_error_callback(
                    ctx, [](void* self, const char* e) { static_cast<Context*>(self)->error = e ? e : "unknown error"; }, this);
            }
            ~Context() { spvc_context_destroy(ctx); }
            Context(const Context&) = delete;
            Context& operator=(const Context&) = delete;
        };

        ShaderScalar ScalarOf(spvc_basetype t)
        {
            switch (t)
            {
                case SPVC_BASETYPE_FP32: return ShaderScalar::Float;
                case SPVC_BASETYPE_INT32: return ShaderScalar::Int;
                case SPVC_BASETYPE_UINT32: return ShaderScalar::UInt;
                case SPVC_BASETYPE_BOOLEAN: return ShaderScalar::Bool;
                case SPVC_BASETYPE_STRUCT: return ShaderScalar::Struct;
                default: return ShaderScalar::Other;
            }
        }

        uint32_t ArraySize(spvc_type type)
        {
            const unsigned dims = spvc_type_get_num_array_dimensions(type);
            uint32_t n = dims ? 1 : 0;
            for (unsigned d = 0; d < dims; ++d) n *= spvc_type_get_array_dimension(type, d);
            return n;
        }

        std::vector<spvc_reflected_resource> List(spvc_resources res, spvc_resource_type type)
        {
            const spvc_reflected_resource* list = nullptr;
            size_t count = 0;
            spvc_resources_get_resource_list_for_type(res, type, &list, &count);
            return std::vector<spvc_reflected_resource>(list, list + count);
        }

        std::string Semantic(spvc_compiler comp, SpvId id)
        {
            const char* s = spvc_compiler_get_decoration_string(comp, id, SpvDecorationUserSemantic);
            std::string r = s ? s : "";
            for (char& c : r) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            return r;
        }

        // Locations a varying takes: one per matrix column and array element. The outer
        // array of a geometry shader's input is its vertices, not more locations.
        int Slots(spvc_compiler comp, spvc_type_id typeId, bool perVertexArray)
        {
            spvc_type t = spvc_compiler_get_type_handle(comp, typeId);
            int n = static_cast<int>(std::max(1u, spvc_type_get_columns(t)));
            const unsigned dims = spvc_type_get_num_array_dimensions(t);
            for (unsigned d = perVertexArray ? 1 : 0; d < dims; ++d) n *= static_cast<int>(std::max(1u, spvc_type_get_array_dimension(t, d)));
            return n;
        }

        void AssignVaryings(spvc_compiler comp, const std::vector<spvc_reflected_resource>& vars, bool perVertexArray,
                            TechniqueLinks& links)
        {
            for (const spvc_reflected_resource& v : vars)
            {
                const std::string semantic = Semantic(comp, v.id);
                if (semantic.empty()) continue;
                auto it = links.varyingLocations.find(semantic);
                if (it == links.varyingLocations.end())
                {
                    it = links.varyingLocations.emplace(semantic, links.nextLocation).first;
                    links.nextLocation += Slots(comp, v.type_id, perVertexArray);
                }
                spvc_compiler_set_decoration(comp, v.id, SpvDecorationLocation, static_cast<unsigned>(it->second));
            }
        }

        void SplitSemantic(const std::string& s, ShaderVertexInput& in)
        {
            size_t digits = s.size();
            while (digits > 0 && std::isdigit(static_cast<unsigned char>(s[digits - 1]))) --digits;
            in.semantic = s.substr(0, digits);
            in.semanticIndex = digits < s.size() ? static_cast<uint32_t>(std::stoul(s.substr(digits, 9))) : 0;
        }
    }

    bool SpirvToGlsl(const std::vector<uint32_t>& spirv, ShaderStage stage, TechniqueLinks& links, ShaderStageCode& out,
                     std::string& error)
    {
        Context c;
        spvc_parsed_ir ir = nullptr;
        spvc_compiler comp = nullptr;
        spvc_resources res = nullptr;
        if (spvc_context_parse_spirv(c.ctx, spirv.data(), spirv.size(), &ir) != SPVC_SUCCESS ||
            spvc_context_create_compiler(c.ctx, SPVC_BACKEND_GLSL, ir, SPVC_CAPTURE_MODE_TAKE_OWNERSHIP, &comp) != SPVC_SUCCESS ||
            spvc_compiler_create_shader_resources(comp, &res) != SPVC_SUCCESS)
        {
            error = c.error;
            return false;
        }

        for (const spvc_reflected_resource& ub : List(res, SPVC_RESOURCE_TYPE_UNIFORM_BUFFER))
        {
            ShaderConstantBuffer cb;
            cb.name = ub.name;
            cb.registerIndex = static_cast<int>(spvc_compiler_get_decoration(comp, ub.id, SpvDecorationBinding));
            spvc_type type = spvc_compiler_get_type_handle(comp, ub.base_type_id);
            size_t size = 0;
            spvc_compiler_get_declared_struct_size(comp, type, &size);
            cb.size = static_cast<uint32_t>((size + 15) & ~size_t(15));
            const unsigned members = spvc_type_get_num_member_types(type);
            for (unsigned m = 0; m < members; ++m)
            {
                ShaderConstant k;
                const char* name = spvc_compiler_get_member_name(comp, ub.base_type_id, m);
                k.name = name ? name : "";
                unsigned offset = 0;
                spvc_compiler_type_struct_member_offset(comp, type, m, &offset);
                size_t msize = 0;
                spvc_compiler_get_declared_struct_member_size(comp, type, m, &msize);
                k.offset = offset;
                k.size = static_cast<uint32_t>(msize);
                spvc_type mt = spvc_compiler_get_type_handle(comp, spvc_type_get_member_type(type, m));
                k.scalar = ScalarOf(spvc_type_get_basetype(mt));
                k.vectorSize = static_cast<uint8_t>(spvc_type_get_vector_size(mt));
                k.columns = static_cast<uint8_t>(spvc_type_get_columns(mt));
                k.arraySize = ArraySize(mt);
                cb.members.push_back(std::move(k));
            }
            // GL's uniform-buffer binding is the register, so the same role binds once for
            // every stage.
            spvc_compiler_set_decoration(comp, ub.id, SpvDecorationBinding, static_cast<unsigned>(cb.registerIndex));
            out.constantBuffers.push_back(std::move(cb));
        }

        auto registerOf = [&](SpvId id, uint32_t base) {
            return static_cast<int>(spvc_compiler_get_decoration(comp, id, SpvDecorationBinding)) - static_cast<int>(base);
        };
        for (const spvc_reflected_resource& t : List(res, SPVC_RESOURCE_TYPE_SEPARATE_IMAGE))
            out.resources.push_back({t.name, ShaderResourceKind::Texture, registerOf(t.id, kTextureBindingBase)});
        for (const spvc_reflected_resource& s : List(res, SPVC_RESOURCE_TYPE_SEPARATE_SAMPLERS))
            out.resources.push_back({s.name, ShaderResourceKind::Sampler, registerOf(s.id, kSamplerBindingBase)});
        for (const spvc_reflected_resource& b : List(res, SPVC_RESOURCE_TYPE_STORAGE_BUFFER))
        {
            const uint32_t binding = spvc_compiler_get_decoration(comp, b.id, SpvDecorationBinding);
            const int reg = registerOf(b.id, binding >= kUavBindingBase ? kUavBindingBase : kTextureBindingBase);
            out.resources.push_back({b.name, ShaderResourceKind::StorageBuffer, reg});
            spvc_compiler_set_decoration(comp, b.id, SpvDecorationBinding, static_cast<unsigned>(reg));
        }
        for (const spvc_reflected_resource& img : List(res, SPVC_RESOURCE_TYPE_STORAGE_IMAGE))
        {
            const int reg = registerOf(img.id, kUavBindingBase);
            out.resources.push_back({img.name, ShaderResourceKind::StorageImage, reg});
            spvc_compiler_set_decoration(comp, img.id, SpvDecorationBinding, static_cast<unsigned>(reg));
        }

        if (stage == ShaderStage::Vertex)
        {
            for (const spvc_reflected_resource& v : List(res, SPVC_RESOURCE_TYPE_STAGE_INPUT))
            {
                ShaderVertexInput in;
                SplitSemantic(Semantic(comp, v.id), in);
                in.location = static_cast<int>(spvc_compiler_get_decoration(comp, v.id, SpvDecorationLocation));
                spvc_type t = spvc_compiler_get_type_handle(comp, v.type_id);
                in.scalar = ScalarOf(spvc_type_get_basetype(t));
                in.components = static_cast<uint8_t>(spvc_type_get_vector_size(t));
                out.vertexInputs.push_back(std::move(in));
            }
            AssignVaryings(comp, List(res, SPVC_RESOURCE_TYPE_STAGE_OUTPUT), false, links);
        }
        else if (stage == ShaderStage::Geometry)
        {
            AssignVaryings(comp, List(res, SPVC_RESOURCE_TYPE_STAGE_INPUT), true, links);
            AssignVaryings(comp, List(res, SPVC_RESOURCE_TYPE_STAGE_OUTPUT), false, links);
        }
        else if (stage == ShaderStage::Pixel)
        {
            AssignVaryings(comp, List(res, SPVC_RESOURCE_TYPE_STAGE_INPUT), false, links);
        }
        else
        {
            for (unsigned i = 0; i < 3; ++i)
                out.threadGroupSize[i] = spvc_compiler_get_execution_mode_argument_by_index(comp, SpvExecutionModeLocalSize, i);
        }

        // HLSL keeps textures and samplers apart; GLSL samples through one sampler uniform.
        // A texture read without a sampler gets a stand-in one.
        spvc_variable_id dummy = 0;
        if (spvc_compiler_build_dummy_sampler_for_combined_images(comp, &dummy) != SPVC_SUCCESS ||
            spvc_compiler_build_combined_image_samplers(comp) != SPVC_SUCCESS)
        {
            error = c.error;
            return false;
        }
        const spvc_combined_image_sampler* combined = nullptr;
        size_t combinedCount = 0;
        spvc_compiler_get_combined_image_samplers(comp, &combined, &combinedCount);
        for (size_t i = 0; i < combinedCount; ++i)
        {
            const std::string texture = spvc_compiler_get_name(comp, combined[i].image_id);
            const std::string sampler = combined[i].sampler_id == dummy ? "" : spvc_compiler_get_name(comp, combined[i].sampler_id);
            const auto key = std::make_pair(texture, sampler);
            auto it = links.samplerUnits.find(key);
            if (it == links.samplerUnits.end()) it = links.samplerUnits.emplace(key, static_cast<int>(links.samplerUnits.size())).first;
            spvc_compiler_set_decoration(comp, combined[i].combined_id, SpvDecorationBinding, static_cast<unsigned>(it->second));
            spvc_compiler_set_name(comp, combined[i].combined_id, (sampler.empty() ? texture : texture + "_" + sampler).c_str());
            out.samplerUnits.push_back({texture, sampler, it->second});
        }

        spvc_compiler_options options = nullptr;
        spvc_compiler_create_compiler_options(comp, &options);
        spvc_compiler_options_set_uint(options, SPVC_COMPILER_OPTION_GLSL_VERSION, 450);
        spvc_compiler_options_set_bool(options, SPVC_COMPILER_OPTION_GLSL_ES, SPVC_FALSE);
        spvc_compiler_options_set_bool(options, SPVC_COMPILER_OPTION_GLSL_SEPARATE_SHADER_OBJECTS, SPVC_TRUE);
        // The device keeps D3D's conventions with glClipControl; the code must not.
        spvc_compiler_options_set_bool(options, SPVC_COMPILER_OPTION_FIXUP_DEPTH_CONVENTION, SPVC_FALSE);
        spvc_compiler_options_set_bool(options, SPVC_COMPILER_OPTION_FLIP_VERTEX_Y, SPVC_FALSE);
        // SV_InstanceID counts from 0 in every draw, whatever its first instance; GL's
        // gl_InstanceID does the same, so nothing must add the base instance to it.
        spvc_compiler_options_set_bool(options, SPVC_COMPILER_OPTION_GLSL_SUPPORT_NONZERO_BASE_INSTANCE, SPVC_FALSE);
        spvc_compiler_install_compiler_options(comp, options);

        const char* glsl = nullptr;
        if (spvc_compiler_compile(comp, &glsl) != SPVC_SUCCESS || !glsl)
        {
            error = c.error;
            return false;
        }
        out.glsl = glsl;
        out.blobHash = HashBytes(out.glsl);
        return true;
    }
}
