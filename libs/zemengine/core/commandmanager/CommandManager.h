#pragma once
// The table from (class name, method name) to a typed invoker, and the one place where
// a JSON text becomes a typed call. The key is the method name's hash seeded with the
// class name's hash. Connection threads read the table while plugins may still
// register, so the table is guarded by a reader-writer lock.
#include <cstddef>
#include <shared_mutex>

#include "common/system/memorymanager/MemoryManager.h"
#include "common/utils/Hash.h"
#include "common/utils/TMap.h"
#include "zemengine/core/commandmanager/CommandQueue.h"
#include "zemengine/core/commandmanager/EngineCommand.h"
#include "zemengine/core/commandmanager/PointerResolver.h"

namespace ZemEngine
{
    class CommandManager
    {
    public:
        CommandManager() = default;
        ~CommandManager();
        CommandManager(const CommandManager&) = delete;
        CommandManager& operator=(const CommandManager&) = delete;

        // Makes the resolver and the process's resolver instance. Returns 1.
        int Init();

        static unsigned int MakeKey(const char* className, const char* methodName)
        {
            return GenerateUIntIdFromString(methodName, nullptr, GenerateUIntIdFromString(className));
        }

        // The invoker to fill in: a new one in the table, or, if the name is taken, a
        // per-type static that nobody calls, so the first registration stays.
        template <class CommandType>
        CommandType* GenericRegister(const char* className, const char* methodName)
        {
            std::unique_lock<std::shared_mutex> lock(m_kCommandsLock);
            return GenericRegisterLocked<CommandType>(MakeKey(className, methodName));
        }

        template <class Stub, class Ret>
        void Register(const char* c, const char* m, Ret (Stub::*f)())
        {
            Fill<EngineCommandT0<Stub, Ret>>(c, m, f);
        }
        template <class Stub, class Ret, class A0>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0))
        {
            Fill<EngineCommandT1<Stub, Ret, A0>>(c, m, f);
        }
        template <class Stub, class Ret, class A0, class A1>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0, A1))
        {
            Fill<EngineCommandT2<Stub, Ret, A0, A1>>(c, m, f);
        }
        template <class Stub, class Ret, class A0, class A1, class A2>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0, A1, A2))
        {
            Fill<EngineCommandT3<Stub, Ret, A0, A1, A2>>(c, m, f);
        }
        template <class Stub, class Ret, class A0, class A1, class A2, class A3>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0, A1, A2, A3))
        {
            Fill<EngineCommandT4<Stub, Ret, A0, A1, A2, A3>>(c, m, f);
        }
        template <class Stub, class Ret, class A0, class A1, class A2, class A3, class A4>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0, A1, A2, A3, A4))
        {
            Fill<EngineCommandT5<Stub, Ret, A0, A1, A2, A3, A4>>(c, m, f);
        }
        template <class Stub, class Ret, class A0, class A1, class A2, class A3, class A4, class A5>
        void Register(const char* c, const char* m, Ret (Stub::*f)(A0, A1, A2, A3, A4, A5))
        {
            Fill<EngineCommandT6<Stub, Ret, A0, A1, A2, A3, A4, A5>>(c, m, f);
        }

        // "GetRPCSingleton" of a singleton class.
        template <class Stub>
        void RegisterSingleton(const char* className)
        {
            GenericRegister<EngineCommandSingleton<Stub>>(className, "GetRPCSingleton");
        }

        // "ReleaseRef", which every remote class has, on CClientRefCount::ReleaseRef.
        template <class Stub>
        void RegisterReleaseRef(const char* className)
        {
            int (Stub::*release)() = &CClientRefCount::ReleaseRef;
            Register<Stub, int>(className, "ReleaseRef", release);
        }

        // Parses the text and runs or queues the command; the result, if any, arrives in
        // `*result`. A text that is not a well-formed command is dropped with a log line.
        void ExecuteJSon(const char* json, CReturnBuffer* result);
        // `logFold`: the sending connection's, which the command holds while it lives.
        void ExecuteJSon(const char* json, size_t length, CReturnBuffer* result, CConnectionLogFold* logFold = nullptr);

        // Runs a command at once on this thread with instance id 0, its arguments taken
        // as blank-separated tokens of `argumentLine`; the result is dropped. Returns the
        // invoker's result, 0 for an unknown command.
        int ExecuteText(const char* className, const char* methodName, const char* argumentLine);

        // Runs the queued commands; the main loop calls it.
        void ProcessQueue() { m_kQueue.Process(); }

        CPointerResolver* GetResolver() const { return m_pResolver; }
        CommandQueue& GetQueue() { return m_kQueue; }

        EngineCommand* FindCommand(unsigned int key) const;
        unsigned int GetCommandCount() const;

    private:
        template <class CommandType>
        CommandType* GenericRegisterLocked(unsigned int key)
        {
            if (!m_kCommands.Contains(key))
            {
                CommandType* command = MEM_NEW(CommandType);
                if (command)
                {
                    m_kCommands.Insert(key, command);
                    if (m_kCommands.Find(key) == command) return command;
                    MEM_FREE(command);
                }
            }
            static CommandType s_kIgnored;
            return &s_kIgnored;
        }

        // The method is stored before readers can see the invoker.
        template <class CommandType, class Method>
        void Fill(const char* className, const char* methodName, Method method)
        {
            std::unique_lock<std::shared_mutex> lock(m_kCommandsLock);
            GenericRegisterLocked<CommandType>(MakeKey(className, methodName))->m_pfnMethod = method;
        }

        CPointerResolver* m_pResolver = nullptr;
        ZemRenderer::TMap<unsigned int, EngineCommand*> m_kCommands;
        CommandQueue m_kQueue;
        mutable std::shared_mutex m_kCommandsLock;
    };
}
