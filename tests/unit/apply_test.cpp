// The apply engine over the recording platform: the story of a run, and every way in which it ends
// early.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update_common/image_reader.h"
#include "update/dtt_update_common/shared_memory.h"
#include "update_service.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;

using lines = std::vector<std::string>;

// Every other read is interrupted, and none gives more than 300 bytes.
extern "C" ssize_t FILE_CALL(__real_, pread)(int fd, void *buf, size_t len, off_t offset);
extern "C" ssize_t FILE_CALL(__wrap_, pread)(int fd, void *buf, size_t len, off_t offset)
{
    static bool interrupted = false;
    interrupted = !interrupted;
    errno = EINTR;
    return interrupted ? -1
                       : FILE_CALL(__real_, pread)(fd, buf, std::min<size_t>(len, 300), offset);
}

static std::string block_text()
{
    const upgrade_info_t &b = rec.block;
    return std::to_string(b.file_nums) + " " + std::to_string(b.cur_nums) + " " +
           std::to_string(b.result) + " " + std::to_string(b.cur_percent) + " " +
           std::to_string(b.failed_nums);
}

// `text` with D in the place of the test's directory.
static std::string shortened(std::string text)
{
    for (size_t at = 0; (at = text.find(rec.dir, at)) != std::string::npos;)
        text.replace(at, rec.dir.size(), "D");
    return text;
}

// A run's result with the progress block and the commands.
static std::string outcome(int result)
{
    return std::to_string(result) + ", " + block_text() + ", " + shortened(rec.all("run"));
}

// A run's lines, each behind a '|', without the header report but for the line between its groups.
static std::string said()
{
    std::string text;
    for (const std::string &line : rec.lines)
        if (line.find("log print_image_hdr: ") != 0 &&
            (line.find("trace    ") != 0 || line == "trace    \n"))
            text += "|" + line;
    return shortened(text);
}

struct Apply : Recorded {
    std::string image;
    std::string base;

    void SetUp() override
    {
        Recorded::SetUp();
        image = dir + "/update.img";
        base = dir + "/base";
    }

    // Applies an image with these bytes to `base`.
    int apply(const std::string &bytes, int mode = ONLINE_MODE)
    {
        rec.lines.clear();
        write_file_text(image, bytes);
        return do_update(image.data(), mode, base.data());
    }

    int apply(const std::vector<test_entry> &entries)
    {
        return apply(image_bytes(entries));
    }
};

TEST_F(Apply, StoryOfARun)
{
    lines states;
    rec.on_line = [&states](const std::string &) {
        if (states.empty() || states.back() != block_text())
            states.push_back(block_text());
    };
    EXPECT_EQ(apply({{"nand/a", 0, "ABC"},
                     {"nand/d/l;../a", 4, ""},
                     {"nand/e", 1, ""},
                     {"nand/odd", 200, std::string(10000, 'o')}}),
              0);
    EXPECT_EQ(tree_text(base), "nand/a = ABC\nnand/d/l -> ../a\nnand/e/\nnand/odd = " +
                                   std::string(10000, 'o') + "\n");

    EXPECT_EQ(
        said(),
        "|trace in fun do_update  ! \n|log do_update:  start"
        "|trace upgrade_info_t-4 size is 16Bytes \n|log attach_shm:   start."
        "|shm get 0x600001 16 00|shm get 0x600001 20 01600"
        "|trace shm get_upgrade_info success!!|log do_update: get_upgrade_info success!! "
        "|log do_update: \n now update_info->result = -1 |trace \n now update_info->result = -1 \n"
        "|trace update file: D/update.img , img_size = 10548 \n"
        "|log do_update: <do_update> update_file:D/update.img|log do_update: fread update_file ..."
        "|log do_update: check img : magic_number; img_size; body_crc ..."
        "|log do_update: check img ok !|trace check img ok !"
        "|log find_dir: update dir is </nand>.|run /bin/mkdir -p D/base"
        "|log do_update: get u_base_dir:D/base |trace get u_base_dir:D/base \n"
        "|trace print_image_header.\n|log do_update: print_image_header.|trace    \n"
        "|log do_update: start creat img.|trace start creat img.\n"
        "|log do_update: \n now update_info->result = 0 |trace \n now update_info->result = 0 \n"
        "|trace \n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n"
        "|run /bin/mkdir -p D/base/nand|log do_update: (num-0)D/base/nand/a type(0), size(3)"
        "|run /bin/mkdir -p D/base/nand/d|log do_update: (num-1)D/base/nand/d/l type(4), size(0)"
        "|run cd /D/base/nand/d/ && /bin/ln -sf ../a l"
        "|run /bin/mkdir -p D/base/nand/e|log do_update: (num-2)D/base/nand/e type(1), size(0)"
        "|log do_update: (num-3)D/base/nand/odd type(200), size(10000)"
        "|trace \n\n\n\n\rround 2 --------update user file ....\n|syncfs"
        "|log do_update:  update_info->result = 0 (1:ok, 2:error). \n"
        "|trace result = 1, update successful !! \n"
        "|run sysconfig set fw_version V1.0.0.0|run /bin/sync|log do_update:  run rsync ok."
        "|usleep 20000|log do_update:  end");
    EXPECT_NE(console().find("(num-3)" + base + "/nand/odd type(200), size(10000)\n"),
              std::string::npos);
    EXPECT_EQ(states, (lines{"7 7 7 7 7", "0 0 -1 0 0", "4 0 0 0 0", "4 1 0 0 0", "4 2 0 100 0",
                             "4 2 0 0 0", "4 3 0 0 0", "4 4 0 100 0", "4 4 1 100 0"}));
}

