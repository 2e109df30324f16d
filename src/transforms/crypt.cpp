// crypt.cpp - Crypt and Uncrypt in memory.
//
// With cryptAnsi an empty password is accepted by cryptFast, which then runs
// with the all-zero key; cryptSecure and cryptRC516 refuse it (80282), as
// they do without cryptAnsi.
#include "transforms/crypt.h"

#include <cstring>

#include "platform/codepage.h"
#include "transforms/cipher.h"
#include "transforms/compression.h"
#include "transforms/encodings.h"

namespace kp::transforms {
namespace {

std::u16string units_of(std::span<const uint8_t> bytes) {
    // An odd last byte makes a unit of its own (high byte zero).
    std::u16string s((bytes.size() + 1) / 2, u'\0');
    for (std::size_t i = 0; i < bytes.size(); ++i)
        s[i / 2] = static_cast<char16_t>(s[i / 2] | (static_cast<char16_t>(bytes[i]) << (8 * (i & 1))));
    return s;
}

std::vector<uint8_t> bytes_of(std::u16string_view s) {
    std::vector<uint8_t> v(s.size() * 2);
    for (std::size_t i = 0; i < s.size(); ++i) {
        v[2 * i] = static_cast<uint8_t>(s[i]);
        v[2 * i + 1] = static_cast<uint8_t>(s[i] >> 8);
    }
    return v;
}

UncryptResult empty_string() {
    return UncryptResult{true, {}, {}};
}

} // namespace

CryptMode split_mode(int32_t mode) {
    uint32_t m = static_cast<uint32_t>(mode);
    const bool ansi = (m & static_cast<uint32_t>(kCryptAnsi)) != 0;
    m &= ~static_cast<uint32_t>(kCryptAnsi);
    return CryptMode{ansi, m & 0xFFFFu, m >> 16};
}

std::vector<uint8_t> crypt(std::span<const uint8_t> source, bool source_is_string,
                           std::u16string_view password, int32_t mode, int32_t encoding, CXError& err) {
    const CryptMode m = split_mode(mode);
    if (m.cipher > 3) {
        err.fail(kErrCipherMode);
        return {};
    }
    if (m.compression >= 3) {
        err.fail(kErrCompressionMode);
        return {};
    }
    std::unique_ptr<TextEncoder> encoder;
    if (encoding != kEncodeNone && !(encoder = make_encoder(encoding))) {
        err.fail(kErrCreateObject);
        return {};
    }

    std::vector<uint8_t> data;
    if (m.ansi && source_is_string) {
        const std::string b = platform::encode_1252(units_of(source));
        data.assign(b.begin(), b.end());
    } else {
        data.assign(source.begin(), source.end());
    }

    if (m.compression != 0) {
        if (m.ansi) {
            data = compress_value(data, kKindBuffer, m.compression, err);
        } else {
            // Compressed as a string: up to the first zero unit, deliberately.
            std::u16string text = units_of(data);
            const std::size_t zero = text.find(u'\0');
            if (zero != std::u16string::npos) text.resize(zero);
            data = compress_value(bytes_of(text), kKindString, m.compression, err);
        }
        if (err.failed()) return {};
    }

    if (m.cipher != kCryptNone) {
        if (!m.ansi) {
            if (data.size() & 1) data.push_back(0);
            if (password.empty()) {
                err.fail(kErrEmptyPassword);
                return {};
            }
        } else if (password.empty() && m.cipher != static_cast<uint32_t>(kCryptFast)) {
            err.fail(kErrEmptyPassword);
            return {};
        }
        auto cipher = make_cipher(static_cast<int32_t>(m.cipher));
        if (!cipher) {
            err.fail(kErrCreateObject);
            return {};
        }
        if (!cipher->set_password(password)) {
            if (!m.ansi) err.fail(kErrKey);
            return {};
        }
        cipher->encrypt(data);
    }

    if (encoder) return bytes_of(encoder->encode(data));
    return data;
}

UncryptResult uncrypt_bytes(std::span<const uint8_t> input, std::u16string_view password, int32_t mode,
                            int32_t encoding, CXError& err) {
    const CryptMode m = split_mode(mode);
    if (m.cipher > 3) {
        err.fail(kErrCipherMode);
        return empty_string();
    }
    if (m.compression > 2) {
        err.fail(kErrCompressionMode);
        return empty_string();
    }
    std::vector<uint8_t> data;
    if (encoding == kEncodeNone) {
        data.assign(input.begin(), input.end());
    } else {
        auto encoder = make_encoder(encoding);
        if (!encoder) {
            err.fail(kErrCreateObject);
            return empty_string();
        }
        data = encoder->decode(units_of(input));
    }

    if (m.cipher == kCryptNone && m.compression == 0) {
        UncryptResult r;
        r.is_string = true;
        r.text = units_of(data);
        return r;
    }

    if (m.cipher != kCryptNone) {
        if (!m.ansi) {
            if (data.size() & 1) data.push_back(0);
            if (password.empty()) {
                err.fail(kErrEmptyPassword);
                return empty_string();
            }
        } else if (password.empty() && m.cipher != static_cast<uint32_t>(kCryptFast)) {
            err.fail(kErrEmptyPassword);
            return empty_string();
        }
        auto cipher = make_cipher(static_cast<int32_t>(m.cipher));
        if (!cipher) {
            err.fail(kErrCreateObject);
            return empty_string();
        }
        if (!cipher->set_password(password)) {
            if (m.ansi) return UncryptResult{};
            err.fail(kErrKey);
            return empty_string();
        }
        cipher->decrypt(data);
    }

    if (m.compression != 0) {
        data = uncompress_value(data, static_cast<int32_t>(m.compression), err);
        if (err.failed()) return empty_string();
    }

    UncryptResult r;
    if (m.ansi) {
        r.is_string = true;
        r.text = platform::decode_1252(data);
    } else {
        r.bytes = std::move(data);
    }
    return r;
}

UncryptResult uncrypt(std::u16string_view text, std::u16string_view password, int32_t mode, int32_t encoding,
                      CXError& err) {
    const auto bytes = bytes_of(text);
    return uncrypt_bytes(bytes, password, mode, encoding, err);
}

} // namespace kp::transforms
