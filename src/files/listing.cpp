// listing.cpp - directory walks and fDir's search.
#include "files/listing.h"

#include <vector>

#include "files/management.h"
#include "platform/directory.h"
#include "platform/files.h"
#include "platform/wildcard.h"
#include "platform/win32_error.h"

namespace kp::files {

namespace pf = kp::platform;

namespace {

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

// The walk's directory and mask, split as fExtractPath splits: drive and
// directory, then file name and extension.  No mask means every entry.
void split_walk_path(std::u16string_view path, std::u16string& directory, std::u16string& mask) {
    std::size_t cut = path.size();
    while (cut > 0 && !is_separator(path[cut - 1]))
        --cut;
    directory.assign(path.substr(0, cut));
    mask.assign(path.substr(cut));
    if (directory.empty()) directory = u"\\";
    if (mask.empty()) mask = u"*";
}

struct Walker {
    WalkKind kind;
    int32_t options;
    const pf::WildcardPattern& pattern;
    const WalkVisitor& visit;
    const WalkInterrupt& interrupted;
    int32_t count = 0;
    bool stop = false;
    // Directories on the way down, to leave a link that leads back up.
    std::vector<std::pair<uint64_t, uint64_t>> path;

    bool hidden(const pf::DirectoryReader& r, std::size_t i) const {
        pf::FileInfo info;
        return r.info(i, info) && (info.attributes & pf::kAttributeHidden);
    }

    // False when the directory cannot be read (the first one's failure is
    // the walk's; below it the directory is left out and the walk goes on).
    bool directory(const std::u16string& dir) {
        pf::DirectoryReader r;
        if (!r.open(dir)) return false;
        for (const auto& id : path)
            if (id.first == r.device_id() && id.second == r.inode()) return true; // met on the way down
        path.emplace_back(r.device_id(), r.inode());
        const auto& entries = r.entries();
        std::vector<std::size_t> below;
        const bool interruptible = (options & kFrInterruptible) != 0;
        for (std::size_t i = 0; i < entries.size() && !stop; ++i) {
            if (interruptible && interrupted && interrupted()) {
                stop = true;
                break;
            }
            const pf::DirectoryEntry& e = entries[i];
            if (e.directory && (options & kFrNoHiddenDirectory) && hidden(r, i)) continue; // nor entered
            if (e.directory && !e.link) below.push_back(i); // links to folders are listed, not entered
            if (e.directory != (kind == WalkKind::Directories) || !pattern.matches(e.name)) continue;
            if (!e.directory && (options & kFrNoHiddenFile) && hidden(r, i)) continue;
            if (options & kFrReadOnly) {
                pf::FileInfo info;
                if (!r.info(i, info) || !(info.attributes & pf::kAttributeReadOnly)) continue;
            }
            ++count;
            if (!visit(dir, e.name, count, 0)) stop = true;
        }
        if (!(options & kFrNotRecursive)) {
            for (std::size_t i : below) {
                if (stop) break;
                directory(dir + entries[i].name + u'\\');
            }
        }
        path.pop_back();
        return true;
    }
};

} // namespace

// The walk is recursive unless the options hold frNotRecursive.  Filters:
// frNoHiddenFile leaves hidden files out, frNoHiddenDirectory leaves hidden
// directories out and does not enter them, frReadOnly keeps only read-only
// entries.  Within a directory the entries come in name order, the
// directories below follow once the directory's own entries are done.  A
// directory that cannot be read below the first one (no permission, a name
// grown too long) is left out; a symbolic link to a folder is listed as a
// folder but not entered, and a folder met again on the way down (a bind
// mount) is not entered twice.  With frInterruptible, Escape
// ends the walk between entries; the result is then the count so far.
int32_t walk(std::u16string_view path, WalkKind kind, int32_t user, int32_t options, const WalkVisitor& visit,
             const WalkInterrupt& interrupted, CXError& err) {
    if (refuse_relative(path, err)) return 0;
    std::u16string dir, mask;
    split_walk_path(path, dir, mask);
    pf::WildcardPattern pattern(mask);
    // The key state is read once before the walk, so that a press from
    // before it does not count.
    if ((options & kFrInterruptible) && interrupted) interrupted();
    WalkVisitor with_user = [&](std::u16string_view d, std::u16string_view n, int32_t number, int32_t) {
        return visit(d, n, number, user);
    };
    Walker w{kind, options, pattern, with_user, interrupted, 0, false, {}};
    if (!w.directory(dir)) {
        report_system_error(err);
        return 0;
    }
    return w.count;
}

std::u16string walk_text(std::u16string_view path, WalkKind kind, int32_t options,
                         const WalkInterrupt& interrupted, CXError& err) {
    std::u16string out;
    const bool full = (options & kFrFullInformation) != 0;
    WalkVisitor collect = [&](std::u16string_view d, std::u16string_view n, int32_t, int32_t) {
        if (!out.empty()) out += u"\r\n";
        std::size_t start = out.size();
        out += d;
        out += n;
        if (full) {
            pf::FileInfo info;
            uint32_t a =
                pf::get_file_info(std::u16string_view(out).substr(start), info) ? info.attributes : 0;
            out += u'\t';
            out += attribute_letters(a);
        }
        return true;
    };
    walk(path, kind, 0, options, collect, interrupted, err);
    return out;
}

namespace {
// fDir's search, kept from call to call for the component's lifetime.
struct DirSearch {
    pf::FileSearch search;
    std::u16string directory;
    int32_t kind = kFrFile;
};
DirSearch& dir_search() {
    static DirSearch s;
    return s;
}

// fDir's kind: with the directory bit (frDirectory) it returns directories
// only, otherwise files only; hidden and system entries only when the kind
// holds their bits (both frFile and frDirectory do).
bool wanted(const pf::FileInfo& info, int32_t kind) {
    const bool dir = (info.attributes & pf::kAttributeDirectory) != 0;
    if (dir != ((kind & pf::kAttributeDirectory) != 0)) return false;
    if ((info.attributes & pf::kAttributeHidden) && !(kind & pf::kAttributeHidden)) return false;
    if ((info.attributes & pf::kAttributeSystem) && !(kind & pf::kAttributeSystem)) return false;
    return true;
}
} // namespace

// fDir returns full device names.
std::u16string f_dir(std::u16string_view pattern, int32_t kind, CXError& err) {
    DirSearch& s = dir_search();
    pf::FileInfo info;
    bool ok;
    if (!pattern.empty()) {
        s.search.close();
        if (refuse_relative(pattern, err)) return {};
        std::u16string_view d, m;
        pf::split_device_name(pattern, d, m);
        s.directory.assign(d);
        s.kind = kind;
        ok = s.search.first(pattern, info);
        if (!ok) {
            if (pf::last_error() != pf::kErrorFileNotFound) report_system_error(err);
            return {};
        }
    } else {
        if (!s.search.active()) return {};
        ok = s.search.next(info);
    }
    while (ok && !wanted(info, s.kind))
        ok = s.search.next(info);
    if (!ok) {
        s.search.close();
        return {};
    }
    return s.directory + info.name;
}

} // namespace kp::files
