// The image builder: bytes, types, what is left out, and builds that fail.
#include "tests/recording_platform.h"

#include "platform/platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/create_image.h"
#include "update/dtt_create/tree_walk.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update_header.h"

#include <arpa/inet.h>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>

namespace fs = std::filesystem;

struct Create : Recorded {
    std::string out; // the image, beside the tree, wherever the tree is
    time_t start = 0;

    void SetUp() override
    {
        Recorded::SetUp();
        out = dir + ".img";
        fs::create_directory(dir + "/nand");
        ASSERT_EQ(chdir(dir.c_str()), 0);
    }

    void TearDown() override
    {
        fs::remove(out);
        Recorded::TearDown();
    }

    int create(std::string top, int place = 2, const char *to_dir = nullptr,
               const char *version = nullptr)
    {
        start = time(nullptr);
        return do_create(top.data(), ONLINE_MODE, out.data(), place, const_cast<char *>(to_dir),
                         const_cast<char *>(version));
    }

    std::string image() const
    {
        return read_file(out);
    }

    // "name type data" of each entry, sorted.
    std::string entries() const
    {
        std::map<std::string, std::string> sorted;
        for (const test_entry &entry : parse_entries(image()))
            sorted[entry.name] = std::to_string(entry.type) + " " + entry.data;
        std::string text;
        for (const auto &[name, rest] : sorted)
            text += name + " " + rest + "\n";
        return text;
    }

    uint32_t number(size_t offset) const
    {
        uint32_t value = 0;
        image().copy(reinterpret_cast<char *>(&value), sizeof value, offset);
        return ntohl(value);
    }

    // A header of the time in the image, which is that of its build.
    test_header header_of_now() const
    {
        test_header header;
        header.time = number(16);
        const time_t built = static_cast<time_t>(header.time);
        EXPECT_TRUE(start <= built && built <= time(nullptr)) << built;
        return header;
    }

    // Makes a directory whose path has `size` characters.
    std::string deep(size_t size) const
    {
        std::string path = dir + "/nand/top";
        while (path.size() < size)
            path += "/" + std::string(std::min<size_t>(200, size - path.size() - 1), 'd');
        EXPECT_EQ(path.size(), size);
        fs::create_directories(path);
        return path;
    }
};

// Each build begins with counts of its own.
TEST_F(Create, AllBytesOfASmallImage)
{
    write_file_text("nand/a", "ABC");
    EXPECT_EQ(create("./nand"), 0);
    const std::string body = std::string("nand/a\0\0\0\0\0\3", 12) + "ABC";
    test_header header = header_of_now();
    header.crc = reference_crc(body);
    EXPECT_EQ(image(), image_around(body, 1, header));
    EXPECT_EQ(rec.all("log").find("crc32_img_body:  start|crc32_img_body:  mmap|crc32_img_body:  "
                                  "linuxcrc32|crc32_img_body:  munmap|crc32_img_body:  end|"),
              0U);

    fs::create_directories("nand/b/c");
    fs::create_directories("nand/d");
    write_file_text("nand/a", "");
    EXPECT_EQ(create("nand"), 0);
    header = header_of_now();
    header.dirs = 3;
    EXPECT_EQ(image(), image_around("", 0, header)) << "nothing in it";

    const std::string text(70, 'v');
    fs::create_directory(text);
    EXPECT_EQ(create(text, 3, text.c_str(), text.c_str()), 0);
    header = header_of_now();
    header.place = 3;
    header.dest_dir = header.update_dir = header.version = std::string(63, 'v');
    EXPECT_EQ(image(), image_around("", 0, header)) << "texts are cut";

    EXPECT_EQ(create(text, 77, "/to", ""), 0);
    header.time = number(16);
    header.place = 77;
    header.dest_dir = header.version = "";
    EXPECT_EQ(image(), image_around("", 0, header)) << "an empty version is none";
    EXPECT_TRUE(rec.has("log print_image_hdr:    Firmware Version : "));
}

