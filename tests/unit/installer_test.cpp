// The boot and kernel installer: commands, lines and results.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update/installer.h"

#include <cstring>
#include <unistd.h>

struct Installer : Recorded {
    void SetUp() override
    {
        Recorded::SetUp();
        ker_img_num = 0;
        rec.run_result = 256; // an exit status of 1 is no failure
    }

    int install(int type, std::string path)
    {
        rec.lines.clear();
        return update_LinuxFile(type, path.data());
    }
};

using lines = std::vector<std::string>;

TEST_F(Installer, BootLoader)
{
    const std::string path = dir + "/u.bin";
    EXPECT_EQ(install(ENTRY_BOOT, path), 0) << "a missing file is no failure";
    EXPECT_EQ(rec.lines, lines{});
    write_file_text(path, "u");
    EXPECT_EQ(install(ENTRY_BOOT, path), 0);
    const std::string cmd = "dd if=" + path + " of=/dev/mmcblk0p1";
    lines expected = {"trace  ---------------------update uboot------------------\n",
                      "trace  cmdstr=" + cmd + " \n",
                      "log update_LinuxFile: cmdstr: " + cmd + " \n\n", "run " + cmd,
                      "trace  update uboot ok .\n"};
    EXPECT_EQ(rec.lines, expected);
    rec.failing = "dd ";
    EXPECT_EQ(install(ENTRY_BOOT, path), -5);
    expected.back() = "log update_LinuxFile: update faild!!: <" + path + ">.\n";
    EXPECT_EQ(rec.lines, expected);
    EXPECT_EQ(ker_img_num, 0);
}

static const lines PREPARATION = {"trace  ---------------------update kernel------------------\n",
                                  "run  /bin/mkdir -p /mntker", "run  /bin/rm -rf /mntker/*",
                                  "run /bin/mount /dev/mmcblk0p6 /mntker/"};

static lines copy_lines(const std::string &path, int number)
{
    const std::string cmd = "/bin/cp " + path + " /mntker/ -rf";
    return {"trace       kernel-" + std::to_string(number) + "(" + path + ") \n",
            "log update_LinuxFile: cmdstr: " + cmd + " \n\n", "run " + cmd};
}

