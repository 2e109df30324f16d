// regfile_reader.cpp - the registry file reader over arbitrary bytes: no
// crash, and a file that parses gives, once written in the 5.00 form and
// read again, the same keys and values.

#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "registry/regfile.h"

using namespace kp::registry::regfile;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Document doc;
    std::vector<Problem> problems;
    if (!parse(std::span<const uint8_t>(data, size), doc, problems)) {
        if (problems.empty()) std::abort();
        return 0;
    }
    if (!problems.empty()) std::abort();
    doc.regedit4 = false;
    std::vector<std::u16string> skipped;
    std::vector<uint8_t> file = write(doc, &skipped);
    if (!skipped.empty()) std::abort(); // parsed names never hold a line end
    Document back;
    if (!parse(file, back, problems) || !(back == doc)) std::abort();
    return 0;
}