TEST_F(Apply, ProgressBlockAndReboot)
{
    rec.shm_exists = true;
    apply(image_bytes({}));
    const lines plain = {"log do_update:  run rsync ok.", "usleep 20000", "log do_update:  end"};
    const lines reboot = {"sleep 6", "run reboot -f", "log do_update:  end"};
    for (const int mode : {0, 1, 2, 3, -1}) {
        EXPECT_EQ(apply(image_bytes({}), mode), 0);
        EXPECT_EQ(block_text(), "0 0 1 0 0");
        EXPECT_EQ(rec.all("shm"), "get 0x600001 16 00|detach")
            << "a peer's segment of 16 bytes is used, and a former attachment given up";
        EXPECT_EQ(rec.last(3), mode == REBOOT_MODE ? reboot : plain);
    }
    rec.lines.clear();
    free_upgrade_info(get_upgrade_info());
    free_upgrade_info(nullptr);
    EXPECT_EQ(rec.all("shm"), "get 0x600001 16 00|detach");
    rec.shm_exists = false;
    rec.lines.clear();
    attach_shm(0x600002, 16);
    EXPECT_EQ(rec.all("shm"), "get 0x600002 16 00|get 0x600002 16 01600")
        << "no other segment grows";
    rec.shm_fails = true;
    EXPECT_EQ(apply(image_bytes({}), REBOOT_MODE), -10);
    EXPECT_EQ(rec.last(2), (lines{"log do_update:  get_upgrade_info Error .\n",
                                  "trace update_info get from shm err!"}));
}

TEST_F(Apply, ReplacesWhatStandsThereAndKeepsItForWhoHasItOpen)
{
    write_file_text(base + "/nand/a", "old and long");
    write_file_text(base + "/nand/l", "a file");
    const int old = open((base + "/nand/a").c_str(), O_RDONLY);
    const std::string old_path = "/proc/self/fd/" + std::to_string(old);
    EXPECT_EQ(apply({{"nand/a", 0, "new"}, {"nand/l;a", 4, ""}, {"l;/abs/x", 4, ""}}), 0);
    EXPECT_EQ(tree_text(base), "l -> /abs/x\nnand/a = new\nnand/l -> a\n");
    EXPECT_EQ(read_file(old_path), "old and long");
    base = "/"; // from where a link can be reached that can't be unlinked
    EXPECT_EQ(apply({{old_path, 0, "new"}}), -4);
    EXPECT_EQ(read_file(old_path), "old and long") << "nothing is written through it";
    close(old);
}

