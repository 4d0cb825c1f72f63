// A byte stream from a client, cut into reads of varying sizes: frames are split and
// executed, and the reader never reports a frame over the limit or past the input.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "zemengine/core/commandmanager/fuzz/FuzzEngine.h"
#include "zemengine/engine/NetFrame.h"

namespace
{
    // Reads of 1 to 256 bytes, sizes taken from the input's first byte onwards.
    class CFuzzSource : public ZemEngine::IByteSource
    {
    public:
        CFuzzSource(const uint8_t* data, size_t size) : m_pData(data), m_uSize(size) {}
        int ReadSome(void* buffer, int room) override
        {
            if (m_uAt >= m_uSize) return 0;
            const size_t step = 1 + (m_pData[m_uStep++ % m_uSize] % 256);
            const size_t n = std::min({step, static_cast<size_t>(room), m_uSize - m_uAt});
            std::memcpy(buffer, m_pData + m_uAt, n);
            m_uAt += n;
            return static_cast<int>(n);
        }
        size_t m_uAt = 0;

    private:
        const uint8_t* m_pData;
        size_t m_uSize;
        size_t m_uStep = 0;
    };
}

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    ZemEngine::Fuzz::SilenceStandardOutput();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    ZemEngine::Fuzz::CFuzzEngine& engine = ZemEngine::Fuzz::CFuzzEngine::Get();
    CFuzzSource source(data, size);
    ZemEngine::CFrameReader reader(&source);
    ZemEngine::CReturnBuffer result;
    ZemRenderer::TArray<char> replies;
    size_t consumed = 0;
    for (;;)
    {
        const ZemEngine::CFrameReader::Result r = reader.Next();
        if (r != ZemEngine::CFrameReader::FrameRead && r != ZemEngine::CFrameReader::Goodbye) break;
        consumed += 4 + reader.GetLength();
        if (consumed > size || reader.GetLength() > ZemEngine::kMaxFrameLength) std::abort();
        if (r == ZemEngine::CFrameReader::Goodbye) continue;
        result.Clear();
        engine.m_kManager.ExecuteJSon(reader.GetBody(), reader.GetLength(), &result);
        if (result.GetLength() && !ZemEngine::AppendFrame(replies, result.GetText(), static_cast<uint32_t>(result.GetLength())))
            std::abort();
    }
    engine.Trim();
    return 0;
}
