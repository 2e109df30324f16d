// files_test.cpp - the file service, trash, clock, child processes and memory copies.
#include <gtest/gtest.h>

#include <csignal>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>
#include <tuple>

#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/directory.h"
#include "platform/files.h"
#include "platform/memory.h"
#include "platform/processes.h"
#include "platform/trash.h"
#include "platform/win32_error.h"
#include "support/test_host.h"

namespace kp::platform {
namespace {

namespace fs = std::filesystem;

// The code of a call's failure, 0 when it succeeds.
uint32_t code_of(bool ok) {
    return ok ? 0 : last_error();
}

// An environment variable set for the lifetime of the object.
struct ScopedEnv {
    std::string name;
    std::optional<std::string> old;
    ScopedEnv(const char* n, const std::string& value) : name(n) {
        if (const char* v = std::getenv(n)) old = v;
        setenv(n, value.c_str(), 1);
    }
    ~ScopedEnv() { old ? setenv(name.c_str(), old->c_str(), 1) : unsetenv(name.c_str()); }
};

// Without a host the device root is the host's "/": names are absolute host paths.
class FileService : public ::testing::Test {
  protected:
    kp::test::TempDir dir;
    std::u16string name(const std::string& rel) const { return from_utf8((dir.path() / rel).string()); }
    void put(const std::string& rel, const std::string& bytes) {
        std::ofstream(dir.path() / rel, std::ios::binary) << bytes;
    }
    FileHandle open(const std::string& rel, uint32_t access, uint32_t disposition) {
        return create_file(name(rel), access, kShareRead | kShareWrite, disposition, 0);
    }
    // The last error after an open (the handle closed), and whether it opened.
    using Opened = std::pair<bool, uint32_t>;
    Opened try_open(const std::string& rel, uint32_t access, uint32_t disposition) {
        set_last_error(0);
        FileHandle h = open(rel, access, disposition);
        Opened r{h != kInvalidFile, last_error()};
        if (r.first) close_file(h);
        return r;
    }
};

// In turn; unknown dispositions, and truncation without write access or a file, are refused.
TEST_F(FileService, Dispositions) {
    put("e", "data");
    // clang-format off
    const std::tuple<const char*, uint32_t, uint32_t, bool, uint32_t> rows[] = {
        {"f", kGenericWrite, kOpenExisting, false, kErrorFileNotFound},
        {"f", kGenericWrite, kCreateNew, true, 0}, {"f", kGenericWrite, kCreateNew, false, kErrorFileExists},
        {"f", kGenericRead, kOpenAlways, true, kErrorAlreadyExists},
        {"g", kGenericRead, kOpenAlways, true, 0},
        {"g", kGenericWrite, kCreateAlways, true, kErrorAlreadyExists},
        {"missing/f", kGenericRead, kOpenAlways, false, kErrorPathNotFound},
        {"missing", kGenericWrite, kTruncateExisting, false, kErrorFileNotFound},
        {"e", kGenericRead, kTruncateExisting, false, kErrorInvalidParameter},
        {"e", kGenericRead, 0, false, kErrorInvalidParameter},
        {"e", kGenericRead, 6, false, kErrorInvalidParameter},
        {"e", kGenericRead, 9, false, kErrorInvalidParameter}};
    // clang-format on
    for (const auto& [rel, access, disposition, opens, code] : rows)
        EXPECT_EQ(try_open(rel, access, disposition), Opened(opens, code)) << rel << " " << disposition;
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 4u); // never truncated
    EXPECT_TRUE(try_open("e", kGenericWrite, kTruncateExisting).first);
    EXPECT_EQ(std::filesystem::file_size(dir.path() / "e"), 0u);
}

TEST_F(FileService, ReadOnlyAttributeIsEnforcedForEveryUser) {
    put("ro", "keep");
    put("src", "new");
    ASSERT_TRUE(set_file_attributes(name("ro"), kAttributeReadOnly));
    EXPECT_EQ(get_file_attributes(name("ro")) & kAttributeReadOnly, kAttributeReadOnly);
    EXPECT_EQ(try_open("ro", kGenericWrite, kOpenExisting), Opened(false, kErrorAccessDenied));
    EXPECT_EQ(try_open("ro", kGenericRead, kCreateAlways), Opened(false, kErrorAccessDenied));
    EXPECT_EQ(code_of(delete_file(name("ro"))), kErrorAccessDenied);
    EXPECT_EQ(code_of(copy_file(name("src"), name("ro"), false)), kErrorAccessDenied);
    FileHandle h = open("ro", kGenericRead, kOpenExisting);
    ASSERT_NE(h, kInvalidFile);
    char buf[8];
    uint32_t n = 0;
    EXPECT_TRUE(read_file(h, buf, sizeof buf, &n));
    EXPECT_EQ(std::string(buf, n), "keep");
    EXPECT_EQ(code_of(write_file(h, "x", 1, &n)), kErrorAccessDenied);
    EXPECT_FALSE(set_end_of_file(h));
    close_file(h);
    ASSERT_TRUE(set_file_attributes(name("ro"), kAttributeNormal));
    EXPECT_TRUE(delete_file(name("ro")));
}

// The pointer moves from the current position (the only test of kFileCurrent); reads follow it.
TEST_F(FileService, PointerReadsAndWrites) {
    FileHandle h = open("p", kGenericRead | kGenericWrite, kCreateAlways);
    uint32_t n = 0;
    uint64_t pos = 0;
    char buf[16];
    EXPECT_TRUE(write_file(h, "hello", 5, &n));
    EXPECT_TRUE(set_file_pointer(h, -2, kFileCurrent, &pos));
    EXPECT_EQ(pos, 3u);
    EXPECT_TRUE(read_file(h, buf, 16, &n));
    EXPECT_EQ(std::string(buf, n), "lo");
    EXPECT_TRUE(read_file(h, buf, 16, &n));
    EXPECT_EQ(n, 0u);
    EXPECT_TRUE(close_file(h));
}

TEST_F(FileService, LocksConflictBetweenHandles) {
    put("l", "0123456789");
    FileHandle a = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    FileHandle b = open("l", kGenericRead | kGenericWrite, kOpenExisting);
    EXPECT_TRUE(lock_file(a, 2, 4));
    EXPECT_EQ(code_of(lock_file(b, 5, 1)), kErrorLockViolation);
    EXPECT_TRUE(lock_file(b, 6, 2));
    EXPECT_TRUE(unlock_file(a, 2, 4));
    EXPECT_TRUE(lock_file(b, 2, 4));
    EXPECT_TRUE(lock_file(a, 0, 0));
    EXPECT_FALSE(lock_file(a, UINT64_MAX - 1, 5));
    close_file(a);
    close_file(b);
}

TEST_F(FileService, NameOperations) {
    put("a.txt", "abc");
    // In turn: what each call gives (0 when it succeeds).
    const std::pair<uint32_t, uint32_t> steps[] = {
        {code_of(copy_file(name("a.txt"), name("b.txt"), true)), 0},
        {code_of(copy_file(name("a.txt"), name("b.txt"), true)), kErrorFileExists},
        {code_of(copy_file(name("A.TXT"), name("a.txt"), false)), kErrorSharingViolation},
        {code_of(move_file(name("a.txt"), name("b.txt"))), kErrorAlreadyExists},
        {code_of(move_file(name("a.txt"), name("A.txt"))), 0}, // case only
        {code_of(create_directory(name("d"))), 0},
        {code_of(create_directory(name("D"))), kErrorAlreadyExists},
        {code_of(create_directory(name("x/y"))), kErrorPathNotFound},
        {code_of(move_file(name("b.txt"), name("d/b.txt"))), 0},
        {code_of(remove_directory(name("d"))), kErrorDirNotEmpty},
        {code_of(remove_directory(name("A.txt"))), kErrorDirectory},
        {code_of(delete_file(name("d"))), kErrorAccessDenied},
    };
    for (std::size_t i = 0; i < std::size(steps); ++i)
        EXPECT_EQ(steps[i].first, steps[i].second) << "step " << i;
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "A.txt"));
    std::vector<FileInfo> entries;
    EXPECT_TRUE(list_directory(name(""), entries));
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(std::tuple(entries[0].name, entries[0].attributes, entries[0].size, entries[1].attributes),
              std::tuple(u"A.txt", kAttributeNormal, 3u, kAttributeDirectory));
    EXPECT_EQ(code_of(list_directory(name("A.txt"), entries)), kErrorDirectory);
    EXPECT_TRUE(delete_file(name("D/B.TXT")));
    EXPECT_TRUE(remove_directory(name("d")));
    for (const auto& [rel, code] :
         {std::pair{"d", kErrorFileNotFound}, std::pair{"d/e", kErrorPathNotFound}}) {
        EXPECT_EQ(get_file_attributes(name(rel)), kInvalidAttributes);
        EXPECT_EQ(last_error(), code);
    }
}

