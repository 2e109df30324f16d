// error.h - CXError, the error object of one call, over the VM's error record.
//
// Implementations record failures here: an error identifier of the error
// definition table (message and severity come from its row), a system error
// code with its text, or a message by number.  Trace lines of the component
// ("##(CXError)-...##", "##(IXStream)-...##") are appended to the message.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>

#include "kp120/vm.h"

namespace kp {

// One insert value of a message: %N!u!, %N!d!, %N!p! take integers, %N and
// %N!s! (and %s) take text.
struct Insert {
    enum class Kind { Unsigned, Signed, Pointer, Text } kind;
    uint64_t number = 0;
    std::u16string text;

    Insert(unsigned v) : kind(Kind::Unsigned), number(v) {}
    Insert(unsigned long v) : kind(Kind::Unsigned), number(v) {}
    Insert(unsigned long long v) : kind(Kind::Unsigned), number(v) {}
    Insert(int v) : kind(Kind::Signed), number(static_cast<uint64_t>(static_cast<int64_t>(v))) {}
    Insert(long v) : kind(Kind::Signed), number(static_cast<uint64_t>(static_cast<int64_t>(v))) {}
    Insert(long long v) : kind(Kind::Signed), number(static_cast<uint64_t>(v)) {}
    Insert(const void* p) : kind(Kind::Pointer), number(reinterpret_cast<uintptr_t>(p)) {}
    Insert(std::u16string_view s) : kind(Kind::Text), text(s) {}
    Insert(const char16_t* s) : kind(Kind::Text), text(s ? s : u"") {}
    Insert(const std::u16string& s) : kind(Kind::Text), text(s) {}
};
using Inserts = std::initializer_list<Insert>;

class CXError {
  public:
    // A null record is allowed: every operation is then a no-op.
    explicit CXError(kp_error_record* record) : rec_(record) {}

    // Clears the object and applies the error definition row of `id`.
    void set(uint32_t id, Inserts inserts = {});
    // 1 clears everything; 2 or 3 only set the severity.
    void set_severity(int32_t level);
    // Stores a Win32 error code and the system's text for it (empty for 0).
    void set_system(uint32_t code);
    // As set() but from a message number, without the definition table;
    // the caller sets the severity.
    void set_message(uint32_t number, Inserts inserts = {});
    // Appends formatted text (a line of its own, "\r\n" separated).
    void append_formatted(std::u16string_view format, Inserts inserts = {});
    // Appends raw text as a line of its own.
    void append_line(std::u16string_view text);
    void clear();
    // The record's additional flag (access denied on a file that is not read-only).
    void set_additional(uint32_t first, uint32_t second);

    // Shorthand of the usual failure path: set(id, inserts) then severity 2.
    void fail(uint32_t id, Inserts inserts = {}) {
        set(id, inserts);
        set_severity(KP_SEVERITY_ERROR);
    }

    int32_t severity() const { return rec_ ? rec_->severity : KP_SEVERITY_NONE; }
    uint32_t id() const { return rec_ ? rec_->id : 0; }
    uint32_t system_code() const { return rec_ ? rec_->system_code : 0; }
    bool failed() const { return severity() > KP_SEVERITY_NONE; }
    std::u16string_view message() const {
        return rec_ ? std::u16string_view(rec_->message, rec_->message_length) : std::u16string_view();
    }
    kp_error_record* record() const { return rec_; }

  private:
    void stamp_module();
    kp_error_record* rec_;
};

// Formats a message text with the platform's insert syntax.  Returns false
// when the text cannot be formatted (an insert number without a value, a
// malformed insert).
bool format_message(std::u16string_view format, Inserts inserts, std::u16string& out);

// The error definition row of an identifier (first row in table order), or null.
struct ErrorDef {
    uint32_t id;
    uint32_t message;
    uint32_t extra;
    int32_t severity;
};
const ErrorDef* find_error_def(uint32_t id);
const ErrorDef* error_defs(std::size_t* count);

// Message text by number in the current interface language: the VM's
// callback first, then the component's own catalogue.  Returns false when
// neither has a text.
bool message_text(uint32_t number, std::u16string& out);
// The component's own catalogue (French when `french`).  Null when absent.
const char16_t* catalogue_text(uint32_t number, bool french);
// The text shown when a module is found corrupted (one text for both
// languages, the module name inserted twice).  No call of the component
// shows it today; it is kept for the VM's integrity checks.
std::u16string module_corrupted_message(std::u16string_view module);
// System text of a Win32 error code ("" when unknown).
std::u16string system_error_text(uint32_t code, bool french);

} // namespace kp
