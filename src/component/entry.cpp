// entry.cpp - the exported entry points: identity and tables
// (InfoComposante), services and messages (CommandeComposante), execution
// hooks and locale (Execution), allocator and threading (GeneralParam),
// proxies (DeclareProxy, pQueryProxy) and the conversion hooks
// (bInitKLConvFromVM).
#include <cstring>
#include <new>
#include <string>
#include <vector>

#include "component/error.h"
#include "component/firewall.h"
#include "component/runtime.h"
#include "component/tables.h"
#include "component/variant.h"
#include "kp120/component.h"
#include "platform/modules.h"

namespace kp {

namespace {

// Both descriptions are empty in this edition.
constexpr char16_t kDescriptionFrench[] = u"";
constexpr char16_t kDescriptionEnglish[] = u"";
constexpr char16_t kNameFrench[] = u"Fonctions standard";
constexpr char16_t kNameEnglish[] = u"Standard functions";

constexpr char kModule[] = "KP120STD.DLL";
constexpr char kObjectModule[] = "KM120OBJ.DLL";
constexpr char kOwnVersion[] = "12.00Dr";
constexpr char kExpectedVmVersion[] = "9.00Aa";
constexpr uint32_t kMessageVersionDiffers = 28567;
constexpr uint32_t kMessageModuleRefused = 28117;

// The execution-hook object: the VM's peer entry point "Execution" and the
// registrations passed with every attach.  Operation 2 registers, operation
// 4 forwards locale changes.
class ExecutionHooks {
  public:
    explicit ExecutionHooks(kp_execution_fn peer) : peer_(peer) {}
    void register_words(uintptr_t a, uintptr_t b) { registrations_.push_back({a, b}); }
    void forward_locale(int32_t message, uintptr_t* block) {
        if (peer_) peer_(message, block);
    }

  private:
    kp_execution_fn peer_;
    std::vector<std::pair<uintptr_t, uintptr_t>> registrations_;
};

struct Lifecycle {
    ExecutionHooks* hooks = nullptr;
    int32_t attach_count = 0;
};
Lifecycle& lifecycle() {
    static Lifecycle l;
    return l;
}

std::u16string ascii16(const char* s) {
    return std::u16string(s, s + std::strlen(s));
}

// The release check against the VM's object module.  Without a version
// service in the services block there is nothing to compare with, and the
// check passes.
int32_t release_check() {
    using runtime::service;
    auto accepts = service(&kp_services::version_accepts);
    if (!accepts) return 1;
    void* vm = runtime::vm();
    CXError(runtime::attach_error()).clear();
    bool accepted = accepts(vm, kModule, kOwnVersion) != 0;
    if (accepted) {
        auto own = service(&kp_services::version_own);
        const char* theirs = own ? own(vm) : nullptr;
        if (theirs && std::strcmp(theirs, kExpectedVmVersion) == 0) {
            if (auto reg = service(&kp_services::version_register)) reg(vm, kModule, kOwnVersion);
            return 1;
        }
    }
    std::u16string description;
    if (auto describe = service(&kp_services::version_describe))
        if (const char16_t* d = describe(vm, kModule)) description = d;
    std::string own_path = platform::module_path_of(reinterpret_cast<const void*>(&release_check));
    std::string object_path;
    if (auto sym = service(&kp_services::object_module_symbol))
        object_path = platform::module_path_of(sym(vm, "OBJ_pclGetTauxDeChange"));
    own_path = own_path.substr(0, 260);
    object_path = object_path.substr(0, 260);
    CXError err(runtime::attach_error());
    err.set_message(accepted ? kMessageVersionDiffers : kMessageModuleRefused,
                    {ascii16(kModule), ascii16(kObjectModule), ascii16(kExpectedVmVersion),
                     ascii16(kOwnVersion), description, ascii16(own_path.c_str()),
                     ascii16(object_path.c_str())});
    err.set_severity(KP_SEVERITY_FATAL);
    runtime::note_failure(runtime::attach_error());
    return 0;
}

// The component object handed out by pQueryProxy(60).
void object_destroy(kp_component_object* self) noexcept {
    delete self;
}
void object_set_language(kp_component_object*, int32_t language) noexcept {
    runtime::state().language = language == 0 ? 0 : 1;
}
void object_name(kp_component_object*, char16_t* buffer, int32_t size) noexcept {
    if (!buffer || size <= 0) return;
    std::u16string_view name = runtime::french() ? kNameFrench : kNameEnglish;
    std::size_t n = std::min<std::size_t>(name.size(), static_cast<std::size_t>(size) - 1);
    std::memcpy(buffer, name.data(), n * sizeof(char16_t));
    buffer[n] = 0;
}
const char16_t* object_description(kp_component_object*) noexcept {
    return runtime::french() ? kDescriptionFrench : kDescriptionEnglish;
}
void object_set_error_state(kp_component_object*, uintptr_t word13, uintptr_t word27) noexcept {
    runtime::state().word13 = word13;
    runtime::state().word27 = word27;
}
const kp_error_record* object_last_error(kp_component_object*) noexcept {
    return runtime::last_error();
}

const kp_component_object_ops kObjectOps = {object_destroy,     object_set_language,    object_name,
                                            object_description, object_set_error_state, object_last_error};

} // namespace
} // namespace kp

