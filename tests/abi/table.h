#ifndef KES_TESTS_ABI_TABLE_H_
#define KES_TESTS_ABI_TABLE_H_

#include "kit.h"

/* The library as seen by a client without C++: an object whose first word points to a table of functions.
   Slot numbers start at 1, as in the documentation. */

typedef void (*any_function)(void);

typedef struct {
    const any_function* table;
} kes_object;

#define SLOT(object, number, type) ((type)((object)->table[(number)-1]))

typedef int (*fn_int)(kes_object* self);
typedef int (*fn_int_uint)(kes_object* self, unsigned int value);
typedef int (*fn_int_text)(kes_object* self, const char* text);
typedef int (*fn_int_size)(kes_object* self, size_t value);
typedef int (*fn_int_size_out)(kes_object* self, size_t* out);
typedef int (*fn_int_uint_out)(kes_object* self, unsigned int* out);
typedef int (*fn_int_pointer_out)(kes_object* self, void** out);
typedef int (*fn_int_object)(kes_object* self, kes_object* other);
typedef int (*fn_int_uint_text)(kes_object* self, unsigned int value, const char* text);
typedef bool (*fn_bool)(const kes_object* self);
typedef void (*fn_void)(kes_object* self);
typedef void (*fn_void_uint)(kes_object* self, unsigned int value);
typedef void (*fn_void_uint_ref)(kes_object* self, const unsigned int* value);
typedef void (*fn_void_text)(kes_object* self, const char* text);
typedef unsigned int (*fn_uint)(const kes_object* self);
typedef const unsigned int* (*fn_uint_ref)(const kes_object* self);
typedef const char* (*fn_text)(const kes_object* self);
typedef const char* (*fn_text_size)(kes_object* self, size_t value);
typedef char* (*fn_buffer)(const kes_object* self, char* buffer, size_t size);
typedef char* (*fn_uint_buffer)(const kes_object* self, unsigned int value, char* buffer, size_t size);
typedef kes_object* (*fn_object)(const kes_object* self);
typedef void* (*fn_destructor)(kes_object* self, unsigned int flags);

kes_object* get_ossl_scard_if(void);

typedef struct {
    const char* name;
    void (*run)(const char* log_file);
} scenario;

/* Runs the scenario with the name argv[1]; argv[2] is its log file. The caller of the program types the keys
   that the scenario needs. */
int run_scenario(int argc, char** argv, const scenario* scenarios, size_t count);

#endif
