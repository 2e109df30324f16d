// host.cpp - the reference host: loading and start-up, the allocator, the
// value interface, call contexts, argument marshalling and overload choice.
#include "host.h"

#include <dlfcn.h>
#include <unistd.h>

#include <unicode/unistr.h>

#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <mutex>
#include <unordered_map>

#include "display.h"
#include "host_values.h"
#include "services.h"
#include "table_controls.h"

namespace kp::host {

// ------------------------------------------------------------------------
// Allocator
// ------------------------------------------------------------------------

namespace {

struct HostAllocator {
    kp_allocator base;
    std::atomic<uint64_t>* counters; // creates, grows, frees, offers, live
};

enum { kCreates, kGrows, kFrees, kOffers, kLive, kCounterCount };

char16_t* new_block(HostAllocator* a, uint32_t capacity) {
    void* block = std::malloc(static_cast<std::size_t>(capacity) + KP_STRING_BLOCK_EXTRA);
    if (!block) return nullptr;
    auto* h = static_cast<kp_string_header*>(block);
    h->owner = &a->base;
    h->flags = 0;
    h->refcount = 0;
    h->capacity = capacity;
    h->length = 0;
    auto* chars = reinterpret_cast<char16_t*>(h + 1);
    std::memset(reinterpret_cast<char*>(chars) + capacity, 0, 2);
    a->counters[kLive]++;
    return chars;
}

char16_t* alloc_grow(kp_allocator* self, uint32_t capacity) {
    auto* a = reinterpret_cast<HostAllocator*>(self);
    a->counters[kGrows]++;
    return new_block(a, capacity);
}
int32_t alloc_offer(kp_allocator* self, void*) {
    reinterpret_cast<HostAllocator*>(self)->counters[kOffers]++;
    return 0; // the component frees its own blocks
}
void alloc_release(kp_allocator*, int32_t) {}
int32_t alloc_create(kp_allocator* self, uint32_t bytes, char16_t** out) {
    auto* a = reinterpret_cast<HostAllocator*>(self);
    a->counters[kCreates]++;
    *out = new_block(a, bytes);
    return *out ? 0 : 100;
}
void alloc_free(kp_allocator* self, char16_t* chars) {
    if (!chars) return;
    auto* a = reinterpret_cast<HostAllocator*>(self);
    a->counters[kFrees]++;
    a->counters[kLive]--;
    std::free(kp_string_header_of(chars));
}

const kp_allocator_ops kAllocatorOps = {alloc_grow, alloc_offer,  nullptr, alloc_release,
                                        nullptr,    alloc_create, nullptr, alloc_free};

} // namespace

// ------------------------------------------------------------------------
// Implementation state
// ------------------------------------------------------------------------

struct Host::Impl {
    Options options;
    std::string error;
    void* module = nullptr;      // the component
    void* host_module = nullptr; // this library, the "VM module"

    decltype(&InfoComposante) info = nullptr;
    decltype(&CommandeComposante) command = nullptr;
    decltype(&Execution) execution = nullptr;
    decltype(&GeneralParam) general_param = nullptr;
    decltype(&DeclareProxy) declare_proxy = nullptr;
    decltype(&pQueryProxy) query_proxy = nullptr;
    decltype(&bInitKLConvFromVM) init_conv = nullptr;

    std::atomic<uint64_t> counters[kCounterCount] = {};
    HostAllocator allocator{{&kAllocatorOps, 0}, counters};
    kp_threading threading{0};
    kp_services services{};
    kp_component_object* object = nullptr;
    std::atomic<int32_t> language{1};
    std::atomic<bool> smooth{false};
    CurrentObject current_object;
    std::atomic<int32_t> blocking{0};
    std::string codepage_text;
    UiHooks ui;

    std::once_flag display_once;
    std::unique_ptr<Display> display;
    std::string display_error;

    std::span<const kp_function> functions;
    std::span<const kp_constant> constants;
    std::span<const kp_variable> variables;
    std::unordered_map<std::string, std::size_t> function_index;
    std::unordered_map<std::string, std::size_t> constant_index;
    TableControls controls;
    kp_table_interface table_interface{};

