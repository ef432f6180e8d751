// What the apply engines are made of: the target directory search, and the boot and kernel
// installer with its commands, lines and results.
#include "tests/recording_platform.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/target_search.h"

#include <arpa/inet.h>
#include <climits>
#include <cstring>
#include <dirent.h>
#include <filesystem>
#include <linux/magic.h>
#include <memory>
#include <sys/vfs.h>

namespace fs = std::filesystem;

// The listings of some file systems tell no types. And where the whole machine would be searched,
// they end after so many items.
static bool types_are_told = true;
static int items_left = INT_MAX;
static int readings = 0;
static long file_system = 0; // to be told in place of the real one, if not 0

extern "C" ssize_t __real_getdents64(int fd, void *buffer, size_t size);
extern "C" ssize_t __wrap_getdents64(int fd, void *buffer, size_t size)
{
    readings++;
    const ssize_t read = __real_getdents64(fd, buffer, size);
    ssize_t end = 0;
    while (end < read && items_left-- > 0) {
        auto *const item = reinterpret_cast<dirent64 *>(static_cast<char *>(buffer) + end);
        if (!types_are_told)
            item->d_type = DT_UNKNOWN;
        end += item->d_reclen;
    }
    return read < 0 ? read : end;
}

extern "C" int FILE_CALL(__real_, fstatfs)(int fd, struct statfs *fs);
extern "C" int FILE_CALL(__wrap_, fstatfs)(int fd, struct statfs *fs)
{
    const int result = FILE_CALL(__real_, fstatfs)(fd, fs);
    if (file_system != 0)
        fs->f_type = static_cast<__fsword_t>(file_system);
    return result;
}

// The names are long enough not to stand in the random name of the test's directory, where the cut
// would be made.
struct TargetSearch : Recorded {
    // The result, and the path that is left in the state.
    static std::string search(const std::string &start, std::string name)
    {
        const std::unique_ptr<arena> ap(new arena{});
        strcpy(ap->devpath, start.c_str());
        const int result = _find_dir(ap.get(), name.data());
        return std::to_string(result) + (result == 0 ? std::string(" ") + ap->devpath : "");
    }
};

TEST_F(TargetSearch, DirectSubdirectoriesComeFirst)
{
    for (const char *path :
         {"alpha/deep/nand", "bravo/.conf", "bravo/bin", "zulu", "bravo/usrlocal"})
        fs::create_directories(dir + "/" + path);
    write_file_text(dir + "/nandfile", "");
    fs::create_symlink(dir + "/zulu", dir + "/nandlink");
    fs::create_symlink(dir, dir + "/zulu/loop");
    const std::pair<const char *, std::string> rows[] = {{"nand", "0 " + dir + "/alpha/deep/"},
                                                         {"deep", "0 " + dir + "/alpha/"},
                                                         {"zulu", "0 " + dir + "/"},
                                                         {".", "0 " + dir + "/bravo/"},
                                                         {"usr", "0 " + dir + "/bravo/"},
                                                         {"and", "1"},
                                                         {"nandl", "1"},
                                                         {"nandf", "1"}};
    for (const auto &[name, result] : rows) {
        types_are_told = true;
        ASSERT_EQ(search(dir, name), result) << name;
        types_are_told = false;
        ASSERT_EQ(search(dir + "/", name), result) << name;
    }
    EXPECT_EQ(search(dir, ""), "0 " + dir + "/") << "the first subdirectory of all";
    EXPECT_EQ(search(dir + "/missing", "a"), "-1");
    EXPECT_EQ(search("", "a"), "-1");
    fs::create_directories(dir + "/nand");
    fs::create_directories(dir + "/zz/nand");
    EXPECT_EQ(search(dir, "nand"), "0 " + dir + "/") << "ahead of those further down";
    // The cut is made at the first place in the path.
    fs::create_directories(dir + "/nand/nand");
    EXPECT_EQ(search(dir + "/nand", "nand"), "0 " + dir + "/");
    fs::create_directories(dir + "/xbranchx/branch");
    EXPECT_EQ(search(dir + "/xbranchx", "branch"), "0 " + dir + "/x");
}

