// A service run over the recording platform: messages, card table, card stage, engine, entry
// points.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/card_table.h"
#include "update/dtt_update/device_messages.h"
#include "update/dtt_update/installer.h"
#include "update_service.h"

#include <cstring>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr aptid_t RECEIVER = 0x01abcdef;

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
        rec.lines.clear();
    }

    // "step/result/percent" of each event so far, "?type" of each card request.
    static std::string messages()
    {
        std::string text;
        for (const std::string &bytes : rec.messages) {
            if (bytes.size() == sizeof(upgrade_msg_t)) {
                upgrade_msg_t msg;
                memcpy(&msg, bytes.data(), sizeof msg);
                text += std::to_string(msg.update_param.value) + "/" +
                        std::to_string(msg.upgrade_info.result) + "/" +
                        std::to_string(msg.upgrade_info.cur_percent) + " ";
            } else {
                text += "?" + std::to_string(static_cast<unsigned char>(bytes.at(38))) + " ";
            }
        }
        return text;
    }

    int run(const std::string &bytes, int mode = ONLINE_MODE)
    {
        write_file_text(image, bytes);
        return run_path(image, mode);
    }

    int run_path(std::string path, int mode = ONLINE_MODE)
    {
        rec.lines.clear();
        rec.messages.clear();
        rec.polls = 0;
        return do_update_upgrade(RECEIVER, path.data(), mode, base.data());
    }

    static void answer_all(int answer)
    {
        for (const type_patch_t &row : type_patch)
            set_update_card_result(row.file_type, answer);
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
    EXPECT_EQ(rec.lines, std::vector<std::string>{"send 01abcdef 1076"});
    std::string expected(1076, '\0');
    expected.replace(0, 4, "\0\x3f\x0a\x02", 4);
    expected.replace(8, 4, "\x34\x04\0\0", 4);
    expected.replace(16, 4, "\x06\0\x1c\0", 4);
    expected[28] = 2;
    for (size_t i = 0; i < 5; i++)
        expected[1056 + 4 * i] = static_cast<char>(0x11 + i);
    EXPECT_EQ(rec.messages.at(0), expected);
    EXPECT_EQ(ipc_event_send_upgmsg(RECEIVER, nullptr, 28, 6), -1);
    EXPECT_EQ(rec.messages.size(), 1U);
}

TEST_F(Service, RequestBytes)
{
    unsigned char payload[] = {0xAA, 0xBB, 0xCC};
    EXPECT_EQ(ipc_send_card_update(1, 2, 0x304, 0x05060708, 3, nullptr), -1);
    EXPECT_EQ(ipc_send_card_update(1, 2, 3, 4, UINT32_MAX, payload), -1);
    EXPECT_EQ(ipc_send_card_update(0x99, 2, 0x304, 0x05060708, 3, payload), 0);
    EXPECT_EQ(rec.lines, std::vector<std::string>{"send 010a3b00 43"});
    std::string sent = rec.messages.at(0);
    uint16_t seq = 0;
    memcpy(&seq, sent.data() + 30, 2);
    sent.replace(30, 2, 2, 's');
    const char expected[] = "\0\x3f\x0a\x01"
                            "\0\0\0\0"
                            "\x2b\0\0\0"
                            "\0\0\0\0"
                            "\0\0\x1c\0"
                            "\x11\0\0\0"
                            "\x3f\x99\xef\x02"
                            "\x04\x03"
                            "ss"
                            "\x08\x07\x06\x05"
                            "\x03\0"
                            "\xaa\xbb\xcc\0";
    EXPECT_EQ(sent, std::string(expected, 43));

    std::string large(70000, 'p');
    for (const size_t length : {size_t{0}, large.size()}) {
        rec.messages.clear();
        ipc_send_card_update(1, 1, 0, 0, static_cast<unsigned int>(length),
                             reinterpret_cast<unsigned char *>(large.data()));
        stApMsg head;
        memcpy(&head, rec.messages.at(0).data(), sizeof head);
        EXPECT_EQ(rec.messages[0].size(), length + 40);
        EXPECT_EQ(head.head.size, static_cast<int>(length + 40));
        EXPECT_EQ(head.lable.size, static_cast<int>(length + 14));
        EXPECT_EQ(head.kmddata.len, static_cast<uint16_t>(length));
        EXPECT_EQ(head.kmddata.seq, static_cast<uint16_t>(++seq)) << "failed calls use no number";
    }
    rec.send_result = -11;
    EXPECT_EQ(ipc_send_card_update(1, 1, 0, 0, 1, payload), -11);
    EXPECT_EQ(rec.all("trace"), "QX7_FPGA_WriteBlock: send_msg_to_kmd error :-11\n");
    rec.send_result = 0;
    for (int i = seq + 2; i < 65536 + 1; i++)
        ipc_send_card_update(1, 1, 0, 0, 1, payload);
    EXPECT_EQ(rec.messages.back().substr(30, 2), std::string(2, '\0')) << "wraps";
}

