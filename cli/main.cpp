// main.cpp - the kp120 command: Lua 5.4 over the reference host.
//
// Every failure (bad option, unreadable script, Lua error) prints one line
// on standard error and exits with 1.  Errors that the component's functions
// record are not Lua errors: scripts read them with kp.lasterror().
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <csignal>
#include <unistd.h>

#include "listing.h"
#include "lua_kp.h"
#include "ui.h"
#include "regcmd.h"

#ifdef KP120_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#ifndef KP120_VERSION
#define KP120_VERSION "1.0.0"
#endif

namespace fs = std::filesystem;

namespace {

const char kUsage[] =
    "usage:\n"
    "  kp120 [OPTIONS] -e CHUNK          run Lua code given on the command line\n"
    "  kp120 [OPTIONS] FILE [ARGS...]    run a Lua script file (\"-\" reads standard input); ARGS in `arg`\n"
    "  kp120 [OPTIONS]                   interactive prompt (standard input is run as a script when it\n"
    "                                    is not a terminal)\n"
    "  kp120 functions [PATTERN]         function entries: identifier, French name, English name,\n"
    "                                    number of overloads, provided or not\n"
    "  kp120 constants [PATTERN]         constants: French name, English name, value\n"
    "  kp120 describe NAME               overloads of one function: parameter and result types, handler\n"
    "  kp120 reg export [--regedit4] [KEY] [FILE]\n"
    "                                    registry KEY (all of it when KEY is absent or \"\") and its\n"
    "                                    subkeys as a registry editor file (UTF-16; --regedit4: the\n"
    "                                    ANSI form)\n"
    "  kp120 reg import FILE             a registry editor file into the registry (all or nothing)\n"
    "  kp120 --help, kp120 --version\n"
    "\n"
    "options:\n"
    "  --root DIR       device root: absolute device names (\"\\Data\\a.txt\" or \"/Data/a.txt\") resolve\n"
    "                   under DIR. Default $KP120_ROOT, else "
    "${XDG_DATA_HOME:-$HOME/.local/share}/kp120/device.\n"
    "                   \"--root /\" gives the native file system.\n"
    "  --registry FILE  registry database (SQLite). Default $KP120_REGISTRY, else\n"
    "                   ${XDG_DATA_HOME:-$HOME/.local/share}/kp120/registry.sqlite3\n"
    "  --lang fr|en     interface language: messages, day and month names. Default en.\n"
    "\n"
    "PATTERN ignores case; * and ? are wildcards, a pattern without them matches names that contain it.\n"
    "In Lua, kp.NAME(...) calls a function by its French or English name and kp.NAME reads a constant;\n"
    "see also kp.buffer, kp.hex, kp.currency, kp.var, kp.table, kp.json, kp.lasterror, kp.setlang and\n"
    "kp.setobject.  kp.table{kind, columns, rows, selected, totals} makes a table control for TableToText\n"
    "and TableToClipboard.  File selectors ask the function set with kp.onselect(f), else a prompt when\n"
    "standard input is a terminal, else they are cancelled; kp.presskey(27) presses Escape for the next\n"
    "key-state query.  The clipboard is the X11 CLIPBOARD selection when DISPLAY names a display that\n"
    "answers, else the device's own clipboard (\\Windows\\clipboard.dat under the device root).\n";

int fail(const std::string& msg) {
    std::fprintf(stderr, "kp120: %s\n", msg.c_str());
    return 1;
}

struct Args {
    std::optional<std::string> root, registry;
    int language = 1;
    std::vector<std::string> chunks; // -e
    std::vector<std::string> rest;   // FILE ARGS... or a subcommand and its arguments
    bool help = false, version = false;
};

// Parses options up to the first positional argument; everything from it
// on belongs to the script or the subcommand.
bool parse_args(int argc, char** argv, Args& a, std::string& err) {
    int i = 1;
    for (; i < argc; ++i) {
        const std::string s = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                err = "option " + s + " needs a value";
                return false;
            }
            out = argv[++i];
            return true;
        };
        std::string v;
        if (s == "--help" || s == "-h") {
            a.help = true;
        } else if (s == "--version") {
            a.version = true;
        } else if (s == "--root") {
            if (!value(v)) return false;
            if (v.empty()) {
                err = "--root needs a directory";
                return false;
            }
            a.root = v;
        } else if (s == "--registry") {
            if (!value(v)) return false;
            if (v.empty()) {
                err = "--registry needs a file name";
                return false;
            }
            a.registry = v;
        } else if (s == "--lang") {
            if (!value(v)) return false;
            if (v == "fr") {
                a.language = 0;
            } else if (v == "en") {
                a.language = 1;
            } else {
                err = "--lang takes fr or en, not '" + v + "'";
                return false;
            }
        } else if (s == "-e") {
            if (!value(v)) return false;
            a.chunks.push_back(v);
        } else if (s == "--") {
            ++i;
            break;
        } else if (s.size() > 1 && s[0] == '-') {
            err = "unknown option '" + s + "' (see kp120 --help)";
            return false;
        } else {
            break;
        }
    }
    for (; i < argc; ++i)
        a.rest.push_back(argv[i]);
    return true;
}

