// USB disks with the real tools, in the sandbox: disks are file systems below /mnt/, in front of a
// list of devices and labels that is laid over the machine's own.
#include "platform/mailbox.h"
#include "platform/platform.h"
#include "update_service.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <memory>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace fs = std::filesystem;

static void sh(const std::string &script)
{
    EXPECT_EQ(system(("set -e\n" + script).c_str()), 0) << script;
}

static std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// The record as text: per disk its path and name, then its files by kind.
static std::string text_of(const udisk_info_t &info)
{
    std::string text;
    for (int i = 0; i < info.upath_num; i++) {
        const udisk_list_t &disk = info.upath[i];
        text += std::string(disk.udisk_path) + " <" + disk.udisk_name + ">";
        for (int j = 0; j < disk.imgfile.uimgfile_num; j++)
            text += std::string(" ") + disk.imgfile.uimgfile[j];
        text += " |";
        for (int j = 0; j < disk.backfile.ubackfile_num; j++)
            text += std::string(" ") + disk.backfile.ubackfile[j];
        text += " |";
        for (int j = 0; j < disk.rcfgfile.urcfgfile_num; j++)
            text += std::string(" ") + disk.rcfgfile.urcfgfile[j];
        text += "\n";
    }
    return text;
}

struct UdiskRun : testing::Test {
    static void SetUpTestSuite()
    {
        sh(R"(
            rm -rf /dev/disk /tmp/stats && mkdir -p /dev/disk/by-label
            for disk in sda1 sdb1 sdc1 sdd1; do
                mkdir -p /mnt/$disk && mount -t tmpfs -o size=150m tmpfs /mnt/$disk
            done
            printf '8 %d %s 1 2 3\n' 1 sda 2 sda1 3 sdb 4 sdb1 5 sdc1 > /tmp/stats
            mount --bind /tmp/stats /proc/diskstats
            ln -s ../../sda1 '/dev/disk/by-label/\xD6\xD0\xCE\xC4\x20A'
            ln -s ../../sdc1 /dev/disk/by-label/TEN
            touch /mnt/sda1/one.img /mnt/sda1/b.ubck /mnt/sda1/c.rcfgx /mnt/sda1/d.txt
            mkdir /mnt/sda1/sub && touch /mnt/sda1/sub/deep.img "/mnt/sda1/it's; a.img"
            touch /mnt/sdb1/.img
            for i in 0 1 2 3 4 5 6 7 8 9; do touch /mnt/sdc1/$i.img; done
        )");
    }

    static void TearDownTestSuite()
    {
        sh("umount /proc/diskstats /mnt/sda1 /mnt/sdb1 /mnt/sdc1 /mnt/sdd1");
    }
};

TEST_F(UdiskRun, InventoryAndItsMessage)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    ASSERT_EQ(get_udisk_all_info(info.get()), 0);
    const udisk_list_t &ten = info->upath[2];
    EXPECT_EQ(ten.imgfile.uimgfile_num, 8);
    std::string expected = text_of(*info);
    EXPECT_EQ(expected.substr(expected.find("/mnt/sdb1")).substr(0, 47),
              "/mnt/sdb1 <UsbDisk1> /mnt/sdb1/.img | |\n/mnt/sd");
    EXPECT_STREQ(info->upath[0].udisk_path, "/mnt/sda1");
    EXPECT_STREQ(info->upath[0].udisk_name, "\xE4\xB8\xAD\xE6\x96\x87 A") << "GB2312 with a blank";
    EXPECT_EQ(info->upath[0].imgfile.uimgfile_num, 2) << "not the one further down";
    EXPECT_EQ(info->upath[0].backfile.ubackfile_num, 1);
    EXPECT_STREQ(info->upath[0].rcfgfile.urcfgfile[0], "/mnt/sda1/c.rcfgx");
    EXPECT_STREQ(ten.udisk_name, "TEN");
    EXPECT_EQ(info->upath_num, 3) << "sdd1 is mounted, but its device is gone";

    EXPECT_EQ(sendmsg_udisk_all_info(), 0) << "without a receiver the inventory's result";
    const std::string path = mailbox_of(0x010a3900).text;
    mkdir("/run/mailbox", 0755);
    const int box = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(box, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
    char name[] = "plugged in";
    EXPECT_EQ(sendmsg_ack_back(LABEL_UDISK, LABEL_UDISK_HOTPLUG, 7, name), 0);
    std::string message(20000, '\0');
    const ssize_t size = recv(box, message.data(), message.size(), MSG_DONTWAIT);
    close(box);
    unlink(path.c_str());
    ASSERT_EQ(size, 9616);
    EXPECT_EQ(message.substr(16, 8), std::string("\x02\0\x1d\0\x78\x25\0\0", 8));
    memcpy(info.get(), message.data() + 24, sizeof *info);
    EXPECT_EQ(text_of(*info), expected);
    EXPECT_EQ(info->event.ev, 7);
    EXPECT_STREQ(info->event.name, name);
}

