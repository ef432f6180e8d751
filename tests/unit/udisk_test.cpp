// USB disks over the recording platform: labels, inventory, messages, settings backup.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/command_output.h"
#include "update/dtt_create/disk_inventory.h"
#include "update/dtt_create/disk_labels.h"
#include "update/dtt_update_common/session_operations.h"
#include "update_service.h"

#include <cstring>
#include <filesystem>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;

struct Udisk : Recorded {
    std::unique_ptr<udisk_info_t> info{new udisk_info_t{}};

    void TearDown() override
    {
        EXPECT_EQ(rec.open_streams, 0);
        EXPECT_EQ(rec.open_messages, 0);
        Recorded::TearDown();
    }

    int inventory()
    {
        rec.lines.clear();
        return get_udisk_all_info(info.get());
    }
};

// A label in a buffer as the inventory has it.
static std::string decoded(const std::string &label)
{
    std::unique_ptr<char[]> buffer(new char[LABEL_SIZE]());
    label.copy(buffer.get(), LABEL_SIZE - 1);
    EXPECT_EQ(get_udisk_real_name(buffer.get()), 0);
    EXPECT_EQ(buffer[LABEL_SIZE - 1], '\0');
    return buffer.get();
}

TEST_F(Udisk, Labels)
{
    const struct {
        std::string label;
        int is_gbk;
        std::string text;
    } rows[] = {
        {"", 0, ""},
        {"0123456789abcdefABCDEF", 0, "0123456789abcdefABCDEF"},
        {"ABG", 1, "ABG"},
        {"MY DISK-1", 1, "MY DISK-1"},
        {"\\xB0\\xA1", 1, "\xE5\x95\x8A"},
        {"\\xb0\\xa1b", 1,
         "\xE5\x95\x8A"
         "b"},
        {"A\\x20B", 1, "A B"},
        {"AB\\x", 1, "AB"},
        {"AB\\x4", 1, "AB"},
        {"AB\\x+1G", 1, "AB"},
        {"AB\\xZZCD", 1, "AB"},              // no digits: the byte 0
        {"\\xFF\\xFF", 1, ""},               // an escape always wins, be it with nothing
        {"\xFF\xFF raw", 1, "\xFF\xFF raw"}, // nothing was converted
        {"A\xB0\xA1", 1, "A\xE5\x95\x8A"},
        {"AB\xFFGHIJKL", 1, "AB\xFFGHIJKL"}, // less than half
        {"ABCD\xFFGH", 1, "ABCD"},
    };
    for (const auto &row : rows) {
        std::string label = row.label;
        EXPECT_EQ(check_is_gbk(label.data()), row.is_gbk) << label;
        EXPECT_EQ(decoded(label), row.text) << label;
    }
    EXPECT_EQ(check_is_gbk(nullptr), 0);
    EXPECT_EQ(get_udisk_real_name(nullptr), -1);
    // 31 characters of two bytes become 93; what fits is whole characters, 21 of them.
    std::string chinese;
    std::string utf8;
    for (int i = 0; i < 31; i++)
        chinese += "\xB0\xA1";
    for (int i = 0; i < 21; i++)
        utf8 += "\xE5\x95\x8A";
    EXPECT_EQ(decoded(chinese), utf8);

    console();
    char label[LABEL_SIZE] = "\\x41\xB0";
    check_is_gbk(label);
    get_udisk_real_name(label);
    EXPECT_EQ(console(), "check_is_gbk:5\n5c 78 34 31 b0 ~~\n--get_udisk_real_name:\\x41\xB0\n"
                         "1 hex_temp[0]=41\n2 hex_temp[1]=b0\n2 hex_temp[2]=00\nstrlen(name)=1\n"
                         "get_udisk_real_name:A\n");
    char back[4];
    char text[] = "\xE5\x95\x8A";
    EXPECT_EQ(u2g(text, 3, back, 4), 0);
    EXPECT_EQ(std::string(back, 4), std::string("\xB0\xA1\0\0", 4));
    char unknown[] = "no such set";
    EXPECT_EQ(code_convert(unknown, unknown, text, 3, back, 4), -1);
}

