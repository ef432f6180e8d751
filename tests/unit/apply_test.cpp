// The apply engine over the recording platform: the story of a run, and every way in which it ends
// early.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update/image_reader.h"
#include "update/dtt_update_common/path_operations.h"
#include "update_header.h"

#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;

struct Apply : Recorded {
    std::string image;
    std::string base;

    void SetUp() override
    {
        Recorded::SetUp();
        setenv("TZ", "UTC", 1);
        image = dir + "/update.img";
        base = dir + "/base";
    }

    // Applies an image with these bytes to `base`.
    int apply(const std::string &bytes, int mode = ONLINE_MODE)
    {
        write_file_text(image, bytes);
        return do_update(image.data(), mode, base.data());
    }

    int apply(const std::vector<test_entry> &entries)
    {
        return apply(image_bytes(entries));
    }

    std::string tree() const
    {
        return fs::exists(base) ? tree_text(base) : "";
    }
};

static std::string block_text()
{
    const upgrade_info_t &b = rec.block;
    return std::to_string(b.file_nums) + " " + std::to_string(b.cur_nums) + " " +
           std::to_string(b.result) + " " + std::to_string(b.cur_percent) + " " +
           std::to_string(b.failed_nums);
}

TEST_F(Apply, StoryOfARun)
{
    std::vector<std::string> states;
    rec.on_line = [&states](const std::string &) {
        if (states.empty() || states.back() != block_text())
            states.push_back(block_text());
    };
    const std::string bytes = image_bytes({{"nand/a", 0, "ABC"},
                                           {"nand/d/l;../a", 4, ""},
                                           {"nand/e", 1, ""},
                                           {"nand/odd", 200, std::string(10000, 'o')}});
    EXPECT_EQ(apply(bytes), 0);
    EXPECT_EQ(tree(), "nand/a = ABC\nnand/d/l -> ../a\nnand/e/\nnand/odd = " +
                          std::string(10000, 'o') + "\n");

    const std::string log = "log do_update: ";
    std::vector<std::string> expected = {
        "trace in fun do_update  ! \n",
        log + " start",
        "trace upgrade_info_t-4 size is 16Bytes \n",
        "log attach_shm:   start.",
        "shm get 0x600001 16 00",
        "shm get 0x600001 20 01600",
        "trace shm get_upgrade_info success!!",
        log + "get_upgrade_info success!! ",
        log + "\n now update_info->result = -1 ",
        "trace \n now update_info->result = -1 \n",
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
        "report",
        log + "start creat img.",
        "trace start creat img.\n",
        log + "\n now update_info->result = 0 ",
        "trace \n now update_info->result = 0 \n",
        "trace \n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n",
        "run /bin/mkdir -p " + base + "/nand",
        log + "(num-0)" + base + "/nand/a type(0), size(3)",
        "run /bin/mkdir -p " + base + "/nand/d",
        log + "(num-1)" + base + "/nand/d/l type(4), size(0)",
        "run cd /" + base + "/nand/d/ && /bin/ln -sf ../a l",
        "run /bin/mkdir -p " + base + "/nand/e",
        log + "(num-2)" + base + "/nand/e type(1), size(0)",
        log + "(num-3)" + base + "/nand/odd type(200), size(10000)",
        "trace \n\n\n\n\rround 2 --------update user file ....\n",
        log + " update_info->result = 0 (1:ok, 2:error). \n",
        "trace result = 1, update successful !! \n",
        "run sysconfig set fw_version V1.0.0.0",
        "run /bin/sync",
        log + " run rsync ok.",
        "usleep 20000",
        log + " end",
    };
    std::vector<std::string> got;
    for (const std::string &line : rec.lines) {
        const bool report = line.find("log print_image_hdr: ") == 0 || line.find("trace    ") == 0;
        if (report && got.back() != "report")
            got.push_back("report");
        if (!report)
            got.push_back(line);
    }
    EXPECT_EQ(got, expected);
    EXPECT_NE(console().find("(num-3)" + base + "/nand/odd type(200), size(10000)\n"),
              std::string::npos);
    EXPECT_EQ(states, (std::vector<std::string>{"7 7 7 7 7", "0 0 -1 0 0", "4 0 0 0 0", "4 1 0 0 0",
                                                "4 2 0 100 0", "4 2 0 0 0", "4 3 0 0 0",
                                                "4 4 0 100 0", "4 4 1 100 0"}));
}

