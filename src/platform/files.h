// files.h - the device's file service: the only way the component reaches
// the host's file system.
//
// It behaves as the device's file API does, over device names (see paths.h):
// Win32 access rights, share modes and creation dispositions, a file pointer
// per handle, Win32 attributes, and every failure as a Win32 error code left
// in the calling thread's last error (platform/win32_error.h), returned by
// last_error() exactly where GetLastError would be read.  Successful calls
// leave the last error alone, except create_file with CREATE_ALWAYS or
// OPEN_ALWAYS, which sets it to 183 when the file existed and to 0 otherwise.
//
// The read-only attribute is the absence of every write permission bit of
// the host file.  The service enforces it itself, whoever runs the host (the
// super-user included): a read-only file refuses write access, truncation
// and deletion with 5 (access denied).  Directories are never opened as
// files (5).
//
// Share modes are accepted and recorded, but the host does not refuse a
// second open of a file that is already open: POSIX has no share modes, and
// every open of the component asks for read and write sharing anyway.
// Byte-range locks are open-file-description locks of the host: they
// conflict between handles (also in the same process) with 33, and they are
// advisory towards programs that do not lock.
//
// Attributes that POSIX has no bit for (hidden, system, archive) are kept in
// the extended attribute "user.DOSATTRIB" (see host_attributes.h); a name
// beginning with "." always reads as hidden.
//
// Times are FILETIME values: 100-nanosecond units since 1 January 1601 UTC.
// The creation time is the host's birth time where its file system records
// one, else the modification time; it cannot be set (50).
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kp::platform {

// An open file; kInvalidFile marks none (INVALID_HANDLE_VALUE).
using FileHandle = intptr_t;
constexpr FileHandle kInvalidFile = -1;

// Access rights.
constexpr uint32_t kGenericRead = 0x80000000u;
constexpr uint32_t kGenericWrite = 0x40000000u;
// Share modes.
constexpr uint32_t kShareRead = 1, kShareWrite = 2, kShareDelete = 4;
// Creation dispositions.
constexpr uint32_t kCreateNew = 1, kCreateAlways = 2, kOpenExisting = 3, kOpenAlways = 4,
                   kTruncateExisting = 5;
// Flags and attributes of create_file; only kAttributeReadOnly is acted on
// (a file created with it is read-only once created; the handle keeps its
// access).
constexpr uint32_t kFlagRandomAccess = 0x10000000u;
constexpr uint32_t kFlagSequentialScan = 0x08000000u;
// Seek origins.
constexpr uint32_t kFileBegin = 0, kFileCurrent = 1, kFileEnd = 2;

// Attributes.
constexpr uint32_t kAttributeReadOnly = 0x01;
constexpr uint32_t kAttributeHidden = 0x02; // stored, or the host name begins with "."
constexpr uint32_t kAttributeSystem = 0x04;
constexpr uint32_t kAttributeDirectory = 0x10;
constexpr uint32_t kAttributeArchive = 0x20; // stored; a file that has none stored reads as archive
constexpr uint32_t kAttributeNormal = 0x80;  // no other bit
constexpr uint32_t kAttributeCompressed = 0x800;
constexpr uint32_t kInvalidAttributes = 0xFFFFFFFFu;

// --- Handles ---------------------------------------------------------------

// Opens or creates a file (CreateFileW).  Returns kInvalidFile on failure.
FileHandle create_file(std::u16string_view name, uint32_t access, uint32_t share, uint32_t disposition,
                       uint32_t flags_and_attributes);
// Closes the handle (CloseHandle); false (6) for kInvalidFile.
bool close_file(FileHandle h);

// ReadFile / WriteFile at the handle's file pointer, which they advance.
// A read at or past the end of the file succeeds with 0 bytes.
bool read_file(FileHandle h, void* buffer, uint32_t count, uint32_t* done);
bool write_file(FileHandle h, const void* buffer, uint32_t count, uint32_t* done);
// The same at an explicit offset; the file pointer does not move.
bool read_file_at(FileHandle h, uint64_t offset, void* buffer, uint32_t count, uint32_t* done);
bool write_file_at(FileHandle h, uint64_t offset, const void* buffer, uint32_t count, uint32_t* done);

// SetFilePointer with a 64-bit distance and origin kFileBegin, kFileCurrent
// or kFileEnd.  A resulting position below 0 fails with 131; another origin
// with 87.  Positions past the end are allowed (a later write fills the gap
// with zeros).
bool set_file_pointer(FileHandle h, int64_t distance, uint32_t origin, uint64_t* new_position);
bool get_file_size(FileHandle h, uint64_t* size);
// SetEndOfFile: the file ends at the file pointer (needs write access).
bool set_end_of_file(FileHandle h);
bool flush_file(FileHandle h);
bool lock_file(FileHandle h, uint64_t offset, uint64_t length);
bool unlock_file(FileHandle h, uint64_t offset, uint64_t length);
// Whole-file lock: an open-file-description lock over the whole file and any
// length it grows to, shared (needs read access) or exclusive (needs write
// access).  It waits while another handle holds a conflicting one, in this
// process or another (F_OFD_SETLKW), and is released by unlock_whole_file
// or when the handle is closed.  Writers that rewrite a file in place hold
// the exclusive form for the whole rewrite and readers the shared form, so
// a reader never sees a half-rewritten file.
bool lock_whole_file(FileHandle h, bool exclusive);
bool unlock_whole_file(FileHandle h);

// --- Names -----------------------------------------------------------------

struct FileInfo {
    std::u16string name; // the entry's own name (list_directory), or ""
    uint32_t attributes = 0;
    uint64_t size = 0;
    uint64_t creation_time = 0; // Samba's creation time, else the birth time, else write_time
    uint64_t access_time = 0;
    uint64_t write_time = 0;
};

// GetFileAttributesW: kInvalidAttributes on failure (2, 3, ...).
uint32_t get_file_attributes(std::u16string_view name);
// Whether the name exists and is a directory, as GetFileAttributesW tells
// without the other attributes (a dangling link exists, as a file).  False
// with the last error (2, 3, ...) when it does not exist.
bool get_entry_kind(std::u16string_view name, bool& directory);
// SetFileAttributesW: read-only, hidden, system and archive (other bits are
// ignored; read-only has no meaning for a directory).  When the file system
// refuses to store hidden, system or archive, the call fails with the mapped
// code (50 where extended attributes are not supported) and nothing changes.
bool set_file_attributes(std::u16string_view name, uint32_t attributes);
bool get_file_info(std::u16string_view name, FileInfo& info);
// Sets the times that are given (null pointers leave a time unchanged),
// with nanosecond precision.
bool set_file_times(std::u16string_view name, const uint64_t* access_time, const uint64_t* write_time);
// SetFileTime: a creation time fails with 50 (the host cannot set it) and
// changes nothing; the others as above.
bool set_file_times(std::u16string_view name, const uint64_t* creation_time, const uint64_t* access_time,
                    const uint64_t* write_time);

// DeleteFileW: 5 for a read-only file or a directory.  A file that a handle
// holds open is deleted as POSIX deletes it: its name goes at once, and the
// open handle keeps reading and writing its data until it is closed.
bool delete_file(std::u16string_view name);
// MoveFileW: fails with 183 when the target exists (atomically: the host
// rename refuses to replace, RENAME_NOREPLACE, or links and unlinks where
// the file system refuses that flag); works on directories.  A name that is
// not absolute fails with 3.
bool move_file(std::u16string_view from, std::u16string_view to);
// CopyFileW: the target gets the source's bytes, attributes (permissions and
// the stored DOS bits) and access and modification times; with
// fail_if_exists an existing target fails with 80; a read-only target fails
// with 5; a file copied onto itself fails with 32 and is left as it was.
// The bytes move inside the kernel (copy_file_range) where it offers that.
bool copy_file(std::u16string_view from, std::u16string_view to, bool fail_if_exists);
// CreateDirectoryW (one level; 183 when it exists, 3 when the parent is missing).
bool create_directory(std::u16string_view name);
// RemoveDirectoryW (145 when not empty).
bool remove_directory(std::u16string_view name);
// The entries of a directory (no "." or ".."), in byte order of their host
// names.  Fails with 3 (missing) or 267 (not a directory).
bool list_directory(std::u16string_view name, std::vector<FileInfo>& entries);

} // namespace kp::platform
