#include "table.h"

#include <unistd.h>

void type_keys(const char* keys) {
    int ends[2];
    CHECK(pipe(ends) == 0);
    CHECK(write(ends[1], keys, strlen(keys)) == (ssize_t)strlen(keys));
    CHECK(close(ends[1]) == 0);
    CHECK(dup2(ends[0], STDIN_FILENO) == STDIN_FILENO);
    CHECK(close(ends[0]) == 0);
}

char* read_text_file(const char* name) {
    enum { largest = 1 << 20 };
    FILE* file = fopen(name, "rb");
    CHECK(file != NULL);
    char* text = malloc(largest);
    CHECK(text != NULL);
    const size_t length = fread(text, 1, largest - 1, file);
    text[length] = '\0';
    fclose(file);
    return text;
}

int run_scenario(int argc, char** argv, const scenario* scenarios, size_t count) {
    CHECK(argc == 3);
    remove(argv[2]);
    for (size_t i = 0; i < count; ++i) {
        if (strcmp(scenarios[i].name, argv[1]) != 0) continue;
        scenarios[i].run(argv[2]);
        return 0;
    }
    fprintf(stderr, "no scenario '%s'\n", argv[1]);
    return 2;
}