TEST_F(Service, CardTable)
{
    std::string name(1023, 'n');
    EXPECT_EQ(save_UserFile_patch(28, name.data()), 0);
    EXPECT_EQ(rec.all("trace"),
              "    get a user file \n|    file type is 28 \n|    file name is " + name + " \n");
    EXPECT_EQ(type_patch[1].file_patch, name);
    rec.lines.clear();
    EXPECT_EQ(save_UserFile_patch(28, (name + "n").data()), -1);
    EXPECT_EQ(rec.all("trace"), "    get a user file \n");
    EXPECT_EQ(type_patch[1].file_patch, name);
    char later[] = "/later";
    EXPECT_EQ(save_UserFile_patch(28, later), 0);
    EXPECT_STREQ(type_patch[1].file_patch, "/later");
    rec.lines.clear();
    for (const int type : {0, 5, 7, 21, 31, -1})
        EXPECT_EQ(save_UserFile_patch(type, later), -1);
    EXPECT_EQ(rec.lines.size(), 0U);

    set_update_card_result(24, 0);
    set_update_card_result(99, 0);
    EXPECT_EQ(rec.all("trace"),
              "set card(24) update result : 0\n|set card(99) update result : 0\n");
    EXPECT_EQ(get_update_card_result(24), 0);
    EXPECT_EQ(get_update_card_result(99), -1);
    empty_UserFile_patch();
    const int types[] = {25, 28, 26, 29, 27, 30, 22, 23, 24};
    const int times[] = {6000, 6000, 6000, 6000, 12000, 12000, 3000, 6000, 3000};
    for (int i = 0; i < CARD_TYPES; i++) {
        EXPECT_EQ(type_patch[i].file_type, types[i]);
        EXPECT_EQ(type_patch[i].time, times[i]);
        EXPECT_EQ(type_patch[i].result, -1);
        EXPECT_EQ(std::string(type_patch[i].file_patch, 1024), std::string(1024, '\0'));
    }
}

