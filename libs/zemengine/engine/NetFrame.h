#pragma once
// Frames of the remote command protocol, the same both ways: a 4-byte little-endian
// length, then that many bytes of JSON text. The length 0xFFFFFFFF is the goodbye frame
// (no body), echoed by the host before it closes.
#include <atomic>
#include <cstddef>
#include <cstdint>

#include "common/system/net/TcpSocket.h"
#include "common/utils/TArray.h"

namespace ZemEngine
{
    constexpr uint32_t kGoodbyeFrame = 0xFFFFFFFFu;
    // A larger frame closes the connection: no command comes near it.
    constexpr uint32_t kMaxFrameLength = 64u << 20;

    inline void StoreFrameLength(char* out, uint32_t length)
    {
        out[0] = static_cast<char>(length & 0xFF);
        out[1] = static_cast<char>((length >> 8) & 0xFF);
        out[2] = static_cast<char>((length >> 16) & 0xFF);
        out[3] = static_cast<char>((length >> 24) & 0xFF);
    }
    inline uint32_t LoadFrameLength(const char* in)
    {
        const unsigned char* p = reinterpret_cast<const unsigned char*>(in);
        return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) | (static_cast<uint32_t>(p[2]) << 16) |
               (static_cast<uint32_t>(p[3]) << 24);
    }

    // Appends header and body to `out`, so that a frame leaves in one write.
    bool AppendFrame(ZemRenderer::TArray<char>& out, const char* body, uint32_t length);
    // Sends all of `data`, going on after short sends; false when the socket fails.
    bool SendAll(Common::TcpSocket& socket, const char* data, size_t size);
    // One frame in one write; `scratch` holds it meanwhile.
    bool SendFrame(Common::TcpSocket& socket, const char* body, uint32_t length, ZemRenderer::TArray<char>& scratch);
    bool SendGoodbye(Common::TcpSocket& socket);

    // Where a frame reader takes its bytes from.
    class IByteSource
    {
    public:
        virtual ~IByteSource() = default;
        // Reads up to `size` bytes (size > 0); returns how many, or 0 once the stream is
        // over.
        virtual int ReadSome(void* buffer, int size) = 0;
    };

    // Splits a byte stream into frames. It reads ahead as far as the source gives, so
    // pipelined frames cost one read for many.
    class CFrameReader
    {
    public:
        enum Result
        {
            FrameRead,
            Goodbye,
            Ended,     // the stream ended, possibly in the middle of a frame
            TooLarge,  // a length over the limit: the stream can't be followed any more
        };

        explicit CFrameReader(IByteSource* source, uint32_t maxLength = kMaxFrameLength);
        ~CFrameReader();
        CFrameReader(const CFrameReader&) = delete;
        CFrameReader& operator=(const CFrameReader&) = delete;

        // The next frame. After FrameRead, GetBody/GetLength give it until the next call;
        // after TooLarge, GetLength gives the refused length.
        Result Next();
        const char* GetBody() const { return m_pBody; }
        uint32_t GetLength() const { return m_uLength; }

        // True when the next Next() will not need to read.
        bool HasBufferedFrame() const;

    private:
        bool Fill(size_t needed);
        bool Grow(size_t capacity);

        IByteSource* m_pSource;
        uint32_t m_uMaxLength;
        char* m_pBuffer = nullptr;
        size_t m_uCapacity = 0;
        size_t m_uStart = 0;
        size_t m_uEnd = 0;
        const char* m_pBody = nullptr;
        uint32_t m_uLength = 0;
    };

    // Reads from a socket; a receive time-out only gives `stop` a look.
    class CSocketByteSource : public IByteSource
    {
    public:
        CSocketByteSource(Common::TcpSocket* socket, const std::atomic<bool>* stop = nullptr)
            : m_pSocket(socket), m_pStop(stop)
        {
        }
        int ReadSome(void* buffer, int size) override;
        // Before a read blocks, it looks for data again for up to `us` microseconds,
        // yielding the processor in between: a client that answers at once is read
        // without the sleep and wake-up of a blocking read.
        void SetSpinBeforeBlocking(unsigned int us) { m_uSpinUs = us; }

    private:
        Common::TcpSocket* m_pSocket;
        const std::atomic<bool>* m_pStop;
        unsigned int m_uSpinUs = 0;
    };

    // Client-side reading of one frame with an optional limit on the wait.
    enum class FrameStatus
    {
        Ok,
        Goodbye,
        Timeout,
        Closed,
        TooLarge,
    };

    class IFrameWaitCallback
    {
    public:
        virtual ~IFrameWaitCallback() = default;
        virtual void Update() = 0;
    };

    // Reads one frame into `body` (zero-terminated; its size is the text length).
    // `timeoutMs` 0 waits without limit; a callback is called every few milliseconds
    // while the reply is not there.
    FrameStatus ReceiveFrame(Common::TcpSocket& socket, ZemRenderer::TArray<char>& body, unsigned int timeoutMs,
                             IFrameWaitCallback* callback = nullptr);
}
