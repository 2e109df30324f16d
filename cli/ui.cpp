// ui.cpp - file selectors and key state of the kp120 command.
#include "ui.h"

#include <cstdio>
#include <new>
#include <set>
#include <string>
#include <termios.h>
#include <unistd.h>

#include "tr.h"
#include "wtf8.h"

namespace kp::cli {

using kp::host::utf8;
using kp::host::wtf8_to_utf16;

namespace {

struct UiState {
    lua_State* L = nullptr;
    const kp::host::Host* host = nullptr; // for the interface language of the messages
    int selector_ref = LUA_NOREF;
    std::set<int32_t> pressed; // keys pressed by the script, reported once
};

// Registry key of the UiState userdata.
char kUiKey;

UiState* ui_state(lua_State* L) {
    lua_rawgetp(L, LUA_REGISTRYINDEX, &kUiKey);
    auto* s = static_cast<UiState*>(lua_touserdata(L, -1));
    lua_pop(L, 1);
    return s;
}

const char* kind_name(int32_t kind) {
    switch (kind) {
    case 0:
        return "file";
    case 1:
        return "directory";
    default:
        return "filter";
    }
}

int call_selector(lua_State* L) {
    auto* state = static_cast<UiState*>(lua_touserdata(L, 1));
    auto* request = static_cast<const kp::host::SelectorRequest*>(lua_touserdata(L, 2));
    lua_rawgeti(L, LUA_REGISTRYINDEX, state->selector_ref);
    lua_createtable(L, 0, 3);
    lua_pushstring(L, kind_name(request->kind));
    lua_setfield(L, -2, "kind");
    lua_createtable(L, static_cast<int>(request->texts.size()), 0);
    for (std::size_t k = 0; k < request->texts.size(); ++k) {
        std::string t = utf8(request->texts[k]);
        lua_pushlstring(L, t.data(), t.size());
        lua_rawseti(L, -2, static_cast<lua_Integer>(k + 1));
    }
    lua_setfield(L, -2, "texts");
    lua_pushinteger(L, request->options);
    lua_setfield(L, -2, "options");
    lua_call(L, 1, 1);
    if (!lua_isnil(L, -1) && !lua_isstring(L, -1))
        luaL_error(L, "%s",
                   tr(*state->host, "kp.onselect: the selector must return a string or nil",
                      "kp.onselect : le sélecteur doit renvoyer une chaîne ou nil"));
    return 1;
}

std::u16string lua_selector(UiState& s, const kp::host::SelectorRequest& request) {
    lua_State* L = s.L;
    if (!lua_checkstack(L, 8)) return {};
    lua_pushcfunction(L, call_selector);
    lua_pushlightuserdata(L, &s);
    lua_pushlightuserdata(L, const_cast<kp::host::SelectorRequest*>(&request));
    if (lua_pcall(L, 2, 1, 0) != LUA_OK) {
        defer_error(L);
        return {};
    }
    std::u16string out;
    if (lua_isstring(L, -1)) {
        std::size_t n = 0;
        const char* p = lua_tolstring(L, -1, &n);
        wtf8_to_utf16(std::string_view(p, n), out);
    }
    lua_pop(L, 1);
    return out;
}

// A prompt on the terminal: the request on standard error, the answer read
// as a line from standard input.
std::u16string terminal_selector(const kp::host::SelectorRequest& request, int language) {
    if (language == 0) {
        static const char* const kFr[] = {"sélecteur de fichier", "sélecteur de répertoire",
                                          "sélecteur de filtre"};
        std::fprintf(stderr, "kp120: %s", kFr[request.kind == 0 ? 0 : request.kind == 1 ? 1 : 2]);
    } else {
        std::fprintf(stderr, "kp120: %s selector", kind_name(request.kind));
    }
    for (const std::u16string& t : request.texts)
        if (!t.empty()) std::fprintf(stderr, " [%s]", utf8(t).c_str());
    std::fprintf(stderr, "\n%s",
                 tr(language, "choice (empty line cancels): ", "choix (une ligne vide annule) : "));
    std::fflush(stderr);
    char line[4096];
    if (!std::fgets(line, sizeof line, stdin)) return {};
    std::string text(line);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    std::u16string out;
    wtf8_to_utf16(text, out);
    return out;
}

// Escape typed on the terminal since the previous query, read without
// waiting: the terminal is switched to non-canonical input for the read.
int32_t terminal_key(int32_t virtual_key) {
    if (virtual_key != 27 || !isatty(STDIN_FILENO)) return 0;
    termios old;
    if (tcgetattr(STDIN_FILENO, &old) != 0) return 0;
    termios raw = old;
    raw.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    raw.c_cc[VMIN] = 0;
    raw.c_cc[VTIME] = 0;
    if (tcsetattr(STDIN_FILENO, TCSANOW, &raw) != 0) return 0;
    bool escape = false;
    char buf[64];
    ssize_t n;
    while ((n = read(STDIN_FILENO, buf, sizeof buf)) > 0)
        for (ssize_t i = 0; i < n; ++i)
            if (buf[i] == 27) escape = true;
    tcsetattr(STDIN_FILENO, TCSANOW, &old);
    return escape ? 0x0001 : 0;
}

int kp_onselect(lua_State* L) {
    UiState* s = ui_state(L);
    if (!lua_isnoneornil(L, 1)) luaL_checktype(L, 1, LUA_TFUNCTION);
    if (s->selector_ref != LUA_NOREF) luaL_unref(L, LUA_REGISTRYINDEX, s->selector_ref);
    s->selector_ref = LUA_NOREF;
    if (!lua_isnoneornil(L, 1)) {
        lua_pushvalue(L, 1);
        s->selector_ref = luaL_ref(L, LUA_REGISTRYINDEX);
    }
    return 0;
}

int kp_presskey(lua_State* L) {
    lua_Integer vk = luaL_checkinteger(L, 1);
    if (vk < 0 || vk > 255)
        return luaL_error(L, "%s",
                          tr(*ui_state(L)->host, "kp.presskey: virtual keys are 0 to 255",
                             "kp.presskey : les touches virtuelles vont de 0 à 255"));
    ui_state(L)->pressed.insert(static_cast<int32_t>(vk));
    return 0;
}

int ui_gc(lua_State* L) {
    static_cast<UiState*>(lua_touserdata(L, 1))->~UiState();
    return 0;
}

} // namespace

void open_ui(lua_State* L, Session& session) {
    void* p = lua_newuserdatauv(L, sizeof(UiState), 0);
    auto* state = new (p) UiState;
    state->L = L;
    state->host = &session.host;
    lua_createtable(L, 0, 1);
    lua_pushcfunction(L, ui_gc);
    lua_setfield(L, -2, "__gc");
    lua_setmetatable(L, -2);
    lua_rawsetp(L, LUA_REGISTRYINDEX, &kUiKey);

    lua_getglobal(L, "kp");
    lua_pushcfunction(L, kp_onselect);
    lua_setfield(L, -2, "onselect");
    lua_pushcfunction(L, kp_presskey);
    lua_setfield(L, -2, "presskey");
    lua_pop(L, 1);

    const kp::host::Host& host = session.host;
    session.host.set_selector([state, &host](const kp::host::SelectorRequest& r) -> std::u16string {
        if (state->selector_ref != LUA_NOREF) return lua_selector(*state, r);
        if (isatty(STDIN_FILENO)) return terminal_selector(r, host.language());
        return {};
    });
    session.host.set_key_state([state](int32_t vk) -> int32_t {
        if (state->pressed.erase(vk)) return 0x0001;
        return terminal_key(vk);
    });
}

} // namespace kp::cli
