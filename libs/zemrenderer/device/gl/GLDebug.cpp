#include "zemrenderer/device/gl/GLDebug.h"

#include <epoxy/gl.h>

#include "common/system/debug/Log.h"

namespace ZemRenderer::GL
{
    namespace
    {
        const char* ErrorText(GLenum error)
        {
            switch (error)
            {
                case GL_INVALID_ENUM: return "GL_INVALID_ENUM";
                case GL_INVALID_VALUE: return "GL_INVALID_VALUE";
                case GL_INVALID_OPERATION: return "GL_INVALID_OPERATION";
                case GL_INVALID_FRAMEBUFFER_OPERATION: return "GL_INVALID_FRAMEBUFFER_OPERATION";
                case GL_OUT_OF_MEMORY: return "GL_OUT_OF_MEMORY";
                case GL_STACK_OVERFLOW: return "GL_STACK_OVERFLOW";
                case GL_STACK_UNDERFLOW: return "GL_STACK_UNDERFLOW";
                default: return "unknown GL error";
            }
        }

        void GLAPIENTRY OnDebugMessage(GLenum, GLenum type, GLuint id, GLenum severity, GLsizei, const GLchar* message,
                                       const void* user)
        {
            // Performance and portability notes of the driver are not faults.
            if (type != GL_DEBUG_TYPE_ERROR && type != GL_DEBUG_TYPE_UNDEFINED_BEHAVIOR) return;
            Common::Log("GL error (id %u, severity 0x%x): %s\n", id, severity, message);
            auto* errors = static_cast<std::atomic<uint32_t>*>(const_cast<void*>(user));
            if (errors) errors->fetch_add(1, std::memory_order_relaxed);
        }
    }

    void InstallDebugOutput(std::atomic<uint32_t>* errors)
    {
        glEnable(GL_DEBUG_OUTPUT);
        glEnable(GL_DEBUG_OUTPUT_SYNCHRONOUS);
        glDebugMessageCallback(&OnDebugMessage, errors);
        glDebugMessageControl(GL_DONT_CARE, GL_DONT_CARE, GL_DONT_CARE, 0, nullptr, GL_TRUE);
    }

    void RemoveDebugOutput()
    {
        glDebugMessageCallback(nullptr, nullptr);
        glDisable(GL_DEBUG_OUTPUT);
    }

    uint32_t DrainErrors(const char* where, std::atomic<uint32_t>* errors)
    {
        uint32_t count = 0;
        // A lost context keeps answering; 32 is more than any real backlog.
        for (GLenum error = glGetError(); error != GL_NO_ERROR && count < 32; error = glGetError())
        {
            Common::Log("GL error after %s: %s (0x%x)\n", where, ErrorText(error), error);
            ++count;
        }
        if (count && errors) errors->fetch_add(count, std::memory_order_relaxed);
        return count;
    }
}
