// pe_version.cpp - the PE reader of ExeInfo over arbitrary bytes: the kind
// of an executable, the version resource found through the headers, section
// table and resource directories, and the version strings of the block it
// yields, as well as the input taken directly as a version block.

#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "system/pe_version.h"

using namespace kp::system;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::span<const uint8_t> in(data, size);
    SpanSource file(in);
    const int32_t kind = executable_kind(file);
    if (kind < -2 || kind > 4) std::abort();

    std::vector<uint8_t> block;
    if (read_version_resource(file, block)) {
        if (block.size() > 0xFFFF) std::abort();
        for (const char16_t* name : {u"CompanyName", u"FileVersion", u"Comments", u"companyname"})
            if (version_value(block, name).size() > 199) std::abort();
        first_translation(block);
    }
    // The bytes as a version block of their own.
    version_value(in, u"CompanyName");
    version_string(in, u"\\StringFileInfo\\040904E4\\FileVersion");
    version_string(in, u"\\VarFileInfo\\Translation");
    first_translation(in);
    return 0;
}
