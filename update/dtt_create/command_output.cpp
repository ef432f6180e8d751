// Reading what shell commands print.
#include "update/dtt_create/command_output.h"

#include "update/dtt_update_common/platform_log.h"

#include <cstring>

static void cut_at_last(char *s, char c)
{
    char *const found = strrchr(s, c);
    if (found != nullptr)
        *found = '\0';
}

void chomp(char *s)
{
    cut_at_last(s, '\n');
    cut_at_last(s, '\r');
}

bool read_output_line(FILE *stream, char *line)
{
    memset(line, 0, OUTPUT_LINE_SIZE);
    if (fgets(line, OUTPUT_LINE_SIZE - 1, stream) == nullptr)
        return false;
    line[strcspn(line, "\n")] = '\0';
    return true;
}

static int first_line(FILE *stream, char *result)
{
    char result_str[OUTPUT_LINE_SIZE] = "";
    if (fgets(result_str, OUTPUT_LINE_SIZE - 1, stream) == nullptr)
        return 0;
    chomp(result_str);
    if (result_str[0] == '\0')
        return -1;
    memcpy(result, result_str, strlen(result_str) + 1);
    return 0;
}

int run_command_return_string(char *cmd, char *result)
{
    if (cmd == nullptr)
        return -1;
    FILE *const stream = my_popen(cmd, "r");
    if (stream == nullptr) {
        PLATFORM_LOG("popen read_device_info");
        return -1;
    }
    const int status = first_line(stream, result);
    my_pclose(stream);
    return status;
}
