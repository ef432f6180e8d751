// The target directory search.
#include "tests/recording_platform.h"
#include "update/dtt_update/target_search.h"

#include <arpa/inet.h>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

// The names are long enough not to stand in the random name of the test's directory, where the cut
// would be made.
struct TargetSearch : Recorded {
    // The result, and the path that is left in the state.
    std::string search(const std::string &start, std::string name)
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
    const struct {
        const char *name, *result;
    } rows[] = {
        {"nand", "0 D/alpha/deep/"}, {"deep", "0 D/alpha/"}, {"zulu", "0 D/"}, {".", "0 D/bravo/"},
        {"usr", "0 D/bravo/"},       {"and", "1"},           {"nandl", "1"},   {"nandf", "1"}};
    for (const auto &row : rows) {
        std::string expected = row.result;
        if (expected.find('D') != std::string::npos)
            expected.replace(expected.find('D'), 1, dir);
        EXPECT_EQ(search(dir, row.name), expected) << row.name;
        EXPECT_EQ(search(dir + "/", row.name), expected) << row.name;
    }
    EXPECT_EQ(search(dir, ""), "0 " + dir + "/") << "the first subdirectory of all";
    EXPECT_EQ(search(dir + "/missing", "a"), "-1");
    EXPECT_EQ(search("", "a"), "-1");
    fs::create_directories(dir + "/nand");
    EXPECT_EQ(search(dir, "nand"), "0 " + dir + "/") << "ahead of the one further down";
}

TEST_F(TargetSearch, TheCutIsMadeAtTheFirstOccurrenceInThePath)
{
    fs::create_directories(dir + "/nand/nand");
    EXPECT_EQ(search(dir + "/nand", "nand"), "0 " + dir + "/");
    fs::create_directories(dir + "/xbranchx/branch");
    EXPECT_EQ(search(dir + "/xbranchx", "branch"), "0 " + dir + "/x");
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
    // 1300 levels of two characters each, made and removed from the inside, as no path reaches
    // them.
    fs::create_directory(dir + "/e");
    ASSERT_EQ(chdir((dir + "/e").c_str()), 0);
    for (int level = 0; level < 1300; level++) {
        ASSERT_EQ(mkdir("e", 0755), 0);
        ASSERT_EQ(chdir("e"), 0);
    }
    EXPECT_EQ(search(dir, "yoke"), "1");
    for (int level = 0; level < 1300; level++) {
        ASSERT_EQ(chdir(".."), 0);
        ASSERT_EQ(rmdir("e"), 0);
    }
}

TEST_F(TargetSearch, PlacesWithoutAHitGiveTheirOwnDirectory)
{
    char base_dir[PATH_SIZE];
    EXPECT_EQ(find_dir(nullptr, base_dir), -1);
    EXPECT_EQ(rec.lines.back(), "log find_dir: pheader is Null.");
    update_header_t header = {};
    memset(header.ih_update_dir, 'q', sizeof header.ih_update_dir); // no terminator
    const struct {
        uint32_t place;
        const char *directory;
    } rows[] = {{2, "/nand"}, {0, ""}, {4, ""}, {5, ""}, {0x80000000, ""}};
    for (const auto &row : rows) {
        header.ih_place = htonl(row.place);
        EXPECT_EQ(find_dir(&header, base_dir), 0);
        EXPECT_STREQ(base_dir, row.directory);
        EXPECT_EQ(rec.lines.back(),
                  std::string("log find_dir: update dir is <") + row.directory + ">.");
    }
    EXPECT_STREQ(place2dir(1), "/");
    EXPECT_STREQ(place2dir(3), "//");
    // An empty name matches the first directory of all.
    header.ih_update_dir[0] = '\0';
    header.ih_place = htonl(1);
    EXPECT_EQ(find_dir(&header, base_dir), 0);
    EXPECT_STREQ(base_dir, "/");
}
