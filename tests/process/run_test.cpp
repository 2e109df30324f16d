// ExeRun: command lines cut and split as on the device, wait modes, exit
// codes, the absolute-path rule, programs that cannot start, and the VM's
// notices and message pump around a wait.
#include <chrono>
#include <cstring>

#include "component/runtime.h"
#include "platform/command_line.h"
#include "platform/processes.h"
#include "process_fixture.h"
#include "system/processes.h"

namespace kp::process::test {
namespace {

using kp::platform::split_arguments;
using kp::system::parse_command_line;

TEST(CommandLine, ProgramPathAndArgumentString) {
    struct Row {
        std::u16string line, program, arguments;
        bool has_arguments;
    };
    const Row rows[] = {
        {u"\\bin\\p.sh a b", u"\\bin\\p.sh", u"a b", true},
        {u"\\bin\\p.sh", u"\\bin\\p.sh", u"", false},
        {u"\\bin\\p.sh ", u"\\bin\\p.sh", u"", true},
        // A quoted path runs to the closing quote; the character after it is dropped.
        {u"\"\\Program Files\\p.sh\" -x", u"\\Program Files\\p.sh", u"-x", true},
        {u"\"\\Program Files\\p.sh\"z-x y", u"\\Program Files\\p.sh", u"-x y", true},
        {u"\"\\Program Files\\p.sh\"", u"\\Program Files\\p.sh", u"", false},
        // No closing quote: the whole line is the path, less its opening quote.
        {u"\"\\bin\\p.sh a", u"\\bin\\p.sh a", u"", false},
        // Only one quote at each end is removed; a quote at the end of an unquoted path goes too.
        {u"\\bin\\p.sh\" a", u"\\bin\\p.sh", u"a", true},
        {u"\"\"\\x\"\" b", u"", u"x\"\" b", true},
        {u" \\bin\\p.sh", u"", u"\\bin\\p.sh", true},
        // A tab is no separator of the program path.
        {u"\\bin\\p.sh\ta", u"\\bin\\p.sh\ta", u"", false},
        {std::u16string(u"\\bin\\p.sh a\0b c", 15), u"\\bin\\p.sh", u"a", true},
        {u"", u"", u"", false},
    };
    for (const Row& r : rows) {
        auto cl = parse_command_line(r.line);
        EXPECT_EQ(cl.program, r.program) << kp::host::utf8(r.line);
        EXPECT_EQ(cl.arguments, r.arguments) << kp::host::utf8(r.line);
        EXPECT_EQ(cl.has_arguments, r.has_arguments) << kp::host::utf8(r.line);
    }
}

TEST(CommandLine, ArgumentsSplitByTheDeviceRules) {
    struct Row {
        std::u16string in;
        std::vector<std::u16string> out;
    };
    const Row rows[] = {
        {u"a b  c", {u"a", u"b", u"c"}},
        {u"  \t lead and trail \t ", {u"lead", u"and", u"trail"}},
        {u"\"a b\" c", {u"a b", u"c"}},
        {u"a\"b c\"d", {u"ab cd"}},
        {u"\"\"", {u""}},
        {u"a \"\" b", {u"a", u"", u"b"}},
        {u"\"a\"\"b\"", {u"a\"b"}},
        {u"\"a\"\"b c\"", {u"a\"b c"}},
        {u"a\\\"b", {u"a\"b"}},
        {u"a\\\\\"b c\"", {u"a\\b c"}},
        {u"a\\\\\\\"b", {u"a\\\"b"}},
        {u"a\\b\\\\c", {u"a\\b\\\\c"}},
        {u"\\\\server\\share\\", {u"\\\\server\\share\\"}},
        {u"\"unbalanced arg", {u"unbalanced arg"}},
        {u"trailing\\", {u"trailing\\"}},
        {u"", {}},
        {u"   ", {}},
    };
    for (const Row& r : rows)
        EXPECT_EQ(split_arguments(r.in), r.out) << kp::host::utf8(r.in);
}

// Real children: a script writes what it received, then the test reads it back.
class RunTest : public ProcessTest {
  protected:
    fs::path out_file;
    void SetUp() override {
        out_file = fx.dir.path() / "out.txt";
        script("bin/args.sh", "for a in \"$@\"; do printf '[%s]' \"$a\"; done > '" + out_file.string() + "'");
    }
    int64_t run(const std::u16string& line, int32_t wait) {
        auto r = call("ExeRun", {Value::string(line), Value::integer(1), Value::integer(wait)});
        EXPECT_EQ(r.status, kp::host::CallStatus::Ok) << r.detail;
        return r.result.i;
    }
};

TEST_F(RunTest, ChildReceivesTheArgumentsItWouldOnTheDevice) {
    struct Row {
        std::u16string args;
        std::string received;
    };
    const Row rows[] = {
        {u"a b c", "[a][b][c]"},
        {u"\"with space\" x", "[with space][x]"},
        {u"\"a\"\"b\"", "[a\"b]"},
        {u"a\\\"b", "[a\"b]"},
        {u"a\\\\\"b c\"", "[a\\b c]"},
        {u"C:\\dir\\file.txt", "[C:\\dir\\file.txt]"},
        {u"\"\" end", "[][end]"},
        {u"   spaced    out  ", "[spaced][out]"},
        {u"\"unbalanced quote", "[unbalanced quote]"},
        {u"\u00E9t\u00E9 \u4E2D", "[\xC3\xA9t\xC3\xA9][\xE4\xB8\xAD]"},
    };
    for (const Row& r : rows) {
        fs::remove(out_file);
        EXPECT_EQ(run(u"\\bin\\args.sh " + r.args, 1), 1);
        EXPECT_EQ(read_text(out_file), r.received) << kp::host::utf8(r.args);
    }
    // A program whose quoted path holds a blank.
    script("Program Files/My App/args.sh", "printf '[%s]' \"$@\" > '" + out_file.string() + "'");
    EXPECT_EQ(run(u"\"\\Program Files\\My App\\args.sh\" one two", 1), 1);
    EXPECT_EQ(read_text(out_file), "[one][two]");
    EXPECT_EQ(run(u"\"\\Program Files\\My App\\args.sh\"Xone two", 1), 1);
    EXPECT_EQ(read_text(out_file), "[one][two]");
    // Device names ignore case; slashes separate as backslashes do.
    EXPECT_EQ(run(u"/BIN/ARGS.SH z", 1), 1);
    EXPECT_EQ(read_text(out_file), "[z]");
}

TEST_F(RunTest, WaitModes) {
    const fs::path mark = fx.dir.path() / "mark.txt";
    script("bin/slow.sh", "sleep 0.4; echo $$ > '" + mark.string() + "'; exit 42");

    auto t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(u"\\bin\\slow.sh", 0), 1);
    EXPECT_LT(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(300)) << "mode 0 waited";
    EXPECT_FALSE(fs::exists(mark));
    ASSERT_TRUE(eventually([&] { return !read_text(mark).empty(); }));

