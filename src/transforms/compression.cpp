// compression.cpp - compressed values, the memory stream and the block
// compressor.
#include "transforms/compression.h"

#include <algorithm>

#include "transforms/bytes.h"
#include "transforms/coders.h"
#include "transforms/lzw.h"

namespace kp::transforms {

void encode_block(uint8_t method, std::span<const uint8_t> in, std::vector<uint8_t>& out) {
    switch (method) {
    case kMethodLzw: {
        LzwCoder coder;
        coder.encode(in, out);
        break;
    }
    case kMethodDictionary:
        dictionary::encode(in, out);
        break;
    case kMethodShortString:
        short_string::encode(in, out);
        break;
    default:
        append_stored_block(in, out);
        break;
    }
}

bool decode_block(std::span<const uint8_t> block, bool short_string, std::vector<uint8_t>& out) {
    if (short_string) {
        // Mode 2 never looks at the method byte.
        if (block.empty()) return false;
        std::vector<uint8_t> copy;
        if (block[0] != kMethodShortString) {
            copy.assign(block.begin(), block.end());
            copy[0] = kMethodShortString;
            block = copy;
        }
        return short_string::decode(block, out);
    }
    if (block.empty()) return false;
    const uint8_t method = block[0];
    if (method == kMethodStored) {
        if (block.size() < 5) return false;
        const uint32_t len = get_u32(block.data() + 1);
        if (len > block.size() - 5) return false;
        out.insert(out.end(), block.begin() + 5, block.begin() + 5 + len);
        return true;
    }
    if (method != kMethodLzw && method != kMethodDictionary) return false;
    if (block.size() < 11) return false;
    const uint32_t payload = get_u32(block.data() + 1);
    const uint32_t length = get_u32(block.data() + 5);
    if (payload > block.size() - 11) return false;
    const auto body = block.subspan(11, payload);
    if (method == kMethodDictionary) return dictionary::decode(body, length, out);
    LzwCoder coder;
    return coder.decode(body, length, out);
}

void CompressionStream::write_u32(uint32_t v) {
    append_u32(data_, v);
}

void CompressionStream::flush() {
    if (mode_ == CompressionMode::None || data_.size() < prefix_) return;
    // The block is written behind a copy of the prefix, then takes the
    // stream's place.
    std::vector<uint8_t> image(data_.begin(), data_.begin() + static_cast<std::ptrdiff_t>(prefix_));
    const auto section = std::span<const uint8_t>(data_).subspan(prefix_);
    encode_block(mode_ == CompressionMode::Lzw ? kMethodLzw : kMethodShortString, section, image);
    data_.swap(image);
}

bool CompressionStream::load(std::span<const uint8_t> image, CompressionMode mode) {
    data_.assign(image.begin(), image.begin() + std::min(prefix_, image.size()));
    pos_ = 0;
    mode_ = mode;
    if (image.size() < prefix_) return false;
    const auto section = image.subspan(prefix_);
    if (mode == CompressionMode::None) {
        data_.insert(data_.end(), section.begin(), section.end());
        return true;
    }
    return decode_block(section, mode == CompressionMode::ShortString, data_);
}

bool CompressionStream::read_u32(uint32_t& v) {
    if (data_.size() - pos_ < 4) return false;
    v = get_u32(data_.data() + pos_);
    pos_ += 4;
    return true;
}

std::span<const uint8_t> CompressionStream::read(std::size_t n) {
    n = std::min(n, data_.size() - pos_);
    auto s = std::span<const uint8_t>(data_).subspan(pos_, n);
    pos_ += n;
    return s;
}

std::vector<uint8_t> compress_value(std::span<const uint8_t> data, uint8_t kind, uint32_t mode,
                                    CXError& err) {
    if (mode > 2) {
        err.fail(kErrCompressionMode);
        return {};
    }
    if (mode == 2) {
        CompressionStream s(0);
        s.set_mode(CompressionMode::ShortString);
        s.write(data);
        s.flush();
        return s.take();
    }
    CompressionStream s(5);
    s.write_u8(kind);
    s.write_u32(mode);
    s.set_mode(static_cast<CompressionMode>(mode));
    s.write_u32(static_cast<uint32_t>(data.size()));
    s.write(data);
    s.flush();
    return s.take();
}

std::vector<uint8_t> uncompress_value(std::span<const uint8_t> value, int32_t mode, CXError& err) {
    if (mode == 2) {
        CompressionStream s(0);
        if (!s.load(value, CompressionMode::ShortString)) return {};
        return s.take();
    }
    if (value.size() < 5) return {};
    const uint32_t stored = get_u32(value.data() + 1);
    if (stored > 2) {
        err.fail(kErrCompressionMode);
        return {};
    }
    CompressionStream s(5);
    if (!s.load(value, static_cast<CompressionMode>(stored))) return {};
    if (stored == 2) {
        // A mode-2 block behind a header: the whole expansion is the data.
        s.seek(5);
        auto rest = s.read(s.size());
        return std::vector<uint8_t>(rest.begin(), rest.end());
    }
    s.seek(5);
    uint32_t n = 0;
    if (!s.read_u32(n)) return {};
    auto bytes = s.read(n);
    return std::vector<uint8_t>(bytes.begin(), bytes.end());
}

std::vector<uint8_t> compress(std::span<const uint8_t> data, bool is_string, CXError& err) {
    return compress_value(data, is_string ? kKindString : kKindBuffer, 1, err);
}

std::vector<uint8_t> uncompress(std::span<const uint8_t> value, CXError& err) {
    if (value.empty()) return {};
    return uncompress_value(value, -1, err);
}

} // namespace kp::transforms
