// USB disks over the recording platform: labels, inventory, messages, settings backup.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/command_output.h"
#include "update/dtt_create/disk_inventory.h"
#include "update/dtt_create/disk_labels.h"
#include "update/dtt_update_common/session_operations.h"
#include "update_service.h"

#include <algorithm>
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
        EXPECT_EQ(("\n" + rec.formats).find("\n%s\n"), std::string::npos) << "a finished text";
        Recorded::TearDown();
    }

    // The result, and "PATH <NAME> IMAGES" of each disk.
    std::string inventory()
    {
        rec.lines.clear();
        std::string text = std::to_string(get_udisk_all_info(info.get()));
        for (const udisk_list_t *disk = info->upath; disk < info->upath + info->upath_num; disk++)
            text += std::string("\n") + disk->udisk_path + " <" + disk->udisk_name + "> " +
                    std::to_string(disk->imgfile.uimgfile_num);
        return text;
    }
};

// The lines since the last call without the log lines' `head`, but those with one of `others` in
// them.
static std::string story(const std::string &head, std::initializer_list<const char *> others = {})
{
    std::string text;
    for (std::string line : rec.lines)
        if (std::none_of(others.begin(), others.end(),
                         [&line](const char *other) { return line.find(other) != line.npos; }))
            text += line.erase(0, line.rfind(head, 0) == 0 ? head.size() : 0) + "\n";
    rec.lines.clear();
    return text;
}

static std::string repeated(int count, const std::string &text)
{
    return count > 0 ? text + repeated(count - 1, text) : "";
}

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
        // Two bytes of a character become three. What fits is whole characters, and a terminator.
        {repeated(31, "\xB0\xA1"), 1, repeated(21, "\xE5\x95\x8A")},
        {"g" + repeated(31, "\xB0\xA1"), 1, "g" + repeated(20, "\xE5\x95\x8A")},
    };
    for (const auto &row : rows) {
        std::string label = row.label;
        EXPECT_EQ(check_is_gbk(label.data()), row.is_gbk) << label;
        EXPECT_EQ(decoded(label), row.text) << label;
    }
    EXPECT_EQ(check_is_gbk(nullptr), 0);
    EXPECT_EQ(get_udisk_real_name(nullptr), -1);
    // The 64th byte begins no escape: what is behind it is not looked at.
    char longer[2 * LABEL_SIZE] = "\xFF";
    memset(longer + 1, 'a', LABEL_SIZE - 2);
    strcat(longer, "\\x41");
    const std::string whole = longer;
    EXPECT_EQ(get_udisk_real_name(longer), 0);
    EXPECT_EQ(longer, whole);
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
        std::string output;
        int status;
        std::string result;
    } rows[] = {{"", 0, "old"},
                {"\n", -1, "old"},
                {"first\r\nsecond\n", 0, "first"},
                {"open", 0, "open"},
                {std::string(100, 'x'), 0, std::string(62, 'x')}};
    char result[63];
    for (const auto &row : rows) {
        strcpy(result, "old");
        rec.outputs["cmd"] = row.output;
        EXPECT_EQ(run_command_return_string(cmd, result), row.status) << row.output;
        EXPECT_EQ(result, row.result);
    }
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
    std::string present;
    for (const std::string path :
         {"/mnt/sd1", "/mnt/sd12", "/mnt/sd13", "/mnt/sd", "/mnt/sd1/x", "/mnt", "", "/x/mnt/sd1"})
        present += check_udisk_mount_status(std::string(path).data()) == 1 ? path + " " : "";
    EXPECT_EQ(present, "/mnt/sd1 /mnt/sd12 /mnt/sd1/x ");
    EXPECT_EQ(check_udisk_mount_status(nullptr), 0);
    std::string path = "/mnt/sd2/x/y";
    check_udisk_mount_status(path.data());
    EXPECT_EQ(path, std::string("/mnt\0sd2\0x\0y", 12)) << "is taken apart";
    console();
    path = "/mnt/sd2\n";
    check_udisk_mount_status(path.data());
    EXPECT_EQ(console(), "path=/mnt/sd2\n\nstat=sd1, res_stat=sd2\nstat=sd2, res_stat=sd2\nfind\n");
    rec.outputs["/bin/cat /proc/diskstats"] = "\nsd1\n";
    path = "/mnt/sd1";
    EXPECT_EQ(check_udisk_mount_status(path.data()), 0) << "stops at an empty name";
    rec.failing = "/bin/cat";
    EXPECT_EQ(check_udisk_mount_status(path.data()), 0);
}

