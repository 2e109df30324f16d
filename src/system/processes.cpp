// processes.cpp - starting programs and documents, counting, listing and
// stopping processes, shared objects of a process, executable information.
#include "system/processes.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>
#include <vector>

#include "component/runtime.h"
#include "platform/codepage.h"
#include "platform/command_line.h"
#include "platform/files.h"
#include "platform/paths.h"
#include "platform/processes.h"
#include "platform/shell.h"
#include "platform/unicode_text.h"
#include "platform/win32_error.h"
#include "system/pe_version.h"

namespace kp::system {

namespace {

constexpr uint32_t kErrProcessList = 80100;
constexpr uint32_t kErrProcessOpen = 80101;
constexpr uint32_t kErrCannotStart = 80400;
constexpr uint32_t kErrNotAbsolute = 80600;
// How long ExeTerminate waits, in all, for the processes it stopped to end
// (milliseconds): a process the kernel cannot end at once (in an
// uninterruptible wait) is left ending.
constexpr int64_t kStopBound = 2000;
// Longest module path the calling program's own path is cut to.
constexpr std::size_t kMaxModulePath = 260;

bool is_separator(char16_t c) {
    return c == u'\\' || c == u'/';
}

bool same_ignoring_case(std::u16string_view a, std::u16string_view b) {
    if (a.size() != b.size()) return false;
    for (std::size_t i = 0; i < a.size(); ++i) {
        char16_t x = a[i], y = b[i];
        if (x == y) continue;
        if (is_separator(x) && is_separator(y)) continue;
        if (platform::fold_case(x) != platform::fold_case(y)) return false;
    }
    return true;
}

// How the VM is told about a call that blocks the program thread.
struct BlockingNotice {
    BlockingNotice() {
        if (auto begin = runtime::service(&kp_services::begin_blocking)) begin(runtime::vm());
    }
    ~BlockingNotice() {
        if (auto end = runtime::service(&kp_services::end_blocking)) end(runtime::vm());
    }
    BlockingNotice(const BlockingNotice&) = delete;
    BlockingNotice& operator=(const BlockingNotice&) = delete;
};

// A process's module as the functions show it, and where its file name
// begins (command names are file names as a whole).
struct ShownModule {
    std::u16string path;
    std::size_t name_start = 0;
};

ShownModule shown_module(const platform::ProcessEntry& e, const std::string& root) {
    ShownModule m;
    if (!e.module_is_path) {
        m.path = platform::from_utf8(e.module);
        return m;
    }
    m.path = platform::device_name_of(root, e.module);
    if (m.path.empty()) m.path = platform::from_utf8(e.module);
    std::size_t sep = m.path.find_last_of(u"\\/");
    m.name_start = sep == std::u16string::npos ? 0 : sep + 1;
    return m;
}

// Drive, directory, name and extension of a shown module.
PathParts module_parts(const ShownModule& m) {
    if (m.name_start > 0) return split_path(m.path);
    PathParts p;
    std::u16string_view file(m.path);
    std::size_t dot = file.rfind(u'.');
    p.name = dot == std::u16string_view::npos ? file : file.substr(0, dot);
    p.extension = dot == std::u16string_view::npos ? std::u16string_view() : file.substr(dot);
    return p;
}

// The script a process runs, shown as its module would be; nullopt when
// the process runs no script.
std::optional<ShownModule> shown_script(const platform::ProcessEntry& e, const std::string& root) {
    if (!e.module_is_path) return std::nullopt;
    platform::ProcessEntry script;
    script.module = platform::process_script(e.pid, e.module);
    if (script.module.empty()) return std::nullopt;
    script.module_is_path = true;
    return shown_module(script, root);
}

std::u16string_view file_name(const PathParts& p, std::u16string_view whole) {
    // Name and extension are adjacent in the path they were cut from.
    const std::size_t start = static_cast<std::size_t>(p.name.data() - whole.data());
    return whole.substr(start, p.name.size() + p.extension.size());
}

// A file read through the device's file service.
class DeviceFile : public ByteSource {
  public:
    explicit DeviceFile(std::u16string_view name)
        : h_(platform::create_file(name, platform::kGenericRead, platform::kShareRead | platform::kShareWrite,
                                   platform::kOpenExisting, 0)) {}
    ~DeviceFile() override {
        if (h_ != platform::kInvalidFile) platform::close_file(h_);
    }
    DeviceFile(const DeviceFile&) = delete;
    DeviceFile& operator=(const DeviceFile&) = delete;
    bool read(uint64_t offset, void* out, std::size_t count) override {
        if (h_ == platform::kInvalidFile || count > UINT32_MAX) return false;
        uint32_t done = 0;
        return platform::read_file_at(h_, offset, out, static_cast<uint32_t>(count), &done) && done == count;
    }

