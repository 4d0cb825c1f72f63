#pragma once
// The asset manager as a process: finding a running one by name in /proc and starting
// one, detached, from the folder of the program that runs the engine.
#include <cstddef>
#include <sys/types.h>

namespace DataProvider
{
    // The name a process goes by: the last component of its first argument, or, when
    // that is empty, the kernel's short name. Zombies are skipped. The first matching
    // process id, or 0.
    pid_t FindProcessByName(const char* name);

    // True if a process named `binary`, `binary`.exe or `binary`.vshost.exe runs.
    bool IsAssetManagerRunning(const char* binary);

    // The folder of the running program (no trailing '/'). False if /proc can't say.
    bool GetProgramDirectory(char* out, size_t size);

    // Starts `program` with `argv` (null-terminated; argv[0] included) in a session of its
    // own: it outlives the engine and no terminal signal of the engine reaches it. Its
    // input is /dev/null, its output goes to `outputPath` (appended; /dev/null if that
    // can't be opened), and it inherits no other descriptor. Returns its process id, or
    // -1 with errno set.
    pid_t SpawnDetached(const char* program, char* const argv[], const char* outputPath);

    // Reaps `pid` if it has ended; true then, with its wait status in `status`.
    bool ReapIfExited(pid_t pid, int* status = nullptr);
}
