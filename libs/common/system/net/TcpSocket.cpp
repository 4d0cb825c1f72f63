#include "common/system/net/TcpSocket.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    namespace
    {
        void CloseFd(int& fd)
        {
            if (fd >= 0) close(fd);
            fd = -1;
        }

        bool SetIntOption(int fd, int level, int name, int value)
        {
            return setsockopt(fd, level, name, &value, sizeof(value)) == 0;
        }

        // Dotted IPv4 text to an address; null means address 0.
        bool ParseAddress(const char* address, in_addr& out)
        {
            if (!address)
            {
                out.s_addr = htonl(INADDR_ANY);
                return true;
            }
            return inet_pton(AF_INET, address, &out) == 1;
        }

        bool IsWouldBlock(int error) { return error == EAGAIN || error == EWOULDBLOCK; }
    }

    TcpSocket::~TcpSocket() { Close(); }

    void TcpSocket::Close()
    {
        CloseFd(m_iAcceptedSocket);
        CloseFd(m_iSocket);
        m_iPort = 0;
    }

    void TcpSocket::Shutdown()
    {
        m_bShutDown.store(true, std::memory_order_release);
        if (m_iAcceptedSocket >= 0) shutdown(m_iAcceptedSocket, SHUT_RDWR);
        if (m_iSocket >= 0) shutdown(m_iSocket, SHUT_RDWR);
    }

    bool TcpSocket::OpenHost(int port, const char* address)
    {
        Close();
        m_bClosed = false;
        m_bShutDown.store(false, std::memory_order_release);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        if (port < 0 || port > 65535 || !ParseAddress(address, addr.sin_addr))
        {
            Log("[TcpSocket] : invalid host address %s:%d\n", address ? address : "*", port);
            return false;
        }
        m_iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
        if (m_iSocket < 0)
        {
            ReportError("socket", errno);
            return false;
        }
        const bool result = SetIntOption(m_iSocket, SOL_SOCKET, SO_REUSEADDR, 1) &&
                            SetIntOption(m_iSocket, SOL_SOCKET, SO_KEEPALIVE, 1);
        if (!result)
        {
            Log("[TcpSocket] : set SO_REUSEADDR failed\n");
            ZEM_ASSERT(result, "socket error");
            Close();
            return false;
        }
        if (bind(m_iSocket, reinterpret_cast<sockaddr*>(&addr), sizeof(addr)) != 0)
        {
            Log("Bind socket error : %d \n", errno);
            Close();
            return false;
        }
        sockaddr_in bound{};
        socklen_t length = sizeof(bound);
        if (getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&bound), &length) != 0)
        {
            Log("Get port socket error : %d \n", errno);
            Close();
            return false;
        }
        m_iPort = ntohs(bound.sin_port);
        return true;
    }

    bool TcpSocket::Listen()
    {
        if (listen(m_iSocket, 10) != 0)
        {
            Log("Listen error : %d \n", errno);
            return false;
        }
        return true;
    }

    int TcpSocket::AcceptConnection()
    {
        sockaddr_in peer{};
        socklen_t length = sizeof(peer);
        int fd;
        do
        {
            length = sizeof(peer);
            fd = accept4(m_iSocket, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
        } while (fd < 0 && errno == EINTR);
        if (fd < 0)
        {
            if (!IsWouldBlock(errno) && !m_bShutDown.load(std::memory_order_acquire))
                Log("Accept error : %d \n", errno);
            return -1;
        }
        char text[INET_ADDRSTRLEN] = "?";
        inet_ntop(AF_INET, &peer.sin_addr, text, sizeof(text));
        Log("Connection accepted from %s:%i \n", text, static_cast<int>(ntohs(peer.sin_port)));
        return fd;
    }

    bool TcpSocket::Accept()
    {
        const int fd = AcceptConnection();
        if (fd < 0) return false;
        CloseFd(m_iAcceptedSocket);
        m_iAcceptedSocket = fd;
        m_bClosed = false;
        return true;
    }

    TcpSocket* TcpSocket::AcceptSocket()
    {
        int fd = AcceptConnection();
        if (fd < 0) return nullptr;
        TcpSocket* socket = MEM_NEW(TcpSocket);
        if (!socket)
        {
            CloseFd(fd);
            return nullptr;
        }
        socket->m_iSocket = fd;
        sockaddr_in local{};
        socklen_t length = sizeof(local);
        if (getsockname(fd, reinterpret_cast<sockaddr*>(&local), &length) == 0) socket->m_iPort = ntohs(local.sin_port);
        return socket;
    }

    bool TcpSocket::Connect(int port, const char* address)
    {
        // A socket whose connect failed can't be used again: every attempt starts afresh.
        Close();
        m_bClosed = false;
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(static_cast<uint16_t>(port));
        if (port < 0 || port > 65535 || !ParseAddress(address, addr.sin_addr))
        {
            Log("connect failed with error: %d\n", EINVAL);
            return false;
        }
        m_iSocket = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
        if (m_iSocket < 0)
        {
            Log("connect failed with error: %d\n", errno);
            return false;
        }
        SetIntOption(m_iSocket, SOL_SOCKET, SO_REUSEADDR, 1);
        int rc = connect(m_iSocket, reinterpret_cast<sockaddr*>(&addr), sizeof(addr));
        int error = rc == 0 ? 0 : errno;
        if (error == EINTR)
        {
            // The connection goes on in the background: wait for its outcome.
            pollfd p{m_iSocket, POLLOUT, 0};
            while ((rc = poll(&p, 1, -1)) < 0 && errno == EINTR)
            {
            }
            socklen_t length = sizeof(error);
            if (rc < 0 || getsockopt(m_iSocket, SOL_SOCKET, SO_ERROR, &error, &length) != 0) error = errno;
        }
        if (error != 0 && error != EINPROGRESS && !IsWouldBlock(error))
        {
            Log("connect failed with error: %d\n", error);
            Close();
            return false;
        }
        sockaddr_in local{};
        socklen_t length = sizeof(local);
        if (getsockname(m_iSocket, reinterpret_cast<sockaddr*>(&local), &length) == 0) m_iPort = ntohs(local.sin_port);
        return true;
    }

    int TcpSocket::Send(const void* buffer, int size)
    {
        if (size < 0 || (size > 0 && !buffer))
        {
            Log("Socket send error : %d \n", EINVAL);
            return -1;
        }
        ssize_t n;
        do
        {
            n = send(DataSocket(), buffer, static_cast<size_t>(size), MSG_NOSIGNAL);
        } while (n < 0 && errno == EINTR);
        if (n < 0)
        {
            if (IsWouldBlock(errno)) Log("Socket send error WSAEWOULDBLOCK");
            else Log("Socket send error : %d \n", errno);
            return -1;
        }
        return static_cast<int>(n);
    }

    bool TcpSocket::Receive(void* buffer, int size, int& received) { return ReceiveWith(buffer, size, received, 0); }

    bool TcpSocket::TryReceive(void* buffer, int size, int& received)
    {
        return ReceiveWith(buffer, size, received, MSG_DONTWAIT);
    }

    bool TcpSocket::ReceiveWith(void* buffer, int size, int& received, int flags)
    {
        received = 0;
        if (size <= 0 || !buffer) return size == 0;
        ssize_t n;
        do
        {
            n = recv(DataSocket(), buffer, static_cast<size_t>(size), flags);
        } while (n < 0 && errno == EINTR);
        if (n > 0)
        {
            received = static_cast<int>(n);
            return true;
        }
        if (n == 0)
        {
            Log("Connection closed\n");
            m_bClosed = true;
            return false;
        }
        const int error = errno;
        if (IsWouldBlock(error)) return false;
        m_bClosed = true;
        // A peer that reset or shut down the connection is an ordinary end of it.
        if (error != ECONNRESET && error != ECONNABORTED && error != ESHUTDOWN && error != EPIPE)
            Log("Recv socket error : %d \n", error);
        return false;
    }

    bool TcpSocket::HasData() const
    {
        const int fd = DataSocket();
        if (fd < 0) return false;
        // A closed or failed connection counts as data: the next Receive reports it.
        pollfd p{fd, POLLIN, 0};
        int rc;
        while ((rc = poll(&p, 1, 0)) < 0 && errno == EINTR)
        {
        }
        return rc > 0;
    }

    bool TcpSocket::SetNoDelay(bool enable)
    {
        const int fd = DataSocket();
        return fd >= 0 && SetIntOption(fd, IPPROTO_TCP, TCP_NODELAY, enable ? 1 : 0);
    }

    bool TcpSocket::SetReceiveTimeout(unsigned int ms)
    {
        const int fd = DataSocket();
        if (fd < 0) return false;
        timeval tv{static_cast<time_t>(ms / 1000), static_cast<suseconds_t>((ms % 1000) * 1000)};
        return setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof(tv)) == 0;
    }
}
