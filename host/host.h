// host.h - the reference host: the VM side of the component boundary.
//
// Host loads the component (libkp120std.so, see Options::component_path)
// with dlopen, runs the start-up sequence in the VM's calling order, and
// then plays the VM for every call: it owns the
// string allocator (one, or one per thread), the value interface that
// receives results, the call contexts and their error records, the
// conversion hooks ("nConversionDepassement", "nConversionDepassementEx",
// "FinConversion", exported by name from this library), the services block
// and the object module's exports.  At destruction it detaches and unloads.
//
// A call is resolved as the VM does: by French or English name (UTF-8,
// case-insensitive), then by overload: the argument count, then the best
// fit of the argument kinds to the parameter types.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "kp120/component.h"
#include "wtf8.h"

namespace kp::host {

struct Value;
// A procedure parameter (type 0x43): called back with the arguments the
// component passes; its result goes back to the component.
using Procedure = std::function<Value(std::vector<Value>& args)>;

struct Value {
    enum class Kind { None, Bool, Int, Int64, Real, Currency, String, Buffer, Procedure, Variable };
    Kind kind = Kind::None;
    bool b = false;
    int64_t i = 0; // Int and Int64
    double r = 0;
    uint8_t cy[10] = {};
    std::u16string s;           // String
    std::vector<uint8_t> bytes; // Buffer
    std::shared_ptr<Procedure> proc;
    std::shared_ptr<Value> ref; // Variable: the referenced value, updated by the call

    static Value none() { return Value(); }
    static Value boolean(bool v);
    static Value integer(int64_t v);
    static Value int64(int64_t v);
    static Value real(double v);
    static Value currency(const uint8_t (&b)[10]);
    static Value string(std::u16string v);
    static Value buffer(std::vector<uint8_t> v);
    static Value procedure(Procedure p);
    static Value variable(Value initial);
    static Value variable() { return variable(Value()); }
};

// A control of the host's user interface that the component reads through
// the table interface (kp120/vm.h): kinds 9, 30 and 35 are tables.  It is
// passed as an argument of type 0x39 by its handle (Host::add_control).
struct TableControl {
    struct Column {
        std::u16string title;
        bool visible = true;
    };
    int32_t kind = 9;
    std::vector<Column> columns;
    std::vector<std::vector<Value>> rows; // cells by column; a short row ends with empty cells
    std::vector<int32_t> selected;        // selected rows from 0, in increasing order
    bool has_totals = false;
    std::vector<Value> totals;
    // A control whose content the host cannot give: reading fails with the
    // host's error for the control (identifier read_error).
    bool unreadable = false;
    uint32_t read_error = 0;
};

// The error record after a call, copied out of the call context.
struct ErrorInfo {
    int32_t severity = 1;
    uint32_t id = 0;
    uint32_t extra = 0;
    uint32_t system_code = 0;
    uint32_t additional[2] = {0, 0}; // (1, 1): access denied on a target that is not read-only
    std::u16string message;
    std::u16string system_text;
};

enum class CallStatus {
    Ok,          // the handler ran (it may have recorded an error)
    UnknownName, // no function of that name
    NoOverload,  // no overload fits the arguments
    NotProvided, // the chosen overload has no handler in this edition
    BadArgument, // an argument cannot be passed as the parameter's type (integer out of range, ...)
};

struct CallOutcome {
    CallStatus status = CallStatus::Ok;
    std::string detail; // why, for the statuses other than Ok
    Value result;
    ErrorInfo error;
};

// What a program asked of a file selector (fSelect, fSelectDir,
// fGraphicFilter): KP_SELECT_* kind, the function's string arguments and
// its integer option (0 when absent).
struct SelectorRequest {
    int32_t kind = 0;
    std::vector<std::u16string> texts;
    int32_t options = 0;
};
// Answers a selector: the chosen text, "" for a cancelled dialog.
using Selector = std::function<std::u16string(const SelectorRequest&)>;
// Answers GetAsyncKeyState for a virtual key: 0x8000 down, 0x0001 pressed
// since the previous query.
using KeyState = std::function<int32_t(int32_t virtual_key)>;

struct Options {
    // The component to load.  Empty: $KP120_COMPONENT when set; else
    // libkp120std.so beside the running program; else beside this host
    // library, libkp120std.so then libkp120std.so.1 (an install); else the
    // libkp120std.so of the build tree that built the host library.
    std::string component_path;
    std::string device_root;   // device file system root ("/" = native file system)
    std::string registry_path; // SQLite registry file
    int32_t language = 1;      // 0 French, 1 English
    bool smooth_time = false;  // answer of the option query code 9
    uint32_t ansi_codepage = 1252;
    bool per_thread_allocators = false; // run with a threading descriptor (GeneralParam 2006)
    // What the version service of the release check answers: whether it
    // accepts the component, and the object module's own version.
    bool accept_component = true;
    std::string vm_version = "9.00Aa";
    // The display the VM offers (services slot `display`): "auto" is X11
    // when DISPLAY names a reachable display, else the headless handheld;
    // "headless"; "x11" (DISPLAY) or "x11:NAME"; "none" (no display).
    std::string display = "auto";
    // Setting "system_bus" (power, battery and modem services): a D-Bus
    // address, "none", or empty for the system bus.  Defaults to the
    // KP120_SYSTEM_BUS environment variable.
    std::string system_bus = default_system_bus();
    static std::string default_system_bus();
};

class Display;

class Host {
  public:
    explicit Host(Options options);
    ~Host();
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    bool loaded() const;
    const std::string& load_error() const;

