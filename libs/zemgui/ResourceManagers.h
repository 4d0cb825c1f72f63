#pragma once
// The managers of the GUI's textures, images and fonts. The system owns one of each, made
// in its order; what they hold comes with the GUI's resources.
namespace ZemGui
{
    class TextureManager
    {
    public:
        TextureManager() = default;
        ~TextureManager() = default;
    };

    class ImageManager
    {
    public:
        ImageManager() = default;
        ~ImageManager() = default;
    };

    class FontManager
    {
    public:
        FontManager() = default;
        ~FontManager() = default;
    };
}
