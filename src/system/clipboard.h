// clipboard.h - ToClipboard, Clipboard, ClipboardFormat, ClipboardHeight,
// ClipboardWidth, TableToText and TableToClipboard.
//
// Each function works on a clipboard given by the caller (the handlers pass
// the process's clipboard, platform/clipboard.h; tests pass their own), and
// the table functions read a table through a TableReader (the handlers make
// one over the VM's table interface, kp120/vm.h).
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"
#include "platform/clipboard.h"

namespace kp::system {

using platform::clipboard::Clipboard;

// Clipboard format numbers of the language: cfText (1) stands for Unicode
// text (system format 13); any other number is a system format.
constexpr int32_t kCfText = 1;
constexpr int32_t kCfBitmap = 2;

// Table options.
constexpr int32_t kTaNoTitle = 1;
constexpr int32_t kTaWithInvisibleColumns = 2;
constexpr int32_t kTaNoXsl = 4;
constexpr int32_t kTaNoTotal = 8;
constexpr int32_t kTaSelectedLines = 16;
constexpr int32_t kTaAccepted = kTaNoTitle | kTaWithInvisibleColumns | kTaNoTotal | kTaSelectedLines;

// Error identifiers.
constexpr uint32_t kErrNotTable = 80253;
constexpr uint32_t kErrTableOption = 80254;
constexpr uint32_t kErrNoTableInterface = 80255;
constexpr uint32_t kErrTableUnreadable = 80256;
constexpr uint32_t kErrConversion = 80014;

// The bytes ToClipboard puts for an argument (a string buffer or a binary
// buffer, null for the empty string): a buffer's bytes as they are; a
// string's characters and its terminator; one zero character for the empty
// string.
std::vector<uint8_t> clipboard_bytes(const char16_t* argument);

// Puts bytes on the clipboard, always declared as Unicode text (also for a
// buffer).  False, with the system error, when the clipboard cannot be
// opened, emptied or written.
bool to_clipboard(Clipboard& cb, std::span<const uint8_t> bytes, CXError& err);
// The Unicode text on the clipboard, up to its terminating zero; empty when
// there is none or on failure.
std::u16string clipboard_text(Clipboard& cb, CXError& err);
// True when the clipboard holds the format (1 meaning format 13).
bool clipboard_format(Clipboard& cb, int32_t format);
// Height and width of the bitmap on the clipboard; -1 when there is none or
// the clipboard cannot be opened (no error is recorded).
int32_t clipboard_height(Clipboard& cb);
int32_t clipboard_width(Clipboard& cb);

// What the table export reads of a table, after the reader's settings
// (invisible columns, totals, selected rows only) have been applied: the
// columns and rows to write, rows numbered from 1.
class TableReader {
  public:
    virtual ~TableReader() = default;
    virtual int32_t column_count() = 0;
    virtual std::u16string title(int32_t column) = 0;
    virtual int32_t row_count() = 0;
    // Appends the text of a cell; false (with the error recorded) when the
    // cell's value cannot be converted to a string.
    virtual bool append_cell(int32_t row, int32_t column, std::u16string& out, CXError& err) = 0;
};

// Rows written for a table of n rows and the first and last row arguments
// (-1: the defaults 1 and n): from the smaller of first and last to the
// smaller of n and the larger of the two.  Rows below 1 do not exist and are
// not written.  Empty (begin > end) when nothing is written.
struct RowRange {
    int64_t begin;
    int64_t end;
};
RowRange row_range(int32_t n, int32_t first, int32_t last);

// The text of a table: the title line unless `no_title`, then each row of
// the range, the line separator before a row whenever text precedes it, the
// column separator between cells.  Empty with the error on failure.
std::u16string table_text(TableReader& reader, bool no_title, std::u16string_view column_separator,
                          std::u16string_view line_separator, int32_t first, int32_t last, CXError& err);

// Whole TableToText: the control and option checks, the reader over the
// VM's table interface, the text.
std::u16string table_to_text(uintptr_t control, int32_t options, std::u16string_view column_separator,
                             std::u16string_view line_separator, int32_t first, int32_t last, CXError& err);
// TableToClipboard: the same text put on the clipboard as a string.
bool table_to_clipboard(Clipboard& cb, uintptr_t control, int32_t options,
                        std::u16string_view column_separator, std::u16string_view line_separator,
                        int32_t first, int32_t last, CXError& err);

} // namespace kp::system
