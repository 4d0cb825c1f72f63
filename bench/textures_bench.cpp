// Texture files read into update buffers by the texture reader, against read(2) of the
// same files in one thread: uncompressed (BGRA8) and block (BC3) files of 1, 16 and
// 64 MB. The reader's road is the engine's: the whole file into a memory stream, then a
// whole load into one update buffer. Also: a mip range against the whole file, and a
// rectangle of a tiled file against the same rectangle of an untiled one.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamDisk.h"
#include "zemrenderer/io/IOSTreamMemory.h"
#include "zemrenderer/texture/TextureReader.h"
#include "zemrenderer/texture/TextureTiling.h"

using namespace ZemRenderer;

namespace
{
    // A commit that drops the buffer: the device's share is not measured here.
    class DropTarget : public ITextureUpdateTarget
    {
    public:
        bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool) override
        {
            benchmark::DoNotOptimize(buffer->GetData()[buffer->GetUsed() - 1]);
            MEM_DELETE(buffer);
            return true;
        }
    };

    // Buffers go back to a pool after the commit, as they do after an upload.
    class PoolTarget : public ITextureUpdateTarget
    {
    public:
        TextureUpdateBuffer* AcquireUpdateBuffer(size_t bytes) override { return m_kPool.Acquire(bytes); }
        bool Commit(TextureInfo&, TextureUpdateBuffer* buffer, bool) override
        {
            benchmark::DoNotOptimize(buffer->GetData()[buffer->GetUsed() - 1]);
            m_kPool.Give(buffer);
            return true;
        }
        void Discard(TextureUpdateBuffer* buffer) override { m_kPool.Give(buffer); }

    private:
        TextureUpdateBufferPool m_kPool;
    };

    // A texture file of `format` at `width` x `height`, mips as asked, made once per process.
    std::string MakeFile(uint32_t width, uint32_t height, uint32_t format, bool mips, bool tiled = false)
    {
        const std::string path = (std::filesystem::temp_directory_path() /
                                  ("zem_texbench_" + std::to_string(width) + "x" + std::to_string(height) + "_" +
                                   std::to_string(format) + (mips ? "_m" : "") + (tiled ? "_t" : "") + ".dds"))
                                     .string();
        if (std::filesystem::exists(path)) return path;
        DdsWriteDesc desc;
        desc.uWidth = width;
        desc.uHeight = height;
        desc.uFormat = format;
        desc.bTiled = tiled;
        desc.uMips = 1;
        if (mips)
            for (uint32_t s = std::max(width, height); s > 1; s >>= 1) ++desc.uMips;
        std::vector<uint8_t> file(Dds::kHeaderSize);
        EncodeDdsHeader(desc, file.data());
        const TextureFormatInfo& f = *FindTextureFormat(format);
        std::mt19937 random(width * 31 + format);
        uint32_t w = width, h = height;
        for (uint32_t m = 0; m < desc.uMips; ++m)
        {
            std::vector<uint8_t> rows(TextureReader::ComputeMipSize(w, h, 1, f));
            for (auto& b : rows) b = static_cast<uint8_t>(random());
            if (tiled)
            {
                std::vector<uint8_t> t(rows.size());
                TileMip(rows.data(), t.data(), w, h, 1, f);
                rows.swap(t);
            }
            file.insert(file.end(), rows.begin(), rows.end());
            w = std::max(w / 2, 1u), h = std::max(h / 2, 1u);
        }
        FILE* out = fopen((path + ".part").c_str(), "wb");
        fwrite(file.data(), 1, file.size(), out);
        fclose(out);
        std::filesystem::rename(path + ".part", path);
        return path;
    }

    // Edge of a square texture of `megabytes` MB in `format` (no mips).
    uint32_t EdgeFor(int megabytes, uint32_t format)
    {
        const uint32_t bits = FindTextureFormat(format)->uBitsPerPixel;
        const uint64_t texels = uint64_t(megabytes) * 1024 * 1024 * 8 / bits;
        uint32_t edge = 1;
        while (uint64_t(edge) * edge < texels) edge *= 2;
        return edge;
    }

    // Rectangular when the size is not a square of a power of two.
    std::string FileFor(int megabytes, uint32_t format)
    {
        const uint32_t bits = FindTextureFormat(format)->uBitsPerPixel;
        const uint64_t texels = uint64_t(megabytes) * 1024 * 1024 * 8 / bits;
        const uint32_t edge = EdgeFor(megabytes, format);
        const uint32_t height = static_cast<uint32_t>(texels / edge);
        return MakeFile(edge, height, format, false);
    }

    void ReadWithSyscall(benchmark::State& state, const std::string& path)
    {
        const size_t size = std::filesystem::file_size(path);
        std::vector<uint8_t> buffer(size);
        for (auto _ : state)
        {
            const int fd = open(path.c_str(), O_RDONLY);
            size_t done = 0;
            while (done < size)
            {
                const ssize_t n = read(fd, buffer.data() + done, size - done);
                if (n <= 0) break;
                done += static_cast<size_t>(n);
            }
            close(fd);
            benchmark::DoNotOptimize(buffer.data());
            if (done != size) state.SkipWithError("short read");
        }
        state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
    }

    void ReadWithReader(benchmark::State& state, const std::string& path)
    {
        const size_t size = std::filesystem::file_size(path);
        PoolTarget target;
        for (auto _ : state)
        {
            IOSTreamMemory stream;
            TextureInfo texture;
            if (!stream.OpenToRead(path.c_str()) || !TextureReader::LoadTexture(&texture, &stream, {}, target))
                state.SkipWithError("load failed");
        }
        state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
    }

    // The reader straight on a disk stream: one copy, from the file into the update buffer.
    void ReadWithReaderFromDisk(benchmark::State& state, const std::string& path)
    {
        const size_t size = std::filesystem::file_size(path);
        PoolTarget target;
        for (auto _ : state)
        {
            IOSTreamDisk stream;
            TextureInfo texture;
            if (!stream.OpenToRead(path.c_str()) || !TextureReader::LoadTexture(&texture, &stream, {}, target))
                state.SkipWithError("load failed");
        }
        state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
    }

    void BM_ReadSyscall_BGRA8(benchmark::State& s) { ReadWithSyscall(s, FileFor(int(s.range(0)), TFMT_BGRA8)); }
    void BM_TextureReader_BGRA8(benchmark::State& s) { ReadWithReader(s, FileFor(int(s.range(0)), TFMT_BGRA8)); }
    void BM_ReadSyscall_BC3(benchmark::State& s) { ReadWithSyscall(s, FileFor(int(s.range(0)), TFMT_LIN_BC3)); }
    void BM_TextureReader_BC3(benchmark::State& s) { ReadWithReader(s, FileFor(int(s.range(0)), TFMT_LIN_BC3)); }
    void BM_TextureReaderDisk_BGRA8(benchmark::State& s) { ReadWithReaderFromDisk(s, FileFor(int(s.range(0)), TFMT_BGRA8)); }
    void BM_TextureReaderDisk_BC3(benchmark::State& s) { ReadWithReaderFromDisk(s, FileFor(int(s.range(0)), TFMT_LIN_BC3)); }
    BENCHMARK(BM_TextureReaderDisk_BGRA8)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
    BENCHMARK(BM_TextureReaderDisk_BC3)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
    BENCHMARK(BM_ReadSyscall_BGRA8)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
    BENCHMARK(BM_TextureReader_BGRA8)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
    BENCHMARK(BM_ReadSyscall_BC3)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();
    BENCHMARK(BM_TextureReader_BC3)->Arg(1)->Arg(16)->Arg(64)->Unit(benchmark::kMillisecond)->UseRealTime();

    // The file already in memory, as the process thread has it: the whole file against
    // mips 2 and up (a sixteenth of it) and the one mip 1.
    void BM_MipRange(benchmark::State& state)
    {
        const std::string path = MakeFile(4096, 4096, TFMT_LIN_BC3, true);
        IOSTreamMemory stream;
        stream.OpenToRead(path.c_str());
        DropTarget target;
        TextureLoadParams params;
        params.uFirstMip = static_cast<uint32_t>(state.range(0));
        params.uLastMip = static_cast<uint32_t>(state.range(1));
        size_t bytes = 0;
        for (auto _ : state)
        {
            stream.Rewind();
            TextureInfo texture;
            if (!TextureReader::LoadTexture(&texture, &stream, params, target)) state.SkipWithError("load failed");
            bytes = texture.uSize;
        }
        state.counters["mips"] = double(state.range(1) ? state.range(1) - state.range(0) + 1 : 13 - state.range(0));
        (void)bytes;
    }
    BENCHMARK(BM_MipRange)->Args({0, 0})->Args({2, 0})->Args({1, 1})->Unit(benchmark::kMicrosecond);

    // A 512x512 rectangle of a 4096x4096 BC1 texture, into a texture that exists.
    void BM_RectangleUpdate(benchmark::State& state)
    {
        const bool tiled = state.range(0) != 0;
        const std::string path = MakeFile(4096, 4096, TFMT_LIN_BC1, false, tiled);
        IOSTreamMemory stream;
        stream.OpenToRead(path.c_str());
        DropTarget target;
        TextureInfo texture;
        TextureReader::LoadTexture(&texture, &stream, {}, target);
        TextureBox box{1024, 1536, 0, 512, 512, 1};
        TextureLoadParams params;
        params.pSourceBox = &box;
        params.pTargetBox = &box;
        params.bCreate = false;
        for (auto _ : state)
        {
            stream.Rewind();
            if (!TextureReader::LoadTexture(&texture, &stream, params, target)) state.SkipWithError("load failed");
        }
        state.SetBytesProcessed(int64_t(state.iterations()) * 512 * 512 / 2);
    }
    BENCHMARK(BM_RectangleUpdate)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);
}
