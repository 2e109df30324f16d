// listing_test.cpp - walks with a host procedure, their text forms, the trash (trash-cli), selectors.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <tuple>

#include "files_fixture.h"

namespace kp::files::test {
namespace {

namespace fs = std::filesystem;
using kp::host::SelectorRequest;

struct Seen {
    std::u16string dir, name;
    int64_t number, user;
};

class Listing : public DeviceTest {
  protected:
    void SetUp() override {
        for (const char* rel :
             {"d/a.txt", "d/b.dat", "d/.hid.txt", "d/sub/c.txt", "d/.hsub/e.txt", "d/sub/deep/f.txt"})
            put(rel, "x");
    }
    // Walks with a procedure that records its calls and answers `go(n)`.
    int64_t walk(const char* fn, const std::u16string& path, std::vector<Value> more, std::vector<Seen>& seen,
                 std::function<bool(int64_t)> go = nullptr) {
        std::vector<Value> args = {S(path), Value::procedure([&](std::vector<Value>& a) {
                                       seen.push_back({a[0].s, a[1].s, a[2].i, a[3].i});
                                       return Value::boolean(go ? go(a[2].i) : true);
                                   })};
        for (Value& v : more)
            args.push_back(std::move(v));
        return call_with(fn, args).result.i;
    }
    static std::u16string names(const std::vector<Seen>& seen) {
        std::u16string out;
        for (const Seen& s : seen)
            out += (out.empty() ? u"" : u" ") + s.dir + s.name;
        return out;
    }
};

TEST_F(Listing, ProcedureForms) {
    const std::tuple<const char*, const char16_t*, int32_t, std::u16string> rows[] = {
        {"fListFile", u"\\d\\*.txt", 0,
         u"\\d\\.hid.txt \\d\\a.txt \\d\\.hsub\\e.txt \\d\\sub\\c.txt \\d\\sub\\deep\\f.txt"},
        {"fListFile", u"\\d\\*.txt", 2, u"\\d\\.hid.txt \\d\\a.txt"},
        {"fListFile", u"\\d\\*.txt", 0x100,
         u"\\d\\a.txt \\d\\.hsub\\e.txt \\d\\sub\\c.txt \\d\\sub\\deep\\f.txt"},
        {"fListFile", u"\\d\\*.txt", 0x200,
         u"\\d\\.hid.txt \\d\\a.txt \\d\\sub\\c.txt \\d\\sub\\deep\\f.txt"},
        {"fListFile", u"\\D\\*.DAT", 0, u"\\D\\b.dat"},
        {"fListFile", u"\\d\\", 2, u"\\d\\.hid.txt \\d\\a.txt \\d\\b.dat"},
        {"fListDirectory", u"\\d\\*", 0, u"\\d\\.hsub \\d\\sub \\d\\sub\\deep"},
        {"fListDirectory", u"\\d\\*", 0x202, u"\\d\\sub"}};
    for (const auto& [fn, path, options, expected] : rows) {
        SCOPED_TRACE(std::string(fn) + " " + host::utf8(path) + " " + std::to_string(options));
        std::vector<Seen> seen;
        int64_t n = walk(fn, path, {I(42), I(options)}, seen);
        EXPECT_EQ(names(seen), expected);
        EXPECT_EQ(n, static_cast<int64_t>(std::count(expected.begin(), expected.end(), u' ') + 1));
        for (std::size_t k = 0; k < seen.size(); ++k)
            EXPECT_EQ(std::tuple(seen[k].number, seen[k].user), std::tuple(int64_t(k + 1), 42));
    }
}

TEST_F(Listing, StopsOnFalseAndWithoutUserValue) {
    std::vector<Seen> seen;
    EXPECT_EQ(walk("fListFile", u"\\d\\*.txt", {}, seen, [](int64_t n) { return n < 2; }), 2);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].user, 0);
    // A procedure that answers nothing stops the walk at once.
    std::vector<Value> args = {S(u"\\d\\*.txt"),
                               Value::procedure([](std::vector<Value>&) { return Value(); })};
    EXPECT_EQ(call_with("fListFile", args).result.i, 1);
}

TEST_F(Listing, Interrupted) {
    // Escape pressed during the third entry: the walk ends before the fourth.
    int pressed_at = 0, queries = 0;
    fx.host->set_key_state([&](int32_t vk) -> int32_t {
        ++queries;
        return vk == 27 && pressed_at > 0 ? 0x0001 : 0;
    });
    std::vector<Seen> seen;
    int64_t n = walk("fListFile", u"\\d\\*.txt", {I(0), I(4)}, seen, [&](int64_t k) {
        if (k == 3) pressed_at = 3;
        return true;
    });
    EXPECT_TRUE(n == 3 && queries > 1) << n << " " << queries;
    // Without frInterruptible the key is not read.
    queries = 0;
    EXPECT_EQ((std::tuple{walk("fListFile", u"\\d\\*.txt", {}, seen), queries}), std::tuple(5, 0));
    // A key down before the walk is read once first and does not interrupt it.
    int calls = 0;
    fx.host->set_key_state([&](int32_t) -> int32_t { return calls++ == 0 ? 0x0001 : 0; });
    EXPECT_EQ(walk("fListFile", u"\\d\\*.txt", {I(0), I(4)}, seen), 5);
    fx.host->set_key_state(nullptr);
}