// The home trash of a temporary data home, on the file system of the files.
class Trash : public FileService {
  protected:
    ScopedEnv xdg{"XDG_DATA_HOME", (dir.path() / "xdg").string()};
    void SetUp() override {
        fs::create_directories(dir.path() / "xdg");
        fs::create_directories(dir.path() / "d");
    }
    fs::path host(const std::string& rel) const { return dir.path() / rel; }
    std::string slurp(const fs::path& p) const {
        std::stringstream s;
        s << std::ifstream(p).rdbuf();
        return s.str();
    }
};

TEST_F(Trash, RefusalsLeaveEverythingInPlace) {
    // The device root itself, a missing file, a missing folder.
    for (const auto& [trashed, code] : {std::pair{std::u16string(u"/"), kErrorAccessDenied},
                                        {name("d/none.txt"), kErrorFileNotFound},
                                        {name("nodir/none.txt"), kErrorPathNotFound}}) {
        set_last_error(0);
        EXPECT_EQ(code_of(move_to_trash(trashed)), code);
    }
    EXPECT_FALSE(fs::exists(host("xdg/Trash")));
}

TEST_F(Trash, InfoFileRecordsThePercentEncodedPath) {
    put("d/a b%\xC3\xA9.txt", "x");
    ASSERT_TRUE(move_to_trash(name("d/a b%\xC3\xA9.txt")));
    EXPECT_FALSE(fs::exists(host("d/a b%\xC3\xA9.txt")));
    EXPECT_TRUE(fs::exists(host("xdg/Trash/files/a b%\xC3\xA9.txt")));
    const std::string info = slurp(host("xdg/Trash/info/a b%\xC3\xA9.txt.trashinfo"));
    EXPECT_EQ(info.rfind("[Trash Info]\nPath=", 0), 0u) << info;
    EXPECT_NE(info.find("/d/a%20b%25%C3%A9.txt\n"), std::string::npos) << info;
    EXPECT_NE(info.find("\nDeletionDate=2"), std::string::npos) << info;
    // Directories go whole.
    fs::create_directories(host("d/sub/inner"));
    put("d/sub/inner/f", "1");
    ASSERT_TRUE(move_to_trash(name("d/sub")));
    EXPECT_EQ(slurp(host("xdg/Trash/files/sub/inner/f")), "1");
}