TEST_F(Udisk, CommandOutput)
{
    char s[] = "a\nb\r\n";
    chomp(s);
    EXPECT_STREQ(s, "a\nb");
    char cmd[] = "cmd";
    const struct {
        const char *output;
        int status;
        const char *result;
    } rows[] = {
        {"", 0, "old"}, {"\n", -1, "old"}, {"first\r\nsecond\n", 0, "first"}, {"open", 0, "open"}};
    for (const auto &row : rows) {
        char result[OUTPUT_LINE_SIZE] = "old";
        rec.outputs["cmd"] = row.output;
        EXPECT_EQ(run_command_return_string(cmd, result), row.status) << row.output;
        EXPECT_STREQ(result, row.result);
    }
    rec.outputs["cmd"] = std::string(100, 'x');
    char result[63] = "";
    EXPECT_EQ(run_command_return_string(cmd, result), 0);
    EXPECT_EQ(result, std::string(62, 'x'));
    EXPECT_EQ(run_command_return_string(nullptr, result), -1);
    rec.failing = "cmd";
    EXPECT_EQ(run_command_return_string(cmd, result), -1);
    EXPECT_EQ(rec.lines.back(), "log run_command_return_string: popen read_device_info");
}

TEST_F(Udisk, PresenceOfADevice)
{
    std::string names;
    for (int i = 1; i <= 13; i++)
        names += "sd" + std::to_string(i) + "\n";
    rec.outputs["/bin/cat /proc/diskstats"] = names;
    const struct {
        std::string path;
        int present;
    } rows[] = {{"/mnt/sd1", 1},   {"/mnt/sd12", 1}, {"/mnt/sd13", 0}, {"/mnt/sd", 0},
                {"/mnt/sd1/x", 1}, {"/mnt", 0},      {"", 0},          {"/x/mnt/sd1", 0}};
    for (const auto &row : rows) {
        std::string path = row.path;
        EXPECT_EQ(check_udisk_mount_status(path.data()), row.present) << row.path;
    }
    EXPECT_EQ(check_udisk_mount_status(nullptr), 0);
    console();
    std::string path = "/mnt/sd2\n";
    check_udisk_mount_status(path.data());
    EXPECT_EQ(console(), "path=/mnt/sd2\n\nstat=sd1, res_stat=sd2\nstat=sd2, res_stat=sd2\nfind\n");
    rec.outputs["/bin/cat /proc/diskstats"] = "\nsd1\n";
    path = "/mnt/sd1";
    EXPECT_EQ(check_udisk_mount_status(path.data()), 0) << "stops at an empty name";
    rec.failing = "/bin/cat";
    EXPECT_EQ(check_udisk_mount_status(path.data()), 0);
}

