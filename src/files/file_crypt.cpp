// file_crypt.cpp - fCrypt and fUncrypt: the encrypted file format, its chunk
// loops, whole-file text encoding, and the temporary file between the two.
#include "files/file_crypt.h"

#include <cstdint>
#include <memory>
#include <new>
#include <random>

#include "files/stream.h"
#include "platform/files.h"
#include "platform/win32_error.h"
#include "transforms/bytes.h"
#include "transforms/cipher.h"
#include "transforms/crypt.h"
#include "transforms/encodings.h"

namespace kp::files {

using namespace kp::transforms;

namespace {

constexpr uint32_t kShare = platform::kShareRead | platform::kShareWrite;

// A stream's recorded failure becomes an ordinary error of the call.
bool report(IXStream& s, CXError& err) {
    err.set_system(s.GetLastError());
    err.set_severity(KP_SEVERITY_ERROR);
    return false;
}

// The chunk loops' own failures are messages of the catalogue (28253 to
// 28279), recorded by number with severity 2.
bool fail_message(uint32_t number, CXError& err) {
    err.set_message(number);
    err.set_severity(KP_SEVERITY_ERROR);
    return false;
}

bool report_last_error(CXError& err) {
    const uint32_t code = platform::last_error();
    err.clear();
    err.set_system(code);
    err.set_severity(KP_SEVERITY_ERROR);
    return false;
}

std::unique_ptr<IXStream> make_stream(CXError& err) {
    std::unique_ptr<IXStream> s(new (std::nothrow) IXStream());
    if (s) s->bind(&err);
    return s;
}

bool open_source(IXStream& s, std::u16string_view name, CXError& err) {
    if (!s.Open(name, platform::kGenericRead, kShare, platform::kOpenExisting, 0)) return report(s, err);
    return true;
}

bool open_destination(IXStream& s, std::u16string_view name, CXError& err) {
    if (!s.Open(name, platform::kGenericWrite, kShare, platform::kCreateAlways, platform::kFlagRandomAccess))
        return report(s, err);
    return true;
}

// Writes all of `data`; a short write is a failure.
bool write_all(IXStream& s, const void* data, uint32_t count, CXError& err) {
    uint32_t written = 0;
    if (!s.Write(data, count, &written)) return report(s, err);
    if (written != count) {
        platform::set_last_error(platform::kErrorDiskFull);
        return report_last_error(err);
    }
    return true;
}

// The cipher of a chunk loop with its key set.
std::unique_ptr<Cipher> chunk_cipher(int32_t mode, std::u16string_view password, CXError& err) {
    auto cipher = make_cipher(mode);
    if (!cipher) {
        fail_message(kErrFileCipher, err);
        return nullptr;
    }
    if (!cipher->set_password(password)) {
        fail_message(kErrFileKey, err);
        return nullptr;
    }
    return cipher;
}

bool crypt_loop(IXStream& dst, std::u16string_view source, std::u16string_view password, int32_t mode,
                CXError& err) {
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kFileChunk]);
    if (!buffer) return false;
    auto src = make_stream(err);
    if (!src) {
        return fail_message(kErrFileObject, err);
    }
    if (!open_source(*src, source, err)) return false;
    auto cipher = chunk_cipher(mode, password, err);
    if (!cipher) return false;
    if (dst.Seek(4, platform::kFileBegin) < 0) return report(dst, err);
    uint32_t sum = 0;
    for (;;) {
        uint32_t got = 0;
        if (!src->Read(buffer.get(), kFileChunk, &got)) return report(*src, err);
        if (got == 0) break;
        for (uint32_t i = 0; i < got; ++i)
            sum += buffer[i];
        cipher->encrypt(std::span<uint8_t>(buffer.get(), got));
        if (!write_all(dst, buffer.get(), got, err)) return false;
    }
    uint8_t header[4];
    put_u32(header, sum);
    if (dst.Seek(0, platform::kFileBegin) < 0) return report(dst, err);
    return write_all(dst, header, 4, err);
}

