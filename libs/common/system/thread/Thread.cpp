#include "common/system/thread/Thread.h"

#include <cerrno>
#include <cstring>
#include <ctime>
#include <pthread.h>
#include <sched.h>
#include <semaphore.h>
#include <sys/resource.h>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"

namespace Common
{
    namespace Posix
    {
        class CThread
        {
        public:
            pthread_t m_kHandle{};
            bool m_bHasHandle = false;
            // Set once a zero-time-out check found the thread finished and reaped it.
            bool m_bJoined = false;
            pid_t m_iThreadId = 0;
            char m_szName[256] = {};
        };
    }

    namespace
    {
        // Nice values of the levels 0..6. Linux lets any thread lower its own priority,
        // but raising it above normal takes a privilege most processes lack.
        constexpr int kNiceOfLevel[] = {-20, -10, -5, 0, 5, 10, 19};
        constexpr int kLevelCount = sizeof(kNiceOfLevel) / sizeof(kNiceOfLevel[0]);

        struct StartInfo
        {
            Common::CThread* pThread;
            const char* szName;
            pid_t iThreadId;
            sem_t kReady;
        };
    }

    CThread::CThread() : m_pThread(MEM_NEW(Posix::CThread)) {}

    CThread::~CThread()
    {
        // A running thread is let go, not ended: its owner should have waited for it.
        ReleaseHandle(false);
        MEM_DELETE(m_pThread);
    }

    void* CThread::Entry(void* startInfo)
    {
        StartInfo* info = static_cast<StartInfo*>(startInfo);
        CThread* self = info->pThread;
        // The system keeps 15 characters of a thread name.
        char shortName[16];
        std::strncpy(shortName, info->szName, sizeof(shortName) - 1);
        shortName[sizeof(shortName) - 1] = '\0';
        pthread_setname_np(pthread_self(), shortName);
        info->iThreadId = gettid();
        // `info` lives on the starter's stack: not touched after this post.
        sem_post(&info->kReady);
        self->Run();
        return nullptr;
    }

    void CThread::ReleaseHandle(bool wait)
    {
        if (!m_pThread || !m_pThread->m_bHasHandle) return;
        if (!m_pThread->m_bJoined)
        {
            if (wait) pthread_join(m_pThread->m_kHandle, nullptr);
            else pthread_detach(m_pThread->m_kHandle);
        }
        m_pThread->m_bHasHandle = false;
        m_pThread->m_bJoined = false;
        m_pThread->m_iThreadId = 0;
    }

    bool CThread::Start(const char* name)
    {
        if (!m_pThread) return false;
        ReleaseHandle(false);
        const char* text = name ? name : "Thread";
        std::strncpy(m_pThread->m_szName, text, sizeof(m_pThread->m_szName) - 1);
        m_pThread->m_szName[sizeof(m_pThread->m_szName) - 1] = '\0';

        StartInfo info{this, m_pThread->m_szName, 0, {}};
        sem_init(&info.kReady, 0, 0);
        const int rc = pthread_create(&m_pThread->m_kHandle, nullptr, &CThread::Entry, &info);
        if (rc != 0)
        {
            sem_destroy(&info.kReady);
            ReportError("pthread_create", rc);
            return false;
        }
        // The id is needed by SetPriority straight after Start.
        while (sem_wait(&info.kReady) != 0 && errno == EINTR)
        {
        }
        sem_destroy(&info.kReady);
        m_pThread->m_iThreadId = info.iThreadId;
        m_pThread->m_bHasHandle = true;
        m_pThread->m_bJoined = false;
        return true;
    }

    void CThread::Stop() { ReleaseHandle(false); }

    bool CThread::IsRunning() const
    {
        if (!m_pThread || !m_pThread->m_bHasHandle) return false;
        if (m_pThread->m_bJoined) return false;
        const int rc = pthread_tryjoin_np(m_pThread->m_kHandle, nullptr);
        if (rc == EBUSY) return true;
        if (rc == 0) m_pThread->m_bJoined = true;
        return false;
    }

    void CThread::Wait()
    {
        if (!m_pThread || !m_pThread->m_bHasHandle) return;
        if (!ZEM_ASSERT(!pthread_equal(m_pThread->m_kHandle, pthread_self()), "A thread cannot wait for itself"))
            return;
        ReleaseHandle(true);
    }

    bool CThread::SetPriority(int level)
    {
        if (level < 0 || level >= kLevelCount) return false;
        if (!IsRunning()) return false;
        if (setpriority(PRIO_PROCESS, static_cast<id_t>(m_pThread->m_iThreadId), kNiceOfLevel[level]) == 0)
            return true;
        // A refused raise leaves the thread where it was; the level is only a hint.
        return errno == EACCES || errno == EPERM;
    }

    int CThread::GetPriority() const
    {
        if (!IsRunning()) return -1;
        errno = 0;
        const int nice = getpriority(PRIO_PROCESS, static_cast<id_t>(m_pThread->m_iThreadId));
        if (nice == -1 && errno != 0) return -1;
        int best = 0;
        for (int level = 1; level < kLevelCount; ++level)
        {
            const int d = nice > kNiceOfLevel[level] ? nice - kNiceOfLevel[level] : kNiceOfLevel[level] - nice;
            const int dBest = nice > kNiceOfLevel[best] ? nice - kNiceOfLevel[best] : kNiceOfLevel[best] - nice;
            if (d < dBest) best = level;
        }
        return best;
    }

    bool CThread::SetAffinity(uint64_t) { return true; }

    const char* CThread::GetName() const { return m_pThread ? m_pThread->m_szName : ""; }

    int CThread::GetThreadId() const { return m_pThread ? m_pThread->m_iThreadId : 0; }

    void CThread::Sleep(unsigned int ms)
    {
        if (ms == 0)
        {
            sched_yield();
            return;
        }
        timespec left{static_cast<time_t>(ms / 1000), static_cast<long>(ms % 1000) * 1000000L};
        while (nanosleep(&left, &left) != 0 && errno == EINTR)
        {
        }
    }
}
