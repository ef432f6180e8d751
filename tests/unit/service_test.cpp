// A service run over the recording platform: messages, card table, card stage, engine, entry
// points.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/card_table.h"
#include "update/dtt_update/device_messages.h"
#include "update/dtt_update/installer.h"
#include "update_service.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

using lines = std::vector<std::string>;

static constexpr aptid_t RECEIVER = 0x01abcdef;

static const std::string ENGINE_LOG = "log do_update_upgrade: ";

// Lines that tell how a run goes, in a word.
static const std::map<std::string, std::string> WORDS = {
    {"sleep 2", "wait "},
    {"trace UPGD_ERROR_NODISK\n", "gone "},
    {"trace no mcu fpga\n", "no-cards "},
    {"trace result = 2, update 1 file error !! \n", "failed "},
    {"run /bin/sync; /bin/umount /mntker/", "unmount "},
    {"run sysconfig set fw_version V1.0.0.0", "version "},
    {"run reboot -f", "reboot "},
};

// 32-bit words as they stand in a message.
static std::string words(std::initializer_list<int> values)
{
    return {reinterpret_cast<const char *>(values.begin()), 4 * values.size()};
}

// The card request number `seq` of a process.
static std::string request_bytes(int id, int slot, int model, int addr, uint16_t seq,
                                 const std::string &data)
{
    const int size = static_cast<int>(data.size());
    return words({0x010a3f00, 0, size + 40, 0, 28 << 16, size + 14,
                  0x3f | id << 8 | 239 << 16 | slot << 24, model | seq << 16, addr}) +
           words({size}).substr(0, 2) + data + std::string(2, '\0');
}

static uint16_t sequence_number(const std::string &request)
{
    uint16_t seq = 0;
    memcpy(&seq, &request.at(30), sizeof seq);
    return seq;
}

struct Service : Recorded {
    std::string image;
    std::string base;

    void SetUp() override
    {
        Recorded::SetUp();
        image = dir + "/update.img";
        base = dir + "/b";
        empty_UserFile_patch();
        *get_upgd_msg() = {};
        set_usb_status(TRUE);
    }

    // "step/result/percent" of an event, with "!" if one entry has failed, "?type" of a request.
    static std::string message_text(const std::string &message)
    {
        upgrade_msg_t event;
        if (message.size() != sizeof event)
            return "?" + std::to_string(static_cast<unsigned char>(message.at(38))) + " ";
        memcpy(&event, message.data(), sizeof event);
        const upgrade_info_t &info = event.upgrade_info;
        return std::to_string(event.update_param.value) + "/" + std::to_string(info.result) + "/" +
               std::to_string(info.cur_percent) + (info.failed_nums == 1 ? "! " : " ");
    }

    // What an operation has told, in order: the messages, the engine's line of a failed copy, and
    // the words. Then its result. However it ends, it leaves open and mapped what was before.
    static std::string story(const std::function<int()> &operation)
    {
        rec.lines.clear();
        rec.messages.clear();
        rec.polls = 0;
        const long before = held();
        const int result = operation();
        EXPECT_EQ(held(), before) << "a descriptor or a mapping is left";
        const std::string failed_copy = ENGINE_LOG + "copy_file ";
        std::string text;
        auto message = rec.messages.begin();
        for (const std::string &line : rec.lines) {
            if (line.rfind("send ", 0) == 0)
                text += message_text(*message++);
            else if (line.rfind(failed_copy, 0) == 0)
                text += line.substr(failed_copy.size()) + " ";
            else if (WORDS.count(line) != 0)
                text += WORDS.at(line);
        }
        return text + "= " + std::to_string(result);
    }

    // How many descriptors are open, and how often the image is mapped.
    static long held()
    {
        std::ifstream maps("/proc/self/maps");
        long count = std::distance(fs::directory_iterator("/proc/self/fd"), {});
        for (std::string line; std::getline(maps, line);)
            count += line.find("/update.img") != std::string::npos ? 1 : 0;
        return count;
    }

    std::string run(const std::string &bytes, int mode = ONLINE_MODE)
    {
        write_file_text(image, bytes);
        return story([&] { return do_update_upgrade(RECEIVER, image.data(), mode, base.data()); });
    }
};

