// Catches, in the stand-in for the platform layer: a setting that costs another, or the file; a
// command whose status, output or signals get lost; a message that is cut, lost or waited for.
#include "device_msg.h"
#include "platform/configuration.h"
#include "platform/identity.h"
#include "platform/mailbox.h"

#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>

namespace fs = std::filesystem;

// Other tasks' programs have these numbers in them.
static_assert(CMD_READ == 0 && CMD_WRITE == 1 && CMD_WRITE_ACK == 2 && CMD_READ_FILE == 221 &&
              CMD_WRITE_FILE == 238 && CMD_UPDATE == 239 && CMD_END == 240);

struct Platform : testing::Test {
    std::string dir = testing::TempDir() + "platform_XXXXXX";
    std::string conf = mkdtemp(dir.data()) + std::string("/conf/device.conf");

    ~Platform() override
    {
        fs::remove_all(dir);
    }

    int set(const std::string &key, const std::string &value) const
    {
        return configuration_set(conf.c_str(), key.c_str(), value.c_str());
    }

    std::string text() const
    {
        std::ifstream in(conf);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

TEST_F(Platform, ASettingKeepsEveryOtherByteOfTheFile)
{
    umask(077);
    EXPECT_EQ(set("x", "1"), 0);
    umask(022);
    EXPECT_EQ(fs::status(conf).permissions(), fs::perms(0644));
    EXPECT_EQ(fs::status(dir + "/conf").permissions(), fs::perms(0755));
    const std::string longest(CONFIGURATION_VALUE_SIZE - 1, 'x');
    const std::string rows[][4] = {
        {"", "x.y-Z_9", " = b c= ", "x.y-Z_9= = b c= \n"},
        {"# a=0\n\na=1\n\nb=2", "a", longest, "# a=0\n\na=" + longest + "\n\nb=2"},
        {"aa=1\na=1\na=2\n", "a", "3", "aa=1\na=3\na=2\n"},
        {"a = 1\nb\n=c", "b", "", "a = 1\nb\n=c\nb=\n"},
    };
    for (const auto &[before, key, value, after] : rows) {
        std::ofstream(conf) << before;
        EXPECT_EQ(set(key, value), 0) << before;
        EXPECT_EQ(text(), after);
        char got[CONFIGURATION_VALUE_SIZE];
        EXPECT_EQ(configuration_get(conf.c_str(), key.c_str(), got, sizeof got), 0);
        EXPECT_EQ(got, value) << before;
    }
    for (const char *key : {"", "a b", "a=b", "\xc3\xa4"})
        EXPECT_EQ(set(key, "2"), -EINVAL) << key;
    EXPECT_EQ(set("a", "2\nb=3"), -EINVAL);
    EXPECT_EQ(set("a", longest + "x"), -EOVERFLOW);
    std::ofstream(conf) << "# head\na=1\nb c=2\nd= = \nd=3";
    testing::internal::CaptureStdout();
    EXPECT_EQ(configuration_list(conf.c_str(), stdout), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a=1\nd= = \nd=3\n");
    for (const char *bit : {"256", "-2", "2 ", ""}) {
        std::ofstream(conf) << "card_bit=" << bit;
        EXPECT_EQ(configured_card_bit(conf.c_str()), 1) << bit << " is no byte";
    }
}

TEST_F(Platform, AWriterWaitsForTheOneThatHasTheLock)
{
    EXPECT_EQ(set("a", "1"), 0);
    const int lock = open((conf + ".lock").c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(flock(lock, LOCK_SH), 0);
    std::future<int> other = std::async(std::launch::async, &Platform::set, this, "b", "2");
    EXPECT_EQ(other.wait_for(std::chrono::milliseconds(300)), std::future_status::timeout);
    std::ofstream(conf) << "c=3\n";
    close(lock);
    EXPECT_EQ(other.get(), 0);
    EXPECT_EQ(text(), "c=3\nb=2\n");
}

TEST(Shell, RunsALineAndReturnsItsWaitStatus)
{
    EXPECT_EQ(WEXITSTATUS(my_system("true | false && exit 0; exit 7")), 7);
    EXPECT_EQ(WTERMSIG(my_system("kill -TERM $$")), SIGTERM);
    EXPECT_EQ(my_system("exec grep -q 'SigBlk:.*[1-9a-f]' /proc/self/status"), 256)
        << "has a signal blocked";
    signal(SIGCHLD, SIG_IGN); // as a parent may hand it on
    EXPECT_EQ(my_system("exit 7"), 0) << "has run, with a status that nobody knows";
    signal(SIGCHLD, SIG_DFL);
    testing::internal::CaptureStdout();
    dup2(STDOUT_FILENO, 9);
    printf("one ");
    FILE *const stream = my_popen("printf two >&9; exit 3", "r");
    EXPECT_NE(my_system(("test -e /proc/self/fd/" + std::to_string(fileno(stream))).c_str()), 0)
        << "a command inherits the stream of another";
    EXPECT_EQ(WEXITSTATUS(my_pclose(stream)), 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "one two");
}

// The command interrupts its process group, as the terminal does.
TEST(ShellDeathTest, AnInterruptMeansToTheRunWhatItMeansWithoutACommand)
{
    const auto handler = [](int) { _exit(9); };
    EXPECT_EXIT((setpgid(0, 0), signal(SIGINT, handler), my_system("kill -INT 0"), _exit(0)),
                testing::ExitedWithCode(9), "");
}

TEST_F(Platform, MailboxTakesWholeMessagesAndNeverHoldsTheSenderUp)
{
    const std::string path = dir + "/box";
    const auto send = [](const std::string &to, const std::string &message) {
        return mailbox_send(to.c_str(), message.data(), message.size());
    };
    EXPECT_EQ(send(std::string(200, 'x'), "x"), -ENAMETOOLONG);
    const int box = mailbox_open(path.c_str());
    const std::string longest = std::string(MAILBOX_MESSAGE_MAX - 1, 'x') + "y";
    EXPECT_EQ(send(path, longest + "z"), -EMSGSIZE);
    EXPECT_EQ(send(path, longest), 0);
    std::string data(longest.size(), '\0');
    EXPECT_EQ(recv(box, data.data(), data.size(), MSG_DONTWAIT | MSG_TRUNC), data.size());
    EXPECT_TRUE(data == longest);
    int result = 0;
    for (int i = 0; i < 10000 && result == 0; i++)
        result = send(path, std::string(100000, 'x'));
    EXPECT_EQ(result, -EAGAIN);
    const int other = mailbox_open((path + "2").c_str());
    EXPECT_EQ(send(path + "2", "x"), 0) << "another one, which reads";
    EXPECT_EQ(mailbox_open(path.c_str()), -EADDRINUSE) << "a task receives there";
    std::ofstream(dir + "/file").flush();
    EXPECT_EQ(mailbox_open((dir + "/file").c_str()), -EADDRINUSE) << "is no socket";
    close(other);
    close(box);
}

TEST(Message, IsSentOrReleasedOnce)
{
    apsess_key_t key;
    aptid_t task = 0x010a3b00;
    EXPECT_EQ(apsess_key_init(&key, &task, std::string(60, 'q').c_str(), 0, 0, 0), -EINVAL);
    apmsg_t message;
    apmsg_init(&message);
    void *const buffer = apmsg_alloc(&message, 5);
    EXPECT_EQ(apmsg_alloc(&message, 1), nullptr) << "would lose the first buffer";
    EXPECT_EQ(apmsg_detach(&message, &message), -EINVAL) << "another buffer";
    EXPECT_EQ(apmsg_atomic_send(task, &message, -1), -EINVAL) << "not detached";
    EXPECT_EQ(apmsg_detach(&message, buffer), 0);
    EXPECT_EQ(apmsg_atomic_send(0, &message, -1), -ENOENT) << "there is no session 0";
    EXPECT_EQ(apmsg_free(&message), 0) << "is held after a failure";
    EXPECT_EQ(apmsg_free(&message), -EINVAL) << "is held no longer";
    errno = EEXIST;
    aplog_printf(0, "imgdeploy", "func", "%s", std::string(5000, 'x').c_str());
    EXPECT_EQ(errno, EEXIST) << "a line that is logged";
}
