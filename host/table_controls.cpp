// table_controls.cpp - table controls of the reference host and the table
// interface of its services block.
#include "table_controls.h"

#include <algorithm>
#include <cstring>

#include "host_values.h"

namespace kp::host {

uintptr_t TableControls::add(std::shared_ptr<TableControl> control) {
    std::lock_guard<std::mutex> lock(mutex_);
    const uintptr_t h = next_++;
    controls_[h] = std::move(control);
    return h;
}

void TableControls::remove(uintptr_t handle) {
    std::lock_guard<std::mutex> lock(mutex_);
    controls_.erase(handle);
}

std::shared_ptr<TableControl> TableControls::find(uintptr_t handle) const {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = controls_.find(handle);
    return it == controls_.end() ? nullptr : it->second;
}

namespace {

// Every operation is given the interface's self, the host's `vm` pointer.
// The component reads a control between begin_read and end_read; the
// control is looked up at every operation, so that one removed meanwhile
// reads as empty instead of dangling.
std::shared_ptr<TableControl> control(void* vm, uintptr_t handle) {
    return table_controls_of(vm).find(handle);
}

int32_t op_kind(void* vm, uintptr_t handle) {
    auto c = control(vm, handle);
    return c ? c->kind : -1;
}

int32_t op_begin_read(void* vm, uintptr_t handle, kp_error_record* error) {
    auto c = control(vm, handle);
    if (c && !c->unreadable) return 0;
    if (error) {
        // The VM's own error for a control whose content it cannot give.
        static const char16_t kText[] = u"The content of the table control is not available.";
        error->severity = KP_SEVERITY_ERROR;
        error->id = c ? c->read_error : 0;
        error->message_length = static_cast<uint32_t>(std::size(kText) - 1);
        std::memcpy(error->message, kText, sizeof kText);
    }
    return 1;
}

void op_end_read(void*, uintptr_t) {}

int32_t op_column_count(void* vm, uintptr_t handle) {
    auto c = control(vm, handle);
    return c ? static_cast<int32_t>(c->columns.size()) : 0;
}

const char16_t* op_column_title(void* vm, uintptr_t handle, int32_t column, int32_t* length) {
    auto c = control(vm, handle);
    if (!c || column < 0 || static_cast<std::size_t>(column) >= c->columns.size()) {
        if (length) *length = 0;
        return nullptr;
    }
    // The title lives as long as the control, which the host keeps.
    const std::u16string& t = c->columns[static_cast<std::size_t>(column)].title;
    if (length) *length = static_cast<int32_t>(t.size());
    return t.data();
}

int32_t op_column_visible(void* vm, uintptr_t handle, int32_t column) {
    auto c = control(vm, handle);
    if (!c || column < 0 || static_cast<std::size_t>(column) >= c->columns.size()) return 0;
    return c->columns[static_cast<std::size_t>(column)].visible ? 1 : 0;
}

int32_t op_row_count(void* vm, uintptr_t handle) {
    auto c = control(vm, handle);
    return c ? static_cast<int32_t>(c->rows.size()) : 0;
}

int32_t op_row_selected(void* vm, uintptr_t handle, int32_t row) {
    auto c = control(vm, handle);
    if (!c || row < 0) return 0;
    return std::binary_search(c->selected.begin(), c->selected.end(), row) ? 1 : 0;
}

int32_t op_has_totals(void* vm, uintptr_t handle) {
    auto c = control(vm, handle);
    return c && c->has_totals ? 1 : 0;
}

int32_t op_cell(void* vm, uintptr_t handle, int32_t row, int32_t column, kp_variant* out) {
    auto c = control(vm, handle);
    if (!c || !out || column < 0) return 1;
    const std::vector<Value>* cells = nullptr;
    if (row == KP_TABLE_TOTALS_ROW && c->has_totals)
        cells = &c->totals;
    else if (row >= 0 && static_cast<std::size_t>(row) < c->rows.size())
        cells = &c->rows[static_cast<std::size_t>(row)];
    if (!cells) return 1;
    // A row shorter than the columns has empty cells at its end.
    static const Value kEmpty;
    const Value& v = static_cast<std::size_t>(column) < cells->size()
                         ? (*cells)[static_cast<std::size_t>(column)]
                         : kEmpty;
    value_to_variant(current_allocator(), v, out);
    return 0;
}

const kp_table_interface kInterface = {sizeof(kp_table_interface),
                                       op_kind,
                                       op_begin_read,
                                       op_end_read,
                                       op_column_count,
                                       op_column_title,
                                       op_column_visible,
                                       op_row_count,
                                       op_row_selected,
                                       op_has_totals,
                                       op_cell,
                                       nullptr};

} // namespace

const kp_table_interface* host_table_interface() {
    return &kInterface;
}

} // namespace kp::host
