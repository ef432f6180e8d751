// The trace log and the update flag file.
#include "tests/recording_platform.h"
#include "update/dtt_update_common/trace_log.h"
#include "update/dtt_update_common/update_flag.h"

#include <ctime>
#include <filesystem>
#include <unistd.h>

struct Trace : Recorded {
    void SetUp() override
    {
        Recorded::SetUp();
        setenv("TZ", "UTC", 1);
        tzset();
    }

    // The clock at `day` of June 2026, one minute and 7.089999 seconds past midnight.
    static void set_day(int day)
    {
        tm t = {};
        t.tm_year = 126;
        t.tm_mon = 5;
        t.tm_mday = day;
        rec.time_us = timegm(&t) * 1000000LL + 67089999;
    }
};

TEST_F(Trace, PrefixAndMessageGoToBothSinks)
{
    set_day(5);
    const int line = __LINE__ + 1;
    TRACE("%d%% of %s", 5, "it");
    char expected[256];
    snprintf(expected, sizeof expected,
             "[2026/06/05 00:01:07.089 pid=%d] [ tests/unit/%30s/%5d ]:: ", getpid(), "TestBody",
             line);
    EXPECT_EQ(rec.prefix, expected);
    EXPECT_EQ(rec.all("trace"), "5% of it");
    EXPECT_EQ(console(), std::string(expected) + "5% of it") << "no line feed is added";
}

// The first line of a new day still goes to the old file; the next one empties the other file.
TEST_F(Trace, FilesTakeTurnsAtAChangeOfDay)
{
    set_day(1);
    TRACE("a");
    set_day(2);
    TRACE("b"); // whichever file was open before, it is closed by now
    TRACE("c");
    rec.lines.clear();
    TRACE("d");
    set_day(3);
    TRACE("e");
    TRACE("f");
    set_day(4);
    TRACE("g");
    TRACE("h");
    ASSERT_EQ(rec.lines.size(), 9U);
    const std::string first = rec.lines[3];
    const std::string second = rec.lines[7];
    EXPECT_EQ(rec.lines, (std::vector<std::string>{"trace d", "trace e", "close", first, "trace f",
                                                   "trace g", "close", second, "trace h"}));
    const std::string zero = "open /var/log/upgd_log0.txt";
    const std::string one = "open /var/log/upgd_log1.txt";
    EXPECT_TRUE((first == zero && second == one) || (first == one && second == zero))
        << first << second;
}

TEST_F(Trace, WithoutALogFileEveryLineStillReachesTheConsole)
{
    set_day(8);
    TRACE("closes a file of another day");
    TRACE("opens one of this day");
    set_day(9);
    TRACE("closes it");
    console();
    rec.log_file_opens = false;
    rec.lines.clear();
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
        rec.lines.clear();
    }
};

TEST_F(Flag, GoesFromAnyStateToStartedAndThenToDone)
{
    const std::string touch = "/bin/touch  " + path;
    const std::string echo1 = "/bin/echo 1 > " + path;
    const std::string echo2 = "/bin/echo 2 > " + path;
    const std::string rm = "/bin/rm -rf " + path;
    const std::string call = " call  fun  set_update_flag \n|";

    EXPECT_EQ(set_update_flag(path.data(), 1), 0);
    EXPECT_EQ(read_file(path), "1\n");
    EXPECT_EQ(rec.all("run"), touch + "|" + echo1);
    EXPECT_EQ(rec.all("trace"), call + "run cmd =  .\n|" + touch + " \n");
    EXPECT_EQ(rec.all("log"), "set_update_flag: " + touch + "|set_update_flag: " + echo1);

    rec.lines.clear();
    EXPECT_EQ(set_update_flag(path.data(), 2), 0);
    EXPECT_EQ(read_file(path), "2\n");
    EXPECT_EQ(rec.all("run"), echo2);
    EXPECT_EQ(rec.all("trace"), call + "run cmd =  .\n");

    rec.lines.clear();
    EXPECT_EQ(set_update_flag(path.data(), 1), 0);
    EXPECT_EQ(read_file(path), "1\n");
    EXPECT_EQ(rec.all("run"), rm + "|" + touch + "|" + echo1);
    EXPECT_EQ(rec.all("trace"), call +
                                    "run cmd =  .\n|upgrade NG, rm temp file .\n|run cmd = " + rm +
                                    " .\n|" + call + "run cmd = " + rm + " .\n|" + touch + " \n");

    std::filesystem::remove(path);
    rec.lines.clear();
    EXPECT_EQ(set_update_flag(path.data(), 2), 0);
    EXPECT_EQ(rec.all("run"), touch + "|" + echo2);
}

TEST_F(Flag, AFileThatCannotBeRemovedDoesNotHoldTheRunUp)
{
    write_file_text(path, "1\n");
    rec.failing = "/bin/";
    EXPECT_EQ(set_update_flag(path.data(), 1), 0);
    const std::string rm = "/bin/rm -rf " + path + "|";
    EXPECT_EQ(rec.all("run"), rm + rm + rm + "/bin/echo 1 > " + path);
}

TEST_F(Flag, ALongPathIsRefusedBeforeAnyCommand)
{
    std::string path113 = "/" + std::string(112, 'p');
    EXPECT_EQ(set_update_flag(path113.data(), 1), 0);
    EXPECT_EQ(rec.all("run"), "/bin/touch  " + path113 + "|/bin/echo 1 > " + path113);
    rec.lines.clear();
    std::string path114 = path113 + "p";
    EXPECT_EQ(set_update_flag(path114.data(), 1), -1);
    EXPECT_EQ(rec.lines.size(), 1U) << "one trace line";
}
