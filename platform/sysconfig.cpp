// The tool `sysconfig`: shows and changes the device's configuration from scripts and by hand.
#include "platform/configuration.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

static constexpr int STATUS_FAILED = 1;
static constexpr int STATUS_BAD_CALL = 2;

static void print_usage(FILE *out)
{
    fputs("Usage: sysconfig set KEY WORD...   give KEY the words, a blank between them, as its "
          "value\n"
          "       sysconfig get KEY           print the value of KEY\n"
          "       sysconfig list              print all lines KEY=VALUE\n"
          "       sysconfig --help            print this text\n"
          "       sysconfig --version         print the version of the program\n"
          "A KEY has letters, digits, '_', '.' and '-'; a value has no line feed.\n",
          out);
}

static int fail(const char *subject, const char *reason)
{
    fprintf(stderr, "sysconfig: %s: %s\n", subject, reason);
    return STATUS_FAILED;
}

// The words up to a null are the value; one that does not fit is refused as it would be whole.
static int set_value(const char *key, char **words)
{
    char value[CONFIGURATION_VALUE_SIZE + 1] = "";
    size_t len = 0;
    for (char **word = words; *word != nullptr && len < sizeof value; word++) {
        const int added =
            snprintf(value + len, sizeof value - len, word == words ? "%s" : " %s", *word);
        len += static_cast<size_t>(added);
    }
    const int result = configuration_set(CONFIGURATION_PATH, key, value);
    return result == 0 ? EXIT_SUCCESS : fail(key, strerror(-result));
}

static int get_value(const char *key)
{
    char value[CONFIGURATION_VALUE_SIZE];
    const int result = configuration_get(CONFIGURATION_PATH, key, value, sizeof value);
    if (result == -ENOENT)
        return fail(key, "unknown key");
    if (result != 0)
        return fail(key, strerror(-result));
    puts(value);
    return EXIT_SUCCESS;
}

static int list_values()
{
    const int result = configuration_list(CONFIGURATION_PATH, stdout);
    return result == 0 ? EXIT_SUCCESS : fail(CONFIGURATION_PATH, strerror(-result));
}

static int run(int argc, char **argv)
{
    const char *const command = argc > 1 ? argv[1] : "";
    if (argc >= 4 && strcmp(command, "set") == 0)
        return set_value(argv[2], argv + 3);
    if (argc == 3 && strcmp(command, "get") == 0)
        return get_value(argv[2]);
    if (argc == 2 && strcmp(command, "list") == 0)
        return list_values();
    if (argc == 2 && strcmp(command, "--help") == 0) {
        print_usage(stdout);
        return EXIT_SUCCESS;
    }
    if (argc == 2 && strcmp(command, "--version") == 0) {
        puts("sysconfig " PROGRAM_VERSION);
        return EXIT_SUCCESS;
    }
    print_usage(stderr);
    return STATUS_BAD_CALL;
}

int main(int argc, char **argv)
{
    const int status = run(argc, argv);
    // A script that reads an empty answer off a full disk must not take it for the value. An
    // earlier failed write has set the stream's error flag.
    if (fflush(stdout) != 0 || ferror(stdout) != 0)
        return fail("standard output", strerror(errno));
    return status;
}
