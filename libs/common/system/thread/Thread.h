#pragma once
// Engine threads: derive from CThread, give Run, and call Start. A Run ends by a flag
// of its own; the owner raises it and calls Wait before deleting the object.
#include <cstdint>

namespace Common
{
    namespace Posix
    {
        class CThread;
    }

    class CThreadBase
    {
    public:
        virtual ~CThreadBase() = default;
        virtual void Run() = 0;
        virtual void Stop() = 0;
        virtual bool Start(const char* name) = 0;
    };

    class CThread : public CThreadBase
    {
    public:
        // Levels of SetPriority, highest first.
        enum Priority
        {
            PriorityTimeCritical = 0,
            PriorityHighest,
            PriorityAboveNormal,
            PriorityNormal,
            PriorityBelowNormal,
            PriorityLowest,
            PriorityIdle,
        };

        CThread();
        ~CThread() override;
        CThread(const CThread&) = delete;
        CThread& operator=(const CThread&) = delete;

        // Forgets the thread without ending it; Wait has nothing to wait for afterwards.
        void Stop() override;
        // Runs Run on a new thread named `name` ("Thread" if null). An earlier thread of
        // this object is forgotten first, as by Stop. True if the thread exists.
        bool Start(const char* name) override;

        bool IsRunning() const;
        // Waits for Run to return, without limit. Returns at once if no thread is held.
        void Wait();
        // Level 0 (time critical) to 6 (idle); false for any other level or without a thread.
        bool SetPriority(int level);
        // The level the thread runs at now, or -1 without a thread.
        int GetPriority() const;
        bool SetAffinity(uint64_t mask);

        // The name given at the last Start ("" before).
        const char* GetName() const;
        // The system's id of the thread (0 without one).
        int GetThreadId() const;

        static void Sleep(unsigned int ms);
        static void SleepMs(unsigned int ms) { Sleep(ms); }

    private:
        static void* Entry(void* startInfo);
        void ReleaseHandle(bool wait);

        Posix::CThread* m_pThread;
    };
}
