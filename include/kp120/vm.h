/*
 * kp120/vm.h - the VM side of the component boundary.
 *
 * Everything here is implemented by the VM (the reference host, kp120::host, is a
 * complete example) and called by the component: the value interface that
 * receives results, the call frame and call context given to every handler,
 * the error record the component fills, the string allocator, the string
 * buffer header, the variant, the conversion hooks and the services block.
 *
 * Operation tables are arrays of function pointers whose slot positions are
 * fixed: a VM fills the slots the component calls and may leave the others
 * null.  "Operation N" in the comments counts from 1, "index N" from 0.
 */
#ifndef KP120_VM_H
#define KP120_VM_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ------------------------------------------------------------------ */
/* String buffers                                                      */
/* ------------------------------------------------------------------ */

/*
 * A string (or binary buffer) travels as a pointer to its first character.
 * The header lies immediately before the characters.  The four 32-bit words
 * sit at -16, -12, -8 and -4 on every target; the owner pointer before them
 * is pointer-wide (-20 on 32-bit targets, -24 on 64-bit ones).  The character
 * area always ends with one UTF-16 zero.  A null pointer is the empty string.
 */
typedef struct kp_string_header {
    struct kp_allocator* owner; /* allocator that made the buffer */
    uint32_t flags;             /* bits 1-3: kind (2 = UTF-16 text); bit 0 cleared on shortening */
    int32_t refcount;
    uint32_t capacity; /* bytes in the character area */
    uint32_t length;   /* characters (bytes for a binary buffer), terminator excluded */
} kp_string_header;

#define KP_STRING_KIND_TEXT 2u
#define KP_STRING_FLAGS_TEXT (KP_STRING_KIND_TEXT << 1)
#define KP_STRING_MAX_CHARS 0x7FFFFF00u /* creating this many characters or more fails with 108 */
/* Extra bytes around the character area of a block: the header plus room for the terminator. */
#define KP_STRING_BLOCK_EXTRA (sizeof(kp_string_header) + 4u)

static inline kp_string_header* kp_string_header_of(const char16_t* chars) {
    return (kp_string_header*)((char*)(chars) - sizeof(kp_string_header));
}

/* ------------------------------------------------------------------ */
/* Allocator                                                           */
/* ------------------------------------------------------------------ */

struct kp_allocator;

/*
 * The VM's string allocator (GeneralParam 2008, and per thread through the
 * thread-local slot of GeneralParam 2005).  Operations the component calls:
 *   1 grow:    new buffer of `capacity` bytes, header owner/capacity set and
 *              the terminator written; returns the character pointer or null.
 *   2 offer:   offered a block the component allocated itself with the C
 *              library (block = header address); returns non-zero when the
 *              allocator takes it, 0 to let the component free() it.
 *   4 release: called with 1 when GeneralParam 2008 replaces (or removes,
 *              with 0) this allocator while its `replaced` is 0: the
 *              component no longer uses it.
 *   6 create:  new buffer of at least `bytes` bytes (plus terminator), header
 *              owner and capacity set; stores the characters in *out and
 *              returns 0, or returns an error code (100 out of memory).
 *   8 free:    frees a buffer this allocator owns (character pointer).
 * The allocator needs to set only the owner and the capacity of a new
 * buffer: the component then writes its flags, its length and its reference
 * count, which starts at 1 (the component's own reference; a result handed to
 * set_result is released by the component after the call, so the VM takes
 * its own reference inside set_result when it keeps the buffer).
 */
typedef struct kp_allocator_ops {
    char16_t* (*grow)(struct kp_allocator* self, uint32_t capacity);              /* operation 1 */
    int32_t (*offer)(struct kp_allocator* self, void* block);                     /* operation 2 */
    void* reserved3;                                                              /* operation 3 */
    void (*release)(struct kp_allocator* self, int32_t flag);                     /* operation 4 */
    void* reserved5;                                                              /* operation 5 */
    int32_t (*create)(struct kp_allocator* self, uint32_t bytes, char16_t** out); /* operation 6 */
    void* reserved7;                                                              /* operation 7 */
    void (*free_buffer)(struct kp_allocator* self, char16_t* chars);              /* operation 8 */
} kp_allocator_ops;

