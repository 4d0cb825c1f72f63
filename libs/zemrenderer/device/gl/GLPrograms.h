#pragma once
// The device's own GLSL programs: flat-coloured user primitives and screen text.
#include <epoxy/gl.h>

#include <string>

namespace ZemRenderer::GL
{
    // Uniform block of the text program, binding 0, std140.
    struct TextConstants
    {
        float afTarget[4];  // width, height, 1/width, 1/height
        float afColour[4];
    };

    // 0 with the compiler's or linker's words in `log` on failure.
    GLuint CreateUserPrimitiveProgram(std::string& log);
    GLuint CreateTextProgram(std::string& log);
}