    HostAllocator* thread_allocator();
};

namespace {

// The host whose component is loaded; the message callback has no context word.
std::atomic<Host::Impl*> g_current{nullptr};

thread_local std::unordered_map<const Host::Impl*, std::unique_ptr<HostAllocator>> t_allocators;

} // namespace

kp_allocator* current_allocator() {
    Host::Impl* h = g_current.load();
    return h ? &h->thread_allocator()->base : nullptr;
}

HostAllocator* Host::Impl::thread_allocator() {
    if (!options.per_thread_allocators) return &allocator;
    auto& slot = t_allocators[this];
    if (!slot) slot.reset(new HostAllocator{{&kAllocatorOps, 0}, counters});
    return slot.get();
}

// ------------------------------------------------------------------------
// Services block
// ------------------------------------------------------------------------

namespace {

Host::Impl* impl_of(void* vm) {
    return static_cast<Host::Impl*>(vm);
}

int32_t svc_query_option(void* vm, int32_t code) {
    return code == KP_OPTION_SMOOTH_TIME && impl_of(vm)->smooth.load() ? 1 : 0;
}
int32_t svc_message_text(void* vm, uint32_t number, char16_t* buffer, int32_t size) {
    return host_message_text(impl_of(vm)->language.load(), number, buffer, size);
}
const kp_regional_settings* svc_regional(void* vm) {
    return regional_settings(impl_of(vm)->language.load());
}
kp_allocator* svc_tls_get(void* vm, uint32_t) {
    return &impl_of(vm)->thread_allocator()->base;
}
kp_procedure* svc_find_procedure(void*, const char16_t*) {
    return nullptr;
}
int32_t svc_call_procedure(void* vm, kp_procedure* proc, kp_variant* args, int32_t argc, kp_variant* result) {
    return call_host_procedure(&impl_of(vm)->thread_allocator()->base, proc, args, argc, result);
}
void svc_begin_blocking(void* vm) {
    impl_of(vm)->blocking++;
}
void svc_end_blocking(void* vm) {
    impl_of(vm)->blocking--;
}
const char16_t* svc_current_object_name(void* vm) {
    return impl_of(vm)->current_object.get();
}
const char16_t* svc_project_name(void*) {
    return u"kp120";
}
int32_t svc_version_accepts(void* vm, const char* module, const char*) {
    return impl_of(vm)->options.accept_component && std::strcmp(module, "KP120STD.DLL") == 0;
}
const char* svc_version_own(void* vm) {
    return impl_of(vm)->options.vm_version.c_str();
}
void svc_version_register(void*, const char*, const char*) {}
const char16_t* svc_version_describe(void*, const char*) {
    return u"KP120STD.DLL";
}
void* svc_object_symbol(void* vm, const char* name) {
    Host::Impl* h = impl_of(vm);
    return h->host_module ? dlsym(h->host_module, name) : nullptr;
}
intptr_t svc_window_message(void*, uintptr_t window, uint32_t message, uintptr_t wparam, uintptr_t lparam) {
    return answer_window_message(window, message, wparam, lparam);
}
int32_t svc_select(void* vm, const kp_selector_request* request, char16_t* buffer, int32_t size) {
    return answer_selector(impl_of(vm)->ui, request, buffer, size);
}
int32_t svc_key_state(void* vm, int32_t virtual_key) {
    return answer_key_state(impl_of(vm)->ui, virtual_key);
}
const char* svc_setting(void* vm, const char* name) {
    Host::Impl* h = impl_of(vm);
    if (std::strcmp(name, KP_SETTING_DEVICE_ROOT) == 0) return h->options.device_root.c_str();
    if (std::strcmp(name, KP_SETTING_REGISTRY) == 0) return h->options.registry_path.c_str();
    if (std::strcmp(name, KP_SETTING_ANSI_CODEPAGE) == 0) return h->codepage_text.c_str();
    if (std::strcmp(name, KP_SETTING_SYSTEM_BUS) == 0) return h->options.system_bus.c_str();
    return nullptr;
}
const kp_display* svc_display(void* vm);

const kp_table_interface* svc_table_interface(void* vm) {
    return &impl_of(vm)->table_interface;
}

int32_t message_callback(uint32_t number, char16_t* buffer, int32_t size) {
    Host::Impl* h = g_current.load();
    return host_message_text(h ? h->language.load() : 1, number, buffer, size);
}

// Call contexts: one error record per call.
struct Context {
    kp_call_context base;
    kp_error_record record;
};
kp_error_record* context_error(kp_call_context* self) {
    return &reinterpret_cast<Context*>(self)->record;
}
const kp_call_context_ops kContextOps = [] {
    kp_call_context_ops ops{};
    ops.error = context_error;
    return ops;
}();

// Call contexts are reused per thread: a call made from inside a handler (a
// procedure called back) takes the next one, so nesting never shares a record.
class ContextLease {
  public:
    ContextLease() : pool_(pool()) {
        if (pool_.contexts.size() <= pool_.depth) {
            auto c = std::make_unique<Context>();
            c->base.ops = &kContextOps;
            pool_.contexts.push_back(std::move(c));
        }
        ctx_ = pool_.contexts[pool_.depth++].get();
        kp_error_record& r = ctx_->record;
        r.severity = KP_SEVERITY_NONE;
        r.id = r.extra = r.system_code = 0;
        r.module_name[0] = r.module_version[0] = 0;
        r.message_length = r.system_text_length = 0;
        r.message[0] = r.system_text[0] = 0;
        r.additional[0] = r.additional[1] = 0;
    }
    ~ContextLease() { --pool_.depth; }
    ContextLease(const ContextLease&) = delete;
    ContextLease& operator=(const ContextLease&) = delete;
    Context* get() const { return ctx_; }

