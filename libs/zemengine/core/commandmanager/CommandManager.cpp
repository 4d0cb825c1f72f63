#include "zemengine/core/commandmanager/CommandManager.h"

#include <cstring>

#include "common/system/debug/Log.h"
#include "zemengine/core/commandmanager/ConnectionLogFold.h"

namespace ZemEngine
{
    namespace
    {
        // Checks one required member of the request; logs and fails when it is absent or
        // of another JSON type.
        const Json::Value* RequireMember(const Json::Value& root, const char* name, bool (Json::Value::*isType)() const,
                                         const char* typeName)
        {
            const Json::Value* value = Json::FindMember(root, name);
            if (!value)
            {
                Common::Log("[RPC] Command dropped: member \"%s\" is missing\n", name);
                return nullptr;
            }
            if (!(value->*isType)())
            {
                Common::Log("[RPC] Command dropped: member \"%s\" must be %s, not %s\n", name, typeName,
                            Json::KindName(*value));
                return nullptr;
            }
            return value;
        }

        // Step 2 of a request: the five members, in their order, into the fields.
        bool ReadHeader(CommandQueue::Command& command)
        {
            const Json::Value& root = command.m_kDocument;
            if (!root.IsObject())
            {
                Common::Log("[RPC] Command dropped: the text is %s, not a JSON object\n", Json::KindName(root));
                return false;
            }
            const Json::Value* className = RequireMember(root, "ClassName", &Json::Value::IsString, "a string");
            if (!className) return false;
            const Json::Value* methodName = RequireMember(root, "MethodName", &Json::Value::IsString, "a string");
            if (!methodName) return false;
            const Json::Value* instanceID =
                RequireMember(root, "InstanceID", &Json::Value::IsUint, "an integer from 0 to 4294967295");
            if (!instanceID) return false;
            const Json::Value* waitAck = RequireMember(root, "WaitAck", &Json::Value::IsBool, "true or false");
            if (!waitAck) return false;
            const Json::Value* useTcpThread = RequireMember(root, "UseTcpThread", &Json::Value::IsBool, "true or false");
            if (!useTcpThread) return false;

            command.m_pClassName = className->GetString();
            command.m_pMethodName = methodName->GetString();
            command.m_uInstanceID = instanceID->GetUint();
            command.m_bWaitAck = waitAck->GetBool();
            command.m_bUseTcpThread = useTcpThread->GetBool();
            return true;
        }
    }

    CommandManager::~CommandManager()
    {
        // Waiters leave before the table goes.
        m_kQueue.Close();
        {
            std::unique_lock<std::shared_mutex> lock(m_kCommandsLock);
            for (auto& pair : m_kCommands) MEM_FREE(pair.value);
            m_kCommands.ClearAndFree();
        }
        MEM_DELETE(m_pResolver);
        m_pResolver = nullptr;
    }

    int CommandManager::Init()
    {
        if (!m_pResolver) m_pResolver = MEM_NEW(CPointerResolver);
        CPointerResolver::SetInstance(m_pResolver);
        return 1;
    }

    EngineCommand* CommandManager::FindCommand(unsigned int key) const
    {
        std::shared_lock<std::shared_mutex> lock(m_kCommandsLock);
        return m_kCommands.Find(key);
    }

    unsigned int CommandManager::GetCommandCount() const
    {
        std::shared_lock<std::shared_mutex> lock(m_kCommandsLock);
        return m_kCommands.GetSize();
    }

    void CommandManager::ExecuteJSon(const char* json, CReturnBuffer* result)
    {
        ExecuteJSon(json, json ? std::strlen(json) : 0, result);
    }

    void CommandManager::ExecuteJSon(const char* json, size_t length, CReturnBuffer* result, CConnectionLogFold* logFold)
    {
        CommandQueue::Command* command = MEM_NEW(CommandQueue::Command);
        if (!ZEM_ASSERT(command != nullptr, "no memory for a command")) return;
        if (logFold)
        {
            logFold->AddRef();
            command->m_pLogFold = logFold;
        }
        char error[128];
        if (!command->Parse(json ? json : "", json ? length : 0, error, sizeof(error)))
        {
            Common::Log("[RPC] Command dropped: not a JSON text (%s)\n", error);
            MEM_DELETE(command);
            return;
        }
        if (!ReadHeader(*command))
        {
            MEM_DELETE(command);
            return;
        }
        command->m_pReturnBuffer = result;
        command->m_bDone = false;
        command->m_pCommand = nullptr;

        EngineCommand* invoker = FindCommand(MakeKey(command->m_pClassName, command->m_pMethodName));
        if (!ZEM_ASSERT(invoker != nullptr, "this command is not registred (%.64s.%.64s)", command->m_pClassName,
                        command->m_pMethodName))
        {
            MEM_DELETE(command);
            return;
        }
        command->m_pCommand = invoker;
        m_kQueue.Push(command);
    }

    int CommandManager::ExecuteText(const char* className, const char* methodName, const char* argumentLine)
    {
        EngineCommand* invoker = FindCommand(MakeKey(className ? className : "", methodName ? methodName : ""));
        if (!ZEM_ASSERT(invoker != nullptr, "this command is not registred (%.64s.%.64s)", className ? className : "",
                        methodName ? methodName : ""))
            return 0;
        CTextParamReader reader(argumentLine);
        const int result = invoker->ExecuteText(0, reader);
        ZEM_ASSERT(result == 1, "engine command failed! (%.64s.%.64s)", className, methodName);
        return result;
    }
}
