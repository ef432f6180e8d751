// commands: runs each line of a file as a shell command, by the same means as the update tool, so
// that a command costs here what it costs there.
//
// Usage: commands FILE
#include <cstdio>
#include <cstdlib>

int main(int argc, char **argv)
{
    FILE *const file = argc == 2 ? fopen(argv[1], "re") : nullptr;
    if (file == nullptr) {
        fprintf(stderr, "Usage: %s FILE\n", argv[0]);
        return 2;
    }
    char *line = nullptr;
    size_t size = 0;
    ssize_t len;
    while ((len = getline(&line, &size, file)) > 0) {
        if (line[len - 1] == '\n')
            line[len - 1] = '\0';
        fflush(stdout);
        fflush(stderr);
        if (system(line) != 0) {
            fprintf(stderr, "%s: failed: %s\n", argv[0], line);
            return 1;
        }
    }
    free(line);
    fclose(file);
    return 0;
}