// Paths of at most 15 characters that are there: "/", a dot and the names of the root's directories
// serve as mount points.
TEST_F(Udisk, InventoryOfADisk)
{
    rec.outputs["/bin/mount"] =
        "/mnt/gone\n/\n/usr/lib\n/usr/lib;x\n/no/where\n/usr/bin/../lib/x\nsda1\n";
    rec.outputs["/bin/cat"] = "lib\nwhere\nsda1\n";
    rec.outputs["ls -l"] = "\\xB0\\xA1\nsecond\n";
    rec.outputs["/usr/bin/find /usr/lib -maxdepth 1 -name '*.img'"] =
        "/usr/lib/a.img\n/usr/lib/" + std::string(60, 'b') + ".img\nx\n\n";
    rec.outputs["/usr/bin/find /usr/lib -maxdepth 1 -name '*.ubck'"] = "/usr/lib/c.ubck\n";
    EXPECT_EQ(inventory(), 0);
    const std::string f = "get_udisk_all_info: ";
    const std::string find = "/usr/bin/find /usr/lib -maxdepth 1 -name ";
    const std::string piece = "/usr/lib/" + std::string(53, 'b');
    const auto candidate = [&f](const std::string &path, const std::string &name) {
        return "log " + f + "udisk_path = " + path + ", u_path_name = " + name;
    };
    const std::string stat = "popen /bin/cat /proc/diskstats |grep sd|awk '{print $3}'";
    EXPECT_EQ(rec.lines, (std::vector<std::string>{
                             "log " + f + "start.(upgd/update/)",
                             "log " + f + "cmd=/bin/mount |grep /mnt/sd |awk '{print $3}'",
                             "popen /bin/mount |grep /mnt/sd |awk '{print $3}'",
                             "log " + f + "popen ok",
                             candidate("/mnt/gone", "gone"),
                             stat,
                             candidate("/usr/lib", "lib"),
                             stat,
                             "log " + f + "strlen(udisk_path) =8",
                             "log " + f + "udisk_path = /usr/lib",
                             "popen ls -l /dev/disk/by-label/ |grep lib |awk '{print $9}'",
                             "log " + f + "get udisk_name is chinese, use english instead.",
                             "log " + f + "get udisk_label = \xE5\x95\x8A",
                             "log " + f + "cmd=" + find + "'*.img'",
                             "popen " + find + "'*.img'",
                             "log " + f + "</usr/lib>:/usr/lib/a.img",
                             "log " + f + "</usr/lib>:" + piece,
                             "log " + f + "</usr/lib>:" + std::string(7, 'b') + ".img",
                             "log " + f + "</usr/lib>: uimg_num = 3",
                             "log " + f + "cmd=" + find + "'*.ubck'",
                             "popen " + find + "'*.ubck'",
                             "log " + f + "</usr/lib>: /usr/lib/c.ubck",
                             "log " + f + "</usr/lib>: uback_num = 1",
                             "log " + f + "cmd=" + find + "'*.rcfgx'",
                             "popen " + find + "'*.rcfgx'",
                             "log " + f + "</usr/lib>: urcfg_num = 0",
                             candidate("/usr/lib;x", "lib;x"),
                             "log " + f + "passed over: </usr/lib;x>",
                             candidate("/no/where", "where"),
                             stat,
                             "log " + f + "strlen(udisk_path) =9",
                             candidate("/usr/bin/../lib/x", "x"),
                             "log " + f + "passed over: </usr/bin/../lib/x>",
                             candidate("sda1", ""),
                             "log " + f + "passed over: <sda1>",
                             "log " + f + "found all udisk, udisk_num = 1",
                             "log " + f + "end.(upgd/update/)"}));
    EXPECT_EQ(info->upath_num, 1);
    EXPECT_STREQ(info->upath[0].udisk_path, "/usr/lib");
    EXPECT_STREQ(info->upath[0].udisk_name, "\xE5\x95\x8A");
    EXPECT_EQ(info->upath[0].imgfile.uimgfile_num, 3);
    EXPECT_STREQ(info->upath[0].imgfile.uimgfile[1], piece.c_str());
    EXPECT_STREQ(info->upath[0].backfile.ubackfile[0], "/usr/lib/c.ubck");
    EXPECT_EQ(info->upath[0].rcfgfile.urcfgfile_num, 0);
}

