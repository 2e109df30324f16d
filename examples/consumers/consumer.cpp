// consumer.cpp - a program built against an installed kp120 only: loads the
// component through the reference host and calls one function by name.
#include <kp120/host.h>

#include <cstdio>
#include <filesystem>

int main(int argc, char** argv) {
    kp::host::Options options;
#ifdef KP120_MODULE
    options.component_path = KP120_MODULE;
#endif
    if (argc > 1) options.component_path = argv[1];
    options.device_root = std::filesystem::temp_directory_path().string();
    kp::host::Host host(options);
    if (!host.loaded()) {
        std::fprintf(stderr, "consumer: %s\n", host.load_error().c_str());
        return 1;
    }
    std::vector<kp::host::Value> args{kp::host::Value::string(u"20261124")};
    kp::host::CallOutcome out = host.call("DateToInteger", args);
    if (out.status != kp::host::CallStatus::Ok) {
        std::fprintf(stderr, "consumer: %s\n", out.detail.c_str());
        return 1;
    }
    std::printf("DateToInteger(\"20261124\") = %lld\n", static_cast<long long>(out.result.i));
    return out.result.i == 82873 ? 0 : 1;
}