static const std::string passed_over = "passed over, mount path of more than 15 characters or with "
                                       "one that a shell takes for itself: ";

// Paths of at most 15 characters that are there: "/", a dot and the names of the root's directories
// serve as mount points.
TEST_F(Udisk, InventoryOfADisk)
{
    fs::create_directories(dir + "/mnt/lib;x/#");
    ASSERT_EQ(chdir(dir.c_str()), 0);
    rec.outputs["/bin/mount"] =
        "/mnt/gone\n/\n/usr/lib\nmnt/lib;x\n./lib;x\n./mnt/lib;x/#\n/no/where\nsda1\n";
    rec.outputs["/bin/cat"] = "lib\nlib;x\nmnt\nwhere\nsda1\n";
    rec.outputs["ls -l"] = "\\xB0\\xA1\nsecond\n";
    rec.outputs["/usr/bin/find /usr/lib -maxdepth 1 -name '*.img'"] =
        "/usr/lib/a.img\n/usr/lib/" + std::string(60, 'b') + ".img\nx\n\n";
    rec.outputs["/usr/bin/find /usr/lib -maxdepth 1 -name '*.ubck'"] = "/usr/lib/c.ubck\n";
    EXPECT_EQ(inventory(), "0\n/usr/lib <\xE5\x95\x8A> 3");
    const std::string name = info->upath[0].udisk_name;
    const std::string piece = "/usr/lib/" + std::string(53, 'b');
    const std::string stat = "popen /bin/cat /proc/diskstats |grep sd|awk '{print $3}'\n";
    EXPECT_EQ(story("log get_udisk_all_info: "), R"(start.(upgd/update/)
cmd=/bin/mount |grep /mnt/sd |awk '{print $3}'
popen /bin/mount |grep /mnt/sd |awk '{print $3}'
popen ok
udisk_path = /mnt/gone, u_path_name = gone
)" + stat + R"(udisk_path = /usr/lib, u_path_name = lib
)" + stat + R"(strlen(udisk_path) =8
udisk_path = /usr/lib
popen ls -l /dev/disk/by-label/ |grep lib |awk '{print $9}'
get udisk_name is chinese, use english instead.
get udisk_label = )" + name + R"(
cmd=/usr/bin/find /usr/lib -maxdepth 1 -name '*.img'
popen /usr/bin/find /usr/lib -maxdepth 1 -name '*.img'
</usr/lib>:/usr/lib/a.img
</usr/lib>:)" + piece + R"(
</usr/lib>:bbbbbbb.img
</usr/lib>: uimg_num = 3
cmd=/usr/bin/find /usr/lib -maxdepth 1 -name '*.ubck'
popen /usr/bin/find /usr/lib -maxdepth 1 -name '*.ubck'
</usr/lib>: /usr/lib/c.ubck
</usr/lib>: uback_num = 1
cmd=/usr/bin/find /usr/lib -maxdepth 1 -name '*.rcfgx'
popen /usr/bin/find /usr/lib -maxdepth 1 -name '*.rcfgx'
</usr/lib>: urcfg_num = 0
udisk_path = mnt/lib;x, u_path_name = lib;x
)" + stat + R"(strlen(udisk_path) =9
)" + passed_over + R"(<mnt/lib;x>
udisk_path = ./lib;x, u_path_name = lib;x
)" + stat + R"(strlen(udisk_path) =7
udisk_path = ./mnt/lib;x/#, u_path_name = #
)" + stat + R"(strlen(udisk_path) =13
)" + passed_over + R"(<./mnt/lib;x/#>
udisk_path = /no/where, u_path_name = where
)" + stat + R"(strlen(udisk_path) =9
udisk_path = sda1, u_path_name = 
)" + stat + R"(found all udisk, udisk_num = 1
end.(upgd/update/)
)");
    EXPECT_NE(rec.formats.find("<%s>:%s\n<%s>:%s\n<%s>: uimg_num = %d\ncmd=%s\n<%s>: %s\n<%s>: "
                               "uback_num = %d\ncmd=%s\n<%s>: urcfg_num = %d\n"),
              std::string::npos);
    EXPECT_STREQ(info->upath[0].imgfile.uimgfile[1], piece.c_str());
    EXPECT_STREQ(info->upath[0].backfile.ubackfile[0], "/usr/lib/c.ubck");
    EXPECT_EQ(info->upath[0].rcfgfile.urcfgfile_num, 0);
}

