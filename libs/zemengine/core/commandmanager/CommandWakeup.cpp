#include "zemengine/core/commandmanager/CommandWakeup.h"

#include <cerrno>
#include <cstdint>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "common/system/debug/Log.h"

namespace ZemEngine
{
    CEventFdWakeup::CEventFdWakeup()
    {
        m_iFd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
        if (m_iFd < 0) Common::ReportError("eventfd", errno);
    }

    CEventFdWakeup::~CEventFdWakeup()
    {
        if (m_iFd >= 0) close(m_iFd);
    }

    void CEventFdWakeup::PostCommandWakeup()
    {
        if (m_iFd < 0) return;
        const uint64_t one = 1;
        ssize_t n;
        while ((n = write(m_iFd, &one, sizeof(one))) < 0 && errno == EINTR)
        {
        }
        // EAGAIN means the counter is saturated: a wake-up is pending anyway.
    }

    bool CEventFdWakeup::Consume()
    {
        if (m_iFd < 0) return false;
        uint64_t count = 0;
        ssize_t n;
        while ((n = read(m_iFd, &count, sizeof(count))) < 0 && errno == EINTR)
        {
        }
        return n == static_cast<ssize_t>(sizeof(count)) && count > 0;
    }

    bool CEventFdWakeup::Wait(int timeoutMs)
    {
        if (m_iFd < 0) return false;
        pollfd p{m_iFd, POLLIN, 0};
        int rc;
        while ((rc = poll(&p, 1, timeoutMs < 0 ? -1 : timeoutMs)) < 0 && errno == EINTR)
        {
        }
        return rc > 0 && Consume();
    }
}
