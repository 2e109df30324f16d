// main.cpp - the kp120 command: Lua 5.4 over the reference host.
//
// Every failure (bad option, unreadable script, Lua error) prints one line
// on standard error and exits with 1.  Errors that the component's functions
// record are not Lua errors: scripts read them with kp.lasterror().
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cuchar>
#include <cwchar>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <csignal>
#include <strings.h>
#include <unistd.h>

#include "listing.h"
#include "lua_kp.h"
#include "regcmd.h"
#include "tr.h"
#include "ui.h"

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
    "  kp120 functions --family NAME     the functions of a family, with their purpose\n"
    "  kp120 describe NAME               a function's purpose, parameters, failure value and errors\n"
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
    "see also kp.buffer, kp.hex, kp.currency, kp.var, kp.table, kp.json, kp.lasterror, kp.strict, kp.help,\n"
    "kp.setlang and\n"
    "kp.setobject.  kp.table{kind, columns, rows, selected, totals} makes a table control for TableToText\n"
    "and TableToClipboard.  File selectors ask the function set with kp.onselect(f), else a prompt when\n"
    "standard input is a terminal, else they are cancelled; kp.presskey(27) presses Escape for the next\n"
    "key-state query.  The clipboard is the X11 CLIPBOARD selection when DISPLAY names a display that\n"
    "answers, else the device's own clipboard (\\Windows\\clipboard.dat under the device root).\n";

const char kUsageFr[] =
    "usage :\n"
    "  kp120 [OPTIONS] -e CODE           exécute du code Lua donné sur la ligne de commande\n"
    "  kp120 [OPTIONS] FICHIER [ARGS...] exécute un script Lua (\"-\" lit l'entrée standard) ; ARGS dans "
    "`arg`\n"
    "  kp120 [OPTIONS]                   invite interactive (l'entrée standard est exécutée comme un script\n"
    "                                    quand ce n'est pas un terminal)\n"
    "  kp120 functions [MOTIF]           les fonctions : identifiant, nom français, nom anglais,\n"
    "                                    nombre de variantes, fournie ou non\n"
    "  kp120 constants [MOTIF]           les constantes : nom français, nom anglais, valeur\n"
    "  kp120 functions --family NOM      les fonctions d'une famille, avec leur rôle\n"
    "  kp120 describe NOM                rôle, paramètres, valeur d'échec et erreurs d'une fonction\n"
    "  kp120 reg export [--regedit4] [CLÉ] [FICHIER]\n"
    "                                    la CLÉ du registre (tout le registre sans CLÉ ou avec \"\") et ses\n"
    "                                    sous-clés en fichier d'éditeur du registre (UTF-16 ; --regedit4 :\n"
    "                                    la forme ANSI)\n"
    "  kp120 reg import FICHIER          un fichier d'éditeur du registre dans le registre (tout ou rien)\n"
    "  kp120 --help, kp120 --version\n"
    "\n"
    "options :\n"
    "  --root RÉP       racine du périphérique : les noms absolus (\"\\Data\\a.txt\" ou \"/Data/a.txt\")\n"
    "                   se trouvent sous RÉP. Par défaut $KP120_ROOT, sinon "
    "${XDG_DATA_HOME:-$HOME/.local/share}/kp120/device.\n"
    "                   \"--root /\" donne le système de fichiers natif.\n"
    "  --registry FICHIER base du registre (SQLite). Par défaut $KP120_REGISTRY, sinon\n"
    "                   ${XDG_DATA_HOME:-$HOME/.local/share}/kp120/registry.sqlite3\n"
    "  --lang fr|en     langue de l'interface : messages, noms des jours et des mois. Par défaut en.\n"
    "\n"
    "MOTIF ignore la casse ; * et ? sont des jokers, un motif sans joker retient les noms qui le "
    "contiennent.\n"
    "En Lua, kp.NOM(...) appelle une fonction par son nom français ou anglais et kp.NOM lit une constante ;\n"
    "voir aussi kp.buffer, kp.hex, kp.currency, kp.var, kp.table, kp.json, kp.lasterror, kp.strict, "
    "kp.help,\n"
    "kp.setlang et kp.setobject.  kp.table{kind, columns, rows, selected, totals} crée un contrôle tableau\n"
    "pour TableToText et TableToClipboard.  Les sélecteurs de fichiers interrogent la fonction donnée par\n"
    "kp.onselect(f), sinon une invite quand l'entrée standard est un terminal, sinon ils sont annulés ;\n"
    "kp.presskey(27) appuie sur Échap pour la prochaine lecture de l'état des touches.  Le presse-papiers\n"
    "est la sélection X11 CLIPBOARD quand DISPLAY désigne un affichage qui répond, sinon le presse-papiers\n"
    "du périphérique (\\Windows\\clipboard.dat sous la racine du périphérique).\n";

