// USB disks with the real tools, in the sandbox: disks are file systems below /mnt/, in front of a
// list of devices and labels that is laid over the machine's own.
#include "tests/real_platform.h"
#include "update_service.h"

#include <cstring>
#include <memory>

namespace fs = std::filesystem;

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
    EXPECT_EQ(get_udisk_all_info(info.get()), 0);
    EXPECT_EQ(info->upath_num, 3) << "sdd1 is mounted, but its device is gone";
    const udisk_list_t *const disk = info->upath;
    EXPECT_STREQ(disk[0].udisk_path, "/mnt/sda1");
    EXPECT_STREQ(disk[0].udisk_name, "\xE4\xB8\xAD\xE6\x96\x87 A") << "GB2312 with a blank";
    EXPECT_EQ(disk[0].imgfile.uimgfile_num, 2) << "not the one further down";
    EXPECT_STREQ(disk[0].backfile.ubackfile[0], "/mnt/sda1/b.ubck");
    EXPECT_STREQ(disk[0].rcfgfile.urcfgfile[0], "/mnt/sda1/c.rcfgx");
    EXPECT_STREQ(disk[1].udisk_name, "UsbDisk1");
    EXPECT_STREQ(disk[1].imgfile.uimgfile[0], "/mnt/sdb1/.img");
    EXPECT_STREQ(disk[2].udisk_name, "TEN");

    EXPECT_EQ(sendmsg_udisk_all_info(), 0) << "without a receiver the inventory's result";
    const std::string path = mailbox_of(0x010a3900).text;
    const int box = bind_mailbox(path);
    info->event = {7, "plugged in"};
    EXPECT_EQ(sendmsg_ack_back(LABEL_UDISK, LABEL_UDISK_HOTPLUG, 7, info->event.name), 0);
    EXPECT_EQ(received(box),
              std::string(16, '\0') + std::string("\x02\0\x1d\0\x78\x25\0\0", 8) +
                  std::string(reinterpret_cast<const char *>(info.get()), sizeof *info));
    close(box);
    unlink(path.c_str());
}

struct Backup : UdiskRun {
    char file[256] = "untouched";

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
        sh("umount /mnt/root; rm -rf /mnt/sda1/*.ubck /tmp/ubackup");
    }

    int backup(std::string disk = "/mnt/sda1")
    {
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
}

// Of the real df the lines of the disk and of the root file system are taken.
TEST_F(Backup, Failures)
{
    fs::create_directory("/mnt/plain");
    EXPECT_EQ(backup("/mnt/plain"), -13) << "a directory that is no mount";
    sh("head -c 60000000 /dev/zero > /mnt/sda1/filler");
    EXPECT_EQ(backup(), -13);
    sh("rm /mnt/sda1/filler; head -c 120000000 /dev/zero > /mnt/root/filler");
    EXPECT_EQ(backup(), -12);
    sh("rm /mnt/root/filler");
    EXPECT_STREQ(file, "untouched");
    EXPECT_EQ(backup(), 0);
}
