// Whole service runs over the real platform layer, in the sandbox. This program is the resident
// service: it receives the events and the card update requests from their mailboxes, answers for
// the cards and the USB disk on other threads, and compares what arrived. Waits are shortened.
#include "platform/configuration.h"
#include "tests/real_platform.h"
#include "tests/test_image.h"
#include "update_service.h"

#include <cstring>
#include <fcntl.h>
#include <functional>
#include <sys/select.h>
#include <thread>

namespace fs = std::filesystem;

static constexpr aptid_t SERVICE_TASK = 0x010a3d00;
static constexpr aptid_t CARDS_TASK = 0x010a3b00;

extern "C" {
int __real_usleep(useconds_t us);

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

// A task's mailbox, which is read on a thread of its own; if nobody takes the messages, it is full
// and stays so.
struct mailbox {
    std::string path;
    int fd = bind_mailbox(path);
    std::thread thread;

    mailbox(aptid_t task, const std::function<void(const std::string &)> &take)
        : path(mailbox_of(task).text)
    {
        while (!take && mailbox_send(path.c_str(), "", 1) == 0)
            ;
        if (!take)
            return;
        EXPECT_EQ(fcntl(fd, F_SETFL, 0), 0); // the reading waits
        thread = std::thread([this, take] {
            char bytes[4096];
            for (ssize_t n; (n = recv(fd, bytes, sizeof bytes, 0)) > 0;)
                take(std::string(bytes, static_cast<size_t>(n)));
        });
    }

    ~mailbox()
    {
        // What has been sent is read first; an empty message ends the reading.
        if (thread.joinable() && mailbox_send(path.c_str(), "", 0) == 0)
            thread.join();
        close(fd);
        unlink(path.c_str());
    }
};

// What the next card request of this process has to carry.
static uint16_t next_number = 0;

struct ServiceRun : testing::Test {
    std::string events;                                     // "step/result " of each
    std::string requests;                                   // "type " of each
    std::function<void()> at_event = [] {};                 // called with each event
    std::function<int(int)> answer = [](int) { return 0; }; // a card's, by type; 1 for none

    void take_event(const std::string &event)
    {
        upgrade_msg_t msg;
        ASSERT_EQ(event.size(), sizeof msg);
        EXPECT_EQ(event.substr(0, 4), std::string("\0\x3f\x0a\x01", 4));
        memcpy(&msg, event.data(), sizeof msg);
        events += std::to_string(msg.update_param.value) + "/" +
                  std::to_string(msg.upgrade_info.result) + " ";
        at_event();
    }

    void take_request(const std::string &request)
    {
        ASSERT_EQ(request.size(), 1068U);
        const std::string type = std::to_string(static_cast<unsigned char>(request[38]));
        requests += type + " ";
        stApMsg head;
        memcpy(&head, request.data(), sizeof head);
        EXPECT_EQ(head.kmddata.seq, next_number++);
        EXPECT_EQ(read_file(request.c_str() + 42), "firmware " + type);
        set_update_card_result(stoi(type), answer(stoi(type)));
    }

    // The result of an update, and the version that stands after it.
    static std::string update(const std::string &bytes)
    {
        std::string image = "/tmp/service.img";
        char base[] = "/opt/upgddir/";
        char version[64] = "";
        fs::remove_all(base);
        std::ofstream(image, std::ios::binary) << bytes;
        empty_UserFile_patch();
        set_usb_status(TRUE);
        EXPECT_EQ(configuration_set(CONFIGURATION_PATH, "fw_version", "old"), 0);
        const int result = do_update_upgd(SERVICE_TASK, image.data(), base);
        configuration_get(CONFIGURATION_PATH, "fw_version", version, sizeof version);
        return "= " + std::to_string(result) + ", " + version;
    }

    // The events and requests that came to those who read, and the update's end.
    std::string run(const std::string &bytes)
    {
        events = requests = "";
        const std::string end = [&] {
            mailbox service(SERVICE_TASK, [this](const std::string &event) { take_event(event); });
            mailbox cards(CARDS_TASK, [this](const std::string &what) { take_request(what); });
            return update(bytes);
        }();
        return events + "| " + requests + end;
    }
};

static std::string image_with(const std::vector<int> &cards)
{
    std::vector<test_entry> entries = {{"nand/a", 0, "x"}, {"nand/vorn-kernel/zImage", 5, "k"}};
    for (const int type : cards)
        entries.push_back(
            {"nand/c" + std::to_string(type), type, "firmware " + std::to_string(type)});
    return image_bytes(entries);
}

static const std::vector<int> ALL = {22, 23, 24, 25, 26, 27, 28, 29, 30};

TEST_F(ServiceRun, WithoutAndWithAllCardFiles)
{
    EXPECT_EQ(run(image_with({})), "2/0 | = 0, V1.0.0.0");
    EXPECT_NE(system("mountpoint -q /mntker"), 0) << "unmounted at the end";
    EXPECT_EQ(run(image_with(ALL)), "2/0 3/0 4/0 6/0 7/0 9/0 10/0 5/0 8/0 11/0 "
                                    "| 25 28 26 29 27 30 22 23 24 = 0, V1.0.0.0");
}

TEST_F(ServiceRun, ACardThatFails)
{
    answer = [](int type) { return type == 26 ? -2 : 0; };
    EXPECT_EQ(run(image_with(ALL)), "2/0 3/0 4/0 6/0 6/13 | 25 28 26 = -1, V1.0.0.0")
        << "recorded before the cards are flashed";
}

TEST_F(ServiceRun, DiskGone)
{
    // While a card is flashed: that one is finished.
    answer = [](int) {
        set_usb_status(FALSE);
        return 0;
    };
    EXPECT_EQ(run(image_with(ALL)), "2/0 3/0 3/3 | 25 = -1, V1.0.0.0");
    // While the image is unpacked: long enough a list for the flag to be seen.
    std::vector<test_entry> many;
    for (int i = 0; i < 3000; i++)
        many.push_back({"d" + std::to_string(i % 30) + "/f" + std::to_string(i), 0, "x"});
    at_event = [] { set_usb_status(FALSE); };
    EXPECT_EQ(run(image_bytes(many)), "2/0 2/3 | = -1, old");
}

// Events are lost, and a request that can't be sent ends the card stage. Nothing waits.
TEST_F(ServiceRun, ReceiversThatAreNotThereOrNeverRead)
{
    EXPECT_EQ(update(image_with({25})), "= -" + std::to_string(ENOENT) + ", V1.0.0.0");
    mailbox service(SERVICE_TASK, nullptr);
    mailbox cards(CARDS_TASK, nullptr);
    EXPECT_EQ(update(image_with({})), "= 0, V1.0.0.0");
    EXPECT_EQ(update(image_with({25})), "= -" + std::to_string(EAGAIN) + ", V1.0.0.0");
    next_number = static_cast<uint16_t>(next_number + 2);
}
