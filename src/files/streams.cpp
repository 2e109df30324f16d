// streams.cpp - the file handle table and the stream functions.
#include "files/streams.h"

#include <algorithm>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "component/runtime.h"
#include "platform/codepage.h"
#include "platform/memory.h"
#include "platform/paths.h"
#include "platform/win32_error.h"
#include "transforms/regex.h"

static_assert(std::endian::native == std::endian::little, "UTF-16 text is written as it lies in memory");

namespace kp::files {

// --- Handle table ------------------------------------------------------------

FileHandleTable::FileHandleTable(int32_t growth) : growth_(growth > 0 ? growth : 5) {}

FileHandleTable::~FileHandleTable() {
    changes_.fetch_add(1, std::memory_order_acq_rel);
    std::free(slots_);
}

int32_t FileHandleTable::insert(OpenFileRecord* record) {
    std::lock_guard<std::mutex> lock(mu_);
    int32_t index;
    if (free_head_ != kEndOfChain) {
        index = free_head_;
        free_head_ = slots_[index].state;
    } else {
        if (used_ == capacity_) {
            if (capacity_ > INT32_MAX / 2 - growth_) return -1;
            int32_t grown = capacity_ + growth_;
            auto* bigger =
                static_cast<Slot*>(std::realloc(slots_, sizeof(Slot) * static_cast<std::size_t>(grown)));
            if (!bigger) return -1;
            std::memset(bigger + capacity_, 0xFF, sizeof(Slot) * static_cast<std::size_t>(growth_));
            slots_ = bigger;
            capacity_ = grown;
        }
        index = used_++;
    }
    slots_[index].state = kInUse;
    slots_[index].record = record;
    ++in_use_;
    return index;
}

OpenFileRecord* FileHandleTable::find_slow(int32_t handle, uint64_t changes) const {
    std::lock_guard<std::mutex> lock(mu_);
    OpenFileRecord* record = find_locked(handle);
    last_ = {this, handle, changes, record};
    return record;
}

OpenFileRecord* FileHandleTable::find_locked(int32_t handle) const {
    // Slots 0 and 1 are the placeholders: they never name a file.
    if (handle < 2 || handle >= used_ || slots_[handle].state != kInUse) return nullptr;
    return slots_[handle].record;
}

OpenFileRecord* FileHandleTable::remove(int32_t handle) {
    std::lock_guard<std::mutex> lock(mu_);
    OpenFileRecord* record = find_locked(handle);
    if (!record) return nullptr;
    changes_.fetch_add(1, std::memory_order_acq_rel);
    slots_[handle].state = free_head_;
    slots_[handle].record = nullptr;
    free_head_ = handle;
    if (in_use_ > 0) --in_use_;
    return record;
}

namespace {
// The component's table: slots 0 and 1 are the placeholders taken at start-up.
struct ComponentTable : FileHandleTable {
    ComponentTable() : FileHandleTable(5) {
        insert(nullptr);
        insert(nullptr);
    }
};
} // namespace

namespace {
// Lives as long as the component: made when the module is loaded, its slot
// array freed when it is unloaded (files still open then are not closed by
// it).
ComponentTable component_table;
} // namespace

FileHandleTable& handle_table() {
    return component_table;
}

// --- Helpers -------------------------------------------------------------------

namespace {

constexpr uint32_t kPatternLineMax = 255;
constexpr uint32_t kStackReadMax = 4096;
constexpr uint8_t kLineEndAnsi[] = {13, 10};
constexpr uint8_t kLineEndUnicode[] = {13, 0, 10, 0};

// Binds a stream to the call's error object for the length of a call.
class Bound {
  public:
    Bound(IXStream* s, CXError& err) : s_(s) { s_->bind(&err); }
    ~Bound() { s_->bind(nullptr); }
    Bound(const Bound&) = delete;
    Bound& operator=(const Bound&) = delete;