TEST_F(Create, TheExampleOfTheFormatPage)
{
    std::string page(525, '\0');
    std::ifstream doc(std::string(SOURCE_DIR) + "/docs/image_format.md");
    int rows = 0;
    for (std::string line; std::getline(doc, line);) {
        unsigned int at = 0;
        int used = 0;
        if (sscanf(line.c_str(), "%6x %n", &at, &used) != 1 || used != 8)
            continue;
        rows++;
        std::istringstream bytes(line.substr(8, 48));
        for (unsigned int byte = 0; bytes >> std::hex >> byte;)
            page.at(at++) = static_cast<char>(byte);
    }
    EXPECT_EQ(rows, 11);
    test_header header;
    header.crc = reference_crc(page.substr(488));
    header.dirs = 1;
    header.time = 1767323045;
    header.place = 1;
    header.version = "V2";
    EXPECT_EQ(page, image_bytes({{"nand/bin/a", 0, "ABC"}, {"nand/l;bin/a", 4, ""}}, header));
    write_file_text("nand/bin/a", "ABC");
    fs::create_symlink("bin/a", "nand/l");
    EXPECT_EQ(create("./nand", 1, nullptr, "V2"), 0);
    EXPECT_EQ(entries(), "nand/bin/a 0 ABC\nnand/l;bin/a 4 \n");
}

TEST_F(Create, TypesByNameAndDirectory)
{
    write_file_text("nand/vorn-kernel/zImage", "k");
    write_file_text("nand/vorn-kernel/sub/zImage", "0");
    write_file_text("nand/x/vorn-uboot/u.bin", "u");
    write_file_text("nand/x/vorn-uboot/App_VPUCard.bin", "24");
    write_file_text("nand/App_inputCard.bin", "22");
    write_file_text("nand/golden_vpu.bin", "0");
    write_file_text("nand/.hidden/Golden_Vpu.bin", "30");
    write_file_text("nand/vorn-kernel/zz", "after sub");
    EXPECT_EQ(create("./nand"), 0);
    EXPECT_EQ(entries(), "nand/.hidden/Golden_Vpu.bin 30 30\n"
                         "nand/App_inputCard.bin 22 22\n"
                         "nand/golden_vpu.bin 0 0\n"
                         "nand/vorn-kernel/sub/zImage 0 0\n"
                         "nand/vorn-kernel/zImage 5 k\n"
                         "nand/vorn-kernel/zz 5 after sub\n"
                         "nand/x/vorn-uboot/App_VPUCard.bin 24 24\n"
                         "nand/x/vorn-uboot/u.bin 7 u\n");
    EXPECT_EQ(number(8), 5U) << "directories";
    EXPECT_EQ(number(20), 8U) << "entries";
    const std::string shown = console();
    for (const char *text : {"    file name is Golden_Vpu.bin \n    find self files ,type is 30 \n",
                             "  find uboot bin... \n", "  find kernel bin... \n"})
        EXPECT_NE(shown.find(text), std::string::npos) << text;

    EXPECT_EQ(create("./nand/vorn-kernel"), 0);
    EXPECT_EQ(entries(), "nand/vorn-kernel/sub/zImage 0 0\nnand/vorn-kernel/zImage 0 k\n"
                         "nand/vorn-kernel/zz 0 after sub\n")
        << "the top directory has no name to the walk";
}

TEST_F(Create, Links)
{
    write_file_text("nand/file", "x");
    write_file_text("nand/empty", "");
    fs::create_symlink("file", "nand/to_file");
    fs::create_symlink("/", "nand/to_root");
    fs::create_symlink("empty", "nand/to_empty");
    fs::create_symlink("gone", "nand/dangling");
    fs::create_symlink("nand/file;", "nand/odd"); // can't be opened either
    ASSERT_EQ(mkfifo("pipe", 0600), 0);
    fs::create_symlink("../pipe", "nand/to_pipe"); // must not be waited for
    // Path, ';' and target: 127 characters fit, 128 do not.
    const std::string fits = std::string(127 - strlen("./nand/;file"), 'f');
    fs::create_symlink("file", "nand/" + fits);
    fs::create_symlink("file", "nand/" + fits + "f");
    EXPECT_EQ(create("./nand"), 0);
    EXPECT_EQ(entries(), "nand/" + fits + ";file 4 \n" + "nand/file 0 x\nnand/to_file;file 4 \n" +
                             "nand/to_root;/ 4 \n");
    EXPECT_EQ(number(20), 4U);
    EXPECT_TRUE(rec.has("trace unable to open `./nand/dangling'\n"));
    EXPECT_TRUE(
        rec.has("trace link left out, path and target too long: `./nand/" + fits + "f;file'\n"));
}

