// Joining and cutting paths, and the names of entries and links.
#include "tests/recording_platform.h"
#include "update/dtt_create/card_file_names.h"
#include "update/dtt_create/tree_walk.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/path_operations.h"

#include <cstring>
#include <memory>

// A text in a buffer of exactly its size, so that the sanitizers see a step beside it.
struct exact_text {
    std::unique_ptr<char[]> text;
    explicit exact_text(const char *from) : text(new char[strlen(from) + 1])
    {
        memcpy(text.get(), from, strlen(from) + 1);
    }
    char *get() const
    {
        return text.get();
    }
};

TEST(Path, Join)
{
    const struct {
        const char *path, *filename, *joined;
    } rows[] = {
        {"/opt/upgddir/", "nand/a", "/opt/upgddir/nand/a"},
        {"/opt/upgddir", "/nand/a", "/opt/upgddir/nand/a"},
        {"/", "//a", "/a"},
        {"", "a", "/a"},
        {nullptr, "a", "/a"},
        {"a", "", "a/"},
    };
    char joined[PATH_SIZE];
    for (const auto &row : rows) {
        EXPECT_EQ(concat_path_file(row.path, row.filename, joined), joined);
        EXPECT_STREQ(joined, row.joined);
    }
    const std::string name(PATH_SIZE - 3, 'x');
    EXPECT_EQ(concat_path_file("/a", name.substr(1).c_str(), joined), "/a/" + name.substr(1));
    EXPECT_STREQ(concat_path_file("/a", name.c_str(), joined), "") << "half a path";
}

TEST(Path, LastComponentAndDirectoryPart)
{
    const struct {
        const char *text, *last, *left, *cut;
    } rows[] = {
        {"a/b", "b", "a/b", "a"}, {"a/b//", "b", "a/b", "a/b/"}, {"ab", "ab", "ab", "ab"},
        {"/x", "x", "/x", ""},    {"///", "", "", "//"},         {"", "", "", ""},
        {".", ".", ".", "."},     {"a/.b", ".b", "a/.b", "a"},
    };
    for (const auto &row : rows) {
        const exact_text last(row.text);
        EXPECT_STREQ(get_dirname(last.get()), row.last) << row.text;
        EXPECT_STREQ(last.get(), row.left) << row.text;
        const exact_text cut(row.text);
        dirname(cut.get());
        EXPECT_STREQ(cut.get(), row.cut) << row.text;
    }
    EXPECT_EQ(get_dirname(nullptr), nullptr);
    dirname(nullptr);
    EXPECT_STREQ(last_char_is("ab/", '/'), "/");
    for (const char *text : {"", "/ab", "a/b"})
        EXPECT_EQ(last_char_is(text, '/'), nullptr) << text;
    EXPECT_EQ(last_char_is(nullptr, '/'), nullptr);
}

TEST(Path, LinkNameIsCutAtItsLastDivider)
{
    const exact_text name("a;b/l;../x");
    cut_link_filename(name.get());
    EXPECT_STREQ(name.get(), "a;b/l");
    const exact_text plain("ab");
    cut_link_filename(plain.get());
    EXPECT_STREQ(plain.get(), "ab");
    cut_link_filename(nullptr);
}

TEST(Path, EntryNameStandsBehindTheFirstSlashThatNoDotFollows)
{
    const struct {
        const char *path, *name;
    } rows[] = {
        {"./usr/bin/x", "usr/bin/x"}, {"/nand/bin/x", "nand/bin/x"},
        {"a/b/c/x", "b/c/x"},         {"../a/x", "a/x"},
        {"././d/x", "d/x"},           {"./.d/x", "x"},
    };
    for (const auto &row : rows)
        EXPECT_STREQ(first_char_is(row.path, '/'), row.name);
    EXPECT_EQ(first_char_is("./.d", '/'), nullptr);
    EXPECT_EQ(first_char_is("a", '/'), nullptr);
    EXPECT_STREQ(first_char_is("a/", '/'), "");
}

struct PathRecorded : Recorded {
};

TEST_F(PathRecorded, CardNamesAreExact)
{
    char golden[] = "Golden_Vpu.bin";
    int type = -7;
    EXPECT_EQ(check_type_SelfFile(golden, &type), 0);
    EXPECT_EQ(type, 30);
    for (std::string name : {"golden_vpu.bin", "Golden_Vpu.bin2", "", "Golden_Vpu"}) {
        type = -7;
        EXPECT_EQ(check_type_SelfFile(name.data(), &type), -1);
        EXPECT_EQ(type, -7);
    }
    EXPECT_EQ(console(), "");
    EXPECT_EQ(check_type_SelfFile(std::string(2048, 'x').data(), &type), -1);
    EXPECT_EQ(console(), "");
    EXPECT_EQ(check_type_SelfFile(std::string(2049, 'x').data(), &type), -1);
    EXPECT_EQ(console(), "ERR:len of self name is to long! \n");
}

TEST_F(PathRecorded, LinkTargetsOfEveryLength)
{
    const std::string link = dir + "/l";
    for (const size_t size : {1U, 79U, 80U, 81U, 160U, 161U, 1000U}) {
        const std::string target(size, 't');
        ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
        char *const read = xreadlink(link.c_str());
        EXPECT_EQ(read, target);
        free(read);
        unlink(link.c_str());
    }
    EXPECT_EQ(xreadlink(link.c_str()), nullptr);
    EXPECT_EQ(rec.all("trace"), link + "  ");
}

TEST_F(PathRecorded, DirectoryCommandIsRunOnlyIfItFits)
{
    const std::string longest = "/" + std::string(496, 'd');
    EXPECT_EQ(_mkdir(longest.c_str()), 0);
    EXPECT_EQ(rec.all("run"), "/bin/mkdir -p " + longest);
    rec.lines.clear();
    EXPECT_EQ(_mkdir((longest + "d").c_str()), 0);
    EXPECT_EQ(rec.all("run"), "");
    EXPECT_EQ(rec.all("trace"), "path too long for a directory: " + longest + "d\n");
}