    fs::remove(mark);
    t0 = std::chrono::steady_clock::now();
    EXPECT_EQ(run(u"\\bin\\slow.sh", 1), 1);
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(400));
    EXPECT_TRUE(fs::exists(mark)) << "mode 1 returned before the program ended";

    EXPECT_EQ(run(u"\\bin\\slow.sh", 2), 42);

    fs::remove(mark);
    int64_t pid = run(u"\\bin\\slow.sh", 3);
    ASSERT_GT(pid, 0);
    started.push_back(static_cast<int>(pid));
    ASSERT_TRUE(eventually([&] { return !read_text(mark).empty(); }));
    EXPECT_EQ(std::stoll(read_text(mark)), pid) << "mode 3 gives the program's own identifier";

    // Unknown wait modes start without waiting.
    EXPECT_EQ(run(u"\\bin\\slow.sh", 7), 1);
    EXPECT_EQ(run(u"\\bin\\slow.sh", -1), 1);
    // The short forms do not wait either; the window mode changes nothing.
    auto r = call("ExeRun", {Value::string(u"\\bin\\slow.sh")});
    EXPECT_EQ(r.result.i, 1);
    r = call("ExeRun", {Value::string(u"\\bin\\slow.sh"), Value::integer(2)});
    EXPECT_EQ(r.result.i, 1);
    r = call("ExeRun", {Value::string(u"\\bin\\slow.sh"), Value::integer(0), Value::integer(2),
                        Value::string(u"ignored")});
    EXPECT_EQ(r.result.i, 42);
}

