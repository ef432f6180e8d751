// Catches, in the stand-in for the platform layer: a setting that costs another, or the file; a
// command whose status, output or signals get lost; a message that is cut, lost or waited for.
#include "device_msg.h"
#include "platform/configuration.h"
#include "platform/identity.h"
#include "platform/mailbox.h"

#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <future>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>

namespace fs = std::filesystem;

// Other tasks' programs have these numbers in them.
static_assert(CMD_READ == 0 && CMD_WRITE == 1 && CMD_WRITE_ACK == 2 && CMD_READ_FILE == 221 &&
                  CMD_WRITE_FILE == 238 && CMD_UPDATE == 239 && CMD_END == 240,
              "commands of a card");

static std::string received(int box)
{
    std::string data(MAILBOX_MESSAGE_MAX + 1, '\0');
    data.resize(static_cast<size_t>(recv(box, data.data(), data.size(), MSG_DONTWAIT)));
    return data;
}

static std::string read_file(const std::string &path)
{
    std::ifstream in(path);
    return {std::istreambuf_iterator<char>(in), {}};
}

struct Platform : testing::Test {
    std::string dir = testing::TempDir() + "platform_XXXXXX";
    std::string conf = mkdtemp(dir.data()) + std::string("/conf/device.conf");

    ~Platform() override
    {
        fs::remove_all(dir);
    }

    std::string get(const char *key) const
    {
        char value[CONFIGURATION_VALUE_SIZE];
        const int result = configuration_get(conf.c_str(), key, value, sizeof value);
        return result == 0 ? value : strerrorname_np(-result);
    }

    int set(const std::string &key, const std::string &value) const
    {
        return configuration_set(conf.c_str(), key.c_str(), value.c_str());
    }
};

