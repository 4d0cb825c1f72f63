// zempack: the command-line front of package files.
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

#include "common/system/memorymanager/MemoryManager.h"
#include "zemrenderer/io/IOSTreamPackageSingle.h"
#include "zemrenderer/io/IOStreamPackage.h"

using ZemRenderer::IOStreamPackage;
using ZemRenderer::IOSTreamPackageSingle;
using ZemRenderer::stFileDesc;

namespace
{
    // Engine messages go to stderr; stdout carries only what the command produces.
    FILE* g_pOut = stdout;

    const char kUsage[] =
        "usage: zempack <command> [arguments]\n"
        "\n"
        "Commands:\n"
        "  create ROOT LIST OUT.pak [--order ORDERFILE] [--swap]\n"
        "      Packs every file below the folder ROOT into OUT.pak. Hidden files are left\n"
        "      out and folders are walked in name order, so the same folder always gives\n"
        "      the same bytes. The walk is written to LIST, one name per line. Files named\n"
        "      in ORDERFILE (one per line, e.g. a <package>_order.txt log) come first, in\n"
        "      that order. --swap writes the numbers in the opposite byte order.\n"
        "  list PACKAGE\n"
        "      Prints one line per file: its size in bytes, a tab, and its name.\n"
        "  extract PACKAGE DEST\n"
        "      Writes every file to DEST/<root>/<name>, creating folders as needed.\n"
        "  cat PACKAGE NAME\n"
        "      Writes the bytes of the file NAME (relative to the package root, or with the\n"
        "      root in front) to standard output.\n"
        "  help\n"
        "      Shows this text.\n"
        "\n"
        "Exit status: 0 on success, 1 when the command failed, 2 for a usage error.\n";

    int Usage(const char* problem)
    {
        if (problem) std::fprintf(stderr, "zempack: %s\n\n", problem);
        std::fputs(kUsage, stderr);
        return 2;
    }

    int Fail(const char* format, const char* a, const char* b = "")
    {
        std::fputs("zempack: ", stderr);
        std::fprintf(stderr, format, a, b);
        std::fputc('\n', stderr);
        return 1;
    }

    bool IsFolder(const char* path)
    {
        struct stat st;
        return stat(path, &st) == 0 && S_ISDIR(st.st_mode);
    }

    // Opens and checks a package, saying why when it cannot.
    bool Load(IOStreamPackage& package, const char* path)
    {
        struct stat st;
        if (stat(path, &st) != 0)
        {
            std::fprintf(stderr, "zempack: cannot open %s: %s\n", path, std::strerror(errno));
            return false;
        }
        if (S_ISDIR(st.st_mode))
        {
            std::fprintf(stderr, "zempack: %s is a folder, not a package file\n", path);
            return false;
        }
        if (!package.PostMount())
        {
            std::fprintf(stderr, "zempack: %s is not a valid package\n", path);
            return false;
        }
        return true;
    }

    int Create(int argc, char** argv)
    {
        const char* order = nullptr;
        bool swap = false;
        const char* positional[3] = {};
        int count = 0;
        for (int i = 0; i < argc; ++i)
        {
            if (std::strcmp(argv[i], "--order") == 0)
            {
                if (i + 1 >= argc) return Usage("--order needs a file");
                order = argv[++i];
            }
            else if (std::strcmp(argv[i], "--swap") == 0)
                swap = true;
            else if (argv[i][0] == '-' && argv[i][1] == '-')
                return Usage("unknown option for create");
            else if (count < 3)
                positional[count++] = argv[i];
            else
                return Usage("create takes ROOT LIST OUT.pak");
        }
        if (count != 3) return Usage("create takes ROOT LIST OUT.pak");
        if (!IsFolder(positional[0])) return Fail("ROOT is not a folder: %s", positional[0]);
        if (order && access(order, R_OK) != 0) return Fail("cannot read the order file %s", order);
        if (!IOStreamPackage::Create(positional[0], positional[1], positional[2], swap, order))
            return Fail("could not create %s", positional[2]);

        IOStreamPackage made(positional[2], 0);
        if (!Load(made, positional[2])) return 1;
        unsigned int files = 0;
        for (unsigned int i = 0; i < made.GetFileCount(); ++i) files += made.GetFile(i)->szName[0] ? 1 : 0;
        std::fprintf(g_pOut, "packed %u files into %s (%llu bytes)\n", files, positional[2],
                     static_cast<unsigned long long>(made.GetFileSize()));
        return 0;
    }