TEST_F(RunTest, ExitCodes) {
    struct Row {
        const char* body;
        int64_t code;
    };
    const Row rows[] = {
        {"exit 0", 0},
        {"exit 1", 1},
        {"exit 255", 255},
        {"exit 256", 0},
        // Ended by a signal: 128 + the signal number.
        {"kill -TERM $$", 128 + SIGTERM},
        {"kill -KILL $$", 128 + SIGKILL},
        {"kill -SEGV $$", 128 + SIGSEGV},
    };
    for (const Row& r : rows) {
        script("bin/code.sh", r.body);
        EXPECT_EQ(run(u"\\bin\\code.sh", 2), r.code) << r.body;
    }
}

TEST_F(RunTest, PathsThatAreNotAbsoluteStartNothing) {
    const fs::path mark = fx.dir.path() / "mark.txt";
    script("prog.sh", "touch '" + mark.string() + "'");
    for (const char16_t* line : {u"prog.sh", u"prog.sh \\x", u"", u" \\prog.sh", u"\"prog.sh\"",
                                 u"bin\\prog.sh", u"\"\" \\prog.sh", u"\"\"\"\""}) {
        auto r = call("ExeRun", {Value::string(line), Value::integer(1), Value::integer(2)});
        EXPECT_EQ(r.result.i, 0) << kp::host::utf8(line);
        EXPECT_EQ(r.error.id, 80600u) << kp::host::utf8(line);
        EXPECT_EQ(r.error.severity, 2);
    }
    EXPECT_FALSE(fs::exists(mark));
    // The path is the message's insert.
    auto r = call("ExeRun", {Value::string(u"prog.sh -a")});
    EXPECT_NE(r.error.message.find(u"\"prog.sh\""), std::u16string::npos) << kp::host::utf8(r.error.message);
    // A stream-device name counts as absolute and fails to start instead.
    EXPECT_EQ(call("ExeRun", {Value::string(u"NUL:")}).error.id, 80400u);
}

TEST_F(RunTest, ProgramsThatCannotStart) {
    put("bin/plain.txt", "not a program\n", 0644);
    put("bin/garbage", std::string("\x01\x02\x03 garbage", 12), 0755);
    put("bin/badinterp.sh", "#!/nonexistent/interpreter\n", 0755);
    fs::create_directories(host_path("bin/adir"));
    struct Row {
        std::u16string line;
        uint32_t system;
    };
    const Row rows[] = {
        {u"\\bin\\missing.sh", 2},
        {u"\\nodir\\missing.sh a", 3},
        {u"\\bin\\plain.txt", 5},
        {u"\\bin\\adir", 5},
        {u"\\bin\\garbage", 193},
        {u"\\bin\\badinterp.sh", 2},
        {u"\"\\bin\\args.sh a b", 2},
        {u"\\bin\\args.sh " + std::u16string(100000, u'x'), 206},
        {u"\\" + std::u16string(100000, u'p'), 206},
        {u"\\bin\\a*b", 123},
    };
    for (const Row& r : rows) {
        for (int32_t wait : {0, 1, 2, 3}) {
            auto out = call("ExeRun", {Value::string(r.line), Value::integer(1), Value::integer(wait)});
            EXPECT_EQ(out.result.i, 0);
            EXPECT_EQ(out.error.id, 80400u) << kp::host::utf8(r.line.substr(0, 40));
            EXPECT_EQ(out.error.severity, 2);
            EXPECT_EQ(out.error.system_code, r.system) << kp::host::utf8(r.line.substr(0, 40));
            // The system text is the message's second insert.
            EXPECT_FALSE(out.error.system_text.empty()) << r.system;
            // (A line too long for the error record leaves no room for it.)
            if (r.line.size() < 1000) {
                EXPECT_NE(out.error.message.find(out.error.system_text), std::u16string::npos)
                    << kp::host::utf8(out.error.message);
            }
        }
    }
    // Arguments as long as the device allows still start.
    EXPECT_EQ(run(u"\\bin\\args.sh " + std::u16string(32767, u'y'), 2), 0);
    EXPECT_EQ(read_text(out_file).size(), 32767u + 2);
}

// The VM is told when a wait begins and ends, and its pump runs meanwhile.
struct Notices {
    int begin = 0, end = 0, pumps = 0;
    std::string root;
};
Notices* g_notices = nullptr;