TEST_F(Service, EventBytes)
{
    rec.card_bit = 2;
    upgrade_msg_t *const msg = get_upgd_msg();
    msg->update_param.value = UPGD_CTRL;
    msg->upgrade_info = {0x11, 0x12, 0x13, 0x14, 0x15};
    rec.send_result = -7;
    EXPECT_EQ(ipc_event_send_upgmsg(RECEIVER, msg, 28, 6), -7);
    EXPECT_EQ(ipc_event_send_upgmsg(RECEIVER, nullptr, 28, 6), -1);
    EXPECT_EQ(rec.lines, lines{"send 01abcdef 1076"});
    EXPECT_EQ(rec.messages.at(0), words({0x020a3f00, 0, 1076, 0, 28 << 16 | 6, 0, 0, 2}) +
                                      std::string(1024, '\0') +
                                      words({0x11, 0x12, 0x13, 0x14, 0x15}));
}

TEST_F(Service, RequestBytes)
{
    const auto send = [](std::string data) {
        return ipc_send_card_update(0x99, 2, 0x304, 0x05060708,
                                    static_cast<unsigned int>(data.size()),
                                    reinterpret_cast<unsigned char *>(data.data()));
    };
    EXPECT_EQ(send("\xaa\xbb\xcc"), 0);
    EXPECT_EQ(rec.lines, lines{"send 010a3b00 43"});
    // Other tests of this process may have sent some; service_run.cpp sees the first ones.
    uint16_t seq = sequence_number(rec.messages[0]);
    unsigned char byte = 0;
    EXPECT_EQ(ipc_send_card_update(1, 2, 3, 4, 1, nullptr), -1);
    EXPECT_EQ(ipc_send_card_update(1, 2, 3, 4, UINT32_MAX, &byte), -1) << "these use no number";
    for (const std::string &data : {std::string(), std::string("odd"), std::string(70000, 'p')}) {
        EXPECT_EQ(send(data), 0);
        EXPECT_TRUE(rec.messages.back() == request_bytes(0x99, 2, 0x304, 0x05060708, ++seq, data))
            << data.size();
    }
    rec.send_result = -11;
    EXPECT_EQ(send(""), -11) << "this does";
    EXPECT_EQ(rec.all("trace"), "QX7_FPGA_WriteBlock: send_msg_to_kmd error :-11\n");
    rec.send_result = 0;
    for (int number = seq + 2; number <= 65536; number++)
        send("");
    EXPECT_EQ(sequence_number(rec.messages.back()), 0) << "wraps";
}

TEST_F(Service, CardTable)
{
    std::string name(1023, 'n');
    EXPECT_EQ(save_UserFile_patch(28, name.data()), 0);
    EXPECT_EQ(save_UserFile_patch(28, (name + "n").data()), -1);
    EXPECT_EQ(type_patch[1].file_patch, name);
    char later[] = "/later";
    for (const int type : {0, 5, 7, 21, 31, -1})
        EXPECT_EQ(save_UserFile_patch(type, later), -1);
    set_update_card_result(24, 0);
    set_update_card_result(99, 0);
    EXPECT_EQ(rec.all("trace"),
              "    get a user file \n|    file type is 28 \n|    file name is " + name +
                  " \n|    get a user file \n" +
                  "|set card(24) update result : 0\n|set card(99) update result : 0\n");
    EXPECT_EQ(get_update_card_result(24), 0);
    EXPECT_EQ(get_update_card_result(99), -1);
    EXPECT_EQ(save_UserFile_patch(28, later), 0);
    EXPECT_STREQ(type_patch[1].file_patch, "/later");
    empty_UserFile_patch();
    EXPECT_EQ(get_update_card_result(24), -1);
    EXPECT_EQ(std::string(type_patch[1].file_patch, 1024), std::string(1024, '\0'));
}