    int List(const char* path)
    {
        IOStreamPackage package(path, 0);
        if (!Load(package, path)) return 1;
        for (unsigned int i = 0; i < package.GetFileCount(); ++i)
        {
            const stFileDesc* d = package.GetFile(i);
            if (d->szName[0]) std::fprintf(g_pOut, "%u\t%s\n", d->uiSize, d->szName);
        }
        return 0;
    }

    int Extract(const char* path, const char* dest)
    {
        IOStreamPackage package(path, 0);
        if (!Load(package, path)) return 1;
        if (!IsFolder(dest) && mkdir(dest, 0755) != 0)
            return Fail("cannot create the folder %s: %s", dest, std::strerror(errno));
        if (!package.UnCompress(dest)) return Fail("extracting %s into %s failed", path, dest);
        std::fprintf(g_pOut, "extracted %u entries of %s into %s\n", package.GetFileCount(), path, dest);
        return 0;
    }

    int Cat(const char* path, const char* name)
    {
        IOStreamPackage package(path, 0);
        if (!Load(package, path)) return 1;
        const stFileDesc* desc = package.FindFile(name);
        const size_t rootLength = std::strlen(package.GetRoot());
        if (!desc && rootLength && std::strncmp(name, package.GetRoot(), rootLength) == 0 && name[rootLength] == '/')
            desc = package.FindFile(name + rootLength + 1);
        if (!desc) return Fail("%s has no file named %s", path, name);
        IOSTreamPackageSingle* in = package.OpenEntry(desc);
        if (!in) return Fail("cannot read %s from %s", name, path);
        char buffer[1 << 16];
        size_t done = 0;
        bool ok = true;
        while (done < desc->uiSize)
        {
            const size_t n = in->Read(buffer, sizeof(buffer));
            if (n == 0 || std::fwrite(buffer, 1, n, g_pOut) != n)
            {
                ok = false;
                break;
            }
            done += n;
        }
        MEM_DELETE(in);
        if (std::fflush(g_pOut) != 0) ok = false;
        return ok ? 0 : Fail("could not copy all of %s from %s", name, path);
    }
}

int main(int argc, char** argv)
{
    // Keep the real stdout for the command's output and send the engine's log to stderr.
    const int outFd = dup(STDOUT_FILENO);
    if (outFd >= 0 && (g_pOut = fdopen(outFd, "w")) != nullptr)
        dup2(STDERR_FILENO, STDOUT_FILENO);
    else
        g_pOut = stdout;

    if (argc < 2) return Usage("no command given");
    const char* command = argv[1];
    const int n = argc - 2;
    char** args = argv + 2;
    int status;
    if (!std::strcmp(command, "help") || !std::strcmp(command, "--help") || !std::strcmp(command, "-h"))
    {
        std::fputs(kUsage, g_pOut);
        status = 0;
    }
    else if (!std::strcmp(command, "create"))
        status = Create(n, args);
    else if (!std::strcmp(command, "list"))
        status = n == 1 ? List(args[0]) : Usage("list takes PACKAGE");
    else if (!std::strcmp(command, "extract"))
        status = n == 2 ? Extract(args[0], args[1]) : Usage("extract takes PACKAGE DEST");
    else if (!std::strcmp(command, "cat"))
        status = n == 2 ? Cat(args[0], args[1]) : Usage("cat takes PACKAGE NAME");
    else
        status = Usage("unknown command");
    if (std::fflush(g_pOut) != 0 && status == 0)
    {
        std::fprintf(stderr, "zempack: could not write the output\n");
        status = 1;
    }
    return status;
}
