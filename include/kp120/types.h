/*
 * kp120/types.h - type codes and the descriptor-table records of the component.
 *
 * The VM reads three static tables from the component (functions, constants,
 * variables).  The records below are the wire format shared with the VM.
 * Address-sized fields are pointer-wide: on a 32-bit target an overload
 * record is 28 bytes, a constant entry 20 bytes and a variable entry 16 bytes
 * (checked by static assertions when building for 32 bits); on x86-64 the
 * same fields simply widen to 8 bytes.
 *
 * Only C layouts live here: this header is included by C and C++ VMs alike.
 */
#ifndef KP120_TYPES_H
#define KP120_TYPES_H

#include <stdint.h>

/*
 * Versions.  The release is MAJOR.MINOR.PATCH.  KP120_ABI_VERSION is the
 * soname's number (libkp120std.so.1): it changes only when a record below
 * changes its layout or an entry point its meaning.  A minor release may add
 * functions, overloads, constants, type codes and error identifiers, and may
 * grow the records that carry their own size field (the services block and
 * the structures of vm.h that begin with a size); a VM reads only the part
 * its own size covers.  The descriptor-table records, the string-buffer
 * header, the call frame, the value interface's indices and the byte
 * formats of values (currency, dates, files and registry data) never change
 * within one ABI version.
 */
#define KP120_VERSION_MAJOR 1
#define KP120_VERSION_MINOR 0
#define KP120_VERSION_PATCH 0
#define KP120_ABI_VERSION 1