TEST_F(Apply, BaseDirectory)
{
    test_header header;
    header.place = 3;
    // The longer one leaves no room for a terminator.
    for (const size_t size : {dir.size() + 6, size_t{256}}) {
        header.dest_dir = dir + "/" + std::string(size - dir.size() - 1, 'd');
        EXPECT_EQ(apply(image_bytes({{"a", 0, "x"}}, header)), 0);
        EXPECT_EQ(tree_text(base), "a = x\n") << "a forced directory wins";
        EXPECT_EQ(do_update(image.data(), ONLINE_MODE, nullptr), -10) << "only that one is made";
        fs::create_directory(header.dest_dir);
        std::string path = image + "\n";
        EXPECT_EQ(do_update(path.data(), ONLINE_MODE, nullptr), 0);
        EXPECT_EQ(path.c_str(), image) << "cut in the caller's text";
        EXPECT_EQ(tree_text(header.dest_dir), "a = x\n");
    }
}

// Compares a run's last lines: those that tell the cause of its early end, its end and the reboot.
static void expect_end(const std::string &cause)
{
    const std::string expected = cause + "|trace result = 2, update error !! \n"
                                         "|log do_update:  result = 2, update error !!|usleep 20000"
                                         "|log do_update:  mode = 1; reboot !|sleep 6|run reboot -f"
                                         "|log do_update:  end";
    const std::string text = said();
    EXPECT_EQ(text.substr(text.size() - std::min(text.size(), expected.size())), expected);
}

TEST_F(Apply, RefusalsHaveTheirLinesAndNeverTouchTheBase)
{
    const auto expect_refusal = [](std::string path, std::string to, const std::string &cause,
                                   const std::string &expected = "-10, 0 0 2 0 0, ") {
        rec.lines.clear();
        const int result = do_update(path != "" ? path.data() : nullptr, REBOOT_MODE, to.data());
        EXPECT_EQ(outcome(result), expected + "reboot -f") << path;
        expect_end(cause);
    };
    const auto expect_bad = [&](const std::string &bytes, const std::string &cause) {
        write_file_text(image, bytes);
        expect_refusal(image, base, cause);
    };
    const std::string good = image_bytes({{"a", 0, "x"}});
    const char *const no_header =
        "|log do_update: fread update_header error.|trace fread update_header error.\n";
    expect_bad("", no_header);
    expect_bad(good.substr(0, 487), no_header);
    expect_bad(be32(0x66190527) + good.substr(4),
               "|log do_update: Image Magic Number Error . ih_magic = 0x66190527 ."
               "|trace error, update_header.ih_magic.\n"
               "|trace Image Magic Number Error . ih_magic = 0x66190527 .");
    const auto sizes = [](const std::string &text) {
        return "|log do_update: Image size Error . img_size = " + text +
               ".|trace error, update_header.ih_size. img_size = " + text + ".\n";
    };
    expect_bad(good.substr(0, good.size() - 1), sizes("495 , ih_size = 496"));
    expect_bad(good + "y", sizes("497 , ih_size = 496"));
    const std::string unfinished = good.substr(0, 12) + be32(0x27051966) + good.substr(16);
    expect_bad(unfinished, sizes("496 , ih_size = 654645606"));

    expect_refusal("", base,
                   "|log do_update:  filename invalid filename (null)"
                   "|trace error, update_file is \n");
    expect_refusal(dir + "/missing", base,
                   "|log do_update:  file not exist filename D/missing|trace error, access.\n");
    expect_refusal(dir, base, no_header);
    const std::string pipe = dir + "/pipe"; // without a writer, who must not be waited for
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    expect_refusal(pipe, base, no_header);

    write_file_text(image, good);
    const std::string too_long = "/" + std::string(PATH_SIZE, 'b');
    expect_refusal(image, too_long, "|log do_update: chdir(" + too_long + ") Failed");
    expect_refusal(image, image + "/x", "|log do_update: chdir(D/update.img/x) Failed",
                   "-10, 0 0 2 0 0, /bin/mkdir -p D/update.img/x|");
    exhaust_descriptors_at("log do_update: <do_update>");
    expect_refusal(image, base,
                   "|log do_update: open error filename D/update.img|trace open error filename.\n");
    unmappable_at("trace start creat img.\n", "update.img");
    expect_refusal(image, base, "|trace start creat img.\n",
                   "-3, 0 0 2 0 0, /bin/mkdir -p D/base|");
}

