// The clipboard functions over a scripted clipboard, the device store, and
// the image headers.  This binary never uses a display: DISPLAY is removed
// before anything runs, so the component's clipboard is the device store of
// each test's own device root.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "platform/clipboard.h"
#include "platform/win32_error.h"
#include "support/test_host.h"
#include "system/clipboard.h"

namespace {

namespace clip = kp::platform::clipboard;
using kp::host::Value;

[[maybe_unused]] const bool kNoDisplay = [] { return unsetenv("DISPLAY") == 0; }();

std::vector<uint8_t> bytes_of(std::u16string_view s, bool terminator = true) {
    std::vector<uint8_t> b = clip::block_of_text(s);
    if (!terminator) b.resize(b.size() - 2);
    return b;
}

// A clipboard that follows a script: which call fails with which code.
class ScriptedClipboard : public clip::Clipboard {
  public:
    std::map<std::string, uint32_t> fail; // call name -> Win32 code
    std::map<uint32_t, std::vector<uint8_t>> data;
    uint32_t format_error = 0; // is_format_available fails with this code
    std::vector<std::string> calls;

    bool step(const char* name) {
        calls.push_back(name);
        auto it = fail.find(name);
        if (it == fail.end()) return true;
        kp::platform::set_last_error(it->second);
        return false;
    }
    bool open() override { return step("open"); }
    bool close() override { return step("close"); }
    bool empty() override {
        if (!step("empty")) return false;
        data.clear();
        return true;
    }
    bool set_data(uint32_t format, std::span<const uint8_t> d) override {
        if (!step("set")) return false;
        data[format].assign(d.begin(), d.end());
        return true;
    }
    bool get_data(uint32_t format, std::vector<uint8_t>& out) override {
        if (!step("get")) return false;
        out = data.at(format);
        return true;
    }
    bool is_format_available(uint32_t format) override {
        if (format_error) {
            kp::platform::set_last_error(format_error);
            return false;
        }
        return data.count(format) != 0;
    }
    bool bitmap_size(int32_t&, int32_t&) override { return false; }
};

struct Record {
    kp_error_record rec{};
    kp::CXError err{&rec};
    Record() { rec.severity = KP_SEVERITY_NONE; }
};

// PNG and BMP headers of a given size.
std::vector<uint8_t> png_header(uint32_t w, uint32_t h) {
    std::vector<uint8_t> b = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n', 0, 0, 0, 13, 'I', 'H', 'D', 'R'};
    for (uint32_t v : {w, h})
        for (int k = 3; k >= 0; --k)
            b.push_back(static_cast<uint8_t>(v >> (8 * k)));
    b.insert(b.end(), {8, 6, 0, 0, 0, 0, 0, 0, 0});
    return b;
}
std::vector<uint8_t> dib_header(int32_t w, int32_t h) {
    std::vector<uint8_t> b(40, 0);
    b[0] = 40;
    for (int k = 0; k < 4; ++k) {
        b[4 + k] = static_cast<uint8_t>(static_cast<uint32_t>(w) >> (8 * k));
        b[8 + k] = static_cast<uint8_t>(static_cast<uint32_t>(h) >> (8 * k));
    }
    return b;
}

TEST(ClipboardFunctions, ToClipboardDeclaresUnicodeTextAndReportsEachFailingStep) {
    struct Case {
        const char* failing;
        bool closed; // the clipboard is closed after the failure
    };
    for (const Case c :
         {Case{"", true}, Case{"open", false}, Case{"empty", true}, Case{"set", true}, Case{"close", true}}) {
        SCOPED_TRACE(c.failing);
        ScriptedClipboard cb;
        if (*c.failing) cb.fail[c.failing] = 5;
        Record r;
        const std::vector<uint8_t> payload = {1, 2, 3}; // a buffer of odd length is still "text"
        const bool ok = kp::system::to_clipboard(cb, payload, r.err);
        EXPECT_EQ(ok, !*c.failing);
        if (ok) {
            EXPECT_EQ(cb.data.at(clip::kFormatUnicodeText), payload);
            EXPECT_EQ(r.rec.severity, KP_SEVERITY_NONE);
        } else {
            EXPECT_EQ(r.rec.severity, KP_SEVERITY_ERROR);
            EXPECT_EQ(r.rec.system_code, 5u);
            EXPECT_EQ(r.rec.id, 0u);
        }
        EXPECT_EQ(std::count(cb.calls.begin(), cb.calls.end(), "close"), c.closed ? 1 : 0);
    }
}

TEST(ClipboardFunctions, ClipboardTextStopsAtTheTerminatorAndTellsAbsenceFromFailure) {
    struct Case {
        const char* what;
        std::map<uint32_t, std::vector<uint8_t>> data;
        const char* failing;
        uint32_t format_error, code; // code 0: no error
        std::u16string text;
    };
    const Case cases[] = {
        {"text up to its terminator", {{13, {'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0}}}, "", 0, 0, u"ab"},
        {"no text: empty and no error", {{2, png_header(1, 1)}}, "", 0, 0, u""},
        {"open fails", {{13, bytes_of(u"x")}}, "open", 0, 5, u""},
        {"get fails", {{13, bytes_of(u"x")}}, "get", 0, 5, u""},
        {"an owner that never answered", {}, "", kp::platform::kErrorTimeout, 1460, u""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ScriptedClipboard cb;
        cb.data = c.data;
        if (*c.failing) cb.fail[c.failing] = 5;
        cb.format_error = c.format_error;
        Record r;
        EXPECT_EQ(kp::system::clipboard_text(cb, r.err), c.text);
        EXPECT_EQ(r.rec.severity, c.code ? KP_SEVERITY_ERROR : KP_SEVERITY_NONE);
        EXPECT_EQ(r.rec.system_code, c.code);
        if (!cb.calls.empty() && std::string(c.failing) != "open") {
            EXPECT_EQ(cb.calls.back(), "close");
        }
    }
}

TEST(ClipboardImages, SizesFromHeaders) {
    struct Case {
        const char* what;
        std::vector<uint8_t> bytes;
        bool ok;
        int32_t w, h;
    };
    std::vector<uint8_t> bmp = {'B', 'M', 0, 0, 0, 0, 0, 0, 0, 0, 54, 0, 0, 0};
    const std::vector<uint8_t> dib = dib_header(33, -17);
    bmp.insert(bmp.end(), dib.begin(), dib.end());
    std::vector<uint8_t> core = {12, 0, 0, 0, 0x20, 0x03, 0x58, 0x02, 1, 0, 24, 0};
    std::vector<uint8_t> truncated = png_header(5, 5);
    truncated.resize(20);
    const Case cases[] = {
        {"png", png_header(640, 480), true, 640, 480},
        {"png of an impossible width", png_header(0x80000000u, 1), false, 0, 0},
        {"bmp file, top-down", bmp, true, 33, 17},
        {"dib", dib_header(7, 9), true, 7, 9},
        {"dib of negative width", dib_header(-7, 9), false, 0, 0},
        {"core header", core, true, 800, 600},
        {"truncated png", truncated, false, 0, 0},
        {"text", bytes_of(u"hello"), false, 0, 0},
        {"nothing", {}, false, 0, 0},
    };
    for (const Case& c : cases) {
        int32_t w = 0, h = 0;
        EXPECT_EQ(clip::image_size(c.bytes, w, h), c.ok) << c.what;
        if (c.ok) {
            EXPECT_EQ(w, c.w) << c.what;
            EXPECT_EQ(h, c.h) << c.what;
        }
    }
}

// ---- the device store --------------------------------------------------

struct Store {
    kp::test::TempDir dir;
    std::string root() const { return dir.path().string(); }
    std::unique_ptr<clip::Clipboard> open_one() { return clip::make_device_clipboard(root()); }
    std::filesystem::path file() const { return dir.path() / "Windows" / "clipboard.dat"; }
};

bool put(clip::Clipboard& cb, uint32_t format, const std::vector<uint8_t>& data) {
    return cb.open() && cb.empty() && cb.set_data(format, data) && cb.close();
}
bool take(clip::Clipboard& cb, uint32_t format, std::vector<uint8_t>& out) {
    if (!cb.open()) return false;
    const bool ok = cb.get_data(format, out);
    cb.close();
    return ok;
}

TEST(DeviceClipboard, KeepsEveryFormatByteForByteAcrossOpeners) {
    Store s;
    std::vector<uint8_t> odd = {'a', 0, 'b'};
    const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> cases = {
        {13, bytes_of(u"plain")},
        {13, bytes_of(u"lone \xD800 high, \xDC00 low, pair \xD83D\xDE00")},
        {13, bytes_of(u"two\0zeros", false)},
        {13, odd},
        {13, {0, 0}},
        {2, png_header(3, 4)},
        {49161, {0xFF, 0x00, 0x80}},
    };
    for (const auto& [format, data] : cases) {
        auto writer = s.open_one();
        ASSERT_TRUE(put(*writer, format, data)) << format;
        auto reader = s.open_one(); // another opener, as another process would be
        std::vector<uint8_t> got;
        ASSERT_TRUE(take(*reader, format, got)) << format;
        EXPECT_EQ(got, data) << format;
        EXPECT_TRUE(reader->is_format_available(format));
    }
}

TEST(DeviceClipboard, Win32RulesOfTheCalls) {
    Store s;
    auto cb = s.open_one();
    std::vector<uint8_t> out;
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->get_data(13, out));
    EXPECT_EQ(kp::platform::last_error(), clip::kErrorClipboardNotOpen);
    EXPECT_FALSE(cb->close());
    EXPECT_EQ(kp::platform::last_error(), clip::kErrorClipboardNotOpen);
    EXPECT_FALSE(cb->empty());
    EXPECT_FALSE(cb->set_data(13, bytes_of(u"x")));
    int32_t w, h;
    EXPECT_FALSE(cb->bitmap_size(w, h));
    // Nothing stored yet: every format is absent, without error.
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->is_format_available(13));
    EXPECT_EQ(kp::platform::last_error(), 0u);
    ASSERT_TRUE(cb->open());
    EXPECT_FALSE(cb->get_data(13, out));
    EXPECT_EQ(kp::platform::last_error(), 0u);
    // Empty removes every format; a DIB also stands for the bitmap.
    ASSERT_TRUE(cb->set_data(8, dib_header(12, 34)));
    ASSERT_TRUE(cb->set_data(13, bytes_of(u"x")));
    ASSERT_TRUE(cb->close());
    EXPECT_TRUE(cb->is_format_available(2));
    ASSERT_TRUE(cb->open());
    ASSERT_TRUE(cb->bitmap_size(w, h));
    EXPECT_EQ(w, 12);
    EXPECT_EQ(h, 34);
    ASSERT_TRUE(cb->empty());
    ASSERT_TRUE(cb->close());
    EXPECT_FALSE(cb->is_format_available(13));
    EXPECT_FALSE(cb->is_format_available(2));
}

TEST(DeviceClipboard, OneOpenerAtATime) {
    Store s;
    auto first = s.open_one();
    auto second = s.open_one();
    std::atomic<int> stage{0};
    std::thread holder([&] {
        if (!first->open()) return;
        stage = 1;
        while (stage != 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        first->close();
    });
    while (stage == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_FALSE(second->open());
    EXPECT_EQ(kp::platform::last_error(), kp::platform::kErrorAccessDenied);
    // The waiting opener gets the clipboard as soon as it is closed.
    stage = 2;
    EXPECT_TRUE(second->open());
    holder.join();
    EXPECT_TRUE(second->open()); // its opener may open it again
    EXPECT_TRUE(second->close());
}

// The opening thread owns the open clipboard: another thread's close or
// writes change nothing, and a thread that ends without closing leaves its
// data stored and the clipboard to the next opener (who would otherwise
// wait for a live opener, then fail with 5).
TEST(DeviceClipboard, TheOpeningThreadOwnsTheOpenClipboard) {
    Store s;
    auto cb = s.open_one();
    std::atomic<int> stage{0};
    std::thread opener([&] {
        ASSERT_TRUE(cb->open() && cb->empty() && cb->set_data(13, bytes_of(u"left open")));
        stage = 1;
        while (stage != 2)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    while (stage == 0)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->close());
    EXPECT_EQ(kp::platform::last_error(), clip::kErrorClipboardNotOpen);
    EXPECT_FALSE(cb->set_data(13, bytes_of(u"not mine")));
    stage = 2;
    opener.join();
    std::vector<uint8_t> got;
    EXPECT_TRUE(take(*cb, 13, got));
    EXPECT_EQ(got, bytes_of(u"left open"));
    EXPECT_TRUE(take(*s.open_one(), 13, got));
    EXPECT_EQ(got, bytes_of(u"left open"));
}

TEST(DeviceClipboard, DamagedStoresReadAsFarAsTheyAreWhole) {
    Store s;
    auto cb = s.open_one();
    ASSERT_TRUE(put(*cb, 13, bytes_of(u"kept")));
    std::string good;
    {
        std::ifstream in(s.file(), std::ios::binary);
        good.assign((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    }
    const std::string cases[] = {
        "",                              // empty file
        "garbage that is no store",      // wrong magic
        good.substr(0, good.size() - 2), // last record cut
        good + std::string("\x02\0\0\0\0\0\0\0", 8) +
            std::string("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F", 8),            // huge size
        good + std::string("\x05\0\0\0\x09\0\0\0\x01\0\0\0\0\0\0\0x", 17), // unknown encoding
    };
    for (std::size_t k = 0; k < std::size(cases); ++k) {
        {
            std::ofstream out(s.file(), std::ios::binary | std::ios::trunc);
            out << cases[k];
        }
        std::vector<uint8_t> got;
        ASSERT_TRUE(cb->open()) << k;
        const bool has = cb->get_data(13, got);
        cb->close();
        EXPECT_EQ(has, k >= 3) << k;
        if (has) {
            EXPECT_EQ(clip::text_of_block(got), u"kept");
        }
        EXPECT_FALSE(cb->is_format_available(2)) << k;
    }
}

// The store is replaced whole, without leaving temporaries; its text is WTF-8.
TEST(DeviceClipboard, ReplacesTheStoreWithoutLeavingTemporaries) {
    Store s;
    auto cb = s.open_one();
    for (int k = 0; k < 5; ++k)
        ASSERT_TRUE(put(*cb, 13, bytes_of(u"round " + std::u16string(1, u'0' + k) + u"\xE9\xD800")));
    const auto files = std::distance(std::filesystem::directory_iterator(s.dir.path() / "Windows"), {});
    EXPECT_EQ(files, 2) << "the store and its lock";
    std::ifstream in(s.file(), std::ios::binary);
    const std::string raw((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    EXPECT_NE(raw.find("round 4\xC3\xA9\xED\xA0\x80"), std::string::npos);
}

TEST(DeviceClipboard, AStoreThatCannotBeMadeFailsWithTheSystemError) {
    Store s;
    // The system directory's name is taken by a file.
    std::ofstream(s.dir.path() / "Windows") << "not a directory";
    auto cb = s.open_one();
    kp::platform::set_last_error(0);
    EXPECT_FALSE(cb->open());
    EXPECT_NE(kp::platform::last_error(), 0u);
    EXPECT_FALSE(cb->is_format_available(13));
    // The opener's hold is released: a later open waits for nothing.
    std::filesystem::remove(s.dir.path() / "Windows");
    EXPECT_TRUE(cb->open());
    EXPECT_TRUE(cb->close());
}

TEST(DeviceClipboard, HundredMegabytes) {
    Store s;
    std::u16string big(50u * 1024 * 1024, u'\x00E9'); // 100 MB of UTF-16
    auto cb = s.open_one();
    ASSERT_TRUE(put(*cb, 13, bytes_of(big)));
    std::vector<uint8_t> got;
    ASSERT_TRUE(take(*s.open_one(), 13, got));
    EXPECT_EQ(got.size(), big.size() * 2 + 2);
    EXPECT_EQ(clip::text_of_block(got) == big, true);
}

} // namespace
