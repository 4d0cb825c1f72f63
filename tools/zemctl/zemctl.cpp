// zemctl: sends remote commands to a running engine and prints their results.
#include <arpa/inet.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <string>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "zemengine/core/json/Json.h"
#include "zemengine/engine/CommandRequest.h"
#include "zemengine/engine/EngineClientRPC.h"
#include "zemengine/engine/EngineNet.h"

namespace
{
    enum ExitCode
    {
        ExitOk = 0,
        ExitUsage = 1,
        ExitNoConnection = 2,
        ExitTimeout = 3,
        ExitNoReply = 4,
    };

    const char* const kHelp =
        "Usage: zemctl [OPTIONS] CLASS METHOD [ARG ...]\n"
        "       zemctl [OPTIONS] --script FILE|-\n"
        "\n"
        "Sends a remote command to a running engine and prints its result.\n"
        "\n"
        "Options:\n"
        "  --host H       engine address, IPv4 or a host name (default 127.0.0.1)\n"
        "  --port P       engine port (default 27921)\n"
        "  --instance N   instance id of the target object (default 0; a singleton\n"
        "                 class such as Root ignores it)\n"
        "  --tcp-thread   run the command on the engine's connection thread\n"
        "                 (\"UseTcpThread\") instead of its main thread; only for\n"
        "                 commands that are safe there\n"
        "  --no-wait      ask for no result (\"WaitAck\": false); use it for methods\n"
        "                 that return nothing\n"
        "  --timeout MS   give up after MS milliseconds without the reply\n"
        "                 (default 10000; 0 waits without limit)\n"
        "  --script FILE  send one command object per line of FILE (- reads standard\n"
        "                 input) and print one line per command\n"
        "  --help         show this text\n"
        "\n"
        "Each ARG is one JSON value, passed as \"Arg0\", \"Arg1\", ... in order: numbers\n"
        "and true/false as they are, text in double quotes (in a shell: '\"name\"'),\n"
        "vectors and other records as objects ('{\"x\":1,\"y\":2,\"z\":3}'), lists as\n"
        "arrays, and a remote object as '{\"InstanceID\":N}' (or null).\n"
        "\n"
        "Output: the \"Res\" value of the reply, as one line of JSON.\n"
        "\n"
        "Script lines are JSON objects such as\n"
        "  {\"ClassName\":\"Root\",\"MethodName\":\"GetCustomNodeCount\"}\n"
        "  {\"ClassName\":\"GuiProjectNodeRpc\",\"InstanceID\":0,\"MethodName\":\"GetPageList\"}\n"
        "  {\"ClassName\":\"Root\",\"MethodName\":\"GetCustomNodeHeaderDesc\",\"Args\":[0]}\n"
        "with \"InstanceID\", \"UseTcpThread\" and \"WaitAck\" optional (the options give\n"
        "the defaults) and arguments as \"Args\": [...] or \"Arg0\", \"Arg1\", ...\n"
        "Blank lines and lines starting with # are skipped. Each command prints one\n"
        "line: its result, or an empty line when it has none.\n"
        "\n"
        "Exit status:\n"
        "  0  the command was answered (with --no-wait: the engine received it)\n"
        "  1  bad usage, a bad argument or a bad script line\n"
        "  2  no connection to the engine\n"
        "  3  no reply within the time-out\n"
        "  4  no reply although one was due: the method returns nothing (use\n"
        "     --no-wait) or the engine refused the command (its log says why)\n"
        "\n"
        "The engine listens on 127.0.0.1 unless it was started with -rpcbind; anyone\n"
        "who can reach its port controls it.\n";

    struct Options
    {
        std::string host = "127.0.0.1";
        int port = ZemEngine::CEngineNet::kDefaultPort;
        unsigned int instance = 0;
        bool tcpThread = false;
        bool noWait = false;
        unsigned int timeoutMs = 10000;
        const char* script = nullptr;
    };

    FILE* g_pOut = stdout;

    int Fail(int code, const char* format, ...) __attribute__((format(printf, 2, 3)));
    int Fail(int code, const char* format, ...)
    {
        std::fputs("zemctl: ", stderr);
        va_list args;
        va_start(args, format);
        std::vfprintf(stderr, format, args);
        va_end(args);
        std::fputc('\n', stderr);
        return code;
    }

    bool ParseUnsigned(const char* text, unsigned long long max, unsigned long long& out)
    {
        if (!text || !*text || *text == '-') return false;
        char* end = nullptr;
        errno = 0;
        out = std::strtoull(text, &end, 10);
        return !*end && !errno && out <= max;
    }

