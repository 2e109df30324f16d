// paths.cpp - device names resolved under the device root, without regard
// to case.
#include "platform/paths.h"

#include <cerrno>
#include <dirent.h>
#include <sys/stat.h>
#include <unicode/uchar.h>
#include <unicode/ustring.h>

#include <vector>

#include "platform/codepage.h"
#include "platform/win32_error.h"

namespace kp::platform {

namespace {

constexpr std::size_t kMaxComponentBytes = 255;

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// 0 when the name may be handed to the host, else the Win32 code.
uint32_t check_name(std::u16string_view name, bool allow_wildcards) {
    if (name.empty()) return kErrorPathNotFound;
    if (name.size() > kMaxDeviceName) return kErrorFilenameExcedRange;
    for (std::size_t i = 0; i < name.size(); ++i) {
        char16_t c = name[i];
        if (c < 0x20 || c == u'<' || c == u'>' || c == u'|' || c == u'"') return kErrorInvalidName;
        if (!allow_wildcards && (c == u'*' || c == u'?')) return kErrorInvalidName;
        if (c >= 0xD800 && c <= 0xDBFF) {
            if (i + 1 >= name.size() || name[i + 1] < 0xDC00 || name[i + 1] > 0xDFFF)
                return kErrorInvalidName;
            ++i;
        } else if (c >= 0xDC00 && c <= 0xDFFF) {
            return kErrorInvalidName;
        }
    }
    return 0;
}

bool same_without_case(std::u16string_view a, std::u16string_view b) {
    UErrorCode st = U_ZERO_ERROR;
    int r = u_strCaseCompare(reinterpret_cast<const UChar*>(a.data()), static_cast<int32_t>(a.size()),
                             reinterpret_cast<const UChar*>(b.data()), static_cast<int32_t>(b.size()),
                             U_FOLD_CASE_DEFAULT, &st);
    return U_SUCCESS(st) && r == 0;
}

// The entry of `dir` that equals `name` without regard to case; the
// smallest in byte order when several do.  Empty when none.
std::string find_without_case(const std::string& dir, std::u16string_view name) {
    DIR* d = opendir(dir.empty() ? "/" : dir.c_str());
    if (!d) return {};
    std::string best;
    while (dirent* e = readdir(d)) {
        std::string_view entry(e->d_name);
        if (entry == "." || entry == "..") continue;
        if (!same_without_case(from_utf8(entry), name)) continue;
        if (best.empty() || entry < best) best = entry;
    }
    closedir(d);
    return best;
}

bool is_directory(const std::string& path) {
    struct stat st;
    return stat(path.empty() ? "/" : path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

} // namespace

bool is_absolute_device_name(std::u16string_view name) {
    if (name.empty()) return false;
    return is_separator(name.front()) || name.back() == u':';
}

bool resolve_device_name(std::string_view root_in, std::u16string_view name, ResolvedName& out,
                         uint32_t* error, bool allow_wildcards) {
    out = ResolvedName{};
    if (uint32_t e = check_name(name, allow_wildcards)) {
        if (error) *error = e;
        return false;
    }
    std::string root(root_in);
    while (!root.empty() && root.back() == '/')
        root.pop_back();

    // Components, with "." dropped and ".." kept inside the root.
    std::vector<std::u16string_view> parts;
    std::size_t i = 0;
    while (i < name.size()) {
        while (i < name.size() && is_separator(name[i]))
            ++i;
        std::size_t j = i;
        while (j < name.size() && !is_separator(name[j]))
            ++j;
        std::u16string_view part = name.substr(i, j - i);
        i = j;
        if (part.empty() || part == u".") continue;
        if (part == u"..") {
            if (!parts.empty()) parts.pop_back();
            continue;
        }
        parts.push_back(part);
    }

    std::string path = root;
    bool dir_exists = is_directory(root);
    if (parts.empty()) {
        out.host_path = root.empty() ? "/" : root;
        out.parent_exists = dir_exists;
        out.exists = dir_exists;
        out.is_root = true;
        return true;
    }
    for (std::size_t k = 0; k < parts.size(); ++k) {
        bool last = k + 1 == parts.size();
        std::string written = to_utf8(parts[k]);
        if (written.size() > kMaxComponentBytes) {
            if (error) *error = kErrorFilenameExcedRange;
            return false;
        }
        if (last) out.parent_exists = dir_exists;
        if (!dir_exists) {
            path += "/" + written;
            continue;
        }
        struct stat st;
        std::string candidate = path + "/" + written;
        bool found = lstat(candidate.c_str(), &st) == 0;
        if (!found) {
            std::string match = find_without_case(path, parts[k]);
            if (!match.empty()) {
                candidate = path + "/" + match;
                found = true;
            }
        }
        path = candidate;
        if (last)
            out.exists = found;
        else
            dir_exists = found && is_directory(path);
    }
    out.host_path = path;
    return true;
}

bool resolve_device_name(std::u16string_view name, ResolvedName& out, bool allow_wildcards) {
    uint32_t e = 0;
    if (!resolve_device_name(device_root(), name, out, &e, allow_wildcards)) {
        set_last_error(e);
        return false;
    }
    return true;
}

bool resolve_entry(std::u16string_view name, ResolvedName& out, struct stat& st) {
    if (!resolve_device_name(name, out)) return false;
    uint32_t e = kErrorSuccess;
    if (out.is_root)
        e = kErrorAccessDenied;
    else if (!out.exists)
        e = out.parent_exists ? kErrorFileNotFound : kErrorPathNotFound;
    else if (lstat(out.host_path.c_str(), &st) != 0)
        e = win32_from_errno(errno);
    if (e == kErrorSuccess) return true;
    set_last_error(e);
    return false;
}

std::u16string device_name_of(std::string_view root_in, std::string_view host_path) {
    std::string_view root = root_in;
    while (!root.empty() && root.back() == '/')
        root.remove_suffix(1);
    if (host_path.substr(0, root.size()) != root) return {};
    std::string_view rest = host_path.substr(root.size());
    if (!rest.empty() && rest.front() != '/') return {};
    if (rest.empty()) return std::u16string(1, u'\\');
    std::u16string out = from_utf8(rest);
    for (char16_t& c : out)
        if (c == u'/') c = u'\\';
    return out;
}

} // namespace kp::platform