TEST_F(Trash, SameNamesAndLeftoversGetTheNextNumber) {
    // A leftover in files/ without its info file is never overwritten.
    fs::create_directories(host("xdg/Trash/files"));
    put("xdg/Trash/files/k.txt.2", "leftover");
    for (const char* content : {"first", "second", "third"}) {
        put("d/k.txt", content);
        ASSERT_TRUE(move_to_trash(name("d/k.txt"))) << content;
    }
    EXPECT_EQ(slurp(host("xdg/Trash/files/k.txt")), "first");
    EXPECT_EQ(slurp(host("xdg/Trash/files/k.txt.2")), "leftover");
    EXPECT_FALSE(fs::exists(host("xdg/Trash/info/k.txt.2.trashinfo")));
    EXPECT_EQ(slurp(host("xdg/Trash/files/k.txt.3")), "second");
    EXPECT_EQ(slurp(host("xdg/Trash/files/k.txt.4")), "third");
    EXPECT_TRUE(fs::exists(host("xdg/Trash/info/k.txt.4.trashinfo")));
}

TEST_F(Trash, AnUnusableTrashKeepsTheFile) {
    // The data home is a plain file: the trash cannot be made under it.
    put("blocker", "not a directory");
    setenv("XDG_DATA_HOME", host("blocker").c_str(), 1);
    put("d/keep.txt", "keep");
    EXPECT_NE(code_of(move_to_trash(name("d/keep.txt"))), kErrorSuccess);
    EXPECT_EQ(slurp(host("d/keep.txt")), "keep");
}

