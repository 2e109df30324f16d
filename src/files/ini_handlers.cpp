// ini_handlers.cpp - handlers of INIRead and INIWrite.
#include "component/bind.h"
#include "files/ini.h"

namespace kp::handlers {

namespace {
using files::ini::ini_read;
using files::ini::ini_write;

// INIRead answers with a string value.
variant::Value string_value(std::u16string_view text) {
    variant::Value v;
    variant::set_string(v.get(), text);
    return v;
}

// An integer in place of a key or a value stands for "absent" when it is 0;
// any other integer is refused, naming the string it stands beside.
bool refused(int32_t number, std::u16string_view beside, CXError& err) {
    if (number == 0) return false;
    err.fail(files::ini::kErrIntegerArgument, {beside, number});
    return true;
}
} // namespace

KP_BIND(INIRead_1, [](std::u16string_view section) { return string_value(ini_read(section, u"", u"", u"")); })
KP_BIND(INIRead_2, [](std::u16string_view section, std::u16string_view key) {
    return string_value(ini_read(section, key, u"", u""));
})
KP_BIND(INIRead_3, [](std::u16string_view section, std::u16string_view key, std::u16string_view fallback) {
    return string_value(ini_read(section, key, fallback, u""));
})
KP_BIND(INIRead_4,
        [](std::u16string_view section, std::u16string_view key, std::u16string_view fallback,
           std::u16string_view file) { return string_value(ini_read(section, key, fallback, file)); })

KP_BIND(INIWrite_1,
        [](std::u16string_view section, CXError& err) { return ini_write(section, u"", u"", u"", err); })
KP_BIND(INIWrite_2, [](std::u16string_view section, std::u16string_view key, CXError& err) {
    return ini_write(section, key, u"", u"", err);
})
KP_BIND(INIWrite_3, [](std::u16string_view section, std::u16string_view key, std::u16string_view value,
                       CXError& err) { return ini_write(section, key, value, u"", err); })
KP_BIND(INIWrite_4,
        [](std::u16string_view section, std::u16string_view key, std::u16string_view value,
           std::u16string_view file, CXError& err) { return ini_write(section, key, value, file, err); })
KP_BIND(INIWrite_5, [](std::u16string_view section, std::u16string_view key, int32_t value, CXError& err) {
    return !refused(value, key, err) && ini_write(section, key, u"", u"", err);
})
KP_BIND(INIWrite_6,
        [](std::u16string_view section, std::u16string_view key, int32_t value, std::u16string_view file,
           CXError& err) { return !refused(value, key, err) && ini_write(section, key, u"", file, err); })
KP_BIND(INIWrite_7,
        [](std::u16string_view section, int32_t key, int32_t value, std::u16string_view file, CXError& err) {
            return !refused(key, section, err) && !refused(value, section, err) &&
                   ini_write(section, u"", u"", file, err);
        })
// Three integers: all 0 does nothing and succeeds.
KP_BIND(INIWrite_8, [](int32_t section, int32_t key, int32_t value, std::u16string_view file, CXError& err) {
    return !refused(section, file, err) && !refused(key, file, err) && !refused(value, file, err);
})

} // namespace kp::handlers
