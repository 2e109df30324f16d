// stream.h - IXStream, the component's file object over a handle of the
// device's file service.
//
// The stream keeps the file position itself: every read and write happens at
// the stored position, which Open sets to 0, Seek to its result, and Read and
// Write advance by the bytes moved.  The position seen by a program is
// therefore exact after every operation, whatever the stream reads ahead.
//
// Read-ahead: reads smaller than the auxiliary buffer (65536 bytes,
// allocated on first use) are served from it; the buffer holds the file's
// bytes from the position of its last fill.  Writes, SetLength and Close
// through this stream drop it, so data written through the same stream is
// seen at once; bytes that another handle changes inside the buffered block
// are seen after the next fill.
//
// Failures follow one protocol: the bound error object (the call's CXError)
// gets severity 3, the system error code, the trace line
// "##(IXStream)-Handle=<%1!p!>##" (and the read traces of a failed read) and
// the operation's message with the file name; the thread's last error is
// left at the failure's code.  Every operation that reaches the system
// clears the bound error object first.
//
// The virtual operations are declared in the order of the class's table of
// operations; the unnamed slots are the base class's own.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "component/error.h"
#include "files/line_end.h"
#include "platform/files.h"

namespace kp::files {

// Message numbers of the stream's failures.
constexpr uint32_t kMsgFlushFailed = 28001;
constexpr uint32_t kMsgOpenAlwaysFailed = 28002;
constexpr uint32_t kMsgReadFailed = 28003;
constexpr uint32_t kMsgSetEndFailed = 28004;
constexpr uint32_t kMsgSeekFailed = 28005;
constexpr uint32_t kMsgWriteFailed = 28008;
constexpr uint32_t kMsgOpenExistingFailed = 28139;
constexpr uint32_t kMsgCreateFailed = 28140;
constexpr uint32_t kMsgLockFailed = 28145;
constexpr uint32_t kMsgUnlockFailed = 28146;

constexpr uint32_t kAuxiliaryBufferSize = 65536;
constexpr std::size_t kStoredNameMax = 259; // characters of the name kept for messages

class IXStream {
  public:
    IXStream();
    virtual ~IXStream();
    IXStream(const IXStream&) = delete;
    IXStream& operator=(const IXStream&) = delete;

    // The error object that receives failures (the current call's); null
    // keeps only the stream's own last error.
    void bind(CXError* error) { error_ = error; }

    // The operations are declared in the order of the stream's table of
    // operations; the base_operation_N slots are the base class's, which
    // the file functions never call.
    virtual void base_operation_1() {}
    // Opens `name` (CreateFileW arguments).  OPEN_ALWAYS runs as an
    // OPEN_EXISTING attempt (last error 183 when it succeeds) followed by
    // OPEN_ALWAYS; `created` becomes true when the file was made.
    virtual bool Open(std::u16string_view name, uint32_t access, uint32_t share, uint32_t creation,
                      uint32_t flags, bool* created = nullptr);
    virtual bool Close();
    virtual bool Reopen(uint32_t access, uint32_t share, uint32_t creation, uint32_t flags);
    virtual bool Write(const void* buffer, uint32_t count, uint32_t* written = nullptr);
    virtual bool WriteAt(uint64_t position, const void* buffer, uint32_t count, uint32_t* written = nullptr);
    // Without `read` the read is exact (a short read is a failure); with it,
    // a short read at the end of the file succeeds.
    virtual bool Read(void* buffer, uint32_t count, uint32_t* read = nullptr);
    virtual bool ReadAt(uint64_t position, void* buffer, uint32_t count, uint32_t* read = nullptr);
    // origin 0 beginning, 1 current, 2 end; the new position, or -1.
    virtual int64_t Seek(int64_t offset, uint32_t origin);
    virtual int64_t GetLength();
    virtual int64_t SeekToEnd();
    virtual bool Flush();
    // from 0: `size` counts from the beginning; 1: from the end.
    virtual bool SetLength(int64_t size, uint32_t from);
    virtual bool Extend(uint32_t count);
    // Writes UTF-16 text (no terminator) formatted from `format`: %s (a
    // const char16_t*), %d, %u, %c (an int holding a UTF-16 unit) and %%;
    // at most 1024 characters.
    virtual bool Printf(const char16_t* format, ...);
    virtual bool VPrintf(const char16_t* format, va_list args);
    // UTF-16 line reader: at most maximum - 1 characters into `buffer`
    // (terminated); `more` tells that the line goes on.  Strict: only CR LF
    // ends a line; otherwise the first CR (taken as CR LF), failing that the
    // first LF.
    virtual bool ReadLineW(char16_t* buffer, uint32_t maximum, bool* more, bool strict);
    // Buffered line reader over the auxiliary buffer: the next line without
    // its end (a CR, an LF, or CR LF), at most `maximum` characters (the rest
    // stays for the next call, `more` set); `unicode` reads UTF-16 units,
    // otherwise bytes that the caller decodes (one char16_t a byte).
    // `at_end` is set when no byte was left.
    virtual bool ReadLineBuffered(std::u16string& line, uint32_t maximum, bool unicode, bool* more,
                                  bool* at_end);
    virtual bool Lock(uint64_t position, uint64_t count);
    virtual bool Unlock(uint64_t position, uint64_t count);
    virtual bool RawLock(uint64_t position, uint64_t count);
    virtual bool RawUnlock(uint64_t position, uint64_t count);
    virtual void base_operation_2() {}
    virtual uint64_t GetPosition() const { return position_; }
    virtual void base_operation_3() {}
    virtual uint32_t GetLastError() const { return last_error_; }
    virtual void base_operation_4() {}