// The interface language that --lang gives among the options, so that
// messages about the options themselves (whatever their order) use it.
int language_of(int argc, char** argv) {
    int language = 1;
    for (int i = 1; i < argc; ++i) {
        const std::string s = argv[i];
        if (s == "--" || s.empty() || s[0] != '-') break;
        if (s == "--lang" && i + 1 < argc) {
            const std::string v = argv[++i];
            if (v == "fr") language = 0;
            if (v == "en") language = 1;
        } else if ((s == "--root" || s == "--registry" || s == "-e") && i + 1 < argc) {
            ++i;
        }
    }
    return language;
}

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
    a.language = language_of(argc, argv);
    auto T = [&](const char* en, const char* fr) { return std::string(kp::cli::tr(a.language, en, fr)); };
    int i = 1;
    for (; i < argc; ++i) {
        const std::string s = argv[i];
        auto value = [&](std::string& out) {
            if (i + 1 >= argc) {
                err = T("option ", "l'option ") + s + T(" needs a value", " demande une valeur");
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
                err = T("--root needs a directory", "--root demande un répertoire");
                return false;
            }
            a.root = v;
        } else if (s == "--registry") {
            if (!value(v)) return false;
            if (v.empty()) {
                err = T("--registry needs a file name", "--registry demande un nom de fichier");
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
                err = T("--lang takes fr or en, not '", "--lang prend fr ou en, pas '") + v + "'";
                return false;
            }
        } else if (s == "-e") {
            if (!value(v)) return false;
            a.chunks.push_back(v);
        } else if (s == "--") {
            ++i;
            break;
        } else if (s.size() > 1 && s[0] == '-') {
            err = T("unknown option '", "option inconnue '") + s +
                  T("' (see kp120 --help)", "' (voir kp120 --help)");
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
    auto T = [&](const char* en, const char* fr) { return std::string(kp::cli::tr(a.language, en, fr)); };
    std::string root = a.root ? *a.root : env_or("KP120_ROOT", data_home() + "/kp120/device");
    std::string reg =
        a.registry ? *a.registry : env_or("KP120_REGISTRY", data_home() + "/kp120/registry.sqlite3");
    std::error_code ec;
    fs::path rp = fs::absolute(root, ec);
    if (ec) {
        err = T("device root '", "racine du périphérique '") + root + T("': ", "' : ") + ec.message();
        return false;
    }
    if (create && rp != "/") {
        fs::create_directories(rp, ec);
        if (ec || !fs::is_directory(rp, ec)) {
            err = T("cannot use '", "impossible d'utiliser '") + root +
                  T("' as the device root", "' comme racine du périphérique") +
                  (ec ? T(": ", " : ") + ec.message() : "");
            return false;
        }
    }
    fs::path gp = fs::absolute(reg, ec);
    if (ec) {
        err = T("registry '", "registre '") + reg + T("': ", "' : ") + ec.message();
        return false;
    }
    if (fs::is_directory(gp, ec)) {
        err = T("registry '", "le registre '") + reg + T("' is a directory", "' est un répertoire");
        return false;
    }
    if (create && gp.has_parent_path()) {
        fs::create_directories(gp.parent_path(), ec);
        if (ec) {
            err = T("cannot create the folder of the registry '",
                    "impossible de créer le dossier du registre '") +
                  reg + T("': ", "' : ") + ec.message();
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
int interrupt_language = 1; // the interface language of the "interrupted" error

void interrupt_hook(lua_State* L, lua_Debug*) {
    lua_sethook(L, nullptr, 0, 0);
    luaL_error(L, "%s", kp::cli::tr(interrupt_language, "interrupted", "interrompu"));
}

extern "C" void on_interrupt(int sig) {
    std::signal(sig, SIG_DFL); // a second Ctrl-C ends the process
    if (interrupt_state)
        lua_sethook(interrupt_state, interrupt_hook, LUA_MASKCALL | LUA_MASKRET | LUA_MASKCOUNT, 1);
}

bool is_exit(lua_State* L, int index);

// Message handler: a Lua error gets the traceback of where it happened
// (the exit of os.exit passes unchanged).  An error record of kp.strict is
// shown by its text.
int traceback_handler(lua_State* L) {
    if (is_exit(L, 1)) return 1;
    const char* msg = nullptr;
    if (luaL_callmeta(L, 1, "__tostring") && lua_type(L, -1) == LUA_TSTRING)
        msg = lua_tostring(L, -1);
    else
        msg = lua_tostring(L, 1);
    if (!msg) msg = lua_pushfstring(L, "(error object is a %s value)", luaL_typename(L, 1));
    luaL_traceback(L, L, msg, 1);
    return 1;
}

int pcall_interruptible(lua_State* L, int nargs, int nresults) {
    interrupt_state = L;
    std::signal(SIGINT, on_interrupt);
    const int base = lua_gettop(L) - nargs;
    lua_pushcfunction(L, traceback_handler);
    lua_insert(L, base);
    const int status = lua_pcall(L, nargs, nresults, base);
    lua_remove(L, base);
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
    // The message and the traceback of the error.
    std::string msg = error_text(L, -1);
    lua_pop(L, 1);
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

int run_file(lua_State* L, int language, const std::string& file, const std::vector<std::string>& args) {
    auto T = [&](const char* en, const char* fr) { return std::string(kp::cli::tr(language, en, fr)); };
    set_arg_table(L, file, args);
    const char* fname = file == "-" ? nullptr : file.c_str();
    if (fname) {
        std::error_code ec;
        if (fs::is_directory(file, ec))
            return fail(T("cannot read '", "impossible de lire '") + file +
                        T("': it is a directory", "' : c'est un répertoire"));
    }
    if (luaL_loadfile(L, fname) != LUA_OK) {
        std::string msg = error_text(L, -1);
        lua_pop(L, 1);
        return fail(msg);
    }
    if (!lua_checkstack(L, static_cast<int>(args.size()) + 1))
        return fail(T("too many arguments", "trop d'arguments"));
    for (const auto& a : args)
        lua_pushlstring(L, a.data(), a.size());
    bool ended;
    return run_protected(L, static_cast<int>(args.size()), 0, ended);
}

// ---- interactive prompt ----------------------------------------------------

// The prompt's state: names to complete, the history file, Ctrl-C.
struct Prompt {
    std::vector<std::string> names; // "kp.NAME" of every function and constant, both languages
    std::string history;            // the history file, "" for none
};
Prompt* prompt_state = nullptr;
volatile std::sig_atomic_t line_interrupted = 0;

extern "C" void on_prompt_interrupt(int) {
    line_interrupted = 1;
}

#ifdef KP120_HAVE_LIBEDIT
// Reads the terminal for the line editor, one character of the locale's
// encoding at a time (the editor takes the value as a code point).
// Ctrl-C ends the line being typed; read_line then drops it, so that
// Ctrl-C clears the line.
extern "C" int prompt_getc(FILE* in) {
    std::mbstate_t state{};
    for (;;) {
        if (line_interrupted) return '\n';
        char c = 0;
        const ssize_t n = ::read(fileno(in), &c, 1);
        if (n == 0) return EOF;
        if (n < 0) {
            if (errno == EINTR) continue;
            return EOF;
        }
        char32_t wc = 0;
        const std::size_t r = std::mbrtoc32(&wc, &c, 1, &state);
        if (r == static_cast<std::size_t>(-2)) continue; // more bytes to come
        if (r == static_cast<std::size_t>(-1)) {
            state = std::mbstate_t{};
            return static_cast<unsigned char>(c); // not of the encoding: the byte itself
        }
        return static_cast<int>(wc);
    }
}

extern "C" char* complete_name(const char* text, int state) {
    static size_t next = 0;
    if (!prompt_state) return nullptr;
    if (state == 0) next = 0;
    // "kp.Pâq" also finds kp["Pâques"]: the prefix is compared on the name.
    std::string_view t(text);
    const bool dotted = t.rfind("kp.", 0) == 0;
    if (dotted) t.remove_prefix(3);
    const auto& names = prompt_state->names;
    while (next < names.size()) {
        const std::string& n = names[next++];
        std::string_view name(n);
        if (name.rfind("kp[\"", 0) == 0)
            name = name.substr(4);
        else if (dotted || t.empty())
            name.remove_prefix(3);
        else
            continue;
        if (name.size() >= t.size() && strncasecmp(name.data(), t.data(), t.size()) == 0)
            return strdup(n.c_str());
    }
    return nullptr;
}

// Given as the attempted completion, so that the editor inserts a match as
// it is (kp["Pâques"]) instead of quoting it as a file name.
extern "C" char** complete_names(const char* text, int, int) {
    return rl_completion_matches(text, complete_name);
}
#endif

bool read_line(const char* prompt, std::string& line) {
#ifdef KP120_HAVE_LIBEDIT
    line_interrupted = 0;
    struct sigaction sa {
    }, old{};
    sa.sa_handler = on_prompt_interrupt; // no SA_RESTART: the read returns EINTR
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, &old);
    char* l = readline(prompt);
    sigaction(SIGINT, &old, nullptr);
    if (line_interrupted) {
        std::free(l);
        line.clear();
        return true;
    }
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

// $XDG_STATE_HOME/kp120/history, by default ~/.local/state/kp120/history;
// "" when neither variable gives a directory.
std::string history_path() {
    std::string dir;
    if (const char* x = std::getenv("XDG_STATE_HOME"); x && *x == '/')
        dir = x;
    else if (const char* h = std::getenv("HOME"); h && *h)
        dir = std::string(h) + "/.local/state";
    else
        return "";
    dir += "/kp120";
    std::error_code ec;
    fs::create_directories(dir, ec);
    return dir + "/history";
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
std::string lua_quoted(const std::string& s);

bool read_statement(lua_State* L, int language, bool& compiled) {
    std::string line;
    if (!read_line("> ", line)) return false;
    compiled = false;
    // help NAME: the reference entry of a function or constant.
    if (line.rfind("help", 0) == 0 && (line.size() == 4 || line[4] == ' ')) {
        std::string name = line.substr(4);
        name.erase(0, name.find_first_not_of(' '));
        while (!name.empty() && name.back() == ' ')
            name.pop_back();
        if (name.rfind("kp.", 0) == 0) name.erase(0, 3);
        const std::string code = "kp.help(" + lua_quoted(name) + ")";
        compiled = luaL_loadbuffer(L, code.data(), code.size(), "=stdin") == LUA_OK;
        return true;
    }
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
            lua_pushstring(L, kp::cli::tr(language, "stdin: unfinished statement at end of input",
                                          "stdin : instruction inachevée en fin d'entrée"));
            return true;
        }
        code += "\n" + more;
    }
}

// A value as the prompt shows it: strings, buffers, currency and tables as
// kp.json writes them (so that "" and "0" differ from nothing and 0), an
// error record by its text, the rest as tostring does.
std::string shown(lua_State* L, int index) {
    index = lua_absindex(L, index);
    const int t = lua_type(L, index);
    if (t == LUA_TSTRING || t == LUA_TUSERDATA || t == LUA_TTABLE) {
        if (!(t == LUA_TTABLE && luaL_getmetafield(L, index, "__tostring") != LUA_TNIL)) {
            lua_getglobal(L, "kp");
            lua_getfield(L, -1, "json");
            lua_remove(L, -2);
            lua_pushvalue(L, index);
            if (lua_pcall(L, 1, 1, 0) == LUA_OK && lua_type(L, -1) == LUA_TSTRING) {
                std::string out = lua_tostring(L, -1);
                lua_pop(L, 1);
                return out;
            }
        }
        lua_pop(L, 1);
    }
    std::string out = luaL_tolstring(L, index, nullptr);
    lua_pop(L, 1);
    return out;
}

std::string lua_quoted(const std::string& s) {
    std::string out = "\"";
    for (unsigned char c : s) {
        char buf[8];
        if (c == '"' || c == '\\' || c < 0x20) {
            std::snprintf(buf, sizeof buf, "\\%u", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out + "\"";
}

int interactive(lua_State* L, kp::cli::Session& session, int language) {
    // The line editor reads multibyte characters in the user's locale.
    std::setlocale(LC_CTYPE, "");
    Prompt prompt;
    // A name that is not a Lua identifier (Pâques) completes as kp["Pâques"].
    auto add = [&](const char* name) {
        const std::string n = kp::host::Host::name_utf8(name);
        bool plain = !n.empty();
        for (unsigned char ch : n)
            plain = plain && (std::isalnum(ch) || ch == '_') && ch < 0x80;
        prompt.names.push_back(plain ? "kp." + n : "kp[\"" + n + "\"]");
    };
    for (const kp_function& f : session.host.functions()) {
        add(f.french);
        add(f.english);
    }
    for (const kp_constant& c : session.host.constants()) {
        add(c.french);
        add(c.english);
    }
    std::sort(prompt.names.begin(), prompt.names.end());
    prompt.names.erase(std::unique(prompt.names.begin(), prompt.names.end()), prompt.names.end());
    prompt_state = &prompt;
#ifdef KP120_HAVE_LIBEDIT
    rl_getc_function = prompt_getc;
    rl_completion_entry_function = complete_name;
    rl_attempted_completion_function = complete_names;
    rl_completion_append_character = '\0'; // "kp.fOpen" is followed by "(", not a blank
    prompt.history = history_path();
    stifle_history(1000);
    if (!prompt.history.empty()) read_history(prompt.history.c_str());
#endif
    if (language == 0)
        std::printf("kp120 %s (%s) : kp.NOM(...) appelle une fonction, help NOM la décrit, Tab complète ; "
                    "Ctrl-D quitte\n",
                    KP120_VERSION, LUA_RELEASE);
    else
        std::printf("kp120 %s (%s): kp.NAME(...) calls a function, help NAME describes it, Tab completes; "
                    "Ctrl-D quits\n",
                    KP120_VERSION, LUA_RELEASE);
    int rc = 0;
    for (;;) {
        bool compiled = false;
        if (!read_statement(L, language, compiled)) break;
        if (!compiled) {
            std::fprintf(stderr, "%s\n", error_text(L, -1).c_str());
            lua_pop(L, 1);
            continue;
        }
        const uint64_t errors_before = session.errors_recorded;
        const int base = lua_gettop(L) - 1;
        const int status = pcall_interruptible(L, 0, LUA_MULTRET);
        if (status != LUA_OK) {
            if (is_exit(L, -1)) {
                lua_pop(L, 1);
                rc = exit_code;
                break;
            }
            std::fprintf(stderr, "%s\n", error_text(L, -1).c_str());
            lua_settop(L, base);
            continue;
        }
        const int n = lua_gettop(L) - base;
        std::string line;
        for (int i = 1; i <= n; ++i) {
            if (i > 1) line += ", ";
            line += shown(L, base + i);
        }
        // A call that recorded an error shows the record after the values.
        if (session.errors_recorded != errors_before) {
            if (!line.empty()) line += " ";
            line += "[" + kp::cli::error_summary(session.last_error) + "]";
        }
        if (!line.empty()) std::printf("%s\n", line.c_str());
        lua_settop(L, base);
    }
    std::printf("\n");
#ifdef KP120_HAVE_LIBEDIT
    if (!prompt.history.empty()) write_history(prompt.history.c_str());
#endif
    prompt_state = nullptr;
    return rc;
}

int lua_help(lua_State* L) {
    const auto* host = static_cast<const kp::host::Host*>(lua_touserdata(L, lua_upvalueindex(1)));
    size_t n = 0;
    const char* name = luaL_checklstring(L, 1, &n);
    if (!kp::cli::describe(*host, std::string_view(name, n), stdout))
        std::fputs(kp::cli::unknown_name_text(*host, std::string_view(name, n)).c_str(), stdout);
    return 0;
}

struct LuaCloser {
    void operator()(lua_State* L) const { lua_close(L); }
};

int run_lua(const Args& a) {
    auto T = [&](const char* en, const char* fr) { return std::string(kp::cli::tr(a.language, en, fr)); };
    kp::host::Options o;
    o.language = a.language;
    if (const char* c = std::getenv("KP120_COMPONENT"); c && *c) o.component_path = c;
    std::string err;
    if (!prepare_paths(a, o, true, err)) return fail(err);

    kp::host::Host host(o);
    if (!host.loaded())
        return fail(T("cannot load the component: ", "impossible de charger le composant : ") +
                    host.load_error());
    kp::cli::Session session(host);
    interrupt_language = a.language;

    std::unique_ptr<lua_State, LuaCloser> state(luaL_newstate());
    if (!state)
        return fail(T("cannot create a Lua state (out of memory)",
                      "impossible de créer un état Lua (mémoire épuisée)"));
    lua_State* L = state.get();
    luaL_openlibs(L);
    lua_getglobal(L, "os");
    lua_pushcfunction(L, lua_exit);
    lua_setfield(L, -2, "exit");
    lua_pop(L, 1);
    kp::cli::open_kp(L, session);
    kp::cli::open_ui(L, session);
    // kp.help(NAME): the reference entry of a function or constant.
    lua_getglobal(L, "kp");
    lua_pushlightuserdata(L, &host);
    lua_pushcclosure(L, lua_help, 1);
    lua_setfield(L, -2, "help");
    // kp.deviceroot: the native directory that holds the device's files.
    lua_pushlstring(L, o.device_root.data(), o.device_root.size());
    lua_setfield(L, -2, "deviceroot");
    lua_pop(L, 1);

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
        return run_file(L, a.language, a.rest[0], args);
    }
    if (isatty(STDIN_FILENO)) return interactive(L, session, a.language);
    return run_file(L, a.language, "-", {});
}

int run_listing(const Args& a) {
    auto T = [&](const char* en, const char* fr) { return std::string(kp::cli::tr(a.language, en, fr)); };
    const std::string& cmd = a.rest[0];
    const bool family = cmd == "functions" && a.rest.size() == 3 && a.rest[1] == "--family";
    if (cmd == "describe" && a.rest.size() != 2)
        return fail(T("usage: kp120 describe NAME", "usage : kp120 describe NOM"));
    if (cmd != "describe" && a.rest.size() > 2 && !family)
        return fail(T("usage: kp120 ", "usage : kp120 ") + cmd +
                    (cmd == "functions" ? T(" [PATTERN | --family NAME]", " [MOTIF | --family NOM]")
                                        : T(" [PATTERN]", " [MOTIF]")));
    kp::host::Options o;
    o.language = a.language;
    if (const char* c = std::getenv("KP120_COMPONENT"); c && *c) o.component_path = c;
    std::string err;
    if (!prepare_paths(a, o, false, err)) return fail(err);
    kp::host::Host host(o);
    if (!host.loaded())
        return fail(T("cannot load the component: ", "impossible de charger le composant : ") +
                    host.load_error());
    const std::string arg = a.rest.size() > 1 ? a.rest[1] : "";
    if (family) {
        if (kp::cli::list_family(host, a.rest[2], stdout) == 0)
            return fail(T("no family matches '", "aucune famille ne correspond à '") + a.rest[2] +
                        T("'; the families: Dates and times, Numbers, Memory zones, Files, INI, Registry, "
                          "Data transforms, Processes, Clipboard, System",
                          "' ; les familles (noms anglais) : Dates and times, Numbers, Memory zones, Files, "
                          "INI, Registry, Data transforms, Processes, Clipboard, System"));
        return 0;
    }
    if (cmd == "functions") {
        kp::cli::list_functions(host, arg, stdout);
        return 0;
    }
    if (cmd == "constants") {
        kp::cli::list_constants(host, arg, stdout);
        return 0;
    }
    if (!kp::cli::describe(host, arg, stdout)) {
        std::string why = kp::cli::unknown_name_text(host, arg);
        why.pop_back();
        return fail(why);
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    Args a;
    std::string err;
    if (!parse_args(argc, argv, a, err)) return fail(err);
    if (a.help) {
        std::fputs(kp::cli::tr(a.language, kUsage, kUsageFr), stdout);
        return 0;
    }
    if (a.version) {
        std::printf("kp120 %s (%s)\n", KP120_VERSION, LUA_RELEASE);
        return 0;
    }
    if (!a.chunks.empty() && !a.rest.empty())
        return fail(kp::cli::tr(a.language, "-e and a script file cannot be given together",
                                "-e et un fichier de script ne peuvent pas être donnés ensemble"));
    try {
        if (a.chunks.empty() && !a.rest.empty() &&
            (a.rest[0] == "functions" || a.rest[0] == "constants" || a.rest[0] == "describe"))
            return run_listing(a);
        if (a.chunks.empty() && !a.rest.empty() && a.rest[0] == "reg") {
            kp::host::Options o;
            if (!prepare_paths(a, o, true, err)) return fail(err);
            return kp::cli::run_reg({a.rest.begin() + 1, a.rest.end()}, o.registry_path, a.language);
        }
        return run_lua(a);
    } catch (const std::exception& e) {
        return fail(e.what());
    }
}
