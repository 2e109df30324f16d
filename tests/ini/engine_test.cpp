// engine_test.cpp - the INI engine on files: the line reader and its byte
// counts, the reader's and the writer's matching, the bytes the writer
// leaves on disk, and the rewrite under a file-size limit.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "files/ini.h"
#include "platform/codepage.h"
#include "platform/files.h"
#include "support/test_host.h"

namespace kp::files::ini {
namespace {

constexpr uint32_t kCp = 1252;
using Opt = std::optional<std::string>;

// Without a host the device root is "/": names are host paths here.
class Engine : public ::testing::Test {
  protected:
    kp::test::TempDir dir;

    std::filesystem::path path() const { return dir.path() / "t.ini"; }
    std::u16string name() const { return platform::from_utf8(path().string()); }
    void put(const std::string& bytes) { std::ofstream(path(), std::ios::binary | std::ios::trunc) << bytes; }
    std::string get() const {
        std::ifstream f(path(), std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    }
    // The reader's answer, or nullopt when it finds nothing.
    Opt read(const Opt& section, const Opt& key, std::size_t max = kReadMax) {
        std::string out;
        if (!read_file(name(), section ? &*section : nullptr, key ? &*key : nullptr, max, kCp, out))
            return std::nullopt;
        return out;
    }
    bool write(const std::string& section, const Opt& key, const Opt& value) {
        uint32_t code = 0;
        return write_file(name(), section, key ? &*key : nullptr, value ? &*value : nullptr, kCp, &code);
    }
    // Every line of the file with its byte count, through the line reader.
    std::vector<std::pair<std::string, int64_t>> lines() {
        IXStream s;
        EXPECT_TRUE(s.Open(name(), platform::kGenericRead, 3, platform::kOpenExisting, 0));
        std::vector<std::pair<std::string, int64_t>> out;
        std::string line;
        int64_t at = 0;
        for (int64_t n; (n = read_line(s, line)) >= 0;) {
            at += n;
            EXPECT_EQ(static_cast<int64_t>(s.GetPosition()), at) << "the position lies after the line";
            out.emplace_back(line, n);
        }
        return out;
    }
};

// --- Line reader ---------------------------------------------------------------

TEST_F(Engine, LineReaderEndsLinesAtCrLfOnlyAndCountsTheirBytes) {
    using Lines = std::vector<std::pair<std::string, int64_t>>;
    const std::string x79(79, 'x'), x80(80, 'x'), x200(200, 'y');
    struct Case {
        std::string file;
        Lines want;
    } cases[] = {
        {"", {}},
        {"a\r\nb", {{"a", 3}, {"b", 1}}},
        {"a\r\nb\r\n", {{"a", 3}, {"b", 3}}},
        {"\r\n\r\n", {{"", 2}, {"", 2}}},
        {"a\rb\nc\n\r\r\n", {{"a\rb\nc\n\r", 9}}}, // lone CR and LF are data
        {"no line end at all", {{"no line end at all", 18}}},
        {x79 + "\r\n" + "z", {{x79, 81}, {"z", 1}}}, // CR LF across the 80-byte boundary
        {x80 + "\r\n", {{x80, 82}}},                 // CR LF at the start of the second block
        {x200 + "\r\n" + x200, {{x200, 202}, {x200, 200}}},
        {std::string("a\0b\r\n", 5), {{std::string("a\0b", 3), 5}}},
        {"\r", {{"\r", 1}}},
    };
    for (const Case& c : cases) {
        put(c.file);
        EXPECT_EQ(lines(), c.want) << "file: " << c.file;
    }
}

TEST_F(Engine, LineReaderTakesLinesOfAMegabyte) {
    std::string big(1 << 20, 'v');
    put("[s]\r\nk=" + big + "\r\nafter=1\r\n");
    auto got = lines();
    ASSERT_EQ(got.size(), 3u);
    EXPECT_EQ(got[1].second, static_cast<int64_t>(big.size() + 4));
    EXPECT_EQ(got[2].first, "after=1");
    // The reader cuts the value at 8191 bytes and still finds what follows.
    EXPECT_EQ(read("s", "k"), big.substr(0, kReadMax));
    EXPECT_EQ(read("s", "after"), "1");
}

// --- Reader --------------------------------------------------------------------

TEST_F(Engine, ReaderTrimsIgnoresCaseAndKeepsKeysApart) {
    put("top=before any section\r\n"
        "; a comment\r\n"
        "  [Colours]  \r\n"
        "red = 1 \r\n"
        "\tGreen\t=\t 2\t\r\n"
        "blue2=no\r\n"
        "blues=no\r\n"
        "blue = a=b = c\r\n"
        ";grey=commented\r\n"
        "  ;white=commented too\r\n"
        "bare line\r\n"
        "black\t= \r\n"
        "[other]\r\n"
        "red=9\r\n");
    struct Case {
        Opt section, key, want;
    } cases[] = {
        {"colours", "RED", "1"},
        {"COLOURS", "green", "2"},
        {"Colours", "blue", "a=b = c"}, // value: after the first "="
        {"Colours", "blu", std::nullopt},
        {"Colours", "grey", std::nullopt},
        {"Colours", "white", std::nullopt},
        {"Colours", "black", ""}, // found, empty value
        {"Colours", "bare", std::nullopt},
        {"Colours", "top", std::nullopt},
        {"other", "red", "9"},
        {"nothing", "red", std::nullopt},
        {"Colour", "red", std::nullopt},
        {"Colours", std::nullopt, "red\r\nGreen\r\nblue2\r\nblues\r\nblue\r\nblack\r\n"},
        {"other", std::nullopt, "red\r\n"},
        {std::nullopt, std::nullopt, "Colours\r\nother\r\n"},
    };
    for (const Case& c : cases)
        EXPECT_EQ(read(c.section, c.key), c.want)
            << (c.section ? *c.section : "-") << " / " << (c.key ? *c.key : "-");
    std::filesystem::remove(path());
    EXPECT_EQ(read("Colours", "red"), std::nullopt) << "a missing file";
    EXPECT_FALSE(std::filesystem::exists(path())) << "reading creates no file";
}

TEST_F(Engine, ReaderMatchesTheStartOfTheHeaderAndStopsAtTheNextOne) {
    put("[s]junk after\r\n"
        "a=1\r\n"
        "[t\r\n" // no "]": no header for the reader
        "b=2\r\n"
        "[u]\r\n"
        "c=3\r\n");
    EXPECT_EQ(read("s", "a"), "1");
    EXPECT_EQ(read("s", "b"), "2");
    EXPECT_EQ(read("s", "c"), std::nullopt);
    EXPECT_EQ(read(std::nullopt, std::nullopt), "s\r\nu\r\n");
    EXPECT_EQ(read("s", std::nullopt), "a\r\nb\r\n");
}

TEST_F(Engine, ReaderFoldsTheAccentedLettersOfCodePage1252) {
    put("[\xC9T\xC9]\r\n\xE9t\xE9=summer\r\n");
    EXPECT_EQ(read("\xE9t\xE9", "\xC9T\xC9"), "summer");
    // An accented letter after the key is a letter: another key.
    put("[s]\r\nk\xE9=x\r\n");
    EXPECT_EQ(read("s", "k"), std::nullopt);
}

TEST_F(Engine, ListsStopAtTheResultLimit) {
    std::string file;
    for (int i = 0; i < 3000; ++i)
        file += "[section" + std::to_string(i) + "]\r\n";
    put(file);
    auto got = read(std::nullopt, std::nullopt);
    ASSERT_TRUE(got);
    EXPECT_EQ(got->size(), kReadMax);
    EXPECT_EQ(got->substr(0, 20), "section0\r\nsection1\r\n");
}

// --- Writer: the bytes on disk ------------------------------------------------------

TEST_F(Engine, WriterLeavesTheseBytes) {
    struct Case {
        const char* what;
        std::string before;
        std::string section;
        Opt key, value;
        std::string after;
    } cases[] = {
        {"new file", "", "s", "k", "v", "[s]\r\nk = v\r\n"},
        {"new key at the end of the last section", "[s]\r\na=1\r\n", "s", "k", "v",
         "[s]\r\na=1\r\nk = v\r\n"},
        {"replaced in the writer's form, others kept", "[s]\r\na=1\r\nk=old\r\nz = 2\r\n", "s", "k", "new",
         "[s]\r\na=1\r\nk = new\r\nz = 2\r\n"},
        {"replaced by a longer line", "[s]\r\nk=1\r\n[t]\r\nx=y\r\n", "s", "k", "a long value",
         "[s]\r\nk = a long value\r\n[t]\r\nx=y\r\n"},
        {"inserted before the next header", "[s]\r\na=1\r\n[t]\r\nb=2\r\n", "s", "k", "v",
         "[s]\r\na=1\r\nk = v\r\n[t]\r\nb=2\r\n"},
        {"a line starting with [ ends the section", "[s]\r\na=1\r\n[broken\r\n", "s", "k", "v",
         "[s]\r\na=1\r\nk = v\r\n[broken\r\n"},
        {"a line starting with LF ends the section", "[s]\r\n\nx\r\n", "s", "k", "v",
         "[s]\r\nk = v\r\n\nx\r\n"},
        {"header match regards case", "[S]\r\nk=1\r\n", "s", "k", "2", "[S]\r\nk=1\r\n[s]\r\nk = 2\r\n"},
        {"key match regards case", "[s]\r\nK=1\r\n", "s", "k", "2", "[s]\r\nK=1\r\nk = 2\r\n"},
        {"key followed by letters is another key", "[s]\r\nkey2=1\r\nkeys=1\r\n", "s", "key", "v",
         "[s]\r\nkey2=1\r\nkeys=1\r\nkey = v\r\n"},
        {"untrimmed: an indented key is another line", "[s]\r\n  k=1\r\n", "s", "k", "2",
         "[s]\r\n  k=1\r\nk = 2\r\n"},
        {"the first of two equal keys", "[s]\r\nk=1\r\nk=2\r\n", "s", "k", "3", "[s]\r\nk = 3\r\nk=2\r\n"},
        {"deleting a key", "[s]\r\na=1\r\nk = v\r\nb=2\r\n", "s", "k", std::nullopt, "[s]\r\na=1\r\nb=2\r\n"},
        {"deleting a missing key", "[s]\r\na=1\r\n", "s", "k", std::nullopt, "[s]\r\na=1\r\n"},
        {"deleting a key of a missing section adds the header", "[t]\r\n", "s", "k", std::nullopt,
         "[t]\r\n[s]\r\n"},
        {"deleting a section, header included", "[a]\r\nx=1\r\n[s]\r\nk=1\r\n;c\r\n\r\n[b]\r\ny=2\r\n", "s",
         std::nullopt, std::nullopt, "[a]\r\nx=1\r\n[b]\r\ny=2\r\n"},
        {"deleting the last section", "[a]\r\nx=1\r\n[s]\r\nk=1\r\n", "s", std::nullopt, std::nullopt,
         "[a]\r\nx=1\r\n"},
        {"deleting a missing section", "[a]\r\n", "s", std::nullopt, std::nullopt, "[a]\r\n"},
        {"appended text runs on after a last line without CR LF", "[t]\r\nx=1", "s", "k", "v",
         "[t]\r\nx=1[s]\r\nk = v\r\n"},
        {"a last key line without CR LF is replaced whole", "[s]\r\nk=1", "s", "k", "2", "[s]\r\nk = 2\r\n"},
        {"NUL bytes are data", std::string("[s]\r\nk=\0\0\r\n", 11), "s", "j", "v",
         std::string("[s]\r\nk=\0\0\r\nj = v\r\n", 18)},
    };
    for (const Case& c : cases) {
        put(c.before);
        EXPECT_TRUE(write(c.section, c.key, c.value)) << c.what;
        EXPECT_EQ(get(), c.after) << c.what;
    }
}

TEST_F(Engine, WhatTheWriterWritesTheReaderReads) {
    put("");
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(
            write("sec" + std::to_string(i % 7), "key" + std::to_string(i), "value " + std::to_string(i)));
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(read("SEC" + std::to_string(i % 7), "KEY" + std::to_string(i)),
                  "value " + std::to_string(i));
    for (int i = 0; i < 50; i += 2)
        ASSERT_TRUE(write("sec" + std::to_string(i % 7), "key" + std::to_string(i), std::nullopt));
    for (int i = 0; i < 50; ++i)
        EXPECT_EQ(read("sec" + std::to_string(i % 7), "key" + std::to_string(i)),
                  i % 2 ? Opt("value " + std::to_string(i)) : std::nullopt);
}

// --- Rewrite under a file-size limit ------------------------------------------------

// Runs `body` in a child whose files may not grow past `limit` bytes, with
// SIGXFSZ ignored so that the write fails instead of killing it.  Returns
// the child's exit code.
template <typename F> int limited(rlim_t limit, F body) {
    pid_t pid = fork();
    if (pid == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        struct rlimit rl = {limit, limit};
        setrlimit(RLIMIT_FSIZE, &rl);
        _exit(body());
    }
    int status = 0;
    waitpid(pid, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
}

TEST_F(Engine, FileSizeLimitHitInARewriteLeavesTheFileAsItWas) {
    std::string file = "[a]\r\n";
    for (int i = 0; i < 200; ++i)
        file += "key" + std::to_string(i) + " = " + std::string(20, 'a' + i % 26) + "\r\n";
    file += "[b]\r\nlast = 1\r\n";
    const std::string value(3000, 'V');
    struct Case {
        const char* what;
        rlim_t limit;
        std::string section, key;
    } cases[] = {
        {"growing key in the first section", file.size() + 100, "a", "key3"},
        {"new key before the next header", file.size() + 10, "a", "new"},
        {"new section at the end", file.size() + 1, "c", "k"},
        {"file already over the limit, shrinking rewrite", file.size() / 2, "a", "key150"},
    };
    for (const Case& c : cases) {
        put(file);
        const std::string v = std::string(c.what).find("shrinking") != std::string::npos ? "v" : value;
        int rc = limited(c.limit, [&] {
            uint32_t code = 0;
            bool ok = write_file(name(), c.section, &c.key, &v, kCp, &code);
            return ok ? 0 : code == 112 ? 1 : 2;
        });
        EXPECT_EQ(rc, 1) << c.what << ": refused with disk full (112)";
        EXPECT_EQ(get(), file) << c.what;
    }
    // Under a limit with room to spare the same rewrites succeed.
    put(file);
    EXPECT_EQ(limited(file.size() + 4000,
                      [&] {
                          uint32_t code = 0;
                          std::string k = "key3";
                          return write_file(name(), "a", &k, &value, kCp, &code) ? 0 : 1;
                      }),
              0);
    EXPECT_EQ(read("a", "key3"), value);
    EXPECT_EQ(read("b", "last"), "1");
}

} // namespace
} // namespace kp::files::ini