    // Table access.
    std::span<const kp_function> functions() const;
    std::span<const kp_constant> constants() const;
    std::span<const kp_variable> variables() const;
    const kp_function* find_function(std::string_view utf8_name) const;
    const kp_constant* find_constant(std::string_view utf8_name) const;
    // Table names (Windows-1252) as UTF-8.
    static std::string name_utf8(const char* cp1252);
    static const char* type_name(uint16_t type_code);

    // The overload chosen for these arguments, or -1 (`why` says which rule failed).
    int choose_overload(const kp_function& fn, const std::vector<Value>& args, std::string* why) const;

    // Calls by name with overload resolution.
    CallOutcome call(std::string_view utf8_name, std::vector<Value>& args);
    // Calls one overload directly (no resolution; the arguments must fit).
    CallOutcome call_overload(const kp_function& fn, int overload, std::vector<Value>& args);

    // The user interface the component reaches through the services block:
    // without a selector every dialog is cancelled; without a key state no
    // key is ever down.  Empty functions remove them.
    void set_selector(Selector selector);
    void set_key_state(KeyState key_state);
    // Table controls: the handle to pass (as an integer) where a control is
    // expected; the control stays readable until removed or the host ends.
    uintptr_t add_control(std::shared_ptr<TableControl> control);
    void remove_control(uintptr_t handle);

    // Interface language (Execution 4876 and the component object).
    void set_language(int32_t language);
    int32_t language() const;
    void set_smooth_time(bool on);
    // Name of the VM object whose code runs (services slot
    // current_object_name); "" for none.
    void set_current_object(std::u16string_view name);

    // Raw entry points of the loaded module, for conformance tests.
    intptr_t info(int32_t query, int32_t index) const;
    void command(int32_t command, void* block) const;
    int32_t execution(int32_t message, uintptr_t* block) const;
    int32_t general_param(int32_t code, intptr_t value) const;
    kp_component_object* query_proxy(int32_t code) const;
    void declare_proxy(void** list, uint16_t* c1, void** first, uint16_t* c2) const;
    int32_t init_conversions(void* module, int32_t revision, int32_t mode) const;

    // The display offered to the component (created on first use; null
    // for display "none" or an X11 display that cannot be opened).
    Display* display();

    // Counters of the host's allocator, for tests of the string machinery.
    struct AllocatorStats {
        uint64_t creates = 0, grows = 0, frees = 0, offers = 0, live = 0;
    };
    AllocatorStats allocator_stats() const;
    // The allocator handed to the component (the calling thread's one in per-thread mode).
    kp_allocator* allocator() const;

    struct Impl;

  private:
    std::unique_ptr<Impl> impl_;
};

// Decimal text <-> 10-byte currency (millionths, two's complement); false on bad text or overflow.
bool currency_from_text(std::string_view text, uint8_t (&out)[10]);
std::string currency_to_text(const uint8_t (&cy)[10]);

} // namespace kp::host
