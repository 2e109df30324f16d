/*
 * kp120/regtool.h - registry maintenance beside the component
 * (libkp120regtool.so.1): a subtree of the registry database written as a
 * registry editor file, and such a file applied in one transaction.  The
 * component's own interface (component.h) does not carry these; the kp120
 * command reaches them through this header alone.
 *
 * C linkage, no exception leaves a call.  Key paths are UTF-16 (root name
 * first, as in the file); messages are UTF-8.  Nothing is kept between
 * calls: each opens the database it is given and lets it go.
 */
#ifndef KP120_REGTOOL_H
#define KP120_REGTOOL_H

#include <stddef.h>
#include <stdint.h>
#ifndef __cplusplus
#include <uchar.h>
#endif

#ifdef __cplusplus
extern "C" {
#endif

#if defined(KP120_BUILDING_REGTOOL)
#define KP120_REGTOOL_API __attribute__((visibility("default")))
#else
#define KP120_REGTOOL_API
#endif
#ifdef __cplusplus
#define KP120_REGTOOL_NOEXCEPT noexcept
#else
#define KP120_REGTOOL_NOEXCEPT
#endif

/* One note of a call: `line` is the 1-based line of a file problem (text:
 * its message, UTF-8), or 0 with `name` a key or value name (UTF-16,
 * `length` code units). */
typedef void (*kp120_regtool_note)(void* context, size_t line, const char* text, const char16_t* name,
                                   size_t length);

/* The file bytes an export returns, freed with kp120_regtool_free. */
typedef struct kp120_regtool_bytes {
    uint8_t* data;
    size_t size;
} kp120_regtool_bytes;

/* Writes the key `key` (`key_length` code units; none: the four roots) and
 * its subtree from the database file `database` into `out`, in the
 * REGEDIT4 form when `regedit4` is not 0, else in the UTF-16 form.  Each
 * name a file cannot hold (a line end in it) is left out and given to
 * `skipped` (may be null).  0, or the Win32 error (2: no such key; 14: out
 * of memory; 1359: any other failure), `out` then empty. */
KP120_REGTOOL_API uint32_t kp120_regtool_export(const char* database, const char16_t* key, size_t key_length,
                                                int regedit4, kp120_regtool_bytes* out,
                                                kp120_regtool_note skipped,
                                                void* context) KP120_REGTOOL_NOEXCEPT;

/* What an import did. */
enum {
    KP120_REGTOOL_IMPORTED = 0,
    KP120_REGTOOL_BAD_FILE = 1, /* lines that do not parse, each given to `note`; nothing written */
    KP120_REGTOOL_REFUSED = 2   /* the registry refused a key: `*error` the Win32 error, the key given
                                   to `note`; nothing written */
};

/* Reads a registry editor file (UTF-16LE with its mark, UTF-8, or ANSI
 * text in code page 1252) and applies it to the database file `database`
 * in one transaction. */
KP120_REGTOOL_API int kp120_regtool_import(const char* database, const uint8_t* file, size_t size,
                                           uint32_t* error, kp120_regtool_note note,
                                           void* context) KP120_REGTOOL_NOEXCEPT;

KP120_REGTOOL_API void kp120_regtool_free(kp120_regtool_bytes* bytes) KP120_REGTOOL_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
