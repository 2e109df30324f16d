// The device root as a jail: hostile links (absolute, relative, dangling, loops) to a canary beside it,
// every family's name-taking functions called through them; nothing outside is read or changed, links
// inside work.  Runs with openat2 and with KP120_RESOLVE_WALK=1 (the walk component by component).
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <map>
#include <tuple>

#include "files/files_fixture.h"
#include "platform/codepage.h"
#include "platform/processes.h"
#include "platform/win32_error.h"

namespace {

namespace fs = std::filesystem;
using namespace kp::files::test;

constexpr const char* kSecret = "canary-secret";

class Confinement : public DeviceTest {
  protected:
    fs::path root = fx.device(), canary = fx.dir.path() / "canary";

    // Bytes at a host path (the canary lies outside the device).
    void put(const fs::path& p, const std::string& bytes) {
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << bytes;
    }
    void link(const std::string& target, const std::string& rel) { fs::create_symlink(target, root / rel); }

    void SetUp() override {
        put(canary / "secret.txt", kSecret);
        put(canary / "ini.ini", std::string("[s]\r\nk=") + kSecret + "\r\n");
        put(canary / "sub" / "f.txt", kSecret);
        put(canary / "ro.txt", kSecret);
        fs::permissions(canary / "ro.txt", fs::perms::owner_read);
        put(canary / "prog.sh", "#!/bin/sh\ntouch '" + (canary / "ran").string() + "'\n");
        fs::permissions(canary / "prog.sh", fs::perms::owner_all);
        put(root / "Data" / "in.txt", "inside");
        put(root / "Data" / "sub" / "deep.txt", "deep");
        put(root / "Windows" / "x.txt", "windows");
        const std::string c = canary.string();
        link(c + "/secret.txt", "Data/abs_file");
        link("../../canary/secret.txt", "Data/rel_file");
        link(c, "Data/abs_dir");
        link("../../canary", "Data/rel_dir");
        link(c + "/new.txt", "Data/dangling");
        link("../../canary/new.txt", "Data/dangling_rel");
        link(c + "/ro.txt", "Data/out1");
        link(c + "/prog.sh", "Data/prog");
        link("loop2", "Data/loop");
        link("loop", "Data/loop2");
        link("/Windows/x.txt", "Data/in_abs");       // read from the root: \Windows\x.txt
        link("in.txt", "Data/in_rel");               // beside it
        link("../../../../Data/sub", "Data/in_dir"); // ".." stops at the root
        link(c + "/pictures", "My Documents");
    }