    // Appends to `out` the bytes from the position up to the first
    // occurrence of `end` (1 to 4 bytes) and moves the position just after
    // it; without one, everything up to the end of the file.  `found` tells
    // which.  This is the result the line reader's 160-byte blocks and
    // 50-byte pieces give, reached in one pass over the read-ahead.
    bool ReadUntil(const uint8_t* end, uint32_t end_length, std::string& out, bool* found);

    // The same when the line end lies in the read-ahead (filled once at the
    // position if need be): `data` and `size` show the bytes before it in
    // the stream's buffer, valid until the next operation, and the position
    // moves past the line end.  False, with nothing moved, otherwise.
    bool ScanLine(const uint8_t* end, uint32_t end_length, const uint8_t** data, std::size_t* size);
    // ScanLine for CR LF, inline while the line end lies in the read-ahead
    // as it is (the per-line path of ANSI text).
    inline bool ScanCrLf(const uint8_t** data, std::size_t* size);

    // Code page of the file's ANSI text (the host's, taken at open).
    uint32_t codepage() const { return codepage_; }
    void set_codepage(uint32_t cp) { codepage_ = cp; }
    // Working bytes of the line functions, kept to spare an allocation a line.
    std::string& scratch() { return scratch_; }

    bool is_open() const { return handle_ != platform::kInvalidFile; }
    const std::u16string& name() const { return name_; }
    platform::FileHandle handle() const { return handle_; }
    uint32_t access() const { return access_; }
    // True when the position lies at or beyond the end of the file; reads
    // the length only when the read-ahead cannot tell.
    bool at_end();

  private:
    void begin(); // the bound error object back to "no error"
    bool fail(uint32_t message, bool with_name = true);
    bool fail_read(uint32_t asked, uint32_t got, bool exact);
    bool fill(uint64_t position);
    void drop_buffer() { buffered_ = 0; }

    CXError* error_ = nullptr;
    std::u16string name_;
    platform::FileHandle handle_ = platform::kInvalidFile;
    uint64_t position_ = 0;
    uint32_t access_ = 0;
    uint32_t last_error_ = 0;
    struct FreeBytes {
        void operator()(uint8_t* p) const { std::free(p); }
    };
    // Page-aligned: the kernel's copy into the read-ahead depends on where
    // it lands (64 KiB blocks 16 bytes past a 64-byte boundary took 45%
    // longer than aligned ones), and the heap's place varied from run to run.
    std::unique_ptr<uint8_t[], FreeBytes> aux_;
    uint64_t aux_start_ = 0;
    uint32_t buffered_ = 0;
    std::string scratch_;
    uint32_t codepage_ = 1252;
};

inline bool IXStream::ScanCrLf(const uint8_t** data, std::size_t* size) {
#if defined(__SSE2__)
    if (buffered_ && position_ >= aux_start_ && position_ - aux_start_ < buffered_) {
        const uint8_t* from = aux_.get() + (position_ - aux_start_);
        const uint8_t* p = from;
        if (const uint8_t* at = find_crlf_blocks(p, aux_.get() + buffered_)) {
            *data = from;
            *size = static_cast<std::size_t>(at - from);
            position_ += *size + 2;
            return true;
        }
    }
#endif
    static constexpr uint8_t kCrLf[] = {13, 10};
    return ScanLine(kCrLf, 2, data, size);
}

} // namespace kp::files