typedef struct kp_allocator {
    const kp_allocator_ops* ops;
    /* Set to 1 by a VM that takes the allocator back itself (at teardown,
     * before GeneralParam 2008 with 0): release (operation 4) is then not called. */
    int32_t replaced;
} kp_allocator;

/* Threading descriptor (GeneralParam 2006): first word non-zero = per-thread allocators. */
typedef struct kp_threading {
    int32_t multi_threaded;
} kp_threading;

/*
 * Thread-local storage as the VM keeps it: GeneralParam 2005 hands over an
 * index; the component asks the services block (tls_get) for the calling
 * thread's allocator under that index.
 */

/* ------------------------------------------------------------------ */
/* Variant                                                             */
/* ------------------------------------------------------------------ */

struct kp_variant;

/* Payload of a variant and scratch area of a conversion: 16 bytes. */
typedef union kp_payload {
    int32_t i32;
    int64_t i64;
    double real;
    uint8_t currency[10];
    char16_t* str; /* string buffer (0x12, 0x13) or binary buffer (0x1C) */
    void* ptr;
    uint8_t raw[16];
} kp_payload;

/*
 * A variant carries the operations of whoever made it.  The operations of a
 * variant the component made (a by-reference argument it filled, a result of
 * type 0x1F) are code of the module: the VM destroys such a variant, or
 * copies it into one of its own, before it unloads the module (dlclose).
 */
typedef struct kp_variant_ops {
    void (*destroy)(struct kp_variant* v);                                 /* frees the payload */
    int32_t (*copy)(struct kp_variant* dst, const struct kp_variant* src); /* dst has src's type */
} kp_variant_ops;

/* Variant status bits kept across conversions. */
#define KP_VARIANT_STATUS_MASK 0x0500u

typedef struct kp_variant {
    const kp_variant_ops* ops; /* chosen by the current type code */
    uint16_t type;             /* type code (low byte) and status bits 0x100, 0x400 */
    uint16_t reserved;
    uint32_t reserved2;
    kp_payload value;
} kp_variant;

/*
 * Conversion hooks, exported by name from the VM module and fetched by
 * bInitKLConvFromVM:
 *   "nConversionDepassement"   (payload, from type, scratch, to type)
 *   "nConversionDepassementEx" (payload, from type, scratch, to type, flag = 1)
 *   "FinConversion"            (scratch)
 * A result of 100 or more is an error code.  For the types 0x0D and 0x12 the
 * converted value is the scratch area's value word; for other types it is
 * the whole scratch area.  A string produced by a conversion belongs to the
 * variant afterwards: FinConversion frees only the conversion's temporaries.
 */
typedef int32_t (*kp_conversion_fn)(const kp_payload* value, uint32_t from_type, kp_payload* scratch,
                                    uint32_t to_type);
typedef int32_t (*kp_conversion_ex_fn)(const kp_payload* value, uint32_t from_type, kp_payload* scratch,
                                       uint32_t to_type, int32_t flag);
typedef void (*kp_conversion_end_fn)(kp_payload* scratch);

/* ------------------------------------------------------------------ */
/* Error record                                                        */
/* ------------------------------------------------------------------ */

#define KP_ERROR_MESSAGE_CAPACITY 4096 /* characters, terminator included; longer text is cut */
#define KP_ERROR_SYSTEXT_CAPACITY 512

#define KP_SEVERITY_NONE 1
#define KP_SEVERITY_ERROR 2
#define KP_SEVERITY_FATAL 3

/*
 * The error object of one call context, owned by the VM and written by the
 * component.  The VM starts it cleared: severity 1, everything else zero.
 *
 * After a failing call, severity is 2 (error) or 3 (fatal), module_name and
 * module_version are "KP120STD.DLL" and "12.00Dr", and either:
 *   - id is an error identifier (80001 to 81507) and message its text in
 *     the interface language, with the component's trace lines
 *     ("##(CXError)-...##", "##(IXStream)-...##") appended on lines of their
 *     own; system_code may add the system error behind it; or
 *   - id is 0 and system_code a Win32 error code: a system call failed and
 *     nothing more is known; message then holds the system's text of the
 *     code (the same text as system_text).
 * A record never has severity 2 or 3 with both id and system_code 0.
 * The record's layout never changes within one ABI version.
 */