TEST_F(Platform, SettingAKeyKeepsEveryOtherByteOfTheFile)
{
    EXPECT_EQ(get("a"), "ENOENT");
    umask(077);
    EXPECT_EQ(set("x", "1"), 0);
    umask(022);
    EXPECT_EQ(fs::status(conf).permissions(), fs::perms(0644));
    EXPECT_EQ(fs::status(dir + "/conf").permissions(), fs::perms(0755));
    const char *const rows[][4] = {
        {"", "x.y-Z_9", " = b c= ", "x.y-Z_9= = b c= \n"},
        {"# a=0\n\na=1\n\nb=2", "a", "longer", "# a=0\n\na=longer\n\nb=2"},
        {"aa=1\na=1\na=2\n", "a", "3", "aa=1\na=3\na=2\n"},
        {"a = 1\nb\n=c", "b", "", "a = 1\nb\n=c\nb=\n"},
    };
    for (const auto &[before, key, value, after] : rows) {
        std::ofstream(conf) << before;
        EXPECT_EQ(set(key, value), 0) << before;
        EXPECT_EQ(read_file(conf), after);
        EXPECT_EQ(get(key), value) << before;
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
    EXPECT_EQ(read_file(conf), "c=3\nb=2\n");
}

TEST_F(Platform, ConfigurationRefusesWhatItCouldNotGiveBackAndKeepsTheOldFile)
{
    const std::string longest(CONFIGURATION_VALUE_SIZE - 1, 'x');
    EXPECT_EQ(set("a", longest), 0);
    EXPECT_EQ(get("a"), longest);
    for (const char *key : {"", "#a", "a b", "a=b", "a\nb", "\xc3\xa4"})
        EXPECT_EQ(set(key, "2"), -EINVAL) << key;
    EXPECT_EQ(set("a", "2\nb=3"), -EINVAL);
    EXPECT_EQ(set("a", longest + "x"), -EOVERFLOW);
    const std::string old = "# head\na=" + longest + "x\nb c=2\nd= = \nd=3";
    std::ofstream(conf) << old;
    EXPECT_EQ(get("a"), "EOVERFLOW") << "written by hand";
    testing::internal::CaptureStdout();
    EXPECT_EQ(configuration_list(conf.c_str(), stdout), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a=" + longest + "x\nd= = \nd=3\n");
    signal(SIGXFSZ, SIG_IGN); // as on a full disk
    const rlimit tight = {100, RLIM_INFINITY}, unlimited = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &tight);
    EXPECT_EQ(set("d", "2"), -EFBIG);
    setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_TRUE(read_file(conf) == old && !fs::exists(conf + ".new"));
    for (const char *text : {"256", "-2", "2 ", "0x5", ""}) {
        std::ofstream(conf) << "card_bit=" << text;
        EXPECT_EQ(configured_card_bit(conf.c_str()), 1) << text << " is no byte";
    }
}

TEST(Shell, RunsALineAndReturnsItsWaitStatus)
{
    EXPECT_EQ(WEXITSTATUS(my_system("true | false && exit 0; exit 7")), 7);
    EXPECT_EQ(WTERMSIG(my_system("kill -TERM $$")), SIGTERM);
    signal(SIGCHLD, SIG_IGN); // as a parent may hand it on
    EXPECT_EQ(my_system("exit 7"), 0) << "has run, with a status that nobody knows";
    signal(SIGCHLD, SIG_DFL);
    EXPECT_EQ(my_system("exec grep -q 'SigBlk:.*[1-9a-f]' /proc/self/status"), 256)
        << "has a signal blocked";
    FILE *const stream = my_popen("echo out; exit 3", "r");
    EXPECT_EQ(fgetc(stream), 'o');
    EXPECT_NE(my_system(("test -e /proc/self/fd/" + std::to_string(fileno(stream))).c_str()), 0)
        << "a command inherits the stream of another";
    EXPECT_EQ(WEXITSTATUS(my_pclose(stream)), 3);
    testing::internal::CaptureStdout(); // stands in the order of the calls
    dup2(STDOUT_FILENO, 9);
    printf("one ");
    my_system("printf 'two '");
    printf("three ");
    my_pclose(my_popen("printf four >&9", "r"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "one two three four");
}

// The command interrupts its process group, as the terminal does.
TEST(ShellDeathTest, AnInterruptMeansToTheRunWhatItMeansWithoutACommand)
{
    const auto run = [](sighandler_t handler) {
        setpgid(0, 0);
        signal(SIGINT, handler);
        _exit(WEXITSTATUS(my_system("kill -INT 0")));
    };
    EXPECT_EXIT(run(SIG_DFL), testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(run([](int) { _exit(9); }), testing::ExitedWithCode(9), "");
}

TEST_F(Platform, MailboxTakesWholeMessagesAndNeverHoldsTheSenderUp)
{
    const std::string path = dir + "/box";
    const auto send = [&path](const std::string &message) {
        return mailbox_send(path.c_str(), message.data(), message.size());
    };
    EXPECT_EQ(mailbox_send(std::string(200, 'x').c_str(), "x", 1), -ENAMETOOLONG);
    const int box = mailbox_open(path.c_str());
    const std::string longest = std::string(MAILBOX_MESSAGE_MAX - 1, 'x') + "y";
    EXPECT_EQ(send(longest + "z"), -EMSGSIZE);
    for (const std::string &message : {std::string(), std::string(9616, '\0'), longest})
        EXPECT_TRUE(send(message) == 0 && received(box) == message) << message.size();
    int result = 0;
    for (int i = 0; i < 10000 && result == 0; i++)
        result = send(std::string(100000, 'x'));
    EXPECT_EQ(result, -EAGAIN);
    const int other = mailbox_open((path + "2").c_str());
    EXPECT_EQ(mailbox_send((path + "2").c_str(), "x", 1), 0) << "another one, which reads";
    close(other);
    EXPECT_EQ(mailbox_open(path.c_str()), -EADDRINUSE) << "a task receives there";
    std::ofstream(dir + "/file").flush();
    EXPECT_EQ(mailbox_open((dir + "/file").c_str()), -EADDRINUSE) << "is no socket";
    close(box);
    EXPECT_EQ(send("x"), -ECONNREFUSED) << "a dead task's socket file";
}

TEST_F(Platform, AMessageIsSentOrReleasedOnce)
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
