// The platform layer itself, in a temporary directory.
#include "platform/configuration.h"
#include "platform/identity.h"
#include "tests/real_platform.h"

#include <csignal>
#include <future>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/wait.h>

struct Platform : testing::Test {
    std::string dir = testing::TempDir() + "platform_XXXXXX";
    std::string conf = mkdtemp(dir.data()) + std::string("/device.conf");

    ~Platform() override
    {
        std::filesystem::remove_all(dir);
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
    const char *const rows[][4] = {
        {"", "x.y-Z_9", " = b c= ", "x.y-Z_9= = b c= \n"},
        {"a=1", "b", "2", "a=1\nb=2\n"},
        {"a=1", "a", "2", "a=2\n"},
        {"# a=0\n\na=1\n\nb=2\n", "a", "longer", "# a=0\n\na=longer\n\nb=2\n"},
        {"aa=1\na=1\na=2\n", "a", "3", "aa=1\na=3\na=2\n"},
        {"a = 1\nb\n=c\n", "b", "", "a = 1\nb\n=c\nb=\n"},
    };
    for (const auto &[before, key, value, after] : rows) {
        std::ofstream(conf) << before;
        EXPECT_EQ(set(key, value), 0) << before;
        EXPECT_EQ(read_file(conf), after);
        EXPECT_EQ(get(key), value) << before;
    }
}

TEST_F(Platform, ConfigurationIsMadeReadableForAllAndRefusesWhatItCouldNotGiveBack)
{
    using namespace std::filesystem;
    conf = dir + "/sysconfig/device.conf";
    EXPECT_EQ(get("a"), "ENOENT") << "no file";
    umask(077);
    EXPECT_EQ(set("a", "1"), 0);
    umask(022);
    EXPECT_EQ(status(conf).permissions(), perms(0644));
    EXPECT_EQ(status(dir + "/sysconfig").permissions(), perms(0755));

    for (const char *key : {"", "#a", "a b", "a=b", "a\nb", "\xc3\xa4"})
        EXPECT_EQ(set(key, "2"), -EINVAL) << key;
    const std::string longest(CONFIGURATION_VALUE_SIZE - 1, 'x');
    EXPECT_EQ(set("a", "2\nb=3"), -EINVAL);
    EXPECT_EQ(set("a", longest + "x"), -EOVERFLOW);
    EXPECT_EQ(read_file(conf), "a=1\n");
    EXPECT_TRUE(set("a", longest) == 0 && get("a") == longest);
    const std::string old = "# head\na=" + longest + "x\nb c=2\nd= = \nd=3";
    std::ofstream(conf) << old;
    EXPECT_EQ(get("a"), "EOVERFLOW") << "written by hand";
    testing::internal::CaptureStdout();
    EXPECT_EQ(configuration_list(conf.c_str(), stdout), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "a=" + longest + "x\nd= = \nd=3\n");

    // The new file can't be written to its end, as on a full disk: the old one stays.
    signal(SIGXFSZ, SIG_IGN);
    const rlimit tight = {100, RLIM_INFINITY}, unlimited = {RLIM_INFINITY, RLIM_INFINITY};
    setrlimit(RLIMIT_FSIZE, &tight);
    const int result = set("d", "2");
    setrlimit(RLIMIT_FSIZE, &unlimited);
    EXPECT_EQ(result, -EFBIG);
    EXPECT_TRUE(read_file(conf) == old && !exists(conf + ".new"));
}

TEST_F(Platform, ConcurrentWritersLoseNothing)
{
    std::vector<std::future<int>> results;
    for (const char *key : {"a", "b", "c", "d", "e", "f", "g", "h", "i", "j", "k", "l", "m", "n"})
        results.push_back(std::async(std::launch::async, &Platform::set, this, key, "v"));
    for (std::future<int> &result : results)
        EXPECT_EQ(result.get(), 0);
    EXPECT_EQ(read_file(conf).size(), results.size() * strlen("a=v\n")) << read_file(conf);
}

TEST_F(Platform, CardBitThatIsNoByteMeansTheMainBoard)
{
    EXPECT_EQ(configured_card_bit(conf.c_str()), 1);
    for (const char *text : {"256", "-2", "2 ", "0x5", ""}) {
        EXPECT_EQ(set("card_bit", text), 0);
        EXPECT_EQ(configured_card_bit(conf.c_str()), 1) << text;
    }
}

TEST(Shell, RunsALineAndReturnsItsWaitStatus)
{
    EXPECT_EQ(WEXITSTATUS(my_system("true | false && exit 0; exit 7")), 7);
    EXPECT_EQ(WTERMSIG(my_system("kill -TERM $$")), SIGTERM);
    FILE *const stream = my_popen("echo out; exit 3", "r");
    EXPECT_EQ(fgetc(stream), 'o');
    EXPECT_NE(my_system(("test -e /proc/self/fd/" + std::to_string(fileno(stream))).c_str()), 0)
        << "a command inherits the stream of another";
    EXPECT_EQ(WEXITSTATUS(my_pclose(stream)), 3);

    // Output stands in the order of the calls.
    testing::internal::CaptureStdout();
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
    const auto run = [](const char *cmd, sighandler_t handler) {
        setpgid(0, 0);
        signal(SIGINT, handler);
        _exit(WEXITSTATUS(my_system(cmd)));
    };
    EXPECT_EXIT(run("kill -INT 0", SIG_DFL), testing::KilledBySignal(SIGINT), "");
    EXPECT_EXIT(run("kill -INT 0", [](int) { _exit(9); }), testing::ExitedWithCode(9), "");
}

TEST_F(Platform, MailboxTakesWholeMessagesAndNeverHoldsTheSenderUp)
{
    const std::string path = dir + "/box";
    const auto send = [&path](const std::string &message) {
        return mailbox_send(path.c_str(), message.data(), message.size());
    };
    EXPECT_EQ(mailbox_send(std::string(200, 'x').c_str(), "x", 1), -ENAMETOOLONG);

    const int box = bind_mailbox(path);
    const std::string longest = std::string(MAILBOX_MESSAGE_MAX - 1, 'x') + "y";
    EXPECT_EQ(send(longest + "z"), -EMSGSIZE);
    for (const std::string &message : {std::string(), std::string(9616, '\0'), longest})
        EXPECT_TRUE(send(message) == 0 && received(box) == message) << message.size();
    int result = 0;
    for (int i = 0; i < 10000 && result == 0; i++)
        result = send("x");
    EXPECT_EQ(result, -EAGAIN);
    close(box);
    EXPECT_EQ(send("x"), -ECONNREFUSED);
    EXPECT_EQ(mailbox_probe(path.c_str()), -ECONNREFUSED) << "a dead task's socket file";
}

// Runs last and in a private mount namespace, which the process does not leave any more.
using FixedPaths = Platform;

TEST_F(FixedPaths, ServeTheConfigurationTheLogAndTheSessions)
{
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        GTEST_SKIP() << "a private mount namespace is not allowed here";
    for (const char *place : {"/run", "/etc", "/dev"})
        ASSERT_EQ(mount(dir.c_str(), place, nullptr, MS_BIND, nullptr), 0) << place;

    EXPECT_EQ(sysconf_openenv(), -ENOENT);
    EXPECT_EQ(configuration_set(CONFIGURATION_PATH, "card_bit", "255"), 0);
    EXPECT_TRUE(sysconf_openenv() == 0 && apcard_bit_self() == 255);
    EXPECT_STREQ(sysconf_getenv("card_bit"), "255");
    EXPECT_EQ(sysconf_getenv("other"), nullptr);

    aptid_t task = 0x010a3b00;
    EXPECT_EQ(aptid_self_set(task), 0);
    errno = EEXIST; // kept while no daemon can be found
    aplog_printf(0, "imgdeploy", "func", "lost");
    const int kept = errno;
    const int daemon = bind_mailbox("/dev/log");
    errno = kept;
    aplog_printf(0, "imgdeploy", "func", "%m%s", std::string(5000, 'x').c_str());
    const std::string line = received(daemon);
    const std::string text = "File exists" + std::string(2047 - 11, 'x');
    const std::string end = "imgdeploy[" + std::to_string(getpid()) + "]: 010a3b00 func: " + text;
    EXPECT_TRUE(line.find("<30>") == 0 && line.find(end) == line.size() - end.size()) << line;

    apsess_key_t key;
    apsess_id_t session = 99;
    EXPECT_EQ(apsess_key_init(&key, &task, std::string(60, 'q').c_str(), 0, 0, 0), -EINVAL);
    EXPECT_EQ(apsess_key_init(&key, &task, nullptr, 0, 0, 0), 0);
    EXPECT_TRUE(apsess_find(&session, &key, 0) == -ENOENT && session == 99) << session;
    const int box = bind_mailbox("/run/mailbox/010a3b00");
    EXPECT_TRUE(apsess_find(&session, &key, 0) == 0 && session == task) << session;

    apmsg_t message;
    apmsg_init(&message);
    void *const buffer = apmsg_alloc(&message, 5);
    memcpy(buffer, "hello", 5);
    EXPECT_EQ(apmsg_alloc(&message, 1), nullptr) << "would lose the first buffer";
    EXPECT_EQ(apmsg_atomic_send(session, &message, -1), -EINVAL) << "not detached";
    EXPECT_EQ(apmsg_detach(&message, buffer), 0);
    EXPECT_LT(apmsg_atomic_send(0, &message, -1), 0) << "there is no session 0";
    EXPECT_EQ(apmsg_atomic_send(session, &message, -1), 0) << "is held after a failure";
    EXPECT_EQ(received(box), "hello");
    EXPECT_EQ(apmsg_free(&message), -EINVAL) << "is held no longer";
    EXPECT_TRUE(apmsg_alloc(&message, 1) != nullptr && apmsg_free(&message) == 0);
}
