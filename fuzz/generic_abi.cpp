// generic_abi.cpp - every handler of the module, called through the real
// component interface with arguments made from the fuzzer's bytes.
//
// The module (libkp120std.so of the same build) is loaded by the reference
// host once per process.  Each input picks one overload that has a handler,
// then builds one argument of the overload's type per parameter: strings of
// any UTF-16 units, integers at the extremes, reals with NaN and infinities,
// raw currency bytes, buffers, variants of every simple type, procedures,
// variables for the parameters that take one.  Trailing receiving variables
// (0x401F), which a program may leave out, are sometimes left out.
//
// Sandbox: the device root and the registry file live in a temporary
// directory made once per process, which is also the current directory; the
// device root is always set, so no device name reaches the host's own file
// system.  XDG_DATA_HOME points into it too, so that deletions to the trash
// stay there.  Selectors find no selector installed in the host and are
// cancelled; walks call back procedures made from the input.  The display
// is the headless handheld and the system bus is refused.  Files the process
// writes are capped in size, and the device is emptied from time to time so
// that it does not fill up.  A few functions are never called
// (deny_list.h).
//
// Environment: KP120_COMPONENT names another module to load.

#include <fuzzer/FuzzedDataProvider.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "deny_list.h"
#include "fuzz_input.h"
#include "host.h"

// LeakSanitizer's switches, when the build has it.
extern "C" __attribute__((weak)) void __lsan_disable();
extern "C" __attribute__((weak)) void __lsan_enable();

// The host left loaded at exit, still referenced so that it is no leak
// (external linkage: the store cannot be dropped).
kp::host::Host* g_kept_host = nullptr;

namespace {

using kp::host::Value;
namespace fs = std::filesystem;

// Interesting strings: device names (files, directories, wildcards, stream
// devices, attempts to climb out), registry keys, dates, times, masks.
const std::vector<std::u16string_view> kDictionary = {
    u"\\f.txt",
    u"\\d",
    u"\\d\\g.ini",
    u"\\d\\*.*",
    u"\\d\\*",
    u"\\Temp\\",
    u"+HS-R",
    u"ADHRSC",
    u"/f.txt",
    u"\\F.TXT",
    u"\\..\\..\\x",
    u"\\d\\..\\f.txt",
    u"COM1:",
    u"*.*",
    u"\\",
    u"HKEY_CURRENT_USER\\Software\\kp",
    u"HKEY_LOCAL_MACHINE\\Software\\kp\\sub",
    u"HKEY_CLASSES_ROOT\\.txt",
    u"20240229",
    u"18000101",
    u"99991231",
    u"23595999",
    u"1200",
    u"2024022912000000",
    u"JJ/MM/AAAA",
    u"JJJJ JJ MMMM AAAA",
    u"HH:MM:SS:CC",
    u"AAAAMMJJ",
    u"UseSystemMask",
    u"J H M S L",
    u"[a-z]+([0-9]*)",
    u"^(.*)$",
    u"section",
    u"key",
    u"password",
};

struct Sandbox {
    fs::path dir;
    fs::path device;
    std::unique_ptr<kp::host::Host> host;
    struct Callable {
        const kp_function* fn;
        int overload;
    };
    std::vector<Callable> callables;
    uint64_t calls = 0;

    ~Sandbox() {
        // The host and its module are left as they are: at exit the host's
        // per-thread state is already gone, so it cannot be torn down.
        g_kept_host = host.release();
        std::error_code ec;
        if (!dir.empty()) fs::remove_all(dir, ec);
    }
};

Sandbox* g_box = nullptr;

constexpr size_t kMaxPattern = 4096;

void cleanup() {
    delete g_box;
    g_box = nullptr;
}

void empty_device() {
    std::error_code ec;
    for (const auto& e : fs::directory_iterator(g_box->device, ec))
        fs::remove_all(e.path(), ec);
}

Value simple_value(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
    case 0:
        return Value::boolean(in.ConsumeBool());
    case 1:
        return Value::integer(kp::fuzz::integer<int32_t>(in));
    case 2:
        return Value::int64(kp::fuzz::integer<int64_t>(in));
    case 3:
        return Value::real(kp::fuzz::real(in));
    case 4: {
        uint8_t cy[10] = {};
        for (uint8_t& b : cy)
            b = in.ConsumeIntegral<uint8_t>();
        return Value::currency(cy);
    }
    case 5:
        return Value::buffer(kp::fuzz::bytes(in));
    default:
        return Value::string(kp::fuzz::text(in, kDictionary));
    }
}