// Every kind of firmware alone: its request, its step and its code, when the card fails and when it
// never answers. With seven and nine files, the shares.
TEST_F(Service, CardStage)
{
    const struct {
        int type, slot, model, step, failure, polls;
    } rows[] = {
        {25, 2, 0x100, 3, 11, 6000}, {28, 2, 0x1ff, 4, 11, 6000},  {26, 4, 0x100, 6, 13, 6000},
        {29, 4, 0x1ff, 7, 13, 6000}, {27, 1, 0x100, 9, 15, 12000}, {30, 1, 0x1ff, 10, 15, 12000},
        {22, 1, 0, 5, 12, 3000},     {23, 1, 0, 8, 14, 6000},      {24, 1, 0, 11, 16, 3000},
    };
    upgrade_msg_t *const msg = get_upgd_msg();
    const auto stage = [msg] {
        rec.lines.clear();
        rec.messages.clear();
        rec.polls = 0;
        msg->upgrade_info = {0, 0, 0, 50, 0};
        return update_all_UserFile(RECEIVER, msg);
    };
    std::string path = "/opt/upgddir/card.bin";
    for (const auto &row : rows) {
        empty_UserFile_patch();
        save_UserFile_patch(row.type, path.data());
        const std::string step = std::to_string(row.step) + "/";
        const std::string begun = step + "0/50 ?" + std::to_string(row.type) + " ";
        EXPECT_EQ(stage(), -1) << "no answer";
        EXPECT_EQ(messages(), begun + step + std::to_string(row.failure) + "/950 ");
        EXPECT_EQ(rec.polls, row.polls);
        EXPECT_EQ(rec.all("trace"), "update " + path + "\n|update " + path + " error\n");
        const std::string request = rec.messages.at(1);
        std::string data(1028, '\0');
        data[0] = static_cast<char>(row.type);
        data.replace(4, path.size(), path);
        EXPECT_EQ(request.size(), 1068U);
        EXPECT_EQ(request.substr(38, 1028), data);
        EXPECT_EQ(request.substr(24, 6), std::string("\x3f\xfe\xef") + static_cast<char>(row.slot) +
                                             static_cast<char>(row.model) +
                                             static_cast<char>(row.model >> 8));

        rec.on_poll = [&row](int polls) {
            if (polls == row.polls / 2) {
                EXPECT_EQ(get_upgd_msg()->upgrade_info.cur_percent,
                          50 + 900 * (polls - 1) / row.polls);
            }
            if (polls == row.polls)
                set_update_card_result(row.type, 0); // at the very last poll
            else if (polls == 2)
                set_update_card_result(row.type, 1); // keeps the wait running
        };
        EXPECT_EQ(stage(), 0);
        EXPECT_EQ(messages(), begun);
        EXPECT_EQ(msg->upgrade_info.cur_percent, 950);
        EXPECT_EQ(msg->update_param.value, row.step);
        rec.on_poll = [&row](int) { set_update_card_result(row.type, -2); };
        EXPECT_EQ(stage(), -1);
        EXPECT_EQ(rec.polls, 1);
        EXPECT_EQ(msg->upgrade_info.result, row.failure);
        rec.on_poll = nullptr;
    }

    empty_UserFile_patch();
    EXPECT_EQ(stage(), 0);
    EXPECT_EQ(rec.all("trace"), "no mcu fpga\n");
    EXPECT_EQ(msg->upgrade_info.cur_percent, 950);
    EXPECT_EQ(messages(), "");
    for (const int count : {7, 9}) {
        for (int i = 0; i < count; i++)
            save_UserFile_patch(rows[i].type, path.data());
        answer_all(0);
        EXPECT_EQ(stage(), 0);
        EXPECT_EQ(msg->upgrade_info.cur_percent, 50 + 900 / count * count);
    }
    EXPECT_EQ(messages(), "3/0/50 ?25 4/0/150 ?28 6/0/250 ?26 7/0/350 ?29 9/0/450 ?27 10/0/550 ?30 "
                          "5/0/650 ?22 8/0/750 ?23 11/0/850 ?24 ");
    rec.on_poll = [](int) { set_usb_status(FALSE); };
    EXPECT_EQ(stage(), -1) << "the file in hand is finished, the next one is not begun";
    EXPECT_EQ(messages(), "3/0/50 ?25 3/3/150 ");
    EXPECT_EQ(rec.lines.back(), "trace UPGD_ERROR_NODISK\n");
    set_usb_status(TRUE);
    rec.send_result = -111;
    EXPECT_EQ(stage(), -111);
    EXPECT_EQ(messages(), "3/0/50 ?25 ");
    EXPECT_EQ(msg->upgrade_info.result, 0);
}