struct Backup : UdiskRun {
    std::string disk = "/mnt/sda1";
    char file[256] = "";

    void SetUp() override
    {
        sh(R"(
            mkdir -p /mnt/root /usr/qrx310/etc/vsp/deep /usr/qrx310/etc/mcucored /usr/qrx310/etc/sysconf
            mount -t tmpfs -o size=200m /dev/root /mnt/root
            head -c 100000 /dev/urandom > /usr/qrx310/etc/vsp/deep/layout
            echo core > /usr/qrx310/etc/mcucored/conf
            ln -sf conf /usr/qrx310/etc/mcucored/link
            echo para > /usr/qrx310/etc/sysconf/qrxpara
            echo other > /usr/qrx310/etc/not_saved
            sysconfig set device_name unit7
        )");
    }

    void TearDown() override
    {
        sh("umount /mnt/root; rm -f /mnt/sda1/*.ubck /tmp/empty.conf; rm -rf /tmp/ubackup");
    }

    int backup()
    {
        strcpy(file, "untouched");
        return do_create_backup(disk.data(), file);
    }
};

TEST_F(Backup, Circle)
{
    ASSERT_EQ(backup(), 0);
    EXPECT_EQ(std::string(file).substr(0, 16), "/mnt/sda1/unit7_");
    EXPECT_EQ(std::string(file).size(), strlen("/mnt/sda1/unit7_202601020304.ubck"));
    EXPECT_FALSE(fs::exists("/tmp/ubackup"));
    EXPECT_EQ(fs::current_path(), "/tmp");
    const std::string first = read_file(file);
    EXPECT_EQ(first.substr(0, 4), "\x27\x05\x19\x66");

    sh(R"(
        cp -a /usr/qrx310 /tmp/saved
        echo changed > /usr/qrx310/etc/vsp/deep/layout
        rm /usr/qrx310/etc/mcucored/conf
        echo changed > /usr/qrx310/etc/not_saved
    )");
    char root[] = "/";
    EXPECT_EQ(do_update_backup(file, root), 0);
    sh("echo other > /usr/qrx310/etc/not_saved; diff -r --no-dereference /usr/qrx310 /tmp/saved; "
       "rm -r /tmp/saved");

    sh("echo new > /usr/qrx310/etc/vsp/deep/layout");
    char again[256];
    memcpy(again, file, sizeof again);
    for (int i = 0; i < 2 && (i == 0 || strcmp(again, file) != 0); i++) { // the minute may change
        memcpy(again, file, sizeof again);
        ASSERT_EQ(backup(), 0);
    }
    EXPECT_NE(read_file(file), first) << "the same name in the same minute";
}

TEST_F(Backup, Failures)
{
    disk = "/mnt/none";
    EXPECT_EQ(backup(), -11);
    fs::create_directory("/mnt/plain");
    disk = "/mnt/plain";
    EXPECT_EQ(backup(), -13) << "a directory that is no mount";
    disk = "/mnt/sda1";
    sh("head -c 60000000 /dev/zero > /mnt/sda1/filler");
    EXPECT_EQ(backup(), -13);
    sh("rm /mnt/sda1/filler; head -c 120000000 /dev/zero > /mnt/root/filler");
    EXPECT_EQ(backup(), -12);
    EXPECT_FALSE(fs::exists("/tmp/ubackup"));
    sh("rm /mnt/root/filler; mv /etc/sysconfig /etc/sysconfig.away");
    EXPECT_EQ(backup(), -1) << "no configuration";
    EXPECT_TRUE(fs::exists("/tmp/ubackup")) << "the scratch tree stays";
    sh("mv /etc/sysconfig.away /etc/sysconfig");
    EXPECT_STREQ(file, "untouched");

    // The disk is pulled while the backup is built: between its first test and the copy.
    sh(R"(
        mv /bin/date /bin/date.real
        printf '#!/bin/sh\numount -l /mnt/sda1; rmdir /mnt/sda1; exec /bin/date.real "$@"\n' > /bin/date
        chmod +x /bin/date
    )");
    EXPECT_EQ(backup(), -1);
    sh("mv /bin/date.real /bin/date; mkdir /mnt/sda1; mount -t tmpfs -o size=150m tmpfs /mnt/sda1");
    EXPECT_FALSE(fs::exists("/tmp/ubackup"));
    EXPECT_STREQ(file, "untouched");
    EXPECT_EQ(backup(), 0) << "the next backup runs normally";
}
