// Catches: a text from an image or a disk that commands a terminal, or makes a JSON text that is
// none.
#include "companions/text/json.h"
#include "companions/text/shown_text.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

// What `print` prints of the text, whose bytes stand at the end of their memory.
static std::string printed(void (*print)(FILE *, const char *, size_t), const std::string &text)
{
    const std::vector<char> exact(text.begin(), text.end());
    testing::internal::CaptureStdout();
    print(stdout, exact.data(), exact.size());
    return testing::internal::GetCapturedStdout();
}

TEST(Text, IsShownAndWrittenAsJsonByItsCharacters)
{
    // Without a text that is shown it is the text itself; without one of JSON what is shown, each
    // number in JSON's form.
    const struct {
        std::string text, shown = "", json = "";
    } rows[] = {
        {"a \"\\~", "a \"\\~", R"(a \"\\~)"},
        {"\x1b[2J\x1f\x7f", R"(\x1b[2J\x1f\x7f)"},
        {"\xc2\x80\xc2\x9f\xc2\xa0", "\\xc2\\x80\\xc2\\x9f\xc2\xa0", "\xc2\x80\xc2\x9f\xc2\xa0"},
        // The ends of each length of a character.
        {"\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf"},
        {"\xed\x9f\xbf\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf"},
        // One that is cut, a byte that begins none, too long a form, a surrogate, one that is too
        // large.
        {"\xe2\x82", R"(\xe2\x82)"},
        {"\xe2\x82x\x80\xff\xc1\xbf", R"(\xe2\x82x\x80\xff\xc1\xbf)"},
        {"\xe0\x9f\xbf\xed\xa0\x80", R"(\xe0\x9f\xbf\xed\xa0\x80)"},
        {"\xf0\x8f\xbf\xbf\xf4\x90\x80\x80", R"(\xf0\x8f\xbf\xbf\xf4\x90\x80\x80)"},
        {"\xf5\x80\x80\x80", R"(\xf5\x80\x80\x80)"},
    };
    for (const auto &[text, shown, json] : rows) {
        std::string numbers = shown.empty() ? text : shown;
        EXPECT_EQ(printed(print_shown, text), numbers);
        for (size_t at = 0; (at = numbers.find("\\x", at)) != numbers.npos;)
            numbers.replace(at, 2, "\\u00");
        EXPECT_EQ(printed(print_json_text, text), '"' + (json.empty() ? numbers : json) + '"');
    }
}
