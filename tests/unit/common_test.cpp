// What both libraries use: paths and names, the CRC, the header report, the trace log and the
// update flag file.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/card_file_names.h"
#include "update/dtt_create/tree_walk.h"
#include "update/dtt_update/directories_and_links.h"
#include "update/dtt_update_common/crc32.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/path_operations.h"
#include "update/dtt_update_common/trace_log.h"
#include "update/dtt_update_common/update_flag.h"

#include <cstring>
#include <ctime>
#include <memory>
#include <random>
#include <unistd.h>

TEST(Path, Join)
{
    const auto join = [](const char *path, const std::string &filename) {
        char joined[PATH_SIZE];
        return std::string(concat_path_file(path, filename.c_str(), joined));
    };
    EXPECT_EQ(join("/opt/upgddir/", "nand/a"), "/opt/upgddir/nand/a");
    EXPECT_EQ(join("/opt/upgddir", "/nand/a"), "/opt/upgddir/nand/a");
    EXPECT_EQ(join("/", "//a"), "/a");
    EXPECT_EQ(join("", "a"), "/a");
    EXPECT_EQ(join(nullptr, "a"), "/a");
    EXPECT_EQ(join("a", ""), "a/");
    const std::string name(PATH_SIZE - 4, 'x');
    EXPECT_EQ(join("/a", name), "/a/" + name);
    EXPECT_EQ(join("/a", name + "x"), "") << "half a path";
}

// What `cut` leaves of a text in memory of exactly its size, so that the sanitizers see a step
// beside it.
template <typename function> static std::string left_by(function cut, const char *text)
{
    const std::unique_ptr<char[]> copy(new char[strlen(text) + 1]);
    strcpy(copy.get(), text);
    cut(copy.get());
    return copy.get();
}

TEST(Path, LastComponentDirectoryPartAndLinkName)
{
    const struct {
        const char *text, *last, *left, *cut;
    } rows[] = {
        {"a/b", "b", "a/b", "a"}, {"a/b//", "b", "a/b", "a/b/"}, {"ab", "ab", "ab", "ab"},
        {"/x", "x", "/x", ""},    {"///", "", "", "//"},         {"", "", "", ""},
        {".", ".", ".", "."},     {"a/.b", ".b", "a/.b", "a"},
    };
    for (const auto &row : rows) {
        std::string last;
        EXPECT_EQ(left_by([&last](char *s) { last = get_dirname(s); }, row.text), row.left);
        EXPECT_EQ(last, row.last) << row.text;
        EXPECT_EQ(left_by(dirname, row.text), row.cut);
    }
    EXPECT_EQ(left_by(cut_link_filename, "a;b/l;../x"), "a;b/l");
    EXPECT_EQ(left_by(cut_link_filename, "ab"), "ab");
    EXPECT_STREQ(last_char_is("ab/", '/'), "/");
    for (const char *text : {"", "/ab", "a/b"})
        EXPECT_EQ(last_char_is(text, '/'), nullptr) << text;
    EXPECT_EQ(last_char_is(nullptr, '/'), nullptr);
    EXPECT_EQ(get_dirname(nullptr), nullptr);
    dirname(nullptr);
    cut_link_filename(nullptr);
}

TEST(Path, EntryNameStandsBehindTheFirstSlashThatNoDotFollows)
{
    EXPECT_STREQ(first_char_is("/nand/bin/x", '/'), "nand/bin/x");
    EXPECT_STREQ(first_char_is("a/b/c/x", '/'), "b/c/x");
    EXPECT_STREQ(first_char_is("../a/x", '/'), "a/x");
    EXPECT_STREQ(first_char_is("././d/x", '/'), "d/x");
    EXPECT_STREQ(first_char_is("./.d/x", '/'), "x");
    EXPECT_STREQ(first_char_is("a/", '/'), "");
    for (const char *path : {"./.d", "a"})
        EXPECT_EQ(first_char_is(path, '/'), nullptr) << path;
}

struct PathRecorded : Recorded {
};

TEST_F(PathRecorded, CardNamesAreExact)
{
    int type = -7;
    for (std::string name : {"golden_vpu.bin", "Golden_Vpu.bin2", "", "Golden_Vpu"})
        EXPECT_EQ(check_type_SelfFile(name.data(), &type), -1);
    std::string name(2048, 'x');
    EXPECT_EQ(check_type_SelfFile(name.data(), &type), -1);
    EXPECT_EQ(console(), "");
    EXPECT_EQ(check_type_SelfFile((name + "x").data(), &type), -1);
    EXPECT_EQ(console(), "ERR:len of self name is to long! \n");
    EXPECT_EQ(type, -7);
    int expected = 22;
    for (std::string card : {"App_inputCard.bin", "App_OutputCard_HDMI.bin", "App_VPUCard.bin",
                             "InputCardTop.bin", "Tyx_OutputCard.bin", "TYX_VPU_TOP.bin",
                             "Golden_Input.bin", "Golden_Output.bin", "Golden_Vpu.bin"}) {
        EXPECT_EQ(check_type_SelfFile(card.data(), &type), 0);
        EXPECT_EQ(type, expected++) << card;
    }
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
    EXPECT_EQ(_mkdir((longest + "d").c_str()), 0);
    EXPECT_EQ(rec.lines, (std::vector<std::string>{
                             "run /bin/mkdir -p " + longest,
                             "trace path too long for a directory: " + longest + "d\n"}));
}