    // A dotted IPv4 address for `host`, by name lookup when it is not one already.
    bool ResolveHost(const std::string& host, std::string& out)
    {
        in_addr address{};
        if (inet_pton(AF_INET, host.c_str(), &address) == 1)
        {
            out = host;
            return true;
        }
        addrinfo hints{};
        hints.ai_family = AF_INET;
        hints.ai_socktype = SOCK_STREAM;
        addrinfo* found = nullptr;
        if (getaddrinfo(host.c_str(), nullptr, &hints, &found) != 0 || !found) return false;
        char text[INET_ADDRSTRLEN] = {};
        inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(found->ai_addr)->sin_addr, text, sizeof(text));
        freeaddrinfo(found);
        out = text;
        return true;
    }

    struct Request
    {
        std::string className;
        std::string methodName;
        unsigned int instance = 0;
        bool tcpThread = false;
        bool waitAck = true;
        ZemEngine::Json::Document args{rapidjson::kArrayType};

        std::string Text() const
        {
            ZemEngine::CommandRequest request;
            request.m_sClassName = className;
            request.m_sMethodName = methodName;
            request.m_uInstanceId = instance;
            request.m_bUseTcpThread = tcpThread;
            request.m_bWaitAck = waitAck;
            request.m_uArgCount = args.Size();
            request.m_pArgs = args.Size() ? &args[0] : nullptr;
            ZemEngine::Json::StringBuffer buffer;
            ZemEngine::WriteCommandRequest(request, buffer);
            return std::string(buffer.GetString(), buffer.GetSize());
        }
    };

    // What the socket layer said about a failed connect, in words.
    std::string ConnectError(const Common::ScopedLogCapture& log)
    {
        const std::string text = log.Text();
        const size_t at = text.find("connect failed with error: ");
        if (at == std::string::npos) return "unknown error";
        const int code = std::atoi(text.c_str() + at + std::strlen("connect failed with error: "));
        return std::strerror(code);
    }

    // One command on its own connection: the request, then goodbye. The host answers
    // in order, so the goodbye echo arriving first means there is no reply.
    int Exchange(const Options& options, const std::string& address, const Request& request, bool& printed)
    {
        printed = false;
        ZemEngine::CEngineClientRPC client;
        {
            Common::ScopedLogCapture log;
            if (!client.Connect(address.c_str(), options.port))
                return Fail(ExitNoConnection, "cannot connect to the engine at %s:%d: %s", options.host.c_str(),
                            options.port, ConnectError(log).c_str());
        }
        client.SetTimeout(options.timeoutMs);
        const std::string text = request.Text();
        if (!client.SendFrame(text.c_str(), static_cast<uint32_t>(text.size())) || !client.SendGoodbye())
            return Fail(ExitNoConnection, "the connection to %s:%d failed while sending", options.host.c_str(),
                        options.port);

        ZemRenderer::TArray<char> body;
        const ZemEngine::FrameStatus status = client.ReadFrame(body);
        const std::string name = request.className + "." + request.methodName;
        switch (status)
        {
            case ZemEngine::FrameStatus::Ok:
                break;
            case ZemEngine::FrameStatus::Goodbye:
                if (!request.waitAck) return ExitOk;
                return Fail(ExitNoReply,
                            "no reply to %s: it returns nothing (send it with --no-wait), or the engine refused it "
                            "(unknown command, stale instance id or bad arguments: see the engine's log)",
                            name.c_str());
            case ZemEngine::FrameStatus::Timeout:
                return Fail(ExitTimeout, "no reply to %s within %u ms", name.c_str(), options.timeoutMs);
            case ZemEngine::FrameStatus::Closed:
                // With no reply due, the command was delivered: an engine that ends on it
                // (ForceQuit) closes before it can echo the goodbye.
                if (!request.waitAck) return ExitOk;
                return Fail(ExitNoReply, "the engine closed the connection without replying to %s", name.c_str());
            case ZemEngine::FrameStatus::TooLarge:
                return Fail(ExitNoReply, "the engine closed the connection without replying to %s", name.c_str());
        }

        ZemEngine::Json::Document reply;
        reply.Parse<ZemEngine::Json::kParseFlags>(body.GetData(), body.GetSize());
        const ZemEngine::Json::Value* result = reply.HasParseError() ? nullptr : ZemEngine::Json::FindMember(reply, "Res");
        ZemEngine::Json::StringBuffer out;
        if (result && ZemEngine::Json::ToText(*result, out))
            std::fprintf(g_pOut, "%s\n", out.GetString());
        else
            std::fprintf(g_pOut, "%.*s\n", static_cast<int>(body.GetSize()), body.GetData());
        std::fflush(g_pOut);
        printed = true;
        // The echo of the goodbye ends the exchange; its absence changes nothing.
        client.ReadFrame(body);
        return ExitOk;
    }

    // A script line into a request; false with the reason in `error`.
    bool ParseScriptLine(const std::string& line, const Options& options, Request& request, std::string& error)
    {
        ZemEngine::Json::Document doc;
        doc.Parse<ZemEngine::Json::kParseFlags>(line.c_str(), line.size());
        if (doc.HasParseError())
        {
            error = std::string("not JSON: ") + rapidjson::GetParseError_En(doc.GetParseError()) + " at offset " +
                    std::to_string(doc.GetErrorOffset());
            return false;
        }
        if (!doc.IsObject())
        {
            error = "a command is a JSON object";
            return false;
        }
        const ZemEngine::Json::Value* className = ZemEngine::Json::FindMember(doc, "ClassName");
        const ZemEngine::Json::Value* methodName = ZemEngine::Json::FindMember(doc, "MethodName");
        if (!className || !className->IsString() || !methodName || !methodName->IsString())
        {
            error = "\"ClassName\" and \"MethodName\" must be strings";
            return false;
        }
        request.className.assign(className->GetString(), className->GetStringLength());
        request.methodName.assign(methodName->GetString(), methodName->GetStringLength());
        request.instance = options.instance;
        request.tcpThread = options.tcpThread;
        request.waitAck = !options.noWait;
        if (const ZemEngine::Json::Value* v = ZemEngine::Json::FindMember(doc, "InstanceID"))
        {
            if (!v->IsUint())
            {
                error = "\"InstanceID\" must be an integer from 0 to 4294967295";
                return false;
            }
            request.instance = v->GetUint();
        }
        for (const char* flag : {"UseTcpThread", "WaitAck"})
        {
            const ZemEngine::Json::Value* v = ZemEngine::Json::FindMember(doc, flag);
            if (!v) continue;
            if (!v->IsBool())
            {
                error = std::string("\"") + flag + "\" must be true or false";
                return false;
            }
            (std::strcmp(flag, "WaitAck") == 0 ? request.waitAck : request.tcpThread) = v->GetBool();
        }
        auto& allocator = request.args.GetAllocator();
        request.args.SetArray();
        if (const ZemEngine::Json::Value* list = ZemEngine::Json::FindMember(doc, "Args"))
        {
            if (!list->IsArray())
            {
                error = "\"Args\" must be an array";
                return false;
            }
            for (const ZemEngine::Json::Value& v : list->GetArray())
                request.args.PushBack(ZemEngine::Json::Value(v, allocator), allocator);
        }
        else
        {
            for (unsigned int i = 0;; ++i)
            {
                const ZemEngine::Json::Value* v = ZemEngine::Json::FindMember(doc, ("Arg" + std::to_string(i)).c_str());
                if (!v) break;
                request.args.PushBack(ZemEngine::Json::Value(*v, allocator), allocator);
            }
        }
        return true;
    }

    int RunScript(const Options& options, const std::string& address)
    {
        FILE* in = std::strcmp(options.script, "-") == 0 ? stdin : std::fopen(options.script, "r");
        if (!in) return Fail(ExitUsage, "cannot read the script %s: %s", options.script, std::strerror(errno));
        int status = ExitOk;
        std::string line;
        unsigned int number = 0;
        char chunk[4096];
        bool more = true;
        while (more)
        {
            line.clear();
            more = false;
            while (std::fgets(chunk, sizeof(chunk), in))
            {
                line += chunk;
                if (!line.empty() && line.back() == '\n')
                {
                    more = true;
                    break;
                }
            }
            if (!more && line.empty()) break;
            more = more || !std::feof(in);
            ++number;
            while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
            const size_t first = line.find_first_not_of(" \t");
            if (first == std::string::npos || line[first] == '#') continue;

            Request request;
            std::string error;
            int code = ExitOk;
            bool printed = false;
            if (!ParseScriptLine(line, options, request, error))
                code = Fail(ExitUsage, "%s line %u: %s", options.script, number, error.c_str());
            else
                code = Exchange(options, address, request, printed);
            if (!printed)
            {
                std::fputc('\n', g_pOut);
                std::fflush(g_pOut);
            }
            if (code != ExitOk && status == ExitOk) status = code;
            // Nothing further can reach an engine that is not there.
            if (code == ExitNoConnection) break;
        }
        if (in != stdin) std::fclose(in);
        return status;
    }

    // Library log lines would mix with results on standard output: results get their
    // own copy of it, and the library's output goes nowhere.
    void SeparateResultsFromLog()
    {
        const int results = dup(STDOUT_FILENO);
        const int devnull = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (results < 0 || devnull < 0) return;
        std::fflush(stdout);
        dup2(devnull, STDOUT_FILENO);
        close(devnull);
        g_pOut = fdopen(results, "w");
        if (!g_pOut) g_pOut = stderr;
    }
}