typedef struct kp_error_record {
    int32_t severity;        /* 1 none, 2 error, 3 fatal */
    uint32_t id;             /* error identifier, 0 when none */
    uint32_t extra;          /* extra code of the applied error definition */
    uint32_t system_code;    /* Win32 error code, 0 when none */
    char module_name[16];    /* "KP120STD.DLL" once an error was recorded; always NUL-terminated */
    char module_version[16]; /* "12.00Dr"; always NUL-terminated */
    uint32_t message_length; /* characters */
    char16_t message[KP_ERROR_MESSAGE_CAPACITY];
    uint32_t system_text_length;
    char16_t system_text[KP_ERROR_SYSTEXT_CAPACITY];
    /* Additional flag: set (1, 1) when access was denied although the
     * target is not read-only, so the VM can tell a rights problem from a
     * protected file.  Cleared with the rest of the record. */
    uint32_t additional[2];
} kp_error_record;

/* ------------------------------------------------------------------ */
/* Value interface, call frame, call context                          */
/* ------------------------------------------------------------------ */

struct kp_value_interface;

/*
 * Result setter: the VM copies what it needs before returning.  `value`
 * points at the result, `type` tells its kind: 0x01 and 0x08 an int32_t,
 * 0x09 an int64_t, 0x1B an int64_t of milliseconds, 0x0C a double, 0x0A ten
 * bytes, 0x0F a uintptr_t, 0x1F a kp_variant, 0x13 a char16_t* string buffer
 * (every string result, never 0x12) and 0x1C a char16_t* binary buffer.
 */
typedef void (*kp_set_result_fn)(struct kp_value_interface* self, void* result_handle, const void* value,
                                 uint32_t type);

typedef struct kp_value_interface_ops {
    void* vm_reserved[149];      /* the VM's own operations */
    kp_set_result_fn set_result; /* index 149 */
} kp_value_interface_ops;

typedef struct kp_value_interface {
    const kp_value_interface_ops* ops;
} kp_value_interface;

/* Given to every handler; the handler reads the first and fifth words only. */
typedef struct kp_call_frame {
    kp_value_interface* values; /* word 1 */
    void* vm_word2;
    void* vm_word3;
    void* vm_word4;
    void* result_handle; /* word 5 */
} kp_call_frame;

struct kp_call_context;
typedef struct kp_call_context_ops {
    void* vm_reserved[17];
    kp_error_record* (*error)(struct kp_call_context* self); /* index 17 */
} kp_call_context_ops;

typedef struct kp_call_context {
    const kp_call_context_ops* ops;
} kp_call_context;

/* ------------------------------------------------------------------ */
/* Services block (CommandeComposante 0)                               */
/* ------------------------------------------------------------------ */

/* Message-text callback (CommandeComposante 2, and the services block):
 * writes message `number` into `buffer` of `size` characters; returns the
 * text length, 0 when it has no text, or a value of 257 and more that is the
 * size needed (the component calls again with that size). */
typedef int32_t (*kp_message_fn)(uint32_t number, char16_t* buffer, int32_t size);

/*
 * Regional settings of the current interface language.  Day names start
 * with Monday (weekday 1).  The formats use the picture notation of the
 * device's regional settings: d dd ddd dddd, M MM MMM MMMM, y yy yyyy,
 * h hh H HH, m mm, s ss, t tt, and quoted literals in '...'.
 */
typedef struct kp_regional_settings {
    const char16_t* day_names[7];    /* full names, Monday first */
    const char16_t* month_names[12]; /* full names, January first */
    const char16_t* short_date;      /* "sShortDate", e.g. u"dd/MM/yyyy" */
    const char16_t* time_format;     /* "sTimeFormat", e.g. u"HH:mm:ss" */
    char16_t decimal_separator;
    const char16_t* size_units; /* replacement for message 25202, or null */
} kp_regional_settings;

/* Procedure parameters (type 0x43): the VM resolves and calls a program's procedure. */
typedef struct kp_procedure kp_procedure;

/* Fixed option codes of query_option. */
#define KP_OPTION_SMOOTH_TIME 9

