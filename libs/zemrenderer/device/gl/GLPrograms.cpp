#include "zemrenderer/device/gl/GLPrograms.h"

namespace ZemRenderer::GL
{
    namespace
    {
        const char* const kPrimitiveVertex = R"(#version 450 core
layout(location = 0) in vec3 aPosition;
layout(location = 1) in vec4 aColour;
layout(location = 0) out vec4 vColour;
void main()
{
    gl_Position = vec4(aPosition, 1.0);
    vColour = aColour;
}
)";
        // The same colour into every bound target.
        const char* const kPrimitiveFragment = R"(#version 450 core
layout(location = 0) in vec4 vColour;
layout(location = 0) out vec4 oColour0;
layout(location = 1) out vec4 oColour1;
layout(location = 2) out vec4 oColour2;
layout(location = 3) out vec4 oColour3;
void main()
{
    oColour0 = vColour;
    oColour1 = vColour;
    oColour2 = vColour;
    oColour3 = vColour;
}
)";
        // Pixels with a top-left origin to clip space with y up.
        const char* const kTextVertex = R"(#version 450 core
layout(std140, binding = 0) uniform TextConstants { vec4 uTarget; vec4 uColour; };
layout(location = 0) in vec2 aPixel;
layout(location = 1) in vec2 aUV;
layout(location = 0) out vec2 vUV;
void main()
{
    gl_Position = vec4(aPixel.x * uTarget.z * 2.0 - 1.0, 1.0 - aPixel.y * uTarget.w * 2.0, 0.0, 1.0);
    vUV = aUV;
}
)";
        const char* const kTextFragment = R"(#version 450 core
layout(std140, binding = 0) uniform TextConstants { vec4 uTarget; vec4 uColour; };
layout(binding = 0) uniform sampler2D tGlyphs;
layout(location = 0) in vec2 vUV;
layout(location = 0) out vec4 oColour;
void main() { oColour = vec4(uColour.rgb, uColour.a * texture(tGlyphs, vUV).r); }
)";

        GLuint Compile(GLenum stage, const char* source, std::string& log)
        {
            GLuint shader = glCreateShader(stage);
            glShaderSource(shader, 1, &source, nullptr);
            glCompileShader(shader);
            GLint ok = 0;
            glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
            if (!ok)
            {
                char text[1024] = {};
                glGetShaderInfoLog(shader, sizeof(text), nullptr, text);
                log = text;
                glDeleteShader(shader);
                return 0;
            }
            return shader;
        }

        GLuint Link(const char* vertex, const char* fragment, std::string& log)
        {
            GLuint vs = Compile(GL_VERTEX_SHADER, vertex, log);
            GLuint fs = vs ? Compile(GL_FRAGMENT_SHADER, fragment, log) : 0;
            if (!fs)
            {
                if (vs) glDeleteShader(vs);
                return 0;
            }
            GLuint program = glCreateProgram();
            glAttachShader(program, vs);
            glAttachShader(program, fs);
            glLinkProgram(program);
            glDetachShader(program, vs);
            glDetachShader(program, fs);
            glDeleteShader(vs);
            glDeleteShader(fs);
            GLint ok = 0;
            glGetProgramiv(program, GL_LINK_STATUS, &ok);
            if (!ok)
            {
                char text[1024] = {};
                glGetProgramInfoLog(program, sizeof(text), nullptr, text);
                log = text;
                glDeleteProgram(program);
                return 0;
            }
            return program;
        }
    }

    GLuint CreateUserPrimitiveProgram(std::string& log) { return Link(kPrimitiveVertex, kPrimitiveFragment, log); }
    GLuint CreateTextProgram(std::string& log) { return Link(kTextVertex, kTextFragment, log); }
}