TEST_F(Service, StoryOfARun)
{
    rec.on_poll = [](int) { answer_all(0); };
    const std::string bytes = image_bytes({{"nand/App.bin", 22, "card"},
                                           {"nand/a", 0, "ABC"},
                                           {"nand/l;a", 4, ""},
                                           {"nand/zImage", 5, "kernel"}});
    EXPECT_EQ(run(bytes), 0);
    EXPECT_EQ(tree_text(base),
              "nand/App.bin = card\nnand/a = ABC\nnand/l -> a\nnand/zImage = kernel\n");
    EXPECT_EQ(messages(), "2/0/0 5/0/50 ?22 ");
    const std::string log = "log do_update_upgrade: ";
    const std::string cp = "/bin/cp " + base + "/nand/zImage /mntker/ -rf";
    const std::string path = base + "/nand/App.bin";
    const std::vector<std::string> expected = {
        "trace in fun do_update  ! \n",
        log + " start",
        log + "get_upgrade_info success!! ",
        log + "\n now update_info->result = 0 ",
        "trace \n now update_info->result = 0 \n",
        "trace update file: " + image + " , img_size = " + std::to_string(bytes.size()) + " \n",
        log + "<do_update> update_file:" + image,
        log + "fread update_file ...",
        log + "check img : magic_number; img_size; body_crc ...",
        log + "check img ok !",
        "trace check img ok !",
        "log find_dir: update dir is </nand>.",
        "run /bin/mkdir -p " + base,
        log + "get u_base_dir:" + base + " ",
        "trace get u_base_dir:" + base + " \n",
        "trace print_image_header.\n",
        log + "print_image_header.",
        log + "start creat img.",
        "trace start creat img.\n",
        "send 01abcdef 1076",
        log + "\n now update_info->result = 0 ",
        "trace \n now update_info->result = 0 \n",
        "trace \n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n",
        "run /bin/mkdir -p " + base + "/nand",
        log + "(num-0)" + path + " type(22), size(4)",
        "trace     get a user file \n",
        "trace     file type is 22 \n",
        "trace     file name is " + path + " \n",
        log + "(num-1)" + base + "/nand/a type(0), size(3)",
        log + "(num-2)" + base + "/nand/l type(4), size(0)",
        "run cd /" + base + "/nand/ && /bin/ln -sf a l",
        log + "(num-3)" + base + "/nand/zImage type(5), size(6)",
        "trace  ---------------------update kernel------------------\n",
        "run  /bin/mkdir -p /mntker",
        "run  /bin/rm -rf /mntker/*",
        "run /bin/mount /dev/mmcblk0p6 /mntker/",
        "trace  /bin/mount /dev/mmcblk1p6 /mntker/ success.\n",
        "trace       kernel-0(" + base + "/nand/zImage) \n",
        "log update_LinuxFile: cmdstr: " + cp + " \n\n",
        "run " + cp,
        "run /bin/sync; /bin/umount /mntker/",
        "trace   umount kernel dir: /mntker/ \n",
        log + " update_info->result = 0 (1:ok, 2:error). \n",
        "trace result = UPGD_SUCCESS, update successful !! \n",
        "run sysconfig set fw_version V1.0.0.0",
        "run /bin/sync",
        log + " run rsync ok.",
        "trace \n\n\n\n\rround 2 --------update user file ....\n",
        "send 01abcdef 1076",
        "send 010a3b00 1068",
        "trace update " + path + "\n",
        "trace update " + path + " ok\n",
        "trace end upgrade !! \n",
        "usleep 1000000",
        "trace result = UPGD_SUCCESS, update successful !! \n",
        log + " end",
    };
    std::vector<std::string> got;
    for (const std::string &line : rec.lines)
        if (line.find("log print_image_hdr") != 0 && line.find("trace    ") != 0 &&
            line.find("trace set card") != 0)
            got.push_back(line);
        else if (line.find("trace     ") == 0 && line.find(" : ") == std::string::npos)
            got.push_back(line);
    EXPECT_EQ(got, expected);
    const upgrade_info_t info = get_upgd_msg()->upgrade_info;
    EXPECT_EQ(info.file_nums, 4);
    EXPECT_EQ(info.cur_nums, 4);
    EXPECT_EQ(info.result, UPGD_NORNAL);
    EXPECT_EQ(info.cur_percent, 1000);
    EXPECT_EQ(ker_img_num, 0);
}

