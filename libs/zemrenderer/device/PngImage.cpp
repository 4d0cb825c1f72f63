#include "zemrenderer/device/PngImage.h"

#include <png.h>
#include <zlib.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/system/debug/Log.h"

namespace ZemRenderer
{
    namespace
    {
        // Larger pictures are refused before a byte is allocated for them.
        constexpr uint32_t kMaxSide = 16384;

        struct FileCloser
        {
            void operator()(FILE* f) const { std::fclose(f); }
        };

        void OnPngError(png_structp png, png_const_charp message)
        {
            auto* text = static_cast<std::string*>(png_get_error_ptr(png));
            if (text) *text = message;
            png_longjmp(png, 1);
        }
        void OnPngWarning(png_structp, png_const_charp) {}

        struct MemoryReader
        {
            const uint8_t* pData;
            size_t uSize;
            size_t uPos;
        };

        void ReadFromMemory(png_structp png, png_bytep out, png_size_t length)
        {
            auto* reader = static_cast<MemoryReader*>(png_get_io_ptr(png));
            if (length > reader->uSize - reader->uPos) png_error(png, "truncated PNG data");
            std::memcpy(out, reader->pData + reader->uPos, length);
            reader->uPos += length;
        }

        void ReadFromFile(png_structp png, png_bytep out, png_size_t length)
        {
            if (std::fread(out, 1, length, static_cast<FILE*>(png_get_io_ptr(png))) != length)
                png_error(png, "truncated PNG file");
        }

        // `source` is a FILE* or a MemoryReader*, read by `reader`.
        bool Decode(void* source, png_rw_ptr reader, RgbaImage& out, std::string& error)
        {
            png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &error, &OnPngError, &OnPngWarning);
            png_infop info = png ? png_create_info_struct(png) : nullptr;
            if (!info)
            {
                if (png) png_destroy_read_struct(&png, nullptr, nullptr);
                error = "out of memory";
                return false;
            }
            // Volatile: its value must survive the long jump of an error.
            std::vector<png_bytep>* volatile rows = new std::vector<png_bytep>();
            bool ok = false;
            if (setjmp(png_jmpbuf(png)) == 0)
            {
                png_set_read_fn(png, source, reader);
                png_read_info(png, info);
                const png_uint_32 width = png_get_image_width(png, info);
                const png_uint_32 height = png_get_image_height(png, info);
                if (width == 0 || height == 0 || width > kMaxSide || height > kMaxSide)
                    png_error(png, "image size out of range");
                png_set_expand(png);
                png_set_strip_16(png);
                png_set_gray_to_rgb(png);
                png_set_add_alpha(png, 0xFF, PNG_FILLER_AFTER);
                png_set_interlace_handling(png);
                png_read_update_info(png, info);
                if (png_get_rowbytes(png, info) != size_t(width) * 4) png_error(png, "unexpected row size");
                out.uWidth = width;
                out.uHeight = height;
                out.aPixels.assign(size_t(width) * height * 4, 0);
                rows->resize(height);
                for (png_uint_32 y = 0; y < height; ++y) (*rows)[y] = &out.aPixels[size_t(y) * width * 4];
                png_read_image(png, rows->data());
                png_read_end(png, nullptr);
                ok = true;
            }
            delete rows;
            png_destroy_read_struct(&png, &info, nullptr);
            if (!ok)
            {
                out = RgbaImage{};
                if (error.empty()) error = "not a PNG";
            }
            return ok;
        }
    }

    bool WritePng(const char* path, const uint8_t* rgba, uint32_t width, uint32_t height, uint32_t stride)
    {
        if (!path || !rgba || width == 0 || height == 0) return false;
        if (!stride) stride = width * 4;
        std::unique_ptr<FILE, FileCloser> file(std::fopen(path, "wb"));
        if (!file)
        {
            Common::Log("Cannot write image %s: %s\n", path, std::strerror(errno));
            return false;
        }
        std::string error;
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &error, &OnPngError, &OnPngWarning);
        png_infop info = png ? png_create_info_struct(png) : nullptr;
        if (!info)
        {
            if (png) png_destroy_write_struct(&png, nullptr);
            return false;
        }
        bool ok = false;
        if (setjmp(png_jmpbuf(png)) == 0)
        {
            png_init_io(png, file.get());
            // Screenshots are taken while frames run: speed over size. The "up" filter
            // alone keeps most of the gain on rendered pictures at a fraction of the cost.
            png_set_compression_level(png, Z_BEST_SPEED);
            png_set_filter(png, PNG_FILTER_TYPE_BASE, PNG_FILTER_UP);
            png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
                         PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
            png_write_info(png, info);
            for (uint32_t y = 0; y < height; ++y) png_write_row(png, rgba + size_t(y) * stride);
            png_write_end(png, nullptr);
            ok = true;
        }
        png_destroy_write_struct(&png, &info);
        if (!ok) Common::Log("Cannot write image %s: %s\n", path, error.c_str());
        return ok && std::fflush(file.get()) == 0;
    }

    bool ReadPng(const char* path, RgbaImage& out, std::string* error)
    {
        std::string text;
        std::unique_ptr<FILE, FileCloser> file(path ? std::fopen(path, "rb") : nullptr);
        if (!file)
        {
            if (error) *error = std::string("cannot open ") + (path ? path : "(null)");
            return false;
        }
        const bool ok = Decode(file.get(), &ReadFromFile, out, text);
        if (error) *error = text;
        return ok;
    }

    bool ReadPngMemory(const uint8_t* data, size_t size, RgbaImage& out, std::string* error)
    {
        std::string text;
        MemoryReader reader{data, size, 0};
        const bool ok = data && Decode(&reader, &ReadFromMemory, out, text);
        if (error) *error = data ? text : "no data";
        return ok;
    }
}
