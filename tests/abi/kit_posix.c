#define _GNU_SOURCE
#include "kit.h"

#include <dlfcn.h>
#include <stdio.h>
#include <stdlib.h>

void kit_print(const char* text) { fputs(text, stderr); }

void kit_end(int status) { exit(status); }

const char* kit_read_file(const char* name) {
    static char text[1 << 20];
    FILE* file = fopen(name, "rb");
    if (file == NULL) kit_fail(name, 0, "the file cannot be read");
    const size_t length = fread(text, 1, sizeof text - 1, file);
    text[length] = '\0';
    fclose(file);
    return text;
}

void kit_remove_file(const char* name) { remove(name); }

void kit_free_as_library(void* memory) {
    typedef void (*free_function)(void*);
    const free_function operator_delete = (free_function)dlsym(RTLD_DEFAULT, "_ZdlPv");
    CHECK(operator_delete != NULL);
    operator_delete(memory);
}
