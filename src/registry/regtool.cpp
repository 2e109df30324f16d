// regtool.cpp - registry files against the registry store.
#include "registry/regtool.h"

#include <vector>

namespace kp::registry::regtool {

namespace store = platform::registry;
using store::Key;

namespace {

constexpr uint32_t kNotFound = 2, kNoMoreItems = 259;
constexpr std::u16string_view kRootNames[] = {u"HKEY_CLASSES_ROOT", u"HKEY_CURRENT_USER",
                                              u"HKEY_LOCAL_MACHINE", u"HKEY_USERS"};

Key root_key(int r) {
    return store::kClassesRoot + static_cast<Key>(r);
}

// One key's values, in enumeration order.
uint32_t gather_values(Key k, regfile::Key& out, std::vector<char16_t>& name) {
    for (uint32_t i = 0;; ++i) {
        regfile::Value v;
        uint32_t chars = static_cast<uint32_t>(name.size()), size = 0;
        uint32_t e = store::enum_value(k, i, name.data(), &chars, &v.type, nullptr, &size);
        if (e == kNoMoreItems) return 0;
        if (e) return e;
        v.name.assign(name.data(), chars);
        v.data.resize(size);
        chars = static_cast<uint32_t>(name.size());
        if ((e = store::enum_value(k, i, name.data(), &chars, &v.type, v.data.data(), &size))) return e;
        v.data.resize(size);
        out.values.push_back(std::move(v));
    }
}

uint32_t gather_tree(Key root, std::u16string_view subkey, std::u16string path, regfile::Document& doc) {
    struct Frame {
        Key key;
        std::u16string path;
        uint32_t next = 0;
    };
    Key start = 0;
    if (uint32_t e = store::open_key(root, subkey, store::kRead, &start)) return e;
    std::vector<Frame> stack{{start, std::move(path)}};
    std::vector<char16_t> name_buffer(16384);
    uint32_t err = 0;
    while (!stack.empty()) {
        Frame& f = stack.back();
        if (f.next == 0) {
            regfile::Key k;
            k.path = f.path;
            if ((err = gather_values(f.key, k, name_buffer))) break;
            doc.keys.push_back(std::move(k));
        }
        char16_t name[256];
        uint32_t chars = 256;
        uint32_t e = store::enum_key(f.key, f.next++, name, &chars);
        if (e == kNoMoreItems) {
            store::close_key(f.key);
            stack.pop_back();
            continue;
        }
        Frame child{0, f.path + u'\\' + std::u16string(name, chars)};
        if (e || (e = store::open_key(f.key, std::u16string_view(name, chars), store::kRead, &child.key))) {
            err = e;
            break;
        }
        stack.push_back(std::move(child));
    }
    for (Frame& f : stack)
        store::close_key(f.key);
    return err;
}

} // namespace

uint32_t delete_tree(Key root, std::u16string_view subkey) {
    std::vector<std::u16string> stack{std::u16string(subkey)};
    while (!stack.empty()) {
        Key k = 0;
        uint32_t e = store::open_key(root, stack.back(), store::kEnumerateSubKeys, &k);
        if (e == kNotFound && stack.size() == 1) return 0;
        if (e) return e;
        char16_t name[256];
        uint32_t chars = 256;
        e = store::enum_key(k, 0, name, &chars);
        store::close_key(k);
        if (!e) {
            stack.push_back(stack.back() + u'\\' + std::u16string(name, chars));
        } else if (e == kNoMoreItems) {
            if ((e = store::delete_key(root, stack.back()))) return e;
            stack.pop_back();
        } else {
            return e;
        }
    }
    return 0;
}

uint32_t gather(std::u16string_view path, regfile::Document& doc) {
    if (path.empty()) {
        for (int r = 0; r < 4; ++r)
            if (uint32_t e = gather_tree(root_key(r), u"", std::u16string(kRootNames[r]), doc)) return e;
        return 0;
    }
    std::u16string_view rest;
    int r = regfile::root_of(path, &rest);
    if (r < 0) return kNotFound;
    while (!rest.empty() && rest.back() == u'\\')
        rest.remove_suffix(1);
    std::u16string full(kRootNames[r]);
    if (!rest.empty()) full += u'\\' + std::u16string(rest);
    return gather_tree(root_key(r), rest, std::move(full), doc);
}

uint32_t apply(const regfile::Document& doc, std::u16string* where) {
    if (uint32_t e = store::begin_batch()) return e;
    uint32_t err = 0;
    for (const regfile::Key& k : doc.keys) {
        std::u16string_view rest;
        int r = regfile::root_of(k.path, &rest);
        if (r < 0) {
            err = kNotFound;
        } else if (k.remove) {
            err = delete_tree(root_key(r), rest);
        } else {
            Key h = 0;
            err = store::create_key(root_key(r), rest, store::kAllAccess, &h);
            for (std::size_t i = 0; !err && i < k.values.size(); ++i) {
                const regfile::Value& v = k.values[i];
                if (v.remove) {
                    err = store::delete_value(h, v.name);
                    if (err == kNotFound) err = 0;
                } else {
                    err = store::set_value(h, v.name, v.type, v.data.data(),
                                           static_cast<uint32_t>(v.data.size()));
                }
            }
            if (h) store::close_key(h);
        }
        if (err) {
            if (where) *where = k.path;
            break;
        }
    }
    uint32_t end = store::end_batch(err == 0);
    return err ? err : end;
}

} // namespace kp::registry::regtool