// Every kind of firmware alone: its request, its step, its code and its time, when the card fails
// and when it never answers. With seven and nine files, the order and the shares.
TEST_F(Service, CardStage)
{
    const struct {
        int type, slot, model, step, failure, polls;
    } rows[] = {
        {25, 2, 0x100, 3, 11, 6000}, {28, 2, 0x1ff, 4, 11, 6000},  {26, 4, 0x100, 6, 13, 6000},
        {29, 4, 0x1ff, 7, 13, 6000}, {27, 1, 0x100, 9, 15, 12000}, {30, 1, 0x1ff, 10, 15, 12000},
        {22, 1, 0, 5, 12, 3000},     {23, 1, 0, 8, 14, 6000},      {24, 1, 0, 11, 16, 3000},
    };
    const auto stage = [] {
        upgrade_msg_t *const msg = get_upgd_msg();
        msg->upgrade_info = {0, 0, 0, 50, 0};
        const std::string text = story([msg] { return update_all_UserFile(RECEIVER, msg); });
        return text + " at " + std::to_string(msg->upgrade_info.cur_percent) +
               ", polls: " + std::to_string(rec.polls);
    };
    EXPECT_EQ(stage(), "no-cards = 0 at 950, polls: 0");
    std::string path;
    for (const auto &row : rows) {
        empty_UserFile_patch();
        path = std::string(1021, 'p') + std::to_string(row.type); // as long as can be
        save_UserFile_patch(row.type, path.data());
        const std::string step = std::to_string(row.step) + "/";
        const std::string begun = step + "0/50 ?" + std::to_string(row.type) + " ";
        const std::string failed = begun + step + std::to_string(row.failure) + "/";
        const std::string limit = std::to_string(row.polls);
        EXPECT_EQ(stage(), failed + "950 = -1 at 950, polls: " + limit) << "no answer";
        EXPECT_EQ(rec.all("trace"), "update " + path + "\n|update " + path + " error\n");
        const std::string request = rec.messages.at(1);
        EXPECT_EQ(request, request_bytes(254, row.slot, row.model, 0, sequence_number(request),
                                         words({row.type}) + path + '\0'));
        rec.on_poll = [&row](int polls) {
            if (polls == row.polls / 2)
                set_update_card_result(row.type, -2);
        };
        EXPECT_EQ(stage(), failed + "500 = -1 at 500, polls: " + std::to_string(row.polls / 2));
        rec.on_poll = [&row](int polls) {
            if (polls == 1)
                set_update_card_result(row.type, 1); // keeps the wait running
            if (polls == row.polls)
                set_update_card_result(row.type, 0);
        };
        EXPECT_EQ(stage(), begun + "= 0 at 950, polls: " + limit);
        rec.on_poll = nullptr;
    }
    for (const int count : {7, 9}) {
        empty_UserFile_patch();
        for (int i = 0; i < count; i++) {
            save_UserFile_patch(rows[i].type, path.data());
            set_update_card_result(rows[i].type, 0);
        }
        EXPECT_EQ(stage(),
                  count == 7
                      ? "3/0/50 ?25 4/0/178 ?28 6/0/306 ?26 7/0/434 ?29 9/0/562 ?27 10/0/690 ?30 "
                        "5/0/818 ?22 = 0 at 946, polls: 7"
                      : "3/0/50 ?25 4/0/150 ?28 6/0/250 ?26 7/0/350 ?29 9/0/450 ?27 10/0/550 ?30 "
                        "5/0/650 ?22 8/0/750 ?23 11/0/850 ?24 = 0 at 950, polls: 9");
    }
    rec.send_result = -111;
    EXPECT_EQ(stage(), "3/0/50 ?25 = -111 at 50, polls: 0");
    rec.send_result = 0;
    rec.on_poll = [](int) { set_usb_status(FALSE); };
    EXPECT_EQ(stage(), "3/0/50 ?25 3/3/150 gone = -1 at 150, polls: 1")
        << "the file in hand is finished, the next one is not begun";
}