// Directories without subdirectories are not opened where their links tell, and a listing is read
// no further than they do.
TEST_F(TargetSearch, ReadsTheListingsThatMayHoldSubdirectories)
{
    for (const char *path : {"alpha", "bravo", "delta/echo/golf", "hotel", "delta/india"})
        fs::create_directories(dir + "/" + path);
    write_file_text(dir + "/delta/file", "");
    struct stat st;
    ASSERT_EQ(stat(dir.c_str(), &st), 0);
    const std::pair<long, int> rows[] = {{TMPFS_MAGIC, st.st_nlink == 6 ? 3 : 16},
                                         {PROC_SUPER_MAGIC, 16}};
    for (const auto &[told, expected] : rows) {
        file_system = told;
        readings = 0;
        EXPECT_EQ(search(dir, "missing"), "1");
        EXPECT_EQ(readings, expected) << told;
        EXPECT_EQ(search(dir, "golf"), "0 " + dir + "/delta/echo/");
    }
    file_system = 0;
}

// The longest path that is still listed has 1021 characters. Behind it, and behind directories that
// can't be listed, the search goes on.
TEST_F(TargetSearch, AnyDepthStaysInsideThePath)
{
    std::string deep = dir;
    while (deep.size() < 1021)
        deep += "/" + std::string(std::min<size_t>(200, 1021 - deep.size() - 1), 'd');
    fs::create_directories(deep + "/x/yoke");
    fs::create_directories(deep + "d/x");
    ASSERT_EQ(deep.size(), 1021U);
    EXPECT_EQ(search(deep, "x").substr(0, 2), "0 ");
    EXPECT_EQ(search(deep + "d", "x"), "-1");
    EXPECT_EQ(search(dir, "x").substr(0, 2), "0 ");
    EXPECT_EQ(search(dir, "yoke"), "1");
    std::string levels = dir; // as many as there can be, and some more
    while (levels.size() < 1200)
        levels += "/e";
    fs::create_directories(levels);
    EXPECT_EQ(search(dir, "yoke"), "1");
}

TEST_F(TargetSearch, PlacesWithoutAHitGiveTheirOwnDirectory)
{
    char base_dir[PATH_SIZE];
    EXPECT_EQ(find_dir(nullptr, base_dir), -1);
    EXPECT_EQ(rec.lines.back(), "log find_dir: pheader is Null.");
    // Texts without terminators up to the end of its memory, where the sanitizers see a read.
    const std::unique_ptr<update_header_t> header(new update_header_t);
    memset(header.get(), 'q', sizeof *header);
    const std::pair<uint32_t, std::string> rows[] = {{1, "/"}, {2, "/nand"}, {0, ""},
                                                     {4, ""},  {5, ""},      {0x80000000, ""}};
    for (const auto &[place, directory] : rows) {
        items_left = 40; // from the root directory on
        header->ih_place = htonl(place);
        EXPECT_EQ(find_dir(header.get(), base_dir), 0);
        EXPECT_EQ(base_dir, directory);
        EXPECT_EQ(rec.lines.back(), "log find_dir: update dir is <" + directory + ">.");
    }
    EXPECT_STREQ(place2dir(3), "//");
    // An empty name matches the first directory of all.
    header->ih_update_dir[0] = '\0';
    header->ih_place = htonl(1);
    items_left = INT_MAX;
    EXPECT_EQ(find_dir(header.get(), base_dir), 0);
    EXPECT_STREQ(base_dir, "/");
}

// In the test's directory, so that the paths are short.
struct Installer : Recorded {
    void SetUp() override
    {
        Recorded::SetUp();
        ASSERT_EQ(chdir(dir.c_str()), 0);
        ker_img_num = 0;
        rec.run_result = 256; // an exit status of 1 is no failure
    }

    // The result and the lines, divided by '|'.
    static std::string install(int type, std::string path)
    {
        rec.lines.clear();
        std::string text = std::to_string(update_LinuxFile(type, path.data()));
        for (const std::string &line : rec.lines)
            text += "|" + line;
        return text;
    }

    static std::string command(const std::string &cmd)
    {
        return "|log update_LinuxFile: cmdstr: " + cmd + " \n\n|run " + cmd;
    }

    static std::string too_long(const std::string &path)
    {
        return "|log update_LinuxFile: command too long for <" + path + ">.";
    }
};

