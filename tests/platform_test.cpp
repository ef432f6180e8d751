// Catches, in the stand-in for the platform layer: a command whose status, output or signals get
// lost; a message that is cut, lost or waited for.
#include "platform/mailbox.h"

#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/socket.h>

TEST(Shell, RunsALineAndReturnsItsWaitStatus)
{
    EXPECT_EQ(WEXITSTATUS(my_system("true | false && exit 0; exit 7")), 7);
    EXPECT_EQ(WTERMSIG(my_system("kill -TERM $$")), SIGTERM);
    EXPECT_EQ(my_system("exec grep -q 'SigBlk:.*[1-9a-f]' /proc/self/status"), 256)
        << "has a signal blocked";
    signal(SIGCHLD, SIG_IGN); // as a parent may hand it on
    EXPECT_EQ(my_system("exit 7"), 0) << "has run, with a status that nobody knows";
    signal(SIGCHLD, SIG_DFL);
    sigset_t ended = {}, now;
    sigaddset(&ended, SIGCHLD);
    sigprocmask(SIG_BLOCK, &ended, nullptr);
    my_system("true");
    sigprocmask(SIG_UNBLOCK, &ended, &now);
    EXPECT_EQ(sigismember(&now, SIGCHLD), 1) << "is blocked as before";
    testing::internal::CaptureStdout();
    dup2(STDOUT_FILENO, 9);
    printf("one ");
    my_system("printf 'two ' >&9");
    printf("three ");
    FILE *const stream = my_popen("printf four >&9; exit 3", "r");
    fgetc(stream); // waits for its end
    EXPECT_NE(my_system(("test -e /proc/self/fd/" + std::to_string(fileno(stream))).c_str()), 0)
        << "a command inherits the stream of another";
    EXPECT_EQ(WEXITSTATUS(my_pclose(stream)), 3);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "one two three four");
}

// The command interrupts its process group, as the terminal does.
TEST(ShellDeathTest, AnInterruptMeansToTheRunWhatItMeansWithoutACommand)
{
    const auto handler = [](int) { _exit(9); };
    EXPECT_EXIT((setpgid(0, 0), signal(SIGINT, handler), my_system("kill -INT 0"), _exit(0)),
                testing::ExitedWithCode(9), "");
}

TEST(Mailbox, TakesWholeMessagesAndNeverHoldsTheSenderUp)
{
    std::string dir = testing::TempDir() + "mailbox_XXXXXX";
    const std::string path = mkdtemp(dir.data()) + std::string("/box");
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
    std::filesystem::remove_all(dir);
}

TEST(Message, IsSentOrReleasedOnce)
{
    apsess_key_t key;
    aptid_t task = 0x010a3b00;
    for (const int result :
         {apmsg_init(nullptr), apmsg_detach(nullptr, nullptr), apmsg_free(nullptr),
          apmsg_atomic_send(task, nullptr, 0), apsess_find(nullptr, &key, 0),
          apsess_key_init(nullptr, &task, "", 0, 0, 0), apsess_key_init(&key, nullptr, "", 0, 0, 0),
          my_pclose(nullptr)})
        EXPECT_LT(result, 0);
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
