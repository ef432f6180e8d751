// Catches: a text from an image or a disk that commands a terminal, or makes a JSON text that is
// none.
#include "companions/text/json.h"
#include "companions/text/shown_text.h"

#include <gtest/gtest.h>
#include <string>
#include <vector>

// What `print` prints of the text, whose bytes stand at the end of their memory.
template <typename Print> static std::string printed(Print print, const std::string &text)
{
    const std::vector<char> exact(text.begin(), text.end());
    testing::internal::CaptureStdout();
    print(stdout, exact.data(), exact.size());
    return testing::internal::GetCapturedStdout();
}

TEST(Text, IsShownAndWrittenAsJsonByItsCharacters)
{
    const struct {
        const char *text, *shown, *json;
    } rows[] = {
        {"a \"\\~", "a \"\\~", R"(a \"\\~)"},
        {"\x1b[2J\n\x7f", R"(\x1b[2J\x0a\x7f)", R"(\u001b[2J\u000a\u007f)"},
        {"\xc2\x80\xc2\x9f\xc2\xa0", "\\xc2\\x80\\xc2\\x9f\xc2\xa0", "\xc2\x80\xc2\x9f\xc2\xa0"},
        // The ends of each length of a character.
        {"\xdf\xbf\xe0\xa0\x80\xef\xbf\xbf", nullptr, nullptr},
        {"\xed\x9f\xbf\xee\x80\x80\xf0\x90\x80\x80\xf4\x8f\xbf\xbf", nullptr, nullptr},
        // One that is cut, a byte that begins none, too long a form, a surrogate, one that is too
        // large.
        {"\xe2\x82", R"(\xe2\x82)", R"(\u00e2\u0082)"},
        {"\xe2\x82x", R"(\xe2\x82x)", R"(\u00e2\u0082x)"},
        {"\x80\xff", R"(\x80\xff)", R"(\u0080\u00ff)"},
        {"\xc1\xbf", R"(\xc1\xbf)", R"(\u00c1\u00bf)"},
        {"\xe0\x9f\xbf", R"(\xe0\x9f\xbf)", R"(\u00e0\u009f\u00bf)"},
        {"\xed\xa0\x80", R"(\xed\xa0\x80)", R"(\u00ed\u00a0\u0080)"},
        {"\xf0\x8f\xbf\xbf", R"(\xf0\x8f\xbf\xbf)", R"(\u00f0\u008f\u00bf\u00bf)"},
        {"\xf4\x90\x80\x80", R"(\xf4\x90\x80\x80)", R"(\u00f4\u0090\u0080\u0080)"},
        {"\xf5\x80\x80\x80", R"(\xf5\x80\x80\x80)", R"(\u00f5\u0080\u0080\u0080)"},
    };
    using print_text = void (*)(FILE *, const char *, size_t);
    for (const auto &[text, shown, json] : rows) {
        EXPECT_EQ(printed(print_shown, text), shown != nullptr ? shown : text);
        EXPECT_EQ(printed(static_cast<print_text>(print_json_text), text),
                  '"' + std::string(json != nullptr ? json : text) + '"');
    }
}
