// ShellExecute over a desktop of the test's own (MIME database and desktop entries in temporary
// XDG directories; no session bus, no display): nothing of the machine's desktop is launched.
#include <cstdlib>
#include <sstream>

#include "process_fixture.h"

namespace kp::process::test {
namespace {

// The desktop is set up before main: GLib reads its directories once.
struct Desktop {
    fs::path dir, log;
    bool ready = false;
    Desktop() {
        std::string tmpl = (fs::temp_directory_path() / "kp120-xdg-XXXXXX").string();
        if (!mkdtemp(tmpl.data())) return;
        dir = tmpl;
        log = dir / "launched.log";
        const fs::path data = dir / "data", config = dir / "config";
        write(data / "mime/packages/kp120-test.xml",
              R"(<?xml version="1.0" encoding="UTF-8"?>
<mime-info xmlns="http://www.freedesktop.org/standards/shared-mime-info">
  <mime-type type="application/x-kp120-test"><comment>test document</comment><glob pattern="*.kptest"/></mime-type>
  <mime-type type="application/x-kp120-orphan"><comment>no application</comment><glob pattern="*.kporphan"/></mime-type>
  <mime-type type="application/x-kp120-broken"><comment>broken application</comment><glob pattern="*.kpbroken"/></mime-type>
</mime-info>
)");
        const fs::path opener = dir / "opener.sh";
        write(opener, "#!/bin/sh\necho \"$1|$2|$(pwd)\" >> '" + log.string() + "'\n");
        fs::permissions(opener, fs::perms::owner_all);
        write(data / "applications/kp120-opener.desktop",
              "[Desktop Entry]\nType=Application\nName=kp120 test opener\nExec=" + opener.string() +
                  " open %f\nMimeType=application/x-kp120-test;\nActions=print;Edit;\n\n"
                  "[Desktop Action print]\nName=Print\nExec=" +
                  opener.string() + " print %f\n\n[Desktop Action Edit]\nName=Edit\nExec=" + opener.string() +
                  " edit %f\n");
        // Starts in a directory that does not exist: every launch fails.
        write(data / "applications/kp120-broken.desktop",
              "[Desktop Entry]\nType=Application\nName=kp120 broken\nExec=" + opener.string() +
                  " broken %f\nPath=" + (dir / "missing").string() +
                  "\nMimeType=application/x-kp120-broken;\n");
        write(config / "mimeapps.list",
              "[Default Applications]\napplication/x-kp120-test=kp120-opener.desktop\n"
              "application/x-kp120-broken=kp120-broken.desktop\n");
        const std::string update = "update-mime-database '" + (data / "mime").string() + "' >/dev/null 2>&1";
        if (std::system(update.c_str()) != 0) return;
        setenv("XDG_DATA_HOME", data.c_str(), 1);
        setenv("XDG_DATA_DIRS", data.c_str(), 1);
        setenv("XDG_CONFIG_HOME", config.c_str(), 1);
        setenv("XDG_CONFIG_DIRS", config.c_str(), 1);
        setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + (dir / "no-bus").string()).c_str(), 1);
        setenv("GIO_USE_VFS", "local", 1);
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP"})
            unsetenv(name);
        ready = true;
    }
    ~Desktop() {
        std::error_code ec;
        if (!dir.empty()) fs::remove_all(dir, ec);
    }
    static void write(const fs::path& p, const std::string& text) {
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << text;
    }
};
Desktop g_desktop;

class ShellTest : public ProcessTest {
  protected:
    void SetUp() override {
        if (!g_desktop.ready) GTEST_SKIP() << "update-mime-database (shared-mime-info) is needed";
        fs::remove(g_desktop.log);
        for (const char* name : {"a.kptest", "b.kporphan", "c.kpbroken"})
            put(std::string("docs/") + name, "document\n");
    }
    CallOutcome shell(const std::u16string& document, const char16_t* verb = nullptr) {
        std::vector<Value> args = {Value::string(document)};
        if (verb) args.push_back(Value::string(verb));
        return call("ShellExecute", args);
    }
    // The launches the opener saw, "verb|file|working directory" each.
    std::vector<std::string> launches(std::size_t expected) {
        std::vector<std::string> lines;
        eventually([&] {
            lines.clear();
            std::istringstream in(read_text(g_desktop.log));
            for (std::string line; std::getline(in, line);)
                lines.push_back(line);
            return lines.size() >= expected;
        });
        return lines;
    }
};

TEST_F(ShellTest, VerbsOfTheAssociatedApplication) {
    const std::string doc = host_path("docs/a.kptest").string(), docs = host_path("docs").string();
    // No verb or an empty one is "open", the entry's main command; verbs ignore case.
    const std::pair<const char16_t*, std::string> rows[] = {
        {nullptr, "open"},   {u"open", "open"},   {u"OPEN", "open"}, {u"", "open"},
        {u"print", "print"}, {u"Print", "print"}, {u"edit", "edit"}, {u"Edit", "edit"}};
    std::size_t n = 0;
    for (const auto& [verb, action] : rows) {
        SCOPED_TRACE(verb ? kp::host::utf8(verb) : "no verb");
        auto out = shell(u"\\docs\\a.kptest", verb);
        EXPECT_EQ(std::tie(out.result.b, out.error.severity), std::make_tuple(true, 1));
        auto lines = launches(++n);
        ASSERT_EQ(lines.size(), n);
        // The program starts in the document's directory.
        EXPECT_EQ(lines.back(), action + "|" + doc + "|" + docs);
    }
}

TEST_F(ShellTest, FailuresAndTheirErrors) {
    const std::tuple<std::u16string, const char16_t*, uint32_t> rows[] = {
        {u"\\docs\\a.kptest", u"explore", 80105}, // no action of that name
        {u"\\docs\\b.kporphan", nullptr, 80105},  // no application for the type
        {u"\\docs\\missing.kptest", nullptr, 80102},
        {u"\\nodir\\missing.kptest", nullptr, 80102},
        {u"\\docs\\a*.kptest", nullptr, 80102},
        {u"\\" + std::u16string(300, u'd'), nullptr, 80102},
        {u"\\docs\\c.kpbroken", nullptr, 80104}, // the application cannot start
        {u"", u"open", 0}};                      // an empty document: false, and no error
    for (const auto& [document, verb, id] : rows) {
        auto out = shell(document, verb);
        EXPECT_EQ(std::tie(out.result.b, out.error.id, out.error.severity),
                  std::make_tuple(false, id, id ? 2 : 1))
            << kp::host::utf8(document);
    }
    EXPECT_TRUE(read_text(g_desktop.log).empty()) << "nothing was launched";
}

} // namespace
} // namespace kp::process::test