std::string data_home() {
    if (const char* x = std::getenv("XDG_DATA_HOME"); x && *x && x[0] == '/') return x;
    const char* home = std::getenv("HOME");
    return std::string(home && *home ? home : ".") + "/.local/share";
}

std::string env_or(const char* name, const std::string& fallback) {
    const char* v = std::getenv(name);
    return v && *v ? std::string(v) : fallback;
}

// Resolves the device root and registry file; with `create`, makes the
// device root and the registry's folder when they do not exist yet (the
// listings, which touch neither, create nothing).
bool prepare_paths(const Args& a, kp::host::Options& o, bool create, std::string& err) {
    std::string root = a.root ? *a.root : env_or("KP120_ROOT", data_home() + "/kp120/device");
    std::string reg =
        a.registry ? *a.registry : env_or("KP120_REGISTRY", data_home() + "/kp120/registry.sqlite3");
    std::error_code ec;
    fs::path rp = fs::absolute(root, ec);
    if (ec) {
        err = "device root '" + root + "': " + ec.message();
        return false;
    }
    if (create && rp != "/") {
        fs::create_directories(rp, ec);
        if (ec || !fs::is_directory(rp, ec)) {
            err = "cannot use '" + root + "' as the device root" + (ec ? ": " + ec.message() : "");
            return false;
        }
    }
    fs::path gp = fs::absolute(reg, ec);
    if (ec) {
        err = "registry '" + reg + "': " + ec.message();
        return false;
    }
    if (fs::is_directory(gp, ec)) {
        err = "registry '" + reg + "' is a directory";
        return false;
    }
    if (create && gp.has_parent_path()) {
        fs::create_directories(gp.parent_path(), ec);
        if (ec) {
            err = "cannot create the folder of the registry '" + reg + "': " + ec.message();
            return false;
        }
    }
    o.device_root = rp.lexically_normal().string();
    o.registry_path = gp.lexically_normal().string();
    return true;
}

// ---- Lua ------------------------------------------------------------------

// os.exit ends the script by unwinding to main, so that the host detaches
// from the component and closes its files and registry on the way out.
char kExitKey;
int exit_code = 0;
bool exited = false;

int lua_exit(lua_State* L) {
    if (lua_isboolean(L, 1))
        exit_code = lua_toboolean(L, 1) ? 0 : 1;
    else
        exit_code = static_cast<int>(luaL_optinteger(L, 1, 0));
    exited = true;
    lua_pushlightuserdata(L, &kExitKey);
    return lua_error(L);
}

// Ctrl-C while Lua code runs stops it with a Lua error at the next Lua
// instruction (a component call in progress finishes first), so that the
// prompt survives and a script ends through the usual error path.
lua_State* interrupt_state = nullptr;

void interrupt_hook(lua_State* L, lua_Debug*) {
    lua_sethook(L, nullptr, 0, 0);
    luaL_error(L, "interrupted");
}

extern "C" void on_interrupt(int sig) {
    std::signal(sig, SIG_DFL); // a second Ctrl-C ends the process
    if (interrupt_state)
        lua_sethook(interrupt_state, interrupt_hook, LUA_MASKCALL | LUA_MASKRET | LUA_MASKCOUNT, 1);
}

int pcall_interruptible(lua_State* L, int nargs, int nresults) {
    interrupt_state = L;
    std::signal(SIGINT, on_interrupt);
    const int status = lua_pcall(L, nargs, nresults, 0);
    std::signal(SIGINT, SIG_DFL);
    lua_sethook(L, nullptr, 0, 0);
    interrupt_state = nullptr;
    return status;
}

bool is_exit(lua_State* L, int index) {
    return lua_islightuserdata(L, index) && lua_touserdata(L, index) == &kExitKey;
}

std::string error_text(lua_State* L, int index) {
    if (const char* m = lua_tostring(L, index)) return m;
    if (luaL_callmeta(L, index, "__tostring") && lua_type(L, -1) == LUA_TSTRING) {
        std::string s = lua_tostring(L, -1);
        lua_pop(L, 1);
        return s;
    }
    return std::string("(error object is a ") + luaL_typename(L, index) + " value)";
}