// A negative result of the installer ends the walk; only a run without failure records the version.
TEST_F(Apply, BootLoaderAndKernelInARun)
{
    rec.run_result = 256; // an exit status of 1 is no failure
    write_file_text(base + "/k/old", "");
    const auto run = [this](const std::string &failing) {
        rec.failing = failing;
        return outcome(
            apply({{"card", 22, "c"}, {"u", 7, "u"}, {"k/zImage", 5, "k"}, {"z", 0, "z"}}));
    };
    const std::string boot = "/bin/mkdir -p D/base|dd if=D/base/u of=/dev/mmcblk0p1";
    const std::string kernel =
        "| /bin/mkdir -p /mntker| /bin/rm -rf /mntker/*|/bin/mount /dev/mmcblk0p6 /mntker/"
        "|/bin/cp D/base/k/zImage /mntker/ -rf";
    const std::string done = "|sysconfig set fw_version V1.0.0.0|/bin/sync";
    for (int i = 0; i < 2; i++)
        EXPECT_EQ(run(""), "0, 4 4 1 100 0, " + boot + kernel + done) << "each run prepares anew";
    test_header header;
    header.version = "V1;touch${IFS}x";
    EXPECT_EQ(outcome(apply(image_bytes({}, header))),
              "0, 0 0 1 0 0, /bin/mkdir -p D/base|/bin/sync");
    EXPECT_TRUE(rec.has(
        "log do_update: version <V1;touch${IFS}x> has no place in a command: not recorded"));
    fs::remove(base + "/z");
    EXPECT_EQ(run("dd "), "-5, 4 0 2 100 0, " + boot) << "its file was written";
    EXPECT_EQ(run("/bin/cp"), "-14, 4 1 2 100 0, " + boot + kernel);
    EXPECT_FALSE(fs::exists(base + "/z")) << "nothing behind the failed entry";
}

