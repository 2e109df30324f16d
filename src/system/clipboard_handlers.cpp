// clipboard_handlers.cpp - the handlers of the clipboard and table export
// functions.  Each reads its arguments, calls one implementation on the
// process's clipboard and hands back the result; running out of memory
// becomes the function's failure value with system error 8.
#include <new>

#include "component/bind.h"
#include "component/call.h"
#include "platform/clipboard.h"
#include "platform/win32_error.h"
#include "system/clipboard.h"

namespace kp::handlers {

namespace {

using platform::clipboard::system_clipboard;

template <class R, class Body> R guarded(CXError& err, R failure, Body&& body) {
    try {
        return body();
    } catch (const std::bad_alloc&) {
        err.clear();
        err.set_system(platform::kErrorNotEnoughMemory);
        err.set_severity(KP_SEVERITY_ERROR);
        return failure;
    }
}

// Defaults of the table functions' optional arguments.
constexpr int32_t kDefaultOptions = 0;
constexpr std::u16string_view kDefaultColumnSeparator = u"\t";
constexpr std::u16string_view kDefaultLineSeparator = u"\r\n";
constexpr int32_t kDefaultRow = -1;

std::u16string table_text(uintptr_t control, int32_t options, std::u16string_view cs, std::u16string_view ls,
                          int32_t first, int32_t last, CXError& e) {
    return guarded(e, std::u16string(),
                   [&] { return system::table_to_text(control, options, cs, ls, first, last, e); });
}

bool table_clip(uintptr_t control, int32_t options, std::u16string_view cs, std::u16string_view ls,
                int32_t first, int32_t last, CXError& e) {
    return guarded(e, false, [&] {
        return system::table_to_clipboard(system_clipboard(), control, options, cs, ls, first, last, e);
    });
}

// The shorter overloads of a table function `F`: the arguments left out
// take their defaults.
template <auto F> struct TableOverloads {
    static auto of1(uintptr_t t, CXError& e) {
        return F(t, kDefaultOptions, kDefaultColumnSeparator, kDefaultLineSeparator, kDefaultRow, kDefaultRow,
                 e);
    }
    static auto of2(uintptr_t t, int32_t o, CXError& e) {
        return F(t, o, kDefaultColumnSeparator, kDefaultLineSeparator, kDefaultRow, kDefaultRow, e);
    }
    static auto of3(uintptr_t t, int32_t o, std::u16string_view cs, CXError& e) {
        return F(t, o, cs, kDefaultLineSeparator, kDefaultRow, kDefaultRow, e);
    }
    static auto of4(uintptr_t t, int32_t o, std::u16string_view cs, std::u16string_view ls, CXError& e) {
        return F(t, o, cs, ls, kDefaultRow, kDefaultRow, e);
    }
    static auto of5(uintptr_t t, int32_t o, std::u16string_view cs, std::u16string_view ls, int32_t first,
                    CXError& e) {
        return F(t, o, cs, ls, first, kDefaultRow, e);
    }
};
using TextOverloads = TableOverloads<table_text>;
using ClipOverloads = TableOverloads<table_clip>;

} // namespace

KP_BIND(ToClipboard_1, [](Call& c) {
    return guarded(c.error(), false, [&] {
        return system::to_clipboard(system_clipboard(), system::clipboard_bytes(c.buffer(0)), c.error());
    });
})
KP_BIND(Clipboard_1, [](CXError& e) {
    return guarded(e, std::u16string(), [&] { return system::clipboard_text(system_clipboard(), e); });
})
KP_BIND(ClipboardFormat_1,
        [](int32_t format) { return system::clipboard_format(system_clipboard(), format); })
KP_BIND(ClipboardHeight_1, [] { return system::clipboard_height(system_clipboard()); })
KP_BIND(ClipboardWidth_1, [] { return system::clipboard_width(system_clipboard()); })

KP_BIND(TableToText_1, TextOverloads::of1)
KP_BIND(TableToText_2, TextOverloads::of2)
KP_BIND(TableToText_3, TextOverloads::of3)
KP_BIND(TableToText_4, TextOverloads::of4)
KP_BIND(TableToText_5, TextOverloads::of5)
KP_BIND(TableToText_6, table_text)

KP_BIND(TableToClipboard_1, ClipOverloads::of1)
KP_BIND(TableToClipboard_2, ClipOverloads::of2)
KP_BIND(TableToClipboard_3, ClipOverloads::of3)
KP_BIND(TableToClipboard_4, ClipOverloads::of4)
KP_BIND(TableToClipboard_5, ClipOverloads::of5)
KP_BIND(TableToClipboard_6, table_clip)

} // namespace kp::handlers