/* Setting names of setting() (KP_SETTING_*): host configuration the component honours. */
#define KP_SETTING_DEVICE_ROOT "device_root"     /* directory that holds the device's file system */
#define KP_SETTING_REGISTRY "registry"           /* SQLite file that holds the registry */
#define KP_SETTING_ANSI_CODEPAGE "ansi_codepage" /* code page of ANSI text files, default "1252" */
/* D-Bus address of the system's services (power, battery, modem): empty or
 * absent for the system bus, "none" to refuse every request. */
#define KP_SETTING_SYSTEM_BUS "system_bus"

struct kp_selector_request;
struct kp_display;
struct kp_table_interface;

/*
 * Versioned blocks: kp_services, kp_display, kp_table_interface and
 * kp_selector_request begin with `size`, the size of the structure as the
 * side that wrote the block knows it.  Slots are only ever appended.  A
 * reader uses a slot only when `size` covers it whole and takes a slot past
 * `size` as absent, the same as an empty (null) one; a block larger than
 * the reader knows is read as far as the reader knows it.  KP_HAS_SLOT is
 * that test, for example
 *
 *     if (KP_HAS_SLOT(services, kp_services, display) && services->display)
 *
 * and KP_SLOT_END(type, member) the smallest `size` that holds `member`.
 */
#define KP_SLOT_END(type, member) (offsetof(type, member) + sizeof(((type*)0)->member))
#define KP_HAS_SLOT(block, type, member)                                                                     \
    ((block) != NULL && (size_t)(block)->size >= KP_SLOT_END(type, member))

typedef struct kp_services {
    uint32_t size; /* sizeof(kp_services) as the VM knows it; slots past it are absent */
    void* vm;      /* the VM's own pointer, passed back to every slot */

    /* Yes/no options of the VM (code 9: smoothed hundredths of the clock). */
    int32_t (*query_option)(void* vm, int32_t code);
    /* Message texts by number, as the message callback. */
    int32_t (*message_text)(void* vm, uint32_t number, char16_t* buffer, int32_t size);
    /* Regional settings of the current interface language.  Optional: when
     * the slot is absent or answers null, the component uses English names
     * and formats (Monday..., January..., dd/MM/yyyy, HH:mm:ss). */
    const kp_regional_settings* (*regional_settings)(void* vm);
    /* Thread-local allocator under the index given with GeneralParam 2005. */
    kp_allocator* (*tls_get)(void* vm, uint32_t index);

    /* Procedure lookup by name (null when unknown) and call with variant
     * arguments; the result variant is filled when non-null.  Returns 0 on success. */
    kp_procedure* (*find_procedure)(void* vm, const char16_t* name);
    int32_t (*call_procedure)(void* vm, kp_procedure* proc, kp_variant* args, int32_t argc,
                              kp_variant* result);

    /* Notices around a call that blocks the program thread (process waits). */
    void (*begin_blocking)(void* vm);
    void (*end_blocking)(void* vm);

    /* The project object: name of the running project, used for default
     * locations of saved parameters. */
    const char16_t* (*project_name)(void* vm);

    /* Version service of the release check. */
    int32_t (*version_accepts)(void* vm, const char* module, const char* version);
    const char* (*version_own)(void* vm);
    void (*version_register)(void* vm, const char* module, const char* version);
    const char16_t* (*version_describe)(void* vm, const char* module);

    /* Export of the VM's object module looked up by name (GetProcAddress),
     * e.g. "OBJ_pclGetTauxDeChange"; null when missing. */
    void* (*object_module_symbol)(void* vm, const char* name);

    /* Sends a window message to a window of the VM and returns its answer
     * (message 1751 of eRoundDifference writes a currency value at lparam). */
    intptr_t (*send_window_message)(void* vm, uintptr_t window, uint32_t message, uintptr_t wparam,
                                    uintptr_t lparam);

    /* Host configuration by name (KP_SETTING_*): UTF-8 text or null. */
    const char* (*setting)(void* vm, const char* name);

    /* ---- Slots appended after the first release.  A VM that predates a
     * slot passes a smaller `size`; the component then treats the slot as
     * empty (KP_HAS_SLOT) and takes the documented fallback. ---- */

    /* File selectors (fSelect, fSelectDir, fGraphicFilter): the VM shows
     * its dialog and writes the chosen text into buffer (size characters,
     * terminator included).  Returns the text length, 0 for a cancelled
     * dialog, or a value >= size that is the size needed (the component
     * asks again with that size).  Absent: every selector is cancelled. */
    int32_t (*select)(void* vm, const struct kp_selector_request* request, char16_t* buffer, int32_t size);

    /* State of a key of the VM's user interface by virtual-key code, as
     * GetAsyncKeyState answers: bit 0x8000 the key is down, bit 0x0001 it
     * was pressed since the previous query.  Absent: no key is ever down. */
    int32_t (*key_state)(void* vm, int32_t virtual_key);

    /* Handles at most one pending event of the VM's user interface while a
     * handler waits (process waits); returns non-zero when it handled one. */
    int32_t (*pump_message)(void* vm);

    /* Name of the VM object (window or report) whose code is running, used
     * where a function defaults to "the current object"; null when none. */
    const char16_t* (*current_object_name)(void* vm);

    /* The VM's display: screen, windows and input of its user interface
     * (kp_display below); null when the VM has none. */
    const struct kp_display* (*display)(void* vm);

    /* The VM's table controls (kp_table_interface below), through which the
     * component reads a control passed as an argument of type 0x39; null
     * when the VM has none. */
    const struct kp_table_interface* (*table_interface)(void* vm);
} kp_services;