// The lines of this engine, and that each step which it shares with the other one bears its name;
// the other lines of such steps stand in the other engine's story.
TEST_F(Service, StoryOfARun)
{
    rec.on_poll = [](int) { set_update_card_result(22, 0); };
    EXPECT_EQ(run(image_bytes({{"nand/App.bin", 22, "card"},
                               {"nand/a", 0, "ABC"},
                               {"nand/l;a", 4, ""},
                               {"nand/zImage", 5, "kernel"}})),
              "2/0/0 unmount version 5/0/50 ?22 = 0");
    EXPECT_EQ(tree_text(base),
              "nand/App.bin = card\nnand/a = ABC\nnand/l -> a\nnand/zImage = kernel\n");
    EXPECT_EQ(lines(rec.lines.begin(), rec.lines.begin() + 5),
              (lines{"trace in fun do_update  ! \n", ENGINE_LOG + " start",
                     ENGINE_LOG + "get_upgrade_info success!! ",
                     ENGINE_LOG + "\n now update_info->result = 0 ",
                     "trace \n now update_info->result = 0 \n"}));
    const auto sent = std::find(rec.lines.begin(), rec.lines.end(), "send 01abcdef 1076");
    EXPECT_EQ(lines(sent - 2, sent + 2),
              (lines{ENGINE_LOG + "start creat img.", "trace start creat img.\n",
                     "send 01abcdef 1076", ENGINE_LOG + "\n now update_info->result = 0 "}));
    const std::string path = base + "/nand/";
    EXPECT_TRUE(rec.has(ENGINE_LOG + "(num-3)" + path + "zImage type(5), size(6)"));
    EXPECT_TRUE(rec.has("run /bin/cp " + path + "zImage /mntker/ -rf"));
    EXPECT_EQ(
        rec.last(17),
        (lines{"run /bin/sync; /bin/umount /mntker/", "trace   umount kernel dir: /mntker/ \n",
               ENGINE_LOG + " update_info->result = 0 (1:ok, 2:error). \n",
               "trace result = UPGD_SUCCESS, update successful !! \n",
               "run sysconfig set fw_version V1.0.0.0", "run /bin/sync",
               ENGINE_LOG + " run rsync ok.",
               "trace \n\n\n\n\rround 2 --------update user file ....\n", "send 01abcdef 1076",
               "send 010a3b00 1068", "trace update " + path + "App.bin\n",
               "trace set card(22) update result : 0\n", "trace update " + path + "App.bin ok\n",
               "trace end upgrade !! \n", "usleep 1000000",
               "trace result = UPGD_SUCCESS, update successful !! \n", ENGINE_LOG + " end"}));
    const upgrade_info_t &info = get_upgd_msg()->upgrade_info;
    EXPECT_EQ(std::string(reinterpret_cast<const char *>(&info), sizeof info),
              words({4, 4, UPGD_NORNAL, 1000, 0}));
    EXPECT_EQ(ker_img_num, 0);
}

// What each failure tells the receiver, and what it returns. No other share than 100 for the
// unpacking gives both 50 and 66.
TEST_F(Service, FailureTable)
{
    const std::string good = image_bytes({{"k/zImage", 5, "k"}, {"a", 0, "x"}, {"u", 7, "u"}});
    const std::string no_directory = image_bytes({{"k/zImage", 5, "k"}, {"k", 0, "x"}});
    test_header bad_magic;
    bad_magic.magic = 1;
    using action = std::function<void()>;
    const auto nothing = [] {};
    const auto at = [](const std::string &part, const action &act) {
        return [part, act] {
            rec.on_line = [part, act](const std::string &line) {
                if (line.find(part) != std::string::npos)
                    act();
            };
        };
    };
    const auto failing = [](const char *command) { return [command] { rec.failing = command; }; };
    const auto gone = [] { set_usb_status(FALSE); };
    const auto no_descriptors = [] { exhaust_descriptors_at(ENGINE_LOG + "<do_update>"); };
    const auto unmappable = [] { unmappable_at("trace start creat img.\n", "update.img"); };
    const auto copy = [this](const std::string &path) {
        return "2/0/0 ----------  " + base + path + " --------- failed. wait ";
    };
    const struct {
        std::string bytes;
        action prepare;
        std::string expected;
    } rows[] = {
        {good, at(" start", [this] { fs::remove(image); }), "wait 1/4/0 = -10"},
        {good, no_descriptors, "wait 1/5/0 = -10"},
        {"x", nothing, "wait 1/6/0 = -10"},
        {image_bytes({}, bad_magic), nothing, "wait 1/6/0 = -10"},
        {good + "x", nothing, "wait 1/6/0 = -10"},
        {good, failing("/bin/mkdir -p "), "wait 1/6/0 = -10"},
        {good, unmappable, "wait 1/7/0 = -3"},
        {image_around("x", 1), nothing, copy("") + "2/8/0! failed = -1"},
        {no_directory, nothing, copy("/k") + "2/8/50! failed = -1"},
        {good, failing("/bin/cp"), "2/0/0 2/10/0 unmount failed = -1"},
        {good, failing("/bin/mount"), "2/0/0 2/10/0 unmount failed = -1"},
        {good, failing("dd "), "2/0/0 2/9/66 unmount failed = -1"},
        // The disk is gone: while the report waits; ahead of a list that can't be read then and is
        // not called damaged; at an entry, which is finished.
        {"x", at("sleep 2", gone), "wait 1/3/0 = -10"},
        {no_directory, at("sleep 2", gone), copy("/k") + "2/3/50! failed = -1"},
        {image_around("x", 1), gone, "2/0/0 2/3/0 gone failed = -1"},
        {good, at("(num-0)", gone), "2/0/0 2/3/0 gone unmount failed = -1"},
    };
    for (const auto &row : rows) {
        fs::remove_all(base);
        set_usb_status(TRUE);
        rec.failing = "";
        rec.on_line = nullptr;
        row.prepare();
        EXPECT_EQ(run(row.bytes), row.expected);
        EXPECT_EQ(rec.last(6),
                  (lines{"trace \n\n\n\n\rround 2 --------update user file ....\n",
                         "trace end upgrade !! \n", "usleep 1000000",
                         "trace result = 2, update error !! \n",
                         ENGINE_LOG + " result = 2, update error !!", ENGINE_LOG + " end"}));
    }
}

