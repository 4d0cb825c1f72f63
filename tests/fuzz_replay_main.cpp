// Replays fuzz inputs without libFuzzer: every file of the folders (or files) named on
// the command line goes through the target once, plus a few degenerate inputs, so a
// normal test build keeps every input that ever found a fault.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

static void RunFile(const std::filesystem::path& p, int& count)
{
    std::ifstream in(p, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    ++count;
}

int main(int argc, char** argv)
{
    const uint8_t degenerate[] = {0, 0xFF, 0xFF, 0xFF, 0xFF, '{', '}', '"', '[', 0};
    for (size_t n = 0; n <= sizeof(degenerate); ++n) LLVMFuzzerTestOneInput(degenerate, n);
    int count = 0;
    for (int i = 1; i < argc; ++i) {
        std::filesystem::path p(argv[i]);
        if (std::filesystem::is_directory(p)) {
            for (const auto& e : std::filesystem::recursive_directory_iterator(p))
                if (e.is_regular_file()) RunFile(e.path(), count);
        } else if (std::filesystem::exists(p)) {
            RunFile(p, count);
        }
    }
    std::printf("replayed %d inputs\n", count);
    return 0;
}
