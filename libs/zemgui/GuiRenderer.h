#pragma once
// What the GUI asks of a renderer. The system keeps one when it is given one; without
// it everything runs but drawing (tests, tools, a headless engine).
namespace ZemGui
{
    // A loaded shader, opaque to the GUI.
    struct GuiShader;

    class GuiRenderer
    {
    public:
        virtual ~GuiRenderer() = default;
        // Null when the file can't be loaded; the GUI then draws nothing with it.
        virtual GuiShader* LoadShader(const char* file) = 0;
        virtual void ReleaseShader(GuiShader* shader) = 0;
        virtual void BeginMarker(const char* name) = 0;
        virtual void EndMarker() = 0;
    };

    // Sounds the GUI asks for by name; what a sound is belongs to whoever plays them.
    class ISoundPlayer
    {
    public:
        virtual ~ISoundPlayer() = default;
        virtual void Play(const char* name) = 0;
        virtual void Preload(const char* name) = 0;
    };
}
