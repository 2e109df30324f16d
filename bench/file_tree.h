// file_tree.h - the tree the file benchmarks walk (100,000 one-byte files in
// 1,000 directories under "tree" of the device), and the two walks over it:
// fListFile through the host, a procedure called back for each file, and
// nftw counting the same files.
#pragma once

#include <ftw.h>
#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "support/test_host.h"

namespace kp::bench {

constexpr int kTreeDirectories = 1000, kTreeFilesPerDirectory = 100;
constexpr int64_t kTreeFiles = int64_t{kTreeDirectories} * kTreeFilesPerDirectory;

inline void make_tree(const std::filesystem::path& device) {
    for (int d = 0; d < kTreeDirectories; ++d) {
        const std::filesystem::path dir =
            device / "tree" / ("d" + std::to_string(d / 100)) / ("e" + std::to_string(d));
        std::filesystem::create_directories(dir);
        for (int f = 0; f < kTreeFilesPerDirectory; ++f)
            std::ofstream(dir / ("f" + std::to_string(f) + ".txt")) << "x";
    }
}

// fListFile("\tree\*.txt") with a procedure: the count, or -1 when the
// procedure did not see every file.
inline int64_t list_tree(kp::host::Host& host) {
    int64_t seen = 0;
    std::vector<kp::host::Value> args = {kp::host::Value::string(u"\\tree\\*.txt"),
                                         kp::host::Value::procedure([&](std::vector<kp::host::Value>&) {
                                             ++seen;
                                             return kp::host::Value::boolean(true);
                                         })};
    const int64_t n = host.call("fListFile", args).result.i;
    return n == seen ? n : -1;
}

inline int64_t& nftw_count() {
    static int64_t count = 0;
    return count;
}

inline int64_t nftw_tree(const std::filesystem::path& device) {
    nftw_count() = 0;
    nftw((device / "tree").c_str(),
         [](const char*, const struct stat*, int type, struct FTW*) {
             if (type == FTW_F) ++nftw_count();
             return 0;
         },
         64, FTW_PHYS);
    return nftw_count();
}

} // namespace kp::bench