TEST_F(Listing, TextForms) {
    expect_calls({{"fListFile", {S(u"\\d\\*.txt"), I(2)}, u"\\d\\.hid.txt\r\n\\d\\a.txt"},
                  {"fListFile", {S(u"\\d\\*.txt"), I(0x112)}, u"\\d\\a.txt\t"}, // 0644: no archive
                  {"fListDirectory", {S(u"\\d\\*"), I(0x210)}, u"\\d\\sub\tD\r\n\\d\\sub\\deep\tD"},
                  {"fAttributeReadOnly", {S(u"\\d\\a.txt"), Value::boolean(true)}, u"true"},
                  {"fListFile", {S(u"\\d\\*"), I(8)}, u"\\d\\a.txt"},
                  {"fListFile", {S(u"\\none\\*")}, u"", kAny, kAny, 3}});
}

TEST_F(Listing, LoopsUnreadableDirectoriesAndFailingProcedures) {
    fs::create_directory_symlink(host_path("d"), host_path("d/sub/back")); // a loop
    fs::create_symlink(host_path("d/self"), host_path("d/self"));          // a link to itself
    std::vector<Seen> seen;
    EXPECT_EQ(walk("fListFile", u"\\d\\*.txt", {}, seen), 5);
    if (geteuid() != 0) {
        chmod(host_path("d/sub").c_str(), 0);
        EXPECT_EQ(walk("fListFile", u"\\d\\*.txt", {}, seen), 3); // left out, the walk goes on
        chmod(host_path("d/sub").c_str(), 0755);
    }
    call("fListFile", {S(u"\\d\\*"), Value::none()}); // no procedure: no crash
}

TEST_F(Listing, RecycleBinSeenByTrashList) {
    if (std::system("command -v trash-list >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "trash-cli is not installed";
    // The trash of a temporary data home on the device's file system.
    fs::path home = fx.dir.path() / "xdg";
    fs::create_directories(home);
    const char* old = std::getenv("XDG_DATA_HOME");
    std::string saved = old ? old : "";
    setenv("XDG_DATA_HOME", home.c_str(), 1);
    for (const char* f : {"r/one.txt", "r/two.txt", "r/three.dat"})
        put(f, "1");
    EXPECT_EQ(call("fDelete", {S(u"\\r\\one.txt"), I(0x100)}).result.i, 1);
    EXPECT_EQ(call("fDelete", {S(u"\\r\\*.txt"), I(0x100)}).result.i, 1);
    put("r/one.txt", "again");
    EXPECT_EQ(call("fDelete", {S(u"\\r\\one.txt"), I(0x100)}).result.i, 1);
    EXPECT_FALSE(fs::exists(host_path("r/one.txt")));
    EXPECT_TRUE(fs::exists(host_path("r/three.dat")));
    EXPECT_EQ(call("fDelete", {S(u"\\r\\none.txt"), I(0x100)}).error.system_code, 2u);

    const std::string listing = capture("XDG_DATA_HOME='" + home.string() + "' trash-list 2>/dev/null");
    if (old)
        setenv("XDG_DATA_HOME", saved.c_str(), 1);
    else
        unsetenv("XDG_DATA_HOME");
    const std::string one = host_path("r/one.txt").string(), two = host_path("r/two.txt").string();
    std::size_t first = listing.find(one);
    ASSERT_NE(first, std::string::npos) << listing;
    EXPECT_NE(listing.find(one, first + 1), std::string::npos) << listing; // both deletions of one.txt
    EXPECT_NE(listing.find(two), std::string::npos) << listing;
    EXPECT_EQ(listing.find("three"), std::string::npos) << listing;
    EXPECT_TRUE(fs::exists(home / "Trash/files/one.txt") &&
                fs::exists(home / "Trash/info/one.txt.trashinfo"));
}

TEST_F(Listing, SelectorsAnsweredByTheHost) {
    // No selector: every dialog is cancelled.
    EXPECT_EQ(call("fGraphicFilter", {}).result.s, u"");
    std::vector<SelectorRequest> asked;
    std::u16string answer = u"\\chosen.txt";
    fx.host->set_selector([&](const SelectorRequest& r) {
        asked.push_back(r);
        return answer;
    });
    EXPECT_EQ(call("fSelect", {S(u"\\"), S(u"f"), S(u"Title"), S(u"Text|*.txt"), S(u"txt"), I(3)}).result.s,
              answer);
    EXPECT_EQ(call("fSelectDir", {S(u"\\"), S(u"Pick")}).result.s, answer);
    ASSERT_EQ(asked.size(), 2u);
    ASSERT_EQ(asked[0].texts.size(), 5u);
    EXPECT_EQ(std::tuple(asked[0].kind, asked[0].texts[3], asked[0].options, asked[1].kind),
              std::tuple(KP_SELECT_FILE, u"Text|*.txt", 3, KP_SELECT_DIRECTORY));
    // An answer longer than the first buffer comes back whole.
    answer = u"\\" + std::u16string(5000, u'x');
    EXPECT_EQ(call("fGraphicFilter", {}).result.s, answer);
    EXPECT_EQ(asked.back().kind, KP_SELECT_GRAPHIC_FILTER);
    answer.clear();
    EXPECT_EQ(call("fSelect", {S(u"a"), S(u"b"), S(u"c"), S(u"d")}).result.s, u"");
    fx.host->set_selector(nullptr);
}

} // namespace
} // namespace kp::files::test