  private:
    IXStream* s_;
};

[[gnu::always_inline]] inline OpenFileRecord* lookup(int32_t handle, CXError& err) {
    OpenFileRecord* r = handle_table().find(handle);
    if (!r || !r->stream) err.fail(kErrBadHandle, {handle});
    return r && r->stream ? r : nullptr;
}

// The stream's recorded failure becomes an ordinary error of the call.
void report(IXStream& s, CXError& err) {
    err.set_system(s.GetLastError());
    err.set_severity(KP_SEVERITY_ERROR);
}

void report_system(uint32_t code, CXError& err) {
    err.clear();
    err.set_system(code);
    err.set_severity(KP_SEVERITY_ERROR);
}

// The code page 1252 text of `bytes` in `out`, whose storage is reused.
// Line reading's hot path: bytes widen sixteen at a time straight into the
// result, and the bytes of 0x80 and more go through the table.
[[gnu::always_inline]] inline void decode_1252_into(std::span<const uint8_t> bytes, std::u16string& out) {
    out.resize(bytes.size());
    const uint8_t* in = bytes.data();
    char16_t* to = out.data();
    const std::size_t n = bytes.size();
    std::size_t i = 0;
#if defined(__SSE2__)
    // Widens the sixteen bytes at `at`; false (nothing written) when one
    // of them is 0x80 or more.
    auto widen16 = [&](std::size_t at) {
        const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(in + at));
        if (_mm_movemask_epi8(v)) return false;
        const __m128i zero = _mm_setzero_si128();
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at), _mm_unpacklo_epi8(v, zero));
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + at + 8), _mm_unpackhi_epi8(v, zero));
        return true;
    };
    for (; i + 16 <= n; i += 16) {
        if (widen16(i)) continue;
        for (std::size_t k = i; k < i + 16; ++k)
            to[k] = platform::cp1252_to_unicode(in[k]);
    }
    // The tail as the last sixteen bytes, overlapping what is done: the
    // overlap is written again with the same characters.
    if (i < n && n >= 16 && widen16(n - 16)) i = n;
#endif
    for (; i < n; ++i)
        to[i] = in[i] < 0x80 ? char16_t(in[i]) : platform::cp1252_to_unicode(in[i]);
}

// The text of `bytes` in `out`, whose storage is reused.
void decode_ansi_into(uint32_t cp, std::span<const uint8_t> bytes, std::u16string& out) {
    if (cp == platform::kCodePage1252) return decode_1252_into(bytes, out);
    out.clear();
    if (!platform::decode(cp, bytes, out)) out = platform::decode_1252(bytes);
}

std::u16string decode_ansi(uint32_t cp, std::span<const uint8_t> bytes) {
    std::u16string out;
    decode_ansi_into(cp, bytes, out);
    return out;
}

std::string encode_ansi(uint32_t cp, std::u16string_view text) {
    if (cp == platform::kCodePage1252) return platform::encode_1252(text);
    std::string out;
    if (!platform::encode(cp, text, out)) out = platform::encode_1252(text);
    return out;
}

// Writes `length` bytes from program memory at `address`, in chunks.
bool write_from_memory(IXStream& s, uintptr_t address, uint32_t length, uint32_t* written, uint32_t* error) {
    *written = 0;
    *error = 0;
    uint8_t chunk[kStackReadMax];
    while (*written < length) {
        uint32_t n = std::min<uint32_t>(length - *written, kStackReadMax);
        if (!platform::read_memory(address + *written, chunk, n)) {
            *error = platform::last_error();
            return false;
        }
        uint32_t done = 0;
        bool ok = s.Write(chunk, n, &done);
        *written += done;
        if (!ok) {
            *error = s.GetLastError();
            return false;
        }
    }
    return true;
}

} // namespace

uint32_t ansi_codepage() {
    std::string v = runtime::setting(KP_SETTING_ANSI_CODEPAGE);
    if (v.empty()) return platform::kCodePage1252;
    char* end = nullptr;
    unsigned long cp = std::strtoul(v.c_str(), &end, 10);
    if (!end || *end || cp == 0 || cp > 65535) return platform::kCodePage1252;
    return static_cast<uint32_t>(cp);
}

// --- Opening and closing -------------------------------------------------------

