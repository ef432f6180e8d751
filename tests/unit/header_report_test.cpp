// The header report: ten lines to each sink, and what strange headers show.
#include "tests/recording_platform.h"
#include "tests/test_image.h"
#include "update/dtt_update_common/header_report.h"

#include <cstring>

struct HeaderReport : Recorded {
    // A header at the very end of its memory, so that the sanitizers see a read behind it.
    void report(const std::string &image)
    {
        rec.lines.clear();
        update_header_t *const header = static_cast<update_header_t *>(malloc(sizeof *header));
        memcpy(header, image.data(), sizeof *header);
        print_image_hdr(header);
        free(header);
    }

    std::string line(size_t number) const
    {
        const std::string text = rec.lines.at(number);
        return text.substr(text.find(" : ") + 3);
    }
};

TEST_F(HeaderReport, GroupsDoNotInterleave)
{
    test_header header;
    header.crc = 0xFFFFFFFF;
    header.dirs = 3;
    header.comp = 1;
    setenv("TZ", "UTC", 1);
    report(image_bytes({{"a", 0, "x"}}, header));
    const char *const lines[] = {
        "   Image Name       : Vorn Video Systems firmware package",
        "   Firmware Version : V1.0.0.0",
        "   Update Place     : /usr/nand",
        "   Update Dir       : nand",
        "   Created          : Thu Jan  1 00:00:00 1970\n",
        "   Image Type       : (GZIP Compressed)",
        "   Data Size        : 496 Bytes",
        "   Directorys       : 3",
        "   Files            : 1",
        "   Body Data CRC    : 4294967295",
    };
    std::vector<std::string> expected;
    for (const char *text : lines)
        expected.push_back(std::string("log print_image_hdr: ") + text);
    expected.push_back("trace    \n");
    for (const char *text : lines)
        expected.push_back(std::string("trace ") + text + "\n");
    EXPECT_EQ(rec.lines, expected);
}

TEST_F(HeaderReport, PlacesAndCompressions)
{
    const struct {
        uint32_t place;
        const char *text;
    } places[] = {{1, "/"}, {2, "/usr/nand"}, {3, "/dest"}, {0, ""}, {4, ""}, {0xFFFFFFFF, ""}};
    for (const auto &row : places) {
        test_header header;
        header.place = row.place;
        header.dest_dir = "/dest";
        report(image_bytes({}, header));
        EXPECT_EQ(line(2), row.text) << row.place;
    }
    EXPECT_STREQ(place2str(3), "costom");
    const char *const compressions[] = {"Uncompressed", "GZIP Compressed", "BZIP2 Compressed",
                                        "Unknown Compression"};
    for (int i = 0; i < 4; i++)
        EXPECT_STREQ(print_type(i), compressions[i]);
    EXPECT_STREQ(print_type(-1), compressions[3]);
}

TEST_F(HeaderReport, FieldsWithoutTerminatorEndAtTheirWidth)
{
    test_header header;
    header.version = std::string(64, 'v');
    header.update_dir = std::string(64, 'u');
    header.place = 3;
    header.dest_dir = std::string(256, 'd');
    report(image_bytes({}, header));
    EXPECT_EQ(line(1), header.version);
    EXPECT_EQ(line(2), std::string(64, 'd'));
    EXPECT_EQ(line(3), header.update_dir);
}