/* ------------------------------------------------------------------ */
/* File selectors                                                      */
/* ------------------------------------------------------------------ */

#define KP_SELECT_FILE 0           /* fSelect */
#define KP_SELECT_DIRECTORY 1      /* fSelectDir */
#define KP_SELECT_GRAPHIC_FILTER 2 /* fGraphicFilter */

/* What the program asked of a selector: the function's string arguments in
 * their order (null past text_count) and its integer option, 0 when absent. */
typedef struct kp_selector_request {
    uint32_t size; /* sizeof(kp_selector_request) as the component knows it */
    int32_t kind;  /* KP_SELECT_* */
    int32_t text_count;
    const char16_t* texts[6];
    int32_t options;
} kp_selector_request;

/* ------------------------------------------------------------------ */
/* Display: screen, windows and input (services slot `display`)       */
/* ------------------------------------------------------------------ */

/*
 * The VM's user interface as the Sys, cursor and input functions see it.
 * Window handles are the windowing system's own identifiers (X11 window
 * ids) or the numbers of a display without a windowing system; 0 is never
 * a window.  Texts are UTF-16 and zero-terminated.  Every operation takes
 * `self` first; a slot the display leaves null makes the function fail with
 * "not supported".  Operations that answer a text write it into `buffer`
 * (`size` characters, terminator included) and return its length, -1 when
 * the window is not one, or a value >= size that is the size needed.
 */
typedef struct kp_rect {
    int32_t left, top, right, bottom;
} kp_rect;

/* Screen description (screen operation). */
typedef struct kp_screen_info {
    int32_t width, height;  /* pixels, as the screen is turned now */
    int32_t bits_per_pixel; /* colour depth */
    kp_rect work_area;      /* the screen less panels and task bars */
    int32_t orientation;    /* degrees: 0, 90, 180 or 270 */
    uint32_t orientations;  /* bit n set: 90*n degrees is possible (bit 0 = 0 degrees) */
} kp_screen_info;

/* Show modes (show operation): the values of the language's sws constants,
 * and for the modes that family names without a value (minimize, maximize,
 * restore) the show codes programs of the platform pass as numbers. */
#define KP_SHOW_HIDE 0
#define KP_SHOW_NORMAL 1
#define KP_SHOW_MINIMIZE 2
#define KP_SHOW_MAXIMIZE 3
#define KP_SHOW_ACTIVATE 4
#define KP_SHOW_VISIBLE 5
#define KP_SHOW_RESTORE 9
#define KP_SHOW_REFRESH 8

/* Mouse actions (mouse operation). */
#define KP_MOUSE_MOVE 0
#define KP_MOUSE_LEFT_CLICK 1
#define KP_MOUSE_LEFT_DOUBLE 2
#define KP_MOUSE_LEFT_DOWN 3
#define KP_MOUSE_LEFT_UP 4
#define KP_MOUSE_RIGHT_CLICK 5
#define KP_MOUSE_RIGHT_DOUBLE 6
#define KP_MOUSE_RIGHT_DOWN 7
#define KP_MOUSE_RIGHT_UP 8

