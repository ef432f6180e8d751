// A line of JSON for programs.
#ifndef COMPANIONS_UPGD_SERVICE_JSON_LINE_H
#define COMPANIONS_UPGD_SERVICE_JSON_LINE_H

#include "companions/text/json.h"
#include "companions/upgd_service/console.h"

#include <cstdlib>

// Says what `print` writes to the stream that it is given. Returns false with a sentence if there
// is no memory.
template <typename Function> [[nodiscard]] bool say_json(const Function &print)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    if (out == nullptr)
        return complain("there is no memory for the answer");
    print(out);
    fclose(out);
    say("%s", text);
    free(text);
    return true;
}

// Writes `before`, the items with ',' between them, and ']'.
template <typename List, typename Function>
void print_json_list(FILE *out, const char *before, const List &list, const Function &print)
{
    fputs(before, out);
    const char *divider = "";
    for (const auto &item : list) {
        fputs(divider, out);
        divider = ",";
        print(item);
    }
    fputc(']', out);
}

#endif
