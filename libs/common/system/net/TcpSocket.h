#pragma once
#include <atomic>
// A TCP socket over IPv4: a listening host with the connection it accepted, or a
// client. Blocking unless the caller sets otherwise; not locked, one thread uses a
// socket at a time. Sends never raise SIGPIPE: a vanished peer is an error code.
#include <cstdint>

namespace Common
{
    class TcpSocket
    {
    public:
        TcpSocket() = default;
        ~TcpSocket();
        TcpSocket(const TcpSocket&) = delete;
        TcpSocket& operator=(const TcpSocket&) = delete;

        // Binds `address` (null: every address) on `port` (0: the system picks one).
        bool OpenHost(int port, const char* address = "127.0.0.1");
        // The bound port in host order, 0 without a socket.
        int GetPort() const { return m_iPort; }
        bool Listen();
        // Accepts one connection and keeps it: Send and Receive then use it. An earlier
        // accepted connection is closed.
        bool Accept();
        // Accepts one connection into a new socket that owns it, or null. The caller
        // releases it with MEM_DELETE.
        TcpSocket* AcceptSocket();
        // Connects to `address` (null: address 0) on a fresh socket.
        bool Connect(int port, const char* address);

        // One send; returns the bytes sent (maybe fewer than `size`) or -1.
        int Send(const void* buffer, int size);
        // One receive. False when nothing came: `received` is 0, and IsClosed tells
        // whether the connection is over or there is just no data yet.
        bool Receive(void* buffer, int size, int& received);
        // The same without waiting: false with `received` 0 when no data is there yet.
        bool TryReceive(void* buffer, int size, int& received);
        bool HasData() const;
        bool SetNoDelay(bool enable);
        // Makes a blocking Receive give up after `ms` milliseconds (0: wait forever).
        bool SetReceiveTimeout(unsigned int ms);
        void Close();
        // Wakes every thread blocked in Receive or Accept on this socket (they return
        // as for a closed connection) without freeing the descriptor under them; the
        // owner calls Close once those threads are gone.
        void Shutdown();

        bool IsValid() const { return m_iSocket >= 0; }
        // True once a Receive found the peer gone.
        bool IsClosed() const { return m_bClosed; }

    private:
        int DataSocket() const { return m_iAcceptedSocket >= 0 ? m_iAcceptedSocket : m_iSocket; }
        int AcceptConnection();
        bool ReceiveWith(void* buffer, int size, int& received, int flags);

        int m_iSocket = -1;
        int m_iAcceptedSocket = -1;
        int m_iPort = 0;
        bool m_bClosed = false;
        // Set by Shutdown: the accept that it ends is no error to report.
        std::atomic<bool> m_bShutDown{false};
    };
}
