// The platform layer itself, in a temporary directory. What has a fixed path below /run, /etc or
// /dev is called in a private mount namespace, where the temporary directory stands in for all
// three.
#include "platform/configuration.h"
#include "platform/identity.h"
#include "platform/mailbox.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <sched.h>
#include <string>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

struct Platform : testing::Test {
    std::string dir = testing::TempDir() + "platform_XXXXXX";
    std::string conf;

    void SetUp() override
    {
        ASSERT_NE(mkdtemp(dir.data()), nullptr);
        conf = dir + "/sysconfig/device.conf";
    }

    void TearDown() override
    {
        std::filesystem::remove_all(dir);
    }

    std::string get(const char *key) const
    {
        char value[CONFIGURATION_VALUE_SIZE];
        const int result = configuration_get(conf.c_str(), key, value, sizeof value);
        return result == 0 ? value : "error " + std::to_string(result);
    }

    int set(const std::string &key, const std::string &value) const
    {
        return configuration_set(conf.c_str(), key.c_str(), value.c_str());
    }

    void write_conf(const std::string &text) const
    {
        std::filesystem::create_directory(dir + "/sysconfig");
        std::ofstream(conf) << text;
    }

    std::string conf_text() const
    {
        std::ifstream in(conf);
        return {std::istreambuf_iterator<char>(in), {}};
    }
};

static int bind_mailbox(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    return fd;
}

TEST_F(Platform, SettingAKeyKeepsEveryOtherByteOfTheFile)
{
    const struct {
        const char *before, *key, *value, *after;
    } rows[] = {
        {"", "a", "1", "a=1\n"},
        {"a=1\n", "b", "2", "a=1\nb=2\n"},
        {"a=1", "b", "2", "a=1\nb=2\n"},
        {"a=1", "a", "2", "a=2\n"},
        {"# a=0\n\na=1\n\nb=2\n", "a", "longer", "# a=0\n\na=longer\n\nb=2\n"},
        {"aa=1\na=1\na=2\n", "a", "3", "aa=1\na=3\na=2\n"},
        {"a = 1\nb\n=c\n", "b", "", "a = 1\nb\n=c\nb=\n"},
        {"", "x.y-Z_9", " = b c= ", "x.y-Z_9= = b c= \n"},
    };
    for (const auto &row : rows) {
        write_conf(row.before);
        EXPECT_EQ(set(row.key, row.value), 0) << row.before;
        EXPECT_EQ(conf_text(), row.after);
        EXPECT_EQ(get(row.key), row.value) << row.before;
    }
}

