// management.h - files and directories by name: existence, comparison,
// path splitting, copies, renames, deletion, sizes, attributes, dates,
// temporary names, whole texts, and making and removing directories.
//
// Every name is a device name and must be absolute (a name that is empty,
// or neither begins with "\" or "/" nor ends with ":", is refused with
// 80600), except where a function says otherwise.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "component/error.h"

namespace kp::files {

// Part masks of fExtractPath.
constexpr int32_t kFDrive = 1, kFDirectory = 2, kFFileName = 4, kFExtension = 8;
// Date kinds of fDate, fTime and fDateTime.
constexpr int32_t kFModify = 0, kFCreation = 1, kFAccess = 2;
// Options of the copy, deletion, listing and directory functions.
constexpr int32_t kFrRecursive = 1, kFrNotRecursive = 2, kFrInterruptible = 4, kFrReadOnly = 8,
                  kFrFullInformation = 0x10, kFrNoHiddenFile = 0x100, kFrNoHiddenDirectory = 0x200,
                  kFrToRecycleBin = 0x100;
constexpr int32_t kFrFile = 0x27, kFrDirectory = 0x37;

// Error identifiers of the family.
constexpr uint32_t kErrPartMask = 80042;
constexpr uint32_t kErrAttributeValue = 80043;
constexpr uint32_t kErrFileDate = 80044;
constexpr uint32_t kErrFileTime = 80045;
constexpr uint32_t kErrTempFile = 80049;
constexpr uint32_t kErrWalkProcedure = 80050;
constexpr uint32_t kErrPathTooLong = 80058;
constexpr uint32_t kErrEmptyName = 80059;
constexpr uint32_t kErrCannotOpen = 80060;
constexpr uint32_t kErrCompareFailed = 80061;
constexpr uint32_t kErrTextNotCreated = 80062;
constexpr uint32_t kErrTextNotLoaded = 80063;
constexpr uint32_t kErrTextTooLarge = 80064;
constexpr uint32_t kErrCopyFailed = 80065;
constexpr uint32_t kErrWildcardTarget = 80066;
constexpr uint32_t kErrNoSuchFile = 80067;
// Messages.
constexpr uint32_t kMsgDeleteFailed = 28123;
constexpr uint32_t kMsgRenameFailed = 28124;
constexpr uint32_t kMsgCopyFailed = 28125;
constexpr uint32_t kMsgSearchFailed = 28135;

// True for a name that must be refused as relative (empty included).
bool is_relative(std::u16string_view name);
// Records 80600 with the name when it is relative; true when it is.
bool refuse_relative(std::u16string_view name, CXError& err);
// The thread's last system error as the call's error (severity 2).
void report_system_error(CXError& err);

bool f_file_exist(std::u16string_view name, CXError& err);
bool f_directory_exist(std::u16string_view name, CXError& err);
int32_t f_compare(std::u16string_view first, std::u16string_view second, CXError& err);
std::u16string f_extract_path(std::u16string_view path, int32_t parts, CXError& err);
bool f_copy_file(std::u16string_view source, std::u16string_view destination, CXError& err);
bool f_move_file(std::u16string_view source, std::u16string_view destination, CXError& err);
bool f_delete(std::u16string_view name, int32_t options, CXError& err);
int64_t f_size(std::u16string_view name, CXError& err);
int64_t f_dir_size(std::u16string_view name, CXError& err);

// fDate, fTime, fDateTime: which part of the date-time string they handle.
enum class DatePart { Date, Time, DateTime };
// Reads (value empty) or sets the date of `kind`; "" with the error on failure.
std::u16string f_file_date(std::u16string_view name, std::u16string_view value, int32_t kind, DatePart part,
                           CXError& err);

// Attribute letters, in the order "ADHRSC".
std::u16string attribute_letters(uint32_t attributes);
// The attributes a change text leaves: "+H-R" adds and removes, plain letters
// replace the whole set; false for a letter outside "ADHRSC" or a sign
// without a letter.
bool apply_attribute_text(std::u16string_view text, uint32_t current, uint32_t& out);
std::u16string f_attribute(std::u16string_view name, bool directory, CXError& err);
std::u16string f_set_attribute(std::u16string_view name, std::u16string_view text, bool directory,
                               CXError& err);
bool f_attribute_read_only(std::u16string_view name, CXError& err);
bool f_set_attribute_read_only(std::u16string_view name, bool read_only, CXError& err);

std::u16string f_temp_path(CXError& err);
std::u16string f_temp_file(std::u16string_view directory, std::u16string_view prefix, CXError& err);

std::u16string f_load_text(std::u16string_view name, CXError& err);
// A string is written as ANSI text of the device's code page, a buffer as its bytes.
bool f_save_text(std::u16string_view name, std::u16string_view text, CXError& err);
bool f_save_bytes(std::u16string_view name, std::span<const uint8_t> bytes, CXError& err);

bool f_make_dir(std::u16string_view name, CXError& err);
bool f_remove_dir(std::u16string_view name, int32_t options, CXError& err);

} // namespace kp::files