int main(int argc, char** argv)
{
    Options options;
    std::string positional[2];
    int positionalCount = 0;
    ZemEngine::Json::Document args(rapidjson::kArrayType);

    for (int i = 1; i < argc; ++i)
    {
        const char* a = argv[i];
        const bool hasValue = i + 1 < argc;
        unsigned long long number = 0;
        if (!std::strcmp(a, "--help") || !std::strcmp(a, "-h"))
        {
            std::fputs(kHelp, stdout);
            return ExitOk;
        }
        else if (!std::strcmp(a, "--host"))
        {
            if (!hasValue) return Fail(ExitUsage, "--host needs an address (see --help)");
            options.host = argv[++i];
        }
        else if (!std::strcmp(a, "--port"))
        {
            if (!hasValue || !ParseUnsigned(argv[i + 1], 65535, number) || number == 0)
                return Fail(ExitUsage, "--port needs a port number from 1 to 65535 (see --help)");
            options.port = static_cast<int>(number);
            ++i;
        }
        else if (!std::strcmp(a, "--instance"))
        {
            if (!hasValue || !ParseUnsigned(argv[i + 1], 0xFFFFFFFFull, number))
                return Fail(ExitUsage, "--instance needs an instance id from 0 to 4294967295 (see --help)");
            options.instance = static_cast<unsigned int>(number);
            ++i;
        }
        else if (!std::strcmp(a, "--timeout"))
        {
            if (!hasValue || !ParseUnsigned(argv[i + 1], 0xFFFFFFFFull, number))
                return Fail(ExitUsage, "--timeout needs a number of milliseconds (0: no limit) (see --help)");
            options.timeoutMs = static_cast<unsigned int>(number);
            ++i;
        }
        else if (!std::strcmp(a, "--script"))
        {
            if (!hasValue) return Fail(ExitUsage, "--script needs a file name, or - for standard input (see --help)");
            options.script = argv[++i];
        }
        else if (!std::strcmp(a, "--tcp-thread"))
            options.tcpThread = true;
        else if (!std::strcmp(a, "--no-wait"))
            options.noWait = true;
        else if (a[0] == '-' && a[1] == '-')
            return Fail(ExitUsage, "unknown option %s (see --help)", a);
        else if (positionalCount < 2)
            positional[positionalCount++] = a;
        else
        {
            // Everything else is an argument of the command.
            ZemEngine::Json::Document value;
            value.Parse<ZemEngine::Json::kParseFlags>(a);
            if (value.HasParseError())
                return Fail(ExitUsage,
                            "argument %u is not a JSON value: %s (%s at offset %zu); text goes in double quotes, "
                            "e.g. '\"%s\"'",
                            args.Size() + 1, a, rapidjson::GetParseError_En(value.GetParseError()),
                            value.GetErrorOffset(), a);
            args.PushBack(ZemEngine::Json::Value(value, args.GetAllocator()), args.GetAllocator());
        }
    }

    if (options.script && positionalCount > 0)
        return Fail(ExitUsage, "--script takes its commands from the file: give no CLASS or METHOD (see --help)");
    if (!options.script && positionalCount < 2)
        return Fail(ExitUsage, "give a CLASS and a METHOD, for example: zemctl Root GetRPCSingleton (see --help)");

    std::string address;
    if (!ResolveHost(options.host, address))
        return Fail(ExitNoConnection, "unknown host %s", options.host.c_str());

    SeparateResultsFromLog();
    if (options.script) return RunScript(options, address);

    Request request;
    request.className = positional[0];
    request.methodName = positional[1];
    request.instance = options.instance;
    request.tcpThread = options.tcpThread;
    request.waitAck = !options.noWait;
    request.args.CopyFrom(args, request.args.GetAllocator());
    bool printed = false;
    return Exchange(options, address, request, printed);
}