// Each damage ends the run at its entry like a failed copy: the one ahead of it is on disk, and no
// command has been run for it. `cost$` and the like mean themselves to a shell.
TEST_F(Apply, DamagedEntriesFailAtTheirTurn)
{
    const std::string good = entry_bytes({"cost$", 0, "x"});
    const auto named = [&good](const std::string &name, int type = 0) {
        return good + entry_bytes({name, type, "x"});
    };
    const std::string fewer = "there are fewer entries than the header says";
    const std::string past_end = "1: it runs past the end of the image";
    const std::string climbs = "1: its name leads out of the directory";
    const std::string no_command = "1: its directory can't be made by a command";
    const std::string no_link = "1: its path and target are too long for a link";
    const std::string no_word = "1: its path or target would be taken apart by a command";
    const std::string no_install = "1: its path would be taken apart by a command";
    const std::string name1023(1023, 'n');
    const std::string deep(497 - base.size(), 'd'); // a path of 498, and a command has room for 497
    const struct {
        std::string body, fault, path;
        uint32_t count = 2;
    } rows[] = {
        {"", "0: " + fewer, "D/base", 1},
        {good, "1: " + fewer, "D/base"},
        {good, "1: " + fewer, "D/base", 0xFFFFFFFF},
        {good + "name", "1: its name has no end", "D/base"},
        {named(name1023 + "n"), "1: its name is too long", "D/base"},
        {good + std::string("name\0", 5), past_end, "D/base"},
        {good + std::string("name\0\0\0\0\0", 9), past_end, "D/base"},
        {good + std::string("name\0\0\0\0\0\2x", 11), past_end, "D/base"},
        {good + std::string("name\0\0\xFF\xFF\xFF\xFFx", 11), past_end, "D/base"},
        {named("../x"), climbs, "D/base/../x"},
        {named("a/../../base/x"), climbs, "D/base/a/../../base/x"},
        {named("//.//.."), climbs, "D/base/.//.."},
        {named("a;b/../../l;x", 4), climbs, "D/base/a;b/../../l"},
        {named(name1023), "1: its path is too long", name1023},
        {named(deep + "/x"), no_command, "D/base/" + deep + "/x"},
        {named(deep, 1), no_command, "D/base/" + deep},
        {named("d /tmp/x"), no_command, "D/base/d /tmp/x"},
        {named("a$(touch x)/x"), no_command, "D/base/a$(touch x)/x"},
        {named("a`b`", 1), no_command, "D/base/a`b`"},
        {named("z$(touch x);t", 4), no_word, "D/base/z$(touch x)"},
        {named("l;$HOME", 4), no_word, "D/base/l"},
        {named("l;-t", 4), no_word, "D/base/l"},
        {named("-l;t", 4), no_word, "D/base/-l"},
        // What the shell would take for another file: of the image, and the link's own place.
        {named("l;c*", 4), no_word, "D/base/l"},
        {named("c*;t", 4), no_word, "D/base/c*"},
        {named("ab;../base/?b", 4), no_word, "D/base/ab"},
        {named("c?st$", 7), no_install, "D/base/c?st$"},
        {named("c*", 1), no_command, "D/base/c*"},
        {named("u;b", 7), no_install, "D/base/u;b"},
        {named("zImage&", 5), no_install, "D/base/zImage&"},
        {named("l;" + std::string(126, 't'), 4), no_link, "D/base/l"},
        // One character more than its command has room for.
        {named("l;" + std::string(105 - base.size(), 't'), 4), no_link, "D/base/l"},
    };
    for (const auto &row : rows) {
        fs::remove_all(base);
        const int result = apply(image_around(row.body, row.count), REBOOT_MODE);
        const std::string ahead = row.body == "" ? " 0" : " 1";
        EXPECT_EQ(outcome(result), "-4, " + std::to_string(static_cast<int>(row.count)) + ahead +
                                       " 2 100 1, /bin/mkdir -p D/base|reboot -f");
        expect_end("|trace image is damaged at entry " + row.fault +
                   "\n|log do_update: copy_file ----------  " + row.path +
                   " --------- failed.|trace copy_file failed :---------- " + row.path +
                   " ---------- \n|log do_update:  update_info->result = 0 (1:ok, 2:error). \n"
                   "|trace result = 2, update 1 file error !! \n");
        EXPECT_EQ(tree_text(base), row.body == "" ? "" : "cost$ = x\n") << row.fault;
    }
    // An image of 4 GiB would have room for the data of this entry.
    write_file_text(image, std::string(488, 'h') + std::string("name\0\0\x80\0\0\0", 10));
    const struct image_file large = {open(image.c_str(), O_RDONLY), 0xFFFFFFFF, {}};
    entry_walk walk;
    image_entry entry;
    start_walk(&walk, &large);
    EXPECT_STREQ(read_entry(&walk, &entry), past_end.substr(3).c_str());
    close(large.fd);
}