// A path of 15 characters fits its field, one of 16 is passed over. A label that is empty or
// decodes to nothing has a name in its place; one that is too long ends with a whole character.
TEST_F(Udisk, NamesAndLimits)
{
    rec.outputs["/bin/mount"] = "/usr/sbin/.././/\n/usr/bin/.././/\n/usr/bin\n/usr/sbin\n/usr/share"
                                "\n/usr/include\n";
    rec.outputs["/bin/cat"] = "bin\nsbin\nshare\ninclude\n";
    rec.outputs["ls -l /dev/disk/by-label/ |grep  |awk"] = "\n"; // without a device's name
    rec.outputs["ls -l /dev/disk/by-label/ |grep bin"] = "\\xFF\n";
    rec.outputs["ls -l /dev/disk/by-label/ |grep sbin"] = "ten_bytes_" + repeated(8, "\xB0\xA1");
    for (int i = 0; i < 10; i++)
        rec.outputs["/usr/bin/find /usr/share"] += "/usr/share/" + std::to_string(i) + ".img\n";
    EXPECT_EQ(inventory(), "0\n/usr/bin/../.// <UNKNOWNNAME> 0\n/usr/bin <UNKNOWNNAME> 0\n"
                           "/usr/sbin <ten_bytes_" +
                               repeated(7, "\xE5\x95\x8A") + "> 0\n/usr/share <UsbDisk3> 8")
        << "a fifth disk and a ninth file are left out";
    EXPECT_TRUE(rec.has("log get_udisk_all_info: strlen(udisk_path) =16"));
    EXPECT_TRUE(rec.has("log get_udisk_all_info: " + passed_over + "</usr/sbin/.././/>"));
    EXPECT_STREQ(info->upath[3].imgfile.uimgfile[7], "/usr/share/7.img");
    rec.outputs["ls -l /dev/disk/by-label/ |grep  |awk"] = std::string(29, 'x') + "\\xB0\\xA1\n";
    inventory();
    EXPECT_EQ(info->upath[0].udisk_name, std::string(29, 'x'));

    for (const char *command :
         {"/bin/mount", "ls -l", "/usr/bin/find /usr/bin -maxdepth 1 -name '*.u"}) {
        rec.failing = command;
        info->upath_num = -7;
        EXPECT_EQ(inventory(), "-1") << command;
        EXPECT_EQ(info->upath_num, -7);
        EXPECT_EQ(rec.last(2),
                  (std::vector<std::string>{"log get_udisk_all_info: popen read_device_info",
                                            "log get_udisk_all_info: end.(upgd/update/)"}));
    }
}

// Whatever anybody writes on a disk: nothing runs past a field, and counts keep their limits.
TEST_F(Udisk, MutatedOutputs)
{
    std::mt19937 random(5);
    const auto noise = [&random](size_t size) {
        static const char *const pieces[] = {
            "\\x",  "\\xB0", "\xA1",     "/",
            "\n",   " ",     "'",        "\"",
            "$(x)", "sda1",  "\\",       "x",
            "\xFF", "..",    "/usr/lib", "yyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy"};
        std::string text;
        while (text.size() < size)
            text += random() % 4 == 0 ? std::string(1, static_cast<char>(random() % 255 + 1))
                                      : pieces[random() % 16];
        return text;
    };
    rec.on_line = [](const std::string &line) {
        if (line.rfind("popen ls", 0) == 0 || line.rfind("popen /usr/bin/find", 0) == 0) {
            ASSERT_EQ(line.find_first_of("$(;\"\n"),
                      line.rfind("ls", 6) == 6 ? line.find('$') : std::string::npos)
                << line;
        }
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
        ASSERT_EQ(get_udisk_all_info(info.get()), 0);
        ASSERT_TRUE(info->upath_num >= 1 && info->upath_num <= 4) << info->upath_num;
        for (int i = 0; i < info->upath_num; i++) {
            const udisk_list_t &disk = info->upath[i];
            ASSERT_LT(strnlen(disk.udisk_path, 16), 16U);
            ASSERT_LT(strnlen(disk.udisk_name, 32), 32U);
            ASSERT_LE(disk.imgfile.uimgfile_num, 8);
            for (int j = 0; j < disk.imgfile.uimgfile_num; j++)
                ASSERT_LT(strnlen(disk.imgfile.uimgfile[j], 96), 96U);
        }
        std::string text = decoded(label.substr(0, 59) + "\\x41");
        char utf8[] = "utf-8";
        char copy[256];
        ASSERT_EQ(code_convert(utf8, utf8, text.data(), static_cast<int>(text.size()), copy, 256),
                  0)
            << testing::PrintToString(text);
    }
}