  private:
    // The thread's contexts and how many are in use: one thread-local
    // lookup a call.
    struct Pool {
        std::vector<std::unique_ptr<Context>> contexts;
        std::size_t depth = 0;
    };
    static Pool& pool() {
        thread_local Pool p;
        return p;
    }
    Pool& pool_;
    Context* ctx_;
};

// Value interface: the result handle is the Value to fill.
struct ResultSlot {
    Value* out;
    kp_allocator* allocator;
    bool set;
};
void set_result(kp_value_interface*, void* handle, const void* value, uint32_t type) {
    auto* slot = static_cast<ResultSlot*>(handle);
    if (!slot || !value) return;
    slot->set = true;
    *slot->out = value_from_result(value, type);
}
const kp_value_interface_ops kValueOps = [] {
    kp_value_interface_ops ops{};
    ops.set_result = set_result;
    return ops;
}();
kp_value_interface g_values{&kValueOps};

std::string fold_key(std::string_view utf8_name) {
    // ASCII folds to its lower case, without a round trip through UTF-16.
    std::string out(utf8_name);
    bool ascii = true;
    for (char& c : out) {
        if (static_cast<unsigned char>(c) >= 0x80) {
            ascii = false;
            break;
        }
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    if (ascii) return out;
    out.clear();
    icu::UnicodeString u = icu::UnicodeString::fromUTF8(
        icu::StringPiece(utf8_name.data(), static_cast<int32_t>(utf8_name.size())));
    u.foldCase();
    u.toUTF8String(out);
    return out;
}

#ifndef KP120_COMPONENT_SONAME
#define KP120_COMPONENT_SONAME "libkp120std.so.1"
#endif

std::string default_component_path() {
    if (const char* env = std::getenv("KP120_COMPONENT"); env && *env) return env;
    std::error_code ec;
    auto exe = std::filesystem::read_symlink("/proc/self/exe", ec);
    if (!ec) {
        auto beside = exe.parent_path() / "libkp120std.so";
        if (std::filesystem::exists(beside, ec)) return beside.string();
    }
    // Installed, the component lies beside this library (the unversioned
    // name comes with the development files, the versioned one always).
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&default_component_path), &self) && self.dli_fname) {
        auto dir = std::filesystem::path(self.dli_fname).parent_path();
        for (const char* name : {"libkp120std.so", KP120_COMPONENT_SONAME}) {
            auto p = dir / name;
            if (std::filesystem::exists(p, ec)) return p.string();
        }
    }
#ifdef KP120_DEFAULT_COMPONENT
    return KP120_DEFAULT_COMPONENT;
#else
    return "libkp120std.so";
#endif
}

} // namespace

