#pragma once
// The hand-off from connection threads to the main thread. Engine objects may only be
// touched on the main thread, so a command runs there unless its client asked for
// "UseTcpThread"; a client that waits for the answer sleeps until the main thread has
// run its command.
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "common/utils/Lockable.h"
#include "common/utils/TArray.h"
#include "zemengine/core/commandmanager/ReturnBuffer.h"
#include "zemengine/core/json/Json.h"

namespace ZemEngine
{
    class EngineCommand;
    class CConnectionLogFold;

    // How the main thread is told that commands wait. The host loop plugs its own in:
    // Post must not block; Send may, but a waiter's wake-up must not depend on it.
    class ICommandWakeup
    {
    public:
        virtual ~ICommandWakeup() = default;
        virtual void PostCommandWakeup() = 0;
        virtual void SendCommandWakeup() { PostCommandWakeup(); }
    };

    class CommandQueue : public Common::CLockable
    {
    public:
        // One parsed request.
        class Command
        {
        public:
            static constexpr size_t kParseStackBytes = 1024;
            static constexpr size_t kInlinePoolBytes = 2048;

            Command();
            ~Command();
            Command(const Command&) = delete;
            Command& operator=(const Command&) = delete;

            // Parses `length` bytes of text; false (with the reason in `error`) if it
            // is not one JSON text.
            bool Parse(const char* json, size_t length, char* error, size_t errorSize);

        private:
            // The first pool chunk lives inside the command: small requests allocate
            // nothing more while they are parsed.
            alignas(16) char m_aInlinePool[kInlinePoolBytes];
            Json::PoolAllocator m_kPool;

        public:
            Json::Document m_kDocument;
            CReturnBuffer* m_pReturnBuffer = nullptr;
            CReturnBuffer m_kResult;
            const char* m_pClassName = "";
            const char* m_pMethodName = "";
            uint32_t m_uInstanceID = 0;
            bool m_bWaitAck = false;
            bool m_bUseTcpThread = false;
            bool m_bDone = false;
            EngineCommand* m_pCommand = nullptr;
            // The log fold of the connection that sent it, counted; null for none.
            CConnectionLogFold* m_pLogFold = nullptr;

            // The waiter sleeps on these until m_bDone; the main thread sets m_bDone and
            // signals while it holds the mutex, so the waiter can't free the command
            // under it.
            std::mutex m_kDoneMutex;
            std::condition_variable m_kDoneCondition;
        };

        CommandQueue() = default;
        ~CommandQueue() override;

        // Takes ownership. Runs a "UseTcpThread" command at once; queues any other and
        // wakes the main thread, then, with "WaitAck", sleeps until it has run.
        void Push(Command* command);
        // Runs the commands queued so far; main thread only.
        void Process();

        void SetWakeup(ICommandWakeup* wakeup) { m_pWakeup = wakeup; }
        ICommandWakeup* GetWakeup() const { return m_pWakeup; }

        // Refuses main-thread commands from now on and releases every waiter with an
        // empty result: what a host does when it stops. Reopen undoes it.
        void Close();
        void Reopen();

        unsigned int GetPendingCount() const;

    private:
        static void Run(Command* command);
        static void MarkDone(Command* command);

        ZemRenderer::TArray<Command*> m_aCommands;
        ICommandWakeup* m_pWakeup = nullptr;
        bool m_bClosed = false;
    };
}