TEST_F(Platform, ConfigurationIsMadeReadableForAllAndRefusesWhatItCouldNotGiveBack)
{
    EXPECT_EQ(get("a"), "error -2") << "no file";
    umask(077);
    EXPECT_EQ(set("a", "1"), 0);
    umask(022);
    struct stat st;
    EXPECT_EQ(stat(conf.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0644U);
    EXPECT_EQ(stat((dir + "/sysconfig").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0755U);

    for (const char *key : {"", "#a", "a b", "a=b", "a\nb", "\xc3\xa4"}) {
        EXPECT_EQ(set(key, "2"), -EINVAL) << key;
        EXPECT_EQ(get(key), "error -22") << key;
    }
    EXPECT_EQ(set("a", "2\nb=3"), -EINVAL);
    EXPECT_EQ(set("a", std::string(CONFIGURATION_VALUE_SIZE, 'x')), -EOVERFLOW);
    EXPECT_EQ(get("b"), "error -2") << "no key";
    EXPECT_EQ(conf_text(), "a=1\n");
    EXPECT_EQ(set("a", std::string(CONFIGURATION_VALUE_SIZE - 1, 'x')), 0);
    EXPECT_EQ(get("a"), std::string(CONFIGURATION_VALUE_SIZE - 1, 'x'));
    write_conf("a=" + std::string(CONFIGURATION_VALUE_SIZE, 'x') + "\n");
    EXPECT_EQ(get("a"), "error " + std::to_string(-EOVERFLOW)) << "written by hand";

    write_conf("# head\na=1\nb c=2\nd= = \nd=3");
    char listed[64] = "";
    FILE *const out = fmemopen(listed, sizeof listed, "w");
    EXPECT_EQ(configuration_list(conf.c_str(), out), 0);
    fclose(out);
    EXPECT_STREQ(listed, "a=1\nd= = \nd=3\n");
}

// The new file can't be opened; then it can't be written to its end, as on a full disk.
TEST_F(Platform, AFailedWriteLeavesTheOldFileAlone)
{
    const std::string old = "a=1\n" + std::string(500, '#') + "\n";
    write_conf(old);
    std::filesystem::create_directory(conf + ".new");
    EXPECT_EQ(set("a", "2"), -EISDIR);
    EXPECT_EQ(conf_text(), old);
    std::filesystem::remove(conf + ".new");

    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    const rlimit tight = {100, limit.rlim_max};
    signal(SIGXFSZ, SIG_IGN);
    setrlimit(RLIMIT_FSIZE, &tight);
    const int result = set("a", "2");
    setrlimit(RLIMIT_FSIZE, &limit);
    signal(SIGXFSZ, SIG_DFL);
    EXPECT_EQ(result, -EFBIG);
    EXPECT_EQ(conf_text(), old);
    EXPECT_FALSE(std::filesystem::exists(conf + ".new"));
}

TEST_F(Platform, ConcurrentWritersLoseNothing)
{
    std::vector<std::thread> writers;
    for (const std::string name : {"a", "b", "c", "d"})
        writers.emplace_back([this, name] {
            for (int i = 0; i < 10; i++)
                EXPECT_EQ(set(name + std::to_string(i), "v"), 0);
        });
    for (std::thread &writer : writers)
        writer.join();
    const std::string text = conf_text();
    EXPECT_EQ(text.size(), 40 * strlen("a0=v\n")) << text;
}

TEST_F(Platform, CardBitIsAByteOrTheMainBoard)
{
    EXPECT_EQ(configured_card_bit(conf.c_str()), 1);
    for (const char *text : {"0", "7", "255"}) {
        EXPECT_EQ(set("card_bit", text), 0);
        EXPECT_EQ(configured_card_bit(conf.c_str()), atoi(text));
    }
    for (const char *text : {"256", "-2", "+2", " 2", "2 ", "", "0x5", "4294967298"}) {
        EXPECT_EQ(set("card_bit", text), 0);
        EXPECT_EQ(configured_card_bit(conf.c_str()), 1) << text;
    }
}

TEST(Shell, RunsALineAndReturnsItsWaitStatus)
{
    EXPECT_EQ(my_system(nullptr), -1);
    EXPECT_EQ(my_system("true | true && exit 0; exit 1"), 0);
    EXPECT_EQ(WEXITSTATUS(my_system("cd /nowhere 2>/dev/null && exit 0; exit 7")), 7);
    EXPECT_EQ(WTERMSIG(my_system("kill -TERM $$")), SIGTERM);

    for (const char *mode : {"w", "", "re"})
        EXPECT_EQ(my_popen("true", mode), nullptr) << mode;
    EXPECT_EQ(my_popen(nullptr, "r"), nullptr);
    EXPECT_EQ(my_pclose(nullptr), -1);
    FILE *const stream = my_popen("echo out; exit 3", "r");
    ASSERT_NE(stream, nullptr);
    char line[16];
    EXPECT_STREQ(fgets(line, sizeof line, stream), "out\n");
    char inherited[64];
    snprintf(inherited, sizeof inherited, "test -e /proc/self/fd/%d", fileno(stream));
    EXPECT_NE(my_system(inherited), 0) << "a command inherits the stream of another";
    EXPECT_EQ(WEXITSTATUS(my_pclose(stream)), 3);
}

// Prints to a buffered standard output, which is the child's standard error as well.
[[noreturn]] static void print_around_commands()
{
    dup2(STDERR_FILENO, STDOUT_FILENO);
    static char buffer[4096];
    setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    printf("one ");
    my_system("printf 'two '");
    printf("three ");
    my_pclose(my_popen("printf 'four ' >&2", "r"));
    printf("five");
    exit(0);
}

[[noreturn]] static void run_and_exit(const char *cmd, void (*handler)(int))
{
    const rlimit no_core = {0, 0};
    setrlimit(RLIMIT_CORE, &no_core);
    signal(SIGINT, handler);
    const int status = my_system(cmd);
    _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 255);
}

TEST(ShellDeathTest, OutputStandsInTheOrderOfTheCalls)
{
    EXPECT_EXIT(print_around_commands(), testing::ExitedWithCode(0), "one two three four five");
}

TEST(ShellDeathTest, AnInterruptOfTheCommandReachesTheRun)
{
    using testing::ExitedWithCode;
    using testing::KilledBySignal;
    EXPECT_EXIT(run_and_exit("kill -INT $$", SIG_DFL), KilledBySignal(SIGINT), "");
    EXPECT_EXIT(run_and_exit("kill -QUIT $$", SIG_DFL), KilledBySignal(SIGQUIT), "");
    EXPECT_EXIT(run_and_exit("sh -c 'kill -INT $$'; exit $?", SIG_DFL), KilledBySignal(SIGINT), "");
    EXPECT_EXIT(run_and_exit("exit 131", SIG_DFL), KilledBySignal(SIGQUIT), "");
    EXPECT_EXIT(run_and_exit("exit 130", SIG_IGN), ExitedWithCode(130), "");
    EXPECT_EXIT(run_and_exit("exit 130", [](int) { _exit(9); }), ExitedWithCode(9), "");
    EXPECT_EXIT(run_and_exit("exit 129", SIG_DFL), ExitedWithCode(129), "");
}

TEST_F(Platform, MailboxTakesWholeMessagesAndNeverHoldsTheSenderUp)
{
    const std::string path = dir + "/box";
    EXPECT_EQ(mailbox_probe(path.c_str()), -ENOENT);
    EXPECT_EQ(mailbox_send(path.c_str(), "x", 1), -ENOENT);
    EXPECT_EQ(mailbox_send((dir + std::string(200, 'x')).c_str(), "x", 1), -ENAMETOOLONG);

    const int box = bind_mailbox(path);
    EXPECT_EQ(mailbox_probe(path.c_str()), 0);
    EXPECT_EQ(mailbox_send(path.c_str(), nullptr, 1), -EINVAL);
    const std::string message = std::string(MAILBOX_MESSAGE_MAX, 'x') + "y";
    EXPECT_EQ(mailbox_send(path.c_str(), message.data(), message.size()), -EMSGSIZE);
    for (const size_t size : {size_t{0}, size_t{1076}, size_t{9616}, MAILBOX_MESSAGE_MAX}) {
        const char *const begin = message.data() + message.size() - size;
        EXPECT_EQ(mailbox_send(path.c_str(), begin, size), 0) << size;
        std::string got(message.size(), '\0');
        EXPECT_EQ(recv(box, got.data(), got.size(), 0), static_cast<ssize_t>(size));
        EXPECT_EQ(got.substr(0, size), begin);
    }
    int result = 0;
    for (int i = 0; i < 10000 && result == 0; i++)
        result = mailbox_send(path.c_str(), "x", 1);
    EXPECT_EQ(result, -EAGAIN);
    close(box);
    EXPECT_EQ(mailbox_send(path.c_str(), "x", 1), -ECONNREFUSED);
    EXPECT_EQ(mailbox_probe(path.c_str()), -ECONNREFUSED) << "a dead task's socket file";
}

TEST(Session, AMessageIsHeldUntilItIsReleased)
{
    apmsg_t message;
    ASSERT_EQ(apmsg_init(&message), 0);
    EXPECT_EQ(apmsg_free(&message), -EINVAL);
    EXPECT_EQ(apmsg_detach(&message, nullptr), -EINVAL);
    EXPECT_EQ(apmsg_atomic_send(1, &message, -1), -EINVAL);
    EXPECT_EQ(apmsg_alloc(&message, 0), nullptr);

    void *const buffer = apmsg_alloc(&message, 9616);
    ASSERT_NE(buffer, nullptr);
    memset(buffer, 1, 9616);
    EXPECT_EQ(apmsg_alloc(&message, 1), nullptr) << "would lose the first buffer";
    EXPECT_EQ(apmsg_atomic_send(1, &message, -1), -EINVAL) << "not detached";
    EXPECT_EQ(apmsg_detach(&message, &message), -EINVAL);
    EXPECT_EQ(apmsg_detach(&message, buffer), 0);
    EXPECT_LT(apmsg_atomic_send(0, &message, -1), 0) << "there is no session 0";
    EXPECT_EQ(apmsg_free(&message), 0) << "a message that did not go out is still held";
    EXPECT_EQ(apmsg_free(&message), -EINVAL);

    apsess_key_t key;
    aptid_t task = 5;
    EXPECT_EQ(apsess_key_init(&key, &task, std::string(60, 'q').c_str(), 0, 0, 0), -EINVAL);
    EXPECT_EQ(apsess_key_init(&key, &task, std::string(59, 'q').c_str(), 0, 0, 0), 0);
    EXPECT_EQ(apsess_key_init(&key, nullptr, nullptr, 0, 0, 0), -EINVAL);
}

// Exits with 77 where no namespace can be had, with 0 if all went well, and else with the number of
// the first check that failed.
[[noreturn]] static void call_fixed_paths(const char *dir)
{
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0)
        _exit(77);
    for (const char *place : {"/run", "/etc", "/dev"})
        if (mount(dir, place, nullptr, MS_BIND, nullptr) != 0)
            _exit(77);
    int number = 0;
    const auto check = [&number](bool good) {
        number++;
        if (!good)
            _exit(number);
    };
    char got[4096];
    const auto received = [&got](int box) {
        const ssize_t n = recv(box, got, sizeof got, 0);
        return std::string(got, n < 0 ? 0 : static_cast<size_t>(n));
    };

    check(sysconf_openenv() == -ENOENT && apcard_bit_self() == 1);
    check(configuration_set(CONFIGURATION_PATH, "device_name", "unit 7") == 0);
    check(configuration_set(CONFIGURATION_PATH, "card_bit", "4") == 0);
    const char *const name = sysconf_getenv("device_name");
    check(sysconf_openenv() == 0 && apcard_bit_self() == 4);
    check(name != nullptr && strcmp(name, "unit 7") == 0);
    check(sysconf_getenv("other") == nullptr && sysconf_getenv(nullptr) == nullptr);

    const int daemon = bind_mailbox("/dev/log");
    const std::string tag = "imgdeploy[" + std::to_string(getpid()) + "]: ";
    errno = ENOENT;
    check(aplog_printf(0, "imgdeploy", "first", "%s: %m", "a") == 0 && errno == ENOENT);
    std::string line = received(daemon);
    check(line.rfind("<30>", 0) == 0);
    check(line.substr(line.find(tag)) == tag + "00000000 first: a: No such file or directory");
    check(aptid_self_set(0) == -EINVAL && aptid_self_set(0x010a3b00) == 0);
    aplog_printf(0, "imgdeploy", "second", "%s", std::string(5000, 'x').c_str());
    line = received(daemon);
    check(line.substr(line.find(tag)) == tag + "010a3b00 second: " + std::string(2047, 'x'));

    aptid_t task = 0x010a3b00;
    apsess_key_t key;
    apsess_id_t session = 99;
    check(apsess_key_init(&key, &task, nullptr, 0, 0, 0) == 0);
    check(apsess_find(&session, &key, 0) == -ENOENT && session == 99);
    check(mkdir("/run/mailbox", 0755) == 0);
    const int box = bind_mailbox("/run/mailbox/010a3b00");
    check(apsess_find(&session, &key, 0) == 0 && session == task);
    apmsg_t message;
    check(apmsg_init(&message) == 0);
    void *const buffer = apmsg_alloc(&message, 5);
    memcpy(buffer, "hello", 5);
    check(apmsg_detach(&message, buffer) == 0 && apmsg_atomic_send(session, &message, -1) == 0);
    check(apmsg_free(&message) == -EINVAL);
    check(received(box) == "hello");
    check(apipc_send(task, "bye", 3) == 0 && received(box) == "bye");
    close(box);
    session = 99;
    check(apsess_find(&session, &key, 0) == -ECONNREFUSED && session == 99);
    _exit(0);
}

TEST_F(Platform, FixedPathsServeTheSystem)
{
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        call_fixed_paths(dir.c_str());
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status)) << status;
    if (WEXITSTATUS(status) == 77)
        GTEST_SKIP() << "a private mount namespace is not allowed here";
    EXPECT_EQ(WEXITSTATUS(status), 0) << "the number of the failed check";
}
