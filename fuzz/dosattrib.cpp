// dosattrib.cpp - the user.DOSATTRIB record reader over arbitrary values.
// Whatever a value holds, the record made from what was read reads back
// with the attributes written and the creation time kept.
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "platform/dos_record.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace kp::platform::host;
    const DosRecord first = parse_dos_record(std::span<const uint8_t>(data, size));
    const uint32_t attributes = first.attributes ^ 0x26u;
    const std::string made = make_dos_record(attributes, first);
    const DosRecord again = parse_dos_record(
        std::span<const uint8_t>(reinterpret_cast<const uint8_t*>(made.data()), made.size()));
    if (!again.has_attributes || again.attributes != attributes) std::abort();
    if (again.has_create_time != first.has_create_time || again.create_time != first.create_time)
        std::abort();
    return 0;
}