int32_t f_open(std::u16string_view name, int32_t mode, CXError& err) {
    if (!platform::is_absolute_device_name(name)) {
        err.fail(kErrRelativeName, {name});
        return -1;
    }
    auto* s = new (std::nothrow) IXStream;
    if (!s) {
        err.fail(kErrNoMemory);
        return -1;
    }
    s->bind(&err);
    s->set_codepage(ansi_codepage());
    // Each later rule overrides: write-only unless the read bit asks for
    // reading, and read-write for the write bit (alone or with the read
    // bit) or for no access bit at all.  foWrite thus asks for read and
    // write access first, and foCreate alone opens for writing only.
    uint32_t access = platform::kGenericWrite;
    if (mode & kFoRead) access = platform::kGenericRead;
    if ((mode & kFoWrite) || mode == 0) access = platform::kGenericRead | platform::kGenericWrite;
    uint32_t creation = platform::kOpenExisting;
    if (mode & kFoCreate) creation = platform::kCreateAlways;
    if (mode & kFoCreateIfNotExist) creation = platform::kOpenAlways;
    const uint32_t share = platform::kShareRead | platform::kShareWrite;
    const uint32_t flags = platform::kFlagRandomAccess;

    bool created = false;
    bool ok = s->Open(name, access, share, creation, flags, &created);
    if (!ok && (mode & kFoWrite))
        ok = s->Open(name, platform::kGenericWrite, share, creation, flags, &created);
    if (!ok) {
        report(*s, err);
        // Access denied on a file that is not read-only: a rights problem,
        // which the VM tells apart through the record's additional flag.
        if (s->GetLastError() == platform::kErrorAccessDenied) {
            uint32_t attributes = platform::get_file_attributes(name);
            if (attributes == platform::kInvalidAttributes || !(attributes & platform::kAttributeReadOnly))
                err.set_additional(1, 1);
        }
        delete s;
        return -1;
    }
    if (mode & kFoAdd) s->Seek(0, platform::kFileEnd);

    auto* record = new (std::nothrow) OpenFileRecord{s, 0};
    int32_t handle = record ? handle_table().insert(record) : -1;
    if (handle < 0) {
        delete s;
        delete record;
        err.fail(record ? kErrTableFull : kErrNoMemory);
        return -1;
    }
    if (!(mode & kFoUnicode)) {
        s->bind(nullptr);
        return handle;
    }
    record->unicode = 1;
    if ((mode & kFoCreate) || ((mode & kFoCreateIfNotExist) && created)) {
        static const uint8_t kMark[2] = {0xFF, 0xFE};
        if (!s->Write(kMark, 2, nullptr)) {
            // A handle whose mark could not be written is not handed out.
            report(*s, err);
            handle_table().remove(handle);
            delete s;
            delete record;
            return -1;
        }
    } else if (!(mode & kFoAdd)) {
        uint8_t mark[2] = {0, 0};
        uint32_t n = 0;
        bool read = s->Read(mark, 2, &n);
        if (!read || n != 2 || mark[0] != 0xFF || mark[1] != 0xFE) s->Seek(0, platform::kFileBegin);
        err.clear();
    }
    s->bind(nullptr);
    return handle;
}

int32_t f_create(std::u16string_view name, int32_t more_mode, CXError& err) {
    return f_open(name, more_mode | kFoCreate | kFoReadWrite, err);
}

int32_t f_close(int32_t handle, CXError& err) {
    OpenFileRecord* r = handle_table().find(handle);
    if (!r || !r->stream) {
        err.fail(kErrBadHandle, {handle});
        return -1;
    }
    handle_table().remove(handle);
    r->stream->bind(&err);
    // The handle is gone either way; a failed close (data the system could
    // not write) stays recorded as an error of the call.
    if (!r->stream->Close()) report(*r->stream, err);
    delete r->stream;
    delete r;
    return 0;
}

// --- Bytes ---------------------------------------------------------------------

std::vector<uint8_t> f_read(int32_t handle, int32_t count, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r || count <= 0) return {};
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    // Never more than what lies between the position and the end.
    int64_t length = s.GetLength();
    if (length >= 0) {
        int64_t left = std::max<int64_t>(length - static_cast<int64_t>(s.GetPosition()), 0);
        count = static_cast<int32_t>(std::min<int64_t>(count, left));
    }
    std::vector<uint8_t> bytes;
    try {
        bytes.resize(static_cast<std::size_t>(count));
    } catch (const std::bad_alloc&) {
        err.fail(kErrNoMemory);
        return {};
    }
    uint32_t n = 0;
    if (!s.Read(bytes.data(), static_cast<uint32_t>(count), &n)) {
        report(s, err);
        return {};
    }
    bytes.resize(n);
    return bytes;
}

int32_t f_read_to(int32_t handle, int32_t count, uintptr_t address, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r || count <= 0) return 0;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    uint8_t chunk[kStackReadMax];
    uint32_t total = 0;
    while (total < static_cast<uint32_t>(count)) {
        uint32_t want = std::min<uint32_t>(static_cast<uint32_t>(count) - total, kStackReadMax);
        uint32_t n = 0;
        if (!s.Read(chunk, want, &n)) {
            report(s, err);
            return 0;
        }
        if (n && !platform::write_memory(address + total, chunk, n)) {
            // The bytes could not be delivered: the position goes back.
            s.Seek(-static_cast<int64_t>(n), platform::kFileCurrent);
            report_system(platform::kErrorNoAccess, err);
            return 0;
        }
        total += n;
        if (n < want) break;
    }
    return static_cast<int32_t>(total);
}