TEST_F(Service, EmptyImageAndReboot)
{
    EXPECT_EQ(run("x", REBOOT_MODE), "wait 1/6/0 reboot = -10");
    set_usb_status(FALSE);
    EXPECT_EQ(run(image_bytes({}), REBOOT_MODE), "2/0/0 version no-cards reboot = 0")
        << "there is nothing to be read from the disk";
    EXPECT_EQ(get_upgd_msg()->upgrade_info.cur_percent, 1000);
}

TEST_F(Service, EntryPoints)
{
    // What an operation says in its own name, and its story.
    const auto update = [this](char *path) {
        const std::string text = story([&] { return do_update_upgd(RECEIVER, path, base.data()); });
        return rec.all("log do_update_upgd:") + "; " + text;
    };
    const auto backup = [this] {
        const std::string text = story([&] { return do_update_backup(image.data(), base.data()); });
        return rec.all("log do_update_backup:") + "; " + text;
    };
    const std::string missing = "start|'" + image + "' can't open. please check path.|end; ";
    EXPECT_EQ(update(image.data()), missing + "wait 0/4/0 = -1") << "ahead of any run";
    EXPECT_EQ(rec.last(3), (lines{"sleep 2", "send 01abcdef 1076", "log do_update_upgd: end"}));
    EXPECT_EQ(backup(), missing + "= -1");
    EXPECT_EQ(story([this] { return do_update_upgrade(RECEIVER, nullptr, 2, base.data()); }),
              "wait 1/4/0 = -10");
    set_usb_status(FALSE);
    EXPECT_EQ(update(nullptr),
              "start|'(null)' can't open. please check path.|end; wait 1/3/0 = -1");

    set_usb_status(TRUE);
    write_file_text(image, image_bytes({{"a", 0, "x"}}));
    const std::string begun = "start|do_update_backup runing...|do_update_backup ";
    EXPECT_EQ(update(image.data()), begun + "OK|end; 2/0/0 version no-cards = 0");
    EXPECT_EQ(backup(), begun + "OK|end; version = 0") << "through the engine without events";
    write_file_text(image, "x");
    EXPECT_EQ(update(image.data()), begun + "NG|end; wait 1/6/0 = -10");
    EXPECT_EQ(backup(), begun + "NG|end; = -10");
}

// Neither looks at the outcome. 220 characters fit the tool's command line.
TEST_F(Service, OtherPrograms)
{
    rec.run_result = -1;
    for (std::string path : {std::string(220, 'p'), std::string(221, 'p')}) {
        rec.lines.clear();
        EXPECT_EQ(do_update_runcmd(path.data(), 2, nullptr), 0);
        EXPECT_EQ(rec.lines.at(1),
                  path.size() == 220
                      ? "run /usr/qrx310/bin/img_deploy -u " + path + " -m 2"
                      : "log do_update_runcmd: command too long for <" + path + ">.");
    }
    rec.lines.clear();
    EXPECT_EQ(do_update_runcmd(nullptr, 2, nullptr), 0);
    EXPECT_EQ(rec.all("run"), "") << "no file, no command";
    rec.lines.clear();
    EXPECT_EQ(kill_task(), 0);
    lines expected;
    for (const std::string task : {"watchdog", "browser", "videod", "aptid", "dropbear", "tmd"}) {
        expected.push_back(task == "aptid" ? "run /nand/usr/lmt240/bin/telapnet tmd kall  2>&1"
                                           : "run killall -9 " + task + "  2>&1");
        expected.push_back("log kill_task: kill NG. " + task);
    }
    EXPECT_EQ(rec.lines, expected);
}