using namespace kp;

extern "C" {

KP120_EXPORT intptr_t InfoComposante(int32_t query, int32_t index) noexcept {
    return firewall::entry<intptr_t>(0, [&]() -> intptr_t {
        const runtime::State& st = runtime::state();
        switch (query) {
        case KP_INFO_REVISION:
            return 2;
        case KP_INFO_COMPONENT:
            return KP_COMPONENT_NUMBER;
        case KP_INFO_CAPABILITIES:
            return 0x204;
        case KP_INFO_3:
            return 1;
        case KP_INFO_DESCRIPTION:
            return reinterpret_cast<intptr_t>(index == 0 ? kDescriptionFrench : kDescriptionEnglish);
        case KP_INFO_WORD13:
            return static_cast<intptr_t>(st.word13);
        case KP_INFO_FUNCTIONS:
            return reinterpret_cast<intptr_t>(tables::functions);
        case KP_INFO_FUNCTION_COUNT:
            return static_cast<intptr_t>(tables::function_count);
        case KP_INFO_CONSTANTS:
            return reinterpret_cast<intptr_t>(tables::constants);
        case KP_INFO_CONSTANT_COUNT:
            return static_cast<intptr_t>(tables::constant_count);
        case KP_INFO_VARIABLES:
            return reinterpret_cast<intptr_t>(tables::variables);
        case KP_INFO_VARIABLE_COUNT:
            return static_cast<intptr_t>(tables::variable_count);
        case KP_INFO_WORD27:
            return static_cast<intptr_t>(st.word27);
        default:
            return 0;
        }
    });
}

KP120_EXPORT void CommandeComposante(int32_t command, void* block) noexcept {
    firewall::entry_void([&] {
        runtime::State& st = runtime::state();
        switch (command) {
        case KP_COMMAND_SERVICES:
            st.services = static_cast<kp_services*>(block);
            break;
        case KP_COMMAND_MESSAGE_CALLBACK:
            st.message_callback = reinterpret_cast<kp_message_fn>(block);
            break;
        case KP_COMMAND_MESSAGE_TEXT: {
            auto* w = static_cast<uintptr_t*>(block);
            if (!w) return;
            auto number = static_cast<uint32_t>(w[1]);
            auto* buffer = reinterpret_cast<char16_t*>(w[2]);
            auto size = static_cast<intptr_t>(w[3]);
            std::u16string text;
            std::size_t n = 0;
            if (message_text(number, text) && buffer && size > 0) {
                n = std::min<std::size_t>(text.size(), static_cast<std::size_t>(size) - 1);
                std::memcpy(buffer, text.data(), n * sizeof(char16_t));
            }
            if (buffer && size > 0) buffer[n] = 0;
            w[4] = n;
            break;
        }
        default:
            break;
        }
    });
}

KP120_EXPORT int32_t Execution(int32_t message, uintptr_t* block) noexcept {
    return firewall::entry<int32_t>(0, [&]() -> int32_t {
        Lifecycle& lc = lifecycle();
        runtime::State& st = runtime::state();
        switch (message) {
        case KP_EXEC_ATTACH: {
            if (!block) return 0;
            if (!lc.hooks) {
                void* module = reinterpret_cast<void*>(block[1]);
                // A component loaded with RTLD_GLOBAL answers the lookup with its
                // own entry point when the VM exports none: that is no peer (the
                // locale forwarding would call itself).  The comparison is by
                // module, as &Execution may resolve to the VM's definition.
                void* peer = platform::module_symbol(module, "Execution");
                if (!peer || platform::module_path_of(peer) ==
                                 platform::module_path_of(reinterpret_cast<const void*>(&release_check)))
                    return 0;
                lc.hooks = new (std::nothrow) ExecutionHooks(reinterpret_cast<kp_execution_fn>(peer));
                if (!lc.hooks) return 0;
                release_check();
            }
            lc.hooks->register_words(block[2], block[3]);
            ++lc.attach_count;
            return 1;
        }
        case KP_EXEC_DETACH:
            if (lc.attach_count > 0 && --lc.attach_count == 0) {
                delete lc.hooks;
                lc.hooks = nullptr;
            }
            return 1;
        case KP_EXEC_LOCALE:
        case KP_EXEC_LOCALE3:
            if (block) {
                st.locale_words[0] = block[0];
                st.locale_words[1] = block[1];
                if (message == KP_EXEC_LOCALE3) st.locale_words[2] = block[2];
                if (lc.hooks) lc.hooks->forward_locale(message, block);
            }
            return 1;
        default:
            return 0;
        }
    });
}

KP120_EXPORT int32_t GeneralParam(int32_t code, intptr_t value) noexcept {
    return firewall::entry<int32_t>(0, [&]() -> int32_t {
        runtime::State& st = runtime::state();
        switch (code) {
        case KP_PARAM_TLS_INDEX:
            st.tls_index = static_cast<uint32_t>(value);
            st.tls_enabled = true;
            return 1;
        case KP_PARAM_THREADING:
            st.threading = reinterpret_cast<const kp_threading*>(value);
            return 1;
        case KP_PARAM_ALLOCATOR: {
            kp_allocator* old = st.allocator;
            auto* fresh = reinterpret_cast<kp_allocator*>(value);
            if (old && old != fresh && !old->replaced && old->ops && old->ops->release)
                old->ops->release(old, 1);
            st.allocator = fresh;
            return 1;
        }
        default:
            return 0;
        }
    });
}

KP120_EXPORT void DeclareProxy(void** list, uint16_t* count1, void** first, uint16_t* count2) noexcept {
    firewall::entry_void([&] {
        // No proxy classes: the list holds only its terminator.
        static void* const kProxies[1] = {nullptr};
        if (list) *list = const_cast<void**>(kProxies);
        if (first) *first = kProxies[0];
        if (count1) *count1 = 0;
        if (count2) *count2 = 0;
    });
}

KP120_EXPORT kp_component_object* pQueryProxy(int32_t code) noexcept {
    return firewall::entry<kp_component_object*>(nullptr, [&]() -> kp_component_object* {
        if (code != KP_PROXY_COMPONENT_OBJECT) return nullptr;
        auto* obj = new (std::nothrow) kp_component_object;
        if (!obj) return nullptr;
        obj->ops = &kObjectOps;
        obj->word1 = 0;
        obj->word2 = 0;
        return obj;
    });
}

KP120_EXPORT int32_t bInitKLConvFromVM(void* module, int32_t revision, int32_t mode,
                                       void* /*reserved*/) noexcept {
    return firewall::entry<int32_t>(0, [&]() -> int32_t {
        if (revision < 2 || mode > 2) return 0;
        if (!module) return 0;
        void* conv = platform::module_symbol(module, "nConversionDepassement");
        void* conv_ex = platform::module_symbol(module, "nConversionDepassementEx");
        void* end = platform::module_symbol(module, "FinConversion");
        if (!conv || !end) return 0;
        variant::Hooks& h = variant::hooks();
        h.convert = reinterpret_cast<kp_conversion_fn>(conv);
        h.convert_ex = reinterpret_cast<kp_conversion_ex_fn>(conv_ex);
        h.end = reinterpret_cast<kp_conversion_end_fn>(end);
        runtime::State& st = runtime::state();
        st.vm_module = module;
        st.conv_revision = revision;
        st.conv_mode = mode;
        return 1;
    });
}

} // extern "C"
