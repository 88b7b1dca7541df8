#ifndef KES_TESTS_ABI_KIT_H_
#define KES_TESTS_ABI_KIT_H_

#include <stdbool.h>
#include <stddef.h>

/* All that the clients here need besides the library: no client includes a header of a C or C++ library, so
   that it can be built for a system whose libraries are not there. */

#ifdef __cplusplus
extern "C" {
#endif

void kit_print(const char* text);

/* Tells what failed and ends the program. */
void kit_fail(const char* file, int line, const char* what);
void kit_check_text(const char* file, int line, const char* expected, const char* actual);

#define CHECK(condition)                                                                                     \
    do {                                                                                                     \
        if (!(condition)) kit_fail(__FILE__, __LINE__, #condition);                                          \
    } while (0)
#define CHECK_TEXT(expected, actual) kit_check_text(__FILE__, __LINE__, expected, actual)

bool kit_same(const char* left, const char* right);
size_t kit_length(const char* text);
void kit_fill(char* buffer, char character, size_t size);

/* Writes as much of the text as there is room for behind the one in the buffer. */
void kit_append(char* buffer, size_t size, const char* text);

/* From the first occurrence of part on; null when there is none. */
const char* kit_find(const char* text, const char* part);

/* What differs from system to system. */

void kit_end(int status);

/* The whole file, with "\n" at the ends of lines; valid until the next call. Fails when there is none. */
const char* kit_read_file(const char* name);
void kit_remove_file(const char* name);

/* Frees as the library's own "operator delete" does. */
void kit_free_as_library(void* memory);

#ifdef __cplusplus
}
#endif

#endif
