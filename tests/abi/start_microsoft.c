/* The parts of a C library that every program for the Microsoft ABI needs: the entry point, and the functions
   to which the compiler generates calls. */
#include "kernel32.h"
#include "kit.h"

int main(int argc, char** argv);
void start(void);
void* memcpy(void* to, const void* from, size_t size);
void* memset(void* to, int value, size_t size);

enum { largest_line = 2048, most_arguments = 8 };

/* Splits the command line at blanks outside quotes. Nested quotes are not supported. */
static int split(const char* line, char* words, char** argv) {
    int argc = 0;
    while (argc < most_arguments) {
        while (*line == ' ')
            ++line;
        if (*line == '\0') break;
        argv[argc++] = words;
        for (bool is_quoted = false; *line != '\0' && (is_quoted || *line != ' '); ++line) {
            if (*line == '"')
                is_quoted = !is_quoted;
            else
                *words++ = *line;
        }
        *words++ = '\0';
    }
    return argc;
}

void start(void) {
    static char words[largest_line];
    static char* argv[most_arguments + 1];
    const char* const line = GetCommandLineA();
    CHECK(kit_length(line) < largest_line);
    const int argc = split(line, words, argv);
    kit_end(main(argc, argv));
}

void* memcpy(void* to, const void* from, size_t size) {
    for (size_t i = 0; i < size; ++i)
        ((char*)to)[i] = ((const char*)from)[i];
    return to;
}

void* memset(void* to, int value, size_t size) {
    for (size_t i = 0; i < size; ++i)
        ((char*)to)[i] = (char)value;
    return to;
}