TEST_F(Installer, BootLoader)
{
    EXPECT_EQ(install(ENTRY_BOOT, "b/u.bin"), "0") << "a missing file is no failure";
    const std::string title = "|trace  ---------------------update uboot------------------\n";
    const std::string longest = "b/" + std::string(101, 'u'); // that the command has room for
    for (const std::string &path : {std::string("b/u.bin"), longest}) {
        write_file_text(path, "u");
        const std::string cmd = "dd if=" + path + " of=/dev/mmcblk0p1";
        const std::string written = title + "|trace  cmdstr=" + cmd + " \n" + command(cmd);
        rec.failing = "";
        EXPECT_EQ(install(ENTRY_BOOT, path), "0" + written + "|trace  update uboot ok .\n");
        rec.failing = "dd ";
        EXPECT_EQ(install(ENTRY_BOOT, path),
                  "-5" + written + "|log update_LinuxFile: update faild!!: <" + path + ">.\n");
    }
    write_file_text(longest + "u", "u");
    EXPECT_EQ(install(ENTRY_BOOT, longest + "u"), "-5" + title + too_long(longest + "u"));
    EXPECT_EQ(ker_img_num, 0);
}

TEST_F(Installer, KernelFiles)
{
    EXPECT_EQ(install(ENTRY_KERNEL, "k/zImage"), "0|trace  filename(k/zImage) can not access \n");
    const std::string longest = "zImage.d/" + std::string(97, 'f'); // that the command has room for
    for (const char *name : {"zImage", "my-extlinux.conf.old", "rk3288-tyx.dtb", "readme"})
        write_file_text(std::string("k/") + name, "k");
    write_file_text(longest, "k");
    write_file_text(longest + "f", "k");
    const std::string preparation = "|trace  ---------------------update kernel------------------\n"
                                    "|run  /bin/mkdir -p /mntker|run  /bin/rm -rf /mntker/*|run "
                                    "/bin/mount /dev/mmcblk0p6 /mntker/";
    const std::string prepared =
        "0" + preparation + "|trace  /bin/mount /dev/mmcblk1p6 /mntker/ success.\n";
    const auto counted = [](int count, const std::string &path) {
        return "|trace       kernel-" + std::to_string(count) + "(" + path + ") \n";
    };
    const auto copied = [&](int count, const std::string &path) {
        return counted(count, path) + command("/bin/cp " + path + " /mntker/ -rf");
    };
    EXPECT_EQ(install(ENTRY_KERNEL, "k/readme"), prepared) << "but nothing is copied";
    EXPECT_EQ(install(ENTRY_KERNEL, longest), prepared + copied(0, longest)) << "as none had been";
    int count = 1;
    for (const char *name : {"k/zImage", "k/my-extlinux.conf.old", "k/rk3288-tyx.dtb"})
        EXPECT_EQ(install(ENTRY_KERNEL, name), "0" + copied(count++, name));
    EXPECT_EQ(install(ENTRY_KERNEL, "k/readme"), "0");
    for (const int type : {0, 1, 4, 6, 22, 255})
        EXPECT_EQ(install(type, "k/zImage"), "0");
    EXPECT_EQ(install(ENTRY_KERNEL, longest + "f"),
              "-14" + counted(4, longest + "f") + too_long(longest + "f"));
    rec.failing = "/bin/cp";
    EXPECT_EQ(install(ENTRY_KERNEL, "k/zImage"),
              "-14" + copied(5, "k/zImage") +
                  "|log update_LinuxFile: /bin/cp k/zImage /mntker/ error. \n");
    EXPECT_EQ(ker_img_num, 6);
    ker_img_num = 0;
    rec.failing = "/bin/mount";
    EXPECT_EQ(install(ENTRY_KERNEL, "k/zImage"),
              "-14" + preparation +
                  "|log update_LinuxFile: /bin/mount /dev/mmcblk0p6 /mntker/ error. \n" +
                  copied(0, "k/zImage"))
        << "into the bare directory";
}

TEST_F(Installer, VersionIsTheFieldAndNoMore)
{
    update_header_t header = {};
    memset(header.ih_version, 'v', sizeof header.ih_version);
    EXPECT_EQ(update_fw_version(&header), 256);
    EXPECT_EQ(rec.all("run"), "sysconfig set fw_version " + std::string(64, 'v'));
}
