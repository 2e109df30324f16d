// engine_test.cpp - the INI engine on files: line reader, reader, writer, rewrite under a size limit.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <sys/resource.h>
#include <sys/wait.h>
#include <tuple>
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
    static std::string crlf(std::string s) {
        for (std::size_t i = 0; (i = s.find('|', i)) != std::string::npos; i += 2)
            s.replace(i, 1, "\r\n");
        return s;
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

TEST_F(Engine, LineReaderEndsLinesAtCrLfOnlyAndCountsTheirBytes) {
    using Lines = std::vector<std::pair<std::string, int64_t>>;
    const std::string x79(79, 'x'), x80(80, 'x'), x200(200, 'y');
    const std::pair<std::string, Lines> cases[] = {
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
    for (const auto& [file, want] : cases) {
        put(file);
        EXPECT_EQ(lines(), want) << "file: " << file;
    }
}

TEST_F(Engine, LineReaderTakesLinesOfAMegabyte) {
    const std::string big(1 << 20, 'v');
    put("[s]\r\nk=" + big + "\r\nafter=1\r\n");
    EXPECT_EQ(lines(), (std::vector<std::pair<std::string, int64_t>>{
                           {"[s]", 5}, {"k=" + big, (1 << 20) + 4}, {"after=1", 9}}));
    EXPECT_EQ(read("s", "k"), big.substr(0, kReadMax)); // cut, and what follows is still found
    EXPECT_EQ(read("s", "after"), "1");
}

TEST_F(Engine, ReaderTrimsIgnoresCaseAndKeepsKeysApart) {
    put(crlf("top=before any section|; a comment|  [Colours]  |red = 1 |\tGreen\t=\t 2\t|blue2=no|blues=no|"
             "blue = a=b = c|;grey=commented|  ;white=commented too|bare line|black\t= |[other]|red=9|"));
    // A value runs from after the first "="; no section or no key lists the names.
    const Opt none;
    const std::tuple<Opt, Opt, Opt> cases[] = {
        {"colours", "RED", "1"},  {"COLOURS", "green", "2"}, {"Colours", "blue", "a=b = c"},
        {"Colours", "blu", none}, {"Colours", "grey", none}, {"Colours", "white", none},
        {"Colours", "black", ""}, {"Colours", "bare", none}, {"Colours", "top", none},
        {"other", "red", "9"},    {"nothing", "red", none},  {"Colour", "red", none},
    };
    for (const auto& [section, key, want] : cases)
        EXPECT_EQ(read(section, key), want) << section.value_or("-") << " / " << key.value_or("-");
    EXPECT_EQ(read("Colours", none), crlf("red|Green|blue2|blues|blue|black|"));
    EXPECT_EQ(read("other", none), "red\r\n");
    EXPECT_EQ(read(none, none), "Colours\r\nother\r\n");
    std::filesystem::remove(path());
    EXPECT_EQ(read("Colours", "red"), std::nullopt) << "a missing file";
    EXPECT_FALSE(std::filesystem::exists(path())) << "reading creates no file";
}

TEST_F(Engine, ReaderMatchesTheStartOfTheHeaderAndStopsAtTheNextOne) {
    put(crlf("[s]junk after|a=1|[t|b=2|[u]|c=3|")); // "[t" without "]": no header for the reader
    EXPECT_EQ(std::tuple(read("s", "a"), read("s", "b"), read("s", "c")), std::tuple("1", "2", std::nullopt));
    EXPECT_EQ(std::tuple(read(std::nullopt, std::nullopt), read("s", std::nullopt)),
              std::tuple("s\r\nu\r\n", "a\r\nb\r\n"));
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
    EXPECT_EQ(std::tuple(got->size(), got->substr(0, 20)), std::tuple(kReadMax, "section0\r\nsection1\r\n"));
}

TEST_F(Engine, WriterLeavesTheseBytes) {
    // {before, section, key, value, after}; "|" stands for CR LF.
    const std::tuple<std::string, std::string, Opt, Opt, std::string> cases[] = {
        {"", "s", "k", "v", "[s]|k = v|"}, // a new file
        {"[s]|a=1|", "s", "k", "v", "[s]|a=1|k = v|"},
        {"[s]|a=1|k=old|z = 2|", "s", "k", "new", "[s]|a=1|k = new|z = 2|"}, // the writer's form
        {"[s]|k=1|[t]|x=y|", "s", "k", "a long value", "[s]|k = a long value|[t]|x=y|"},
        {"[s]|a=1|[t]|b=2|", "s", "k", "v", "[s]|a=1|k = v|[t]|b=2|"}, // before the next header
        {"[s]|a=1|[broken|", "s", "k", "v", "[s]|a=1|k = v|[broken|"}, // "[" ends the section
        {"[s]|\nx|", "s", "k", "v", "[s]|k = v|\nx|"},                 // and so does LF
        {"[S]|k=1|", "s", "k", "2", "[S]|k=1|[s]|k = 2|"},             // header and key match regard case
        {"[s]|K=1|", "s", "k", "2", "[s]|K=1|k = 2|"},
        {"[s]|key2=1|keys=1|", "s", "key", "v", "[s]|key2=1|keys=1|key = v|"}, // followed by letters
        {"[s]|  k=1|", "s", "k", "2", "[s]|  k=1|k = 2|"},                     // indented: untrimmed
        {"[s]|k=1|k=2|", "s", "k", "3", "[s]|k = 3|k=2|"},                     // the first of two
        {"[s]|a=1|k = v|b=2|", "s", "k", std::nullopt, "[s]|a=1|b=2|"},        // deleting a key
        {"[s]|a=1|", "s", "k", std::nullopt, "[s]|a=1|"},                      // a missing key
        {"[t]|", "s", "k", std::nullopt, "[t]|[s]|"}, // a key of a missing section adds the header
        {"[a]|x=1|[s]|k=1|;c||[b]|y=2|", "s", std::nullopt, std::nullopt, "[a]|x=1|[b]|y=2|"}, // a section
        {"[a]|x=1|[s]|k=1|", "s", std::nullopt, std::nullopt, "[a]|x=1|"}, // the last section
        {"[a]|", "s", std::nullopt, std::nullopt, "[a]|"},                 // a missing section
        {"[t]|x=1", "s", "k", "v", "[t]|x=1[s]|k = v|"}, // runs on after a last line without CR LF
        {"[s]|k=1", "s", "k", "2", "[s]|k = 2|"},        // such a last key line is replaced whole
        {std::string("[s]|k=\0\0|", 9), "s", "j", "v", std::string("[s]|k=\0\0|j = v|", 15)}, // NUL is data
    };
    for (const auto& [before, section, key, value, after] : cases) {
        SCOPED_TRACE(before);
        put(crlf(before));
        EXPECT_TRUE(write(section, key, value));
        EXPECT_EQ(get(), crlf(after));
    }
}

// The exit code of `body` run in a child whose files may not grow past `limit` (SIGXFSZ ignored).
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
    // {limit, section, key, value, 0: written, 1: refused with disk full (112)}
    const std::tuple<rlim_t, std::string, std::string, std::string, int> cases[] = {
        {file.size() + 100, "a", "key3", value, 1},  // a growing key in the first section
        {file.size() + 10, "a", "new", value, 1},    // a new key before the next header
        {file.size() + 1, "c", "k", value, 1},       // a new section at the end
        {file.size() / 2, "a", "key150", "v", 1},    // a file already over the limit, shrinking
        {file.size() + 4000, "a", "key3", value, 0}, // room to spare
    };
    for (const auto& [limit, section, key, v, want] : cases) {
        SCOPED_TRACE(key);
        put(file);
        int rc = limited(limit, [&, &section = section, &key = key, &v = v] {
            uint32_t code = 0;
            return write_file(name(), section, &key, &v, kCp, &code) ? 0 : code == 112 ? 1 : 2;
        });
        EXPECT_EQ(rc, want);
        EXPECT_EQ(get() == file, rc == 1) << "the file is left as it was when refused";
    }
    EXPECT_EQ(read("a", "key3"), value);
    EXPECT_EQ(read("b", "last"), "1");
}

} // namespace
} // namespace kp::files::ini
