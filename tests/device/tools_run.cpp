// The operations that live on other tools, in the sandbox: local card flashing with recorders in
// the place of the flashing tools, and body compression with the real gzip and gunzip.
#include "update/dtt_create/body_compression.h"
#include "update_service.h"

#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <random>
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

TEST(Flashing, ArgumentsAfterTheShell)
{
    sh(R"sh(
        mkdir -p /usr/vorn/bin /tmp/fw
        for tool in mcu_isp kmd_test; do ln -sf "$(command -v $tool)" /usr/vorn/bin/; done
        : > /run/sandbox/calls
        echo x > /tmp/fw/file
        echo 3 > /run/sandbox/status.kmd_test
    )sh");
    char file[] = "/tmp/fw/file";
    for (int type = 22; type <= 30; type++)
        EXPECT_EQ(update_one_UserFile(type, file), 0) << "also when the tool fails";
    const char *const calls[] = {
        "mcu_isp -B input -C 0x31 -b F",       "mcu_isp -B output -C 0x31 -b F",
        "mcu_isp -B vpu -C 0x31 -b F -r 0x00", "kmd_test 0 update 0x0100 2 F",
        "kmd_test -B update 0x0100 4 F",       "kmd_test -B update 0x0100 1 F",
        "kmd_test -B update 0x01ff 2 F",       "kmd_test -B update 0x01ff 4 F",
        "kmd_test -B update 0x01ff 1 F"};
    std::string expected;
    for (std::string call : calls) {
        call.replace(call.find('F'), 1, file);
        std::replace(call.begin(), call.end(), ' ', '\t');
        expected += call + "\n";
    }
    EXPECT_EQ(read_file("/run/sandbox/calls"), expected);
}

struct Compression : testing::Test {
    std::string path = "/opt/image";
    const std::string header = std::string(488, 'h');
    int fd = -1;

    static std::string noise(size_t size)
    {
        std::mt19937 random(3);
        std::string text(size, '\0');
        for (char &c : text)
            c = static_cast<char>(random());
        return text;
    }

    int compress(const std::string &body, size_t data_len)
    {
        std::ofstream(path, std::ios::binary) << header << body;
        fd = open(path.c_str(), O_RDWR | O_CLOEXEC);
        const int result = gzip_dirs_and_files(fd, nullptr, 488, data_len);
        close(fd);
        return result;
    }

    void expect_plain(const std::string &body) const
    {
        EXPECT_TRUE(read_file(path) == header + body) << "the image has its plain body";
        EXPECT_FALSE(fs::exists("/tmp/tmppfile"));
        EXPECT_FALSE(fs::exists("/tmp/tmppfile.gz"));
    }

    void TearDown() override
    {
        sh("umount /tmp 2>/dev/null || :; rm -rf /tmp/tmppfile* /opt/image");
    }
};

TEST_F(Compression, RoundTrip)
{
    for (const std::string &body :
         {std::string(), std::string("x"), noise(3000000), std::string(100 << 20, 'a')}) {
        std::ofstream("/tmp/tmppfile") << std::string(5000000, 'l');
        std::ofstream("/tmp/tmppfile.gz") << "leftover";
        ASSERT_EQ(compress(body, body.size()), 0) << body.size();
        EXPECT_FALSE(fs::exists("/tmp/tmppfile"));
        EXPECT_FALSE(fs::exists("/tmp/tmppfile.gz"));
        const std::string image = read_file(path);
        EXPECT_EQ(image.substr(0, 488), header);
        EXPECT_EQ(image.substr(488, 2), "\x1f\x8b");
        FILE *const infile = fopen(path.c_str(), "rb");
        FILE *const stream = open_gunzip_file(infile, image.size() - 488);
        ASSERT_GT(reinterpret_cast<uintptr_t>(stream), 2U);
        std::string expanded(body.size() + 1, '\0');
        EXPECT_EQ(fread(expanded.data(), 1, expanded.size(), stream), body.size());
        expanded.pop_back();
        EXPECT_TRUE(expanded == body) << body.size();
        fclose(stream);
        fclose(infile);
    }
}

TEST_F(Compression, FailuresLeaveTheImageWithItsBody)
{
    const std::string body = noise(1000000);
    EXPECT_EQ(compress(body, body.size() + 1), -1) << "more than the image holds";
    expect_plain(body);
    EXPECT_EQ(compress(body, size_t{1} << 31), -1);
    expect_plain(body);
    // Room in /tmp for nothing, for a part of the body, and for the body but not its compressed
    // form.
    for (const char *size : {"4k", "500k", "1500k"}) {
        sh(std::string("mount -t tmpfs -o size=") + size + " tmpfs /tmp");
        EXPECT_EQ(compress(body, body.size()), -1) << size;
        expect_plain(body);
        sh("umount /tmp");
    }
    sh("mv /bin/gzip /bin/gzip.away");
    EXPECT_EQ(compress(body, body.size()), -1) << "no gzip";
    expect_plain(body);
    // One that is killed in its midst leaves a part of the compressed body.
    sh(R"(printf '#!/bin/sh\nhead -c 1000 "$1" > "$1.gz"; kill -KILL $$\n' > /bin/gzip; chmod +x /bin/gzip)");
    EXPECT_EQ(compress(body, body.size()), -1);
    expect_plain(body);
    sh("mv /bin/gzip.away /bin/gzip");

    // The disk of the image has room for the plain body, to the last page, and no more.
    sh("mkdir -p /small && mount -t tmpfs -o size=2000k tmpfs /small");
    path = "/small/image";
    const std::string full = noise(2000 * 1024 - 488);
    EXPECT_EQ(compress(full, full.size()), -1);
    expect_plain(full);
    // If it can't be expanded either, it is kept.
    sh(R"(mv /bin/gunzip /bin/gunzip.away
          printf '#!/bin/sh\nhead -c 1000 /dev/zero > "${1%%.gz}"; kill -KILL $$\n' > /bin/gunzip; chmod +x /bin/gunzip)");
    EXPECT_EQ(compress(full, full.size()), -1);
    sh("mv /bin/gunzip.away /bin/gunzip; rm /tmp/tmppfile; gunzip /tmp/tmppfile.gz");
    EXPECT_TRUE(read_file("/tmp/tmppfile") == full);
    sh("umount /small");
}

TEST_F(Compression, WhatCannotBeExpanded)
{
    const auto expand = [this](const std::string &image, size_t data_len) {
        std::ofstream(path, std::ios::binary) << image;
        FILE *const infile = fopen(path.c_str(), "rb");
        const uintptr_t result = reinterpret_cast<uintptr_t>(open_gunzip_file(infile, data_len));
        fclose(infile);
        return result;
    };
    EXPECT_EQ(expand(header + "no gzip data", 12), 1U);
    EXPECT_EQ(expand(header + "short", 12), 1U);
    EXPECT_EQ(expand(header, 0), 1U);
}