class NoticeTest : public RunTest {
  protected:
    Notices notices;
    kp_services services{};
    void SetUp() override {
        RunTest::SetUp();
        notices.root = fx.device().string();
        g_notices = &notices;
        services.size = sizeof services;
        services.begin_blocking = [](void*) { g_notices->begin++; };
        services.end_blocking = [](void*) { g_notices->end++; };
        services.pump_message = [](void*) {
            g_notices->pumps++;
            return 1;
        };
        services.setting = [](void*, const char* name) {
            return std::strcmp(name, KP_SETTING_DEVICE_ROOT) == 0 ? g_notices->root.c_str() : nullptr;
        };
        kp::runtime::state().services = &services;
    }
    void TearDown() override {
        kp::runtime::state().services = nullptr;
        g_notices = nullptr;
        RunTest::TearDown();
    }
    int32_t exe_run(std::u16string_view line, int32_t wait, uint32_t* id = nullptr) {
        kp_error_record rec{};
        rec.severity = 1;
        kp::CXError err(&rec);
        int32_t r = kp::system::exe_run(line, wait, err);
        if (id) *id = err.id();
        return r;
    }
};

TEST_F(NoticeTest, BeginAndEndAroundEveryStartAndPumpWhileWaiting) {
    script("bin/nap.sh", "sleep 0.2; exit 3");
    EXPECT_EQ(exe_run(u"\\bin\\nap.sh", 2), 3);
    EXPECT_EQ(notices.begin, 1);
    EXPECT_EQ(notices.end, 1);
    // Slices of 10 ms: a pump after each, about twenty in 0.2 s.
    EXPECT_GE(notices.pumps, 5);

    const int pumps = notices.pumps;
    EXPECT_EQ(exe_run(u"\\bin\\nap.sh", 0), 1);
    EXPECT_EQ(notices.begin, 2);
    EXPECT_EQ(notices.end, 2);
    EXPECT_EQ(notices.pumps, pumps) << "no pump without a wait";

    uint32_t id = 0;
    EXPECT_EQ(exe_run(u"\\bin\\missing", 2, &id), 0);
    EXPECT_EQ(id, 80400u);
    EXPECT_EQ(notices.begin, 3);
    EXPECT_EQ(notices.end, 3);

    EXPECT_EQ(exe_run(u"relative", 2, &id), 0);
    EXPECT_EQ(id, 80600u);
    EXPECT_EQ(notices.begin, 3) << "the path is checked before the VM is told";
    // The program started without waiting is collected by the component.
    EXPECT_TRUE(eventually([] {
        kp::platform::collect_children();
        return children_of_this_process() == 0;
    }));
}

// A program started without waiting outlives the component: unloaded while
// the program runs, the component still collects it when it ends, so that
// no zombie of the host is left (whatever the first process of the machine
// does with orphans).
TEST(Unload, AProgramStartedWithoutWaitingIsCollectedAfterTheUnload) {
    auto fx = std::make_unique<kp::test::HostFixture>();
    const fs::path program = fx->device() / "long";
    fs::copy_file("/bin/sleep", program);
    ::chmod(program.c_str(), 0755);
    std::vector<Value> args = {Value::string(u"\\long 30"), Value::integer(1), Value::integer(3)};
    const int pid = static_cast<int>(fx->host->call("ExeRun", args).result.i);
    ASSERT_GT(pid, 1);
    fx.reset(); // the host unloads the component
    int parent = 0;
    ASSERT_NE(process_state(pid, &parent), 0);
    ASSERT_EQ(parent, getpid()) << "the program stays a child of the host";
    ::kill(pid, SIGTERM);
    EXPECT_TRUE(eventually([&] { return process_state(pid) == 0; }))
        << "state " << process_state(pid) << ": the ended program was not collected";
    // Then the component's module goes as the host asked.
    const char* module = std::getenv("KP120_COMPONENT");
    ASSERT_NE(module, nullptr);
    EXPECT_TRUE(eventually([&] { return read_text("/proc/self/maps").find(module) == std::string::npos; }));
}

// A VM whose services block predates the pump slot: the wait sleeps instead.
TEST_F(NoticeTest, ShortServicesBlockWaitsWithoutPump) {
    script("bin/nap.sh", "sleep 0.1; exit 4");
    services.size = static_cast<uint32_t>(offsetof(kp_services, pump_message));
    EXPECT_EQ(exe_run(u"\\bin\\nap.sh", 2), 4);
    EXPECT_EQ(notices.pumps, 0);
    EXPECT_EQ(notices.begin, 1);
    EXPECT_EQ(notices.end, 1);
}

} // namespace
} // namespace kp::process::test