bool uncrypt_loop(IXStream& src, std::u16string_view destination, std::u16string_view password, int32_t mode,
                  CXError& err) {
    std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[kFileChunk]);
    if (!buffer) return false;
    auto cipher = chunk_cipher(mode, password, err);
    if (!cipher) return false;
    auto dst = make_stream(err);
    if (!dst) {
        return fail_message(kErrFileObject, err);
    }
    if (!open_destination(*dst, destination, err)) return false;
    uint8_t header[4];
    if (!src.Read(header, 4)) return report(src, err); // exact: a file without its sum fails here
    uint32_t sum = get_u32(header);
    for (;;) {
        uint32_t got = 0;
        if (!src.Read(buffer.get(), kFileChunk, &got)) return report(src, err);
        if (got == 0) break;
        cipher->decrypt(std::span<uint8_t>(buffer.get(), got));
        for (uint32_t i = 0; i < got; ++i)
            sum -= buffer[i];
        if (!write_all(*dst, buffer.get(), got, err)) return false;
    }
    if (sum != 0) return fail_message(kErrFileSum, err);
    return true;
}

// Reads a whole file; false with the error reported.
bool read_whole(std::u16string_view name, std::vector<uint8_t>& out, CXError& err) {
    auto s = make_stream(err);
    if (!s) {
        err.fail(kErrCreateObject);
        return false;
    }
    if (!open_source(*s, name, err)) return false;
    const int64_t length = s->GetLength();
    if (length < 0) return report(*s, err);
    // The whole file is held in memory, and its encoded form a third more: a
    // file beyond a quarter of the address space (a 32-bit process and a file
    // of several GB) cannot be, and its size would not fit a size_t.
    if (static_cast<uint64_t>(length) > SIZE_MAX / 4) {
        err.set_system(platform::kErrorNotEnoughMemory);
        err.set_severity(KP_SEVERITY_ERROR);
        return false;
    }
    out.clear();
    out.reserve(static_cast<std::size_t>(length));
    std::vector<uint8_t> chunk(kFileChunk);
    for (;;) {
        uint32_t got = 0;
        if (!s->Read(chunk.data(), kFileChunk, &got)) return report(*s, err);
        if (got == 0) break;
        out.insert(out.end(), chunk.begin(), chunk.begin() + got);
    }
    return true;
}

bool write_whole(std::u16string_view name, std::span<const uint8_t> data, CXError& err) {
    auto s = make_stream(err);
    if (!s) {
        err.fail(kErrCreateObject);
        return false;
    }
    if (!open_destination(*s, name, err)) return false;
    for (std::size_t off = 0; off < data.size(); off += kFileChunk) {
        const uint32_t n = static_cast<uint32_t>(std::min<std::size_t>(kFileChunk, data.size() - off));
        if (!write_all(*s, data.data() + off, n, err)) return false;
    }
    return true;
}

// A new empty file beside `near`, for the step between ciphering and
// encoding; its name, or "" with the error reported.
std::u16string make_temporary(std::u16string_view near, CXError& err) {
    std::random_device rd;
    static constexpr char16_t kHex[] = u"0123456789abcdef";
    for (int attempt = 0; attempt < 16; ++attempt) {
        std::u16string name(near);
        name += u".~";
        for (uint32_t v = rd(), k = 0; k < 8; ++k, v >>= 4)
            name.push_back(kHex[v & 15]);
        name += u".tmp";
        const platform::FileHandle h =
            platform::create_file(name, platform::kGenericWrite, kShare, platform::kCreateNew, 0);
        if (h != platform::kInvalidFile) {
            platform::close_file(h);
            return name;
        }
        if (platform::last_error() != platform::kErrorFileExists &&
            platform::last_error() != platform::kErrorAlreadyExists)
            break;
    }
    report_last_error(err);
    return {};
}

// The stream of one direction of the file cipher: an empty password is
// refused first, then a stream that cannot be made.
std::unique_ptr<IXStream> stream_for_password(std::u16string_view password, CXError& err) {
    if (password.empty()) {
        err.fail(kErrEmptyPassword);
        return nullptr;
    }
    auto stream = make_stream(err);
    if (!stream) err.fail(kErrCreateObject);
    return stream;
}

