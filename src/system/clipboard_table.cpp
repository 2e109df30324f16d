// clipboard_table.cpp - TableToText and TableToClipboard: a table control
// of the VM's user interface as text, read through the VM's table interface
// (kp120/vm.h), each cell converted to a string by the VM's conversion.
#include <algorithm>

#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"
#include "system/clipboard.h"

namespace kp::system {

namespace {

bool is_table_kind(int32_t kind) {
    return kind == KP_CONTROL_KIND_TABLE || kind == KP_CONTROL_KIND_TABLE2 || kind == KP_CONTROL_KIND_TABLE3;
}

// The table interface of the VM, when it has every operation the export
// reads (begin_read and end_read are optional).
const kp_table_interface* table_interface() {
    using T = kp_table_interface;
    auto get = runtime::service(&kp_services::table_interface);
    const T* ti = get ? get(runtime::vm()) : nullptr;
    if (!runtime::slot(ti, &T::kind) || !runtime::slot(ti, &T::column_count) ||
        !runtime::slot(ti, &T::column_title) || !runtime::slot(ti, &T::column_visible) ||
        !runtime::slot(ti, &T::row_count) || !runtime::slot(ti, &T::row_selected) ||
        !runtime::slot(ti, &T::has_totals) || !runtime::slot(ti, &T::cell))
        return nullptr;
    return ti;
}

// The context the operations are given: the interface's self, or the
// services block's vm pointer when the VM's block has none.
void* context_of(const kp_table_interface& ti) {
    void* self = runtime::slot(&ti, &kp_table_interface::self);
    return self ? self : runtime::vm();
}

// The reader: the columns and rows the settings keep, in the control's
// order, the totals row (when wanted and present) after the other rows.
class VmTableReader final : public TableReader {
  public:
    VmTableReader(const kp_table_interface& ti, uintptr_t control, bool invisible_columns, bool totals,
                  bool selected_only)
        : ti_(ti), self_(context_of(ti)), control_(control) {
        const int32_t columns = std::max(0, ti.column_count(self_, control));
        for (int32_t c = 0; c < columns; ++c)
            if (invisible_columns || ti.column_visible(self_, control, c)) columns_.push_back(c);
        const int32_t rows = std::max(0, ti.row_count(self_, control));
        if (selected_only) {
            for (int32_t r = 0; r < rows; ++r)
                if (ti.row_selected(self_, control, r)) rows_.push_back(r);
        } else {
            rows_.resize(static_cast<std::size_t>(rows));
            for (int32_t r = 0; r < rows; ++r)
                rows_[static_cast<std::size_t>(r)] = r;
        }
        if (totals && ti.has_totals(self_, control)) rows_.push_back(KP_TABLE_TOTALS_ROW);
    }

    int32_t column_count() override { return static_cast<int32_t>(columns_.size()); }

    std::u16string title(int32_t column) override {
        int32_t length = 0;
        const char16_t* t =
            ti_.column_title(self_, control_, columns_[static_cast<std::size_t>(column)], &length);
        return t && length > 0 ? std::u16string(t, static_cast<std::size_t>(length)) : std::u16string();
    }

    int32_t row_count() override { return static_cast<int32_t>(rows_.size()); }

    bool append_cell(int32_t row, int32_t column, std::u16string& out, CXError& err) override {
        variant::Value v;
        if (ti_.cell(self_, control_, rows_[static_cast<std::size_t>(row - 1)],
                     columns_[static_cast<std::size_t>(column)], v.get()) != 0) {
            // The VM could not give the cell: the table's content cannot be read.
            err.fail(kErrTableUnreadable);
            return false;
        }
        const uint16_t type = variant::type_of(v.get());
        if (type == KP_T_NONE) return true; // an empty cell
        // A value the VM's conversion cannot make a string of fails the
        // whole export (80014) rather than leave a hole in the text.
        if (type != KP_T_STRING && type != KP_T_STRING_RESULT &&
            variant::convert(v.get(), KP_T_STRING) >= 100) {
            err.fail(kErrConversion);
            return false;
        }
        out += str::view(v.get()->value.str);
        return true;
    }

  private:
    const kp_table_interface& ti_;
    void* self_;
    uintptr_t control_;
    std::vector<int32_t> columns_;
    std::vector<int32_t> rows_;
};

} // namespace

RowRange row_range(int32_t n, int32_t first, int32_t last) {
    const int64_t f = first == -1 ? 1 : first;
    const int64_t l = last == -1 ? n : last;
    return {std::max<int64_t>(std::min(f, l), 1), std::min<int64_t>(n, std::max(f, l))};
}

std::u16string table_text(TableReader& reader, bool no_title, std::u16string_view column_separator,
                          std::u16string_view line_separator, int32_t first, int32_t last, CXError& err) {
    const int32_t columns = reader.column_count();
    const RowRange range = row_range(reader.row_count(), first, last);
    std::u16string out;
    if (!no_title) {
        for (int32_t c = 0; c < columns; ++c) {
            if (c > 0) out += column_separator;
            out += reader.title(c);
        }
    }
    for (int64_t r = range.begin; r <= range.end; ++r) {
        // Only text already written is separated from the row; an empty
        // title line or an empty first row is not followed by a separator.
        if (!out.empty()) out += line_separator;
        for (int32_t c = 0; c < columns; ++c) {
            if (c > 0) out += column_separator;
            if (!reader.append_cell(static_cast<int32_t>(r), c, out, err)) return {};
        }
        if (out.size() >= KP_STRING_MAX_CHARS) {
            err.fail(kErrConversion);
            return {};
        }
    }
    return out;
}

std::u16string table_to_text(uintptr_t control, int32_t options, std::u16string_view column_separator,
                             std::u16string_view line_separator, int32_t first, int32_t last, CXError& err) {
    const kp_table_interface* ti = table_interface();
    if (!ti) {
        // A VM without table controls: its control object is missing, a
        // fault of the VM rather than of the program (fatal).
        err.set(kErrNoTableInterface);
        return {};
    }
    void* self = context_of(*ti);
    if (!is_table_kind(ti->kind(self, control))) {
        err.fail(kErrNotTable);
        return {};
    }
    if (options & ~kTaAccepted) {
        err.fail(kErrTableOption);
        return {};
    }
    auto begin_read = runtime::slot(ti, &kp_table_interface::begin_read);
    auto end_read = runtime::slot(ti, &kp_table_interface::end_read);
    if (begin_read && begin_read(self, control, err.record()) != 0) {
        // The VM's error for the control is the call's error.
        if (!err.failed()) err.fail(kErrTableUnreadable);
        return {};
    }
    std::u16string text;
    {
        VmTableReader reader(*ti, control, (options & kTaWithInvisibleColumns) != 0,
                             (options & kTaNoTotal) == 0, (options & kTaSelectedLines) != 0);
        text = table_text(reader, (options & kTaNoTitle) != 0, column_separator, line_separator, first, last,
                          err);
    }
    if (end_read) end_read(self, control);
    return text;
}

bool table_to_clipboard(Clipboard& cb, uintptr_t control, int32_t options,
                        std::u16string_view column_separator, std::u16string_view line_separator,
                        int32_t first, int32_t last, CXError& err) {
    const std::u16string text =
        table_to_text(control, options, column_separator, line_separator, first, last, err);
    if (err.failed()) return false;
    return to_clipboard(cb, platform::clipboard::block_of_text(text), err);
}

} // namespace kp::system