/* Modifier bits of synthetic keys (type_text), the language's di values. */
#define KP_MODIFIER_SHIFT 1
#define KP_MODIFIER_ALT 2
#define KP_MODIFIER_CONTROL 4

/* Notification-area operations (notify_icon). */
#define KP_ICON_ADD 0
#define KP_ICON_MODIFY 1
#define KP_ICON_DELETE 2

typedef struct kp_display {
    uint32_t size; /* sizeof(kp_display) as the VM knows it; slots past it are absent */
    void* self;

    /* Screen size, depth, work area and orientations; 1 on success. */
    int32_t (*screen)(void* self, kp_screen_info* out);
    /* Turns the screen to `degrees` (0, 90, 180, 270); 1 on success. */
    int32_t (*set_orientation)(void* self, int32_t degrees);
    /* System metric by the language's met code into *out; 1 when known. */
    int32_t (*metric)(void* self, int32_t code, int32_t* out);
    /* Colour of a system element by index 0-20 (the low bits of the
     * language's sc codes) as red + green*256 + blue*65536 into *out; 1
     * when known. */
    int32_t (*system_colour)(void* self, int32_t element, int32_t* out);
    /* Sets it; 1 on success. */
    int32_t (*set_system_colour)(void* self, int32_t element, int32_t colour);
    /* Screen power: on = 1 lights it, 0 turns it off; 1 on success. */
    int32_t (*screen_power)(void* self, int32_t on);

    /* First top-level window whose title is `title` (null: any) and whose
     * class is `class_name` (null: any); 0 when none. */
    uintptr_t (*find_window)(void* self, const char16_t* title, const char16_t* class_name);
    int32_t (*is_window)(void* self, uintptr_t window);
    int32_t (*window_title)(void* self, uintptr_t window, char16_t* buffer, int32_t size);
    int32_t (*set_window_title)(void* self, uintptr_t window, const char16_t* title);
    /* Applies a KP_SHOW_* mode; 1 on success. */
    int32_t (*show)(void* self, uintptr_t window, int32_t mode);
    /* 1 when the window is minimized (iconic), 0 when not, -1 not a window. */
    int32_t (*is_iconic)(void* self, uintptr_t window);
    /* The window with the focus of the user's input, 0 when none. */
    uintptr_t (*active_window)(void* self);
    /* Activates `window` and gives it the focus; returns the window that
     * had it before (0 when none), or 0 on failure with *ok = 0. */
    uintptr_t (*activate)(void* self, uintptr_t window, int32_t* ok);
    /* Window and client rectangles in screen coordinates; 1 on success. */
    int32_t (*window_rects)(void* self, uintptr_t window, kp_rect* frame, kp_rect* client);
    /* Menu bar of a window of the VM, and a submenu by position; 0 none. */
    uintptr_t (*menu)(void* self, uintptr_t window);
    uintptr_t (*sub_menu)(void* self, uintptr_t menu, int32_t position);
    /* Drawing context of a window of the VM, released with release_dc. */
    uintptr_t (*get_dc)(void* self, uintptr_t window);
    int32_t (*release_dc)(void* self, uintptr_t window, uintptr_t dc);

    /* Pointer position in screen coordinates; 1 on success. */
    int32_t (*pointer)(void* self, int32_t* x, int32_t* y);
    /* Key state by virtual-key code, as the services slot key_state. */
    int32_t (*key_state)(void* self, int32_t virtual_key);
    /* Types `text` into the window with the focus, the KP_MODIFIER_* keys
     * held; 1 on success. */
    int32_t (*type_text)(void* self, const char16_t* text, int32_t modifiers);
    /* A KP_MOUSE_* action at (x, y) in screen coordinates; 1 on success. */
    int32_t (*mouse)(void* self, int32_t action, int32_t x, int32_t y);

    /* The program's one icon in the notification area (KP_ICON_*): its
     * image file (a device name), tooltip and a balloon message shown
     * once (null: none, or unchanged when modifying).  Modify and delete
     * fail when there is no icon, delete also when `image` is given and
     * is not the icon's.  1 on success. */
    int32_t (*notify_icon)(void* self, int32_t operation, const char16_t* image, const char16_t* tooltip,
                           const char16_t* balloon);
    /* The colour dialog: starts on `initial` with the language's sc dialog
     * flags; 1 and *chosen when the user chose, 0 when cancelled. */
    int32_t (*choose_colour)(void* self, int32_t initial, int32_t flags, int32_t* chosen);
} kp_display;