TEST_F(Trash, HomeIsTheFallbackOfTheDataHome) {
    // A relative XDG_DATA_HOME is ignored, as the trash rules require.
    setenv("XDG_DATA_HOME", "relative/dir", 1);
    fs::create_directories(host("home"));
    ScopedEnv home("HOME", host("home").string());
    put("d/h.txt", "h");
    ASSERT_TRUE(move_to_trash(name("d/h.txt")));
    EXPECT_TRUE(fs::exists(host("home/.local/share/Trash/files/h.txt")));
    EXPECT_FALSE(fs::exists("relative"));
}

TEST(ClockRefusals, FieldsOutOfRangeNeverReachTheSystem) {
    SystemTime good;
    good.year = 2024, good.month = 2, good.day = 29, good.hour = 12;
    const std::pair<int32_t SystemTime::*, int32_t> rows[] = {
        {&SystemTime::year, 1600},         {&SystemTime::year, 30828},     {&SystemTime::month, 0},
        {&SystemTime::month, 13},          {&SystemTime::day, 0},          {&SystemTime::day, 32},
        {&SystemTime::hour, 24},           {&SystemTime::minute, -1},      {&SystemTime::second, 60},
        {&SystemTime::milliseconds, 1000}, {&SystemTime::milliseconds, -1}};
    for (const auto& [field, value] : rows) {
        SystemTime t = good;
        t.*field = value;
        uint32_t error = 0;
        set_last_error(0);
        EXPECT_EQ(code_of(system_clock().set_local_time(t, &error)), kErrorInvalidParameter) << value;
        EXPECT_EQ(error, kErrorInvalidParameter);
        EXPECT_FALSE(system_clock().set_local_time(t, nullptr));
        SystemTime out;
        EXPECT_FALSE(utc_to_local(t, out)) << value;
        EXPECT_FALSE(local_to_utc(t, out)) << value;
    }
}

TEST(ChildProcesses, MovingKeepsOneOwnerOfTheProcess) {
    ChildProcess a;
    ASSERT_TRUE(start_process("/bin/sh", {"-c", "exit 7"}, a));
    const int32_t pid = a.pid();
    ChildProcess b(std::move(a));
    EXPECT_EQ(std::tuple(a.valid(), b.pid()), std::tuple(false, pid));
    ChildProcess c;
    ASSERT_TRUE(start_process("/bin/sh", {"-c", "exit 3"}, c));
    c = std::move(b); // c's first process is waited for, then c owns b's
    EXPECT_EQ(std::tuple(b.valid(), c.pid()), std::tuple(false, pid));
    ChildProcess& same = c;
    c = std::move(same); // moving onto itself changes nothing
    EXPECT_EQ(c.pid(), pid);
    EXPECT_EQ(c.wait(10000), 7u);
    EXPECT_EQ(c.wait(0), 7u); // the code stays once seen
    // A program that cannot start leaves no process and no code (tests/process has the other kinds).
    const std::tuple<const char*, std::vector<std::string>, uint32_t> refused[] = {
        {"/nonexistent/program", {}, kErrorFileNotFound},
        {"/bin/true", {std::string(200000, 'a')}, kErrorFilenameExcedRange}, // one argument too long
    };
    for (const auto& [program, args, code] : refused) {
        ChildProcess none;
        set_last_error(0);
        EXPECT_EQ(code_of(start_process(program, args, none)), code);
        EXPECT_FALSE(none.valid());
        EXPECT_EQ(none.wait(0), 0xFFFFFFFFu);
        EXPECT_EQ(start_background_process(program, args), 0);
        EXPECT_EQ(last_error(), code);
    }
}

