// shell_unix.cpp - documents opened through GIO's application associations.
#include <gio/gdesktopappinfo.h>
#include <gio/gio.h>
#include <sys/stat.h>

#include <cstring>
#include <memory>

#include "platform/shell.h"

namespace kp::platform {

namespace {

struct Unref {
    void operator()(gpointer p) const {
        if (p) g_object_unref(p);
    }
};
template <typename T> using Ref = std::unique_ptr<T, Unref>;
struct FreeKeyFile {
    void operator()(GKeyFile* k) const {
        if (k) g_key_file_free(k);
    }
};
struct FreeText {
    void operator()(gchar* s) const { g_free(s); }
};
using Text = std::unique_ptr<gchar, FreeText>;

constexpr char kEntry[] = "Desktop Entry";

bool equal_ascii_case(const char* a, const char* b) {
    return g_ascii_strcasecmp(a, b) == 0;
}

// The action of the entry named `verb`, or null.
Text find_action(GDesktopAppInfo* app, const char* verb) {
    const gchar* const* actions = g_desktop_app_info_list_actions(app);
    for (const gchar* const* a = actions; a && *a; ++a)
        if (std::strcmp(*a, verb) == 0) return Text(g_strdup(*a));
    for (const gchar* const* a = actions; a && *a; ++a)
        if (equal_ascii_case(*a, verb)) return Text(g_strdup(*a));
    return nullptr;
}

// The entry to launch: the application's own desktop entry with the
// action's command as its command and the document's directory as its
// working directory when it names none.  Null when the entry cannot be
// read or made into an application.
GDesktopAppInfo* entry_for(GDesktopAppInfo* app, const char* action, const std::string& directory) {
    const char* file = g_desktop_app_info_get_filename(app);
    if (!file) return nullptr;
    std::unique_ptr<GKeyFile, FreeKeyFile> keys(g_key_file_new());
    if (!g_key_file_load_from_file(keys.get(), file, G_KEY_FILE_KEEP_TRANSLATIONS, nullptr)) return nullptr;
    if (action) {
        Text group(g_strconcat("Desktop Action ", action, nullptr));
        Text exec(g_key_file_get_string(keys.get(), group.get(), "Exec", nullptr));
        if (!exec) return nullptr;
        g_key_file_set_string(keys.get(), kEntry, "Exec", exec.get());
    }
    if (!directory.empty() && !g_key_file_has_key(keys.get(), kEntry, "Path", nullptr))
        g_key_file_set_string(keys.get(), kEntry, "Path", directory.c_str());
    // Started as a program of its own, not activated over the session bus.
    g_key_file_remove_key(keys.get(), kEntry, "DBusActivatable", nullptr);
    return g_desktop_app_info_new_from_keyfile(keys.get());
}

} // namespace

int32_t shell_open(const std::string& document, const std::string& directory, const char* verb) {
    struct stat st;
    if (stat(document.c_str(), &st) != 0) {
        struct stat dir;
        return directory.empty() || stat(directory.c_str(), &dir) == 0 ? 2 : 3;
    }
    Ref<GFile> file(g_file_new_for_path(document.c_str()));
    Ref<GFileInfo> info(g_file_query_info(file.get(), G_FILE_ATTRIBUTE_STANDARD_CONTENT_TYPE,
                                          G_FILE_QUERY_INFO_NONE, nullptr, nullptr));
    if (!info) return 2;
    const char* type = g_file_info_get_content_type(info.get());
    if (!type) return 31;
    Ref<GAppInfo> app(g_app_info_get_default_for_type(type, FALSE));
    if (!app) return 31;

    const bool main_command = !verb || !*verb || equal_ascii_case(verb, "open");
    Ref<GAppInfo> run;
    if (G_IS_DESKTOP_APP_INFO(app.get())) {
        auto* desktop = G_DESKTOP_APP_INFO(app.get());
        Text action;
        if (!main_command) {
            action = find_action(desktop, verb);
            if (!action) return 31;
        }
        run.reset(G_APP_INFO(entry_for(desktop, action.get(), directory)));
        if (!run) return 5;
    } else {
        if (!main_command) return 31;
        run.reset(G_APP_INFO(g_object_ref(app.get())));
    }
    GList files{file.get(), nullptr, nullptr};
    GError* error = nullptr;
    gboolean ok = g_app_info_launch(run.get(), &files, nullptr, &error);
    if (error) g_error_free(error);
    return ok ? kShellOpened : 5;
}

} // namespace kp::platform
