// The image builder: bytes, types, what is left out, and builds that fail.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/create_image.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update_header.h"

#include <csignal>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

struct Create : Recorded {
    void SetUp() override
    {
        Recorded::SetUp();
        fs::create_directory(dir + "/nand");
        ASSERT_EQ(chdir(dir.c_str()), 0);
    }

    static int create(std::string top, int place = 2, const char *to_dir = nullptr,
                      const char *version = nullptr)
    {
        std::string to = to_dir != nullptr ? to_dir : "";
        std::string v = version != nullptr ? version : "";
        // The image stands beside the tree, wherever the tree is.
        std::string out = rec.dir + ".img";
        return do_create(top.data(), ONLINE_MODE, out.data(), place,
                         to_dir != nullptr ? to.data() : nullptr,
                         version != nullptr ? v.data() : nullptr);
    }

    static std::string image()
    {
        return read_file(rec.dir + ".img");
    }

    void TearDown() override
    {
        fs::remove(dir + ".img");
        Recorded::TearDown();
    }

    // "name type data" of each entry, sorted.
    static std::string entries()
    {
        std::map<std::string, std::string> sorted;
        for (const test_entry &entry : parse_entries(image()))
            sorted[entry.name] = std::to_string(entry.type) + " " + entry.data;
        std::string text;
        for (const auto &[name, rest] : sorted)
            text += name + " " + rest + "\n";
        return text;
    }

    static uint32_t number(size_t offset)
    {
        uint32_t value = 0;
        for (size_t i = 0; i < 4; i++)
            value = value << 8 | static_cast<unsigned char>(image().at(offset + i));
        return value;
    }
};

TEST_F(Create, AllBytesOfASmallImage)
{
    write_file_text("nand/a", "ABC");
    const uint32_t before = static_cast<uint32_t>(time(nullptr));
    EXPECT_EQ(create("./nand"), 0);
    const uint32_t after = static_cast<uint32_t>(time(nullptr));
    const std::string body = std::string("nand/a\0\0\0\0\0\3", 12) + "ABC";
    test_header header;
    header.time = number(16);
    header.crc = reference_crc(body);
    EXPECT_GE(header.time, before);
    EXPECT_LE(header.time, after);
    EXPECT_EQ(image(), image_around(body, 1, header));
}

// The page's dump is of the same tree, but for the time and the order of the entries.
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
        unsigned int byte = 0;
        for (int i = 0; i < 16 && sscanf(line.c_str() + 8 + 3 * i, "%2x", &byte) == 1 &&
                        line[static_cast<size_t>(8 + 3 * i)] != ' ';
             i++)
            page.at(at++) = static_cast<char>(byte);
    }
    EXPECT_EQ(rows, 11);
    write_file_text("nand/bin/a", "ABC");
    fs::create_symlink("bin/a", "nand/l");
    EXPECT_EQ(create("./nand", 1, nullptr, "V2"), 0);
    std::string built = image();
    const std::vector<test_entry> shown = parse_entries(page);
    EXPECT_EQ(shown.size(), 2U);
    EXPECT_EQ(entries(),
              shown.at(0).name + " 0 " + shown[0].data + "\n" + shown.at(1).name + " 4 \n");
    EXPECT_EQ(page.substr(4, 4), be32(reference_crc(page.substr(488))));
    EXPECT_EQ(page.substr(16, 4), be32(1767323045));
    for (const size_t field : {4U, 16U})
        built.replace(field, 4, page.substr(field, 4));
    EXPECT_EQ(page.substr(0, 488), built.substr(0, 488));
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
    EXPECT_NE(shown.find("    file name is Golden_Vpu.bin \n    find self files ,type is 30 \n"),
              std::string::npos);
    EXPECT_NE(shown.find("  find uboot bin... \n"), std::string::npos);
    EXPECT_NE(shown.find("  find kernel bin... \n"), std::string::npos);

    fs::rename("nand/vorn-kernel", "vorn-kernel");
    EXPECT_EQ(create("./vorn-kernel"), 0);
    EXPECT_EQ(entries(), "vorn-kernel/sub/zImage 0 0\nvorn-kernel/zImage 0 k\n"
                         "vorn-kernel/zz 0 after sub\n")
        << "the top directory has no name to the walk";
}