/* ------------------------------------------------------------------ */
/* Table controls (services slot `table_interface`)                   */
/* ------------------------------------------------------------------ */

/*
 * A control of the VM's user interface travels as the value of an argument
 * of type 0x39: a handle that only the VM interprets.  The component reads a
 * table control only through these operations, each given the interface's
 * context (its `self` slot) first and the control.  Columns count from 0 in
 * the control's order, rows from 0 in display order; row KP_TABLE_TOTALS_ROW
 * is the totals row.
 */
#define KP_TABLE_TOTALS_ROW (-1)

/* The three kinds of control that are tables (any other kind is not). */
#define KP_CONTROL_KIND_TABLE 9
#define KP_CONTROL_KIND_TABLE2 30
#define KP_CONTROL_KIND_TABLE3 35

typedef struct kp_table_interface {
    uint32_t size; /* sizeof(kp_table_interface) as the VM knows it; slots past it are absent */

    /* Kind of the control; -1 when the handle names no control. */
    int32_t (*kind)(void* self, uintptr_t control);

    /* Prepares the table for reading (its content up to date).  Returns 0,
     * or non-zero after writing the VM's error for the control into
     * `error` (the call's error record).  Every successful begin_read is
     * followed by one end_read. */
    int32_t (*begin_read)(void* self, uintptr_t control, kp_error_record* error);
    void (*end_read)(void* self, uintptr_t control);

    /* Columns: count, title (UTF-16, *length characters, not necessarily
     * zero-terminated; null for none) and whether the column is visible. */
    int32_t (*column_count)(void* self, uintptr_t control);
    const char16_t* (*column_title)(void* self, uintptr_t control, int32_t column, int32_t* length);
    int32_t (*column_visible)(void* self, uintptr_t control, int32_t column);

    /* Rows: count (the totals row excluded), whether a row is selected,
     * whether the table has a totals row. */
    int32_t (*row_count)(void* self, uintptr_t control);
    int32_t (*row_selected)(void* self, uintptr_t control, int32_t row);
    int32_t (*has_totals)(void* self, uintptr_t control);

    /* The value of a cell: `out` is a variant of no value that the VM sets
     * (with its own operations table); the component destroys it.  Returns
     * 0, or non-zero when the cell cannot be read. */
    int32_t (*cell)(void* self, uintptr_t control, int32_t row, int32_t column, kp_variant* out);

    /* ---- Slots appended after the first release (KP_HAS_SLOT). ---- */

    /* The context every operation is given first, as the display's `self`.
     * Absent or null: the services block's `vm` pointer. */
    void* self;
} kp_table_interface;

/*
 * Currency table returned by the object module's "OBJ_pclGetTauxDeChange"
 * (no arguments; one table per process, which the component reads and
 * updates in place).  Rates are the units of a currency for one euro, times
 * 1000000; entry 0 is the euro, whose rate is 1000000.  Names hold at most
 * KP_CURRENCY_NAME_CHARS UTF-16 characters and are zero-terminated only
 * when shorter.  Index 0xFFFF stands for a default currency; 0xFFFE and
 * indexes not below `count` are invalid.
 */
#define KP_CURRENCY_CAPACITY 64
#define KP_CURRENCY_NAME_CHARS 8

typedef struct kp_currency_table {
    int32_t rates[KP_CURRENCY_CAPACITY];
    char16_t names[KP_CURRENCY_CAPACITY][KP_CURRENCY_NAME_CHARS]; /* 16-byte entries */
    uint16_t count;          /* currencies in use, at most KP_CURRENCY_CAPACITY */
    uint16_t default_view;   /* index of the default display currency */
    uint16_t default_memory; /* index of the default memory currency */
} kp_currency_table;

typedef kp_currency_table* (*kp_currency_table_fn)(void);

#ifdef __cplusplus
}
#endif
#endif