TEST_F(Udisk, NamesAndLimits)
{
    rec.outputs["/bin/mount"] = "/usr/lib\n/usr/bin\n/usr/sbin\n/usr/share\n/usr/include\n";
    rec.outputs["/bin/cat"] = "lib\nbin\nsbin\nshare\ninclude\n";
    rec.outputs["ls -l /dev/disk/by-label/ |grep lib"] = "\n";
    rec.outputs["ls -l /dev/disk/by-label/ |grep bin"] = "\\xFF\n";
    std::string chinese = "ten_bytes_";
    for (int i = 0; i < 8; i++)
        chinese += "\xB0\xA1";
    rec.outputs["ls -l /dev/disk/by-label/ |grep sbin"] = chinese + "\n";
    std::string files;
    for (int i = 0; i < 10; i++)
        files += "/usr/share/" + std::to_string(i) + ".img\n";
    rec.outputs["/usr/bin/find /usr/share"] = files;
    EXPECT_EQ(inventory(), 0);
    EXPECT_EQ(info->upath_num, 4) << "a fifth disk is left out";
    EXPECT_STREQ(info->upath[0].udisk_name, "UNKNOWNNAME") << "an empty label";
    EXPECT_STREQ(info->upath[1].udisk_name, "UNKNOWNNAME") << "decodes to nothing";
    std::string name = "ten_bytes_";
    for (int i = 0; i < 7; i++)
        name += "\xE5\x95\x8A";
    EXPECT_EQ(info->upath[2].udisk_name, name) << "31 bytes, whole characters";
    EXPECT_STREQ(info->upath[3].udisk_name, "UsbDisk3");
    EXPECT_EQ(info->upath[3].imgfile.uimgfile_num, 8) << "and a ninth file";
    EXPECT_STREQ(info->upath[3].imgfile.uimgfile[7], "/usr/share/7.img");
    EXPECT_EQ(info->upath[2].imgfile.uimgfile_num, 0);
    rec.outputs["ls -l /dev/disk/by-label/ |grep lib"] = std::string(30, 'x') + "\\xB0\\xA1\n";
    EXPECT_EQ(inventory(), 0);
    EXPECT_EQ(info->upath[0].udisk_name, std::string(30, 'x')) << "half a character is none";

    for (const char *command :
         {"/bin/mount", "ls -l", "/usr/bin/find /usr/bin -maxdepth 1 -name '*.u"}) {
        rec.failing = command;
        info->upath_num = -7;
        EXPECT_EQ(inventory(), -1) << command;
        EXPECT_EQ(info->upath_num, -7);
        const std::vector<std::string> last(rec.lines.end() - 2, rec.lines.end());
        EXPECT_EQ(last, (std::vector<std::string>{"log get_udisk_all_info: popen read_device_info",
                                                  "log get_udisk_all_info: end.(upgd/update/)"}));
    }
}

static bool is_utf8(const std::string &text)
{
    std::string copy = text;
    std::string out(256, '\0');
    char utf8[] = "utf-8";
    return code_convert(utf8, utf8, copy.data(), static_cast<int>(copy.size()), out.data(), 256) ==
           0;
}

// Whatever anybody writes on a disk: nothing runs past a field, and counts keep their limits.
TEST_F(Udisk, MutatedOutputs)
{
    std::mt19937 random(5);
    const auto noise = [&random](size_t size) {
        static const std::string pieces[] = {"\\x",
                                             "\\xB0",
                                             "\xA1",
                                             "/",
                                             "\n",
                                             " ",
                                             "'",
                                             "\"",
                                             "$(x)",
                                             "sda1",
                                             std::string(40, 'y'),
                                             "\\",
                                             "x",
                                             "\xFF",
                                             "..",
                                             "/usr/lib"};
        std::string text;
        while (text.size() < size)
            text += random() % 4 == 0 ? std::string(1, static_cast<char>(random() % 255 + 1))
                                      : pieces[random() % 16];
        return text;
    };
    for (int round = 0; round < 3000; round++) {
        rec.outputs["/bin/mount"] =
            "/usr/lib\n" + noise(random() % 200) + "\n/usr/bin\n/usr/lib\n/usr/lib\n/usr/lib\n";
        rec.outputs["/bin/cat"] = "lib\n" + noise(random() % 50) + "\nbin\n";
        const std::string label = noise(random() % 255) + "\\x41";
        rec.outputs["ls -l"] = label;
        rec.outputs["/usr/bin/find"] = noise(random() % 1500);
        info.reset(new udisk_info_t);
        memset(info.get(), 'q', sizeof *info);
        rec.on_line = [](const std::string &line) {
            if (line.rfind("popen ls", 0) == 0 || line.rfind("popen /usr/bin/find", 0) == 0) {
                ASSERT_EQ(line.find_first_of("$(;\"\n"),
                          line.rfind("ls", 6) == 6 ? line.find('$') : std::string::npos)
                    << line;
            }
        };
        ASSERT_EQ(inventory(), 0);
        ASSERT_GE(info->upath_num, 1);
        ASSERT_LE(info->upath_num, 4);
        for (int i = 0; i < info->upath_num; i++) {
            const udisk_list_t &disk = info->upath[i];
            ASSERT_NE(memchr(disk.udisk_path, '\0', sizeof disk.udisk_path), nullptr);
            ASSERT_NE(memchr(disk.udisk_name, '\0', sizeof disk.udisk_name), nullptr);
            ASSERT_LE(disk.imgfile.uimgfile_num, 8);
            for (int j = 0; j < disk.imgfile.uimgfile_num; j++)
                ASSERT_NE(memchr(disk.imgfile.uimgfile[j], '\0', 96), nullptr);
        }
        const std::string text = decoded(label.substr(0, 59) + "\\x41");
        ASSERT_TRUE(is_utf8(text)) << testing::PrintToString(text);
    }
}