TEST_F(Apply, ProgressBlock)
{
    rec.shm_exists = true;
    EXPECT_EQ(apply(std::vector<test_entry>{}), 0);
    EXPECT_EQ(rec.all("shm"), "get 0x600001 16 00") << "a peer's segment of 16 bytes is used";
    EXPECT_EQ(block_text(), "0 0 1 0 0");

    rec.shm_fails = true;
    rec.lines.clear();
    EXPECT_EQ(apply(image_bytes({}), REBOOT_MODE), -10);
    EXPECT_EQ(rec.all("run"), "") << "never reboots";
    EXPECT_EQ(rec.all("log"), "do_update:  start|attach_shm:   start.|do_update:  "
                              "get_upgrade_info Error .\n");
    EXPECT_TRUE(rec.has("trace update_info get from shm err!"));
}

TEST_F(Apply, ReplacesWhatStandsThereAndKeepsItForWhoHasItOpen)
{
    write_file_text(base + "/nand/a", "old and long");
    write_file_text(base + "/nand/l", "a file");
    const int old = open((base + "/nand/a").c_str(), O_RDONLY);
    EXPECT_EQ(apply({{"nand/a", 0, "new"}, {"nand/l;a", 4, ""}, {"l;/abs/x", 4, ""}}), 0);
    EXPECT_EQ(tree(), "l -> /abs/x\nnand/a = new\nnand/l -> a\n");
    char text[64] = "";
    EXPECT_EQ(read(old, text, sizeof text), 12);
    close(old);
}

TEST_F(Apply, BaseDirectory)
{
    const std::string asked = dir + "/asked";
    test_header header;
    header.place = 3;
    header.dest_dir = asked;
    const std::string bytes = image_bytes({{"a", 0, "x"}}, header);
    EXPECT_EQ(apply(bytes), 0) << "a forced directory wins";
    EXPECT_EQ(tree(), "a = x\n");

    EXPECT_EQ(do_update(image.data(), ONLINE_MODE, nullptr), -10) << "only a forced one is made";
    fs::create_directory(asked);
    const std::string with_line_feed = image + "\n";
    std::string path = with_line_feed;
    EXPECT_EQ(do_update(path.data(), ONLINE_MODE, nullptr), 0);
    EXPECT_STREQ(path.c_str(), image.c_str()) << "cut in the caller's text";
    EXPECT_EQ(tree_text(asked), "a = x\n");

    header.dest_dir = dir + "/" + std::string(256 - dir.size() - 1, 'd'); // no terminator
    fs::create_directory(header.dest_dir);
    write_file_text(image, image_bytes({{"a", 0, "x"}}, header));
    EXPECT_EQ(do_update(image.data(), ONLINE_MODE, nullptr), 0);
    EXPECT_EQ(tree_text(header.dest_dir), "a = x\n");

    std::string long_base = "/" + std::string(PATH_SIZE, 'b');
    EXPECT_EQ(do_update(image.data(), ONLINE_MODE, long_base.data()), -10);
}