Value argument(FuzzedDataProvider& in, uint16_t param) {
    const bool convert = (param & KP_PARAM_CONVERT) != 0;
    const bool variable = (param & KP_PARAM_FLAG_4000) != 0;
    switch (param & 0xFF) {
    case KP_T_BOOL:
        return in.ConsumeIntegralInRange<int>(0, 7) == 0 ? Value::integer(kp::fuzz::integer<int32_t>(in))
                                                         : Value::boolean(in.ConsumeBool());
    case KP_T_INT:
        return Value::integer(kp::fuzz::integer<int32_t>(in));
    case KP_T_INT64:
    case KP_T_DURATION:
        return Value::int64(kp::fuzz::integer<int64_t>(in));
    case KP_T_CURRENCY: {
        uint8_t cy[10] = {};
        for (uint8_t& b : cy)
            b = in.ConsumeIntegral<uint8_t>();
        if (variable && in.ConsumeBool()) return Value::variable(Value::currency(cy));
        return Value::currency(cy);
    }
    case KP_T_REAL:
    case KP_T_REAL_ALT:
        return Value::real(kp::fuzz::real(in));
    case KP_T_HANDLE_IN:
    case KP_T_HANDLE_OUT:
    case KP_T_WINDOW:
    case KP_T_IMAGE:
    case KP_T_CONTROL:
        return Value::integer(kp::fuzz::integer<int32_t>(in));
    case KP_T_STRING:
    case KP_T_STRING_RESULT:
    case KP_T_DATE:
    case KP_T_TIME:
    case KP_T_DATETIME:
        if (convert && in.ConsumeIntegralInRange<int>(0, 3) == 0) {
            switch (in.ConsumeIntegralInRange<int>(0, 2)) {
            case 0:
                return Value::integer(kp::fuzz::integer<int32_t>(in));
            case 1:
                return Value::real(kp::fuzz::real(in));
            default:
                return Value::boolean(in.ConsumeBool());
            }
        }
        return Value::string(kp::fuzz::text(in, kDictionary));
    case KP_T_BUFFER:
        return Value::buffer(kp::fuzz::bytes(in));
    case KP_T_RAW_STRING:
    case KP_T_RAW_DATA:
        return in.ConsumeBool() ? Value::buffer(kp::fuzz::bytes(in))
                                : Value::string(kp::fuzz::text(in, kDictionary));
    case KP_T_ANY:
    case KP_T_STORABLE:
        if (variable || in.ConsumeIntegralInRange<int>(0, 3) == 0)
            return in.ConsumeBool() ? Value::variable() : Value::variable(simple_value(in));
        return simple_value(in);
    case KP_T_PROCEDURE: {
        // The procedure answers every call with the same value, chosen now.
        auto answer = std::make_shared<Value>(simple_value(in));
        return Value::procedure([answer](std::vector<Value>&) { return *answer; });
    }
    default:
        return Value::none();
    }
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    // No file written by a call grows past 256 MiB; the write fails instead
    // (tools/fuzz.sh passes -handle_xfsz=0 so that libFuzzer leaves SIGXFSZ
    // ignored).
    std::signal(SIGXFSZ, SIG_IGN);
    struct rlimit fsize = {256u << 20, 256u << 20};
    setrlimit(RLIMIT_FSIZE, &fsize);

    g_box = new Sandbox();
    std::string tmpl = (fs::temp_directory_path() / "kp120-fuzz-XXXXXX").string();
    if (!mkdtemp(tmpl.data())) {
        std::perror("mkdtemp");
        std::abort();
    }
    g_box->dir = tmpl;
    g_box->device = g_box->dir / "device";
    fs::create_directories(g_box->device);
    // Deletions to the trash go to a trash inside the sandbox: the home
    // trash of a data home on the device's file system.
    fs::create_directories(g_box->dir / "xdg");
    setenv("XDG_DATA_HOME", (g_box->dir / "xdg").c_str(), 1);
    if (chdir(g_box->dir.c_str()) != 0) {
        std::perror("chdir");
        std::abort();
    }

    kp::host::Options o;
    if (const char* p = std::getenv("KP120_COMPONENT")) o.component_path = p;
    o.device_root = g_box->device.string();
    o.registry_path = (g_box->dir / "registry.sqlite3").string();
    // Neither the machine's display nor its power and modem services.
    o.display = "headless";
    o.system_bus = "none";
    g_box->host = std::make_unique<kp::host::Host>(o);
    if (!g_box->host->loaded()) {
        std::fprintf(stderr, "generic_abi: %s\n", g_box->host->load_error().c_str());
        std::abort();
    }
    std::atexit(cleanup);
    for (const kp_function& fn : g_box->host->functions()) {
        int count = static_cast<int>(KP_IDENT_COUNT(fn.ident));
        for (int k = 0; k < count; ++k)
            if (fn.overloads[k].handler && !kp::fuzz::denied(fn, fn.overloads[k]))
                g_box->callables.push_back({&fn, k});
    }
    if (std::getenv("KP120_FUZZ_LIST")) {
        for (const auto& c : g_box->callables)
            std::fprintf(stderr, "%s_%d\n", c.fn->english, c.overload + 1);
    }
    std::fprintf(stderr, "generic_abi: %zu overloads with a handler, sandbox %s\n", g_box->callables.size(),
                 g_box->dir.c_str());
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (!g_box || g_box->callables.empty()) return 0;
    // The first two bytes choose the overload, so that a seed keeps its
    // function while the rest of it is mutated.
    if (size < 2) return 0;
    const uint16_t pick = static_cast<uint16_t>(data[0] | data[1] << 8);
    FuzzedDataProvider in(data + 2, size - 2);
    const auto& c = g_box->callables[pick % g_box->callables.size()];
    const kp_overload& ov = c.fn->overloads[c.overload];

    // Trailing receiving variables (0x401F) may be left out, as a program
    // may, and so may trailing reals the VM converts (0x800C: Min, Max).
    size_t required = ov.param_count;
    while (required > 0 && ((ov.params[required - 1] & 0x40FF) == (KP_PARAM_FLAG_4000 | KP_T_ANY) ||
                            ov.params[required - 1] == (KP_PARAM_CONVERT | KP_T_REAL)))
        --required;
    size_t count =
        required == ov.param_count ? required : in.ConsumeIntegralInRange<size_t>(required, ov.param_count);
    std::vector<Value> args;
    for (size_t a = 0; a < count; ++a)
        args.push_back(argument(in, ov.params[a]));

    // The GNU regex compiler's memory grows fast with the pattern: a pattern
    // of tens of thousands of units takes gigabytes there.  Patterns are cut
    // to 4,096 units so that a run measures the component, not the engine.
    if (args.size() >= 2 && args[1].kind == Value::Kind::String && args[1].s.size() > kMaxPattern &&
        (std::strcmp(c.fn->english, "MatchRegularExpression") == 0 ||
         std::strcmp(c.fn->english, "fReadLine") == 0))
        args[1].s.resize(kMaxPattern);

    // A file left open is not closed when the component goes away (its
    // handle table frees only its slots, deliberately), so the leak check at
    // exit would count every file an input opened.  What fOpen and fCreate
    // allocate is therefore not leak-checked; everything else is.
    const bool opens = std::strcmp(c.fn->english, "fOpen") == 0 || std::strcmp(c.fn->english, "fCreate") == 0;
    if (opens && __lsan_disable) __lsan_disable();
    kp::host::CallOutcome out = g_box->host->call_overload(*c.fn, c.overload, args);
    if (opens && __lsan_enable) __lsan_enable();
    // A handler records severity 1 (none), 2 (error) or 3 (fatal), nothing else.
    if (out.status == kp::host::CallStatus::Ok && (out.error.severity < 1 || out.error.severity > 3)) {
        std::fprintf(stderr, "%s_%d: severity %d\n", c.fn->english, c.overload + 1, out.error.severity);
        std::abort();
    }
    if (++g_box->calls % 5000 == 0) {
        empty_device();
        // The zones keep what programs store as long as the component
        // lives: the default zone is emptied with the device.
        std::vector<Value> none;
        g_box->host->call("MemDeleteAll", none);
    }
    return 0;
}
