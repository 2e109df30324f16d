// management.cpp - the file and directory functions that work by name.
#include "files/management.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <random>
#include <vector>

#include "datetime/calendar.h"
#include "files/stream.h"
#include "files/streams.h"
#include "platform/clock.h"
#include "platform/codepage.h"
#include "platform/directory.h"
#include "platform/extents.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/trash.h"
#include "platform/wildcard.h"
#include "platform/win32_error.h"

namespace kp::files {

namespace pf = kp::platform;

namespace {

constexpr std::size_t kMaxPath = 260; // characters a name may have, with its terminator

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

bool same_without_case(std::u16string_view a, std::u16string_view b) {
    return a.size() == b.size() && pf::wildcard_match(a, b) && !pf::has_wildcards(a);
}

void record_message(CXError& err, uint32_t message, Inserts inserts, uint32_t system_code) {
    err.set_message(message, inserts);
    err.set_system(system_code);
    err.set_severity(KP_SEVERITY_ERROR);
}

void append_message(CXError& err, uint32_t message, Inserts inserts) {
    std::u16string text;
    if (message_text(message, text)) err.append_formatted(text, inserts);
}

// The pieces of a path as the Windows C runtime's _wsplitpath cuts them.
struct PathParts {
    std::u16string_view drive, directory, file, extension;
};

PathParts split_path(std::u16string_view p) {
    PathParts parts;
    // The device has no drive letters: a drive is only "X:" at the start.
    if (p.size() >= 2 && p[1] == u':') {
        parts.drive = p.substr(0, 2);
        p.remove_prefix(2);
    }
    std::size_t cut = p.size();
    while (cut > 0 && !is_separator(p[cut - 1]))
        --cut;
    parts.directory = p.substr(0, cut); // keeps its trailing separator
    std::u16string_view rest = p.substr(cut);
    std::size_t dot = rest.rfind(u'.');
    if (dot == std::u16string_view::npos) {
        parts.file = rest;
    } else {
        parts.file = rest.substr(0, dot);
        parts.extension = rest.substr(dot); // keeps its dot
    }
    return parts;
}

std::u16string_view name_and_extension(std::u16string_view path) {
    std::size_t cut = path.size();
    while (cut > 0 && !is_separator(path[cut - 1]))
        --cut;
    return path.substr(cut);
}

// An open stream bound to the call's error object for its lifetime.
struct OpenStream {
    IXStream stream;
    explicit OpenStream(CXError& err) { stream.bind(&err); }
    ~OpenStream() {
        // Closing must not clear an error the call recorded.
        stream.bind(nullptr);
        stream.Close();
    }
};

// FILETIME <-> local broken-down time.
constexpr uint64_t kTicksPerSecond = 10000000ULL;

int64_t days_from_civil(int64_t y, int32_t m, int32_t d) {
    y -= m <= 2;
    const int64_t era = (y >= 0 ? y : y - 399) / 400;
    const int64_t yoe = y - era * 400;
    const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
    const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + doe - 719468; // days since 1970-01-01
}

void civil_from_days(int64_t z, int32_t& y, int32_t& m, int32_t& d) {
    z += 719468;
    const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
    const int64_t doe = z - era * 146097;
    const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const int64_t mp = (5 * doy + 2) / 153;
    d = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
    m = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
    y = static_cast<int32_t>(yoe + era * 400 + (m <= 2));
}

constexpr int64_t kDays1601To1970 = 134774;

bool local_of(uint64_t filetime, pf::SystemTime& local) {
    int64_t secs = static_cast<int64_t>(filetime / kTicksPerSecond);
    pf::SystemTime utc;
    civil_from_days(secs / 86400 - kDays1601To1970, utc.year, utc.month, utc.day);
    int64_t rem = secs % 86400;
    utc.hour = static_cast<int32_t>(rem / 3600);
    utc.minute = static_cast<int32_t>(rem / 60 % 60);
    utc.second = static_cast<int32_t>(rem % 60);
    utc.milliseconds = static_cast<int32_t>(filetime % kTicksPerSecond / 10000);
    return pf::utc_to_local(utc, local);
}

bool filetime_of(const pf::SystemTime& local, uint64_t& filetime) {
    pf::SystemTime utc;
    if (!pf::local_to_utc(local, utc)) return false;
    int64_t days = days_from_civil(utc.year, utc.month, utc.day) + kDays1601To1970;
    if (days < 0) return false;
    int64_t secs = days * 86400 + utc.hour * 3600 + utc.minute * 60 + utc.second;
    filetime =
        static_cast<uint64_t>(secs) * kTicksPerSecond + static_cast<uint64_t>(utc.milliseconds) * 10000;
    return true;
}

std::u16string date_text(const pf::SystemTime& t, DatePart part) {
    std::u16string out;
    if (part != DatePart::Time) out += datetime::format_date(t.year, t.month, t.day);
    if (part != DatePart::Date) out += datetime::format_time(t.hour, t.minute, t.second, t.milliseconds / 10);
    return out;
}

uint64_t time_of_kind(const pf::FileInfo& info, int32_t kind) {
    return kind == kFCreation ? info.creation_time : kind == kFAccess ? info.access_time : info.write_time;
}

// Deletes one file (attributes cleared first with frReadOnly); records
// message 28123 on failure.
bool delete_one(std::u16string_view name, int32_t options, CXError& err) {
    if (options & kFrReadOnly) pf::set_file_attributes(name, pf::kAttributeNormal);
    if (pf::delete_file(name)) return true;
    record_message(err, kMsgDeleteFailed, {name}, pf::last_error());
    return false;
}

bool trash_one(std::u16string_view name, CXError& err) {
    if (pf::move_to_trash(name)) return true;
    record_message(err, kMsgDeleteFailed, {name}, pf::last_error());
    return false;
}

} // namespace

bool is_relative(std::u16string_view name) {
    return !pf::is_absolute_device_name(name);
}

bool refuse_relative(std::u16string_view name, CXError& err) {
    if (!is_relative(name)) return false;
    err.fail(kErrRelativeName, {name});
    return true;
}

void report_system_error(CXError& err) {
    uint32_t code = pf::last_error();
    err.clear();
    err.set_system(code);
    err.set_severity(KP_SEVERITY_ERROR);
}

// --- Existence -----------------------------------------------------------------

bool f_file_exist(std::u16string_view name, CXError& err) {
    if (name.empty()) return false;
    if (refuse_relative(name, err)) return false;
    // A pattern exists when a file matches it, as a directory search tells.
    if (pf::has_wildcards(name)) {
        pf::FileInfo info;
        pf::FileSearch search;
        for (bool ok = search.first(name, info); ok; ok = search.next(info))
            if (!(info.attributes & pf::kAttributeDirectory)) return true;
        return false;
    }
    bool directory = false;
    return pf::get_entry_kind(name, directory) && !directory;
}

bool f_directory_exist(std::u16string_view name, CXError& err) {
    if (name.empty()) return false;
    if (refuse_relative(name, err)) return false;
    bool directory = false;
    return pf::get_entry_kind(name, directory) && directory;
}

// --- Comparison ----------------------------------------------------------------

int32_t f_compare(std::u16string_view first, std::u16string_view second, CXError& err) {
    if (first.empty() || second.empty()) {
        err.fail(kErrEmptyName);
        return -3;
    }
    if (refuse_relative(first, err)) return -1;
    if (refuse_relative(second, err)) return -2;
    if (same_without_case(first, second)) return 0;
    OpenStream a(err), b(err);
    const uint32_t share = pf::kShareRead | pf::kShareWrite;
    if (!a.stream.Open(first, pf::kGenericRead, share, pf::kOpenExisting, pf::kFlagRandomAccess)) {
        uint32_t code = a.stream.GetLastError();
        err.fail(kErrCannotOpen, {first});
        err.set_system(code);
        return -1;
    }
    if (!b.stream.Open(second, pf::kGenericRead, share, pf::kOpenExisting, pf::kFlagRandomAccess)) {
        uint32_t code = b.stream.GetLastError();
        err.fail(kErrCannotOpen, {second});
        err.set_system(code);
        return -2;
    }
    // The data extents of both files, compared by content: holes read as
    // zeros, ranges that are holes in both are not read, and the memory used
    // does not grow with the files.
    switch (pf::compare_file_contents(a.stream.handle(), b.stream.handle())) {
    case 0:
        return 0;
    case 1:
        return 1;
    default: {
        uint32_t code = pf::last_error();
        err.fail(kErrCompareFailed);
        err.set_system(code);
        return -3;
    }
    }
}

// --- Path splitting --------------------------------------------------------------

std::u16string f_extract_path(std::u16string_view path, int32_t parts, CXError& err) {
    if (parts & ~(kFDrive | kFDirectory | kFFileName | kFExtension)) {
        err.fail(kErrPartMask);
        return {};
    }
    if (path.size() >= kMaxPath + 1) {
        err.fail(kErrPathTooLong);
        return {};
    }
    PathParts p = split_path(path);
    std::u16string out;
    if (parts & kFDrive) out += p.drive;
    if (parts & kFDirectory) out += p.directory;
    if (parts & kFFileName) out += p.file;
    if (parts & kFExtension) out += p.extension;
    return out;
}

// --- Copies and renames ------------------------------------------------------------

bool f_copy_file(std::u16string_view source, std::u16string_view destination, CXError& err) {
    if (source.empty() || destination.empty()) {
        err.fail(kErrEmptyName);
        return false;
    }
    if (pf::has_wildcards(destination)) {
        err.fail(kErrWildcardTarget);
        return false;
    }
    if (refuse_relative(source, err)) return false;
    pf::FileInfo src;
    const bool pattern = pf::has_wildcards(source);
    if (!pattern && !pf::get_file_info(source, src)) {
        err.fail(kErrNoSuchFile, {source});
        return false;
    }
    if (pattern || (src.attributes & pf::kAttributeDirectory)) {
        err.fail(kErrCopyFailed, {source, destination});
        return false;
    }
    std::u16string from(source.substr(0, std::min(source.size(), kMaxPath)));
    std::u16string target(destination.substr(0, std::min(destination.size(), kMaxPath)));
    std::u16string directory;
    pf::FileInfo dst;
    if (is_separator(target.back())) {
        directory = target;
        target += name_and_extension(from);
    } else if (pf::get_file_info(target, dst) && (dst.attributes & pf::kAttributeDirectory)) {
        directory = target;
        target += u'\\';
        target += name_and_extension(from);
    } else {
        PathParts p = split_path(target);
        directory = std::u16string(p.drive) + std::u16string(p.directory);
    }
    if (!directory.empty() && !pf::create_directory_tree(directory)) {
        uint32_t code = pf::last_error();
        err.clear();
        err.set_system(code);
        err.set_severity(KP_SEVERITY_ERROR);
        return false;
    }
    bool ok = pf::copy_file(from, target, false);
    if (!ok && pf::last_error() == pf::kErrorAccessDenied) {
        pf::set_file_attributes(target, pf::kAttributeNormal);
        ok = pf::copy_file(from, target, false);
    }
    if (ok) return true;
    uint32_t code = pf::last_error();
    err.fail(kErrCopyFailed, {from, target});
    err.set_system(code);
    append_message(err, kMsgCopyFailed, {from, target});
    return false;
}

// fRename and fMoveFile: no absolute-name check here, unlike the copy; a
// relative name fails in the system call (3).
bool f_move_file(std::u16string_view source, std::u16string_view destination, CXError& err) {
    if (source.empty() || destination.empty()) {
        err.fail(kErrEmptyName);
        return false;
    }
    if (pf::move_file(source, destination)) return true;
    record_message(err, kMsgRenameFailed, {destination, source}, pf::last_error());
    return false;
}

// --- Deletion ------------------------------------------------------------------------

bool f_delete(std::u16string_view name, int32_t options, CXError& err) {
    if (name.empty()) {
        err.fail(kErrEmptyName);
        return false;
    }
    if (refuse_relative(name, err)) return false;
    const bool to_trash = (options & kFrToRecycleBin) != 0;
    if (!pf::has_wildcards(name)) return to_trash ? trash_one(name, err) : delete_one(name, options, err);
    std::u16string_view directory, mask;
    pf::split_device_name(name, directory, mask);
    pf::FileSearch search;
    pf::FileInfo info;
    if (!search.first(name, info)) {
        uint32_t code = pf::last_error();
        if (code != pf::kErrorFileNotFound) record_message(err, kMsgSearchFailed, {name}, code);
        return false;
    }
    // The matches are collected first, so that deleting does not disturb the search.
    std::vector<std::u16string> names;
    do {
        if (!(info.attributes & pf::kAttributeDirectory))
            names.push_back(std::u16string(directory) + info.name);
    } while (search.next(info));
    if (names.empty()) return false;
    for (const std::u16string& n : names)
        if (!(to_trash ? trash_one(n, err) : delete_one(n, options, err))) return false;
    return true;
}

// --- Sizes ----------------------------------------------------------------------------

int64_t f_size(std::u16string_view name, CXError& err) {
    if (name.empty()) return -1;
    if (refuse_relative(name, err)) return -1;
    pf::FileInfo info;
    if (!pf::get_file_info(name, info) || (info.attributes & pf::kAttributeDirectory)) {
        err.fail(kErrNoSuchFile, {name});
        return -1;
    }
    return static_cast<int64_t>(info.size);
}

int64_t f_dir_size(std::u16string_view name, CXError& err) {
    if (refuse_relative(name, err)) return -1;
    uint64_t total = 0;
    if (!pf::directory_size(name, total)) {
        report_system_error(err);
        return -1;
    }
    return static_cast<int64_t>(total);
}

// --- Dates -------------------------------------------------------------------------------

// fDate, fTime and fDateTime read a date of kind fModify, fCreation or
// fAccess in local time as date and time strings; given a value, they set
// that part (a date keeps the time of day, a time keeps the day) and return
// what the file then holds.  A creation date cannot be set: 50.
std::u16string f_file_date(std::u16string_view name, std::u16string_view value, int32_t kind, DatePart part,
                           CXError& err) {
    if (refuse_relative(name, err)) return {};
    if (kind != kFModify && kind != kFCreation && kind != kFAccess) {
        pf::set_last_error(pf::kErrorInvalidParameter);
        report_system_error(err);
        return {};
    }
    pf::FileInfo info;
    if (!pf::get_file_info(name, info)) {
        report_system_error(err);
        return {};
    }
    pf::SystemTime local;
    if (!local_of(time_of_kind(info, kind), local)) {
        err.fail(part == DatePart::Time ? kErrFileTime : kErrFileDate);
        return {};
    }
    if (value.empty()) return date_text(local, part);

    datetime::Date d{local.year, local.month, local.day};
    datetime::Time t{local.hour, local.minute, local.second, local.milliseconds / 10};
    bool ok = true;
    switch (part) {
    case DatePart::Date:
        ok = value.size() == 8 && datetime::parse_date(value, d, nullptr);
        break;
    case DatePart::Time:
        ok = datetime::parse_time(value, t, nullptr);
        break;
    case DatePart::DateTime:
        ok = value.size() >= 8 && datetime::parse_date(value.substr(0, 8), d, nullptr) &&
             (value.size() == 8 || datetime::parse_time(value.substr(8), t, nullptr));
        break;
    }
    if (!ok) {
        err.fail(part == DatePart::Time ? kErrFileTime : kErrFileDate);
        return {};
    }
    pf::SystemTime wanted = local;
    datetime::set_system_time(wanted, d, t);
    uint64_t ft = 0;
    if (!filetime_of(wanted, ft)) {
        err.fail(part == DatePart::Time ? kErrFileTime : kErrFileDate);
        return {};
    }
    const uint64_t* creation = kind == kFCreation ? &ft : nullptr;
    const uint64_t* access = kind == kFAccess ? &ft : nullptr;
    const uint64_t* write = kind == kFModify ? &ft : nullptr;
    if (!pf::set_file_times(name, creation, access, write) || !pf::get_file_info(name, info) ||
        !local_of(time_of_kind(info, kind), local)) {
        report_system_error(err);
        return {};
    }
    return date_text(local, part);
}

// --- Attributes ----------------------------------------------------------------------------

namespace {
struct Letter {
    char16_t letter;
    uint32_t bit;
};
constexpr Letter kLetters[] = {
    {u'A', pf::kAttributeArchive},  {u'D', pf::kAttributeDirectory}, {u'H', pf::kAttributeHidden},
    {u'R', pf::kAttributeReadOnly}, {u'S', pf::kAttributeSystem},    {u'C', pf::kAttributeCompressed},
};

uint32_t bit_of(char16_t c) {
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
    for (const Letter& l : kLetters)
        if (l.letter == c) return l.bit;
    return 0;
}

// What a program can change: directory and compressed are the entry's nature.
constexpr uint32_t kSettable =
    pf::kAttributeArchive | pf::kAttributeHidden | pf::kAttributeReadOnly | pf::kAttributeSystem;

bool existing_entry(std::u16string_view name, bool directory, pf::FileInfo& info, CXError& err) {
    if (refuse_relative(name, err)) return false;
    if (!pf::get_file_info(name, info)) {
        report_system_error(err);
        return false;
    }
    if (directory != ((info.attributes & pf::kAttributeDirectory) != 0)) {
        if (directory) {
            pf::set_last_error(pf::kErrorDirectory);
            report_system_error(err);
        } else {
            err.fail(kErrNoSuchFile, {name});
        }
        return false;
    }
    return true;
}
} // namespace

std::u16string attribute_letters(uint32_t attributes) {
    std::u16string out;
    for (const Letter& l : kLetters)
        if (attributes & l.bit) out += l.letter;
    return out;
}

// fAttribute and fDirAttribute set attributes from letters "ADHRSC": with
// "+" and "-" ("+H-R") the letters after a sign are added or removed; plain
// letters replace the whole set.  "D" and "C" are accepted and change
// nothing.
bool apply_attribute_text(std::u16string_view text, uint32_t current, uint32_t& out) {
    const bool signed_form = text.find_first_of(u"+-") != std::u16string_view::npos;
    if (signed_form && text.front() != u'+' && text.front() != u'-') return false;
    uint32_t result = signed_form ? current : 0;
    int sign = 0;
    bool letter_after_sign = true;
    for (char16_t c : text) {
        if (c == u'+' || c == u'-') {
            if (!letter_after_sign) return false;
            sign = c == u'+' ? 1 : -1;
            letter_after_sign = false;
            continue;
        }
        uint32_t bit = bit_of(c);
        if (!bit) return false;
        letter_after_sign = true;
        if (sign < 0)
            result &= ~bit;
        else
            result |= bit;
    }
    if (!letter_after_sign) return false;
    out = (result & kSettable) | (current & ~kSettable);
    return true;
}

std::u16string f_attribute(std::u16string_view name, bool directory, CXError& err) {
    pf::FileInfo info;
    if (!existing_entry(name, directory, info, err)) return {};
    return attribute_letters(info.attributes);
}

std::u16string f_set_attribute(std::u16string_view name, std::u16string_view text, bool directory,
                               CXError& err) {
    pf::FileInfo info;
    if (!existing_entry(name, directory, info, err)) return {};
    uint32_t wanted = 0;
    if (!apply_attribute_text(text, info.attributes, wanted)) {
        err.fail(kErrAttributeValue);
        return {};
    }
    if (!pf::set_file_attributes(name, wanted & kSettable) || !pf::get_file_info(name, info)) {
        report_system_error(err);
        return {};
    }
    return attribute_letters(info.attributes);
}

bool f_attribute_read_only(std::u16string_view name, CXError& err) {
    if (refuse_relative(name, err)) return false;
    uint32_t a = pf::get_file_attributes(name);
    if (a == pf::kInvalidAttributes) {
        report_system_error(err);
        return false;
    }
    return (a & pf::kAttributeReadOnly) != 0;
}

bool f_set_attribute_read_only(std::u16string_view name, bool read_only, CXError& err) {
    if (refuse_relative(name, err)) return false;
    uint32_t a = pf::get_file_attributes(name);
    if (a == pf::kInvalidAttributes) {
        report_system_error(err);
        return false;
    }
    a = read_only ? (a | pf::kAttributeReadOnly) : (a & ~pf::kAttributeReadOnly);
    if (!pf::set_file_attributes(name, a & kSettable)) {
        report_system_error(err);
        return false;
    }
    return true;
}

// --- Temporary names -----------------------------------------------------------------------------

// The device's temporary directory is "\Temp\", made when missing.
std::u16string f_temp_path(CXError& err) {
    if (!pf::create_directory_tree(u"\\Temp")) {
        report_system_error(err);
        return {};
    }
    return u"\\Temp\\";
}

// fTempFile creates the file, as GetTempFileNameW does: prefix, four
// hexadecimal digits and ".tmp", in the given directory (the temporary
// directory when none is given).  The file is created exclusively, so two
// callers, in this process or another, never get the same name.
std::u16string f_temp_file(std::u16string_view directory, std::u16string_view prefix, CXError& err) {
    std::u16string dir;
    if (directory.empty()) {
        dir = f_temp_path(err);
        if (dir.empty()) return {};
    } else {
        if (refuse_relative(directory, err)) return {};
        dir = directory;
        if (!is_separator(dir.back())) dir += u'\\';
    }
    static const char16_t kHex[] = u"0123456789ABCDEF";
    std::random_device seed;
    uint32_t start = seed() & 0xFFFF;
    for (uint32_t k = 0; k < 0x10000; ++k) {
        uint32_t v = (start + k) & 0xFFFF;
        std::u16string name = dir;
        name += prefix;
        for (int s = 12; s >= 0; s -= 4)
            name += kHex[(v >> s) & 15];
        name += u".tmp";
        pf::FileHandle h =
            pf::create_file(name, pf::kGenericWrite, pf::kShareRead | pf::kShareWrite, pf::kCreateNew, 0);
        if (h != pf::kInvalidFile) {
            pf::close_file(h);
            return name;
        }
        uint32_t code = pf::last_error();
        if (code == pf::kErrorFileExists || code == pf::kErrorAlreadyExists) continue;
        err.fail(kErrTempFile);
        err.set_system(code);
        return {};
    }
    err.fail(kErrTempFile);
    err.set_system(pf::kErrorFileExists);
    return {};
}

// --- Whole texts -----------------------------------------------------------------------------------

// fLoadText reads the whole file as ANSI text of the device's code page, or
// as UTF-16 when it starts with the UTF-16 byte-order mark (FF FE), which is
// not part of the text.
std::u16string f_load_text(std::u16string_view name, CXError& err) {
    if (refuse_relative(name, err)) return {};
    OpenStream s(err);
    if (!s.stream.Open(name, pf::kGenericRead, pf::kShareRead | pf::kShareWrite, pf::kOpenExisting,
                       pf::kFlagSequentialScan)) {
        report_system_error(err);
        return {};
    }
    int64_t length = s.stream.GetLength();
    if (length < 0) {
        report_system_error(err);
        return {};
    }
    // Larger texts would not fit in a string of the language.
    if (static_cast<uint64_t>(length) >= (1ull << 31)) {
        err.fail(kErrTextTooLarge);
        return {};
    }
    std::string bytes;
    try {
        bytes.resize(static_cast<std::size_t>(length));
    } catch (const std::bad_alloc&) {
        err.fail(kErrTextTooLarge);
        return {};
    }
    uint32_t got = 0;
    if (!s.stream.Read(bytes.data(), static_cast<uint32_t>(bytes.size()), &got)) {
        uint32_t code = s.stream.GetLastError();
        err.fail(kErrTextNotLoaded);
        err.set_system(code);
        return {};
    }
    bytes.resize(got);
    err.clear();
    auto span = std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size());
    if (span.size() >= 2 && span[0] == 0xFF && span[1] == 0xFE) {
        std::u16string text((span.size() - 2) / 2, u'\0');
        std::memcpy(text.data(), span.data() + 2, text.size() * 2);
        return text;
    }
    std::u16string text;
    if (!pf::decode(ansi_codepage(), span, text)) text = pf::decode_1252(span);
    return text;
}