TEST_F(Apply, RefusalsHaveTheirLinesAndNeverTouchTheBase)
{
    const std::string good = image_bytes({{"a", 0, "x"}});
    test_header bad_magic;
    bad_magic.magic = 0x66190527;
    const std::string missing = dir + "/missing";
    const struct {
        const char *what;
        std::string bytes;
        std::string log, trace;
    } rows[] = {
        {"empty", "", "fread update_header error.", "fread update_header error.\n"},
        {"short", good.substr(0, 487), "fread update_header error.",
         "fread update_header error.\n"},
        {"magic", image_bytes({{"a", 0, "x"}}, bad_magic),
         "Image Magic Number Error . ih_magic = 0x66190527 .",
         "error, update_header.ih_magic.\n|Image Magic Number Error . ih_magic = 0x66190527 ."},
        {"cut", good.substr(0, good.size() - 1),
         "Image size Error . img_size = 495 , ih_size = 496.",
         "error, update_header.ih_size. img_size = 495 , ih_size = 496.\n"},
        {"long", good + "y", "Image size Error . img_size = 497 , ih_size = 496.",
         "error, update_header.ih_size. img_size = 497 , ih_size = 496.\n"},
        {"never finished", good.substr(0, 12) + be32(0x27051966) + good.substr(16),
         "Image size Error . img_size = 496 , ih_size = 654645606.",
         "error, update_header.ih_size. img_size = 496 , ih_size = 654645606.\n"},
    };
    const std::string end = "|result = 2, update error !! \n";
    for (const auto &row : rows) {
        rec.lines.clear();
        EXPECT_EQ(apply(row.bytes), -10) << row.what;
        EXPECT_TRUE(rec.has("log do_update: " + row.log)) << row.what;
        const std::string traces = rec.all("trace");
        const std::string last = "|" + row.trace + end;
        EXPECT_EQ(traces.substr(traces.size() - std::min(traces.size(), last.size())), last);
        EXPECT_EQ(rec.all("run"), "") << row.what;
        EXPECT_EQ(block_text(), "0 0 2 0 0");
        EXPECT_EQ(rec.lines.back(), "log do_update:  end");
    }
    rec.lines.clear();
    std::string path = missing;
    EXPECT_EQ(do_update(path.data(), ONLINE_MODE, base.data()), -10);
    EXPECT_TRUE(rec.has("log do_update:  file not exist filename " + missing));
    EXPECT_TRUE(rec.has("trace error, access.\n"));
    EXPECT_EQ(do_update(nullptr, ONLINE_MODE, base.data()), -10);
    EXPECT_TRUE(rec.has("log do_update:  filename invalid filename (null)"));
    EXPECT_TRUE(rec.has("trace error, update_file is \n"));
    EXPECT_EQ(do_update(dir.data(), ONLINE_MODE, base.data()), -10) << "a directory";
    const std::string pipe = dir + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    path = pipe;
    EXPECT_EQ(do_update(path.data(), ONLINE_MODE, base.data()), -10) << "a pipe without a writer";

    rec.lines.clear();
    path = base + "/file/x";
    write_file_text(base + "/file", "");
    write_file_text(image, good);
    EXPECT_EQ(do_update(image.data(), ONLINE_MODE, path.data()), -10);
    EXPECT_TRUE(rec.has("log do_update: chdir(" + path + ") Failed"));
}

// Descriptors run out at the moment of the open; the mapping meets a descriptor that can't be
// mapped.
TEST_F(Apply, OpenAndMapFailures)
{
    const std::string bytes = image_bytes({{"a", 0, "x"}});
    exhaust_descriptors_at("log do_update: <do_update>");
    EXPECT_EQ(apply(bytes), -10);
    EXPECT_TRUE(rec.has("log do_update: open error filename " + image));
    EXPECT_TRUE(rec.has("trace open error filename.\n"));

    rec.lines.clear();
    unmappable_at("trace start creat img.\n", "update.img");
    EXPECT_EQ(apply(bytes), -3);
    EXPECT_EQ(rec.last(5), (std::vector<std::string>{"trace start creat img.\n",
                                                     "trace result = 2, update error !! \n",
                                                     "log do_update:  result = 2, update error !!",
                                                     "usleep 20000", "log do_update:  end"}));
    EXPECT_EQ(block_text(), "0 0 2 0 0");
}

TEST_F(Apply, RebootsWhateverTheOutcome)
{
    for (const std::string &bytes : {image_bytes({}), std::string("bad")}) {
        rec.lines.clear();
        apply(bytes, REBOOT_MODE);
        EXPECT_EQ(rec.last(5),
                  (std::vector<std::string>{"usleep 20000", "log do_update:  mode = 1; reboot !",
                                            "sleep 6", "run reboot -f", "log do_update:  end"}));
    }
    rec.lines.clear();
    for (const int mode : {0, 2, 3, -1})
        apply(image_bytes({}), mode);
    EXPECT_FALSE(rec.has("run reboot -f"));
}

