// streams.h - file handles and the stream functions of the language
// (fOpen, fCreate, fClose, fRead, fWrite, fReadLine, fWriteLine, fSeek,
// fChangeSize).
//
// A program names an open file by a small integer, its index in the file
// handle table.  The table's slots 0 and 1 are placeholders taken when the
// table is made, so the first file handle is 2; a freed slot is the first
// one reused.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "component/error.h"
#include "files/stream.h"

namespace kp::files {

// Open modes.
constexpr int32_t kFoRead = 1;
constexpr int32_t kFoWrite = 2;
constexpr int32_t kFoReadWrite = 3;
constexpr int32_t kFoCreateIfNotExist = 0x100;
constexpr int32_t kFoCreate = 0x200;
constexpr int32_t kFoAdd = 0x800;
constexpr int32_t kFoUnicode = 0x1000;

// The end-of-file value of fReadLine.
constexpr char16_t kEndOfFile = 0x0004;

// Error identifiers.
constexpr uint32_t kErrTableFull = 80021;
constexpr uint32_t kErrBadHandle = 80022;
constexpr uint32_t kErrBadOrigin = 80023;
constexpr uint32_t kErrNoMemory = 80041;
constexpr uint32_t kErrRelativeName = 80600;

struct OpenFileRecord {
    IXStream* stream = nullptr;
    uint32_t unicode = 0;
};

// Growable slot array with a free chain (last freed, first reused).
class FileHandleTable {
  public:
    static constexpr int32_t kInUse = -2;
    static constexpr int32_t kEndOfChain = -1;

    explicit FileHandleTable(int32_t growth = 5);
    ~FileHandleTable();
    FileHandleTable(const FileHandleTable&) = delete;
    FileHandleTable& operator=(const FileHandleTable&) = delete;

    // The new handle, or -1 when the slot array cannot grow.
    int32_t insert(OpenFileRecord* record);
    // The record of an open handle, or null for an invalid one.  Each
    // thread remembers the last record it found: it serves again, without
    // the lock, as long as no handle of any table has been removed and no
    // table destroyed since (an open handle keeps its record until then).
    OpenFileRecord* find(int32_t handle) const {
        // Read before the lock: a removal from here on makes the entry stale.
        const uint64_t changes = changes_.load(std::memory_order_acquire);
        const Last& last = last_;
        if (last.record && last.table == this && last.handle == handle && last.changes == changes)
            return last.record;
        return find_slow(handle, changes);
    }
    // Takes the handle's slot out of use and returns its record (null when invalid).
    OpenFileRecord* remove(int32_t handle);

    int32_t used() const {
        std::lock_guard<std::mutex> lock(mu_);
        return used_;
    }
    int32_t capacity() const {
        std::lock_guard<std::mutex> lock(mu_);
        return capacity_;
    }
    int32_t in_use() const {
        std::lock_guard<std::mutex> lock(mu_);
        return in_use_;
    }

  private:
    struct Last {
        const FileHandleTable* table;
        int32_t handle;
        uint64_t changes;
        OpenFileRecord* record;
    };
    // The last record this thread found, in any table.
    inline static thread_local Last last_{nullptr, 0, 0, nullptr};
    OpenFileRecord* find_slow(int32_t handle, uint64_t changes) const;
    OpenFileRecord* find_locked(int32_t handle) const;
    // Counts the removals and destructions of every table.
    inline static std::atomic<uint64_t> changes_{0};
    // VM threads open and close files at once: the slot array is shared.
    mutable std::mutex mu_;
    struct Slot {
        int32_t state;
        OpenFileRecord* record;
    };
    int32_t free_head_ = kEndOfChain;
    int32_t used_ = 0;
    int32_t capacity_ = 0;
    int32_t growth_;
    Slot* slots_ = nullptr;
    int32_t in_use_ = 0;
};

// The component's table, with its two placeholder slots taken.
FileHandleTable& handle_table();

int32_t f_open(std::u16string_view name, int32_t mode, CXError& err);
int32_t f_create(std::u16string_view name, int32_t more_mode, CXError& err);
int32_t f_close(int32_t handle, CXError& err);

// fRead: the bytes read (none for a negative count, at the end of the file
// or on failure).
std::vector<uint8_t> f_read(int32_t handle, int32_t count, CXError& err);
// fRead into memory at `address`: the count read, 0 on failure.
int32_t f_read_to(int32_t handle, int32_t count, uintptr_t address, CXError& err);
// fWrite of a value's bytes; `length` -1 writes them all.  -1 on failure.
int32_t f_write(int32_t handle, std::span<const uint8_t> bytes, int32_t length, CXError& err);
// fWrite from memory at `address`.
int32_t f_write_from(int32_t handle, uintptr_t address, int32_t length, CXError& err);

// fReadLine, first form: the next line, kEndOfFile at the end, "" on failure,
// into `out`, whose storage serves again from one line to the next.
void f_read_line(int32_t handle, std::u16string& out, CXError& err);
// The same in the calling thread's buffer, valid until the thread's next
// line; the buffer of a line over 1 MiB is let go at the next call.
const std::u16string& f_read_line(int32_t handle, CXError& err);
// Receives the text of sub-match `index` (0 = the whole line) for the
// variable at that place; false when the runtime refuses it.
using AssignMatch = std::function<bool(std::size_t index, std::u16string_view text)>;
// fReadLine, second form, with `variables` variables (1 to 8).
bool f_read_line_match(int32_t handle, std::u16string_view pattern, std::size_t variables,
                       const AssignMatch& assign, CXError& err);

// fWriteLine (handle, string): text in the file's encoding and its line end.
bool f_write_line(int32_t handle, std::u16string_view text, CXError& err);
// fWriteLine (handle, binary buffer): the bytes unchanged, then the file's line end.
bool f_write_line_bytes(int32_t handle, std::span<const uint8_t> bytes, CXError& err);
// fWriteLine (handle, address, length) and (handle, string, length): the
// bytes as they are and the UTF-16 line end; always true.
bool f_write_line_raw(int32_t handle, std::span<const uint8_t> bytes, CXError& err);
bool f_write_line_from(int32_t handle, uintptr_t address, int32_t length, CXError& err);

int64_t f_seek(int32_t handle, int64_t offset, int32_t origin, CXError& err);
bool f_change_size(int32_t handle, int64_t size, CXError& err);

// The code page of ANSI text files (host setting, 1252 by default).
uint32_t ansi_codepage();

} // namespace kp::files