  private:
    platform::FileHandle h_;
};

// The calling program's own executable, wherever it lies.
class OwnExecutable : public ByteSource {
  public:
    OwnExecutable() : file_(platform::own_executable()) {}
    bool read(uint64_t offset, void* out, std::size_t count) override {
        return file_.read(offset, out, count);
    }

  private:
    platform::HostFile file_;
};

} // namespace

// --- ExeRun ----------------------------------------------------------------

CommandLine parse_command_line(std::u16string_view line) {
    line = line.substr(0, line.find(u'\0'));
    CommandLine out;
    std::size_t end; // the character that ends the program path
    if (!line.empty() && line.front() == u'"') {
        std::size_t close = line.find(u'"', 1);
        end = close == std::u16string_view::npos ? line.size() : close + 1;
    } else {
        end = line.find(u' ');
        if (end == std::u16string_view::npos) end = line.size();
    }
    std::u16string_view program = line.substr(0, end);
    if (end < line.size()) {
        out.has_arguments = true;
        out.arguments.assign(line.substr(end + 1));
    }
    if (!program.empty() && program.front() == u'"') program.remove_prefix(1);
    if (!program.empty() && program.back() == u'"') program.remove_suffix(1);
    out.program.assign(program);
    return out;
}

namespace {

// Resolves the program and its arguments for the host; false with the
// last error set.
bool prepare(const CommandLine& cl, platform::ProgramFile& program, std::vector<std::string>& args) {
    if (cl.arguments.size() > platform::kMaxArgumentString) {
        platform::set_last_error(platform::kErrorFilenameExcedRange);
        return false;
    }
    // The program is found beneath the device root, links resolved there,
    // and started from the file that resolution opened.
    if (!platform::open_program(cl.program, program)) return false;
    args.clear();
    if (cl.has_arguments)
        for (const std::u16string& a : platform::split_arguments(cl.arguments))
            args.push_back(platform::to_utf8(a));
    return true;
}

} // namespace

int32_t exe_run(std::u16string_view command_line, int32_t wait_mode, CXError& err) {
    platform::collect_children();
    command_line = command_line.substr(0, command_line.find(u'\0'));
    const CommandLine cl = parse_command_line(command_line);
    if (!platform::is_absolute_device_name(cl.program)) {
        err.fail(kErrNotAbsolute, {cl.program});
        return 0;
    }
    BlockingNotice notice;
    const bool wait = wait_mode == kExeWait || wait_mode == kExeReturnValue;
    platform::ProgramFile program;
    std::vector<std::string> args;
    platform::ChildProcess child;
    int32_t pid = 0;
    bool started = prepare(cl, program, args);
    if (started && wait) {
        started = platform::start_process(program, args, child);
        pid = child.pid();
    } else if (started) {
        pid = platform::start_background_process(program, args);
        started = pid > 0;
    }
    if (!started) {
        const uint32_t code = platform::last_error();
        err.fail(kErrCannotStart, {command_line, system_error_text(code, runtime::french())});
        err.set_system(code);
        return 0;
    }
    uint32_t exit_code = platform::kStillActive;
    if (wait) {
        // Waits in slices of 10 ms, handing one event of the VM's user
        // interface to the VM between slices; other input waits (and is
        // dropped by the VM) until the program ends.
        auto pump = runtime::service(&kp_services::pump_message);
        while (exit_code == platform::kStillActive) {
            exit_code = child.wait(10);
            const bool handled = pump && pump(runtime::vm()) != 0;
            if (!handled && exit_code == platform::kStillActive) platform::pause_milliseconds(1);
        }
    }
    if (wait_mode == kExeReturnValue) return static_cast<int32_t>(exit_code);
    if (wait_mode == kExePid) return pid;
    return 1;
}

// --- ShellExecute ----------------------------------------------------------

namespace {

uint32_t shell_error(int32_t result) {
    switch (result) {
    case 2:
    case 3:
    case 32:
        return 80102;
    case 5:
        return 80104;
    case 8:
        return 80107;
    case 11:
        return 80103;
    case 26:
        return 80108;
    case 27:
    case 31:
        return 80105;
    case 29:
    case 30:
        return 80106;
    default:
        return 0;
    }
}

} // namespace

bool shell_execute(std::u16string_view document, std::optional<std::u16string_view> verb, CXError& err) {
    if (document.empty()) return false;
    int32_t result;
    std::string path;
    bool exists = false;
    if (!platform::resolve_host_path(document, path, exists)) {
        result = platform::last_error() == platform::kErrorPathNotFound ? 3 : 2;
    } else {
        // The program starts in the document's directory.
        std::string directory;
        std::size_t slash = path.rfind('/');
        if (slash != std::string::npos) directory = slash == 0 ? "/" : path.substr(0, slash);
        if (verb) {
            std::string v = platform::to_utf8(*verb);
            result = platform::shell_open(path, directory, v.empty() ? nullptr : v.c_str());
        } else {
            result = platform::shell_open(path, directory, "open");
            if (result < 32) result = platform::shell_open(path, directory, nullptr);
        }
    }
    if (result > 32) return true;
    if (uint32_t id = shell_error(result)) err.fail(id);
    return false;
}

// --- Process list ----------------------------------------------------------

PathParts split_path(std::u16string_view path) {
    PathParts p;
    if (path.size() >= 2 && path[1] == u':') {
        p.drive = path.substr(0, 2);
        path.remove_prefix(2);
    }
    std::size_t sep = path.find_last_of(u"\\/");
    std::u16string_view file = path;
    if (sep != std::u16string_view::npos) {
        p.directory = path.substr(0, sep + 1);
        file = path.substr(sep + 1);
    }
    std::size_t dot = file.rfind(u'.');
    p.name = dot == std::u16string_view::npos ? file : file.substr(0, dot);
    p.extension = dot == std::u16string_view::npos ? file.substr(file.size()) : file.substr(dot);
    return p;
}

std::u16string own_module_path() {
    platform::ProcessEntry self;
    self.module = platform::own_executable();
    self.module_is_path = true;
    std::u16string path = shown_module(self, platform::device_root()).path;
    if (path.size() > kMaxModulePath) path.resize(kMaxModulePath);
    return path;
}

int32_t exe_running(std::optional<std::u16string_view> program, CXError& err) {
    const std::u16string own = program ? std::u16string() : own_module_path();
    const std::u16string_view path = program ? *program : std::u16string_view(own);
    const PathParts wanted = split_path(path);
    platform::collect_children();
    std::vector<platform::ProcessEntry> list;
    if (!platform::list_processes(list)) {
        err.fail(kErrProcessList);
        return -1;
    }
    const std::string root = platform::device_root();
    // Counted by name: the extension is not compared.
    auto matches = [&](const ShownModule& m) {
        const PathParts p = module_parts(m);
        return same_ignoring_case(p.name, wanted.name) &&
               (wanted.directory.empty() || same_ignoring_case(p.directory, wanted.directory));
    };
    int32_t count = 0;
    for (const platform::ProcessEntry& e : list) {
        // A script counts by its own name as well as by its interpreter's.
        if (matches(shown_module(e, root))) {
            ++count;
        } else if (std::optional<ShownModule> script = shown_script(e, root)) {
            if (matches(*script)) ++count;
        }
    }
    return count;
}

bool exe_terminate(std::u16string_view program, CXError& err) {
    const PathParts wanted = split_path(program);
    const std::u16string_view wanted_file = file_name(wanted, program);
    const std::string root = platform::device_root();
    const int32_t self = platform::own_process_id();
    auto matches = [&](const ShownModule& m) {
        const PathParts p = module_parts(m);
        return same_ignoring_case(file_name(p, m.path), wanted_file) &&
               (wanted.directory.empty() || same_ignoring_case(p.directory, wanted.directory));
    };
    bool includes_self = false;
    // The processes of the program but this one, from a fresh list; false
    // when the list cannot be taken.
    auto find_targets = [&](std::vector<int32_t>& targets) {
        targets.clear();
        platform::collect_children();
        std::vector<platform::ProcessEntry> list;
        if (!platform::list_processes(list)) return false;
        for (const platform::ProcessEntry& e : list) {
            // A script is stopped by its own name as well (its interpreter's
            // process).
            if (!matches(shown_module(e, root))) {
                std::optional<ShownModule> script = shown_script(e, root);
                if (!script || !matches(*script)) continue;
            }
            if (e.pid == self)
                includes_self = true;
            else
                targets.push_back(e.pid);
        }
        return true;
    };
    std::vector<int32_t> targets;
    if (!find_targets(targets)) {
        err.fail(kErrProcessList);
        return false;
    }
    // A process that has ended since the list was taken (or ends before
    // its stop) is not stopped again and does not count.  Every stop waits
    // for its process to end, all of them within kStopBound.  A process
    // being stopped may have forked a copy of itself that has not started
    // another program yet (a shell running a script does so for each
    // command): it shows under the same name, so the list is taken again
    // after each pass that stopped something, until a pass finds nothing
    // left to stop or the bound has passed.
    const int64_t deadline = platform::steady_milliseconds() + kStopBound;
    bool stopped = false;
    for (;;) {
        bool stopped_now = false;
        for (int32_t pid : targets)
            if (platform::open_process(pid) == platform::ProcessAccess::Running)
                stopped_now = platform::kill_process(pid, deadline) || stopped_now;
        stopped = stopped || stopped_now;
        if (!stopped_now || platform::steady_milliseconds() >= deadline || !find_targets(targets)) break;
    }
    // The calling program, when it matches, is stopped after the others.
    if (includes_self && platform::open_process(self) == platform::ProcessAccess::Running)
        stopped = platform::kill_process(self, deadline) || stopped;
    return stopped;
}

bool exe_terminate(int32_t pid, CXError& err) {
    platform::collect_children();
    switch (platform::open_process(pid)) {
    case platform::ProcessAccess::Ended:
        return true;
    case platform::ProcessAccess::Running:
        if (platform::kill_process(pid, platform::steady_milliseconds() + kStopBound)) return true;
        err.set_system(platform::last_error());
        err.set_severity(KP_SEVERITY_ERROR);
        return false;
    default: {
        const uint32_t code = platform::last_error();
        err.fail(kErrProcessOpen);
        err.set_system(code);
        return false;
    }
    }
}

std::u16string exe_list_process(std::span<const int32_t> selectors, CXError& err) {
    std::vector<int32_t> columns;
    for (int32_t s : selectors) {
        if (s == -1) break;
        columns.push_back(s);
    }
    platform::collect_children();
    std::vector<platform::ProcessEntry> list;
    if (!platform::list_processes(list)) {
        err.fail(kErrProcessList);
        return {};
    }
    const std::string root = platform::device_root();
    std::u16string out;
    out.reserve(list.size() * 24);
    bool first_line = true;
    for (const platform::ProcessEntry& e : list) {
        if (!first_line) out += u"\r\n";
        first_line = false;
        std::optional<ShownModule> shown;
        for (std::size_t c = 0; c < columns.size(); ++c) {
            if (c > 0) out += u'\t';
            switch (columns[c]) {
            case 0:
            case 1: {
                if (!shown) shown = shown_module(e, root);
                std::u16string_view text(shown->path);
                if (columns[c] == 0)
                    text.remove_prefix(shown->name_start);
                else if (text.substr(0, 4) == u"\\??\\")
                    text.remove_prefix(4);
                out += text;
                break;
            }
            case 3: {
                char buf[16];
                int n = std::snprintf(buf, sizeof buf, "%d", e.pid);
                out.append(buf, buf + n);
                break;
            }
            default:
                break;
            }
        }
    }
    return out;
}

std::u16string exe_list_dll(int32_t pid, CXError& err) {
    std::vector<std::string> objects;
    if (!platform::process_shared_objects(pid, objects)) {
        const uint32_t code = platform::last_error();
        err.fail(kErrProcessOpen);
        err.set_system(code);
        return {};
    }
    std::u16string out;
    for (const std::string& path : objects) {
        if (!out.empty()) out += u"\r\n";
        std::size_t slash = path.rfind('/');
        out += platform::from_utf8(slash == std::string::npos ? path : path.substr(slash + 1));
    }
    return out;
}

// --- ExeInfo ---------------------------------------------------------------

namespace {

enum class Item { Name, Directory, Copyright, Version, Description, Mode, Company, Other };

struct KeyRow {
    std::u16string_view french, english;
    Item item;
    std::u16string_view version_name;
};
constexpr std::array<KeyRow, 7> kKeys = {{
    {u"NOM", u"NAME", Item::Name, u""},
    {u"REPERTOIRE", u"DIRECTORY", Item::Directory, u""},
    {u"COPYRIGHT", u"COPYRIGHT", Item::Copyright, u"LegalCopyright"},
    {u"VERSION", u"VERSION", Item::Version, u"FileVersion"},
    {u"DESCRIPTION", u"DESCRIPTION", Item::Description, u"FileDescription"},
    {u"MODE", u"MODE", Item::Mode, u""},
    {u"SOCIETE", u"COMPANY", Item::Company, u"CompanyName"},
}};

// "é" becomes "E", then the key is upper-cased.
std::u16string fold_key(std::u16string_view key) {
    std::u16string out(key);
    for (char16_t& c : out)
        c = c == u'\u00E9' ? u'E' : platform::to_upper(c);
    return out;
}

// The directory of a path: up to the last separator (excluded), else up
// to and including the last ":".  Both "\" and "/" separate, as in every
// device name.
std::u16string directory_of(std::u16string_view path) {
    std::size_t sep = path.find_last_of(u"\\/");
    if (sep != std::u16string_view::npos) return std::u16string(path.substr(0, sep));
    std::size_t colon = path.rfind(u':');
    if (colon != std::u16string_view::npos) return std::u16string(path.substr(0, colon + 1));
    return {};
}

} // namespace

std::u16string exe_info(std::u16string_view key, std::optional<std::u16string_view> path_arg, CXError&) {
    const std::u16string own = path_arg ? std::u16string() : own_module_path();
    const std::u16string_view path = path_arg ? *path_arg : std::u16string_view(own);
    const std::u16string folded = fold_key(key);
    const KeyRow* row = nullptr;
    for (const KeyRow& r : kKeys)
        if (folded == r.french || folded == r.english) row = &r;
    const Item item = row ? row->item : Item::Other;
    if (item == Item::Name) return std::u16string(path);
    if (item == Item::Directory) return directory_of(path);

    std::unique_ptr<ByteSource> file;
    if (path_arg)
        file = std::make_unique<DeviceFile>(path);
    else
        file = std::make_unique<OwnExecutable>();
    if (item == Item::Mode) return std::u16string(executable_kind_text(executable_kind(*file)));
    const std::u16string_view name = row ? row->version_name : key;
    // A name too long is refused before the file is read.
    if (name.size() > 50) return {};
    std::vector<uint8_t> block;
    if (!read_version_resource(*file, block)) return {};
    return version_value(block, name);
}

} // namespace kp::system