// Runs the function on top of the stack with `nargs` arguments below it.
// Returns the process's exit code when the script ends it (0 when it does
// not), or 1 after printing a Lua error.
int run_protected(lua_State* L, int nargs, int nresults, bool& ended) {
    ended = false;
    const int status = pcall_interruptible(L, nargs, nresults);
    if (status == LUA_OK) return 0;
    if (is_exit(L, -1)) {
        lua_pop(L, 1);
        ended = true;
        return exit_code;
    }
    std::string msg = error_text(L, -1);
    lua_pop(L, 1);
    // One line: a message that spans lines keeps only its first.
    if (auto nl = msg.find('\n'); nl != std::string::npos) msg.resize(nl);
    ended = true;
    return fail(msg);
}

void set_arg_table(lua_State* L, const std::string& script, const std::vector<std::string>& args) {
    lua_createtable(L, static_cast<int>(args.size()), 1);
    lua_pushstring(L, script.c_str());
    lua_rawseti(L, -2, 0);
    for (size_t i = 0; i < args.size(); ++i) {
        lua_pushlstring(L, args[i].data(), args[i].size());
        lua_rawseti(L, -2, static_cast<lua_Integer>(i + 1));
    }
    lua_setglobal(L, "arg");
}

int run_chunk(lua_State* L, const std::string& code, const char* name) {
    if (luaL_loadbuffer(L, code.data(), code.size(), name) != LUA_OK) {
        std::string msg = error_text(L, -1);
        lua_pop(L, 1);
        return fail(msg);
    }
    bool ended;
    return run_protected(L, 0, 0, ended);
}

int run_file(lua_State* L, const std::string& file, const std::vector<std::string>& args) {
    set_arg_table(L, file, args);
    const char* fname = file == "-" ? nullptr : file.c_str();
    if (fname) {
        std::error_code ec;
        if (fs::is_directory(file, ec)) return fail("cannot read '" + file + "': it is a directory");
    }
    if (luaL_loadfile(L, fname) != LUA_OK) {
        std::string msg = error_text(L, -1);
        lua_pop(L, 1);
        return fail(msg);
    }
    if (!lua_checkstack(L, static_cast<int>(args.size()) + 1)) return fail("too many arguments");
    for (const auto& a : args)
        lua_pushlstring(L, a.data(), a.size());
    bool ended;
    return run_protected(L, static_cast<int>(args.size()), 0, ended);
}

// ---- interactive prompt ----------------------------------------------------

bool read_line(const char* prompt, std::string& line) {
#ifdef KP120_HAVE_LIBEDIT
    char* l = readline(prompt);
    if (!l) return false;
    line = l;
    std::free(l);
    if (!line.empty()) add_history(line.c_str());
    return true;
#else
    std::fputs(prompt, stdout);
    std::fflush(stdout);
    char buf[4096];
    line.clear();
    while (std::fgets(buf, sizeof buf, stdin)) {
        line += buf;
        if (!line.empty() && line.back() == '\n') {
            line.pop_back();
            return true;
        }
    }
    return !line.empty();
#endif
}

bool incomplete(lua_State* L, int status) {
    if (status != LUA_ERRSYNTAX) return false;
    size_t n = 0;
    const char* m = lua_tolstring(L, -1, &n);
    static const char eof[] = "<eof>";
    return m && n >= sizeof eof - 1 && std::strcmp(m + n - (sizeof eof - 1), eof) == 0;
}

// Reads one statement (or expression) and leaves its function on the
// stack; false at end of input.
bool read_statement(lua_State* L, bool& compiled) {
    std::string line;
    if (!read_line("> ", line)) return false;
    compiled = false;
    // An expression first, so that "kp.DateSys()" prints its value.
    const std::string ret = "return " + line + ";";
    if (luaL_loadbuffer(L, ret.data(), ret.size(), "=stdin") == LUA_OK) {
        compiled = true;
        return true;
    }
    lua_pop(L, 1);
    std::string code = line;
    for (;;) {
        const int status = luaL_loadbuffer(L, code.data(), code.size(), "=stdin");
        if (status == LUA_OK) {
            compiled = true;
            return true;
        }
        if (!incomplete(L, status)) return true; // the message is on the stack
        lua_pop(L, 1);
        std::string more;
        if (!read_line(">> ", more)) {
            lua_pushstring(L, "stdin: unfinished statement at end of input");
            return true;
        }
        code += "\n" + more;
    }
}