// ------------------------------------------------------------------------
// Start-up and shutdown
// ------------------------------------------------------------------------

namespace {

// The component's entry points; false (with the reason in h.error) when
// one is missing.
bool load_entry_points(Host::Impl& h) {
    auto sym = [&](const char* name) {
        void* p = dlsym(h.module, name);
        if (!p && h.error.empty()) h.error = std::string("the component does not export ") + name;
        return p;
    };
    h.info = reinterpret_cast<decltype(h.info)>(sym("InfoComposante"));
    h.command = reinterpret_cast<decltype(h.command)>(sym("CommandeComposante"));
    h.execution = reinterpret_cast<decltype(h.execution)>(sym("Execution"));
    h.general_param = reinterpret_cast<decltype(h.general_param)>(sym("GeneralParam"));
    h.declare_proxy = reinterpret_cast<decltype(h.declare_proxy)>(sym("DeclareProxy"));
    h.query_proxy = reinterpret_cast<decltype(h.query_proxy)>(sym("pQueryProxy"));
    h.init_conv = reinterpret_cast<decltype(h.init_conv)>(sym("bInitKLConvFromVM"));
    return h.error.empty();
}

void fill_services(Host::Impl& h) {
    kp_services& s = h.services;
    s.size = sizeof(kp_services);
    s.vm = &h;
    s.query_option = svc_query_option;
    s.message_text = svc_message_text;
    s.regional_settings = svc_regional;
    s.tls_get = svc_tls_get;
    s.find_procedure = svc_find_procedure;
    s.call_procedure = svc_call_procedure;
    s.begin_blocking = svc_begin_blocking;
    s.end_blocking = svc_end_blocking;
    s.project_name = svc_project_name;
    s.version_accepts = svc_version_accepts;
    s.version_own = svc_version_own;
    s.version_register = svc_version_register;
    s.version_describe = svc_version_describe;
    s.object_module_symbol = svc_object_symbol;
    s.send_window_message = svc_window_message;
    s.setting = svc_setting;
    s.select = svc_select;
    s.key_state = svc_key_state;
    s.current_object_name = svc_current_object_name;
    s.pump_message = pump_message;
    s.display = svc_display;
    s.table_interface = svc_table_interface;
}

// The VM's calling order: conversion hooks, services, parameters, the
// tables, attach, then the component object.
void start_component(Host::Impl& h) {
    g_current = &h;
    if (!h.init_conv(h.host_module, 2, 0, nullptr)) h.error = "the component refused the conversion hooks";
    h.command(KP_COMMAND_SERVICES, &h.services);
    h.command(KP_COMMAND_MESSAGE_CALLBACK, reinterpret_cast<void*>(&message_callback));
    h.general_param(KP_PARAM_TLS_INDEX, 1);
    h.general_param(KP_PARAM_THREADING, reinterpret_cast<intptr_t>(&h.threading));
    h.general_param(KP_PARAM_ALLOCATOR, reinterpret_cast<intptr_t>(&h.allocator.base));
    for (int32_t q = 0; q <= 3; ++q)
        h.info(q, 0);
    h.functions = {reinterpret_cast<const kp_function*>(h.info(KP_INFO_FUNCTIONS, 0)),
                   static_cast<std::size_t>(h.info(KP_INFO_FUNCTION_COUNT, 0))};
    h.constants = {reinterpret_cast<const kp_constant*>(h.info(KP_INFO_CONSTANTS, 0)),
                   static_cast<std::size_t>(h.info(KP_INFO_CONSTANT_COUNT, 0))};
    h.variables = {reinterpret_cast<const kp_variable*>(h.info(KP_INFO_VARIABLES, 0)),
                   static_cast<std::size_t>(h.info(KP_INFO_VARIABLE_COUNT, 0))};
    uintptr_t attach[4] = {0, reinterpret_cast<uintptr_t>(h.host_module), 0, 0};
    h.execution(KP_EXEC_ATTACH, attach);
    h.object = h.query_proxy(KP_PROXY_COMPONENT_OBJECT);
}

} // namespace

