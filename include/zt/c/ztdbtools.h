/* ZtDBTools for C and every language that can call C.
 *
 * Objects are created by ProgID ("ZtDBTools404.CZtDataStore" or "CZtDataStore") and used
 * late-bound: properties are read and written and methods called by name, with zt_variant
 * arguments. Every object is an opaque zt_object handle; every string is UTF-8.
 *
 * Ownership:
 *   - A zt_object handle belongs to whoever received it; release it with zt_release. A handle
 *     never outlives what it refers to, and the object lives while any handle to it does.
 *   - A zt_variant filled by the library (a result, a by-reference argument, an array element)
 *     owns its contents: a string (malloc'd, NUL-terminated), an array (malloc'd elements, each
 *     owning its own contents) or an object handle. Free them with zt_variant_clear, which
 *     leaves the variant Empty. A host that builds a variant itself uses the zt_variant_set_*
 *     functions, or mallocs the string so that zt_variant_clear may free it.
 *   - Arguments are read, not taken: the library copies what it needs. A by-reference argument
 *     is cleared and overwritten with its new value when the call returns, so pass only variants
 *     that zt_variant_clear may clear.
 *   - A zt_error filled by a failing call owns its three strings; free them with
 *     zt_error_clear.
 *
 * Errors: every function that can fail returns a zt_status (ZT_OK = 0) and never lets a C++
 * exception out. When it fails and `error` is not NULL, *error receives the error's five
 * values (number, source, description, help file, help context): 438 for an unknown member,
 * 450 for a wrong number of arguments, 13 for a type mismatch, and the library's own numbers.
 *
 * Threads: an object belongs to the thread that created it, as it always did.
 */
#ifndef ZT_C_ZTDBTOOLS_H
#define ZT_C_ZTDBTOOLS_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__) || defined(__clang__)
#define ZT_C_API __attribute__((visibility("default")))
#else
#define ZT_C_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* The version of this interface. A host compares zt_abi_version() with the macro it was built
 * with: the same major number means every function it uses is there and means the same. */
#define ZT_ABI_VERSION_MAJOR 1
#define ZT_ABI_VERSION_MINOR 0
#define ZT_ABI_VERSION ((ZT_ABI_VERSION_MAJOR << 16) | ZT_ABI_VERSION_MINOR)
ZT_C_API uint32_t zt_abi_version(void);
/* The library's own version text ("7.6.0"); static, do not free. */
ZT_C_API const char* zt_library_version(void);

typedef int32_t zt_status;
#define ZT_OK 0
#define ZT_E_FAIL 1       /* the call raised an error: see the zt_error */
#define ZT_E_INVALIDARG 2 /* a NULL handle or pointer where one is needed */
#define ZT_E_NOCLASS 3    /* no class of that ProgID */

typedef struct zt_object zt_object;
typedef struct zt_class_factory zt_class_factory;

/* Variant kinds, numbered as the old VarType codes. */
typedef enum zt_variant_type {
  ZT_VT_EMPTY = 0,
  ZT_VT_NULL = 1,
  ZT_VT_LONG = 3,      /* value.i32 */
  ZT_VT_DOUBLE = 5,    /* value.dbl */
  ZT_VT_CURRENCY = 6,  /* value.i64: scaled by 10,000 */
  ZT_VT_DATE = 7,      /* value.dbl: days since 30 December 1899 */
  ZT_VT_STRING = 8,    /* value.str */
  ZT_VT_OBJECT = 9,    /* value.obj (NULL is Nothing) */
  ZT_VT_BOOL = 11,     /* value.boolean: 0 or 1 */
  ZT_VT_DECIMAL = 14,  /* value.str: the exact number as text ("123.45") */
  ZT_VT_LONGLONG = 20, /* value.i64 */
  ZT_VT_ARRAY = 8192   /* value.array */
} zt_variant_type;

typedef struct zt_variant zt_variant;
struct zt_variant {
  int32_t type; /* a zt_variant_type */
  union {
    int32_t i32;
    int64_t i64;
    double dbl;
    int32_t boolean;
    char* str;
    zt_object* obj;
    struct {
      zt_variant* items;
      size_t count;
      int32_t lower_bound;
    } array;
  } value;
};