TEST_F(Udisk, Messages)
{
    const std::string session = "log Simdc_sess_id: Session ID get:0x5 TID:0x10a3900 (0)\n"
                                "log Simdc_sess_send: 0x5\napmsg detach\napmsg send 5\n";
    const std::string sent = session + "log Simdc_sess_send: 0\n";
    const auto lines = [](const std::string &operation) {
        return story("log " + operation + ": ", {"get_udisk_all_info", "popen"});
    };
    EXPECT_EQ(sendmsg_udisk_all_info(), 0);
    EXPECT_EQ(lines("sendmsg_udisk_all_info"), "start\n" + sent + "end\n");
    EXPECT_NE(console().find("send label udisk...\n"), std::string::npos);
    ASSERT_EQ(rec.messages.size(), 1U);
    std::string expected(9616, '\0');
    expected.replace(16, 8, std::string("\x03\0\x1d\0\x78\x25\0\0", 8));
    EXPECT_EQ(rec.messages[0], expected);

    std::string name(127, 'n');
    EXPECT_EQ(sendmsg_ack_back(0x1001d, 0x7fff6, -3, (name + "cut").data()), 0);
    EXPECT_EQ(lines("sendmsg_ack_back"),
              "start\nlabel edit: large label=65565, small label=524278 \n"
              "small label: LABEL_UDISK_HOTPLUG    \t (2)\n"
              "\t\t\t  LABEL_UDISK_ALL_INFO   \t (3)\n"
              "\t\t\t  LABEL_UDISK_UBACK_CREAT    (4)\n"
              "\t\t\t  LABEL_UDISK_UBACK_RELOAD   (5)\n"
              "\t\t\t  LABEL_UDISK_FWARE_UPDATE   (6)\n"
              "data edit: udisk_info->event.ev= -3\ndata edit: udisk_info->event.name = " +
                  name + "\n" + sent + "end\n");
    expected.replace(16, 4, std::string("\xf6\xff\x1d\0", 4));
    expected.replace(28, 4, "\xfd\xff\xff\xff");
    expected.replace(32, 127, name);
    EXPECT_EQ(rec.messages[1], expected);
    EXPECT_EQ(sendmsg_ack_back(29, 3, 1, nullptr), 0);
    EXPECT_EQ(rec.messages[2].substr(32, 128), std::string(128, '\0'));

    rec.lines.clear();
    rec.send_result = -11;
    EXPECT_EQ(sendmsg_udisk_all_info(), -1);
    EXPECT_EQ(lines("sendmsg_udisk_all_info"), "start\n" + session +
                                                   "apmsg free\nlog Simdc_sess_send: -1\n"
                                                   "Simdc_sess_send(0x10a3900) failed...\nend\n");
    rec.send_result = 3;
    rec.failing = "/bin/mount";
    EXPECT_EQ(sendmsg_udisk_all_info(), 0) << "an incomplete inventory goes out all the same";
    rec.session_exists = false;
    rec.lines.clear();
    EXPECT_EQ(sendmsg_udisk_all_info(), -1);
    EXPECT_EQ(lines("sendmsg_udisk_all_info"),
              "start\nlog Simdc_sess_id: Session ID get:0x0 TID:0x10a3900 (-2)\n"
              "Simdc_sess_id(0x10a3900) failed...\napmsg detach\napmsg free\nend\n");
}

