// The clipboard functions over a scripted clipboard, the device store and image headers;
// the table exports through the host's controls.  DISPLAY is removed: the device store serves.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "clipboard/clipboard_util.h"
#include "component/runtime.h"
#include "platform/clipboard.h"
#include "platform/win32_error.h"
#include "support/error_record.h"
#include "support/test_host.h"
#include "system/clipboard.h"

namespace {

namespace clip = kp::platform::clipboard;
using kp::host::CallStatus;
using kp::host::TableControl;
using kp::host::Value;
using kp::test::dib_header;
using kp::test::png_header;
using kp::test::put;
using kp::test::take;
using Fixture = kp::test::ClipboardHost;

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
    bool empty() override { return step("empty") && (data.clear(), true); }
    bool set_data(uint32_t format, std::span<const uint8_t> d) override {
        return step("set") && (data[format].assign(d.begin(), d.end()), true);
    }
    bool get_data(uint32_t format, std::vector<uint8_t>& out) override {
        return step("get") && (out = data.at(format), true);
    }
    bool is_format_available(uint32_t format) override {
        if (format_error) kp::platform::set_last_error(format_error);
        return !format_error && data.count(format) != 0;
    }
    bool bitmap_size(int32_t&, int32_t&) override { return false; }
};

using Record = kp::test::Err;

TEST(ClipboardFunctions, ToClipboardDeclaresUnicodeTextAndReportsEachFailingStep) {
    // The failing step, and whether the clipboard is closed after it.
    for (const auto& [failing, closed] : std::initializer_list<std::pair<const char*, bool>>{
             {"", true}, {"open", false}, {"empty", true}, {"set", true}, {"close", true}}) {
        SCOPED_TRACE(failing);
        ScriptedClipboard cb;
        if (*failing) cb.fail[failing] = 5;
        Record r;
        const std::vector<uint8_t> payload = {1, 2, 3}; // a buffer of odd length is still "text"
        const bool ok = kp::system::to_clipboard(cb, payload, r.err);
        EXPECT_EQ(ok, !*failing);
        EXPECT_EQ(ok ? cb.data.at(clip::kFormatUnicodeText) : payload, payload);
        EXPECT_EQ(r.rec.severity, ok ? KP_SEVERITY_NONE : KP_SEVERITY_ERROR);
        EXPECT_EQ(r.rec.system_code, ok ? 0u : 5u);
        EXPECT_EQ(r.rec.id, 0u);
        EXPECT_EQ(std::count(cb.calls.begin(), cb.calls.end(), "close"), closed ? 1 : 0);
    }
}

TEST(ClipboardFunctions, ClipboardTextStopsAtTheTerminatorAndTellsAbsenceFromFailure) {
    // Stored data, failing call, is_format_available's error, system code (0: none), text.
    const std::tuple<std::map<uint32_t, std::vector<uint8_t>>, std::string, uint32_t, uint32_t,
                     std::u16string>
        cases[] = {{{{13, {'a', 0, 'b', 0, 0, 0, 'c', 0, 0, 0}}}, "", 0, 0, u"ab"},
                   {{{2, png_header(1, 1)}}, "", 0, 0, u""}, // no text: empty and no error
                   {{{13, bytes_of(u"x")}}, "open", 0, 5, u""},
                   {{{13, bytes_of(u"x")}}, "get", 0, 5, u""},
                   {{}, "", kp::platform::kErrorTimeout, 1460, u""}}; // an owner that never answered
    for (const auto& [data, failing, format_error, code, text] : cases) {
        SCOPED_TRACE(testing::Message() << failing << code);
        ScriptedClipboard cb;
        cb.data = data;
        if (!failing.empty()) cb.fail[failing] = 5;
        cb.format_error = format_error;
        Record r;
        EXPECT_EQ(kp::system::clipboard_text(cb, r.err), text);
        EXPECT_EQ(r.rec.severity, code ? KP_SEVERITY_ERROR : KP_SEVERITY_NONE);
        EXPECT_EQ(r.rec.system_code, code);
        EXPECT_EQ(!cb.calls.empty() && failing != "open" ? cb.calls.back() : "close", "close");
    }
}