TEST_F(Service, LocalFlashing)
{
    const auto flash = [](int type, std::string path) {
        rec.lines.clear();
        return update_one_UserFile(type, path.data());
    };
    // 202 characters fit the longest of the nine commands; one more is not run.
    const std::string file = dir + "/" + std::string(202 - dir.size() - 1, 'f');
    write_file_text(file, "x");
    write_file_text(file + "f", "x");
    EXPECT_EQ(flash(21, dir + "/missing"), -1);
    EXPECT_EQ(rec.lines, lines{}) << "the file comes first";
    for (const int type : {21, 31, 0}) {
        EXPECT_EQ(flash(type, file), -1);
        EXPECT_EQ(rec.lines, lines{"trace     no file need to update in round 1... \n"});
    }
    // Every blank is part of a command.
    const char *const commands[] = {
        "mcu_isp -B input  -C 0x31 -b F ",          "mcu_isp -B output  -C 0x31 -b F ",
        "mcu_isp -B vpu     -C 0x31 -b F -r 0x00 ", "kmd_test 0 update   0x0100 2 F ",
        "kmd_test -B update   0x0100 4  F ",        "kmd_test -B update   0x0100 1  F ",
        "kmd_test -B update   0x01ff 2  F ",        "kmd_test -B update   0x01ff 4  F ",
        "kmd_test -B update   0x01ff 1  F "};
    rec.run_result = 256; // the tool has failed, which is not looked at
    for (int type = 22; type <= 30; type++) {
        std::string cmd = std::string("/usr/vorn/bin/") + commands[type - 22];
        cmd.replace(cmd.find('F'), 1, file);
        EXPECT_EQ(flash(type, file), 0);
        EXPECT_EQ(
            rec.lines,
            (lines{"trace     file name is " + file + " \n",
                   "trace     file type is " + std::to_string(type) + " \n",
                   "log update_one_UserFile: bin type is = " + std::to_string(type) + " ",
                   "trace     cmdstr=" + cmd + " \n\n",
                   "log update_one_UserFile: cmdstr=" + cmd + " \n\n",
                   "trace     begin update self bin \n", "run " + cmd, "trace     update OK !\n"}));
    }
    EXPECT_EQ(flash(24, file + "f"), -6);
    EXPECT_EQ(rec.all("run"), "");
    EXPECT_EQ(rec.lines.back(), "log update_one_UserFile: command too long for <" + file + "f>.");
    rec.run_result = -1;
    EXPECT_EQ(flash(24, file), -6);
    EXPECT_EQ(rec.last(2), (lines{"trace     update err !\n",
                                  "log update_one_UserFile: update faild!!: <" + file + ">.\n"}));
}

TEST_F(Service, CopyFileWithProgress)
{
    upgrade_info_t info = {1, 2, 3, 4, 5};
    // The result and the percentage.
    const auto copy = [&info](const std::string &source, const std::string &path) {
        const int size = static_cast<int>(source.size());
        const int result = copy_file_new(&info, source.c_str(), path.c_str(), size);
        return std::to_string(result) + " at " + std::to_string(info.cur_percent);
    };
    const std::string path = dir + "/copy";
    EXPECT_EQ(copy("x", dir + "/missing/file"), "-1 at 4");
    write_file_text(path, "longer than");
    rec.lines.clear();
    EXPECT_EQ(copy("short", path), "0 at 100");
    EXPECT_EQ(rec.all("trace"), "\r\n|update_info->cur_percent is  0% \r|"
                                "update_info->cur_percent is  100% \r|\r\n");
    EXPECT_EQ(copy("xy", "/dev/full"), "-1 at 0");
    EXPECT_TRUE(rec.has("trace bb_full_write failed `/dev/full' size= 2\n"));
    EXPECT_EQ(copy("", path + "2"), "0 at 100");
    EXPECT_EQ(tree_text(dir), "copy = shortr than\ncopy2 = \n") << "what stands behind stays";
}