int32_t f_write(int32_t handle, std::span<const uint8_t> bytes, int32_t length, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return -1;
    // A negative length other than -1 names no byte count: invalid
    // parameter.  A length beyond the value writes the value's bytes only.
    if (length < -1) {
        report_system(platform::kErrorInvalidParameter, err);
        return -1;
    }
    std::size_t n =
        length == -1 ? bytes.size() : std::min<std::size_t>(bytes.size(), static_cast<std::size_t>(length));
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    uint32_t written = 0;
    if (!s.Write(bytes.data(), static_cast<uint32_t>(n), &written)) {
        report(s, err);
        return -1;
    }
    return static_cast<int32_t>(written);
}

int32_t f_write_from(int32_t handle, uintptr_t address, int32_t length, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return -1;
    if (length < 0) {
        report_system(platform::kErrorInvalidParameter, err);
        return -1;
    }
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    uint32_t written = 0, error = 0;
    if (!write_from_memory(s, address, static_cast<uint32_t>(length), &written, &error)) {
        report_system(error, err);
        return -1;
    }
    return static_cast<int32_t>(written);
}

// --- Lines ---------------------------------------------------------------------

const std::u16string& f_read_line(int32_t handle, CXError& err) {
    thread_local std::u16string line;
    if (line.capacity() > (1u << 20)) std::u16string().swap(line); // a huge line's text is not kept
    f_read_line(handle, line, err);
    return line;
}

void f_read_line(int32_t handle, std::u16string& out, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) {
        out.clear();
        return;
    }
    IXStream& s = *r->stream;
    const bool unicode = r->unicode != 0;
    const uint8_t* data = nullptr;
    std::size_t size = 0;
    // The usual case first: an ANSI line of code page 1252 whose end lies
    // in the read-ahead (ScanLine finds none at the end of the file).
    if (!unicode && s.codepage() == platform::kCodePage1252 && s.ScanCrLf(&data, &size)) {
        if (err.failed()) err.clear(); // as after any line read
        decode_1252_into({data, size}, out);
        return;
    }
    Bound bound(&s, err);
    if (s.at_end()) {
        if (err.failed()) err.clear();
        out.assign(1, kEndOfFile);
        return;
    }
    // A line ends at CR LF only (13 10, or 13 0 10 0 searched byte by byte
    // in a Unicode file); a lone CR or LF is data.  The line reader works
    // in blocks of 160 bytes and pieces of 50 bytes and moves back over
    // what it did not use, so the position is just after the line end;
    // ReadUntil gives that same line and position in one pass over the
    // stream's read-ahead.
    const uint8_t* end = unicode ? kLineEndUnicode : kLineEndAnsi;
    const uint32_t end_length = unicode ? sizeof kLineEndUnicode : sizeof kLineEndAnsi;
    std::string& line = s.scratch();
    std::span<const uint8_t> bytes;
    if (s.ScanLine(end, end_length, &data, &size)) {
        bytes = {data, size}; // the usual case: the line lies in the read-ahead
    } else {
        line.clear();
        bool found = false;
        if (!s.ReadUntil(end, end_length, line, &found)) {
            report(s, err);
            out.clear();
            return;
        }
        bytes = {reinterpret_cast<const uint8_t*>(line.data()), line.size()};
    }
    if (err.failed()) err.clear(); // a length query that failed before the read
    if (unicode) {
        out.resize(bytes.size() / 2);
        std::memcpy(out.data(), bytes.data(), out.size() * 2);
    } else {
        // The whole line is converted at once, so that a character of a
        // multi-byte code page is never cut between two pieces.
        decode_ansi_into(s.codepage(), bytes, out);
    }
    if (line.capacity() > (1u << 20)) std::string().swap(line); // a huge line's bytes are not kept
}

