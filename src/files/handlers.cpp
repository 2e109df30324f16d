// handlers.cpp - handlers of the file and directory functions that work by
// name, the walks, the selectors and the file ciphers.
#include "component/bind.h"
#include "component/runtime.h"
#include "component/strings.h"
#include "component/variant.h"
#include "files/file_crypt.h"
#include "files/host_ui.h"
#include "files/listing.h"
#include "files/management.h"
#include "transforms/cipher.h"
#include "transforms/crypt.h"
#include "transforms/encodings.h"

namespace kp::handlers {

namespace {

using files::DatePart;
using files::WalkKind;

// A procedure's answer read as a boolean; no value is false.
bool truthy(const kp_variant& v) {
    switch (variant::type_of(&v)) {
    case KP_T_BOOL:
    case KP_T_INT:
        return v.value.i32 != 0;
    case KP_T_INT64:
        return v.value.i64 != 0;
    case KP_T_REAL:
        return v.value.real != 0;
    default:
        return false;
    }
}

// The procedure forms: the program's procedure gets (directory, name,
// number, user value) and answers whether the walk goes on; a call that
// fails stops it.
int32_t walk_with(std::u16string_view path, kp_procedure* proc, int32_t user, int32_t options, WalkKind kind,
                  CXError& err) {
    auto call = runtime::service(&kp_services::call_procedure);
    if (!proc || !call) {
        err.fail(files::kErrWalkProcedure);
        return 0;
    }
    files::WalkVisitor visit = [&](std::u16string_view dir, std::u16string_view name, int32_t number,
                                   int32_t u) {
        kp_variant args[4];
        for (kp_variant& a : args)
            variant::init(&a);
        kp_variant result;
        variant::init(&result);
        bool go = variant::set_string(&args[0], dir) == 0 && variant::set_string(&args[1], name) == 0;
        if (go) {
            variant::set_int(&args[2], number);
            variant::set_int(&args[3], u);
            go = call(runtime::vm(), proc, args, 4, &result) == 0 && truthy(result);
        }
        variant::destroy(&result);
        for (kp_variant& a : args)
            variant::destroy(&a);
        return go;
    };
    return files::walk(path, kind, user, options, visit, files::escape_pressed, err);
}

std::u16string walk_text(std::u16string_view path, int32_t options, WalkKind kind, CXError& err) {
    return files::walk_text(path, kind, options, files::escape_pressed, err);
}

int32_t as_int(bool b) {
    return b ? 1 : 0;
}

// The overloads of the date functions on part P of a file's date: (name),
// (name, value) and (name, value, kind).
template <DatePart P> struct FileDate {
    using SV = std::u16string_view;
    static auto of1(SV n, CXError& e) { return files::f_file_date(n, u"", 0, P, e); }
    static auto of2(SV n, SV v, CXError& e) { return files::f_file_date(n, v, 0, P, e); }
    static auto of3(SV n, SV v, int32_t k, CXError& e) { return files::f_file_date(n, v, k, P, e); }
};

// The overloads of one walk of kind K: (path, procedure[, user value[,
// options]]) and (path[, options]); what is left out is 0.
template <WalkKind K> struct Walk {
    using SV = std::u16string_view;
    static int32_t with1(SV p, kp_procedure* f, CXError& e) { return walk_with(p, f, 0, 0, K, e); }
    static int32_t with2(SV p, kp_procedure* f, int32_t u, CXError& e) { return walk_with(p, f, u, 0, K, e); }
    static int32_t with3(SV p, kp_procedure* f, int32_t u, int32_t o, CXError& e) {
        return walk_with(p, f, u, o, K, e);
    }
    static std::u16string text1(SV p, CXError& e) { return walk_text(p, 0, K, e); }
    static std::u16string text2(SV p, int32_t o, CXError& e) { return walk_text(p, o, K, e); }
};
using FileWalk = Walk<WalkKind::Files>;
using DirectoryWalk = Walk<WalkKind::Directories>;

} // namespace

KP_BIND(fFileExist_1, files::f_file_exist)
KP_BIND(fDirectoryExist_1, files::f_directory_exist)
KP_BIND(fCompare_1, files::f_compare)
KP_BIND(fExtractPath_1, files::f_extract_path)
KP_BIND(fSize_1, files::f_size)
KP_BIND(fDirSize_1, files::f_dir_size)

// The options of fCopyFile are accepted and not read.
KP_BIND(fCopyFile_1, files::f_copy_file)
KP_BIND(fCopyFile_2, [](std::u16string_view s, std::u16string_view d, int32_t, CXError& e) {
    return files::f_copy_file(s, d, e);
})
KP_BIND(fRename_1, files::f_move_file)
KP_BIND(fMoveFile_1, files::f_move_file)
KP_BIND(fDelete_1, [](std::u16string_view n, CXError& e) { return as_int(files::f_delete(n, 0, e)); })
KP_BIND(fDelete_2,
        [](std::u16string_view n, int32_t o, CXError& e) { return as_int(files::f_delete(n, o, e)); })

// Dates: (name) the modification date, (name, value) and (name, value, kind)
// read the kind when the value is empty and set it otherwise.
KP_BIND(fDate_1, FileDate<DatePart::Date>::of1)
KP_BIND(fDate_2, FileDate<DatePart::Date>::of2)
KP_BIND(fDate_3, FileDate<DatePart::Date>::of3)
KP_BIND(fTime_1, FileDate<DatePart::Time>::of1)
KP_BIND(fTime_2, FileDate<DatePart::Time>::of2)
KP_BIND(fTime_3, FileDate<DatePart::Time>::of3)
KP_BIND(fDateTime_1, FileDate<DatePart::DateTime>::of1)
KP_BIND(fDateTime_2, FileDate<DatePart::DateTime>::of2)
KP_BIND(fDateTime_3, FileDate<DatePart::DateTime>::of3)

KP_BIND(fAttribute_1, [](std::u16string_view n, CXError& e) { return files::f_attribute(n, false, e); })
KP_BIND(fAttribute_2, [](std::u16string_view n, std::u16string_view t, CXError& e) {
    return files::f_set_attribute(n, t, false, e);
})
KP_BIND(fDirAttribute_1, [](std::u16string_view n, CXError& e) { return files::f_attribute(n, true, e); })
KP_BIND(fDirAttribute_2, [](std::u16string_view n, std::u16string_view t, CXError& e) {
    return files::f_set_attribute(n, t, true, e);
})
KP_BIND(fAttributeReadOnly_1, files::f_attribute_read_only)
KP_BIND(fAttributeReadOnly_2, files::f_set_attribute_read_only)

KP_BIND(fTempPath_1, files::f_temp_path)
KP_BIND(fTempFile_1, [](CXError& e) { return files::f_temp_file(u"", u"", e); })
KP_BIND(fTempFile_2, [](std::u16string_view d, CXError& e) { return files::f_temp_file(d, u"", e); })
KP_BIND(fTempFile_3, files::f_temp_file)

KP_BIND(fLoadText_1, files::f_load_text)
// A string is saved as ANSI text, a buffer as its bytes.
KP_BIND(fSaveText_1, [](std::u16string_view n, Call& c, CXError& e) {
    char16_t* value = c.buffer(1);
    return str::is_binary(value) ? files::f_save_bytes(n, str::bytes(value), e)
                                 : files::f_save_text(n, str::view(value), e);
})

KP_BIND(fMakeDir_1, files::f_make_dir)
KP_BIND(fMakeDir_55_1, [](std::u16string_view n, CXError& e) { return as_int(files::f_make_dir(n, e)); })
KP_BIND(fRemoveDir_1, [](std::u16string_view n, CXError& e) { return files::f_remove_dir(n, 0, e); })
KP_BIND(fRemoveDir_2, files::f_remove_dir)

KP_BIND(fDir_1, [](std::u16string_view p, CXError& e) { return files::f_dir(p, files::kFrFile, e); })
KP_BIND(fDir_2, files::f_dir)

// Walks: (path, procedure[, user value[, options]]) and (path[, options]).
KP_BIND(fListFile_1, FileWalk::with1)
KP_BIND(fListFile_2, FileWalk::with2)
KP_BIND(fListFile_3, FileWalk::with3)
KP_BIND(fListFile_4, FileWalk::text1)
KP_BIND(fListFile_5, FileWalk::text2)
KP_BIND(fListDirectory_1, DirectoryWalk::with1)
KP_BIND(fListDirectory_2, DirectoryWalk::with2)
KP_BIND(fListDirectory_3, DirectoryWalk::with3)
KP_BIND(fListDirectory_4, DirectoryWalk::text1)
KP_BIND(fListDirectory_5, DirectoryWalk::text2)

// Selectors: the VM's dialogs, "" when cancelled.
using SV = std::u16string_view;
KP_BIND(fSelect_1, [](SV a, SV b, SV c, SV d, SV f) {
    return files::ask_selector(KP_SELECT_FILE, {a, b, c, d, f}, 0);
})
KP_BIND(fSelect_2, [](SV a, SV b, SV c, SV d, SV f, int32_t o) {
    return files::ask_selector(KP_SELECT_FILE, {a, b, c, d, f}, o);
})
KP_BIND(fSelect_3, [](SV a, SV b, SV c, SV d) {
    return files::ask_selector(KP_SELECT_FILE, {a, b, c, d}, 0);
})
KP_BIND(fSelect_4, [](SV a, SV b, SV c, SV d, int32_t o) {
    return files::ask_selector(KP_SELECT_FILE, {a, b, c, d}, o);
})
KP_BIND(fSelectDir_1, [](SV a, SV b) { return files::ask_selector(KP_SELECT_DIRECTORY, {a, b}, 0); })
KP_BIND(fSelectDir_2, [](SV a, SV b, SV c) { return files::ask_selector(KP_SELECT_DIRECTORY, {a, b, c}, 0); })
KP_BIND(fSelectDir_3, [](SV a, SV b, SV c, SV d) {
    return files::ask_selector(KP_SELECT_DIRECTORY, {a, b, c, d}, 0);
})
KP_BIND(fGraphicFilter_1, [] { return files::ask_selector(KP_SELECT_GRAPHIC_FILTER, {}, 0); })

// fCrypt and fUncrypt: the fast cipher and no encoding unless given; memory
// exhaustion is the failure value.
template <auto F> struct FileCipher {
    static bool of1(SV from, SV to, SV password, CXError& e) {
        return F(from, to, password, transforms::kCryptFast, transforms::kEncodeNone, e);
    }
    static bool of2(SV from, SV to, SV password, int32_t mode, CXError& e) {
        return F(from, to, password, mode, transforms::kEncodeNone, e);
    }
};
using FileCrypt = FileCipher<files::fcrypt>;
using FileUncrypt = FileCipher<files::funcrypt>;
using transforms::kErrCreateObject;

KP_BIND_NOMEM(fCrypt_1, kErrCreateObject, FileCrypt::of1)
KP_BIND_NOMEM(fCrypt_2, kErrCreateObject, FileCrypt::of2)
KP_BIND_NOMEM(fCrypt_3, kErrCreateObject, files::fcrypt)
KP_BIND_NOMEM(fUncrypt_1, kErrCreateObject, FileUncrypt::of1)
KP_BIND_NOMEM(fUncrypt_2, kErrCreateObject, FileUncrypt::of2)
KP_BIND_NOMEM(fUncrypt_3, kErrCreateObject, files::funcrypt)

} // namespace kp::handlers