// Links made by an image, or found there, lead a later entry out of the base directory only if it
// is told so; below it they are followed.
TEST_F(Apply, EntriesThroughLinksStayBelow)
{
    const std::string out = "/" + dir.substr(1) + "/out";
    const struct {
        std::vector<test_entry> entries;
        int result;
    } rows[] = {
        {{{"x;" + out, 4, ""}, {"x/f", 0, "1"}}, -4},
        {{{"x;" + out, 4, ""}, {"x/new/f", 0, "1"}}, -4},
        {{{"x;" + out, 4, ""}, {"x/new", 1, ""}}, -4},
        {{{"x;../out", 4, ""}, {"x/l;f", 4, ""}}, -4},
        {{{"d/a", 0, "1"}, {"x;.", 4, ""}, {"x/n/../../out/f", 0, "1"}}, -4},
        {{{"d/a", 0, "1"}, {"x;d", 4, ""}, {"x/../x;" + out, 4, ""}, {"x/../f", 0, "1"}}, -4},
        {{{"x;d", 4, ""}, {"d/e/a", 0, "1"}, {"x/e/f", 0, "2"}, {"d/../x/n/g", 0, "3"}}, 0},
    };
    write_file_text(dir + "/out/kept", "");
    for (const auto &row : rows) {
        fs::remove_all(base);
        EXPECT_EQ(apply(row.entries), row.result) << row.entries.back().name;
        EXPECT_EQ(tree_text(dir + "/out"), "kept = \n") << row.entries.back().name;
        EXPECT_EQ(rec.all("run").find("mkdir -p " + base + "/x"), std::string::npos);
    }
    EXPECT_EQ(tree_text(base), "d/e/a = 1\nd/e/f = 2\nd/n/g = 3\nx -> d\n");
}

// What a command has not made is not taken for made.
TEST_F(Apply, CommandsWithoutEffect)
{
    fs::create_directories(base);
    rec.failing = "/bin/mkdir -p " + base + "/";
    EXPECT_EQ(apply({{"a", 0, "1"}, {"d", 1, ""}}), -4);
    rec.failing = "cd ";
    EXPECT_EQ(apply({{"l;a", 4, ""}, {"b", 0, "2"}}), 0);
    EXPECT_TRUE(rec.has("trace link not made: " + base + "/l\n"));
    EXPECT_EQ(tree_text(base), "a = 1\nb = 2\n") << "no empty file in the link's place";
}

TEST_F(Apply, WhatOnlyLooksDamaged)
{
    // A path of 1023 characters; its directories exist, as no command can make them.
    std::string longest;
    for (int level = 0; level < 8; level++)
        longest += std::string(99, 'd') + "/";
    fs::create_directories(base + "/" + longest);
    longest.resize(PATH_SIZE - 1 - base.size() - 1, 'f');
    EXPECT_EQ(apply({{longest, 0, "1"},
                     {"d/../e", 0, "2"},
                     {"..f/...", 0, "3"},
                     {"g;h", 0, "4"},
                     {"a$./[", 0, "5"},
                     {"m/l[;n*", 4, ""},
                     {"k i", 5, "6"}}),
              0);
    EXPECT_EQ(tree_text(base), "..f/... = 3\na$./[ = 5\nd/\n" + longest +
                                   " = 1\ne = 2\ng;h = 4\nk i = 6\nm/l[ -> n*\n");
    EXPECT_EQ(fs::status(base + "/e").permissions(), fs::perms(0755));
    // Entries at every distance from the end of what is read ahead.
    constexpr size_t window = sizeof entry_walk::window;
    for (size_t size = window - 50; size < window + 10; size++) {
        fs::remove_all(base);
        ASSERT_EQ(apply({{"a", 0, std::string(size, 'x')}, {"bbb", 0, "y"}, {"c", 0, "z"}}), 0);
        ASSERT_EQ(read_file(base + "/bbb") + read_file(base + "/c"), "yz") << size;
    }
}

// A disk that fails when it writes back: the run has not gone well, and no version is recorded.
TEST_F(Apply, WhatIsNotOnTheMediumIsNotThere)
{
    rec.sync_error = EIO;
    EXPECT_EQ(outcome(apply({{"a", 0, "1"}})), "-4, 1 1 2 100 1, /bin/mkdir -p D/base");
    EXPECT_TRUE(rec.has("log do_update: copy_file ----------  " + base + " --------- failed."));
    rec.sync_error = ENOSYS; // an old kernel can't tell
    EXPECT_EQ(apply({{"a", 0, "1"}}), 0);
}

