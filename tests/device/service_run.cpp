// Whole service runs over the real platform layer, in the sandbox. This program is the resident
// service: it receives the events and the card update requests from their mailboxes, answers for
// the cards and the USB disk on other threads, and compares what arrived. Waits are shortened.
#include "platform/mailbox.h"
#include "platform/platform.h"
#include "tests/test_image.h"
#include "update_service.h"

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr aptid_t SERVICE_TASK = 0x010a3d00;
static constexpr aptid_t CARDS_TASK = 0x010a3b00;

extern "C" {
unsigned int __wrap_sleep(unsigned int seconds);
int __real_usleep(useconds_t us);
int __wrap_usleep(useconds_t us);
int __wrap_select(int count, fd_set *in, fd_set *out, fd_set *bad, timeval *timeout);

unsigned int __wrap_sleep(unsigned int seconds)
{
    __real_usleep(seconds * 10000);
    return 0;
}

int __wrap_usleep(useconds_t us)
{
    return __real_usleep(us / 100);
}

int __wrap_select(int, fd_set *, fd_set *, fd_set *, timeval *)
{
    return __real_usleep(20);
}
}

// Receives on a task's mailbox on a thread of its own until it is stopped.
struct receiver {
    int fd = -1;
    std::string path;
    std::thread thread;

    receiver(aptid_t task, const std::function<void(const std::string &)> &take)
        : fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)), path(mailbox_of(task).text)
    {
        mkdir("/run/mailbox", 0755);
        sockaddr_un address = {};
        address.sun_family = AF_UNIX;
        path.copy(address.sun_path, sizeof address.sun_path - 1);
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        thread = std::thread([this, take] {
            char bytes[4096];
            for (ssize_t n; (n = recv(fd, bytes, sizeof bytes, 0)) > 0;)
                take(std::string(bytes, static_cast<size_t>(n)));
        });
    }

    void stop()
    {
        // What has been sent is read first; an empty message ends the reading.
        EXPECT_EQ(mailbox_send(path.c_str(), "", 0), 0);
        thread.join();
        close(fd);
        unlink(path.c_str());
    }
};

struct ServiceRun : testing::Test {
    std::string image = "/tmp/service.img";
    std::string events;             // "step/result " of each
    std::string percents;           // of each event, in thousandths
    std::string requests;           // "type " of each
    std::function<int(int)> answer; // a card's answer by type; 1 for none
    std::function<void()> at_event; // called with each event

    void SetUp() override
    {
        fs::remove_all("/opt/upgddir");
        empty_UserFile_patch();
        set_usb_status(TRUE);
        answer = [](int) { return 0; };
        EXPECT_EQ(system("sysconfig set fw_version old"), 0);
    }

    int run(const std::string &bytes)
    {
        std::ofstream(image, std::ios::binary) << bytes;
        receiver service(SERVICE_TASK, [this](const std::string &event) {
            ASSERT_EQ(event.size(), 1076U);
            EXPECT_EQ(event.substr(0, 4), std::string("\0\x3f\x0a\x01", 4));
            EXPECT_EQ(event.substr(16, 4), std::string("\x06\0\x1c\0", 4));
            upgrade_msg_t msg;
            memcpy(&msg, event.data(), sizeof msg);
            events += std::to_string(msg.update_param.value) + "/" +
                      std::to_string(msg.upgrade_info.result) + " ";
            percents += std::to_string(msg.upgrade_info.cur_percent) + " ";
            if (at_event)
                at_event();
        });
        receiver cards(CARDS_TASK, [this](const std::string &request) {
            ASSERT_EQ(request.size(), 1068U);
            const int type = static_cast<unsigned char>(request[38]);
            requests += std::to_string(type) + " ";
            std::ifstream file(request.c_str() + 42, std::ios::binary);
            EXPECT_EQ(std::string(std::istreambuf_iterator<char>(file), {}),
                      "firmware " + std::to_string(type));
            set_update_card_result(type, answer(type));
        });
        std::string path = image;
        char base[] = "/opt/upgddir/";
        const int result = do_update_upgd(SERVICE_TASK, path.data(), base);
        service.stop();
        cards.stop();
        return result;
    }

    static std::vector<test_entry> files(const std::vector<int> &cards)
    {
        std::vector<test_entry> entries = {{"nand/a", 0, "x"}, {"nand/vorn-kernel/zImage", 5, "k"}};
        for (const int type : cards)
            entries.push_back(
                {"nand/c" + std::to_string(type), type, "firmware " + std::to_string(type)});
        return entries;
    }