TEST_F(Create, EmptyTrees)
{
    fs::create_directories("nand/a/b");
    fs::create_directories("nand/c");
    write_file_text("nand/empty", "");
    EXPECT_EQ(create("nand"), 0);
    test_header header;
    header.time = number(16);
    header.dirs = 3;
    EXPECT_EQ(image(), image_around("", 0, header));
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
    const std::string absolute = dir.substr(1) + "/nand/";
    const struct {
        std::string top, names, update_dir;
    } rows[] = {
        {"nand", ".h 0 h\n.l;bin/x 4 \nbin/x 0 x\n", "nand"},
        {"nand//", "/.h 0 h\n/.l;bin/x 4 \n/bin/x 0 x\n", "nand"},
        {"./nand/", "nand/.h 0 h\nnand/.l;bin/x 4 \nnand/bin/x 0 x\n", "nand"},
        {dir + "/nand",
         absolute + ".h 0 h\n" + absolute + ".l;bin/x 4 \n" + absolute + "bin/x 0 x\n", "nand"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(create(row.top), 0);
        EXPECT_EQ(entries(), row.names) << row.top;
        EXPECT_EQ(std::string(image().c_str() + 296), row.update_dir) << row.top;
    }
    ASSERT_EQ(chdir("nand"), 0);
    for (const int place : {2, 3}) {
        EXPECT_EQ(create(".", place, "/to"), 0);
        EXPECT_EQ(entries(), ".h 0 h\n.l;bin/x 4 \nbin/x 0 x\n");
        EXPECT_STREQ(image().c_str() + 296, ".");
    }
}

TEST_F(Create, HeaderTextsAreCutAt63Characters)
{
    const std::string text(70, 'v');
    const std::string cut(63, 'v');
    fs::rename("nand", text);
    EXPECT_EQ(create(text, 3, text.c_str(), text.c_str()), 0);
    test_header header;
    header.time = number(16);
    header.place = 3;
    header.dest_dir = header.update_dir = header.version = cut;
    EXPECT_EQ(image(), image_around("", 0, header));

    EXPECT_EQ(create(text, 77, "/to", ""), 0);
    header.time = number(16);
    header.place = 77;
    header.dest_dir = header.version = "";
    EXPECT_EQ(image(), image_around("", 0, header)) << "an empty version is none";
    EXPECT_TRUE(rec.has("log print_image_hdr:    Firmware Version : "));
    EXPECT_EQ(rec.all("log").substr(0, 200).find("crc32_img_body:  start|crc32_img_body:  mmap|"
                                                 "crc32_img_body:  linuxcrc32|crc32_img_body:  "
                                                 "munmap|crc32_img_body:  end|"),
              0U);
}

TEST_F(Create, SameTreeSameImage)
{
    for (int i = 0; i < 30; i++)
        write_file_text("nand/d" + std::to_string(i) + "/f",
                        std::string(5000, static_cast<char>(i)));
    EXPECT_EQ(create("nand"), 0);
    std::string first = image();
    EXPECT_EQ(create("nand"), 0);
    std::string second = image();
    first.replace(16, 4, 4, '\0');
    second.replace(16, 4, 4, '\0');
    EXPECT_EQ(first, second);
}

TEST_F(Create, WhatCannotBePacked)
{
    const std::string out = dir + ".img";
    EXPECT_EQ(create("missing"), -1);
    EXPECT_EQ(create(""), -1);
    EXPECT_FALSE(fs::exists(out));
    EXPECT_EQ(rec.lines.size(), 0U);
    fs::create_symlink("nand", "link");
    EXPECT_EQ(create("link"), -1) << "a link to a directory is none";
    EXPECT_TRUE(rec.has("log do_create: error: not Directories link "));
    EXPECT_EQ(create("nand", 3, nullptr), -1) << "place 3 without a directory";
    EXPECT_FALSE(fs::exists(out));

    fs::create_directory(out);
    EXPECT_EQ(create("nand"), -1);
    EXPECT_TRUE(rec.has("log do_create: Can't open " + out + ": Is a directory"));
    fs::remove(out);

    std::string top = dir;
    for (size_t len = 1021 - dir.size(); len > 0; len -= std::min<size_t>(len, 201))
        top += "/" + std::string(std::min<size_t>(len, 201) - 1, 'd');
    ASSERT_EQ(top.size(), 1021U);
    fs::create_directories(top + "x");
    write_file_text(top + "/f", "x");
    EXPECT_EQ(create(top), 0) << "just short enough to be listed";
    EXPECT_EQ(number(20), 1U);
    EXPECT_EQ(create(top + "x"), -1);
    EXPECT_EQ(create(top + "xyz"), -1);
}

TEST_F(Create, AnUnlistableSubdirectoryEndsItsParentsListing)
{
    std::string deep = dir + "/nand/top/in";
    while (deep.size() < 1021)
        deep += "/" + std::string(std::min<size_t>(200, 1022 - deep.size() - 1), 'd');
    fs::create_directories(deep);
    write_file_text("nand/beside", "x");
    EXPECT_EQ(create(dir + "/nand"), 0);
    EXPECT_EQ(entries(), dir.substr(1) + "/nand/beside 0 x\n");
}

TEST_F(Create, AFullDiskLeavesAnImageThatEveryReaderRefuses)
{
    for (int i = 0; i < 20; i++)
        write_file_text("nand/f" + std::to_string(i), std::string(1000, 'x'));
    ASSERT_EQ(create("./nand"), 0);
    const size_t whole = image().size();
    rlimit limit;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
    signal(SIGXFSZ, SIG_IGN);
    for (const size_t room : {0U, 100U, 488U, 490U, 502U, 900U, 5000U}) {
        rec.lines.clear();
        const rlimit tight = {room, limit.rlim_max};
        setrlimit(RLIMIT_FSIZE, &tight);
        const int result = create("./nand");
        setrlimit(RLIMIT_FSIZE, &limit);
        EXPECT_EQ(result, -1) << room;
        EXPECT_LT(image().size(), whole);
        EXPECT_NE(rec.all("trace").find("File too large"), std::string::npos) << room;
        if (room >= 488) {
            EXPECT_EQ(number(12), 0x27051966U) << "the magic number is no size";
        }
    }
    signal(SIGXFSZ, SIG_DFL);
}

TEST_F(Create, TheCrcIsNotStoredIfItCannotBeComputed)
{
    uint32_t crc = 7;
    EXPECT_EQ(crc32_img_body(-1, 489, &crc), -1);
    EXPECT_EQ(crc, 7U);
    EXPECT_EQ(rec.all("log"), "crc32_img_body:  start|crc32_img_body:  mmap|crc32_img_body: mmap "
                              "error!!\n|crc32_img_body:  end");
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