// Each damage ends the run with the code of a failed copy before the first entry is written.
TEST_F(Apply, DamagedImagesAreFoundBeforeTheFirstEntry)
{
    const std::string good = entry_bytes({"good", 0, "x"});
    const std::string name1023(1023, 'n');
    const std::string dirs = std::string(100, 'a') + "/";
    const std::string deep = dirs + dirs + dirs + dirs + dirs + dirs; // over 497 characters
    const struct {
        const char *what;
        std::string body;
        uint32_t count;
    } rows[] = {
        {"fewer entries than counted", good, 2},
        {"no entry at all", "", 1},
        {"a huge count", good, 0xFFFFFFFF},
        {"a name without terminator", good + "name", 2},
        {"no type", good + std::string("name\0", 5), 2},
        {"half a size", good + std::string("name\0\0\0\0\0", 9), 2},
        {"data past the end", good + std::string("name\0\0\0\0\0\2x", 11), 2},
        {"a huge size", good + std::string("name\0\0\xFF\xFF\xFF\xFFx", 11), 2},
        {"a size of 2 GiB", good + std::string("name\0\0\x80\0\0\0x", 11), 2},
        {"climbs out", good + entry_bytes({"../x", 0, "x"}), 2},
        {"climbs out on its way", good + entry_bytes({"a/../../base/x", 0, "x"}), 2},
        {"climbs out behind slashes", good + entry_bytes({"//.//..", 0, "x"}), 2},
        {"a link climbs out", good + entry_bytes({"a/../../l;x", 4, ""}), 2},
        {"a path too long", good + entry_bytes({name1023, 0, "x"}), 2},
        {"a name too long", good + entry_bytes({name1023 + std::string(9000, 'n'), 0, "x"}), 2},
        {"a directory too long to be made", good + entry_bytes({deep + "x", 0, "x"}), 2},
        {"a directory that a shell would take apart", good + entry_bytes({"d /tmp/x", 0, "x"}), 2},
        {"a directory entry too long", good + entry_bytes({deep.substr(0, 500), 1, ""}), 2},
        {"a link too long", good + entry_bytes({"l;" + std::string(126, 't'), 4, ""}), 2},
        {"a link's command too long", good + entry_bytes({"l;" + std::string(90, 't'), 4, ""}), 2},
    };
    for (const auto &row : rows) {
        rec.lines.clear();
        EXPECT_EQ(apply(image_around(row.body, row.count)), -4) << row.what;
        EXPECT_EQ(tree(), "") << row.what;
        EXPECT_EQ(rec.all("run"), "/bin/mkdir -p " + base) << row.what;
        EXPECT_EQ(rec.block.result, 2);
        EXPECT_EQ(rec.block.failed_nums, 1);
        EXPECT_TRUE(rec.has("trace result = 2, update 1 file error !! \n"));
        EXPECT_NE(rec.all("trace").find("|image is damaged at entry "), std::string::npos);
        EXPECT_NE(rec.all("trace").find("|copy_file failed :---------- "), std::string::npos);
        EXPECT_NE(rec.all("log").find("|do_update: copy_file ----------  "), std::string::npos);
    }
}

TEST_F(Apply, WhatOnlyLooksDamaged)
{
    // A path of 1023 characters; its directories exist, as no command can make them.
    std::string longest;
    while (base.size() + 1 + longest.size() < PATH_SIZE - 1 - 200)
        longest += std::string(99, 'd') + "/";
    fs::create_directories(base + "/" + longest);
    longest += std::string(PATH_SIZE - 1 - base.size() - 1 - longest.size(), 'f');
    EXPECT_EQ(apply({{longest, 0, "1"}, {"d/../e", 0, "2"}, {"..f/...", 0, "3"}, {"g;h", 0, "4"}}),
              0);
    EXPECT_EQ(tree(), "..f/... = 3\nd/\n" + longest + " = 1\ne = 2\ng;h = 4\n");
    EXPECT_EQ(fs::status(base + "/e").permissions(), fs::perms(0755));
    // Entries at every distance from the end of what is read ahead.
    constexpr size_t window = sizeof entry_walk::window;
    for (size_t size = window - 50; size < window + 10; size++) {
        fs::remove_all(base);
        ASSERT_EQ(apply({{"a", 0, std::string(size, 'x')}, {"bbb", 0, "y"}, {"c", 0, "z"}}), 0);
        ASSERT_EQ(read_file(base + "/bbb") + read_file(base + "/c"), "yz") << size;
    }
}