// What each failure tells the receiver, and what it returns. With the disk gone, every report reads
// UPGD_ERROR_NODISK.
TEST_F(Service, FailureTable)
{
    const std::string good = image_bytes({{"k/zImage", 5, "k"}, {"u", 7, "u"}, {"a", 0, "x"}});
    test_header bad_magic;
    bad_magic.magic = 1;
    const std::string in_the_way = dir + "/file";
    write_file_text(in_the_way, "");
    const struct {
        const char *what;
        std::string bytes, failing_command, expected;
        int result;
        bool waits, unmounts;
    } rows[] = {
        {"missing", "-", "", "1/4/0 ", -10, true, false},
        {"short", "x", "", "1/6/0 ", -10, true, false},
        {"magic", image_bytes({}, bad_magic), "", "1/6/0 ", -10, true, false},
        {"size", good + "x", "", "1/6/0 ", -10, true, false},
        {"no directory", good, "/bin/mkdir -p " + base, "1/6/0 ", -10, true, false},
        {"damaged", image_around("x", 1), "", "2/0/0 2/8/0 ", -1, true, false},
        {"copy", image_bytes({{"k/zImage", 5, "k"}, {"k", 0, "x"}}), "", "2/0/0 2/8/50 ", -1, true,
         false},
        {"kernel", good, "/bin/cp", "2/0/0 2/10/0 ", -1, false, true},
        {"mount", good, "/bin/mount", "2/0/0 2/10/0 ", -1, false, true},
        {"boot loader", good, "dd ", "2/0/0 2/9/33 ", -1, false, true},
    };
    for (const bool disk : {true, false}) {
        for (const auto &row : rows) {
            fs::remove_all(base);
            fs::remove(image);
            set_usb_status(TRUE);
            rec.on_line = [disk](const std::string &line) {
                if (!disk && line == "sleep 2")
                    set_usb_status(FALSE);
            };
            rec.failing = row.failing_command;
            const int result = row.bytes == "-" ? run_path(image) : run(row.bytes);
            EXPECT_EQ(result, row.result) << row.what;
            std::string expected = row.expected;
            if (!disk && row.waits)
                expected[expected.rfind('/', expected.rfind('/') - 1) + 1] = '3';
            EXPECT_EQ(messages(), expected) << row.what;
            EXPECT_EQ(get_upgd_msg()->upgrade_info.failed_nums,
                      row.expected.find("2/8/") != std::string::npos ? 1 : 0);
            EXPECT_EQ(rec.has("sleep 2"), row.waits) << row.what;
            EXPECT_EQ(rec.has("run /bin/sync; /bin/umount /mntker/"), row.unmounts) << row.what;
            EXPECT_FALSE(rec.has("run sysconfig set fw_version V1.0.0.0"));
            EXPECT_TRUE(rec.has("trace \n\n\n\n\rround 2 --------update user file ....\n"));
            EXPECT_FALSE(rec.has("trace no mcu fpga\n")) << "no card stage";
            EXPECT_EQ(rec.has("trace result = 2, update 1 file error !! \n"), row.result == -1);
            EXPECT_EQ(rec.last(5), (std::vector<std::string>{
                                       "trace end upgrade !! \n", "usleep 1000000",
                                       "trace result = 2, update error !! \n",
                                       "log do_update_upgrade:  result = 2, update error !!",
                                       "log do_update_upgrade:  end"}));
        }
    }
}

// No name; descriptors that run out at the moment of the open; one that can't be mapped.
TEST_F(Service, ImagesThatCannotBeUsed)
{
    EXPECT_EQ(do_update_upgrade(RECEIVER, nullptr, ONLINE_MODE, base.data()), -10);
    EXPECT_EQ(messages(), "1/4/0 ");
    exhaust_descriptors_at("log do_update_upgrade: <do_update>");
    EXPECT_EQ(run(image_bytes({})), -10);
    EXPECT_EQ(messages(), "1/5/0 ");
    unmappable_at("trace start creat img.\n", "update.img");
    EXPECT_EQ(run(image_bytes({})), -3);
    EXPECT_EQ(messages(), "1/7/0 ");
}

TEST_F(Service, DiskGoneAtAnEntry)
{
    const std::string bytes = image_bytes({{"a", 0, "x"}, {"b", 0, "y"}});
    set_usb_status(FALSE);
    EXPECT_EQ(run(bytes), -1);
    EXPECT_EQ(messages(), "2/0/0 2/3/0 ");
    EXPECT_EQ(tree_text(base), "");
    EXPECT_FALSE(rec.has("sleep 2"));
    set_usb_status(TRUE);
    rec.on_line = [](const std::string &line) {
        if (line.find("(num-0)") != std::string::npos)
            set_usb_status(FALSE);
    };
    EXPECT_EQ(run(bytes), -1);
    EXPECT_EQ(messages(), "2/0/0 2/3/0 ");
    EXPECT_EQ(tree_text(base), "a = x\n");
    EXPECT_TRUE(rec.has("trace UPGD_ERROR_NODISK\n"));
}