// Both ways on every length, alignment and split, against one bit a step.
TEST(Crc, EqualsOneBitAStepOnEveryLengthAndAlignment)
{
    std::string text = "abc";
    EXPECT_EQ(linuxcrc32(text.data(), 3), 0x352441C2U);
    constexpr size_t longest = 4096;
    std::mt19937 random(1);
    while (text.size() < longest + 16)
        text += static_cast<char>(random());
    for (const auto update : {crc32_update, crc32_update_by_tables}) {
        for (size_t at = 0; at < 16; at++) {
            uint32_t expected = 0;
            for (size_t len = 0; len <= longest; len++) {
                ASSERT_EQ(update(0, text.data() + at, len), expected) << at << ' ' << len;
                expected = reference_crc(text.substr(at + len, 1), expected);
            }
        }
        const uint32_t whole = reference_crc(text);
        for (size_t split = 0; split <= text.size(); split++) {
            const uint32_t head = update(0, text.data(), split);
            ASSERT_EQ(update(head, text.data() + split, text.size() - split), whole) << split;
        }
    }
}

struct HeaderReport : Recorded {
    // Reports a header at the very end of its memory, so that the sanitizers see a read behind it.
    static void report(const test_header &header)
    {
        rec.lines.clear();
        const std::unique_ptr<update_header_t> exact(new update_header_t);
        memcpy(exact.get(), image_bytes({{"a", 0, "x"}}, header).data(), sizeof *exact);
        print_image_hdr(exact.get());
    }
};

TEST_F(HeaderReport, GroupsDoNotInterleave)
{
    test_header header;
    header.crc = 0xFFFFFFFF;
    header.dirs = 3;
    header.comp = 1;
    setenv("TZ", "UTC-1", 1); // the zone has changed since the process began
    report(header);
    const std::string lines[] = {
        "   Image Name       : Vorn Video Systems firmware package",
        "   Firmware Version : V1.0.0.0",
        "   Update Place     : /usr/nand",
        "   Update Dir       : nand",
        "   Created          : Thu Jan  1 01:00:00 1970\n",
        "   Image Type       : (GZIP Compressed)",
        "   Data Size        : 496 Bytes",
        "   Directorys       : 3",
        "   Files            : 1",
        "   Body Data CRC    : 4294967295",
    };
    std::vector<std::string> expected;
    for (const std::string &text : lines)
        expected.push_back("log print_image_hdr: " + text);
    expected.push_back("trace    \n");
    for (const std::string &text : lines)
        expected.push_back("trace " + text + "\n");
    EXPECT_EQ(rec.lines, expected);
    EXPECT_EQ(rec.formats, "   Image Name       : %.*s\n   Firmware Version : %.*s\n"
                           "   Update Place     : %.*s\n   Update Dir       : %.*s\n"
                           "   Created          : %s\n   Image Type       : (%s)\n"
                           "   Data Size        : %d Bytes\n   Directorys       : %d\n"
                           "   Files            : %d\n   Body Data CRC    : %u\n");
}

TEST_F(HeaderReport, PlacesCompressionsAndFieldsWithoutTerminator)
{
    test_header header;
    header.version = std::string(64, 'v');
    header.update_dir = std::string(64, 'u');
    header.dest_dir = std::string(256, 'd');
    const std::pair<uint32_t, std::string> places[] = {
        {1, "/"}, {2, "/usr/nand"}, {3, std::string(64, 'd')}, {0, ""}, {4, ""}, {0xFFFFFFFF, ""}};
    const std::string label = "log print_image_hdr:    ";
    for (const auto &[place, text] : places) {
        header.place = place;
        report(header);
        EXPECT_EQ(rec.lines.at(1), label + "Firmware Version : " + header.version);
        EXPECT_EQ(rec.lines.at(2), label + "Update Place     : " + text) << place;
        EXPECT_EQ(rec.lines.at(3), label + "Update Dir       : " + header.update_dir);
    }
    header.place = 3;
    header.dest_dir = "/dest";
    report(header);
    EXPECT_EQ(rec.lines.at(2), label + "Update Place     : /dest");
    EXPECT_STREQ(place2str(3), "costom");
    const char *const names[] = {"Uncompressed", "GZIP Compressed", "BZIP2 Compressed",
                                 "Unknown Compression"};
    for (const int compression : {0, 1, 2, 3, -1})
        EXPECT_STREQ(print_type(compression), names[compression & 3]);
}