    // Every entry below the canary: type, mode, size, content, times.
    std::map<std::string, std::string> snapshot() const {
        std::map<std::string, std::string> all;
        for (const auto& e : fs::recursive_directory_iterator(canary)) {
            struct stat st;
            lstat(e.path().c_str(), &st);
            std::string bytes;
            if (S_ISREG(st.st_mode)) {
                std::ifstream f(e.path(), std::ios::binary);
                bytes.assign(std::istreambuf_iterator<char>(f), {});
            }
            all[e.path().string()] = std::to_string(st.st_mode) + " " + std::to_string(st.st_mtim.tv_nsec) +
                                     " " + std::to_string(st.st_ctim.tv_nsec) + " " + bytes;
        }
        return all;
    }
};

// A call through a hostile name may fail, but neither changes the canary nor returns its content,
// a name in it or the size of secret.txt.
TEST_F(Confinement, NoFamilyReachesOutsideTheRoot) {
    auto text = [](const CallOutcome& r) {
        return kp::host::utf8(r.result.s) + " i=" + std::to_string(r.result.i) + ";";
    };
    // clang-format off
    const std::pair<const char*, std::vector<Value>> calls[] = {
        {"fLoadText", {S(u"\\Data\\abs_file")}}, {"fLoadText", {S(u"\\Data\\rel_file")}},
        {"fLoadText", {S(u"\\Data\\rel_dir\\secret.txt")}},
        {"fCopyFile", {S(u"\\Data\\in.txt"), S(u"\\Data\\abs_dir\\c")}}, {"fSize", {S(u"\\Data\\abs_file")}},
        {"INIRead", {S(u"\\Data\\abs_dir\\ini.ini"), S(u"s"), S(u"k")}},
        {"INIWrite", {S(u"\\Data\\abs_dir\\ini.ini"), S(u"s"), S(u"k")}},
        {"fDirSize", {S(u"\\Data\\abs_dir")}}, {"fSaveText", {S(u"\\Data\\abs_dir\\new.txt"), S(u"x")}},
        {"fSaveText", {S(u"\\Data\\dangling"), S(u"x")}},
        {"fSaveText", {S(u"\\Data\\dangling_rel"), S(u"x")}},
        {"fRename", {S(u"\\Data\\sub\\deep.txt"), S(u"\\Data\\abs_dir\\moved.txt")}},
        {"fAttributeReadOnly", {S(u"\\Data\\abs_file"), Value::boolean(true)}},
        {"fAttribute", {S(u"\\Data\\abs_dir\\secret.txt"), S(u"+H")}},
        {"fTempFile", {S(u"\\Data\\abs_dir"), S(u"kp")}}, {"fMakeDir", {S(u"\\Data\\abs_dir\\made")}},
        {"fCrypt", {S(u"\\Data\\in.txt"), S(u"\\Data\\rel_dir\\enc"), S(u"key")}},
        {"fDelete", {S(u"\\Data\\abs_dir\\secret.txt")}},
        {"fDelete", {S(u"\\Data\\out*"), I(8)}}, // wildcard, read-only included
        {"fRemoveDir", {S(u"\\Data\\abs_dir\\sub"), I(1)}}, {"fRemoveDir", {S(u"\\Data\\rel_dir"), I(1)}},
        {"ExeRun", {S(u"\\Data\\prog"), I(1), I(1)}}, // waits for the program
        {"ExeInfo", {S(u"COPYRIGHT"), S(u"\\Data\\abs_file")}}, {"SysDir", {I(21)}},
        {"_zipCreate_old", {S(u"a"), S(u"\\Data\\abs_dir\\a.zip")}}};
    // clang-format on
    auto check = [&](const std::string& what, const std::function<std::string()>& run) {
        const auto before = snapshot();
        const std::string got = run();
        EXPECT_EQ(got.find(kSecret), std::string::npos) << what;
        EXPECT_EQ(got.find("secret.txt"), std::string::npos) << what;
        EXPECT_EQ(got.find("i=" + std::to_string(std::string(kSecret).size()) + ";"), std::string::npos)
            << what;
        EXPECT_EQ(snapshot(), before) << what;
    };
    for (const auto& c : calls)
        check(std::string(c.first) + " " + kp::host::utf8(c.second[0].s),
              [&] { return text(call(c.first, c.second)); });
    check("fOpen and fReadLine", [&] {
        int64_t h = call("fOpen", {S(u"\\Data\\abs_file"), I(0)}).result.i;
        std::string s = text(call("fReadLine", {I(h)}));
        call("fClose", {I(h)});
        return s;
    });
    check("fCopyFile out", [&] {
        call("fCopyFile", {S(u"\\Data\\abs_file"), S(u"\\Data\\copy.txt")});
        return text(call("fLoadText", {S(u"\\Data\\copy.txt")}));
    });
    // The listings, flat through a linked folder and recursive, name nothing of the canary.
    const std::pair<const char*, const char16_t*> listings[] = {{"fListFile", u"\\Data\\abs_dir\\*"},
                                                                {"fListFile", u"\\Data\\*"},
                                                                {"fListDirectory", u"\\Data\\rel_dir\\*"}};
    for (auto [fn, pattern] : listings) {
        check(fn, [&, fn = fn, pattern = pattern] {
            std::string seen;
            call(fn, {S(pattern), Value::procedure([&](std::vector<Value>& a) {
                          for (const Value& v : a)
                              seen += kp::host::utf8(v.s) + ";";
                          return Value::boolean(true);
                      })});
            return seen;
        });
    }
    check("swapped folder", [&] {
        fs::create_directories(root / "Data" / "swap");
        call("fFileExist", {S(u"\\Data\\swap\\secret.txt")});
        fs::remove(root / "Data" / "swap");
        link(canary.string(), "Data/swap");
        return text(call("fLoadText", {S(u"\\Data\\swap\\secret.txt")}));
    });
}

// Links inside work (absolute ones from the root); a loop fails with 1921; a dangling one is made inside.
TEST_F(Confinement, LinksInsideWork) {
    const std::pair<const char16_t*, std::u16string> rows[] = {{u"\\Data\\in_rel", u"inside"},
                                                               {u"\\Data\\in_abs", u"windows"},
                                                               {u"\\Data\\in_dir\\deep.txt", u"deep"},
                                                               {u"\\Data\\..\\..\\Data\\in_rel", u"inside"}};
    for (const auto& [name, content] : rows)
        EXPECT_EQ(call("fLoadText", {S(name)}).result.s, content) << kp::host::utf8(name);
    EXPECT_TRUE(call("fFileExist", {S(u"\\Data\\in_dir\\deep.txt")}).result.b);

    EXPECT_EQ(call("fLoadText", {S(u"\\Data\\loop")}).error.system_code, 1921u);
    EXPECT_FALSE(call("fFileExist", {S(u"\\Data\\loop\\x")}).result.b);

    link("/Data/made.txt", "Data/dangle_in");
    EXPECT_TRUE(call("fSaveText", {S(u"\\Data\\dangle_in"), S(u"y")}).result.b);
    EXPECT_TRUE(fs::is_regular_file(root / "Data" / "made.txt")); // the target, read from the root
}

// A root replaced at its path is taken up at the first name not found in the kept one.
TEST_F(Confinement, ARootReplacedAtItsPathIsTakenUp) {
    EXPECT_TRUE(call("fFileExist", {S(u"\\Data\\in.txt")}).result.b);
    fs::rename(root, root.string() + ".old");
    put(root / "Data" / "new.txt", "new");
    EXPECT_TRUE(call("fFileExist", {S(u"\\Data\\new.txt")}).result.b);
    EXPECT_FALSE(call("fFileExist", {S(u"\\Data\\in.txt")}).result.b);
    EXPECT_TRUE(call("fSaveText", {S(u"\\Data\\made.txt"), S(u"y")}).result.b);
    EXPECT_TRUE(fs::exists(root / "Data" / "made.txt"));
}

// A folder swapped for a link between resolution and start: a binary runs the file resolved, a script
// (given to its interpreter by path) fails with 5.  The device root here is "/".
TEST(ProgramStart, ASwapAfterTheResolutionDoesNotRedirect) {
    namespace pf = kp::platform;
    kp::test::TempDir dir;
    const fs::path d = dir.path() / "d", other = dir.path() / "other";
    const fs::path script = dir.path() / "exit3.sh";
    std::ofstream(script) << "#!/bin/sh\nexit 3\n";
    fs::permissions(script, fs::perms::owner_all);
    // {what, into d/prog, into other/prog, started, the exit code else the start's error}
    const std::tuple<const char*, fs::path, fs::path, bool, uint32_t> rows[] = {
        {"binary", "/bin/false", "/bin/true", true, 1},
        {"script", script, "/bin/true", false, pf::kErrorAccessDenied}};
    for (const auto& [what, original, replacement, started, want] : rows) {
        for (const fs::path& p : {d, other, dir.path() / "d.old"})
            fs::remove_all(p);
        fs::create_directories(d);
        fs::create_directories(other);
        fs::copy_file(original, d / "prog");
        fs::copy_file(replacement, other / "prog");
        pf::ProgramFile program;
        ASSERT_TRUE(pf::open_program(pf::from_utf8((d / "prog").string()), program)) << what;
        fs::rename(d, dir.path() / "d.old");
        fs::create_directory_symlink(other, d);
        pf::ChildProcess child;
        pf::set_last_error(0);
        ASSERT_EQ(pf::start_process(program, {}, child), started) << what;
        uint32_t code = pf::last_error();
        if (started)
            while ((code = child.wait(1000)) == pf::kStillActive) {}
        EXPECT_EQ(code, want) << what;
    }
}

} // namespace