TEST_F(Udisk, Messages)
{
    EXPECT_EQ(sendmsg_udisk_all_info(), 0);
    ASSERT_EQ(rec.messages.size(), 1U);
    std::string expected(9616, '\0');
    expected.replace(16, 8, std::string("\x03\0\x1d\0\x78\x25\0\0", 8));
    EXPECT_EQ(rec.messages[0], expected);
    EXPECT_NE(console().find("send label udisk...\n"), std::string::npos);
    EXPECT_EQ(rec.all("apmsg"), "detach|send 5");
    EXPECT_EQ(rec.lines.front(), "log sendmsg_udisk_all_info: start");
    EXPECT_EQ(rec.lines.back(), "log sendmsg_udisk_all_info: end");
    EXPECT_TRUE(rec.has("log Simdc_sess_id: Session ID get:0x5 TID:0x10a3900 (0)"));
    EXPECT_TRUE(rec.has("log Simdc_sess_send: 0x5"));

    rec.lines.clear();
    std::string name(127, 'n');
    EXPECT_EQ(sendmsg_ack_back(0x1001d, 0x7fff6, -3, (name + "cut").data()), 0);
    expected.replace(16, 4, std::string("\xf6\xff\x1d\0", 4));
    expected.replace(28, 4, "\xfd\xff\xff\xff");
    expected.replace(32, 127, name);
    EXPECT_EQ(rec.messages[1], expected);
    const std::string f = "sendmsg_ack_back: ";
    EXPECT_EQ(rec.all("log").substr(0, rec.all("log").find("|get_udisk")),
              f + "start|" + f + "label edit: large label=65565, small label=524278 |" + f +
                  "small label: LABEL_UDISK_HOTPLUG    \t (2)|" + f +
                  "\t\t\t  LABEL_UDISK_ALL_INFO   \t (3)|" + f +
                  "\t\t\t  LABEL_UDISK_UBACK_CREAT    (4)|" + f +
                  "\t\t\t  LABEL_UDISK_UBACK_RELOAD   (5)|" + f +
                  "\t\t\t  LABEL_UDISK_FWARE_UPDATE   (6)");
    EXPECT_TRUE(rec.has("log " + f + "data edit: udisk_info->event.ev= -3"));
    EXPECT_TRUE(rec.has("log " + f + "data edit: udisk_info->event.name = " + name));
    EXPECT_EQ(sendmsg_ack_back(29, 3, 1, nullptr), 0);
    EXPECT_EQ(rec.messages[2].substr(32, 128), std::string(128, '\0'));

    rec.lines.clear();
    rec.send_result = -11;
    EXPECT_EQ(sendmsg_udisk_all_info(), -1);
    EXPECT_EQ(rec.all("apmsg"), "detach|send 5|free");
    EXPECT_TRUE(rec.has("log sendmsg_udisk_all_info: Simdc_sess_send(0x10a3900) failed..."));
    rec.send_result = 3;
    rec.failing = "/bin/mount";
    EXPECT_EQ(sendmsg_udisk_all_info(), 0) << "an incomplete inventory goes out all the same";
    rec.session_exists = false;
    rec.lines.clear();
    EXPECT_EQ(sendmsg_udisk_all_info(), -1);
    EXPECT_EQ(rec.all("apmsg"), "detach|free");
    EXPECT_TRUE(rec.has("log sendmsg_udisk_all_info: Simdc_sess_id(0x10a3900) failed..."));
}

