/*
 * minimal_vm.c - the smallest VM that loads the standard-function component
 * and calls its functions, in plain C against include/kp120/ alone.
 *
 *   minimal_vm [COMPONENT] [DEVICE_ROOT]
 *
 * COMPONENT is the module's path: `pkg-config --variable=module kp120`, or
 * KP120_MODULE_PATH in CMake.  Without it the program loads KP120_MODULE
 * when the build defines it (-DKP120_MODULE="\"path\""), else the soname
 * "libkp120std.so.1", which the dynamic loader finds only in its own
 * directories (not under a prefix such as /opt).  DEVICE_ROOT is the
 * directory that holds the device's file system (default /tmp).
 * The program:
 *   1. loads the module and fetches its seven entry points;
 *   2. runs the start-up calls in the VM's order: conversion hooks, services
 *      block and message callback, allocator, tables, attach;
 *   3. binds functions by English name and overload, calls them with a call
 *      frame, a call context and an argument vector, and prints each result
 *      and the call's error record;
 *   4. detaches and unloads.
 * docs/vm-authors.md walks through it.
 *
 * Build: cc -std=c11 $(pkg-config --cflags kp120) minimal_vm.c -o minimal_vm
 *        $(pkg-config --libs kp120) -rdynamic
 * (-rdynamic exports the conversion hooks and Execution below, which the
 * component looks up by name in the VM module).
 */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <kp120/component.h>

/* The module by its soname: the name that stays valid across compatible upgrades. */
#define KP_STRINGIFY2(x) #x
#define KP_STRINGIFY(x) KP_STRINGIFY2(x)
#ifndef KP120_MODULE
#define KP120_MODULE "libkp120std.so." KP_STRINGIFY(KP120_ABI_VERSION)
#endif

/* ------------------------------------------------------------------ */
/* Text: UTF-16 in the component, UTF-8 on our terminal               */
/* ------------------------------------------------------------------ */

