// AssetManagerApp: the asset manager that the engine's data provider asks where assets
// lie. It cooks source files into the assets root on request and answers over the
// engine's frame protocol until it is stopped by a signal.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "common/system/debug/Log.h"
#include "zemengine/dataprovider/AssetManagerServer.h"

namespace
{
    enum ExitCode
    {
        ExitOk = 0,
        ExitNoListen = 1,
        ExitUsage = 2,
    };

    const char* const kHelp =
        "Usage: AssetManagerApp [--source DIR] [--root DIR] [--host ADDR] [--port N]\n"
        "                       [--port-file FILE]\n"
        "\n"
        "Cooks assets for the engine and tells its data provider where they lie.\n"
        "\n"
        "Options:\n"
        "  --source DIR     folder of the source assets (default: the root)\n"
        "  --root DIR       the assets root: cooked files are written below it, and\n"
        "                   the asset types are read from its Toolchain/TypesInfos/\n"
        "                   *.assetInfos files (default: the current folder)\n"
        "  --host ADDR      address to listen on (default 127.0.0.1)\n"
        "  --port N         port to listen on (default 27674; 0: any free port)\n"
        "  --port-file FILE write the port once it listens\n"
        "  --help           show this text\n"
        "\n"
        "A query for \"dir/name.ext\" with parameters P is cooked by copying\n"
        "SOURCE/dir/name.ext to ROOT/dir/name_<id of P>.<output extension> (the type's\n"
        "\"OutputExt\"); the reply names the cooked file relative to the root. A type\n"
        "without a table entry is served at its own path. Each cook is logged.\n"
        "\n"
        "Engines connect one after another or at once; one that goes away leaves the\n"
        "others served. The engine starts this program itself when no process of this\n"
        "name runs (see DataProvider.config); it stops on SIGINT or SIGTERM.\n"
        "\n"
        "Exit status: 0 after a signal, 1 if the port can't be opened, 2 for bad usage.\n";

    struct Options
    {
        std::string source;
        std::string root = ".";
        std::string host = "127.0.0.1";
        int port = DataProvider::CAssetManagerServer::kDefaultPort;
        std::string portFile;
        bool help = false;
    };

    bool ParseArguments(int argc, char** argv, Options& out)
    {
        for (int i = 1; i < argc; ++i)
        {
            const std::string arg = argv[i];
            if (arg == "--help" || arg == "-h")
            {
                out.help = true;
                continue;
            }
            const bool takesValue = arg == "--source" || arg == "--root" || arg == "--host" || arg == "--port" ||
                                    arg == "--port-file";
            if (!takesValue)
            {
                std::fprintf(stderr, "AssetManagerApp: unknown argument %s\n", arg.c_str());
                return false;
            }
            if (i + 1 >= argc)
            {
                std::fprintf(stderr, "AssetManagerApp: %s needs a value\n", arg.c_str());
                return false;
            }
            const std::string value = argv[++i];
            if (arg == "--source") out.source = value;
            else if (arg == "--root") out.root = value;
            else if (arg == "--host") out.host = value;
            else if (arg == "--port-file") out.portFile = value;
            else
            {
                char* end = nullptr;
                const long port = std::strtol(value.c_str(), &end, 10);
                if (value.empty() || *end || port < 0 || port > 65535)
                {
                    std::fprintf(stderr, "AssetManagerApp: --port needs a number from 0 to 65535, not %s\n", value.c_str());
                    return false;
                }
                out.port = static_cast<int>(port);
            }
        }
        return true;
    }

    bool WritePortFile(const std::string& path, int port)
    {
        // Written aside and renamed, so a reader never sees half a number.
        const std::string temp = path + ".tmp";
        FILE* f = std::fopen(temp.c_str(), "w");
        if (!f) return false;
        const bool written = std::fprintf(f, "%d\n", port) > 0;
        return std::fclose(f) == 0 && written && std::rename(temp.c_str(), path.c_str()) == 0;
    }
}

int main(int argc, char** argv)
{
    Options options;
    if (!ParseArguments(argc, argv, options))
    {
        std::fprintf(stderr, "Try 'AssetManagerApp --help'.\n");
        return ExitUsage;
    }
    if (options.help)
    {
        std::fputs(kHelp, stdout);
        return ExitOk;
    }

    // Signals are taken by this thread alone, so every other thread starts with them
    // blocked.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    DataProvider::CAssetManagerServer server;
    if (!server.Start(options.source.c_str(), options.root.c_str(), options.host.c_str(), options.port))
    {
        Common::Log("[AM] Could not listen on %s:%d (is another asset manager there?)\n", options.host.c_str(),
                    options.port);
        return ExitNoListen;
    }
    if (!options.portFile.empty() && !WritePortFile(options.portFile, server.GetPort()))
        Common::Log("[AM] Could not write the port file %s\n", options.portFile.c_str());

    int received = 0;
    while (sigwait(&signals, &received) != 0)
    {
    }
    Common::Log("[AM] Signal %d: stopping after %u copies\n", received, server.GetCopyCount());
    server.Stop();
    return ExitOk;
}
