#include "zemengine/core/commandmanager/CommandQueue.h"

#include <cstdio>
#include <utility>

#include "common/system/debug/Log.h"
#include "common/system/memorymanager/MemoryManager.h"
#include "zemengine/core/commandmanager/ConnectionLogFold.h"
#include "zemengine/core/commandmanager/EngineCommand.h"
#include "zemengine/core/commandmanager/JSonParamReader.h"

namespace ZemEngine
{
    namespace
    {
        constexpr size_t kPoolChunkBytes = 16 * 1024;
    }

    CommandQueue::Command::Command()
        : m_kPool(m_aInlinePool, sizeof(m_aInlinePool), kPoolChunkBytes, Json::CAllocator::Shared()),
          m_kDocument(&m_kPool, kParseStackBytes, Json::CAllocator::Shared())
    {
    }

    CommandQueue::Command::~Command()
    {
        if (m_pLogFold) m_pLogFold->Release();
    }

    bool CommandQueue::Command::Parse(const char* json, size_t length, char* error, size_t errorSize)
    {
        m_kDocument.Parse<Json::kParseFlags>(json, length);
        if (!m_kDocument.HasParseError()) return true;
        std::snprintf(error, errorSize, "%s at offset %zu", rapidjson::GetParseError_En(m_kDocument.GetParseError()),
                      m_kDocument.GetErrorOffset());
        return false;
    }

    CommandQueue::~CommandQueue() { Close(); }

    void CommandQueue::Run(Command* command)
    {
        // What the command logs counts against its connection, on whichever thread it runs.
        Common::ScopedLogFilter filter(command->m_pLogFold);
        JSonParamReader reader(command, command->m_bWaitAck ? &command->m_kResult : nullptr);
        const int result = command->m_pCommand ? command->m_pCommand->Execute(command->m_uInstanceID, reader) : 0;
        ZEM_ASSERT(result == 1, "engine command failed! (%.64s.%.64s)", command->m_pClassName, command->m_pMethodName);
    }

    void CommandQueue::MarkDone(Command* command)
    {
        // Signalled under the mutex: the waiter frees the command once it can take it.
        std::lock_guard<std::mutex> lock(command->m_kDoneMutex);
        command->m_bDone = true;
        command->m_kDoneCondition.notify_one();
    }

    void CommandQueue::Push(Command* command)
    {
        if (command->m_bUseTcpThread)
        {
            Run(command);
            command->m_bDone = true;
            if (command->m_pReturnBuffer) *command->m_pReturnBuffer = command->m_kResult;
            MEM_DELETE(command);
            return;
        }

        // The command may be gone after the unlock when nobody waits for it.
        const bool waitAck = command->m_bWaitAck;
        bool closed;
        {
            Common::MT::CScopeLock lock(this);
            closed = m_bClosed;
            if (!closed) m_aCommands.Add(command);
        }
        if (closed)
        {
            Common::Log("[RPC] %.64s.%.64s dropped: the engine no longer takes commands\n", command->m_pClassName,
                        command->m_pMethodName);
            MEM_DELETE(command);
            return;
        }
        if (!waitAck)
        {
            if (m_pWakeup) m_pWakeup->PostCommandWakeup();
            return;
        }
        if (m_pWakeup) m_pWakeup->SendCommandWakeup();
        {
            std::unique_lock<std::mutex> lock(command->m_kDoneMutex);
            command->m_kDoneCondition.wait(lock, [command] { return command->m_bDone; });
        }
        MEM_DELETE(command);
    }

    void CommandQueue::Process()
    {
        ZemRenderer::TArray<Command*> commands;
        {
            Common::MT::CScopeLock lock(this);
            if (m_aCommands.IsEmpty()) return;
            commands = std::move(m_aCommands);
        }
        for (Command* command : commands)
        {
            Run(command);
            if (command->m_bWaitAck)
            {
                // The copy is complete before the waiter can see m_bDone.
                if (command->m_pReturnBuffer) *command->m_pReturnBuffer = command->m_kResult;
                MarkDone(command);
            }
            else
            {
                MEM_DELETE(command);
            }
        }
    }

    void CommandQueue::Close()
    {
        ZemRenderer::TArray<Command*> commands;
        {
            Common::MT::CScopeLock lock(this);
            m_bClosed = true;
            commands = std::move(m_aCommands);
        }
        // Waiters get their empty result back; nobody runs these any more.
        for (Command* command : commands)
        {
            if (command->m_bWaitAck)
                MarkDone(command);
            else
                MEM_DELETE(command);
        }
    }

    void CommandQueue::Reopen()
    {
        Common::MT::CScopeLock lock(this);
        m_bClosed = false;
    }

    unsigned int CommandQueue::GetPendingCount() const
    {
        Common::MT::CScopeLock lock(this);
        return m_aCommands.GetSize();
    }
}
