// TableToText and TableToClipboard through the reference host: its table
// controls, its conversion of cells, the device store of the test's root.
#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "component/runtime.h"
#include "platform/clipboard.h"
#include "support/test_host.h"
#include "system/clipboard.h"

namespace {

namespace clip = kp::platform::clipboard;
using kp::host::CallStatus;
using kp::host::TableControl;
using kp::host::Value;

[[maybe_unused]] const bool kNoDisplay = [] { return unsetenv("DISPLAY") == 0; }();

Value S(const char16_t* s) {
    return Value::string(s);
}
Value I(int64_t i) {
    return Value::integer(i);
}

// Name (visible), Qty (hidden), Note (visible); three rows, the second
// selected; totals.
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
    auto store = clip::make_device_clipboard(fx.device().string());
    std::vector<uint8_t> got;
    EXPECT_TRUE(store->open());
    store->get_data(13, got);
    store->close();
    return got;
}

struct Fixture {
    kp::test::HostFixture fx;
    kp::host::CallOutcome call(const char* name, std::vector<Value> args) {
        return fx.host->call(name, args);
    }
    Value control(std::shared_ptr<TableControl> t) {
        return Value::integer(static_cast<int64_t>(fx.host->add_control(std::move(t))));
    }
};

TEST(TableToText, OptionsSeparatorsAndRanges) {
    Fixture f;
    const Value t = f.control(sample());
    struct Case {
        std::vector<Value> args; // after the control
        std::u16string text;
    };
    const Case cases[] = {
        {{}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {{I(0)}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {{I(1)}, u"a\tx\r\nb\ty\r\nc\t\r\nsum\t"},
        {{I(2)}, u"Name\tQty\tNote\r\na\t1\tx\r\nb\t2\ty\r\nc\t3\t\r\nsum\t6\t"},
        {{I(8)}, u"Name\tNote\r\na\tx\r\nb\ty\r\nc\t"},
        {{I(16)}, u"Name\tNote\r\nb\ty\r\nsum\t"},
        {{I(1 | 2 | 8 | 16)}, u"b\t2\ty"},
        {{I(8), S(u";")}, u"Name;Note\r\na;x\r\nb;y\r\nc;"},
        {{I(8), S(u" | "), S(u"\n")}, u"Name | Note\na | x\nb | y\nc | "},
        {{I(8), S(u""), S(u"")}, u"NameNoteaxbyc"},
        // Rows: first and last at the edges of 32 bits (the arithmetic: RangeArithmetic).
        {{I(9), S(u","), S(u"/"), I(2)}, u"b,y/c,"},
        {{I(9), S(u","), S(u"/"), I(2), I(2)}, u"b,y"},
        {{I(9), S(u","), S(u"/"), I(0), I(1)}, u"a,x"},
        {{I(9), S(u","), S(u"/"), I(-7), I(-1)}, u"a,x/b,y/c,"},
        {{I(9), S(u","), S(u"/"), I(INT_MIN), I(INT_MIN)}, u""},
        {{I(9), S(u","), S(u"/"), I(INT_MAX), I(INT_MIN)}, u"a,x/b,y/c,"},
        {{I(8), S(u","), S(u"/"), I(4), I(9)}, u"Name,Note"},
    };
    for (const Case& c : cases) {
        std::vector<Value> args{t};
        args.insert(args.end(), c.args.begin(), c.args.end());
        SCOPED_TRACE(testing::Message() << "arguments: " << args.size());
        for (const char* name : {"TableToText", "TableVersTexte"}) {
            auto out = f.call(name, args);
            ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
            EXPECT_EQ(out.result.s, c.text) << name << " case " << (&c - cases);
            EXPECT_EQ(out.error.severity, KP_SEVERITY_NONE);
        }
    }
}

TEST(TableToText, SeparatorsOnlyBetweenWrittenText) {
    Fixture f;
    // One column with an empty title and an empty first cell: nothing is
    // written before the second row, so no separator precedes it.
    auto t = std::make_shared<TableControl>();
    t->columns = {{u"", true}};
    t->rows = {{S(u"")}, {S(u"two")}, {S(u"three")}};
    auto out = f.call("TableToText", {f.control(t), I(0), S(u","), S(u"|")});
    EXPECT_EQ(out.result.s, u"two|three");
    // With a title the first data line follows it after one separator.
    t->columns = {{u"T", true}};
    out = f.call("TableToText", {f.control(t), I(0), S(u","), S(u"|")});
    EXPECT_EQ(out.result.s, u"T||two|three");
}

TEST(TableToText, CellsOfEverySimpleType) {
    Fixture f;
    uint8_t cy[10];
    ASSERT_TRUE(kp::host::currency_from_text("12.5", cy));
    auto t = std::make_shared<TableControl>();
    t->columns = {{u"b", true},  {u"i", true}, {u"i8", true},  {u"r", true},
                  {u"cy", true}, {u"s", true}, {u"none", true}};
    t->rows = {{Value::boolean(true), I(-42), Value::int64(int64_t{1} << 40), Value::real(2.5),
                Value::currency(cy), S(u"\xE9t\xE9 \xD83D\xDE00"), Value::none()}};
    auto out = f.call("TableToText", {f.control(t), I(1)});
    ASSERT_EQ(out.error.severity, KP_SEVERITY_NONE) << kp::host::utf8(out.error.message);
    EXPECT_EQ(out.result.s, u"1\t-42\t1099511627776\t2.5\t12.500000\t\xE9t\xE9 \xD83D\xDE00\t");
}

TEST(TableToText, FailuresGiveTheEmptyStringAndTheirError) {
    Fixture f;
    auto buffer_cell = sample();
    buffer_cell->rows[1][2] = Value::buffer({1, 2, 3}); // the host cannot convert a buffer to text
    auto unreadable = sample();
    unreadable->unreadable = true;
    unreadable->read_error = 80256;
    struct Case {
        const char* what;
        Value control;
        int64_t options;
        uint32_t id;
    };
    const Case cases[] = {
        {"options 4", f.control(sample()), 4, 80254},
        {"options 32", f.control(sample()), 32, 80254},
        {"options -1", f.control(sample()), -1, 80254},
        {"a control that is not a table", f.control(sample(4)), 0, 80253},
        {"kind 31", f.control(sample(31)), 0, 80253},
        {"no control", I(12345), 0, 80253},
        {"not a table and a bad option", f.control(sample(4)), 4, 80253},
        {"a cell that cannot be converted", f.control(buffer_cell), 0, 80014},
        {"a table the host cannot read", f.control(unreadable), 0, 80256},
    };
    for (const Case& c : cases) {
        for (const char* name : {"TableToText", "TableToClipboard"}) {
            auto out = f.call(name, {c.control, I(c.options)});
            ASSERT_EQ(out.status, CallStatus::Ok) << c.what;
            if (std::string(name) == "TableToText")
                EXPECT_EQ(out.result.s, u"") << c.what;
            else
                EXPECT_FALSE(out.result.b) << c.what;
            EXPECT_EQ(out.error.id, c.id) << c.what << " " << name;
            EXPECT_EQ(out.error.severity, KP_SEVERITY_ERROR) << c.what;
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

TEST(TableRows, RangeArithmetic) {
    struct Case {
        int32_t n, first, last;
        int64_t begin, end;
    };
    for (const Case& c :
         {Case{3, -1, -1, 1, 3}, Case{3, 5, -1, 3, 3}, Case{3, 2, 1, 1, 2}, Case{0, -1, -1, 1, 0},
          Case{3, INT_MAX, INT_MAX, INT_MAX, 3}, Case{3, INT_MIN, 2, 1, 2}, Case{3, 0, 0, 1, 0}}) {
        const kp::system::RowRange r = kp::system::row_range(c.n, c.first, c.last);
        EXPECT_EQ(r.begin, c.begin) << c.n << " " << c.first << " " << c.last;
        EXPECT_EQ(r.end, c.end) << c.n << " " << c.first << " " << c.last;
    }
}

TEST(ClipboardCalls, ThroughTheComponentOnTheDeviceStore) {
    Fixture f;
    auto store = clip::make_device_clipboard(f.fx.device().string());
    struct Case {
        Value value;
        std::vector<uint8_t> bytes;
        std::u16string read_back;
    };
    const Case cases[] = {
        {S(u"ab"), {'a', 0, 'b', 0, 0, 0}, u"ab"},
        {S(u""), {0, 0}, u""},
        {S(u"\xD800x"), {0x00, 0xD8, 'x', 0, 0, 0}, u"\xD800x"},
        {Value::buffer({'h', 0, 'i', 0}), {'h', 0, 'i', 0}, u"hi"},
        {Value::buffer({'o', 'd', 'd'}), {'o', 'd', 'd'}, u"\x646F"},
        {Value::buffer({}), {0, 0}, u""}, // an empty buffer arrives as the empty string
    };
    for (const Case& c : cases) {
        auto out = f.call("ToClipboard", {c.value});
        ASSERT_EQ(out.status, CallStatus::Ok) << out.detail;
        EXPECT_TRUE(out.result.b);
        EXPECT_EQ(stored(f.fx), c.bytes);
        EXPECT_EQ(f.call("PressePapier", {}).result.s, c.read_back);
        EXPECT_TRUE(f.call("ClipboardFormat", {I(1)}).result.b);
        EXPECT_TRUE(f.call("ClipboardFormat", {I(13)}).result.b);
        EXPECT_FALSE(f.call("ClipboardFormat", {I(2)}).result.b);
        EXPECT_EQ(f.call("ClipboardWidth", {}).result.i, -1);
        EXPECT_EQ(f.call("ClipboardHeight", {}).result.i, -1);
    }
    // A bitmap put by another program of the device.
    std::vector<uint8_t> dib(40, 0);
    dib[0] = 40;
    dib[4] = 200;
    dib[8] = 100;
    ASSERT_TRUE(store->open() && store->empty() && store->set_data(2, dib) && store->close());
    EXPECT_EQ(f.call("ClipboardWidth", {}).result.i, 200);
    EXPECT_EQ(f.call("PressePapierHauteur", {}).result.i, 100);
    EXPECT_TRUE(f.call("ClipboardFormat", {I(2)}).result.b);
    EXPECT_FALSE(f.call("ClipboardFormat", {I(1)}).result.b);
    auto text = f.call("Clipboard", {});
    EXPECT_EQ(text.result.s, u"");
    EXPECT_EQ(text.error.severity, KP_SEVERITY_NONE);
    // The clipboard held by another opener: ToClipboard fails with 5.
    ASSERT_TRUE(store->open());
    auto held = f.call("ToClipboard", {S(u"blocked")});
    store->close();
    EXPECT_FALSE(held.result.b);
    EXPECT_EQ(held.error.system_code, 5u);
    EXPECT_EQ(held.error.severity, KP_SEVERITY_ERROR);
    // The overloads of the edition without a handler stay refused.
    EXPECT_EQ(f.call("ToClipboardRTF", {S(u"x")}).status, CallStatus::NotProvided);
    EXPECT_EQ(f.call("ClipboardRTF", {}).status, CallStatus::NotProvided);
}

// A VM whose table interface predates the `self` slot: the export reads it,
// and every operation is given the services block's vm pointer.
TEST(TableToText, InterfaceOfAnOlderVm) {
    static int vm_marker = 0;
    static int contexts_seen = 0, other_contexts = 0;
    static kp_table_interface ti{};
    auto note = [](void* c) { (c == &vm_marker ? contexts_seen : other_contexts)++; };
    static void (*const seen)(void*) = note;
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
    kp_error_record rec{};
    rec.severity = 1;
    kp::CXError err(&rec);
    const std::u16string text = kp::system::table_to_text(1, 0, u"\t", u"\r\n", -1, -1, err);
    kp::runtime::state().services = nullptr;
    EXPECT_FALSE(err.failed()) << err.id();
    EXPECT_EQ(text, u"Title");
    EXPECT_GT(contexts_seen, 0);
    EXPECT_EQ(other_contexts, 0);
}

} // namespace