    static bool version_is(const std::string &version)
    {
        const std::string test = "test \"$(sysconfig get fw_version)\" = " + version;
        return system(test.c_str()) == 0;
    }
};

static const std::vector<int> ALL = {22, 23, 24, 25, 26, 27, 28, 29, 30};

TEST_F(ServiceRun, WithoutCardFiles)
{
    EXPECT_EQ(run(image_bytes(files({}))), 0);
    EXPECT_EQ(events, "2/0 ");
    EXPECT_EQ(requests, "");
    EXPECT_TRUE(version_is("V1.0.0.0"));
    EXPECT_EQ(get_upgd_msg()->upgrade_info.cur_percent, 1000);
    EXPECT_NE(system("mountpoint -q /mntker"), 0) << "unmounted at the end";
}

TEST_F(ServiceRun, AllNineCardFiles)
{
    EXPECT_EQ(run(image_bytes(files(ALL))), 0);
    EXPECT_EQ(events, "2/0 3/0 4/0 6/0 7/0 9/0 10/0 5/0 8/0 11/0 ");
    EXPECT_EQ(percents, "0 18 118 218 318 418 518 618 718 818 ");
    EXPECT_EQ(requests, "25 28 26 29 27 30 22 23 24 ");
}

TEST_F(ServiceRun, ACardThatFailsAndOneThatNeverAnswers)
{
    answer = [](int type) { return type == 26 ? -2 : 0; };
    EXPECT_EQ(run(image_bytes(files(ALL))), -1);
    EXPECT_EQ(events, "2/0 3/0 4/0 6/0 6/13 ");
    EXPECT_EQ(requests, "25 28 26 ");
    EXPECT_TRUE(version_is("V1.0.0.0")) << "recorded before the cards are flashed";

    events = requests = "";
    empty_UserFile_patch();
    answer = [](int) { return 1; };
    EXPECT_EQ(run(image_bytes(files({24}))), -1);
    EXPECT_EQ(events, "2/0 11/0 11/16 ");
}

TEST_F(ServiceRun, DiskGone)
{
    set_usb_status(FALSE);
    EXPECT_EQ(run(image_bytes(files(ALL))), -1);
    EXPECT_EQ(events, "2/0 2/3 ");
    EXPECT_FALSE(fs::exists("/opt/upgddir/nand"));

    // Gone while the image is unpacked: long enough a list for the flag to be seen.
    events = "";
    set_usb_status(TRUE);
    std::vector<test_entry> many;
    for (int i = 0; i < 3000; i++)
        many.push_back({"d" + std::to_string(i % 30) + "/f" + std::to_string(i), 0, "x"});
    at_event = [] { set_usb_status(FALSE); };
    EXPECT_EQ(run(image_bytes(many)), -1);
    EXPECT_EQ(events, "2/0 2/3 ");
    EXPECT_TRUE(version_is("old"));

    // Gone while a card is flashed: that one is finished.
    events = requests = "";
    at_event = nullptr;
    set_usb_status(TRUE);
    answer = [](int) {
        set_usb_status(FALSE);
        return 0;
    };
    EXPECT_EQ(run(image_bytes(files(ALL))), -1);
    EXPECT_EQ(events, "2/0 3/0 3/3 ");
    EXPECT_EQ(requests, "25 ");
}

TEST_F(ServiceRun, DamagedImageAndFailedBootLoader)
{
    EXPECT_EQ(run(image_around("no entry", 1)), -1);
    EXPECT_EQ(events, "2/0 2/8 ");
    events = "";
    EXPECT_EQ(run(image_bytes({{std::string(100, 'u'), 7, "u"}})), -1)
        << "its command does not fit";
    EXPECT_EQ(events, "2/0 2/9 ");
    EXPECT_TRUE(version_is("old"));
    events = "";
    EXPECT_EQ(run("no image"), -10);
    EXPECT_EQ(events, "1/6 ");
}

TEST_F(ServiceRun, WithoutReceivers)
{
    std::ofstream(image, std::ios::binary) << image_bytes(files({25}));
    char base[] = "/opt/upgddir/";
    EXPECT_EQ(do_update_upgd(SERVICE_TASK, image.data(), base), -ENOENT)
        << "events are lost, and a request that can't be sent ends the card stage";
    EXPECT_TRUE(version_is("V1.0.0.0"));
}