TEST_F(Service, EmptyImageAndReboot)
{
    EXPECT_EQ(run(image_bytes({}), REBOOT_MODE), 0);
    EXPECT_EQ(messages(), "2/0/0 ");
    EXPECT_EQ(get_upgd_msg()->upgrade_info.cur_percent, 1000);
    EXPECT_EQ(rec.all("run"),
              "/bin/mkdir -p " + base + "|sysconfig set fw_version V1.0.0.0|/bin/sync|reboot -f");
    EXPECT_EQ(run("x", REBOOT_MODE), -10);
    EXPECT_EQ(rec.all("run"), "reboot -f") << "after a refused image too";
}

TEST_F(Service, EntryPoints)
{
    const std::string bytes = image_bytes({{"a", 0, "x"}});
    const auto log = [](const std::string &func, const std::string &text) {
        return "log " + func + ": " + text;
    };
    for (const bool disk : {true, false}) {
        rec.lines.clear();
        rec.messages.clear();
        set_usb_status(disk ? TRUE : FALSE);
        EXPECT_EQ(do_update_upgd(RECEIVER, image.data(), base.data()), -1);
        EXPECT_EQ(messages(), disk ? "0/4/0 " : "0/3/0 ") << "ahead of any run";
        EXPECT_EQ(rec.lines,
                  (std::vector<std::string>{
                      log("do_update_upgd", "start"),
                      log("do_update_upgd", "'" + image + "' can't open. please check path."),
                      "sleep 2", "send 01abcdef 1076", log("do_update_upgd", "end")}));
    }
    rec.lines.clear();
    EXPECT_EQ(do_update_backup(image.data(), base.data()), -1);
    EXPECT_EQ(rec.lines.size(), 3U) << "no wait and no event";

    write_file_text(image, bytes);
    set_usb_status(TRUE);
    rec.lines.clear();
    EXPECT_EQ(do_update_upgd(RECEIVER, image.data(), base.data()), 0);
    EXPECT_EQ(rec.lines[1], log("do_update_upgd", "do_update_backup runing..."));
    EXPECT_TRUE(rec.has(log("do_update_upgd", "do_update_backup OK")));
    rec.lines.clear();
    EXPECT_EQ(do_update_backup(image.data(), base.data()), 0);
    EXPECT_TRUE(rec.has(log("do_update_backup", "do_update_backup OK")));
    EXPECT_TRUE(rec.has("usleep 20000")) << "through the engine without events";
    write_file_text(image, "x");
    EXPECT_EQ(do_update_upgd(RECEIVER, image.data(), base.data()), -10);
    EXPECT_TRUE(rec.has(log("do_update_upgd", "do_update_backup NG")));
    EXPECT_FALSE(rec.has("run reboot -f"));

    rec.failing = "/";
    rec.lines.clear();
    EXPECT_EQ(do_update_runcmd(image.data(), 2, base.data()), 0);
    EXPECT_EQ(rec.all("run"), "/usr/qrx310/bin/img_deploy -u " + image + " -m 2");
    rec.lines.clear();
    EXPECT_EQ(do_update_runcmd(std::string(221, 'p').data(), 2, nullptr), 0);
    EXPECT_EQ(rec.all("run"), "");
    rec.lines.clear();
    rec.failing = "";
    rec.run_result = -1;
    EXPECT_EQ(kill_task(), 0);
    EXPECT_EQ(rec.all("run"),
              "killall -9 watchdog  2>&1|killall -9 browser  2>&1|killall -9 videod  2>&1|"
              "/nand/usr/lmt240/bin/telapnet tmd kall  2>&1|killall -9 dropbear  2>&1|"
              "killall -9 tmd  2>&1");
    EXPECT_EQ(rec.all("log"), "kill_task: kill NG. watchdog|kill_task: kill NG. browser|kill_task: "
                              "kill NG. videod|kill_task: kill NG. aptid|kill_task: kill NG. "
                              "dropbear|kill_task: kill NG. tmd");
}