TEST(ChildProcesses, CollectingStartedChildrenLeavesAWaitedChildsCode) {
    ChildProcess waited;
    ASSERT_TRUE(start_process("/bin/sh", {"-c", "sleep 0.2; exit 7"}, waited));
    const int32_t background = start_background_process("/bin/sh", {"-c", "exit 0"});
    ASSERT_GT(background, 0);
    uint32_t code = kStillActive;
    for (int i = 0; i < 1000 && code == kStillActive; ++i) {
        collect_children();
        code = waited.wait(10);
    }
    EXPECT_EQ(code, 7u);
    collect_children();
    EXPECT_NE(::kill(background, 0), 0) << "the ended background child was collected";
}

TEST(ChildProcesses, ACodeCollectedElsewhereReadsAsUnknown) {
    struct sigaction ignore {
    }, saved{}; // with SIGCHLD ignored the system reaps the child: its code is lost
    ignore.sa_handler = SIG_IGN;
    sigaction(SIGCHLD, &ignore, &saved);
    ChildProcess child;
    const bool started = start_process("/bin/sh", {"-c", "exit 5"}, child);
    uint32_t code = kStillActive;
    for (int i = 0; started && i < 100 && code == kStillActive; ++i)
        code = child.wait(100);
    sigaction(SIGCHLD, &saved, nullptr);
    ASSERT_TRUE(started);
    EXPECT_EQ(code, 0xFFFFFFFFu);
}

TEST_F(FileService, PlainFilesAndMissingFoldersWhereADirectoryIsNeeded) {
    put("file", "12345");
    const std::pair<std::string, uint32_t> rows[] = {
        {"file", kErrorDirectory}, {"none", kErrorPathNotFound}, {"none/deeper", kErrorPathNotFound}};
    for (const auto& [rel, code] : rows) {
        DirectoryReader reader;
        set_last_error(0);
        EXPECT_EQ(code_of(reader.open(name(rel))), code) << rel;
        uint64_t total = 99;
        EXPECT_EQ(code_of(directory_size(name(rel), total)), code) << rel;
        EXPECT_FALSE(remove_directory_tree(name(rel))) << rel;
    }
    EXPECT_EQ(fs::file_size(dir.path() / "file"), 5u);
    // A file standing where the tree, or one of its levels, should be.
    for (const char* rel : {"file", "file/sub", "file/sub/deeper"}) {
        set_last_error(0);
        EXPECT_NE(code_of(create_directory_tree(name(rel))), kErrorSuccess) << rel;
    }
    EXPECT_TRUE(fs::is_regular_file(dir.path() / "file"));
    EXPECT_TRUE(create_directory_tree(name("a/b/c")));
    EXPECT_TRUE(create_directory_tree(name("a/b/c"))); // already there
    EXPECT_TRUE(fs::is_directory(dir.path() / "a/b/c"));
}

TEST_F(FileService, RemovingATreeNeverFollowsItsLinks) {
    fs::create_directories(dir.path() / "outside/keep");
    std::ofstream(dir.path() / "outside/keep/f") << "kept";
    fs::create_directories(dir.path() / "tree/sub");
    std::ofstream(dir.path() / "tree/sub/ro") << "ro";
    fs::permissions(dir.path() / "tree/sub/ro", fs::perms::owner_read);
    fs::create_directory_symlink(dir.path() / "outside", dir.path() / "tree/sub/link");
    fs::create_symlink(dir.path() / "nowhere", dir.path() / "tree/dangling");
    uint64_t total = 0;
    ASSERT_TRUE(directory_size(name("tree"), total));
    EXPECT_EQ(total, 2u); // the linked folder is not counted
    ASSERT_TRUE(remove_directory_tree(name("tree")));
    EXPECT_FALSE(fs::exists(dir.path() / "tree"));
    EXPECT_TRUE(fs::exists(dir.path() / "outside/keep/f"));
}

