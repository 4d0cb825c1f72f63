#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "zemengine/engine/NetFrame.h"
#include "zemengine/engine/tests/TestServer.h"

using namespace ZemEngine;

namespace
{
    // Hands out a byte string at most `chunk` bytes per read.
    class CMemorySource : public IByteSource
    {
    public:
        CMemorySource(std::string bytes, size_t chunk) : m_szBytes(std::move(bytes)), m_uChunk(chunk) {}
        int ReadSome(void* buffer, int size) override
        {
            const size_t n = std::min({m_uChunk, static_cast<size_t>(size), m_szBytes.size() - m_uAt});
            std::memcpy(buffer, m_szBytes.data() + m_uAt, n);
            m_uAt += n;
            ++m_iReads;
            return static_cast<int>(n);
        }
        int m_iReads = 0;

    private:
        std::string m_szBytes;
        size_t m_uChunk;
        size_t m_uAt = 0;
    };

    std::string Frame(const std::string& body) { return Test::CRawClient::Frame(body); }
    const std::string kGoodbye("\xFF\xFF\xFF\xFF", 4);
}

TEST(FrameReader, SplitsAStreamWhateverTheReadSizes)
{
    const std::string big(200000, 'b');
    const std::string stream = Frame("{\"a\":1}") + Frame("") + Frame(big) + Frame("x") + kGoodbye + Frame("after");
    for (size_t chunk : {size_t(1), size_t(3), size_t(4096), size_t(1) << 20})
    {
        CMemorySource source(stream, chunk);
        CFrameReader reader(&source);
        ASSERT_EQ(reader.Next(), CFrameReader::FrameRead) << chunk;
        EXPECT_EQ(std::string(reader.GetBody(), reader.GetLength()), "{\"a\":1}");
        ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
        EXPECT_EQ(reader.GetLength(), 0u);
        ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
        EXPECT_EQ(std::string(reader.GetBody(), reader.GetLength()), big);
        ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
        EXPECT_EQ(std::string(reader.GetBody(), reader.GetLength()), "x");
        EXPECT_EQ(reader.Next(), CFrameReader::Goodbye);
        ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
        EXPECT_EQ(std::string(reader.GetBody(), reader.GetLength()), "after");
        EXPECT_EQ(reader.Next(), CFrameReader::Ended);
    }
}

TEST(FrameReader, ReadsAheadSoPipelinedFramesCostOneRead)
{
    std::string stream;
    for (int i = 0; i < 100; ++i) stream += Frame("{\"n\":" + std::to_string(i) + "}");
    CMemorySource source(stream, 1 << 20);
    CFrameReader reader(&source);
    ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
    EXPECT_TRUE(reader.HasBufferedFrame());
    for (int i = 1; i < 100; ++i) ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
    EXPECT_FALSE(reader.HasBufferedFrame());
    EXPECT_EQ(source.m_iReads, 1);
}

TEST(FrameReader, StopsAtOversizedLengthsAndCutStreams)
{
    struct Row
    {
        std::string bytes;
        CFrameReader::Result result;
    } rows[] = {
        {std::string("\x01\x00\x00\x04", 4), CFrameReader::TooLarge},  // 64 MiB + 1
        {std::string("\x10\x00", 2), CFrameReader::Ended},
        {Frame("{\"cut\":true}").substr(0, 9), CFrameReader::Ended},
        {"", CFrameReader::Ended},
    };
    for (const Row& row : rows)
    {
        CMemorySource source(row.bytes, 2);
        CFrameReader reader(&source);
        EXPECT_EQ(reader.Next(), row.result);
    }
    // Exactly the limit is still a frame.
    struct CBlankFrame : IByteSource
    {
        size_t left = 4 + kMaxFrameLength;
        int ReadSome(void* buffer, int size) override
        {
            const size_t n = std::min(left, static_cast<size_t>(size));
            std::memset(buffer, ' ', n);
            if (left == 4 + kMaxFrameLength) std::memcpy(buffer, "\x00\x00\x00\x04", 4);
            left -= n;
            return static_cast<int>(n);
        }
    } exact;
    CFrameReader reader(&exact);
    ASSERT_EQ(reader.Next(), CFrameReader::FrameRead);
    EXPECT_EQ(reader.GetLength(), kMaxFrameLength);
}

TEST(FrameReader, AppendFrameWritesLittleEndianLengths)
{
    ZemRenderer::TArray<char> out;
    ASSERT_TRUE(AppendFrame(out, "abc", 3));
    ASSERT_TRUE(AppendFrame(out, "", 0));
    EXPECT_EQ(std::string(out.GetData(), out.GetSize()), std::string("\x03\x00\x00\x00" "abc" "\x00\x00\x00\x00", 11));
    char header[4];
    StoreFrameLength(header, 0x01020304u);
    EXPECT_EQ(LoadFrameLength(header), 0x01020304u);
    EXPECT_EQ(header[0], 0x04);
}
