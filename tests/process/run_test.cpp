// ExeRun: command lines, wait modes, exit codes, absolute paths, failures, the VM's notices.
#include <algorithm>
#include <cstring>
#include <thread>

#include "component/runtime.h"
#include "platform/command_line.h"
#include "platform/processes.h"
#include "process_fixture.h"
#include "system/processes.h"

namespace kp::process::test {
namespace {

using kp::platform::split_arguments;
using kp::system::parse_command_line;

// A quoted path runs to the closing quote, the character after it dropped; unclosed, the whole
// line less its opening quote.  One quote a side goes, also one ending a bare path; a tab ends none.
TEST(CommandLine, ProgramPathAndArgumentString) {
    using Row = std::tuple<std::u16string, std::u16string, std::u16string, bool>;
    const Row rows[] = {{u"\\bin\\p.sh a b", u"\\bin\\p.sh", u"a b", true},
                        {u"\\bin\\p.sh", u"\\bin\\p.sh", u"", false},
                        {u"\\bin\\p.sh ", u"\\bin\\p.sh", u"", true},
                        {u"\"\\Program Files\\p.sh\" -x", u"\\Program Files\\p.sh", u"-x", true},
                        {u"\"\\Program Files\\p.sh\"z-x y", u"\\Program Files\\p.sh", u"-x y", true},
                        {u"\"\\Program Files\\p.sh\"", u"\\Program Files\\p.sh", u"", false},
                        {u"\"\\bin\\p.sh a", u"\\bin\\p.sh a", u"", false},
                        {u"\\bin\\p.sh\" a", u"\\bin\\p.sh", u"a", true},
                        {u"\"\"\\x\"\" b", u"", u"x\"\" b", true},
                        {u" \\bin\\p.sh", u"", u"\\bin\\p.sh", true},
                        {u"\\bin\\p.sh\ta", u"\\bin\\p.sh\ta", u"", false},
                        {std::u16string(u"\\bin\\p.sh a\0b c", 15), u"\\bin\\p.sh", u"a", true},
                        {u"", u"", u"", false}};
    for (const auto& [line, program, arguments, has] : rows) {
        auto cl = parse_command_line(line);
        EXPECT_EQ(std::tie(cl.program, cl.arguments, cl.has_arguments), std::tie(program, arguments, has))
            << kp::host::utf8(line);
    }
}

TEST(CommandLine, ArgumentsSplitByTheDeviceRules) {
    const std::pair<std::u16string, std::vector<std::u16string>> rows[] = {
        {u"a b  c", {u"a", u"b", u"c"}},
        {u"  \t lead and trail \t ", {u"lead", u"and", u"trail"}},
        {u"\"a b\" c", {u"a b", u"c"}},
        {u"a\"b c\"d", {u"ab cd"}},
        {u"\"\"", {u""}},
        {u"a \"\" b", {u"a", u"", u"b"}},
        {u"\"a\"\"b c\"", {u"a\"b c"}},
        {u"a\\\"b", {u"a\"b"}},
        {u"a\\\\\"b c\"", {u"a\\b c"}},
        {u"a\\\\\\\"b", {u"a\\\"b"}},
        {u"a\\b\\\\c", {u"a\\b\\\\c"}},
        {u"\"unbalanced arg", {u"unbalanced arg"}},
        {u"trailing\\", {u"trailing\\"}},
        {u"", {}},
        {u"   ", {}}};
    for (const auto& [in, out] : rows)
        EXPECT_EQ(split_arguments(in), out) << kp::host::utf8(in);
}

// args.sh writes the arguments it received; gated.sh waits for the gate file (30 s at most),
// appends its identifier to the mark and ends with 42.
class RunTest : public ProcessTest {
  protected:
    fs::path out_file, gate, mark, begun;
    void SetUp() override {
        out_file = fx.dir.path() / "out.txt";
        gate = fx.dir.path() / "gate", mark = fx.dir.path() / "mark", begun = fx.dir.path() / "begun";
        for (const char* at : {"bin/args.sh", "Program Files/My App/args.sh"})
            script(at, "for a in \"$@\"; do printf '[%s]' \"$a\"; done > '" + out_file.string() + "'");
        script("bin/gated.sh", "touch '" + begun.string() + "'; i=0; while [ ! -e '" + gate.string() +
                                   "' ] && [ $i -lt 3000 ]; do sleep 0.01; i=$((i+1)); done; echo $$ >> '" +
                                   mark.string() + "'; exit 42");
    }
    int64_t run(const std::u16string& line, int32_t wait) {
        auto r = call("ExeRun", {Value::string(line), I(1), I(wait)});
        EXPECT_EQ(r.status, kp::host::CallStatus::Ok) << r.detail;
        return r.result.i;
    }
    // Programs that ended through the gate.
    auto ended() {
        const auto s = read_text(mark);
        return std::count(s.begin(), s.end(), '\n');
    }
    // ExeRun with the gate closed, opened by a thread once the program runs.
    int64_t run_gated(std::vector<Value> args) {
        fs::remove(gate);
        fs::remove(begun);
        std::thread opener([&] {
            eventually([&] { return fs::exists(begun); }, 30000);
            std::ofstream{gate};
        });
        const int64_t r = call("ExeRun", std::move(args)).result.i;
        opener.join();
        return r;
    }
};

// Device names ignore case; slashes separate as backslashes do.
TEST_F(RunTest, ChildReceivesTheArgumentsItWouldOnTheDevice) {
    const std::pair<std::u16string, std::string> rows[] = {
        {u"\\bin\\args.sh \"with space\" x", "[with space][x]"},
        {u"\\bin\\args.sh \u00E9t\u00E9 \u4E2D", "[\xC3\xA9t\xC3\xA9][\xE4\xB8\xAD]"},
        {u"\"\\Program Files\\My App\\args.sh\" one two", "[one][two]"},
        {u"/BIN/ARGS.SH one two", "[one][two]"}};
    for (const auto& [line, received] : rows) {
        fs::remove(out_file);
        EXPECT_EQ(run(line, 1), 1);
        EXPECT_EQ(read_text(out_file), received) << kp::host::utf8(line);
    }
}

TEST_F(RunTest, WaitModes) {
    // 0, 3 (the program's identifier), unknown modes and the short forms return at once.
    const int64_t pid = run(u"\\bin\\gated.sh", 3);
    ASSERT_GT(pid, 0);
    started.push_back(static_cast<int>(pid));
    for (int32_t mode : {0, 7, -1})
        EXPECT_EQ(run(u"\\bin\\gated.sh", mode), 1) << mode;
    EXPECT_EQ(call("ExeRun", {Value::string(u"\\bin\\gated.sh")}).result.i, 1);
    EXPECT_EQ(call("ExeRun", {Value::string(u"\\bin\\gated.sh"), I(2)}).result.i, 1);
    EXPECT_EQ(ended(), 0) << "a mode that does not wait waited";
    std::ofstream{gate};
    ASSERT_TRUE(eventually([&] { return ended() == 6; }, 30000));
    EXPECT_NE(read_text(mark).find(std::to_string(pid) + "\n"), std::string::npos);

    // 1 and 2 return once the program has ended (2 with its exit code), whatever the window mode.
    EXPECT_EQ(run_gated({Value::string(u"\\bin\\gated.sh"), I(1), I(1)}), 1);
    EXPECT_EQ(ended(), 7) << "mode 1 returned before the program ended";
    EXPECT_EQ(run_gated({Value::string(u"\\bin\\gated.sh"), I(1), I(2)}), 42);
    EXPECT_EQ(ended(), 8);
    EXPECT_EQ(run_gated({Value::string(u"\\bin\\gated.sh"), I(0), I(2), Value::string(u"ignored")}), 42);
    EXPECT_EQ(ended(), 9);
}

TEST_F(RunTest, ExitCodes) {
    // Ended by a signal: 128 + the signal number.
    const std::pair<const char*, int64_t> rows[] = {
        {"exit 0", 0}, {"exit 255", 255}, {"exit 256", 0}, {"kill -TERM $$", 128 + SIGTERM}};
    for (const auto& [body, code] : rows) {
        script("bin/code.sh", body);
        EXPECT_EQ(run(u"\\bin\\code.sh", 2), code) << body;
    }
}

TEST_F(RunTest, PathsThatAreNotAbsoluteStartNothing) {
    const fs::path touched = fx.dir.path() / "touched";
    script("prog.sh", "touch '" + touched.string() + "'");
    for (const char16_t* line : {u"prog.sh", u"prog.sh \\x", u"", u" \\prog.sh", u"\"prog.sh\"",
                                 u"bin\\prog.sh", u"\"\" \\prog.sh", u"\"\"\"\""}) {
        auto r = call("ExeRun", {Value::string(line), I(1), I(2)});
        EXPECT_EQ(std::tie(r.result.i, r.error.id, r.error.severity), std::make_tuple(0, 80600u, 2))
            << kp::host::utf8(line);
    }
    EXPECT_FALSE(fs::exists(touched));
    // A stream-device name counts as absolute and fails to start instead.
    EXPECT_EQ(call("ExeRun", {Value::string(u"NUL:")}).error.id, 80400u);
}

TEST_F(RunTest, ProgramsThatCannotStart) {
    put("bin/plain.txt", "not a program\n", 0644);
    put("bin/garbage", std::string("\x01\x02\x03 garbage", 12), 0755);
    put("bin/badinterp.sh", "#!/nonexistent/interpreter\n", 0755);
    fs::create_directories(host_path("bin/adir"));
    const std::pair<std::u16string, uint32_t> rows[] = {
        {u"\\bin\\missing.sh", 2},
        {u"\\nodir\\missing.sh a", 3},
        {u"\\bin\\plain.txt", 5},
        {u"\\bin\\adir", 5},
        {u"\\bin\\garbage", 193},
        {u"\\bin\\badinterp.sh", 2},
        {u"\\bin\\args.sh " + std::u16string(100000, u'x'), 206},
        {u"\\" + std::u16string(100000, u'p'), 206},
        {u"\\bin\\a*b", 123}};
    for (const auto& [line, system] : rows) {
        SCOPED_TRACE(kp::host::utf8(line.substr(0, 40)));
        for (int32_t wait : {0, 1, 2, 3}) {
            auto out = call("ExeRun", {Value::string(line), I(1), I(wait)});
            EXPECT_EQ(std::tie(out.result.i, out.error.id, out.error.severity, out.error.system_code),
                      std::make_tuple(0, 80400u, 2, system));
            EXPECT_FALSE(out.error.system_text.empty());
        }
    }
    // Arguments as long as the device allows still start.
    EXPECT_EQ(run(u"\\bin\\args.sh " + std::u16string(32767, u'y'), 2), 0);
    EXPECT_EQ(read_text(out_file).size(), 32767u + 2);
}

// The VM is told when a wait begins and ends, and pumps meanwhile (the third pump opens the gate).
class NoticeTest : public RunTest {
  protected:
    static inline int begin = 0, end = 0, pumps = 0;
    static inline std::string root, gate_file;
    kp_services services{};
    void SetUp() override {
        RunTest::SetUp();
        root = fx.device().string(), gate_file = gate.string();
        services.size = sizeof services;
        services.begin_blocking = [](void*) { ++begin; };
        services.end_blocking = [](void*) { ++end; };
        services.pump_message = [](void*) {
            if (++pumps == 3) std::ofstream{gate_file};
            return 1;
        };
        services.setting = [](void*, const char* name) {
            return std::strcmp(name, KP_SETTING_DEVICE_ROOT) == 0 ? root.c_str() : nullptr;
        };
        kp::runtime::state().services = &services;
    }
    void TearDown() override {
        kp::runtime::state().services = nullptr;
        RunTest::TearDown();
    }
    // "result error-identifier begins ends" of an ExeRun, the notices counted since the start.
    std::string exe_run(std::u16string_view line, int32_t wait) {
        kp_error_record rec{};
        rec.severity = 1;
        kp::CXError err(&rec);
        const int32_t r = kp::system::exe_run(line, wait, err);
        return std::to_string(r) + " " + std::to_string(err.id()) + " " + std::to_string(begin) + " " +
               std::to_string(end);
    }
};

TEST_F(NoticeTest, BeginAndEndAroundEveryStartAndPumpWhileWaiting) {
    EXPECT_EQ(exe_run(u"\\bin\\gated.sh", 2), "42 0 1 1");
    EXPECT_GE(pumps, 3);
    const int waited = pumps;
    EXPECT_EQ(exe_run(u"\\bin\\gated.sh", 0), "1 0 2 2");
    EXPECT_EQ(exe_run(u"\\bin\\missing", 2), "0 80400 3 3");
    EXPECT_EQ(exe_run(u"relative", 2), "0 80600 3 3") << "the path is checked before the VM is told";
    // The program started without waiting is collected by the component.
    EXPECT_TRUE(eventually([] {
        kp::platform::collect_children();
        return children_of_this_process() == 0;
    }));
    // A VM whose services block predates the pump slot: the wait sleeps instead.
    script("bin/four.sh", "exit 4");
    services.size = static_cast<uint32_t>(offsetof(kp_services, pump_message));
    EXPECT_EQ(exe_run(u"\\bin\\four.sh", 2), "4 0 4 4");
    EXPECT_EQ(pumps, waited) << "a pump without a wait";
}

// The component, unloaded while a program it started runs, still collects it: no zombie is left.
TEST(Unload, AProgramStartedWithoutWaitingIsCollectedAfterTheUnload) {
    auto fx = std::make_unique<kp::test::HostFixture>();
    const fs::path program = fx->device() / "long";
    fs::copy_file("/bin/sleep", program);
    ::chmod(program.c_str(), 0755);
    std::vector<Value> args = {Value::string(u"\\long 30"), I(1), I(3)};
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

} // namespace
} // namespace kp::process::test