TEST_F(Service, LocalFlashing)
{
    // 202 characters fit the longest of the nine commands; one more is not run.
    std::string file = dir + "/" + std::string(202 - dir.size() - 1, 'f');
    write_file_text(file, "x");
    EXPECT_EQ(update_one_UserFile(21, (dir + "/missing").data()), -1) << "the file comes first";
    EXPECT_EQ(rec.lines.size(), 0U);
    for (const int type : {21, 31, 0}) {
        rec.lines.clear();
        EXPECT_EQ(update_one_UserFile(type, file.data()), -1);
        EXPECT_EQ(rec.lines,
                  std::vector<std::string>{"trace     no file need to update in round 1... \n"});
    }
    for (const int result : {256, -1}) {
        rec.run_result = result;
        rec.lines.clear();
        EXPECT_EQ(update_one_UserFile(24, file.data()), result == -1 ? -6 : 0);
        const std::string cmd = "/usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b " + file + " -r 0x00 ";
        std::vector<std::string> expected = {"trace     file name is " + file + " \n",
                                             "trace     file type is 24 \n",
                                             "log update_one_UserFile: bin type is = 24 ",
                                             "trace     cmdstr=" + cmd + " \n\n",
                                             "log update_one_UserFile: cmdstr=" + cmd + " \n\n",
                                             "trace     begin update self bin \n",
                                             "run " + cmd};
        if (result == -1) {
            expected.push_back("trace     update err !\n");
            expected.push_back("log update_one_UserFile: update faild!!: <" + file + ">.\n");
        } else {
            expected.push_back("trace     update OK !\n");
        }
        EXPECT_EQ(rec.lines, expected);
    }
    // Every blank is part of a command.
    const char *const commands[] = {
        "mcu_isp -B input  -C 0x31 -b F ",          "mcu_isp -B output  -C 0x31 -b F ",
        "mcu_isp -B vpu     -C 0x31 -b F -r 0x00 ", "kmd_test 0 update   0x0100 2 F ",
        "kmd_test -B update   0x0100 4  F ",        "kmd_test -B update   0x0100 1  F ",
        "kmd_test -B update   0x01ff 2  F ",        "kmd_test -B update   0x01ff 4  F ",
        "kmd_test -B update   0x01ff 1  F "};
    for (int type = 22; type <= 30; type++) {
        std::string cmd = std::string("/usr/vorn/bin/") + commands[type - 22];
        cmd.replace(cmd.find('F'), 1, file);
        rec.lines.clear();
        update_one_UserFile(type, file.data());
        EXPECT_EQ(rec.all("run"), cmd);
    }
    write_file_text(file + "f", "x");
    rec.lines.clear();
    EXPECT_EQ(update_one_UserFile(24, (file + "f").data()), -6);
    EXPECT_EQ(rec.all("run"), "");
    EXPECT_EQ(rec.lines.back(), "log update_one_UserFile: command too long for <" + file + "f>.");
}

TEST_F(Service, CopyFileWithProgress)
{
    upgrade_info_t info = {1, 2, 3, 4, 5};
    const std::string path = dir + "/copy";
    write_file_text(path, "longer than");
    EXPECT_EQ(copy_file_new(&info, "short", path.c_str(), 5), 0);
    EXPECT_EQ(read_file(path), "shortr than") << "what stands behind stays";
    EXPECT_EQ(info.cur_percent, 100);
    EXPECT_EQ(rec.all("trace"),
              "\r\n|update_info->cur_percent is  0% \r|update_info->cur_percent is  "
              "100% \r|\r\n");
    EXPECT_EQ(copy_file_new(&info, "", (path + "2").c_str(), 0), 0);
    EXPECT_EQ(read_file(path + "2"), "");
    EXPECT_EQ(info.cur_percent, 100);
    info.cur_percent = 4;
    EXPECT_EQ(copy_file_new(&info, "x", (dir + "/missing/file").c_str(), 1), -1);
    EXPECT_EQ(info.cur_percent, 4);
    EXPECT_EQ(copy_file_new(&info, "xy", "/dev/full", 2), -1);
    EXPECT_EQ(info.cur_percent, 0);
    EXPECT_TRUE(rec.has("trace bb_full_write failed `/dev/full' size= 2\n"));
}
