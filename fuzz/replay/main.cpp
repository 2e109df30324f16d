// main.cpp - runs a fuzz target over saved inputs without libFuzzer, so that
// the ordinary and the sanitizer builds of the test suite replay every seed
// and every input that once found a fault.
//
//   kp_replay_<target> DIR_OR_FILE...
//
// Folders are read in name order; a missing folder is skipped.  The exit
// status is 0 when every input ran (a fault ends the process).

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);

namespace {

bool run_file(const std::filesystem::path& p) {
    std::ifstream f(p, std::ios::binary);
    if (!f) {
        std::fprintf(stderr, "cannot read %s\n", p.c_str());
        return false;
    }
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
    // A copy of exactly the input's size, so that reads past it are caught.
    std::vector<uint8_t> exact(bytes);
    LLVMFuzzerTestOneInput(exact.empty() ? nullptr : exact.data(), exact.size());
    return true;
}

} // namespace

int main(int argc, char** argv) {
    if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
    size_t count = 0;
    bool ok = true;
    for (int k = 1; k < argc; ++k) {
        std::filesystem::path arg(argv[k]);
        std::error_code ec;
        if (std::filesystem::is_regular_file(arg, ec)) {
            ok = run_file(arg) && ok;
            ++count;
            continue;
        }
        if (!std::filesystem::is_directory(arg, ec)) continue;
        std::vector<std::filesystem::path> files;
        for (const auto& e : std::filesystem::directory_iterator(arg, ec))
            if (e.is_regular_file()) files.push_back(e.path());
        std::sort(files.begin(), files.end());
        for (const auto& p : files) {
            ok = run_file(p) && ok;
            ++count;
        }
    }
    std::printf("%zu inputs replayed\n", count);
    return ok ? 0 : 1;
}