TEST_F(Apply, AFailedEntryEndsTheRunAndKeepsTheOnesBefore)
{
    const std::string big(9000, 'b');
    limit_files_at("log do_update: (num-1)", 5000);
    EXPECT_EQ(outcome(apply({{"a", 0, "1"}, {"b", 0, big}, {"c", 0, "3"}})),
              "-4, 3 1 2 100 1, /bin/mkdir -p D/base");
    EXPECT_EQ(tree_text(base), "a = 1\nb = " + big.substr(0, 5000) + "\n") << "as on a full disk";
    EXPECT_TRUE(rec.has("trace bb_full_write failed `" + base + "/b' size= 9000\n"));
    EXPECT_TRUE(rec.has("log do_update: copy_file ----------  " + base + "/b --------- failed."));

    fs::remove_all(base);
    fs::create_directories(base + "/b/x");
    rec.on_line = [](const std::string &line) {
        EXPECT_TRUE(line.find(" --------- failed") == line.npos || rec.block.failed_nums == 1)
            << "counted ahead of its lines";
    };
    EXPECT_EQ(apply({{"a", 0, "1"}, {"b", 0, "2"}}), -4) << "a directory in the way";
    EXPECT_TRUE(rec.has("trace unable to open `" + base + "/b'\n"));
    EXPECT_EQ(apply({{"a;b/c", 0, "1"}}), -4) << "its directory is cut at the ';' and not made";
    EXPECT_EQ(apply({{"", 0, "1"}}), -4) << "no name";
    fs::create_symlink("b", base + "/l");
    EXPECT_EQ(apply({{"l", 1, ""}, {"l/c", 0, "3"}, {"a", 1, ""}}), -4) << "a file in the way";
    EXPECT_EQ(tree_text(base), "a = 1\nb/c = 3\nb/x/\nl -> b\n") << "a link to a directory is one";
}

// The image's disk is pulled: the file ends at any place, at the moment of any entry.
TEST_F(Apply, AnImageThatShrinksUnderItsMappingIsAFailedEntry)
{
    const std::vector<test_entry> entries = {{"a", 0, "1"},
                                             {"b", 0, std::string(6000, 'b')},
                                             {"c", 0, std::string(50, 'c')},
                                             {"d", 0, std::string(9000, 'd')}};
    for (int at = 0; at < 4; at++)
        for (const size_t length : {0, 488, 490, 600, 4096, 6000, 6550, 8192, 12000}) {
            fs::remove_all(base);
            rec.on_line = [&](const std::string &line) {
                if (line.find("log do_update: (num-" + std::to_string(at)) == 0)
                    fs::resize_file(image, length);
            };
            EXPECT_EQ(apply(entries), -4) << at << " " << length;
            EXPECT_EQ(rec.block.result, 2);
            for (int i = 0; i < rec.block.cur_nums; i++)
                EXPECT_EQ(read_file(base + "/" + entries[i].name), entries[i].data)
                    << at << " " << length << ": counted but not the image's data";
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
    const auto descriptors = [] {
        return std::distance(fs::directory_iterator("/proc/self/fd"), fs::directory_iterator());
    };
    const auto open_before = descriptors();
    int applied = 0;
    for (int round = 0; round < 2000; round++) {
        std::string bytes = seed;
        for (size_t i = below(4); i > 0; i--) {
            const size_t at = 488 + below(bytes.size() - 488);
            const std::string added[] = {"", std::string(1, static_cast<char>(random())), "../",
                                         std::string(below(12), '\0'),
                                         bytes.substr(at, below(100))};
            bytes.replace(at, below(2) * below(20), added[below(5)]);
            bytes.resize(std::max(bytes.size(), size_t{489}));
        }
        bytes.replace(12, 4, be32(static_cast<uint32_t>(bytes.size())));
        if (below(4) == 0)
            bytes[below(488)] = static_cast<char>(random());
        const int ret = apply(bytes);
        ASSERT_TRUE(ret == 0 || ret == -4 || ret == -10 || ret == -14) << ret;
        applied += ret == 0 ? 1 : 0;
        fs::remove_all(base);
        ASSERT_EQ(tree_text(dir), "update.img = " + bytes + "\n");
    }
    EXPECT_EQ(descriptors(), open_before);
    EXPECT_GT(applied, 200) << "some of them are still images";
    EXPECT_LT(applied, 1800) << "and some are not";
}
