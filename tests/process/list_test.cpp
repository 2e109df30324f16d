// ExeRunning, ExeTerminate, ExeListProcess and ExeListDLL over copies of sleep under unique
// names on the device: no process of the machine is counted or stopped by mistake.
#include <sys/wait.h>

#include <climits>
#include <set>
#include <sstream>

#include "process_fixture.h"
#include "system/processes.h"

namespace kp::process::test {
namespace {

using kp::system::split_path;

TEST(SplitPath, DriveDirectoryNameExtension) {
    using Row = std::tuple<std::u16string, std::u16string, std::u16string, std::u16string, std::u16string>;
    const Row rows[] = {{u"\\Windows\\prog.exe", u"", u"\\Windows\\", u"prog", u".exe"},
                        {u"C:\\a\\b.c.d", u"C:", u"\\a\\", u"b.c", u".d"},
                        {u"prog", u"", u"", u"prog", u""},
                        {u"/usr/bin/sleep", u"", u"/usr/bin/", u"sleep", u""},
                        {u"\\dir.x\\name", u"", u"\\dir.x\\", u"name", u""},
                        {u"\\dir\\", u"", u"\\dir\\", u"", u""},
                        {u".hidden", u"", u"", u"", u".hidden"},
                        {u"", u"", u"", u"", u""}};
    for (const auto& [path, drive, dir, name, ext] : rows) {
        auto p = split_path(path);
        EXPECT_EQ(std::tie(p.drive, p.directory, p.name, p.extension), std::tie(drive, dir, name, ext))
            << kp::host::utf8(path);
    }
}

// The lines of a list: none ends with a separator after the last.
std::vector<std::u16string> lines_of(const std::u16string& s) {
    EXPECT_FALSE(s.empty());
    EXPECT_NE(s.substr(s.size() - 2), u"\r\n") << "no separator after the last line";
    std::vector<std::u16string> lines;
    for (std::size_t start = 0, end = 0; end != std::u16string::npos; start = end + 2) {
        end = s.find(u"\r\n", start);
        lines.push_back(s.substr(start, end - start));
    }
    return lines;
}

class ListTest : public ProcessTest {
  protected:
    std::string name;
    std::u16string n16, device_path; // name, "\apps\<name>"
    void SetUp() override {
        name = unique_name("kpsleep");
        if (!starts(sleeper("apps/" + name)))
            GTEST_SKIP() << "a copy of /bin/sleep cannot start here: under qemu-user without a binfmt_misc "
                            "handler, the target's programs cannot be started by the program under test";
        n16 = kp::host::utf16(name);
        device_path = u"\\apps\\" + n16;
    }
    // Starts the copy for 30 s; returns once the process runs it (not a shell that will exec it).
    int start_sleeper() {
        auto r = call("ExeRun", {Value::string(device_path + u" 30"), I(1), I(3)});
        EXPECT_GT(r.result.i, 0) << kp::host::utf8(r.error.message);
        const int pid = started.emplace_back(static_cast<int>(r.result.i));
        std::error_code ec;
        EXPECT_TRUE(eventually([&] {
            return fs::read_symlink("/proc/" + std::to_string(pid) + "/exe", ec).filename() == name;
        }));
        return pid;
    }
    // Writes the script "\Programs\<name>.sh" with `body`; its device name.
    std::u16string put_script(const std::string& body) {
        script("Programs/" + name + ".sh", body);
        return u"\\Programs\\" + n16 + u".sh";
    }
    // Starts `program` without waiting; false when it does not start.
    bool start(const std::u16string& program) {
        auto r = call("ExeRun", {Value::string(program), I(1), I(3)});
        if (r.result.i <= 0) return false;
        started.push_back(static_cast<int>(r.result.i));
        return true;
    }
    int64_t running(const std::u16string& program) {
        return call("ExeRunning", {Value::string(program)}).result.i;
    }
};

TEST_F(ListTest, CountsByNameAndDirectory) {
    EXPECT_EQ(running(device_path), 0);
    for (int k = 0; k < 3; ++k)
        start_sleeper();
    // Counted by name and directory, in any case; the extension is not compared.
    for (const std::u16string& program :
         {device_path, n16, u"\\APPS\\" + n16, upper(n16), u"/apps/" + n16, n16 + u".exe"})
        EXPECT_EQ(running(program), 3) << kp::host::utf8(program);
    for (const std::u16string& program :
         {u"\\other\\" + n16, u"\\apps\\" + n16 + u"x", std::u16string(u"\\apps\\"), std::u16string()})
        EXPECT_EQ(running(program), 0) << kp::host::utf8(program);
    // Without a program: the calling program itself (this test binary).
    auto self = call("ExeRunning", {});
    EXPECT_TRUE(self.result.i >= 1 && self.error.severity == 1) << self.result.i;
}

// Stopped by identifier or by name (extension compared, case not), a program is collected at once.
TEST_F(ListTest, TerminatesByIdentifierAndByName) {
    const int a = start_sleeper(), b = start_sleeper(), c = start_sleeper();
    auto r = call("ExeTerminate", {I(a)});
    EXPECT_EQ(std::tie(r.result.b, r.error.severity), std::make_tuple(true, 1));
    EXPECT_EQ(process_state(a), 0);
    EXPECT_EQ(running(device_path), 2);
    EXPECT_FALSE(call("ExeTerminate", {Value::string(device_path + u".exe")}).result.b);
    EXPECT_FALSE(call("ExeTerminate", {Value::string(u"\\elsewhere\\" + n16)}).result.b);
    EXPECT_EQ(running(device_path), 2);
    EXPECT_TRUE(call("ExeTerminate", {Value::string(upper(device_path))}).result.b);
    EXPECT_EQ(process_state(b) + process_state(c), 0);
    EXPECT_EQ(running(device_path), 0);
    // Nothing left to stop.
    r = call("ExeTerminate", {Value::string(device_path)});
    EXPECT_EQ(std::tie(r.result.b, r.error.severity), std::make_tuple(false, 1));
    // By name only, without directory.
    const int d = start_sleeper();
    EXPECT_TRUE(call("ExeTerminate", {Value::string(n16)}).result.b);
    EXPECT_EQ(process_state(d), 0);
    // 0 and negative identifiers must never reach a process group.
    const int64_t pid_max = std::stoi(read_text("/proc/sys/kernel/pid_max"));
    for (int64_t pid :
         {int64_t(0), int64_t(-1), int64_t(-2), int64_t(INT32_MIN), pid_max + 1, int64_t(INT32_MAX)}) {
        r = call("ExeTerminate", {I(pid)});
        EXPECT_EQ(std::tie(r.result.b, r.error.id), std::make_tuple(false, 80101u)) << pid;
        auto l = call("ExeListDLL", {I(pid)});
        EXPECT_EQ(std::tie(l.result.s, l.error.id), std::make_tuple(u"", 80101u)) << pid;
    }
}

// A zombie (short name: it is known by its command name) is neither running, listed nor stopped.
TEST_F(ListTest, EndedProcessesAreNeitherRunningNorListedNorStopped) {
    const std::string shortname = "kz" + std::to_string(getpid() % 100000);
    const fs::path program = sleeper("apps/" + shortname);
    const std::u16string device = u"\\apps\\" + kp::host::utf16(shortname);
    pid_t zombie = fork();
    if (zombie == 0) {
        execl(program.c_str(), program.c_str(), "30", static_cast<char*>(nullptr));
        _exit(127);
    }
    ASSERT_GT(zombie, 0);
    ASSERT_TRUE(eventually([&] { return running(device) == 1; }));
    ::kill(zombie, SIGKILL);
    ASSERT_TRUE(eventually([&] { return process_state(zombie) == 'Z'; }));
    const std::u16string id = kp::host::utf16(std::to_string(zombie));
    for (const std::u16string& name : {device, kp::host::utf16(shortname)})
        EXPECT_EQ(running(name), 0) << kp::host::utf8(name);
    const std::u16string list = call("ExeListProcess", {I(3)}).result.s;
    EXPECT_EQ(list.find(u"\r\n" + id + u"\r\n"), std::u16string::npos);
    EXPECT_FALSE(call("ExeTerminate", {Value::string(device)}).result.b);
    auto r = call("ExeTerminate", {I(zombie)});
    EXPECT_EQ(std::tie(r.result.b, r.error.severity), std::make_tuple(true, 1));
    int status = 0;
    ASSERT_EQ(waitpid(zombie, &status, 0), zombie) << "the test's own child is left to the test";
}

// A script, run by its interpreter, is found by its own name.
TEST_F(ListTest, ScriptsAreFoundByTheirOwnName) {
    const std::u16string device = put_script("while :; do sleep 0.1; done");
    ASSERT_TRUE(start(device));
    EXPECT_TRUE(eventually([&] { return running(device) == 1; }));
    // The shell's child is the script too until it has started `sleep`.
    EXPECT_TRUE(eventually([&] { return running(n16) == 1; }));
    EXPECT_EQ(running(u"\\Other\\" + n16 + u".sh"), 0);
    EXPECT_TRUE(call("ExeTerminate", {Value::string(device)}).result.b);
    EXPECT_EQ(running(device), 0);
}

// A script that keeps forking copies of its shell (subshells that wait for a child) while it is
// being stopped: the copies forked after the list was taken are stopped too.
TEST_F(ListTest, CopiesForkedWhileStoppingAreStoppedToo) {
    const std::u16string device = put_script("while :; do (sleep 1; :) & sleep 0.002; done");
    for (int round = 0; round < 5; ++round) {
        ASSERT_TRUE(start(device));
        EXPECT_TRUE(eventually([&] { return running(device) > 5; }));
        EXPECT_TRUE(call("ExeTerminate", {Value::string(device)}).result.b);
        EXPECT_EQ(running(device), 0) << "round " << round;
    }
}

// A process of another user can be neither stopped nor read (from a child that drops root, or
// as an ordinary user against process 1).
TEST_F(ListTest, ProcessOfAnotherUser) {
    int target;
    if (geteuid() == 0) {
        target = start_sleeper();
    } else {
        int owner = -1;
        std::istringstream status(read_text("/proc/1/status"));
        for (std::string line; std::getline(status, line);)
            if (line.rfind("Uid:", 0) == 0) owner = std::stoi(line.substr(4));
        if (owner == static_cast<int>(geteuid())) GTEST_SKIP() << "no process of another user to try";
        target = 1;
    }
    pid_t child = fork();
    if (child == 0) {
        if (geteuid() == 0 && (setgid(65534) != 0 || setuid(65534) != 0)) _exit(10);
        kp_error_record rec{};
        rec.severity = 1;
        kp::CXError err(&rec);
        if (kp::system::exe_terminate(target, err)) _exit(11);
        if (err.id() != 80101 || err.system_code() != 5) _exit(12);
        err.clear();
        if (!kp::system::exe_list_dll(target, err).empty() || err.id() != 80101) _exit(13);
        _exit(0);
    }
    ASSERT_GT(child, 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "11 stopped, 12 wrong error, 13 listed";
    EXPECT_NE(process_state(target), 0);
}

TEST_F(ListTest, ListColumns) {
    int a = start_sleeper(), b = start_sleeper();
    auto list = [&](std::vector<Value> selectors) {
        auto r = call("ExeListProcess", selectors);
        EXPECT_EQ(r.error.severity, 1);
        return lines_of(r.result.s);
    };
    auto has = [](const auto& v, const std::u16string& x) { return std::count(v.begin(), v.end(), x); };
    const std::u16string pa = kp::host::utf16(std::to_string(a)), pb = kp::host::utf16(std::to_string(b));

    auto l = list({I(3), I(0)});
    EXPECT_EQ(has(l, pa + u"\t" + n16), 1);
    EXPECT_EQ(has(l, pb + u"\t" + n16), 1);
    // Identifiers in increasing order, one line each.
    std::vector<long> ids;
    for (const auto& line : l)
        ids.push_back(std::stol(kp::host::utf8(line.substr(0, line.find(u'\t')))));
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    EXPECT_EQ(std::set<long>(ids.begin(), ids.end()).size(), ids.size());
    // This process is in the list, shown by its executable's host path (outside the device).
    const std::u16string self = kp::host::utf16(fs::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(has(list({I(3), I(1)}), kp::host::utf16(std::to_string(getpid())) + u"\t" + self), 1);

    EXPECT_EQ(has(list({}), n16), 2) << "without selectors: the file name";
    EXPECT_EQ(has(list({I(1)}), device_path), 2) << "the device name of the module";
    EXPECT_EQ(has(list({I(0), I(1), I(3)}), n16 + u"\t" + device_path + u"\t" + pa), 1);
    EXPECT_EQ(has(list({I(3), I(2), I(0)}), pa + u"\t\t" + n16), 1) << "unknown selectors give empty columns";
    EXPECT_EQ(has(list({I(3), I(-1), I(0)}), pa), 1) << "selectors end at the first -1";
    EXPECT_EQ(
        has(list({I(3), I(3), I(3), I(3), I(3)}), pa + u"\t" + pa + u"\t" + pa + u"\t" + pa + u"\t" + pa), 1);
    // Kernel threads have no executable: their command name stands in.
    EXPECT_TRUE(std::any_of(l.begin(), l.end(), [](const std::u16string& line) {
        return line.rfind(u"2\t", 0) == 0 && line.size() > 2;
    }));
}

TEST_F(ListTest, LibrariesOfAProcess) {
    int a = start_sleeper();
    CallOutcome r;
    EXPECT_TRUE(eventually([&] {
        r = call("ExeListDLL", {I(a)});
        return r.result.s.find(u"libc.so.6") != std::u16string::npos;
    })) << kp::host::utf8(r.result.s);
    EXPECT_EQ(r.error.severity, 1);
    const std::u16string& dlls = r.result.s;
    EXPECT_EQ(dlls.find(n16), std::u16string::npos) << "the executable is not listed";
    EXPECT_EQ(dlls.find(u"/"), std::u16string::npos) << "names, not paths";
    lines_of(dlls);
    // This process: the component's own module is among its libraries, each once.
    auto own = call("ExeListDLL", {I(getpid())}).result.s;
    EXPECT_NE(own.find(u"libkp120std.so"), std::u16string::npos);
    EXPECT_EQ(own.find(u"kp_test_process"), std::u16string::npos);
    const auto all = lines_of(own);
    const std::set<std::u16string> unique(all.begin(), all.end());
    EXPECT_EQ(unique.size(), all.size());
}

} // namespace
} // namespace kp::process::test