TEST(ClipboardImages, SizesFromHeaders) {
    std::vector<uint8_t> truncated = png_header(5, 5);
    truncated.resize(20);
    // clang-format off
    const std::tuple<std::vector<uint8_t>, int32_t, int32_t> cases[] = { // size 0x0: refused
        {png_header(640, 480), 640, 480}, {png_header(0x80000000u, 1), 0, 0},
        {dib_header(33, -17, true), 33, 17}, {dib_header(7, 9), 7, 9}, {dib_header(-7, 9), 0, 0},
        {{12, 0, 0, 0, 0x20, 0x03, 0x58, 0x02, 1, 0, 24, 0}, 800, 600}, // core header
        {truncated, 0, 0}, {bytes_of(u"hello"), 0, 0}, {{}, 0, 0}};
    // clang-format on
    for (const auto& [bytes, cw, ch] : cases) {
        int32_t w = 0, h = 0;
        EXPECT_EQ(clip::image_size(bytes, w, h), cw != 0) << bytes.size();
        EXPECT_EQ(cw ? std::make_pair(w, h) : std::make_pair(0, 0), std::make_pair(cw, ch));
    }
}

// ---- the device store --------------------------------------------------

struct Store {
    kp::test::TempDir dir;
    std::unique_ptr<clip::Clipboard> open_one() { return clip::make_device_clipboard(dir.path().string()); }
    std::filesystem::path file() const { return dir.path() / "Windows" / "clipboard.dat"; }
};

// The last error a failing call leaves, cleared before it; ~0u when it succeeds.
template <class Call> uint32_t error_of(Call call) {
    kp::platform::set_last_error(0);
    return call() ? ~0u : kp::platform::last_error();
}
void wait_for(const std::atomic<int>& stage, int value) {
    while (stage != value)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}

TEST(DeviceClipboard, KeepsEveryFormatByteForByteAcrossOpeners) {
    Store s;
    const std::vector<std::pair<uint32_t, std::vector<uint8_t>>> cases = {
        {13, bytes_of(u"lone \xD800 high, \xDC00 low, pair \xD83D\xDE00")},
        {13, bytes_of(u"two\0zeros", false)},
        {13, {'a', 0, 'b'}},
        {13, {0, 0}},
        {13, bytes_of(std::u16string(1 << 20, u'\xE9'))}, // more than one read of the store
        {2, png_header(3, 4)},
        {49161, {0xFF, 0x00, 0x80}}};
    for (const auto& [format, data] : cases) {
        ASSERT_TRUE(put(*s.open_one(), format, data)) << format;
        auto reader = s.open_one(); // another opener, as another process would be
        std::vector<uint8_t> got;
        ASSERT_TRUE(take(*reader, format, got)) << format;
        EXPECT_EQ(got, data) << format;
        EXPECT_TRUE(reader->is_format_available(format));
    }
    // The store is replaced whole, without leaving temporaries.
    const auto files = std::distance(std::filesystem::directory_iterator(s.dir.path() / "Windows"), {});
    EXPECT_EQ(files, 2) << "the store and its lock";
}

TEST(DeviceClipboard, Win32RulesOfTheCalls) {
    Store s;
    auto cb = s.open_one();
    std::vector<uint8_t> out;
    int32_t w, h;
    EXPECT_EQ(error_of([&] { return cb->get_data(13, out); }), clip::kErrorClipboardNotOpen);
    EXPECT_EQ(error_of([&] { return cb->close(); }), clip::kErrorClipboardNotOpen);
    EXPECT_FALSE(cb->empty() || cb->set_data(13, bytes_of(u"x")) || cb->bitmap_size(w, h));
    // Nothing stored yet: every format is absent, without error.
    EXPECT_EQ(error_of([&] { return cb->is_format_available(13); }), 0u);
    ASSERT_TRUE(cb->open());
    EXPECT_EQ(error_of([&] { return cb->get_data(13, out); }), 0u);
    // Empty removes every format; a DIB also stands for the bitmap.
    ASSERT_TRUE(cb->set_data(8, dib_header(12, 34)) && cb->set_data(13, bytes_of(u"x")) && cb->close());
    EXPECT_TRUE(cb->is_format_available(2));
    ASSERT_TRUE(cb->open() && cb->bitmap_size(w, h));
    EXPECT_EQ(std::make_pair(w, h), std::make_pair(12, 34));
    ASSERT_TRUE(cb->empty() && cb->close());
    EXPECT_FALSE(cb->is_format_available(13) || cb->is_format_available(2));
}