namespace {
bool save_bytes(std::u16string_view name, const void* data, std::size_t size, CXError& err) {
    if (refuse_relative(name, err)) return false;
    OpenStream s(err);
    if (!s.stream.Open(name, pf::kGenericWrite, pf::kShareRead | pf::kShareWrite, pf::kCreateAlways,
                       pf::kFlagSequentialScan)) {
        uint32_t code = s.stream.GetLastError();
        err.fail(kErrTextNotCreated);
        err.set_system(code);
        return false;
    }
    const auto* p = static_cast<const uint8_t*>(data);
    while (size > 0) {
        uint32_t n = static_cast<uint32_t>(std::min<std::size_t>(size, 1u << 30));
        if (!s.stream.Write(p, n)) {
            report_system_error(err);
            return false;
        }
        p += n;
        size -= n;
    }
    err.clear();
    return true;
}
} // namespace

bool f_save_text(std::u16string_view name, std::u16string_view text, CXError& err) {
    std::string bytes;
    if (!pf::encode(ansi_codepage(), text, bytes)) bytes = pf::encode_1252(text);
    return save_bytes(name, bytes.data(), bytes.size(), err);
}

bool f_save_bytes(std::u16string_view name, std::span<const uint8_t> bytes, CXError& err) {
    return save_bytes(name, bytes.data(), bytes.size(), err);
}

// --- Directories ---------------------------------------------------------------------------------------

// fMakeDir creates every missing level; a directory that is already there
// is a success.
bool f_make_dir(std::u16string_view name, CXError& err) {
    if (refuse_relative(name, err)) return false;
    if (pf::create_directory_tree(name)) return true;
    report_system_error(err);
    return false;
}

// fRemoveDir removes an empty directory, or with frRecursive the whole tree
// under it (read-only files included; links are removed, never followed).
// The device root is never removed (5).
bool f_remove_dir(std::u16string_view name, int32_t options, CXError& err) {
    if (refuse_relative(name, err)) return false;
    bool ok = (options & kFrRecursive) ? pf::remove_directory_tree(name) : pf::remove_directory(name);
    if (ok) return true;
    report_system_error(err);
    return false;
}

} // namespace kp::files