TEST_F(FileService, HandlesRefuseWhatTheirAccessForbids) {
    EXPECT_EQ(create_file(u"/", kGenericRead, kShareRead, kOpenExisting, 0), kInvalidFile); // the root
    EXPECT_EQ(last_error(), kErrorAccessDenied);
    put("f", "0123456789");
    FileHandle reader = open("f", kGenericRead, kOpenExisting);
    ASSERT_NE(reader, kInvalidFile);
    uint64_t pos = 77;
    for (uint32_t origin : {3u, 4u, 0xFFFFFFFFu})
        EXPECT_EQ(code_of(set_file_pointer(reader, 0, origin, &pos)), kErrorInvalidParameter) << origin;
    EXPECT_EQ(pos, 77u);
    // A whole-file write lock needs write access; a read lock is granted and released.
    EXPECT_EQ(code_of(lock_whole_file(reader, true)), kErrorAccessDenied);
    EXPECT_TRUE(lock_whole_file(reader, false));
    EXPECT_TRUE(unlock_whole_file(reader));
    EXPECT_TRUE(unlock_whole_file(reader)); // nothing held: still fine
    FileHandle writer = open("f", kGenericWrite, kOpenExisting);
    ASSERT_NE(writer, kInvalidFile);
    EXPECT_EQ(code_of(lock_whole_file(writer, false)), kErrorAccessDenied); // a read lock, write-only handle
    EXPECT_TRUE(lock_whole_file(writer, true));
    EXPECT_TRUE(unlock_whole_file(writer));
    EXPECT_TRUE(close_file(writer));
    EXPECT_TRUE(close_file(reader));
    EXPECT_EQ(code_of(unlock_whole_file(kInvalidFile)), kErrorInvalidHandle);
}

TEST(MemoryCopies, AddressesOfThisProcessOnly) {
    char source[8] = "abcdefg";
    char target[8] = {};
    EXPECT_TRUE(read_memory(reinterpret_cast<uintptr_t>(source), target, 8));
    EXPECT_STREQ(target, "abcdefg");
    EXPECT_TRUE(write_memory(reinterpret_cast<uintptr_t>(target), "XYZ", 3));
    EXPECT_STREQ(target, "XYZdefg");
    EXPECT_TRUE(read_memory(0, target, 0)); // nothing to copy
    const std::pair<uintptr_t, const char*> rows[] = {
        {0, "null"}, {16, "first page"}, {~uintptr_t(0) - 64, "top of the address space"}};
    for (const auto& [address, why] : rows) {
        set_last_error(0);
        EXPECT_EQ(code_of(read_memory(address, target, 4)), kErrorNoAccess) << why;
        EXPECT_EQ(code_of(write_memory(address, source, 4)), kErrorNoAccess) << why;
    }
    EXPECT_STREQ(target, "XYZdefg");
}

TEST_F(FileService, CopiesAcrossFileSystemsAndOntoFolders) {
    // A file whose size reads 0 until it is read is copied whole, through the buffer.
    ASSERT_TRUE(copy_file(u"/proc/self/status", name("status"), true));
    std::ifstream in(dir.path() / "status");
    std::string first;
    std::getline(in, first);
    EXPECT_EQ(first.rfind("Name:", 0), 0u) << first;
    EXPECT_GT(fs::file_size(dir.path() / "status"), 100u);
    // A folder where the copy should go is never replaced.
    fs::create_directories(dir.path() / "folder");
    put("src", "s");
    set_last_error(0);
    EXPECT_NE(code_of(copy_file(name("src"), name("folder"), false)), kErrorSuccess);
    EXPECT_TRUE(fs::is_directory(dir.path() / "folder"));
}

} // namespace
} // namespace kp::platform