int interactive(lua_State* L) {
    std::printf("kp120 %s (%s): kp.NAME(...) calls a function; Ctrl-D quits\n", KP120_VERSION, LUA_RELEASE);
    for (;;) {
        bool compiled = false;
        if (!read_statement(L, compiled)) break;
        if (!compiled) {
            std::fprintf(stderr, "%s\n", error_text(L, -1).c_str());
            lua_pop(L, 1);
            continue;
        }
        const int base = lua_gettop(L) - 1;
        const int status = pcall_interruptible(L, 0, LUA_MULTRET);
        if (status != LUA_OK) {
            if (is_exit(L, -1)) {
                lua_pop(L, 1);
                return exit_code;
            }
            std::fprintf(stderr, "%s\n", error_text(L, -1).c_str());
            lua_settop(L, base);
            continue;
        }
        const int n = lua_gettop(L) - base;
        if (n > 0) {
            lua_getglobal(L, "print");
            lua_insert(L, base + 1);
            if (lua_pcall(L, n, 0, 0) != LUA_OK) {
                std::fprintf(stderr, "%s\n", error_text(L, -1).c_str());
            }
        }
        lua_settop(L, base);
    }
    std::printf("\n");
    return 0;
}

struct LuaCloser {
    void operator()(lua_State* L) const { lua_close(L); }
};

int run_lua(const Args& a) {
    kp::host::Options o;
    o.language = a.language;
    if (const char* c = std::getenv("KP120_COMPONENT"); c && *c) o.component_path = c;
    std::string err;
    if (!prepare_paths(a, o, true, err)) return fail(err);

    kp::host::Host host(o);
    if (!host.loaded()) return fail("cannot load the component: " + host.load_error());
    kp::cli::Session session(host);

    std::unique_ptr<lua_State, LuaCloser> state(luaL_newstate());
    if (!state) return fail("cannot create a Lua state (out of memory)");
    lua_State* L = state.get();
    luaL_openlibs(L);
    lua_getglobal(L, "os");
    lua_pushcfunction(L, lua_exit);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
    kp::cli::open_kp(L, session);
    kp::cli::open_ui(L, session);

    if (!a.chunks.empty()) {
        set_arg_table(L, "-e", {});
        for (const auto& c : a.chunks) {
            lua_settop(L, 0);
            const int rc = run_chunk(L, c, "=(command line)");
            if (rc || exited) return rc;
        }
        return exit_code;
    }
    if (!a.rest.empty()) {
        const std::vector<std::string> args(a.rest.begin() + 1, a.rest.end());
        return run_file(L, a.rest[0], args);
    }
    if (isatty(STDIN_FILENO)) return interactive(L);
    return run_file(L, "-", {});
}

int run_listing(const Args& a) {
    const std::string& cmd = a.rest[0];
    if (cmd == "describe" && a.rest.size() != 2) return fail("usage: kp120 describe NAME");
    if (cmd != "describe" && a.rest.size() > 2) return fail("usage: kp120 " + cmd + " [PATTERN]");
    kp::host::Options o;
    o.language = a.language;
    if (const char* c = std::getenv("KP120_COMPONENT"); c && *c) o.component_path = c;
    std::string err;
    if (!prepare_paths(a, o, false, err)) return fail(err);
    kp::host::Host host(o);
    if (!host.loaded()) return fail("cannot load the component: " + host.load_error());
    const std::string arg = a.rest.size() > 1 ? a.rest[1] : "";
    if (cmd == "functions") {
        kp::cli::list_functions(host, arg, stdout);
        return 0;
    }
    if (cmd == "constants") {
        kp::cli::list_constants(host, arg, stdout);
        return 0;
    }
    if (!kp::cli::describe(host, arg, stdout)) return fail("unknown function or constant '" + arg + "'");
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Args a;
    std::string err;
    if (!parse_args(argc, argv, a, err)) return fail(err);
    if (a.help) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (a.version) {
        std::printf("kp120 %s (%s)\n", KP120_VERSION, LUA_RELEASE);
        return 0;
    }
    if (!a.chunks.empty() && !a.rest.empty()) return fail("-e and a script file cannot be given together");
    try {
        if (a.chunks.empty() && !a.rest.empty() &&
            (a.rest[0] == "functions" || a.rest[0] == "constants" || a.rest[0] == "describe"))
            return run_listing(a);
        if (a.chunks.empty() && !a.rest.empty() && a.rest[0] == "reg") {
            kp::host::Options o;
            if (!prepare_paths(a, o, true, err)) return fail(err);
            return kp::cli::run_reg({a.rest.begin() + 1, a.rest.end()}, o.registry_path);
        }
        return run_lua(a);
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}