// What needs no real scratch tree; the device tests have the rest.
TEST_F(Udisk, BackupRefusals)
{
    char file[256] = "untouched";
    const auto backup = [&file](std::string disk) {
        rec.lines.clear();
        return do_create_backup(disk.data(), file);
    };
    rec.outputs["du -sk"] = "50\n";
    rec.outputs[" df |grep /dev/root"] = "100050\n";
    rec.outputs[" df |grep /tmp"] = "100049\n";
    const std::string f = "log do_create_backup: ";
    const std::string sizes =
        "do_create_backup: ubackup size    =  00000050 Bytes|do_create_backup: sys_avail_size  =  "
        "00100050 Bytes|do_create_backup: udisk_avail_size = 00100049 Bytes";
    EXPECT_EQ(backup("/missing"), -11);
    EXPECT_EQ(rec.lines,
              (std::vector<std::string>{f + "START", f + "'/missing' can't open. please check path",
                                        f + "END"}));
    EXPECT_EQ(backup("/tmp"), -13);
    EXPECT_NE(rec.all("log").find(sizes), std::string::npos);
    EXPECT_TRUE(rec.has(f + "udisk_avail_size is not enough.resverd size is 100M."));
    rec.outputs[" df |grep /dev/root"] = "";
    EXPECT_EQ(backup("/tmp"), -12) << "no output is no room";
    EXPECT_TRUE(rec.has(f + "sys_avail_size is not enough.resverd size is 100M."));
    EXPECT_FALSE(rec.has(f + "udisk_avail_size is not enough.resverd size is 100M."));
    for (const char *command : {"du -sk", " df |grep /dev/root", " df |grep /tmp"}) {
        rec.failing = command;
        EXPECT_EQ(backup("/tmp"), -1);
        EXPECT_TRUE(rec.has(f + "get ubackup size faild."));
    }
    EXPECT_EQ(rec.all("run"), "");
    rec.failing = "/bin/date";
    rec.outputs[" df |grep /dev/root"] = rec.outputs[" df |grep /tmp"] = "100050\n";
    const std::string scratch =
        "/bin/rm -rf /tmp/ubackup|/bin/mkdir -p /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf|"
        "/bin/cp -rf /usr/qrx310/etc/mcucored /tmp/ubackup/bkdir/usr/qrx310/etc/|"
        "/bin/cp -rf /usr/qrx310/etc/vsp /tmp/ubackup/bkdir/usr/qrx310/etc/|"
        "/bin/cp -rf /usr/qrx310/etc/sysconf/qrxpara /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf/";
    const std::string long_name(32, 'n');
    const struct {
        const char *device_name;
        std::string line;
    } rows[] = {
        {nullptr, "sysconf_open error"},
        {"-", "sysconf get env device_name error"},
        {"unit;7", "device_name <unit;7> is no file name of at most 31 characters"},
        {long_name.c_str(),
         "device_name <" + long_name + "> is no file name of at most 31 characters"},
        {"unit7", "get ubackup name(date) faild."},
    };
    for (const auto &row : rows) {
        rec.device_name = row.device_name;
        EXPECT_EQ(backup("/tmp"), -1) << row.line;
        EXPECT_TRUE(rec.has(f + row.line)) << row.line;
        EXPECT_EQ(rec.all("run"), scratch) << "the scratch tree stays";
    }
    const std::string odd = dir + "/a b";
    fs::create_directory(odd);
    EXPECT_EQ(backup(odd), -1) << "no place in a command";
    EXPECT_EQ(rec.all("run") + rec.all("popen"), "");
    EXPECT_STREQ(file, "untouched");
}
