// stream.cpp - IXStream over the device's file service.
#include "files/stream.h"

#include "files/line_end.h"

#include <algorithm>
#include <cstring>
#include <new>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "platform/win32_error.h"

namespace kp::files {

namespace {
constexpr char16_t kTraceHandle[] = u"##(IXStream)-Handle=<%1!p!>##";
constexpr char16_t kTraceExact[] = u"##(IXStream)-bExact=<%1!d!>##";
constexpr char16_t kTraceCounts[] = u"##(IXStream)-A lire=<%1!u!>, lu=<%2!u!>##";
constexpr char16_t kNotLoaded[] = u"##(CXError)-Ressource <%1!u!> non chargée##";
constexpr uint32_t kLineBlock = 160;
constexpr char16_t kCR = 13, kLF = 10;

void append_message(CXError& e, uint32_t number, Inserts inserts) {
    std::u16string text;
    if (!message_text(number, text) || text.empty())
        e.append_formatted(kNotLoaded, {number});
    else
        e.append_formatted(text, inserts);
}
} // namespace

IXStream::IXStream() = default;

IXStream::~IXStream() {
    if (is_open()) platform::close_file(handle_);
}

void IXStream::begin() {
    if (error_) error_->set_severity(KP_SEVERITY_NONE);
}

bool IXStream::fail(uint32_t message, bool with_name) {
    last_error_ = platform::last_error();
    if (error_) {
        error_->set_severity(KP_SEVERITY_FATAL);
        error_->set_system(last_error_);
        error_->append_formatted(kTraceHandle, {reinterpret_cast<const void*>(handle_)});
        if (message) {
            if (with_name) append_message(*error_, message, {name_});
        }
    }
    platform::set_last_error(last_error_);
    return false;
}

bool IXStream::fail_read(uint32_t asked, uint32_t got, bool exact) {
    last_error_ = platform::last_error();
    if (error_) {
        error_->set_severity(KP_SEVERITY_FATAL);
        error_->set_system(last_error_);
        error_->append_formatted(kTraceHandle, {reinterpret_cast<const void*>(handle_)});
        error_->append_formatted(kTraceExact, {exact ? 1 : 0});
        error_->append_formatted(kTraceCounts, {asked, got});
        append_message(*error_, kMsgReadFailed, {name_});
    }
    platform::set_last_error(last_error_);
    return false;
}

bool IXStream::Open(std::u16string_view name, uint32_t access, uint32_t share, uint32_t creation,
                    uint32_t flags, bool* created) {
    begin();
    if (created) *created = false;
    if (is_open()) Close();
    name_.assign(name.substr(0, std::min(name.size(), kStoredNameMax)));
    access_ = access;
    if (flags == platform::kFlagSequentialScan) flags = 0;
    uint32_t message = 0;
    if (creation == platform::kOpenAlways) {
        message = kMsgOpenAlwaysFailed;
        handle_ = platform::create_file(name, access, share, platform::kOpenExisting, flags);
        if (handle_ != platform::kInvalidFile) {
            platform::set_last_error(platform::kErrorAlreadyExists);
        } else {
            handle_ = platform::create_file(name, access, share, platform::kOpenAlways, flags);
            if (handle_ != platform::kInvalidFile && created) *created = true;
        }
    } else {
        if (creation == platform::kOpenExisting) message = kMsgOpenExistingFailed;
        if (creation == platform::kCreateAlways) message = kMsgCreateFailed;
        handle_ = platform::create_file(name, access, share, creation, flags);
        if (handle_ != platform::kInvalidFile && creation == platform::kCreateAlways && created)
            *created = true;
    }
    if (handle_ == platform::kInvalidFile) return fail(message);
    position_ = 0;
    drop_buffer();
    return true;
}

bool IXStream::Close() {
    if (!is_open()) return true;
    begin();
    bool ok = platform::close_file(handle_);
    drop_buffer();
    if (!ok) {
        fail(0);
        handle_ = platform::kInvalidFile;
        return false;
    }
    handle_ = platform::kInvalidFile;
    position_ = 0;
    return true;
}

bool IXStream::Reopen(uint32_t access, uint32_t share, uint32_t creation, uint32_t flags) {
    Close();
    std::u16string name = name_;
    return Open(name, access, share, creation, flags, nullptr);
}

bool IXStream::Write(const void* buffer, uint32_t count, uint32_t* written) {
    begin();
    drop_buffer();
    uint32_t n = 0;
    bool ok = platform::write_file_at(handle_, position_, buffer, count, &n);
    position_ += n;
    if (written) *written = n;
    if (!ok) return fail(kMsgWriteFailed);
    return true;
}

bool IXStream::WriteAt(uint64_t position, const void* buffer, uint32_t count, uint32_t* written) {
    if (position != position_ && Seek(static_cast<int64_t>(position), platform::kFileBegin) < 0) {
        if (written) *written = 0;
        return false;
    }
    return Write(buffer, count, written);
}

bool IXStream::fill(uint64_t position) {
    if (!aux_) {
        aux_.reset(static_cast<uint8_t*>(std::aligned_alloc(4096, kAuxiliaryBufferSize)));
        if (!aux_) {
            platform::set_last_error(platform::kErrorNotEnoughMemory);
            return false;
        }
    }
    buffered_ = 0;
    uint32_t n = 0;
    if (!platform::read_file_at(handle_, position, aux_.get(), kAuxiliaryBufferSize, &n)) return false;
    aux_start_ = position;
    buffered_ = n;
    return true;
}

bool IXStream::Read(void* buffer, uint32_t count, uint32_t* read) {
    begin();
    uint32_t got = 0;
    bool ok = true;
    if (count > 0 && count < kAuxiliaryBufferSize && buffer) {
        bool inside = buffered_ && position_ >= aux_start_ && position_ - aux_start_ + count <= buffered_;
        if (!inside) ok = fill(position_);
        if (ok) {
            uint64_t avail = buffered_ > 0 && position_ >= aux_start_ && position_ - aux_start_ < buffered_
                                 ? aux_start_ + buffered_ - position_
                                 : 0;
            got = static_cast<uint32_t>(std::min<uint64_t>(avail, count));
            if (got) std::memcpy(buffer, aux_.get() + (position_ - aux_start_), got);
        } else if (platform::last_error() == platform::kErrorNotEnoughMemory) {
            ok = platform::read_file_at(handle_, position_, buffer, count, &got);
        }
    } else {
        ok = platform::read_file_at(handle_, position_, buffer, count, &got);
    }
    position_ += got;
    if (read) *read = got;
    bool exact = read == nullptr;
    if (!ok) return fail_read(count, got, exact);
    if (exact && got < count) {
        platform::set_last_error(0);
        return fail_read(count, got, exact);
    }
    return true;
}

bool IXStream::ReadAt(uint64_t position, void* buffer, uint32_t count, uint32_t* read) {
    if (position != position_ && Seek(static_cast<int64_t>(position), platform::kFileBegin) < 0) {
        if (read) *read = 0;
        return false;
    }
    return Read(buffer, count, read);
}

int64_t IXStream::Seek(int64_t offset, uint32_t origin) {
    begin();
    uint64_t moved = 0;
    bool ok = false;
    if (origin == platform::kFileCurrent) {
        int64_t target = 0;
        if (__builtin_add_overflow(static_cast<int64_t>(position_), offset, &target)) {
            platform::set_last_error(platform::kErrorInvalidParameter);
        } else {
            ok = platform::set_file_pointer(handle_, target, platform::kFileBegin, &moved);
        }
    } else {
        ok = platform::set_file_pointer(handle_, offset, origin, &moved);
    }
    if (!ok) {
        fail(kMsgSeekFailed);
        return -1;
    }
    position_ = moved;
    return static_cast<int64_t>(moved);
}

int64_t IXStream::GetLength() {
    begin();
    uint64_t size = 0;
    if (!platform::get_file_size(handle_, &size)) {
        fail(kMsgSeekFailed);
        return -1;
    }
    return static_cast<int64_t>(size);
}

int64_t IXStream::SeekToEnd() {
    return Seek(0, platform::kFileEnd);
}

bool IXStream::at_end() {
    if (buffered_ && position_ >= aux_start_ && position_ - aux_start_ < buffered_) return false;
    int64_t length = GetLength();
    return length >= 0 && position_ >= static_cast<uint64_t>(length);
}

bool IXStream::Flush() {
    begin();
    if (!platform::flush_file(handle_)) return fail(kMsgFlushFailed);
    return true;
}

bool IXStream::SetLength(int64_t size, uint32_t from) {
    if (from != 0 && from != 1) return false;
    if (Seek(size, from == 0 ? platform::kFileBegin : platform::kFileEnd) < 0) return false;
    begin();
    drop_buffer();
    if (!platform::set_end_of_file(handle_)) return fail(kMsgSetEndFailed);
    return true;
}

bool IXStream::Extend(uint32_t count) {
    if (count == 0) return true;
    if (Seek(static_cast<int64_t>(count) - 1, platform::kFileEnd) < 0) return false;
    const uint8_t zero = 0;
    return Write(&zero, 1, nullptr);
}

bool IXStream::Printf(const char16_t* format, ...) {
    va_list args;
    va_start(args, format);
    bool ok = VPrintf(format, args);
    va_end(args);
    return ok;
}

bool IXStream::VPrintf(const char16_t* format, va_list args) {
    constexpr std::size_t kMax = 1024;
    std::u16string out;
    for (const char16_t* p = format; p && *p && out.size() < kMax; ++p) {
        if (*p != u'%' || p[1] == 0) {
            out.push_back(*p);
            continue;
        }
        ++p;
        switch (*p) {
        case u's': {
            const char16_t* s = va_arg(args, const char16_t*);
            if (s) out.append(s);
            break;
        }
        case u'd': {
            std::string n = std::to_string(va_arg(args, int));
            out.append(n.begin(), n.end());
            break;
        }
        case u'u': {
            std::string n = std::to_string(va_arg(args, unsigned));
            out.append(n.begin(), n.end());
            break;
        }
        case u'c':
            out.push_back(static_cast<char16_t>(va_arg(args, int)));
            break;
        default:
            out.push_back(*p);
            break;
        }
    }
    if (out.size() > kMax) out.resize(kMax);
    return Write(out.data(), static_cast<uint32_t>(out.size() * sizeof(char16_t)), nullptr);
}

bool IXStream::ReadLineW(char16_t* buffer, uint32_t maximum, bool* more, bool strict) {
    if (more) *more = false;
    if (!buffer || maximum == 0) return false;
    const uint32_t cap = maximum - 1;
    uint32_t taken = 0;
    uint8_t block[kLineBlock + 2];
    for (;;) {
        uint32_t n = 0;
        if (!Read(block, kLineBlock, &n)) {
            buffer[taken] = 0;
            return false;
        }
        if (n == 0) break;
        uint32_t units = n / 2;
        auto unit = [&](uint32_t i) { return static_cast<char16_t>(block[2 * i] | (block[2 * i + 1] << 8)); };
        if (strict && n == kLineBlock && unit(units - 1) == kCR) {
            uint32_t extra = 0;
            if (!Read(block + kLineBlock, 2, &extra)) {
                buffer[taken] = 0;
                return false;
            }
            n += extra;
            units = n / 2;
        }
        uint32_t end = units, skip = 0;
        for (uint32_t i = 0; i < units; ++i) {
            if (unit(i) != kCR) continue;
            if (!strict) {
                end = i, skip = 2;
                break;
            }
            if (i + 1 < units && unit(i + 1) == kLF) {
                end = i, skip = 2;
                break;
            }
        }
        if (!strict && skip == 0) {
            for (uint32_t i = 0; i < units; ++i)
                if (unit(i) == kLF) {
                    end = i, skip = 1;
                    break;
                }
        }
        uint32_t room = cap - taken;
        if (end > room) {
            for (uint32_t i = 0; i < room; ++i)
                buffer[taken++] = unit(i);
            buffer[taken] = 0;
            if (more) *more = true;
            return Seek(-static_cast<int64_t>(n - room * 2), platform::kFileCurrent) >= 0;
        }
        for (uint32_t i = 0; i < end; ++i)
            buffer[taken++] = unit(i);
        if (skip) {
            buffer[taken] = 0;
            int64_t back = static_cast<int64_t>(n) - static_cast<int64_t>((end + skip) * 2);
            return back == 0 || Seek(-back, platform::kFileCurrent) >= 0;
        }
        if (n < kLineBlock) break;
    }
    buffer[taken] = 0;
    return true;
}

bool IXStream::ReadLineBuffered(std::u16string& line, uint32_t maximum, bool unicode, bool* more,
                                bool* at_end) {
    line.clear();
    if (more) *more = false;
    if (at_end) *at_end = false;
    begin();
    const uint32_t width = unicode ? 2 : 1;
    // The next unit at the position: -1 at the end of the file, -2 on failure.
    auto peek = [&]() -> int32_t {
        if (!(buffered_ && position_ >= aux_start_ && position_ - aux_start_ + width <= buffered_)) {
            if (!fill(position_)) return -2;
            if (buffered_ < width) return -1;
        }
        const uint8_t* p = aux_.get() + (position_ - aux_start_);
        return unicode ? (p[0] | (p[1] << 8)) : p[0];
    };
    bool any = false;
    for (;;) {
        int32_t c = peek();
        if (c == -2) return fail_read(kAuxiliaryBufferSize, 0, false);
        if (c == -1) {
            if (!any && at_end) *at_end = true;
            return true;
        }
        any = true;
        if (c == kCR || c == kLF) {
            position_ += width;
            if (c == kCR) {
                int32_t next = peek();
                if (next == -2) return fail_read(kAuxiliaryBufferSize, 0, false);
                if (next == kLF) position_ += width;
            }
            return true;
        }
        if (line.size() >= maximum) {
            if (more) *more = true;
            return true;
        }
        line.push_back(static_cast<char16_t>(c));
        position_ += width;
    }
}

namespace {
#if defined(__SSE2__)
// Start of the first place in [p, limit) where the L bytes of `end` stand,
// sixteen places at a time, or `p` moved to where fewer than 16 + L - 1
// bytes are left (the caller searches the rest).  Lines are short, so this
// beats a search for the first byte followed by a check of the others.
template <uint32_t L>
const uint8_t* find_end_blocks(const uint8_t*& p, const uint8_t* limit, const uint8_t* end) {
    __m128i want[L];
    for (uint32_t k = 0; k < L; ++k)
        want[k] = _mm_set1_epi8(static_cast<char>(end[k]));
    while (p < limit && static_cast<std::size_t>(limit - p) >= 16 + L - 1) {
        uint32_t match = 0xFFFF;
        for (uint32_t k = 0; k < L; ++k)
            match &= static_cast<uint32_t>(_mm_movemask_epi8(
                _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p + k)), want[k])));
        if (match) return p + __builtin_ctz(match);
        p += 16;
    }
    return nullptr;
}