#ifdef __cplusplus
extern "C" {
#endif

/* Type codes: parameters, results, variables and the value interface. */
enum kp_type_code {
    KP_T_NONE = 0x00,          /* no value (procedure result) */
    KP_T_BOOL = 0x01,          /* 32-bit word holding 0 or 1 */
    KP_T_INT = 0x08,           /* 32-bit signed integer */
    KP_T_INT64 = 0x09,         /* 8-byte integer */
    KP_T_CURRENCY = 0x0A,      /* 10-byte monetary value */
    KP_T_REAL = 0x0C,          /* 8-byte floating point */
    KP_T_REAL_ALT = 0x0D,      /* a real kept in the value word by conversions */
    KP_T_HANDLE_IN = 0x0E,     /* system handle passed in */
    KP_T_HANDLE_OUT = 0x0F,    /* system handle returned */
    KP_T_STRING = 0x12,        /* string parameter (UTF-16 string buffer) */
    KP_T_STRING_RESULT = 0x13, /* string result, or a parameter handed over as a buffer */
    KP_T_DATE = 0x18,
    KP_T_TIME = 0x19,
    KP_T_DATETIME = 0x1A,
    KP_T_DURATION = 0x1B,
    KP_T_BUFFER = 0x1C, /* binary buffer (same header as a string buffer) */
    KP_T_ANY = 0x1F,    /* variant */
    KP_T_WINDOW = 0x2C, /* interface object references, stored only */
    KP_T_IMAGE = 0x2E,
    KP_T_CONTROL = 0x39,
    KP_T_PROCEDURE = 0x43,  /* procedure reference (callback named by the program) */
    KP_T_RAW_STRING = 0x4B, /* string or buffer taken as raw data */
    KP_T_RAW_DATA = 0x4D,
    KP_T_STORABLE = 0x59 /* value of any simple type to be stored */
};

/*
 * Bits of a parameter type code, read by the VM only.
 *
 * KP_PARAM_BY_REFERENCE: the VM passes the program's variable itself (a
 * variable that receives a value: the rounding difference of the euro
 * functions, the receiving variables of MatchRegularExpression and
 * fReadLine, the buffers of Compress and sComputeCrc32).  The argument slot
 * then points at the VM's variable (a kp_variant for type 0x1F), which the
 * handler assigns.
 *
 * Arguments that may be left out: a program may pass fewer arguments than an
 * overload lists when the parameters it leaves out are trailing by-reference
 * parameters (MatchRegularExpression's overload of ten slots is called with
 * two to ten arguments, fReadLine's pattern form the same).  The argument vector
 * holds one pointer for each argument the program passed, then null in every
 * slot up to the overload's param_count: a handler learns how many arguments
 * it got from the first null slot among those trailing parameters (the call
 * frame carries no count), and writes nothing for the variables left out.
 * Every other parameter is required: the VM resolves an overload only when
 * the program passes at least every parameter before the trailing
 * by-reference run.
 */
#define KP_PARAM_CONVERT 0x8000u                 /* the VM converts the argument to the base type */
#define KP_PARAM_BY_REFERENCE 0x4000u            /* the VM passes the variable itself */
#define KP_PARAM_FLAG_4000 KP_PARAM_BY_REFERENCE /* former name, kept for existing VMs */

/* Attribute bit: a function, constant or variable this edition does not provide. */
#define KP_ATTR_NOT_PROVIDED 0x200u

/* Component number repeated in every function and variable identifier word. */
#define KP_COMPONENT_NUMBER 8u

/* Constant value kinds. */
#define KP_CONST_INT 0x0808u      /* integer constant with a value */
#define KP_CONST_NO_VALUE 0x0008u /* integer constant not provided; value 0 */
#define KP_CONST_STRING 0x1208u   /* value points at NUL-terminated UTF-16 text */

struct kp_call_frame;
struct kp_call_context;

/* Every handler: returns 0; failures travel through the error record. */
typedef int32_t (*kp_handler)(struct kp_call_frame* frame, struct kp_call_context* context, void** args);

/* Overload record. */
typedef struct kp_overload {
    kp_handler handler;  /* null where this edition has no implementation */
    uint16_t params[10]; /* parameter type codes; unused slots 0 */
    uint8_t reserved0;   /* always 0 */
    uint8_t reserved1;   /* always 0 */
    uint8_t param_count;
    uint8_t result; /* result type code, 0 for none */
} kp_overload;

/* Function entry. */
typedef struct kp_function {
    const char* french;  /* Windows-1252 bytes */
    const char* english; /* Windows-1252 bytes */
    uint32_t attributes;
    uint32_t ident; /* bits 0-15 identifier, 16-23 component 8, 24-31 overload count */
    const kp_overload* overloads;
} kp_function;

/* Constant entry. */
typedef struct kp_constant {
    const char* french;
    const char* english;
    uint32_t attributes;
    uintptr_t value; /* integer value, or address of UTF-16 text (KP_CONST_STRING) */
    uint32_t kind;   /* KP_CONST_* */
} kp_constant;

/* Variable entry. */
typedef struct kp_variable {
    const char* french;
    const char* english;
    uint32_t attributes;
    uint32_t ident; /* bits 0-15 identifier, 16-23 component 8, 24-31 type code */
} kp_variable;

#define KP_IDENT_ID(w) ((uint32_t)(w)&0xFFFFu)
#define KP_IDENT_COMPONENT(w) (((uint32_t)(w) >> 16) & 0xFFu)
#define KP_IDENT_COUNT(w) (((uint32_t)(w) >> 24) & 0xFFu)

#if UINTPTR_MAX == 0xFFFFFFFFu
#ifdef __cplusplus
static_assert(sizeof(kp_overload) == 28, "overload record is 28 bytes");
static_assert(sizeof(kp_constant) == 20, "constant entry is 20 bytes");
static_assert(sizeof(kp_variable) == 16, "variable entry is 16 bytes");
static_assert(sizeof(kp_function) == 20, "function entry is 20 bytes");
#else
_Static_assert(sizeof(kp_overload) == 28, "overload record is 28 bytes");
_Static_assert(sizeof(kp_constant) == 20, "constant entry is 20 bytes");
_Static_assert(sizeof(kp_variable) == 16, "variable entry is 16 bytes");
_Static_assert(sizeof(kp_function) == 20, "function entry is 20 bytes");
#endif
#endif

#ifdef __cplusplus
}
#endif
#endif