static void print_utf16(const char16_t* s, size_t n) {
    for (size_t i = 0; i < n; ++i) {
        uint32_t c = s[i];
        if (c >= 0xD800 && c < 0xDC00 && i + 1 < n && s[i + 1] >= 0xDC00 && s[i + 1] < 0xE000)
            c = 0x10000 + ((c - 0xD800) << 10) + (s[++i] - 0xDC00);
        if (c < 0x80) {
            putchar((int)c);
        } else if (c < 0x800) {
            putchar((int)(0xC0 | c >> 6));
            putchar((int)(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            putchar((int)(0xE0 | c >> 12));
            putchar((int)(0x80 | (c >> 6 & 0x3F)));
            putchar((int)(0x80 | (c & 0x3F)));
        } else {
            putchar((int)(0xF0 | c >> 18));
            putchar((int)(0x80 | (c >> 12 & 0x3F)));
            putchar((int)(0x80 | (c >> 6 & 0x3F)));
            putchar((int)(0x80 | (c & 0x3F)));
        }
    }
}

/* ------------------------------------------------------------------ */
/* Allocator: string buffers with the header before the characters    */
/* ------------------------------------------------------------------ */

static kp_allocator g_allocator;

static char16_t* new_buffer(uint32_t capacity) {
    kp_string_header* h = malloc(capacity + KP_STRING_BLOCK_EXTRA);
    if (!h) return NULL;
    memset(h, 0, sizeof *h);
    h->owner = &g_allocator;
    h->capacity = capacity;
    char16_t* chars = (char16_t*)(h + 1);
    memset((char*)chars + capacity, 0, 2); /* the terminator */
    return chars;
}
static char16_t* alloc_grow(kp_allocator* self, uint32_t capacity) {
    (void)self;
    return new_buffer(capacity);
}
static int32_t alloc_offer(kp_allocator* self, void* block) {
    (void)self;
    (void)block;
    return 0; /* the component frees its own blocks */
}
static void alloc_release(kp_allocator* self, int32_t flag) {
    (void)self;
    (void)flag;
}
static int32_t alloc_create(kp_allocator* self, uint32_t bytes, char16_t** out) {
    (void)self;
    *out = new_buffer(bytes);
    return *out ? 0 : 100;
}
static void alloc_free(kp_allocator* self, char16_t* chars) {
    (void)self;
    if (chars) free(kp_string_header_of(chars));
}
static const kp_allocator_ops g_allocator_ops = {alloc_grow, alloc_offer,  NULL, alloc_release,
                                                 NULL,       alloc_create, NULL, alloc_free};

/* A string argument: a buffer of ours with reference count 1. */
static char16_t* make_string(const char* ascii) {
    uint32_t n = (uint32_t)strlen(ascii);
    char16_t* s = new_buffer(n * 2);
    if (!s) return NULL;
    for (uint32_t i = 0; i < n; ++i)
        s[i] = (char16_t)(unsigned char)ascii[i];
    kp_string_header* h = kp_string_header_of(s);
    h->flags = KP_STRING_FLAGS_TEXT;
    h->refcount = 1;
    h->length = n;
    return s;
}

/* ------------------------------------------------------------------ */
/* Conversion hooks, exported by name from this program               */
/* ------------------------------------------------------------------ */

/* This VM converts nothing: results of 100 and more are error codes. */
int32_t nConversionDepassement(const kp_payload* value, uint32_t from, kp_payload* scratch, uint32_t to) {
    if (from == to) {
        *scratch = *value;
        return 0;
    }
    return 100;
}
int32_t nConversionDepassementEx(const kp_payload* value, uint32_t from, kp_payload* scratch, uint32_t to,
                                 int32_t flag) {
    (void)flag;
    return nConversionDepassement(value, from, scratch, to);
}
void FinConversion(kp_payload* scratch) {
    (void)scratch;
}

/* The VM's entry point, required for the attach: the component forwards the
 * locale messages (KP_EXEC_LOCALE, KP_EXEC_LOCALE3) to it and ignores the answer. */
int32_t Execution(int32_t message, uintptr_t* block) {
    (void)message;
    (void)block;
    return 1;
}

/* ------------------------------------------------------------------ */
/* Services block                                                      */
/* ------------------------------------------------------------------ */

static const char* g_device_root = "/tmp";

static const char16_t* const kDays[7] = {u"Monday", u"Tuesday",  u"Wednesday", u"Thursday",
                                         u"Friday", u"Saturday", u"Sunday"};
static const char16_t* const kMonths[12] = {u"January",   u"February", u"March",    u"April",
                                            u"May",       u"June",     u"July",     u"August",
                                            u"September", u"October",  u"November", u"December"};
static kp_regional_settings g_regional;

static int32_t svc_query_option(void* vm, int32_t code) {
    (void)vm;
    (void)code;
    return 0;
}
static int32_t svc_message_text(void* vm, uint32_t number, char16_t* buffer, int32_t size) {
    (void)vm;
    (void)number;
    (void)buffer;
    (void)size;
    return 0; /* no texts of our own: the component uses its catalogue */
}
static const kp_regional_settings* svc_regional(void* vm) {
    (void)vm;
    return &g_regional;
}
static kp_allocator* svc_tls_get(void* vm, uint32_t index) {
    (void)vm;
    (void)index;
    return &g_allocator;
}
static const char* svc_setting(void* vm, const char* name) {
    (void)vm;
    if (strcmp(name, KP_SETTING_DEVICE_ROOT) == 0) return g_device_root;
    if (strcmp(name, KP_SETTING_ANSI_CODEPAGE) == 0) return "1252";
    return NULL; /* no registry: registry functions fail as on a device without one */
}
static int32_t message_callback(uint32_t number, char16_t* buffer, int32_t size) {
    (void)number;
    (void)buffer;
    (void)size;
    return 0;
}

/* ------------------------------------------------------------------ */
/* Value interface, call frame and call context                        */
/* ------------------------------------------------------------------ */

/* Where a result lands: the setter copies what it needs before returning. */
typedef struct result_slot {
    uint32_t type;
    int64_t number;
    char16_t text[256];
    size_t length;
} result_slot;

static void set_result(kp_value_interface* self, void* handle, const void* value, uint32_t type) {
    (void)self;
    result_slot* r = handle;
    r->type = type;
    switch (type) {
    case KP_T_BOOL:
    case KP_T_INT:
        r->number = *(const int32_t*)value;
        break;
    case KP_T_INT64:
        r->number = *(const int64_t*)value;
        break;
    case KP_T_STRING_RESULT: {
        const char16_t* s = *(char16_t* const*)value;
        size_t n = s ? kp_string_header_of(s)->length : 0;
        if (n > 255) n = 255;
        if (n) memcpy(r->text, s, n * 2);
        r->length = n;
        break;
    }
    default:
        break;
    }
}

typedef struct call_context {
    kp_call_context base; /* first: the component sees only this */
    kp_error_record record;
} call_context;

static kp_error_record* context_error(kp_call_context* self) {
    return &((call_context*)self)->record;
}

/* ------------------------------------------------------------------ */
/* Binding and calling                                                 */
/* ------------------------------------------------------------------ */

static const kp_function* g_functions;
static intptr_t g_function_count;

/* The first overload of `english` whose parameters are exactly `params`. */
static kp_handler bind(const char* english, const uint16_t* params, int count) {
    for (intptr_t i = 0; i < g_function_count; ++i) {
        const kp_function* f = &g_functions[i];
        if (strcmp(f->english, english) != 0) continue;
        for (uint32_t k = 0; k < KP_IDENT_COUNT(f->ident); ++k) {
            const kp_overload* o = &f->overloads[k];
            if (o->param_count != count) continue;
            int same = 1;
            for (int p = 0; p < count; ++p)
                if ((o->params[p] & 0xFF) != params[p]) same = 0;
            if (same) return o->handler; /* null: not provided by this edition */
        }
    }
    return NULL;
}

static void report(const char* what, const result_slot* r, const call_context* c) {
    printf("%s -> ", what);
    if (r->type == KP_T_STRING_RESULT) {
        putchar('"');
        print_utf16(r->text, r->length);
        putchar('"');
    } else {
        printf("%lld", (long long)r->number);
    }
    printf("  [severity %d, error %u", c->record.severity, c->record.id);
    if (c->record.message_length) {
        printf(": ");
        print_utf16(c->record.message, c->record.message_length);
    }
    printf("]\n");
}

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : KP120_MODULE;
    if (argc > 2) g_device_root = argv[2];

    /* 1. Load the module and its entry points. */
    void* module = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!module) {
        fprintf(stderr,
                "minimal_vm: cannot load %s: %s\n"
                "usage: minimal_vm \"$(pkg-config --variable=module kp120)\" [DEVICE_ROOT]\n",
                path, dlerror());
        return 1;
    }
    intptr_t (*info)(int32_t, int32_t) = (intptr_t(*)(int32_t, int32_t))dlsym(module, "InfoComposante");
    void (*command)(int32_t, void*) = (void (*)(int32_t, void*))dlsym(module, "CommandeComposante");
    int32_t (*execution)(int32_t, uintptr_t*) = (int32_t(*)(int32_t, uintptr_t*))dlsym(module, "Execution");
    int32_t (*general_param)(int32_t, intptr_t) =
        (int32_t(*)(int32_t, intptr_t))dlsym(module, "GeneralParam");
    int32_t (*init_conv)(void*, int32_t, int32_t, void*) =
        (int32_t(*)(void*, int32_t, int32_t, void*))dlsym(module, "bInitKLConvFromVM");
    if (!info || !command || !execution || !general_param || !init_conv) {
        fprintf(stderr, "minimal_vm: %s is not the standard-function component\n", path);
        return 1;
    }

    /* 2. Start-up, in the VM's order. */
    void* self = dlopen(NULL, RTLD_NOW); /* this program is the VM module */
    if (!init_conv(self, 2, 0, NULL)) {
        fprintf(stderr, "minimal_vm: the component refused the conversion hooks (link with -rdynamic)\n");
        return 1;
    }
    for (int d = 0; d < 7; ++d)
        g_regional.day_names[d] = kDays[d];
    for (int m = 0; m < 12; ++m)
        g_regional.month_names[m] = kMonths[m];
    g_regional.short_date = u"MM/dd/yyyy";
    g_regional.time_format = u"HH:mm:ss";
    g_regional.decimal_separator = u'.';

    /* The component keeps these pointers (services block, allocator,
     * threading descriptor) until they are taken back at the end: static. */
    static kp_services services; /* slots left null are services this VM does not offer */
    services.size = sizeof services;
    services.query_option = svc_query_option;
    services.message_text = svc_message_text;
    services.regional_settings = svc_regional;
    services.tls_get = svc_tls_get;
    services.setting = svc_setting;
    command(KP_COMMAND_SERVICES, &services);
    /* A function pointer through void*, as dlsym returns one (POSIX). */
    command(KP_COMMAND_MESSAGE_CALLBACK, (void*)message_callback);

    static kp_threading threading = {0}; /* one program thread, one allocator */
    g_allocator.ops = &g_allocator_ops;
    general_param(KP_PARAM_TLS_INDEX, 1); /* read back only by tls_get, with threading on */
    general_param(KP_PARAM_THREADING, (intptr_t)&threading);
    general_param(KP_PARAM_ALLOCATOR, (intptr_t)&g_allocator);

    for (int32_t q = 0; q <= 3; ++q) /* informational: 2, 8, 0x204, 1 */
        info(q, 0);
    g_functions = (const kp_function*)info(KP_INFO_FUNCTIONS, 0);
    g_function_count = info(KP_INFO_FUNCTION_COUNT, 0);
    printf("%ld functions, %ld constants, %ld variables\n", (long)g_function_count,
           (long)info(KP_INFO_CONSTANT_COUNT, 0), (long)info(KP_INFO_VARIABLE_COUNT, 0));
    uintptr_t attach[4] = {0, (uintptr_t)self, 0, 0};
    if (!execution(KP_EXEC_ATTACH, attach)) {
        fprintf(stderr,
                "minimal_vm: attach refused: this program exports no Execution (link with -rdynamic)\n");
        return 1;
    }
    /* The component object: the component's name and the last error. */
    kp_component_object* (*query_proxy)(int32_t) =
        (kp_component_object * (*)(int32_t)) dlsym(module, "pQueryProxy");
    kp_component_object* object = query_proxy ? query_proxy(KP_PROXY_COMPONENT_OBJECT) : NULL;
    if (object) {
        char16_t name[64];
        object->ops->set_language(object, 1);
        object->ops->name(object, name, 64);
        size_t n = 0;
        while (name[n])
            ++n;
        printf("Component: ");
        print_utf16(name, n);
        printf("\n");
    }

    /* 3. Calls: one value interface, one call context per thread. */
    static kp_value_interface_ops value_ops; /* the VM's own 149 operations are not needed here */
    value_ops.set_result = set_result;
    kp_value_interface values = {&value_ops};
    static kp_call_context_ops context_ops;
    context_ops.error = context_error;
    static call_context context;
    context.base.ops = &context_ops;

    struct {
        const char* name;
        const char* shown;
        uint16_t params[2];
        int count;
        const char* text;
        const char* text2;
    } calls[] = {
        {"DateToString",
         "DateToString(\"20261124\", \"DDDD DD MMMM YYYY\")",
         {KP_T_STRING, KP_T_STRING},
         2,
         "20261124",
         "DDDD DD MMMM YYYY"},
        {"URLEncode", "URLEncode(\"a b&c\")", {KP_T_STRING}, 1, "a b&c", NULL},
        {"DateToInteger", "DateToInteger(\"20261345\")", {KP_T_STRING}, 1, "20261345", NULL},
    };
    int failures = 0;
    for (size_t i = 0; i < sizeof calls / sizeof calls[0]; ++i) {
        kp_handler handler = bind(calls[i].name, calls[i].params, calls[i].count);
        if (!handler) {
            printf("%s: not provided\n", calls[i].name);
            ++failures;
            continue;
        }
        memset(&context.record, 0, sizeof context.record);
        context.record.severity = KP_SEVERITY_NONE; /* a cleared record before every call */
        result_slot result;
        memset(&result, 0, sizeof result);
        kp_call_frame frame = {&values, NULL, NULL, NULL, &result};
        char16_t* a0 = make_string(calls[i].text);
        char16_t* a1 = calls[i].text2 ? make_string(calls[i].text2) : NULL;
        void* args[2] = {&a0, &a1};
        handler(&frame, &context.base, args);
        report(calls[i].shown, &result, &context);
        alloc_free(&g_allocator, a0); /* our arguments, our references */
        alloc_free(&g_allocator, a1);
    }

    /* 4. Detach, take back what was handed over, unload.  The component
     * object's code is the module's: destroy it before dlclose. */
    uintptr_t detach[4] = {0, 0, 0, 0};
    execution(KP_EXEC_DETACH, detach);
    if (object) object->ops->destroy(object);
    g_allocator.replaced = 1; /* we take it back ourselves: no release call */
    general_param(KP_PARAM_ALLOCATOR, 0);
    general_param(KP_PARAM_THREADING, 0);
    command(KP_COMMAND_SERVICES, NULL);
    command(KP_COMMAND_MESSAGE_CALLBACK, NULL);
    dlclose(module);
    return failures ? 1 : 0;
}
