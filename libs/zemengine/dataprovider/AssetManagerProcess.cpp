#include "zemengine/dataprovider/AssetManagerProcess.h"

#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <initializer_list>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/system/filesystem/FileSystem.h"

extern char** environ;

namespace DataProvider
{
    namespace
    {
        // Reads up to size - 1 bytes of a /proc file; -1 if it can't be read.
        ssize_t ReadSmallFile(const char* path, char* buffer, size_t size)
        {
            const int fd = open(path, O_RDONLY | O_CLOEXEC);
            if (fd < 0) return -1;
            ssize_t total = 0;
            while (static_cast<size_t>(total) + 1 < size)
            {
                const ssize_t n = read(fd, buffer + total, size - 1 - static_cast<size_t>(total));
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) break;
                total += n;
            }
            close(fd);
            buffer[total] = '\0';
            return total;
        }

        // Name and liveness of one process: false for a zombie or one that is gone.
        bool ReadProcessName(const char* pid, char* name, size_t size)
        {
            char path[64];
            char stat[512];
            if (std::strlen(pid) > 32) return false;
            std::snprintf(path, sizeof(path), "/proc/%.32s/stat", pid);
            if (ReadSmallFile(path, stat, sizeof(stat)) <= 0) return false;
            // "pid (comm) S ...": the short name may itself hold parentheses.
            const char* open = std::strchr(stat, '(');
            const char* close = std::strrchr(stat, ')');
            if (!open || !close || close < open || close[1] != ' ' || close[2] == 'Z' || close[2] == 'X') return false;

            char cmdline[4096];
            std::snprintf(path, sizeof(path), "/proc/%.32s/cmdline", pid);
            if (ReadSmallFile(path, cmdline, sizeof(cmdline)) > 0 && cmdline[0])
            {
                const char* slash = std::strrchr(cmdline, '/');
                // A name that does not fit is no name we look for.
                const int n = std::snprintf(name, size, "%s", slash ? slash + 1 : cmdline);
                if (n < 0 || static_cast<size_t>(n) >= size) name[0] = '\0';
                return true;
            }
            std::snprintf(name, size, "%.*s", static_cast<int>(close - open - 1), open + 1);
            return true;
        }
    }

    pid_t FindProcessByName(const char* name)
    {
        if (!name || !name[0]) return 0;
        DIR* proc = opendir("/proc");
        if (!proc) return 0;
        pid_t found = 0;
        while (dirent* e = readdir(proc))
        {
            if (!std::isdigit(static_cast<unsigned char>(e->d_name[0]))) continue;
            char processName[1024];
            if (ReadProcessName(e->d_name, processName, sizeof(processName)) && std::strcmp(processName, name) == 0)
            {
                found = static_cast<pid_t>(std::atoi(e->d_name));
                break;
            }
        }
        closedir(proc);
        return found;
    }

    bool IsAssetManagerRunning(const char* binary)
    {
        char name[1100];
        for (const char* suffix : {"", ".exe", ".vshost.exe"})
        {
            std::snprintf(name, sizeof(name), "%s%s", binary ? binary : "", suffix);
            if (FindProcessByName(name) > 0) return true;
        }
        return false;
    }

    bool GetProgramDirectory(char* out, size_t size) { return Common::CFileSystem::GetProgramDirectory(out, size); }

    pid_t SpawnDetached(const char* program, char* const argv[], const char* outputPath)
    {
        int output = outputPath ? open(outputPath, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644) : -1;
        if (output < 0) output = open("/dev/null", O_WRONLY | O_CLOEXEC);

        posix_spawn_file_actions_t actions;
        posix_spawnattr_t attr;
        posix_spawn_file_actions_init(&actions);
        posix_spawnattr_init(&attr);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        if (output >= 0)
        {
            posix_spawn_file_actions_adddup2(&actions, output, 1);
            posix_spawn_file_actions_adddup2(&actions, output, 2);
        }
        // Nothing else of the engine (log files, sockets) may outlive it in the child.
        posix_spawn_file_actions_addclosefrom_np(&actions, 3);

        sigset_t none;
        sigemptyset(&none);
        sigset_t defaults;
        sigemptyset(&defaults);
        sigaddset(&defaults, SIGTERM);
        sigaddset(&defaults, SIGINT);
        sigaddset(&defaults, SIGHUP);
        posix_spawnattr_setsigmask(&attr, &none);
        posix_spawnattr_setsigdefault(&attr, &defaults);
        posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

        pid_t pid = -1;
        const int error = posix_spawn(&pid, program, &actions, &attr, argv, environ);
        posix_spawnattr_destroy(&attr);
        posix_spawn_file_actions_destroy(&actions);
        if (output >= 0) close(output);
        if (error != 0)
        {
            errno = error;
            return -1;
        }
        return pid;
    }

    bool ReapIfExited(pid_t pid, int* status)
    {
        if (pid <= 0) return false;
        int s = 0;
        if (waitpid(pid, &s, WNOHANG) != pid) return false;
        if (status) *status = s;
        return true;
    }
}