bool copy(std::u16string_view source, std::u16string_view destination, CXError& err) {
    if (!platform::copy_file(source, destination, false)) return report_last_error(err);
    return true;
}

} // namespace

bool crypt_file_to_file(std::u16string_view destination, std::u16string_view source,
                        std::u16string_view password, int32_t mode, CXError& err) {
    auto dst = stream_for_password(password, err);
    if (!dst || !open_destination(*dst, destination, err)) return false;
    return crypt_loop(*dst, source, password, mode, err);
}

bool uncrypt_file_to_file(std::u16string_view source, std::u16string_view destination,
                          std::u16string_view password, int32_t mode, CXError& err) {
    auto src = stream_for_password(password, err);
    if (!src || !open_source(*src, source, err)) return false;
    return uncrypt_loop(*src, destination, password, mode, err);
}

bool encode_file(int32_t encoding, std::u16string_view source, std::u16string_view destination,
                 CXError& err) {
    auto encoder = make_encoder(encoding);
    if (!encoder) {
        err.fail(kErrCreateObject);
        return false;
    }
    std::vector<uint8_t> data;
    if (!read_whole(source, data, err)) return false;
    const std::u16string text = encoder->encode(data);
    data.assign(text.begin(), text.end()); // ASCII: one byte a character
    return write_whole(destination, data, err);
}

bool decode_file(int32_t encoding, std::u16string_view source, std::u16string_view destination,
                 CXError& err) {
    auto encoder = make_encoder(encoding);
    if (!encoder) {
        err.fail(kErrCreateObject);
        return false;
    }
    std::vector<uint8_t> data;
    if (!read_whole(source, data, err)) return false;
    const std::u16string text(data.begin(), data.end());
    data = encoder->decode(text);
    return write_whole(destination, data, err);
}

namespace {
// What both directions check first: a known cipher mode, and an encoder for
// the encoding when the data goes through one.
bool check_mode_and_encoding(int32_t mode, int32_t encoding, CXError& err) {
    if (mode < 0 || mode > 3) {
        err.fail(kErrCipherMode);
        return false;
    }
    if (mode != kCryptNone && encoding != kEncodeNone && !make_encoder(encoding)) {
        err.fail(kErrCreateObject);
        return false;
    }
    return true;
}

// Two file steps joined by a temporary file beside the destination, which
// is removed whatever happened.
template <typename First, typename Second>
bool through_temporary(std::u16string_view destination, CXError& err, First first, Second second) {
    const std::u16string temp = make_temporary(destination, err);
    if (temp.empty()) return false;
    bool ok = first(temp) && second(temp);
    platform::delete_file(temp);
    return ok;
}
} // namespace

bool fcrypt(std::u16string_view source, std::u16string_view destination, std::u16string_view password,
            int32_t mode, int32_t encoding, CXError& err) {
    if (!check_mode_and_encoding(mode, encoding, err)) return false;
    if (mode == kCryptNone) {
        return encoding == kEncodeNone ? copy(source, destination, err)
                                       : encode_file(encoding, source, destination, err);
    }
    if (encoding == kEncodeNone) return crypt_file_to_file(destination, source, password, mode, err);
    return through_temporary(
        destination, err,
        [&](const std::u16string& temp) { return crypt_file_to_file(temp, source, password, mode, err); },
        [&](const std::u16string& temp) { return encode_file(encoding, temp, destination, err); });
}

bool funcrypt(std::u16string_view source, std::u16string_view destination, std::u16string_view password,
              int32_t mode, int32_t encoding, CXError& err) {
    if (!check_mode_and_encoding(mode, encoding, err)) return false;
    if (mode == kCryptNone) {
        return encoding == kEncodeNone ? copy(source, destination, err)
                                       : decode_file(encoding, source, destination, err);
    }
    if (encoding == kEncodeNone) return uncrypt_file_to_file(source, destination, password, mode, err);
    return through_temporary(
        destination, err,
        [&](const std::u16string& temp) { return decode_file(encoding, source, temp, err); },
        [&](const std::u16string& temp) {
            return uncrypt_file_to_file(temp, destination, password, mode, err);
        });
}

} // namespace kp::files