Host::Host(Options options) : impl_(std::make_unique<Impl>()) {
    Impl& h = *impl_;
    h.options = std::move(options);
    if (h.options.component_path.empty()) h.options.component_path = default_component_path();
    h.codepage_text = std::to_string(h.options.ansi_codepage);
    h.language = h.options.language == 0 ? 0 : 1;
    h.smooth = h.options.smooth_time;

    h.module = dlopen(h.options.component_path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (!h.module) {
        const char* e = dlerror();
        h.error = "cannot load " + h.options.component_path + ": " + (e ? e : "unknown error");
        return;
    }
    if (!load_entry_points(h)) {
        dlclose(h.module);
        h.module = nullptr;
        return;
    }

    // This library is the VM module: its conversion hooks, object-module
    // exports and peer "Execution" are found in it by name.
    Dl_info self{};
    if (dladdr(reinterpret_cast<void*>(&default_component_path), &self) && self.dli_fname)
        h.host_module = dlopen(self.dli_fname, RTLD_NOW | RTLD_NOLOAD);

    h.table_interface = *host_table_interface();
    h.table_interface.self = &h;
    fill_services(h);
    h.threading.multi_threaded = h.options.per_thread_allocators ? 1 : 0;
    start_component(h);
    set_language(h.language);

    for (std::size_t i = 0; i < h.functions.size(); ++i) {
        h.function_index.emplace(fold_key(name_utf8(h.functions[i].french)), i);
        h.function_index.emplace(fold_key(name_utf8(h.functions[i].english)), i);
    }
    for (std::size_t i = 0; i < h.constants.size(); ++i) {
        h.constant_index.emplace(fold_key(name_utf8(h.constants[i].french)), i);
        h.constant_index.emplace(fold_key(name_utf8(h.constants[i].english)), i);
    }
}

Host::~Host() {
    Impl& h = *impl_;
    if (h.module) {
        uintptr_t detach[4] = {0, 0, 0, 0};
        h.execution(KP_EXEC_DETACH, detach);
        if (h.object) h.object->ops->destroy(h.object);
        // Take back everything handed over: the module may outlive this host.
        h.allocator.base.replaced = 1;
        h.general_param(KP_PARAM_ALLOCATOR, 0);
        h.general_param(KP_PARAM_THREADING, 0);
        h.command(KP_COMMAND_SERVICES, nullptr);
        h.command(KP_COMMAND_MESSAGE_CALLBACK, nullptr);
        dlclose(h.module);
    }
    if (h.host_module) dlclose(h.host_module);
    Impl* expected = &h;
    g_current.compare_exchange_strong(expected, nullptr);
    t_allocators.erase(&h);
}

bool Host::loaded() const {
    return impl_->module != nullptr && impl_->error.empty();
}
const std::string& Host::load_error() const {
    return impl_->error;
}
std::span<const kp_function> Host::functions() const {
    return impl_->functions;
}
std::span<const kp_constant> Host::constants() const {
    return impl_->constants;
}
std::span<const kp_variable> Host::variables() const {
    return impl_->variables;
}

std::string Host::name_utf8(const char* cp1252) {
    std::string out;
    if (!cp1252) return out;
    for (const unsigned char* p = reinterpret_cast<const unsigned char*>(cp1252); *p; ++p)
        out += utf8(std::u16string(1, cp1252_char(*p)));
    return out;
}

const kp_function* Host::find_function(std::string_view name) const {
    auto it = impl_->function_index.find(fold_key(name));
    return it == impl_->function_index.end() ? nullptr : &impl_->functions[it->second];
}

const kp_constant* Host::find_constant(std::string_view name) const {
    auto it = impl_->constant_index.find(fold_key(name));
    return it == impl_->constant_index.end() ? nullptr : &impl_->constants[it->second];
}

void Host::set_selector(Selector selector) {
    impl_->ui.selector = std::move(selector);
}
void Host::set_key_state(KeyState key_state) {
    impl_->ui.key_state = std::move(key_state);
}

void Host::set_language(int32_t language) {
    Impl& h = *impl_;
    h.language = language == 0 ? 0 : 1;
    if (!h.module) return;
    if (h.object) h.object->ops->set_language(h.object, h.language);
    uintptr_t words[2] = {static_cast<uintptr_t>(h.language.load()),
                          static_cast<uintptr_t>(h.language.load())};
    h.execution(KP_EXEC_LOCALE, words);
}
int32_t Host::language() const {
    return impl_->language;
}
void Host::set_smooth_time(bool on) {
    impl_->smooth = on;
}
void Host::set_current_object(std::u16string_view name) {
    impl_->current_object.set(name);
}

intptr_t Host::info(int32_t q, int32_t i) const {
    return impl_->info ? impl_->info(q, i) : 0;
}
void Host::command(int32_t c, void* b) const {
    if (impl_->command) impl_->command(c, b);
}
int32_t Host::execution(int32_t m, uintptr_t* b) const {
    return impl_->execution ? impl_->execution(m, b) : 0;
}
int32_t Host::general_param(int32_t c, intptr_t v) const {
    return impl_->general_param ? impl_->general_param(c, v) : 0;
}
kp_component_object* Host::query_proxy(int32_t c) const {
    return impl_->query_proxy ? impl_->query_proxy(c) : nullptr;
}
void Host::declare_proxy(void** l, uint16_t* c1, void** f, uint16_t* c2) const {
    if (impl_->declare_proxy) impl_->declare_proxy(l, c1, f, c2);
}
int32_t Host::init_conversions(void* module, int32_t revision, int32_t mode) const {
    return impl_->init_conv ? impl_->init_conv(module, revision, mode, nullptr) : 0;
}

TableControls& table_controls_of(void* vm) {
    return impl_of(vm)->controls;
}
uintptr_t Host::add_control(std::shared_ptr<TableControl> control) {
    return impl_->controls.add(std::move(control));
}
void Host::remove_control(uintptr_t handle) {
    impl_->controls.remove(handle);
}

namespace {
Display* display_of(Host::Impl& h) {
    std::call_once(h.display_once, [&h] { h.display = make_display(h.options.display, &h.display_error); });
    return h.display.get();
}
const kp_display* svc_display(void* vm) {
    Display* d = display_of(*impl_of(vm));
    return d ? d->table() : nullptr;
}
} // namespace

Display* Host::display() {
    return display_of(*impl_);
}

std::string Options::default_system_bus() {
    const char* env = std::getenv("KP120_SYSTEM_BUS");
    return env ? env : "";
}

Host::AllocatorStats Host::allocator_stats() const {
    const Impl& h = *impl_;
    return {h.counters[kCreates], h.counters[kGrows], h.counters[kFrees], h.counters[kOffers],
            h.counters[kLive]};
}
kp_allocator* Host::allocator() const {
    return &impl_->thread_allocator()->base;
}

// ------------------------------------------------------------------------
// Calls
// ------------------------------------------------------------------------

int Host::choose_overload(const kp_function& fn, const std::vector<Value>& args, std::string* why) const {
    const kp_overload* ov = fn.overloads;
    int count = static_cast<int>(KP_IDENT_COUNT(fn.ident));
    int best = -1, best_score = -1;
    int best_unprovided = -1, best_unprovided_score = -1;
    bool count_matched = false;
    std::string range_issue;
    for (int k = 0; k < count; ++k) {
        if (args.size() > ov[k].param_count) continue;
        // Trailing variables (any value by reference, 0x401F: the receiving
        // variables of fReadLine and MatchRegularExpression) may be left out,
        // and so may trailing reals the VM converts (0x800C: Min and Max take
        // two to ten values).
        bool fits = true;
        for (std::size_t a = args.size(); a < ov[k].param_count; ++a)
            if ((ov[k].params[a] & 0x40FF) != 0x401F && ov[k].params[a] != 0x800C) fits = false;
        if (!fits) continue;
        count_matched = true;
        int score = 0;
        for (std::size_t a = 0; a < args.size() && score >= 0; ++a) {
            std::string issue;
            int s = fit_score(args[a], ov[k].params[a], &issue);
            if (s < 0) {
                if (!issue.empty() && range_issue.empty())
                    range_issue = "argument " + std::to_string(a + 1) + ": " + issue;
                score = -1;
            } else {
                score += s;
            }
        }
        if (score < 0) continue;
        if (args.size() == ov[k].param_count) score += 1000; // an overload without omissions first
        if (ov[k].handler) {
            if (score > best_score) best = k, best_score = score;
        } else if (score > best_unprovided_score) {
            best_unprovided = k, best_unprovided_score = score;
        }
    }
    if (best >= 0) return best;
    const std::string name = name_utf8(fn.english);
    if (why) {
        if (best_unprovided >= 0)
            *why = name + " is not provided by this edition";
        else if (!count_matched)
            *why = "no overload of " + name + " takes " + std::to_string(args.size()) + " argument" +
                   (args.size() == 1 ? "" : "s");
        else if (!range_issue.empty())
            *why = name + ": " + range_issue;
        else
            *why = "the arguments do not fit any overload of " + name;
    }
    return best_unprovided >= 0 ? -2 : -1;
}

CallOutcome Host::call(std::string_view name, std::vector<Value>& args) {
    CallOutcome out;
    if (!loaded()) {
        out.status = CallStatus::UnknownName;
        out.detail = impl_->error;
        return out;
    }
    const kp_function* fn = find_function(name);
    if (!fn) {
        out.status = CallStatus::UnknownName;
        out.detail = "unknown function " + std::string(name);
        return out;
    }
    std::string why;
    int k = choose_overload(*fn, args, &why);
    if (k < 0) {
        out.status = k == -2 ? CallStatus::NotProvided : CallStatus::NoOverload;
        if (k == -1 && why.find("argument ") != std::string::npos &&
            why.find(": argument") != std::string::npos)
            out.status = CallStatus::BadArgument;
        out.detail = why;
        return out;
    }
    return call_overload(*fn, k, args);
}

CallOutcome Host::call_overload(const kp_function& fn, int k, std::vector<Value>& args) {
    CallOutcome out;
    const kp_overload& ov = fn.overloads[k];
    if (!ov.handler) {
        out.status = CallStatus::NotProvided;
        out.detail = name_utf8(fn.english) + " is not provided by this edition";
        return out;
    }
    kp_allocator* alloc = &impl_->thread_allocator()->base;
    Marshalled m(alloc);
    std::string issue;
    for (std::size_t a = 0; a < args.size() && a < ov.param_count; ++a) {
        if (!m.add(args[a], ov.params[a], &issue)) {
            out.status = CallStatus::BadArgument;
            out.detail = name_utf8(fn.english) + ": argument " + std::to_string(a + 1) + ": " + issue;
            return out;
        }
    }
    // One pointer a parameter of the overload: the ones left out are null.
    for (std::size_t a = args.size(); a < ov.param_count; ++a)
        m.add_absent();
    ContextLease lease;
    Context* ctx = lease.get();
    ResultSlot slot{&out.result, alloc, false};
    kp_call_frame frame{&g_values, nullptr, nullptr, nullptr, &slot};
    ov.handler(&frame, &ctx->base, m.argv());
    m.read_back(args);
    const kp_error_record& r = ctx->record;
    out.error.severity = r.severity;
    out.error.id = r.id;
    out.error.extra = r.extra;
    out.error.system_code = r.system_code;
    out.error.additional[0] = r.additional[0];
    out.error.additional[1] = r.additional[1];
    if (r.message_length)
        out.error.message.assign(r.message, std::min<uint32_t>(r.message_length, KP_ERROR_MESSAGE_CAPACITY));
    if (r.system_text_length)
        out.error.system_text.assign(r.system_text,
                                     std::min<uint32_t>(r.system_text_length, KP_ERROR_SYSTEXT_CAPACITY));
    return out;
}

} // namespace kp::host