// The commands for the scratch tree take effect; the disk is a directory. All lines are compared,
// from START to END, but for those of the image builder.
TEST_F(Udisk, Backups)
{
    const std::string image = "/tmp/ubackup/unit7_202601020304.ubck";
    const auto backup = [](std::string disk) {
        char file[256] = "untouched";
        const int result = do_create_backup(disk.data(), file);
        std::string text = std::to_string(result) + " " + file + "\n";
        text += story("log do_create_backup: ", {"crc32_img_body", "print_image_hdr", "trace "});
        for (size_t at; (at = text.find(disk)) != std::string::npos;)
            text.replace(at, disk.size(), "DISK");
        return text;
    };
    const auto make_disk = [this](size_t path_size) {
        const std::string disk = dir + "/" + std::string(path_size - dir.size() - 1, 'd');
        fs::remove_all(disk);
        fs::create_directory(disk);
        return disk;
    };
    const std::string disk = make_disk(78);
    const std::string scratch = dir + "/tmp/ubackup";
    rec.outputs = {{"du -sk", "50\n"},
                   {" df |grep /dev/root", "100050\n"},
                   {" df |grep /tmp", "100050\n"},
                   {"/bin/date", "202601020304\n"}};
    rec.on_line = [&](const std::string &line) {
        if (line == "run /bin/cp -rf " + image + " " + disk)
            fs::copy(dir + image, disk);
        // Nobody else is to read the settings in it.
        EXPECT_TRUE(line.rfind("run /bin/cp", 0) != 0 ||
                    fs::status(scratch).permissions() == fs::perms::owner_all)
            << line;
    };
    const std::string whole =
        "START\n"
        "build .ubck at udisk: DISK \n"
        "popen du -sk /usr/qrx310/etc/ |awk '{print $1}'\n"
        "ubackup size    =  00000050 Bytes\n"
        "popen  df |grep /dev/root |awk '{print $4}'\n"
        "sys_avail_size  =  00100050 Bytes\n"
        "popen  df |grep DISK |awk '{print $4}'\n"
        "udisk_avail_size = 00100050 Bytes\n"
        "creat dir: /tmp/ubackup\n"
        "run /bin/rm -rf /tmp/ubackup\n"
        "run /bin/mkdir -p /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf\n"
        "run /bin/cp -rf /usr/qrx310/etc/mcucored /tmp/ubackup/bkdir/usr/qrx310/etc/\n"
        "run /bin/cp -rf /usr/qrx310/etc/vsp /tmp/ubackup/bkdir/usr/qrx310/etc/\n"
        "run /bin/cp -rf /usr/qrx310/etc/sysconf/qrxpara "
        "/tmp/ubackup/bkdir/usr/qrx310/etc/sysconf/\n"
        "popen /bin/date +%Y%m%d%H%M\n"
        "begin to create updfilename = unit7_202601020304.ubck \n"
        "do_create /tmp/ubackup/unit7_202601020304.ubck, chdir to /tmp/ubackup/bkdir\n"
        "run /bin/cp -rf /tmp/ubackup/unit7_202601020304.ubck DISK\n"
        "run sync\n"
        "do_create ubck success !\n"
        "return .ubck file: DISK/unit7_202601020304.ubck\n"
        "remove dir: /tmp/ubackup\n"
        "run /bin/rm -rf /tmp/ubackup\n"
        "END\n";
    // What comes up to the end of the line with `text`.
    const auto until = [&whole](const std::string &text) {
        return whole.substr(0, whole.find('\n', whole.find(text)) + 1);
    };
    const recording usual = rec;
    fs::create_directories(scratch); // stays: a directory of our own will do
    rec.failing = "/bin/rm";
    EXPECT_EQ(backup(disk), "0 DISK/unit7_202601020304.ubck\n" + whole);
    rec.failing = "";
    EXPECT_EQ(read_file(disk + "/unit7_202601020304.ubck").substr(32, 4), be32(1)) << "its place";
    EXPECT_EQ(fs::current_path(), "/tmp");

    rec.outputs[" df |grep /dev/root"] = "3000000000\n";
    EXPECT_EQ(backup(make_disk(78)).find("0 DISK/"), 0U) << "a very large disk";
    const std::string removed = whole.substr(whole.find("remove dir"));
    const std::string no_stream = "log run_command_return_string: popen read_device_info\n";
    const std::string no_size = no_stream + "get ubackup size faild.\nEND\n";
    const std::string no_room = " is not enough.resverd size is 100M.\nEND\n";
    const std::string no_name = "> is no file name of at most 31 characters\nEND\n";
    const std::string no_scratch =
        "/tmp/ubackup is no directory of our own alone: remove it\ndo_create error !!!\nEND\n";
    const std::string long_name(32, 'n');
    const auto without = [](const char *command) { return [command] { rec.failing = command; }; };
    const auto name = [](const char *text) { return [text] { rec.device_name = text; }; };
    const struct {
        int result;
        std::function<void()> change;
        std::string last; // line as ever
        std::string rest;
    } rows[] = {
        {-13, [] { rec.outputs[" df |grep /tmp"] = "100049\n"; }, "df |grep DISK",
         "udisk_avail_size = 00100049 Bytes\nudisk_avail_size" + no_room},
        {-13, [] { rec.outputs[" df |grep /tmp"] = "-3000000000\n"; }, "df |grep DISK",
         "udisk_avail_size = -2147483648 Bytes\nudisk_avail_size" + no_room},
        {-12, [] { rec.outputs[" df |grep /dev/root"] = ""; }, "df |grep /dev/root",
         "sys_avail_size  =  00000000 Bytes\npopen  df |grep DISK |awk '{print $4}'\n"
         "udisk_avail_size = 00100050 Bytes\nsys_avail_size" +
             no_room},
        {-1, without("du -sk"), "du -sk", no_size},
        {-1, without(" df |grep /dev/root"), "df |grep /dev/root", no_size},
        {-1, without(" df |grep /tmp"), "df |grep DISK", no_size},
        // A link to the disk, and a directory that others may write to.
        {-1,
         [&] {
             rec.failing = "/bin/rm";
             fs::create_directory_symlink(disk, scratch);
         },
         "/bin/rm", no_scratch},
        {-1,
         [&] {
             rec.failing = "/bin/rm";
             fs::remove(scratch);
             fs::create_directory(scratch);
             fs::permissions(scratch, fs::perms::others_write, fs::perm_options::add);
         },
         "/bin/rm", no_scratch},
        // From here on the scratch tree stays.
        {-1, name(nullptr), "qrxpara", "sysconf_open error\nEND\n"},
        {-1, name("-"), "qrxpara", "sysconf get env device_name error\nEND\n"},
        {-1, name("unit;7"), "qrxpara", "device_name <unit;7" + no_name},
        {-1, name("a/b"), "qrxpara", "device_name <a/b" + no_name},
        {-1, name(long_name.c_str()), "qrxpara", "device_name <" + long_name + no_name},
        {-1, without("/bin/date"), "/bin/date", no_stream + "get ubackup name(date) faild.\nEND\n"},
        {-1,
         [] {
             rec.device_name = "u*[?$";
             rec.failing = "/bin/date";
         },
         "/bin/date", no_stream + "get ubackup name(date) faild.\nEND\n"},
        // And from here on it goes.
        {-1, without("/bin/mkdir"), "do_create ", "do_create error !!!\n" + removed},
    };
    for (const auto &row : rows) {
        rec = usual;
        row.change();
        EXPECT_EQ(backup(make_disk(78)),
                  std::to_string(row.result) + " untouched\n" + until(row.last) + row.rest);
    }
    rec = usual;
    rec.on_line = [&disk](const std::string &line) {
        if (line.rfind("popen /bin/date", 0) == 0)
            fs::remove(disk); // is pulled
    };
    EXPECT_EQ(backup(make_disk(78)),
              "-1 untouched\n" + until("do_create ") + "accessing img is not  F_OK\n" + removed);
    rec.on_line = nullptr; // nothing is copied
    EXPECT_EQ(backup(make_disk(78)), "-1 DISK/unit7_202601020304.ubck\n" + until("run sync") +
                                         "do_create ubck faild !\nreturn .ubck file: \n" + removed);
    for (const size_t size : {79U, 99U})
        EXPECT_EQ(backup(make_disk(size)), "-1 untouched\n" + until("do_create ") +
                                               "command too long for <" + image + ">.\n" + removed);
    EXPECT_EQ(backup(make_disk(100)),
              "-1 untouched\n" + until("sys_avail") + "command too long for <DISK>.\nEND\n");
    EXPECT_EQ(backup(dir + "/none"),
              "-11 untouched\nSTART\n'DISK' can't open. please check path\nEND\n");
    fs::create_directory(dir + "/a b");
    EXPECT_EQ(backup(dir + "/a b"),
              "-1 untouched\n" + until("build .ubck") + "'DISK' has no place in a command\nEND\n");
}