TEST(DeviceClipboard, OneOpenerAtATime) {
    Store s;
    auto first = s.open_one(), second = s.open_one();
    std::atomic<int> stage{0};
    std::thread holder([&] {
        if (!first->open()) return;
        stage = 1;
        wait_for(stage, 2);
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        first->close();
    });
    wait_for(stage, 1);
    EXPECT_EQ(error_of([&] { return second->open(); }), kp::platform::kErrorAccessDenied);
    // The waiting opener gets the clipboard as soon as it is closed.
    stage = 2;
    EXPECT_TRUE(second->open());
    holder.join();
    EXPECT_TRUE(second->open()); // its opener may open it again
    EXPECT_TRUE(second->close());
}

// Another thread's close or writes change nothing; a thread ending without close leaves its data
// stored and the clipboard to the next opener.
TEST(DeviceClipboard, TheOpeningThreadOwnsTheOpenClipboard) {
    Store s;
    auto cb = s.open_one();
    std::atomic<int> stage{0};
    std::thread opener([&] {
        EXPECT_TRUE(cb->open() && cb->empty() && cb->set_data(13, bytes_of(u"left open")));
        stage = 1;
        wait_for(stage, 2);
    });
    wait_for(stage, 1);
    EXPECT_EQ(error_of([&] { return cb->close(); }), clip::kErrorClipboardNotOpen);
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
    std::ifstream in(s.file(), std::ios::binary);
    const std::string good((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::string cases[] = {
        "",                              // empty file
        "garbage that is no store",      // wrong magic
        good.substr(0, good.size() - 2), // last record cut
        good + std::string("\x02\0\0\0\0\0\0\0", 8) +
            std::string("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F", 8),            // huge size
        good + std::string("\x05\0\0\0\x09\0\0\0\x01\0\0\0\0\0\0\0x", 17), // unknown encoding
    };
    for (std::size_t k = 0; k < std::size(cases); ++k) {
        std::ofstream(s.file(), std::ios::binary | std::ios::trunc) << cases[k];
        std::vector<uint8_t> got;
        ASSERT_TRUE(cb->open()) << k;
        EXPECT_EQ(cb->get_data(13, got), k >= 3) << k;
        cb->close();
        EXPECT_EQ(k >= 3 ? clip::text_of_block(got) : u"kept", u"kept");
        EXPECT_FALSE(cb->is_format_available(2)) << k;
    }
}

TEST(DeviceClipboard, AStoreThatCannotBeMadeFailsWithTheSystemError) {
    Store s;
    std::ofstream(s.dir.path() / "Windows") << "the system directory's name taken by a file";
    auto cb = s.open_one();
    EXPECT_TRUE(error_of([&] { return cb->open(); }) + 1u > 1u); // failed, with an error
    EXPECT_FALSE(cb->is_format_available(13));
    // The opener's hold is released: a later open waits for nothing.
    std::filesystem::remove(s.dir.path() / "Windows");
    EXPECT_TRUE(cb->open() && cb->close());
}

// ---- table exports -------------------------------------------------------

const auto S = [](const char16_t* s) { return Value::string(s); };
const auto I = [](int64_t i) { return Value::integer(i); };

// Name, Qty (hidden), Note; three rows, the second selected; totals.
std::shared_ptr<TableControl> sample(int32_t kind = 9) {
    auto t = std::make_shared<TableControl>();
    t->kind = kind;
    t->columns = {{u"Name", true}, {u"Qty", false}, {u"Note", true}};
    t->rows = {{S(u"a"), I(1), S(u"x")}, {S(u"b"), I(2), S(u"y")}, {S(u"c"), I(3)}};
    t->selected = {1};
    t->has_totals = true;
    t->totals = {S(u"sum"), I(6), S(u"")};
    return t;
}

// The text block of the device store of `fx`.
std::vector<uint8_t> stored(kp::test::HostFixture& fx) {
    std::vector<uint8_t> got;
    take(*clip::make_device_clipboard(fx.device().string()), 13, got);
    return got;
}

TEST(TableToText, OptionsSeparatorsRangesAndCells) {
    Fixture f;
    const Value t = f.control(sample());
    // An empty title and first cell write nothing, so no separator precedes the second row.
    auto blank = std::make_shared<TableControl>();
    blank->columns = {{u"", true}};
    blank->rows = {{S(u"")}, {S(u"two")}, {S(u"three")}};
    auto titled = std::make_shared<TableControl>(*blank);
    titled->columns = {{u"T", true}};
    // Cells of every simple type.
    uint8_t cy[10];
    ASSERT_TRUE(kp::host::currency_from_text("12.5", cy));
    auto cells = std::make_shared<TableControl>();
    cells->columns = {{u"b", true},  {u"i", true}, {u"i8", true},  {u"r", true},
                      {u"cy", true}, {u"s", true}, {u"none", true}};
    cells->rows = {{Value::boolean(true), I(-42), Value::int64(int64_t{1} << 40), Value::real(2.5),
                    Value::currency(cy), S(u"\xE9t\xE9 \xD83D\xDE00"), Value::none()}};
    const std::tuple<Value, std::vector<Value>, std::u16string> cases[] = {
        // control, arguments, text

        {t, {}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {t, {I(0)}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {t, {I(1)}, u"a\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {t, {I(2)}, u"Name\tQty\tNote\r\na\t1\tx\r\nb\t2\ty\r\nc\t3\t\r\nsum\t6\t"},
        {t, {I(8)}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t"},
        {t, {I(16)}, u"Name\tNote\r\nb\ty\r\nsum\t"},
        {t, {I(1 | 2 | 8 | 16)}, u"b\t2\ty"},
        {t, {I(8), S(u" | "), S(u"\n")}, u"Name | Note\na | x\nb | y\nc | "},
        {t, {I(8), S(u""), S(u"")}, u"NameNoteaxbyc"},
        // Rows: first and last, 1-based, taken in either order, clamped, at the edges of 32 bits.
        {t, {I(9), S(u","), S(u"/"), I(2)}, u"b,y/c,"},
        {t, {I(9), S(u","), S(u"/"), I(5)}, u"c,"},
        {t, {I(9), S(u","), S(u"/"), I(2), I(1)}, u"a,x/b,y"},
        {t, {I(9), S(u","), S(u"/"), I(0), I(0)}, u""},
        {t, {I(9), S(u","), S(u"/"), I(INT_MAX), I(INT_MAX)}, u""},
        {t, {I(9), S(u","), S(u"/"), I(INT_MIN), I(2)}, u"a,x/b,y"},
        {t, {I(9), S(u","), S(u"/"), I(0), I(1)}, u"a,x"},
        {t, {I(9), S(u","), S(u"/"), I(INT_MIN), I(INT_MIN)}, u""},
        {t, {I(9), S(u","), S(u"/"), I(INT_MAX), I(INT_MIN)}, u"a,x/b,y/c,"},
        {t, {I(8), S(u","), S(u"/"), I(4), I(9)}, u"Name,Note"},
        {f.control(blank), {I(0), S(u","), S(u"|")}, u"two|three"},
        {f.control(titled), {I(0), S(u","), S(u"|")}, u"T||two|three"},
        {f.control(cells), {I(1)}, u"1\t-42\t1099511627776\t2.5\t12.500000\t\xE9t\xE9 \xD83D\xDE00\t"},
    };
    for (const auto& [control, more, text] : cases) {
        std::vector<Value> args{control};
        args.insert(args.end(), more.begin(), more.end());
        SCOPED_TRACE(kp::host::utf8(text));
        for (const char* name : {"TableToText", "TableVersTexte"}) {
            auto out = f.call(name, args);
            ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
            EXPECT_EQ(out.result.s, text) << name;
            EXPECT_EQ(out.error.severity, KP_SEVERITY_NONE) << kp::host::utf8(out.error.message);
        }
    }
}

TEST(TableToText, FailuresGiveTheEmptyStringAndTheirError) {
    Fixture f;
    auto buffer_cell = sample();
    buffer_cell->rows[1][2] = Value::buffer({1, 2, 3}); // the host cannot convert a buffer to text
    auto unreadable = sample();
    unreadable->unreadable = true;
    unreadable->read_error = 80256;
    // Bad options, controls that are no table (kinds 4, 31, none), a cell, an unreadable table.
    const std::tuple<Value, int64_t, uint32_t> cases[] = {
        {f.control(sample()), 4, 80254},   {f.control(sample()), 32, 80254},
        {f.control(sample()), -1, 80254},  {f.control(sample(4)), 0, 80253},
        {f.control(sample(31)), 0, 80253}, {I(12345), 0, 80253},
        {f.control(sample(4)), 4, 80253},  {f.control(buffer_cell), 0, 80014},
        {f.control(unreadable), 0, 80256}};
    for (const auto& [control, options, id] : cases) {
        for (const char* name : {"TableToText", "TableToClipboard"}) {
            auto out = f.call(name, {control, I(options)});
            SCOPED_TRACE(testing::Message() << name << " " << options << " " << id);
            ASSERT_EQ(out.status, CallStatus::Ok);
            EXPECT_TRUE(out.result.s.empty() && !out.result.b);
            EXPECT_EQ(std::pair(out.error.id, out.error.severity), std::pair(id, KP_SEVERITY_ERROR));
        }
    }
    // The cell that fails is not reached when its row is left out.
    auto out = f.call("TableToText", {f.control(buffer_cell), I(8), S(u","), S(u"/"), I(1), I(1)});
    EXPECT_EQ(out.result.s, u"Name,Note/a,x");
    // The host's error for an unreadable table is the call's error.
    out = f.call("TableToText", {f.control(unreadable)});
    EXPECT_NE(kp::host::utf8(out.error.message).find("not available"), std::string::npos);
    // Kinds 9, 30 and 35 are tables.
    for (int32_t kind : {9, 30, 35})
        EXPECT_EQ(f.call("TableToText", {f.control(sample(kind)), I(9)}).result.s, u"a\tx\r\nb\ty\r\nc\t")
            << kind;
}

TEST(TableToClipboard, PutsTheTextAsAStringOnTheClipboard) {
    Fixture f;
    const Value t = f.control(sample());
    for (int n = 1; n <= 6; ++n) {
        std::vector<Value> args = {t, I(8), S(u";"), S(u"|"), I(2), I(3)};
        args.resize(static_cast<std::size_t>(n));
        auto text = f.call("TableToText", args);
        ASSERT_TRUE(f.call("TableVersPressePapier", args).result.b) << n;
        EXPECT_EQ(stored(f.fx), clip::block_of_text(text.result.s)) << n; // with its terminator
    }
    // A table with nothing to write puts the one-character empty text.
    ASSERT_TRUE(f.call("TableToClipboard", {f.control(std::make_shared<TableControl>())}).result.b);
    EXPECT_EQ(stored(f.fx), (std::vector<uint8_t>{0, 0}));
    // A failing export leaves the clipboard as it was.
    EXPECT_FALSE(f.call("TableToClipboard", {t, I(4)}).result.b);
    EXPECT_EQ(stored(f.fx), (std::vector<uint8_t>{0, 0}));
}

TEST(ClipboardCalls, ThroughTheComponentOnTheDeviceStore) {
    Fixture f;
    auto store = clip::make_device_clipboard(f.fx.device().string());
    const std::tuple<Value, std::vector<uint8_t>, std::u16string> cases[] = {
        // value, stored, read back
        {S(u"ab"), {'a', 0, 'b', 0, 0, 0}, u"ab"},
        {S(u""), {0, 0}, u""},
        {S(u"\xD800x"), {0x00, 0xD8, 'x', 0, 0, 0}, u"\xD800x"},
        {Value::buffer({'h', 0, 'i', 0}), {'h', 0, 'i', 0}, u"hi"},
        {Value::buffer({'o', 'd', 'd'}), {'o', 'd', 'd'}, u"\x646F"},
        {Value::buffer({}), {0, 0}, u""}}; // an empty buffer arrives as the empty string
    for (const auto& [value, bytes, read_back] : cases) {
        ASSERT_TRUE(f.call("ToClipboard", {value}).result.b);
        EXPECT_EQ(stored(f.fx), bytes);
        EXPECT_EQ(f.call("PressePapier", {}).result.s, read_back);
        EXPECT_EQ(f.shown(), "1 1 0 -1x-1");
    }
    // A bitmap put by another program of the device.
    ASSERT_TRUE(put(*store, 2, dib_header(200, 100)));
    EXPECT_EQ(f.shown(), "0 0 1 200x100");
    auto text = f.call("Clipboard", {});
    EXPECT_EQ(std::tie(text.result.s, text.error.severity), std::make_tuple(u"", KP_SEVERITY_NONE));
    // The clipboard held by another opener: ToClipboard fails with 5.
    ASSERT_TRUE(store->open());
    auto held = f.call("ToClipboard", {S(u"blocked")});
    store->close();
    EXPECT_EQ(std::tie(held.result.b, held.error.system_code, held.error.severity),
              std::make_tuple(false, 5u, KP_SEVERITY_ERROR));
}

// A table interface without the `self` slot: every operation gets the services block's vm.
TEST(TableToText, InterfaceOfAnOlderVm) {
    static int vm_marker = 0, contexts_seen = 0, other_contexts = 0;
    static kp_table_interface ti{};
    static void (*const seen)(void*) = [](void* c) { (c == &vm_marker ? contexts_seen : other_contexts)++; };
    ti.size = static_cast<uint32_t>(KP_SLOT_END(kp_table_interface, cell));
    ti.self = &contexts_seen; // past the size: never read
    ti.kind = [](void* c, uintptr_t) -> int32_t { return seen(c), KP_CONTROL_KIND_TABLE; };
    ti.column_count = [](void* c, uintptr_t) -> int32_t { return seen(c), 1; };
    ti.column_title = [](void* c, uintptr_t, int32_t, int32_t* n) -> const char16_t* {
        seen(c);
        *n = 5;
        return u"Title";
    };
    ti.column_visible = [](void* c, uintptr_t, int32_t) -> int32_t { return seen(c), 1; };
    ti.row_count = [](void* c, uintptr_t) -> int32_t { return seen(c), 0; };
    ti.row_selected = [](void* c, uintptr_t, int32_t) -> int32_t { return seen(c), 0; };
    ti.has_totals = [](void* c, uintptr_t) -> int32_t { return seen(c), 0; };
    ti.cell = [](void* c, uintptr_t, int32_t, int32_t, kp_variant*) -> int32_t { return seen(c), 1; };
    kp_services sv{};
    sv.size = sizeof sv;
    sv.vm = &vm_marker;
    sv.table_interface = [](void*) -> const kp_table_interface* { return &ti; };
    kp::runtime::state().services = &sv;
    Record r;
    const std::u16string text = kp::system::table_to_text(1, 0, u"\t", u"\r\n", -1, -1, r.err);
    kp::runtime::state().services = nullptr;
    EXPECT_TRUE(r.clean()) << r.id();
    EXPECT_EQ(text, u"Title");
    EXPECT_GT(contexts_seen, 0);
    EXPECT_EQ(other_contexts, 0);
}

} // namespace
