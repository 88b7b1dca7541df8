#include "kit.h"

static void print_number(int number) {
    char digits[12];
    size_t next = sizeof digits - 1;
    digits[next] = '\0';
    do {
        digits[--next] = (char)('0' + number % 10);
        number /= 10;
    } while (number > 0);
    kit_print(digits + next);
}

static void print_place(const char* file, int line) {
    kit_print(file);
    kit_print(":");
    print_number(line);
}

void kit_fail(const char* file, int line, const char* what) {
    print_place(file, line);
    kit_print(": failed: ");
    kit_print(what);
    kit_print("\n");
    kit_end(1);
}

void kit_check_text(const char* file, int line, const char* expected, const char* actual) {
    if (actual != NULL && kit_same(expected, actual)) return;
    print_place(file, line);
    kit_print(": expected \"");
    kit_print(expected);
    kit_print("\"\n  but got \"");
    kit_print(actual == NULL ? "(null)" : actual);
    kit_print("\"\n");
    kit_end(1);
}

static bool begins_with(const char* text, const char* part) {
    while (*part != '\0' && *text == *part) {
        ++text;
        ++part;
    }
    return *part == '\0';
}

bool kit_same(const char* left, const char* right) {
    return kit_length(left) == kit_length(right) && begins_with(left, right);
}

size_t kit_length(const char* text) {
    size_t length = 0;
    while (text[length] != '\0')
        ++length;
    return length;
}

void kit_fill(char* buffer, char character, size_t size) {
    for (size_t i = 0; i < size; ++i)
        buffer[i] = character;
}

void kit_append(char* buffer, size_t size, const char* text) {
    size_t length = kit_length(buffer);
    while (*text != '\0' && length + 1 < size)
        buffer[length++] = *text++;
    buffer[length] = '\0';
}

const char* kit_find(const char* text, const char* part) {
    for (; *text != '\0'; ++text)
        if (begins_with(text, part)) return text;
    return NULL;
}
