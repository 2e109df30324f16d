// pe_version.h - the version information and the kind of an executable,
// read from its bytes by a parser of its own.
//
// Every read goes through a ByteSource and is checked against its size:
// offsets and lengths taken from the file (header offsets, section tables,
// resource directories, version blocks) never reach outside it, a length
// that runs past its container is cut to it, and the resource directory is
// walked on exactly three levels (type, name, language), so no directory
// that points back at itself can hold the reader.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace kp::system {

// Bytes of a file, read at any offset.
class ByteSource {
  public:
    virtual ~ByteSource() = default;
    // Reads exactly `count` bytes at `offset`; false when they are not all there.
    virtual bool read(uint64_t offset, void* out, std::size_t count) = 0;
};

// A source over bytes in memory.
class SpanSource : public ByteSource {
  public:
    explicit SpanSource(std::span<const uint8_t> bytes) : bytes_(bytes) {}
    bool read(uint64_t offset, void* out, std::size_t count) override;

  private:
    std::span<const uint8_t> bytes_;
};

// Kind of an executable: -1 unreadable, -2 not an executable, 0 DOS, 1
// 16-bit (NE, LE, LX, W3), 2 32-bit PE, 3 unknown, 4 64-bit PE.
int32_t executable_kind(ByteSource& file);
// The text of a kind: "DOS", "16", "32", "64", or "" for the others.
std::u16string_view executable_kind_text(int32_t kind);

// The version resource (VS_VERSIONINFO block) of a PE file; false when the
// file has none or it cannot be reached.
bool read_version_resource(ByteSource& file, std::vector<uint8_t>& out);

// Queries of a version block, as paths of keys separated by "\" (compared
// without regard to ASCII case): "\StringFileInfo\040904E4\CompanyName"
// gives the text of that string.  Nothing when a key is missing.
std::optional<std::u16string> version_string(std::span<const uint8_t> block, std::u16string_view path);
// The first language and code page of "\VarFileInfo\Translation" as eight
// hexadecimal digits ("040904E4"); nothing when there is none.
std::optional<std::u16string> first_translation(std::span<const uint8_t> block);

// A named string of the version information: under the first translation,
// else under "040904E4"; cut to 199 characters; "" when missing or when the
// name is longer than 50 characters.
std::u16string version_value(std::span<const uint8_t> block, std::u16string_view name);

} // namespace kp::system
