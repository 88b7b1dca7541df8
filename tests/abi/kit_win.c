#include "kit.h"

#include "kernel32.h"

enum { standard_error = -12, share_all = 7, open_existing = 3, largest_file = 1 << 20 };
static const unsigned long read_access = 0x80000000UL;

void kit_print(const char* text) {
    unsigned long written = 0;
    WriteFile(GetStdHandle((unsigned long)standard_error), text, (unsigned long)kit_length(text), &written,
              NULL);
}

void kit_end(int status) { ExitProcess((unsigned int)status); }

static void drop_carriage_returns(char* text) {
    char* end = text;
    for (; *text != '\0'; ++text)
        if (*text != '\r') *end++ = *text;
    *end = '\0';
}

const char* kit_read_file(const char* name) {
    static char text[largest_file];
    unsigned long length = 0;
    const win_handle file = CreateFileA(name, read_access, share_all, NULL, open_existing, 0, NULL);
    if (!ReadFile(file, text, largest_file - 1, &length, NULL)) kit_fail(name, 0, "the file cannot be read");
    CloseHandle(file);
    text[length] = '\0';
    drop_carriage_returns(text);
    return text;
}

void kit_remove_file(const char* name) { DeleteFileA(name); }

/* The library contains its C++ runtime, which allocates memory from the system's C runtime. */
void kit_free_as_library(void* memory) {
    typedef void (*free_function)(void*);
    const free_function runtime_free = (free_function)GetProcAddress(GetModuleHandleA("msvcrt.dll"), "free");
    CHECK(runtime_free != NULL);
    runtime_free(memory);
}
