// test_host.h - a reference host for ABI tests, over a fresh temporary
// device root and registry that are removed afterwards.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "host.h"

namespace kp::test {

class TempDir {
public:
    TempDir() {
        std::string tmpl = (std::filesystem::temp_directory_path() / "kp120-test-XXXXXX").string();
        std::vector<char> buf(tmpl.begin(), tmpl.end());
        buf.push_back('\0');
        char* p = mkdtemp(buf.data());
        path_ = p ? p : "";
    }
    ~TempDir() {
        std::error_code ec;
        if (!path_.empty()) std::filesystem::remove_all(path_, ec);
    }
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// One host per test fixture: device root and registry in a temporary folder.
struct HostFixture {
    TempDir dir;
    std::unique_ptr<kp::host::Host> host;
    explicit HostFixture(int32_t language = 1, bool per_thread = false) {
        kp::host::Options o;
        if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
        std::filesystem::create_directories(dir.path() / "device");
        o.device_root = (dir.path() / "device").string();
        o.registry_path = (dir.path() / "registry.sqlite3").string();
        o.language = language;
        o.per_thread_allocators = per_thread;
        host = std::make_unique<kp::host::Host>(o);
    }
    std::filesystem::path device() const { return dir.path() / "device"; }
};

} // namespace kp::test
