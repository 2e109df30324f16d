/*
 * kp120/component.h - the entry points exported by the component module
 * (libkp120std.so.1), with C linkage and default visibility.  Nothing
 * else of the module is exported.
 *
 * Calling order used by a VM:
 *   bInitKLConvFromVM; CommandeComposante 0 and 2; GeneralParam 2005, 2006
 *   and 2008; InfoComposante 0-3 and 21-26; Execution 3985; handlers;
 *   Execution 4876/4877 on language or locale changes; Execution 4875.
 *
 * Integers are 32-bit; answers and words that may carry an address are
 * pointer-wide (intptr_t / uintptr_t).
 */
#ifndef KP120_COMPONENT_H
#define KP120_COMPONENT_H

#include "types.h"
#include "vm.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(KP120_BUILDING_COMPONENT)
#define KP120_EXPORT __attribute__((visibility("default")))
#else
#define KP120_EXPORT
#endif
/* No exception leaves an entry point. */
#ifdef __cplusplus
#define KP120_NOEXCEPT noexcept
#else
#define KP120_NOEXCEPT
#endif

/*
 * InfoComposante query codes.  Unknown codes answer 0.
 *
 * KP_INFO_REVISION answers 2, the revision of this component protocol (the
 * revision bInitKLConvFromVM expects); a VM that knows an older revision
 * only refuses the component.  KP_INFO_CAPABILITIES answers 0x204, the
 * capabilities word of protocol revision 2, as every component of that
 * revision answers it: a VM may compare it whole; no single bit carries a
 * meaning of its own that the component acts on.  Both words are constant
 * for KP120_ABI_VERSION 1.  KP_INFO_3 answers 1.
 *
 * The start-up queries 0 to 3 are informational: the component keeps no
 * state from them and works the same when a VM skips them.  Queries 0 to 3
 * answer numbers; the component's name ("Fonctions standard" /
 * "Standard functions") comes from the component object's name operation
 * (pQueryProxy below).  KP_INFO_DESCRIPTION answers the address of the
 * description for `index` 0 (French) or 1 (English; any other index too):
 * an empty UTF-16 string in this edition, as the object's description.
 */
#define KP_INFO_REVISION 0     /* answers 2 */
#define KP_INFO_COMPONENT 1    /* answers 8 */
#define KP_INFO_CAPABILITIES 2 /* answers 0x204 */
#define KP_INFO_3 3            /* answers 1 */
#define KP_INFO_DESCRIPTION 4  /* const char16_t*, index 0 French, 1 English: "" in this edition */
#define KP_INFO_WORD13 13      /* first word set through the component object */
#define KP_INFO_FUNCTIONS 21
#define KP_INFO_FUNCTION_COUNT 22 /* 381 */
#define KP_INFO_CONSTANTS 23
#define KP_INFO_CONSTANT_COUNT 24 /* 441 */
#define KP_INFO_VARIABLES 25
#define KP_INFO_VARIABLE_COUNT 26 /* 45 */
#define KP_INFO_WORD27 27         /* second word set through the component object */

/*
 * CommandeComposante commands.  Unknown commands are ignored.
 *
 * Message texts.  A message number names a text; the texts of the error
 * identifiers are numbered identifier - 50000 (error 80125 is message 30125).
 * The component asks, in this order and stops at the first that applies:
 * the callback of KP_COMMAND_MESSAGE_CALLBACK when one was given (its answer
 * is final: 0 falls through to the catalogue, the services slot is not asked
 * then), else the services block's message_text slot, else its own
 * catalogue in the interface language.
 */
#define KP_COMMAND_SERVICES 0 /* block: kp_services*, kept (not copied) until replaced; null removes it */
/* block: a kp_message_fn converted to void* (POSIX guarantees that a function
 * pointer survives the round trip, as dlsym needs; under -Wpedantic copy it:
 * void* block; memcpy(&block, &fn, sizeof block);).  Null removes it. */
#define KP_COMMAND_MESSAGE_CALLBACK 2
/* Message text: block uintptr_t[5]: [1] number, [2] char16_t* buffer, [3] size, [4] out length. */
#define KP_COMMAND_MESSAGE_TEXT 3

/*
 * Execution messages; unknown messages answer 0.
 *
 * KP_EXEC_ATTACH, block uintptr_t[4]: [1] the VM module (a dlopen handle in
 * which the component finds the VM's entry point "Execution", which every VM
 * must export: see kp_execution_fn), [2] and [3]
 * two registration words the component keeps for the VM's execution hooks
 * and never interprets (pass 0 when the VM has none).  Answers 1, or 0 when
 * block is null or the VM module exports no "Execution" (nothing is then
 * registered: check the answer).  Attaches nest: each attach counts, each detach uncounts.
 * The first attach runs the release check: when the services block has a
 * version service, the component asks it to accept module "KP120STD.DLL"
 * version "12.00Dr" and expects the VM's own version "9.00Aa"; otherwise it
 * records message 28117 (module refused) or 28567 (other version) with
 * severity 3 in the component object's last_error.  The attach still
 * answers 1: the VM decides whether to go on.  A VM without a version
 * service passes the check.
 *
 * KP_EXEC_DETACH, block ignored (pass uintptr_t[4] of zeros): uncounts an
 * attach; the last one releases the hooks.  Answers 1 (also when nothing was
 * attached).
 *
 * KP_EXEC_LOCALE (block uintptr_t[2]) and KP_EXEC_LOCALE3 (uintptr_t[3]):
 * the VM's current locale words, kept as they are and forwarded to the VM's
 * execution hooks; the component reads the interface language from the
 * component object (set_language) and the regional settings from the
 * services block, not from these words.  Answer 1.
 */