struct Trace : Recorded {
    // No log file is open at the beginning, whichever was before: the line of a new day closes it.
    void SetUp() override
    {
        Recorded::SetUp();
        setenv("TZ", "UTC", 1);
        tzset();
        for (const int day : {1, 2, 2, 3})
            trace_on(day, "");
        console();
        rec.lines.clear();
    }

    // A line on a day of June 2026, one minute and 7.089999 seconds past midnight.
    static void trace_on(int day, const char *text)
    {
        tm t = {};
        t.tm_year = 126;
        t.tm_mon = 5;
        t.tm_mday = day;
        rec.time_us = timegm(&t) * 1000000LL + 67089999;
        TRACE("%s", text);
    }
};

TEST_F(Trace, PrefixAndMessageGoToBothSinks)
{
    const int line = __LINE__ + 1;
    TRACE("%d%% of %s", 5, "it");
    char expected[256];
    snprintf(expected, sizeof expected,
             "[2026/06/03 00:01:07.089 pid=%d] [ tests/unit/%30s/%5d ]:: ", getpid(), "TestBody",
             line);
    EXPECT_EQ(rec.prefix, expected);
    EXPECT_EQ(rec.all("trace"), "5% of it");
    EXPECT_EQ(console(), std::string(expected) + "5% of it") << "no line feed is added";
}

// The first line of a new day still goes to the old file; the next one empties the other file.
TEST_F(Trace, FilesTakeTurnsAtAChangeOfDay)
{
    const std::pair<int, const char *> lines[] = {{3, "a"}, {4, "b"}, {4, "c"}, {5, "d"}, {5, "e"}};
    for (const auto &[day, text] : lines)
        trace_on(day, text);
    const std::string files[] = {"open /var/log/upgd_log0.txt", "open /var/log/upgd_log1.txt"};
    const int first = rec.lines.at(0) == files[1] ? 1 : 0;
    EXPECT_EQ(rec.lines, (std::vector<std::string>{files[first], "trace a", "trace b", "close",
                                                   files[1 - first], "trace c", "trace d", "close",
                                                   files[first], "trace e"}));
}

TEST_F(Trace, WithoutALogFileEveryLineStillReachesTheConsole)
{
    rec.log_file_opens = false;
    TRACE("one\n");
    TRACE("two\n");
    const std::string text = console();
    EXPECT_NE(text.find("]:: one\n["), std::string::npos) << text;
    EXPECT_NE(text.find("]:: two\n"), std::string::npos) << text;
    EXPECT_EQ(rec.lines.size(), 2U) << "each line tries to open the file again";
    EXPECT_EQ(rec.lines[0], rec.lines[1]);
}

struct Flag : Recorded {
    std::string path;

    void SetUp() override
    {
        Recorded::SetUp();
        path = dir + "/flag";
    }

    // What the flag file holds after the call, and the call's lines, divided by '|'.
    std::string set(int value)
    {
        rec.lines.clear();
        EXPECT_EQ(set_update_flag(path.data(), value), 0);
        std::string text = read_file(path);
        for (const std::string &line : rec.lines)
            text += "|" + line;
        return text;
    }
};

TEST_F(Flag, GoesFromAnyStateToStartedAndThenToDone)
{
    const auto logged = [](const std::string &cmd) {
        return "|log set_update_flag: " + cmd + "|run " + cmd;
    };
    const std::string rm = "/bin/rm -rf " + path;
    const std::string begun = "|trace  call  fun  set_update_flag \n|trace run cmd = ";
    const std::string touched =
        logged("/bin/touch  " + path) + "|trace /bin/touch  " + path + " \n";
    const std::string started = touched + logged("/bin/echo 1 > " + path) + "|syncfs";
    const std::string done = logged("/bin/echo 2 > " + path) + "|syncfs";
    EXPECT_EQ(set(1), "1\n" + begun + " .\n" + started);
    EXPECT_EQ(set(2), "2\n" + begun + " .\n" + done);
    EXPECT_EQ(set(1), "1\n" + begun + " .\n|trace upgrade NG, rm temp file .\n|trace run cmd = " +
                          rm + " .\n|run " + rm + begun + rm + " .\n" + started);
    unlink(path.c_str());
    EXPECT_EQ(set(2), "2\n" + begun + " .\n" + touched + done);
}

TEST_F(Flag, AFileThatCannotBeRemovedDoesNotHoldTheRunUp)
{
    write_file_text(path, "1\n");
    rec.failing = "/bin/";
    set(1);
    const std::string rm = "/bin/rm -rf " + path + "|";
    EXPECT_EQ(rec.all("run"), rm + rm + rm + "/bin/echo 1 > " + path);
}

TEST_F(Flag, ALongPathIsRefusedBeforeAnyCommand)
{
    path = "/" + std::string(112, 'p');
    set(1);
    EXPECT_EQ(rec.all("run"), "/bin/touch  " + path + "|/bin/echo 1 > " + path);
    rec.lines.clear();
    path += "p";
    EXPECT_EQ(set_update_flag(path.data(), 1), -1);
    EXPECT_EQ(rec.lines.size(), 1U) << "one trace line";
}