bool f_read_line_match(int32_t handle, std::u16string_view pattern, std::size_t variables,
                       const AssignMatch& assign, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return false;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    std::u16string line;
    bool more = false, at_end = false;
    if (!s.ReadLineBuffered(line, kPatternLineMax, r->unicode != 0, &more, &at_end)) {
        report(s, err);
        return false;
    }
    err.clear();
    // At the end of the file there is no line to distribute: false, with no
    // error, so that a reading loop ends.
    if (at_end) return false;
    if (!r->unicode) {
        std::string bytes(line.size(), '\0');
        for (std::size_t i = 0; i < line.size(); ++i)
            bytes[i] = static_cast<char>(line[i]);
        line = decode_ansi(s.codepage(), {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()});
    }
    transforms::WholeMatch m;
    if (!m.compile(pattern.empty() ? std::u16string_view(u".*") : pattern)) {
        transforms::report_invalid_pattern(err);
        return false;
    }
    if (!m.match(line)) {
        if (m.overran()) {
            transforms::report_invalid_pattern(err);
            return false;
        }
        if (variables > 0 && assign) assign(0, u"");
        return true;
    }
    bool ok = true;
    for (std::size_t i = 0; i < variables; ++i) {
        std::size_t start = 0, end = 0;
        if (!m.group(i, &start, &end) || end > line.size()) break;
        if (assign && !assign(i, std::u16string_view(line).substr(start, end - start))) ok = false;
    }
    return ok;
}

namespace {
bool write_line_bytes(int32_t handle, std::span<const uint8_t> body, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return false;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    // The text and its line end leave in one write.
    std::vector<uint8_t> out;
    try {
        out.reserve(body.size() + 4);
    } catch (const std::bad_alloc&) {
        err.fail(kErrNoMemory);
        return false;
    }
    out.assign(body.begin(), body.end());
    if (r->unicode)
        out.insert(out.end(), std::begin(kLineEndUnicode), std::end(kLineEndUnicode));
    else
        out.insert(out.end(), std::begin(kLineEndAnsi), std::end(kLineEndAnsi));
    if (out.size() > UINT32_MAX || !s.Write(out.data(), static_cast<uint32_t>(out.size()), nullptr)) {
        report(s, err);
        return false;
    }
    return true;
}
} // namespace

bool f_write_line(int32_t handle, std::u16string_view text, CXError& err) {
    OpenFileRecord* r = handle_table().find(handle);
    if (r && r->unicode) {
        return write_line_bytes(handle, {reinterpret_cast<const uint8_t*>(text.data()), text.size() * 2},
                                err);
    }
    std::string bytes = encode_ansi(r ? r->stream->codepage() : ansi_codepage(), text);
    return write_line_bytes(handle, {reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()}, err);
}

bool f_write_line_bytes(int32_t handle, std::span<const uint8_t> bytes, CXError& err) {
    return write_line_bytes(handle, bytes, err);
}

bool f_write_line_raw(int32_t handle, std::span<const uint8_t> bytes, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return false;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    // These forms write the UTF-16 line end whatever the file's encoding,
    // and report no write failure: both are kept as the language has them.
    s.Write(bytes.data(), static_cast<uint32_t>(std::min<std::size_t>(bytes.size(), UINT32_MAX)), nullptr);
    s.Write(kLineEndUnicode, sizeof kLineEndUnicode, nullptr);
    err.clear();
    return true;
}

bool f_write_line_from(int32_t handle, uintptr_t address, int32_t length, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return false;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    // Memory that cannot be read contributes nothing; the line end is still
    // written and, as for the other raw form, the result is true.
    uint32_t written = 0, error = 0;
    if (length > 0) write_from_memory(s, address, static_cast<uint32_t>(length), &written, &error);
    s.Write(kLineEndUnicode, sizeof kLineEndUnicode, nullptr);
    err.clear();
    return true;
}

// --- Position and size ---------------------------------------------------------

int64_t f_seek(int32_t handle, int64_t offset, int32_t origin, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return -1;
    if (origin < 0 || origin > 2) {
        err.fail(kErrBadOrigin);
        return -1;
    }
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    int64_t position = s.Seek(offset, static_cast<uint32_t>(origin));
    if (position < 0) {
        report(s, err);
        return -1;
    }
    return position;
}

bool f_change_size(int32_t handle, int64_t size, CXError& err) {
    OpenFileRecord* r = lookup(handle, err);
    if (!r) return false;
    IXStream& s = *r->stream;
    Bound bound(&s, err);
    const int64_t p = static_cast<int64_t>(s.GetPosition());
    if (!s.SetLength(size, 0)) {
        report(s, err);
        return false;
    }
    if (p <= 0)
        s.Seek(0, platform::kFileBegin);
    else if (p >= size)
        s.Seek(0, platform::kFileEnd);
    else
        s.Seek(p, platform::kFileBegin);
    return true;
}

} // namespace kp::files