TEST_F(Apply, AFailedEntryEndsTheRunAndKeepsTheOnesBefore)
{
    const std::string big(9000, 'b');
    limit_files_at("log do_update: (num-1)", 5000);
    EXPECT_EQ(apply({{"a", 0, "1"}, {"b", 0, big}, {"c", 0, "3"}}), -4);
    EXPECT_EQ(tree(), "a = 1\nb = " + big.substr(0, 5000) + "\n") << "as on a full disk";
    EXPECT_EQ(block_text(), "3 1 2 100 1");
    EXPECT_TRUE(rec.has("trace bb_full_write failed `" + base + "/b' size= 9000\n"));

    rec.on_line = nullptr;
    fs::remove_all(base);
    fs::create_directories(base + "/b/x");
    EXPECT_EQ(apply({{"a", 0, "1"}, {"b", 0, "2"}}), -4) << "a directory in the way";
    EXPECT_TRUE(rec.has("trace unable to open `" + base + "/b'\n"));
    EXPECT_EQ(apply({{"a;b/c", 0, "1"}}), -4) << "its directory is cut at the ';' and not made";
    EXPECT_EQ(apply({{"", 0, "1"}}), -4) << "no name";
}

// The image's disk is pulled: the file ends at any place, at the moment of any entry.
TEST_F(Apply, AnImageThatShrinksUnderItsMappingIsAFailedEntry)
{
    const std::vector<test_entry> entries = {{"a", 0, "1"},
                                             {"b", 0, std::string(6000, 'b')},
                                             {"c", 0, std::string(50, 'c')},
                                             {"d", 0, std::string(9000, 'd')}};
    const std::string bytes = image_bytes(entries);
    for (int at = 0; at < 4; at++) {
        for (const size_t length : {0, 488, 490, 600, 4096, 6000, 6550, 8192, 12000}) {
            fs::remove_all(base);
            rec.on_line = [&](const std::string &line) {
                if (line.find("log do_update: (num-" + std::to_string(at)) == 0) {
                    ASSERT_EQ(truncate(image.c_str(), static_cast<off_t>(length)), 0);
                }
            };
            EXPECT_EQ(apply(bytes), -4) << at << " " << length;
            EXPECT_EQ(rec.block.result, 2);
            const int done = rec.block.cur_nums;
            for (int i = 0; i < done; i++)
                EXPECT_EQ(read_file(base + "/" + entries[i].name), entries[i].data)
                    << at << " " << length << ": counted but not the image's data";
        }
    }
}

// Damages valid images in many ways. Nothing may crash, hang, or land outside the base directory.
TEST_F(Apply, MutatedImagesStayInsideTheBase)
{
    std::mt19937 random(20260611);
    const auto below = [&random](size_t n) { return static_cast<size_t>(random() % n); };
    const std::string seed = image_bytes({{"nand/bin/tool", 0, std::string(30, 't')},
                                          {"nand/link;bin/tool", 4, ""},
                                          {"nand/sub", 1, ""},
                                          {"nand/vorn-kernel/zImage", 5, std::string(60, 'k')},
                                          {"nand/App_VPUCard.bin", 24, "card"}});
    write_file_text(dir + "/canary", "untouched");
    int applied = 0;
    for (int round = 0; round < 2000; round++) {
        std::string bytes = seed;
        for (size_t i = below(4); i > 0; i--) {
            const size_t at = 488 + below(bytes.size() - 488);
            switch (below(4)) {
            case 0:
                bytes[at] = static_cast<char>(random());
                break;
            case 1:
                bytes.erase(at, below(20));
                break;
            case 2:
                bytes.insert(at, below(2) != 0 ? "../" : std::string(below(12), '\0'));
                break;
            default:
                bytes.insert(at, bytes.substr(488 + below(bytes.size() - 488), below(100)));
            }
            bytes.resize(std::max(bytes.size(), size_t{489}));
        }
        bytes.replace(12, 4, be32(static_cast<uint32_t>(bytes.size())));
        if (below(4) == 0)
            bytes[below(488)] = static_cast<char>(random());
        fs::remove_all(base);
        rec.lines.clear();
        const int ret = apply(bytes);
        ASSERT_TRUE(ret == 0 || ret == -4 || ret == -10 || ret == -14) << ret;
        applied += ret == 0 ? 1 : 0;
        size_t items = 0;
        for (const fs::directory_entry &item : fs::directory_iterator(dir)) {
            items++;
            const std::string name = item.path().filename();
            ASSERT_TRUE(name == "update.img" || name == "canary" || name == "base") << name;
        }
        ASSERT_LE(items, 3U);
    }
    EXPECT_EQ(read_file(dir + "/canary"), "untouched");
    EXPECT_GT(applied, 200) << "some of them are still images";
    EXPECT_LT(applied, 1800) << "and some are not";
}