typedef struct zt_error {
  int32_t number;
  char* source;
  char* description;
  char* help_file;
  int32_t help_context;
} zt_error;

ZT_C_API void zt_error_clear(zt_error* error);

/* Variants. zt_variant_init makes one Empty without freeing anything. */
ZT_C_API void zt_variant_init(zt_variant* v);
ZT_C_API void zt_variant_clear(zt_variant* v);
ZT_C_API void zt_variant_set_long(zt_variant* v, int32_t value);
ZT_C_API void zt_variant_set_bool(zt_variant* v, int value);
ZT_C_API void zt_variant_set_double(zt_variant* v, double value);
/* Copies `utf8`; a NULL text gives the empty string. */
ZT_C_API zt_status zt_variant_set_string(zt_variant* v, const char* utf8);
/* Takes a new handle to the object (the caller keeps its own). */
ZT_C_API zt_status zt_variant_set_object(zt_variant* v, zt_object* object);

/* The old entry points, with their old meaning. */
/* The class factory of a ProgID; it lives as long as the library. ZT_E_NOCLASS when none. */
ZT_C_API zt_status DllGetClassObject(const char* prog_id, zt_class_factory** factory);
/* 0 (S_OK) when no object is live and the library may be unloaded, 1 (S_FALSE) otherwise. */
ZT_C_API int32_t DllCanUnloadNow(void);
/* Write or remove the library's ProgIDs in the registration file of the folder named by
 * $ZT_REGISTRATION_DIR (else /etc/ztdbtools). 0 on success. zt_register_server and
 * zt_unregister_server take the folder instead (NULL for the same default). */
ZT_C_API int32_t DllRegisterServer(void);
ZT_C_API int32_t DllUnregisterServer(void);
ZT_C_API zt_status zt_register_server(const char* folder, zt_error* error);
ZT_C_API zt_status zt_unregister_server(const char* folder, zt_error* error);

ZT_C_API zt_status zt_factory_create(zt_class_factory* factory, zt_object** object,
                                     zt_error* error);
/* DllGetClassObject and zt_factory_create in one. */
ZT_C_API zt_status zt_create(const char* prog_id, zt_object** object, zt_error* error);
/* Another handle to the same object; release each handle once. */
ZT_C_API zt_object* zt_addref(zt_object* object);
ZT_C_API void zt_release(zt_object* object);
/* The class name of the object ("CZtDataStore"); valid while the handle is. */
ZT_C_API const char* zt_object_class(zt_object* object);

/* Late-bound calls. `result` may be NULL when the caller does not want it; otherwise it must
 * be Empty or cleared, and receives a value the caller owns. An argument whose arrays nest more
 * than 64 deep (or contain themselves), or an array with a count but no items, is refused with
 * ZT_E_INVALIDARG before the call. */
ZT_C_API zt_status zt_get(zt_object* object, const char* name, zt_variant* result, zt_error* error);
ZT_C_API zt_status zt_put(zt_object* object, const char* name, const zt_variant* value,
                          zt_error* error);
ZT_C_API zt_status zt_invoke(zt_object* object, const char* name, zt_variant* args,
                             size_t arg_count, zt_variant* result, zt_error* error);

/* The classes and their members, as the member tables declare them. Names are static. */
typedef enum zt_member_kind {
  ZT_MEMBER_GET = 1,
  ZT_MEMBER_PUT = 2,
  ZT_MEMBER_METHOD = 3
} zt_member_kind;
ZT_C_API size_t zt_class_count(void);
ZT_C_API const char* zt_class_name(size_t class_index);
ZT_C_API size_t zt_member_count(size_t class_index);
/* Fills the member's name, kind and argument counts; ZT_E_INVALIDARG for an index outside. */
ZT_C_API zt_status zt_member_info(size_t class_index, size_t member_index, const char** name,
                                  int32_t* kind, int32_t* min_args, int32_t* max_args);
/* Objects handed out and not yet released. */
ZT_C_API int64_t zt_live_objects(void);

#ifdef __cplusplus
}
#endif

#endif /* ZT_C_ZTDBTOOLS_H */
