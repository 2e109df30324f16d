// regtool_api.cpp - libkp120regtool: the C interface of kp120/regtool.h
// over the registry file reader and writer and the registry store.  The
// library holds its own copy of the store and the code pages, so that the
// component module exports nothing more than its entry points.
#include "kp120/regtool.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "platform/registry_store.h"
#include "registry/regfile.h"
#include "registry/regtool.h"

namespace {

namespace regfile = kp::registry::regfile;
namespace regtool = kp::registry::regtool;

constexpr uint32_t kOutOfMemory = 14;
// Any other failure that surfaces as an exception (ERROR_INTERNAL_ERROR):
// none crosses the C interface.
constexpr uint32_t kInternalError = 1359;

// The database of one call, let go when the call returns.
struct Database {
    explicit Database(const char* path) { kp::platform::registry::use_database(path ? path : ""); }
    ~Database() { kp::platform::registry::use_database(""); }
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
};

void tell(kp120_regtool_note note, void* context, const std::u16string& name) {
    if (note) note(context, 0, "", name.data(), name.size());
}

// Runs `f` (which answers 0 or a Win32 error), an exception becoming its
// error: none crosses the C interface.
template <class F> uint32_t guarded(F&& f) noexcept {
    try {
        return f();
    } catch (const std::bad_alloc&) {
        return kOutOfMemory;
    } catch (...) {
        return kInternalError;
    }
}

} // namespace

extern "C" uint32_t kp120_regtool_export(const char* database, const char16_t* key, size_t key_length,
                                         int regedit4, kp120_regtool_bytes* out, kp120_regtool_note skipped,
                                         void* context) noexcept {
    if (!out) return 87;
    *out = {nullptr, 0};
    const uint32_t e = guarded([&]() -> uint32_t {
        Database db(database);
        regfile::Document doc;
        doc.regedit4 = regedit4 != 0;
        if (uint32_t e = regtool::gather(std::u16string_view(key ? key : u"", key ? key_length : 0), doc))
            return e;
        std::vector<std::u16string> left_out;
        std::vector<uint8_t> bytes = regfile::write(doc, &left_out);
        for (const auto& s : left_out)
            tell(skipped, context, s);
        out->data = static_cast<uint8_t*>(std::malloc(bytes.empty() ? 1 : bytes.size()));
        if (!out->data) return kOutOfMemory;
        if (!bytes.empty()) std::memcpy(out->data, bytes.data(), bytes.size());
        out->size = bytes.size();
        return 0;
    });
    if (e) kp120_regtool_free(out);
    return e;
}

extern "C" int kp120_regtool_import(const char* database, const uint8_t* file, size_t size, uint32_t* error,
                                    kp120_regtool_note note, void* context) noexcept {
    uint32_t unused;
    if (!error) error = &unused;
    int result = KP120_REGTOOL_IMPORTED;
    *error = guarded([&]() -> uint32_t {
        regfile::Document doc;
        std::vector<regfile::Problem> problems;
        if (!regfile::parse(std::span<const uint8_t>(file, file ? size : 0), doc, problems)) {
            for (const auto& p : problems)
                if (note) note(context, p.line, p.message.c_str(), nullptr, 0);
            result = KP120_REGTOOL_BAD_FILE;
            return 0;
        }
        Database db(database);
        std::u16string where;
        const uint32_t e = regtool::apply(doc, &where);
        if (e) tell(note, context, where);
        return e;
    });
    return *error ? KP120_REGTOOL_REFUSED : result;
}

extern "C" void kp120_regtool_free(kp120_regtool_bytes* bytes) noexcept {
    if (!bytes) return;
    std::free(bytes->data);
    *bytes = {nullptr, 0};
}