TEST_F(Create, NamesForEveryKindOfTopDirectory)
{
    write_file_text("nand/bin/x", "x");
    write_file_text("nand/.h", "h");
    fs::create_symlink("bin/x", "nand/.l");
    const struct {
        std::string top, head, update_dir;
        int place = 2;
    } rows[] = {{"nand", "", "nand"},
                {"nand//", "/", "nand"},
                {"./nand/", "nand/", "nand"},
                {dir + "/nand", dir.substr(1) + "/nand/", "nand"},
                {".", "", "."},
                {".", "", ".", 3}};
    for (const auto &[top, head, update_dir, place] : rows) {
        if (top == ".") {
            ASSERT_EQ(chdir((dir + "/nand").c_str()), 0);
        }
        EXPECT_EQ(create(top, place, "/to"), 0);
        EXPECT_EQ(entries(), head + ".h 0 h\n" + head + ".l;bin/x 4 \n" + head + "bin/x 0 x\n");
        EXPECT_EQ(std::string(image().c_str() + 296), update_dir) << top;
    }
}

// Whatever `path` is, which may be longer than the link's text.
TEST_F(Create, ALinksNameComesFromItsText)
{
    const std::string path = dir + "/" + std::string(200, 'f');
    write_file_text(path, "x");
    const std::pair<std::string, std::string> rows[] = {{"l;t", "l;t"},
                                                        {"a/.l;bin/x", ".l;bin/x"},
                                                        {"/a/l;../x", "a/l;../x"},
                                                        {"a/.b;c/l;x", "l;x"}};
    for (const auto &[text, name] : rows) {
        const int fd = open(out.c_str(), O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        begin_image();
        EXPECT_EQ(write_file(fd, 4, path.c_str(), std::string(text).c_str()), 0);
        EXPECT_EQ(image(), name + std::string("\0\4\0\0\0\0", 6));
        close(fd);
    }
}

TEST_F(Create, WhatCannotBePacked)
{
    fs::create_symlink("nand", "link"); // a link to a directory is none
    fs::create_directory("full");
    fs::create_directory("full.img");
    fs::create_symlink("/dev/full", "full/img");
    const struct {
        std::string top, image;
        int place, error;
        std::string line;
    } rows[] = {
        {"missing", out, 2, ENOENT, ""},
        {"", out, 2, ENOENT, ""},
        {"link", out, 2, ENOTDIR, "log do_create: error: not Directories link "},
        {"nand", out, 3, EINVAL, "trace error: no target directory for place 3\n"},
        {"nand", "full.img", 2, EISDIR, "log do_create: Can't open full.img: Is a directory"},
        {"nand", "full/img", 2, ENOSPC, ""},
    };
    for (const auto &[top, image, place, error, line] : rows) {
        rec.lines.clear();
        EXPECT_EQ(do_create(std::string(top).data(), ONLINE_MODE, std::string(image).data(), place,
                            nullptr, nullptr),
                  -1);
        EXPECT_EQ(errno, error) << top << image;
        EXPECT_EQ(rec.lines, std::vector<std::string>(line.empty() ? 0 : 1, line));
    }
    EXPECT_FALSE(fs::exists(out));

    // No size to map, and one without room for a header, whose body would end ahead of it.
    const int image = open("nand", O_RDONLY | O_CLOEXEC);
    write_file_text("./short", std::string(487, 's'));
    const int header = open("short", O_RDONLY | O_CLOEXEC);
    for (const auto &[fd, size, error] : {std::tuple(image, 489, ENODEV), {header, 487, EINVAL}}) {
        uint32_t crc = 7;
        rec.lines.clear();
        EXPECT_EQ(crc32_img_body(fd, static_cast<uint32_t>(size), &crc), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(crc, 7U) << "not stored if it can't be computed";
        EXPECT_EQ(rec.all("log"), "crc32_img_body:  start|crc32_img_body:  mmap|crc32_img_body: "
                                  "mmap error!!\n|crc32_img_body:  end");
        close(fd);
    }
}

TEST_F(Create, AnUnlistableSubdirectoryEndsItsParentsListing)
{
    const std::string longest = deep(1021);
    write_file_text(longest + "/f", "x");
    write_file_text(longest + "/no", "x");
    EXPECT_EQ(create(longest), 0) << "just short enough to be listed";
    EXPECT_EQ(number(20), 1U);
    for (const size_t size : {1022U, 1024U}) {
        rec.lines.clear();
        EXPECT_EQ(create(deep(size)), -1);
        EXPECT_EQ(errno, ENAMETOOLONG);
        EXPECT_EQ(rec.lines.size(), 0U);
        EXPECT_EQ(image().size(), 488U) << "the image that stood there is gone";
    }

    // What is listed behind it is not in the image, what is listed ahead of it is.
    fs::remove_all("nand/top");
    const std::string parent = deep(833);
    for (const char *name : {"/a", "/b", "/c"})
        write_file_text(parent + name, "x");
    const std::string unlistable = deep(1022);
    for (const char *name : {"/e", "/f", "/g"})
        write_file_text(parent + name, "x");
    uint32_t ahead = 0;
    for (fs::directory_iterator item(parent); item->path() != unlistable; ++item)
        ahead++;
    EXPECT_EQ(create(parent), 0);
    EXPECT_EQ(number(20), ahead);
}

TEST_F(Create, AFullDiskLeavesAnImageThatEveryReaderRefuses)
{
    for (int i = 0; i < 20; i++)
        write_file_text("nand/f" + std::to_string(i), std::string(1000, 'x'));
    for (const size_t room : {0U, 100U, 488U, 490U, 502U, 900U, 5000U}) {
        rec.lines.clear();
        limit_files_at("log start", room); // until the next line, which tells of the failure
        rec.on_line = [limit = rec.on_line](const std::string &line) {
            limit(line);
            EXPECT_TRUE(line[0] == 'l' || rec.prefix.find(" write_file/") != std::string::npos);
        };
        aplog_printf(0, "imgdeploy", "start", "the build");
        EXPECT_EQ(create("./nand"), -1) << room;
        EXPECT_EQ(errno, EFBIG);
        aplog_printf(0, "imgdeploy", "end", "the build");
        EXPECT_EQ(image().size(), room);
        EXPECT_EQ(rec.all("trace").find("File too large") == std::string::npos, room < 488) << room;
        EXPECT_TRUE(room < 488 || number(12) == 0x27051966) << "the magic number is no size";
    }
    rec.on_line = nullptr;
    for (const char *target : {"/dev/full", "/dev/null"}) {
        arena ap = {};
        strcpy(ap.devpath, "./nand");
        total_file_nums = 0;
        const int fd = open(target, O_WRONLY | O_CLOEXEC);
        EXPECT_EQ(get_dirs_and_files(fd, &ap), target[5] == 'f' ? -1 : 0) << target;
        EXPECT_EQ(total_file_nums, target[5] == 'f' ? 0 : 20) << "nothing is left of a failure";
        close(fd);
    }
}

TEST_F(Create, AnImageOfTwoGibIsNotBuilt)
{
    write_file_text("nand/huge", "x");
    fs::resize_file("nand/huge", 0x7FFFFFFF - 488); // no room for its name
    EXPECT_EQ(create("./nand"), -1);
    EXPECT_EQ(number(12), 0x27051966U);
    EXPECT_TRUE(rec.has("trace image is incomplete at `./nand/huge': File too large\n"));
    EXPECT_EQ(image().size(), 488U);
}