#define KP_EXEC_ATTACH 3985 /* block: uintptr_t[4]: [1] VM module handle, [2] and [3] registration words */
#define KP_EXEC_DETACH 4875
#define KP_EXEC_LOCALE 4876  /* block: uintptr_t[2] locale words */
#define KP_EXEC_LOCALE3 4877 /* block: uintptr_t[3] locale words */

/* GeneralParam codes. */
/*
 * GeneralParam codes; each answers 1 (unknown codes 0).  The component keeps
 * the pointers, not copies: they stay valid until replaced (0 removes them).
 * KP_PARAM_TLS_INDEX: the component only hands the value back to the
 * services block's tls_get, and only when the threading descriptor's first
 * word is non-zero; otherwise any value will do.  KP_PARAM_ALLOCATOR: when it
 * replaces an allocator whose `replaced` is 0, the component first calls that
 * allocator's release operation (4) with 1; a VM that takes its allocator back
 * itself sets `replaced` to 1 before passing 0 or another allocator.
 */
#define KP_PARAM_TLS_INDEX 2005 /* value: an index the VM's tls_get understands */
#define KP_PARAM_THREADING 2006 /* value: const kp_threading* */
#define KP_PARAM_ALLOCATOR 2008 /* value: kp_allocator* */

/* pQueryProxy code of the component object. */
#define KP_PROXY_COMPONENT_OBJECT 60

/*
 * The VM's own entry point "Execution", which the VM module must export by
 * that name with C linkage and default visibility (a program links with
 * -rdynamic); without it KP_EXEC_ATTACH answers 0.  The component calls it
 * only after an attach, on each KP_EXEC_LOCALE or KP_EXEC_LOCALE3 the VM
 * sends, with the same message and block; its answer is ignored (answer 1).
 * A VM with nothing to do there defines
 *     int32_t Execution(int32_t message, uintptr_t* block) { return 1; }
 * A VM that loads the module with RTLD_GLOBAL shares one global name space
 * with it: the VM's own definition (in the program, found first) is then the
 * one the lookup finds, and without one the attach answers 0.
 */
typedef int32_t (*kp_execution_fn)(int32_t message, uintptr_t* block);

/*
 * Component object returned by pQueryProxy(60): each call allocates a new
 * object.  The VM owns it and destroys it through operation 1, at the latest
 * before dlclose (its operations are code of the module); objects hold no
 * state of their own, so attach and detach do not affect them.  The interface
 * language (set_language) is the component's, shared by all objects.
 * Languages: 0 French, 1 English (any other value counts as English).
 */
struct kp_component_object;
typedef struct kp_component_object_ops {
    void (*destroy)(struct kp_component_object* self);
    void (*set_language)(struct kp_component_object* self, int32_t language);
    /* Copies the component's name in the current language, cut to `size`
     * characters including the terminator, always terminated. */
    void (*name)(struct kp_component_object* self, char16_t* buffer, int32_t size);
    /* The description in the current language: "" in this edition. */
    const char16_t* (*description)(struct kp_component_object* self);
    /* Records the error state's two parameters (answered by InfoComposante 13 and 27). */
    void (*set_error_state)(struct kp_component_object* self, uintptr_t word13, uintptr_t word27);
    /* The error record of the last failing call on this thread, or null. */
    const kp_error_record* (*last_error)(struct kp_component_object* self);
} kp_component_object_ops;

typedef struct kp_component_object {
    const kp_component_object_ops* ops;
    uintptr_t word1; /* zero at construction */
    uintptr_t word2; /* zero at construction */
} kp_component_object;

KP120_EXPORT intptr_t InfoComposante(int32_t query, int32_t index) KP120_NOEXCEPT;
KP120_EXPORT void CommandeComposante(int32_t command, void* block) KP120_NOEXCEPT;
KP120_EXPORT int32_t Execution(int32_t message, uintptr_t* block) KP120_NOEXCEPT;
KP120_EXPORT int32_t GeneralParam(int32_t code, intptr_t value) KP120_NOEXCEPT;
KP120_EXPORT void DeclareProxy(void** list, uint16_t* count1, void** first, uint16_t* count2) KP120_NOEXCEPT;
KP120_EXPORT kp_component_object* pQueryProxy(int32_t code) KP120_NOEXCEPT;
/* Installs the conversion hooks of the VM module `module` (a dlopen handle). */
KP120_EXPORT int32_t bInitKLConvFromVM(void* module, int32_t revision, int32_t mode,
                                       void* reserved) KP120_NOEXCEPT;

#ifdef __cplusplus
}
#endif
#endif