#endif

// First occurrence of a line end of 1 to 4 bytes in [from, limit), or null.
const uint8_t* find_end(const uint8_t* from, const uint8_t* limit, const uint8_t* end, uint32_t end_length) {
    const uint8_t* p = from;
#if defined(__SSE2__)
    // The two line ends of the line reader: CR LF, and its UTF-16 bytes.
    const uint8_t* found = nullptr;
    if (end_length == 2 && end[0] == '\r' && end[1] == '\n')
        found = find_crlf_blocks(p, limit);
    else if (end_length == 2)
        found = find_end_blocks<2>(p, limit, end);
    else if (end_length == 4)
        found = find_end_blocks<4>(p, limit, end);
    if (found) return found;
#endif
    while (p + end_length <= limit) {
        p = static_cast<const uint8_t*>(std::memchr(p, end[0], static_cast<std::size_t>(limit - p)));
        if (!p || p + end_length > limit) return nullptr;
        uint32_t k = 1;
        while (k < end_length && p[k] == end[k])
            ++k;
        if (k == end_length) return p;
        ++p;
    }
    return nullptr;
}
} // namespace

bool IXStream::ScanLine(const uint8_t* end, uint32_t end_length, const uint8_t** data, std::size_t* size) {
    bool inside = buffered_ && position_ >= aux_start_ && position_ - aux_start_ < buffered_;
    if (!inside) {
        begin();
        if (!fill(position_)) {
            buffered_ = 0;
            return false;
        }
    }
    const uint8_t* from = aux_.get() + (position_ - aux_start_);
    const uint8_t* at = find_end(from, aux_.get() + buffered_, end, end_length);
    if (!at) return false;
    *data = from;
    *size = static_cast<std::size_t>(at - from);
    position_ += *size + end_length;
    return true;
}