static lines joined(lines first, const lines &second)
{
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

TEST_F(Installer, KernelFiles)
{
    EXPECT_EQ(install(ENTRY_KERNEL, dir + "/zImage"), 0);
    EXPECT_EQ(rec.lines, lines{"trace  filename(" + dir + "/zImage) can not access \n"});

    lines prepared = joined(PREPARATION, {"trace  /bin/mount /dev/mmcblk1p6 /mntker/ success.\n"});
    for (const char *name :
         {"zImage", "zImage.d/other", "my-extlinux.conf.old", "rk3288-tyx.dtb", "readme"})
        write_file_text(dir + "/" + name, "k");
    EXPECT_EQ(install(ENTRY_KERNEL, dir + "/readme"), 0);
    EXPECT_EQ(rec.lines, prepared) << "prepared, but nothing is copied";
    EXPECT_EQ(ker_img_num, 0);
    EXPECT_EQ(install(ENTRY_KERNEL, dir + "/zImage.d/other"), 0);
    EXPECT_EQ(rec.lines, joined(prepared, copy_lines(dir + "/zImage.d/other", 0)))
        << "prepared as long as nothing has been copied";
    int number = 1;
    for (const char *name : {"zImage", "my-extlinux.conf.old", "rk3288-tyx.dtb"}) {
        EXPECT_EQ(install(ENTRY_KERNEL, dir + "/" + name), 0);
        EXPECT_EQ(rec.lines, copy_lines(dir + "/" + name, number++));
    }
    EXPECT_EQ(install(ENTRY_KERNEL, dir + "/readme"), 0);
    EXPECT_EQ(rec.lines, lines{});
    EXPECT_EQ(ker_img_num, 4);
    for (const int type : {0, 1, 4, 6, 22, 255}) {
        EXPECT_EQ(install(type, dir + "/zImage"), 0);
        EXPECT_EQ(rec.lines, lines{});
    }
}

TEST_F(Installer, KernelFailures)
{
    const std::string path = dir + "/zImage";
    write_file_text(path, "k");
    const std::string mount_error =
        "log update_LinuxFile: /bin/mount /dev/mmcblk0p6 /mntker/ error. \n";
    rec.failing = "/bin/mount";
    EXPECT_EQ(install(ENTRY_KERNEL, path), -14);
    EXPECT_EQ(rec.lines, joined(joined(PREPARATION, {mount_error}), copy_lines(path, 0)));
    EXPECT_EQ(ker_img_num, 1) << "copied into the bare directory";
    rec.failing = "/bin/cp";
    EXPECT_EQ(install(ENTRY_KERNEL, path), -14);
    EXPECT_EQ(rec.lines, joined(copy_lines(path, 1),
                                {"log update_LinuxFile: /bin/cp " + path + " /mntker/ error. \n"}));
    EXPECT_EQ(ker_img_num, 2);
}

// 103 and 106 characters fit the commands; one more does not, and nothing is run.
TEST_F(Installer, CommandsThatDoNotFitAreNotRun)
{
    const struct {
        int type;
        size_t longest;
        int code;
    } rows[] = {{ENTRY_BOOT, 103, -5}, {ENTRY_KERNEL, 106, -14}};
    for (const auto &row : rows) {
        const std::string head = dir + "/zImage/";
        const std::string fits = head + std::string(row.longest - head.size(), 'f');
        write_file_text(fits, "x");
        write_file_text(fits + "f", "x");
        ker_img_num = 1;
        EXPECT_EQ(install(row.type, fits), 0);
        EXPECT_NE(rec.all("run").find(fits), std::string::npos);
        EXPECT_EQ(install(row.type, fits + "f"), row.code);
        EXPECT_EQ(rec.all("run"), "");
        EXPECT_EQ(rec.all("log"), "update_LinuxFile: command too long for <" + fits + "f>.");
    }
}

TEST_F(Installer, VersionIsTheFieldAndNoMore)
{
    rec.run_result = 7;
    update_header_t header = {};
    memset(header.ih_version, 'v', sizeof header.ih_version);
    EXPECT_EQ(update_fw_version(&header), 7);
    EXPECT_EQ(rec.all("run"), "sysconfig set fw_version " + std::string(64, 'v'));
}

// A negative result ends the walk; only a run without failure records the version.
TEST_F(Installer, InAnApplyRun)
{
    const std::string image = dir + "/update.img";
    std::string base = dir + "/b";
    write_file_text(image, image_bytes({{"u", 7, "u"}, {"k/zImage", 5, "k"}, {"z", 0, "z"}}));
    const auto apply = [&](const std::string &failing) {
        rec.lines.clear();
        rec.failing = failing;
        std::string path = image;
        return do_update(path.data(), ONLINE_MODE, base.data());
    };
    for (int i = 0; i < 2; i++) {
        EXPECT_EQ(apply(""), 0);
        EXPECT_TRUE(rec.has("run /bin/mount /dev/mmcblk0p6 /mntker/")) << "each run prepares anew";
        EXPECT_TRUE(rec.has("run sysconfig set fw_version V1.0.0.0"));
    }
    unlink((base + "/z").c_str());
    EXPECT_EQ(apply("dd "), -5);
    EXPECT_FALSE(rec.has("run /bin/mount /dev/mmcblk0p6 /mntker/"));
    EXPECT_EQ(rec.block.failed_nums, 0) << "its file was written";
    EXPECT_EQ(rec.block.cur_nums, 0);
    EXPECT_EQ(apply("/bin/cp"), -14);
    EXPECT_EQ(rec.block.cur_nums, 1);
    EXPECT_EQ(rec.block.result, 2);
    EXPECT_FALSE(rec.has("run sysconfig set fw_version V1.0.0.0"));
    EXPECT_TRUE(rec.has("trace result = 2, update 1 file error !! \n"));
    EXPECT_NE(access((base + "/z").c_str(), F_OK), 0) << "nothing behind the failed entry";
}
