#ifndef KES_TESTS_ABI_KIT_H_
#define KES_TESTS_ABI_KIT_H_

#include <stdbool.h>
#include <stddef.h>

/* Everything that the clients need besides the library. No client includes a header of a C or C++ library, so
   the clients can be built for a system whose libraries are not installed. */

#ifdef __cplusplus
extern "C" {
#endif

void kit_print(const char* text);

/* Prints what failed and exits. */
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

/* Appends as much of the text as fits into the buffer. */
void kit_append(char* buffer, size_t size, const char* text);

/* Returns the first occurrence of part in the text; null if the text does not contain it. */
const char* kit_find(const char* text, const char* part);

/* Functions that differ between systems. */

void kit_end(int status);

/* Returns the whole file with "\n" as line ends; valid until the next call. A missing file is a failure. */
const char* kit_read_file(const char* name);
void kit_remove_file(const char* name);

/* Frees memory as the library's "operator delete" does. */
void kit_free_as_library(void* memory);

#ifdef __cplusplus
}
#endif

#endif