bool IXStream::ReadUntil(const uint8_t* end, uint32_t end_length, std::string& out, bool* found) {
    *found = false;
    if (!end || end_length == 0 || end_length > 4) return false;
    begin();
    for (;;) {
        bool inside = buffered_ && position_ >= aux_start_ && position_ - aux_start_ < buffered_;
        if (!inside || aux_start_ + buffered_ - position_ < end_length) {
            if (!fill(position_)) return fail_read(kAuxiliaryBufferSize, 0, false);
            if (buffered_ < end_length) {
                // The end of the file: the rest is the line.
                out.append(reinterpret_cast<const char*>(aux_.get()), buffered_);
                position_ += buffered_;
                return true;
            }
        }
        const uint8_t* from = aux_.get() + (position_ - aux_start_);
        const uint8_t* limit = aux_.get() + buffered_;
        const uint8_t* at = find_end(from, limit, end, end_length);
        if (at) {
            out.append(reinterpret_cast<const char*>(from), static_cast<std::size_t>(at - from));
            position_ += static_cast<uint64_t>(at - from) + end_length;
            *found = true;
            return true;
        }
        // Keep the last end_length - 1 bytes: they may begin the line end.
        std::size_t take = static_cast<std::size_t>(limit - from) - (end_length - 1);
        out.append(reinterpret_cast<const char*>(from), take);
        position_ += take;
        if (buffered_ < kAuxiliaryBufferSize) {
            // Short fill: the end of the file is in the buffer.
            out.append(reinterpret_cast<const char*>(from + take), end_length - 1);
            position_ += end_length - 1;
            return true;
        }
        drop_buffer();
    }
}

bool IXStream::Lock(uint64_t position, uint64_t count) {
    begin();
    if (RawLock(position, count)) return true;
    last_error_ = platform::last_error();
    fail(0);
    if (error_) append_message(*error_, kMsgLockFailed, {position, count});
    platform::set_last_error(last_error_);
    return false;
}

bool IXStream::Unlock(uint64_t position, uint64_t count) {
    begin();
    if (RawUnlock(position, count)) return true;
    last_error_ = platform::last_error();
    fail(0);
    if (error_) append_message(*error_, kMsgUnlockFailed, {position, count});
    platform::set_last_error(last_error_);
    return false;
}

bool IXStream::RawLock(uint64_t position, uint64_t count) {
    return platform::lock_file(handle_, position, count);
}
bool IXStream::RawUnlock(uint64_t position, uint64_t count) {
    return platform::unlock_file(handle_, position, count);
}

} // namespace kp::files
