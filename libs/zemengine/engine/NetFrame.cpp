#include "zemengine/engine/NetFrame.h"

#include <sched.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <cstring>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace ZemEngine
{
    namespace
    {
        constexpr size_t kInitialReadBuffer = 64 * 1024;
        // A buffer grown for a large frame is given back once it is empty again.
        constexpr size_t kKeptReadBuffer = 1024 * 1024;
        constexpr unsigned int kCallbackSliceMs = 10;
    }

    bool AppendFrame(ZemRenderer::TArray<char>& out, const char* body, uint32_t length)
    {
        const unsigned int at = out.GetSize();
        const unsigned long long total = static_cast<unsigned long long>(at) + 4 + length;
        if (total > 0xFFFFFFF0ull || !out.Reserve(static_cast<unsigned int>(total))) return false;
        out.SetSize(static_cast<unsigned int>(total));
        StoreFrameLength(out.GetData() + at, length);
        if (length) std::memcpy(out.GetData() + at + 4, body, length);
        return true;
    }

    bool SendAll(Common::TcpSocket& socket, const char* data, size_t size)
    {
        while (size > 0)
        {
            const int chunk = static_cast<int>(std::min<size_t>(size, INT_MAX));
            const int sent = socket.Send(data, chunk);
            if (sent <= 0) return false;
            data += sent;
            size -= static_cast<size_t>(sent);
        }
        return true;
    }

    bool SendFrame(Common::TcpSocket& socket, const char* body, uint32_t length, ZemRenderer::TArray<char>& scratch)
    {
        scratch.SetSize(0);
        if (!AppendFrame(scratch, body, length)) return false;
        return SendAll(socket, scratch.GetData(), scratch.GetSize());
    }

    bool SendGoodbye(Common::TcpSocket& socket)
    {
        char bytes[4];
        StoreFrameLength(bytes, kGoodbyeFrame);
        return SendAll(socket, bytes, sizeof(bytes));
    }

    // ---- CFrameReader ------------------------------------------------------------

    CFrameReader::CFrameReader(IByteSource* source, uint32_t maxLength) : m_pSource(source), m_uMaxLength(maxLength) {}

    CFrameReader::~CFrameReader() { MEM_FREE(m_pBuffer); }

    bool CFrameReader::Grow(size_t capacity)
    {
        char* block = static_cast<char*>(MEM_ALLOC(capacity));
        if (!ZEM_ASSERT(block != nullptr, "frame buffer of %zu bytes could not be allocated", capacity)) return false;
        if (m_uEnd > m_uStart) std::memcpy(block, m_pBuffer + m_uStart, m_uEnd - m_uStart);
        MEM_FREE(m_pBuffer);
        m_pBuffer = block;
        m_uCapacity = capacity;
        m_uEnd -= m_uStart;
        m_uStart = 0;
        return true;
    }

    bool CFrameReader::Fill(size_t needed)
    {
        while (m_uEnd - m_uStart < needed)
        {
            if (m_uCapacity - m_uStart < needed || m_uEnd == m_uCapacity)
            {
                // Room is made at the front first, then by growing step by step: a large
                // announced length is only paid for as its bytes arrive.
                if (m_uStart > 0 && m_uCapacity >= needed)
                {
                    std::memmove(m_pBuffer, m_pBuffer + m_uStart, m_uEnd - m_uStart);
                    m_uEnd -= m_uStart;
                    m_uStart = 0;
                }
                else
                {
                    const size_t doubled = std::max(kInitialReadBuffer, m_uCapacity * 2);
                    if (!Grow(std::min(doubled, std::max(needed, kInitialReadBuffer)))) return false;
                }
            }
            const size_t room = std::min<size_t>(m_uCapacity - m_uEnd, INT_MAX);
            const int got = m_pSource->ReadSome(m_pBuffer + m_uEnd, static_cast<int>(room));
            if (got <= 0) return false;
            m_uEnd += static_cast<size_t>(got);
        }
        return true;
    }

    CFrameReader::Result CFrameReader::Next()
    {
        m_pBody = nullptr;
        if (m_uStart == m_uEnd)
        {
            m_uStart = m_uEnd = 0;
            if (m_uCapacity > kKeptReadBuffer)
            {
                MEM_FREE(m_pBuffer);
                m_pBuffer = nullptr;
                m_uCapacity = 0;
            }
        }
        if (!Fill(4)) return Ended;
        m_uLength = LoadFrameLength(m_pBuffer + m_uStart);
        if (m_uLength == kGoodbyeFrame)
        {
            m_uStart += 4;
            m_uLength = 0;
            return Goodbye;
        }
        if (m_uLength > m_uMaxLength) return TooLarge;
        if (!Fill(4 + static_cast<size_t>(m_uLength))) return Ended;
        m_pBody = m_pBuffer + m_uStart + 4;
        m_uStart += 4 + static_cast<size_t>(m_uLength);
        return FrameRead;
    }

    bool CFrameReader::HasBufferedFrame() const
    {
        const size_t available = m_uEnd - m_uStart;
        if (available < 4) return false;
        const uint32_t length = LoadFrameLength(m_pBuffer + m_uStart);
        return length == kGoodbyeFrame || length > m_uMaxLength || available - 4 >= length;
    }

    // ---- sockets -----------------------------------------------------------------

    int CSocketByteSource::ReadSome(void* buffer, int size)
    {
        if (m_uSpinUs)
        {
            const auto end = std::chrono::steady_clock::now() + std::chrono::microseconds(m_uSpinUs);
            do
            {
                int received = 0;
                if (m_pSocket->TryReceive(buffer, size, received)) return received;
                if (m_pSocket->IsClosed()) return 0;
                sched_yield();
            } while (std::chrono::steady_clock::now() < end);
        }
        for (;;)
        {
            if (m_pStop && m_pStop->load(std::memory_order_acquire)) return 0;
            int received = 0;
            if (m_pSocket->Receive(buffer, size, received)) return received;
            if (m_pSocket->IsClosed()) return 0;
            // A receive time-out: look at the stop flag and wait again.
        }
    }

    namespace
    {
        typedef std::chrono::steady_clock Clock;

        FrameStatus ReceiveExact(Common::TcpSocket& socket, char* out, size_t size, unsigned int timeoutMs,
                                 Clock::time_point deadline, IFrameWaitCallback* callback)
        {
            size_t got = 0;
            while (got < size)
            {
                unsigned int wait = 0;
                if (timeoutMs)
                {
                    const long long left =
                        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
                    if (left <= 0) return FrameStatus::Timeout;
                    wait = static_cast<unsigned int>(left);
                }
                if (callback) wait = wait ? std::min(wait, kCallbackSliceMs) : kCallbackSliceMs;
                socket.SetReceiveTimeout(wait);
                int received = 0;
                const int chunk = static_cast<int>(std::min<size_t>(size - got, INT_MAX));
                if (socket.Receive(out + got, chunk, received))
                {
                    got += static_cast<size_t>(received);
                    continue;
                }
                if (socket.IsClosed() || !socket.IsValid()) return FrameStatus::Closed;
                if (callback) callback->Update();
            }
            return FrameStatus::Ok;
        }
    }

    FrameStatus ReceiveFrame(Common::TcpSocket& socket, ZemRenderer::TArray<char>& body, unsigned int timeoutMs,
                             IFrameWaitCallback* callback)
    {
        body.SetSize(0);
        const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
        char header[4];
        FrameStatus status = ReceiveExact(socket, header, sizeof(header), timeoutMs, deadline, callback);
        if (status != FrameStatus::Ok) return status;
        const uint32_t length = LoadFrameLength(header);
        if (length == kGoodbyeFrame) return FrameStatus::Goodbye;
        if (length > kMaxFrameLength) return FrameStatus::TooLarge;
        if (!body.Reserve(length + 1)) return FrameStatus::TooLarge;
        body.SetSize(length + 1);
        body[length] = '\0';
        status = ReceiveExact(socket, body.GetData(), length, timeoutMs, deadline, callback);
        body.SetSize(status == FrameStatus::Ok ? length : 0);
        return status;
    }
}
