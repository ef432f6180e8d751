// The operations that live on other tools, in the sandbox: local card flashing with recorders in
// the place of the flashing tools, and body compression with the real gzip and gunzip.
#include "tests/real_platform.h"
#include "tests/test_image.h"
#include "update/dtt_create/body_compression.h"
#include "update_service.h"

#include <algorithm>
#include <fcntl.h>
#include <functional>
#include <random>
#include <sstream>

namespace fs = std::filesystem;

// What the shell makes of the blanks of a command, and of a tool that fails.
TEST(Flashing, ArgumentsAfterTheShell)
{
    sh(R"sh(
        mkdir -p /usr/vorn/bin
        for tool in mcu_isp kmd_test; do ln -sf "$(command -v $tool)" /usr/vorn/bin/; done
        echo x > /tmp/file
        echo 3 > /run/sandbox/status.kmd_test
    )sh");
    char file[] = "/tmp/file";
    for (const int type : {24, 30})
        EXPECT_EQ(update_one_UserFile(type, file), 0);
    EXPECT_EQ(read_file("/run/sandbox/calls"),
              "mcu_isp\t-B\tvpu\t-C\t0x31\t-b\t/tmp/file\t-r\t0x00\n"
              "kmd_test\t-B\tupdate\t0x01ff\t1\t/tmp/file\n");
}

struct Compression : testing::Test {
    std::string path = "/opt/image";
    const std::string header = std::string(488, 'h');
    const int log = bind_mailbox("/dev/log");

    static std::string noise(size_t size)
    {
        std::string text(size, '\0');
        std::generate(text.begin(), text.end(), std::mt19937(3));
        return text;
    }

    // What the operation returns, its trace lines, its lines on standard error, and its log lines.
    std::string outcome(const std::function<std::string()> &operation) const
    {
        testing::internal::CaptureStdout();
        testing::internal::CaptureStderr();
        std::string text = operation() + "\n";
        text += testing::internal::GetCapturedStdout();
        for (size_t end; (end = text.find("]:: ")) != std::string::npos;) {
            const size_t begin = text.rfind("[20", end), slash = text.rfind('/', end);
            const size_t name = text.find_last_of(" /", slash - 1) + 1; // of the function
            text.replace(begin, end + 4 - begin, text.substr(name, slash - name) + ": ");
        }
        std::istringstream errors(testing::internal::GetCapturedStderr());
        for (std::string line; std::getline(errors, line);)
            if (line.find("faild") != std::string::npos) // and no line of a tool or the shell
                text += line + "\n";
        for (std::string line; (line = received(log)) != "nothing";)
            text += line.substr(line.find(": 00000000 ") + 11) + "\n";
        return text;
    }

    // The result, whether the image has its plain body, the files that are left, and the lines;
    // after a script in which `room 4k` gives /tmp a size for this call and `fake TOOL SCRIPT` puts
    // a script in front of a tool.
    std::string compress(const std::string &body, size_t data_len, const std::string &script = "",
                         int mode = O_RDWR) const
    {
        std::ofstream(path, std::ios::binary) << header << body;
        return outcome([&] {
            sh("room() { mount -t tmpfs -o size=$1 tmpfs /tmp; }\n"
               "fake() { echo \"$2\" > /usr/local/sbin/$1; chmod +x /usr/local/sbin/$1; }\n" +
               script);
            const int fd = open(path.c_str(), mode | O_CLOEXEC);
            std::string text = std::to_string(gzip_dirs_and_files(fd, nullptr, 488, data_len));
            close(fd);
            text += read_file(path) == header + body ? ", plain body" : "";
            for (const char *left : {"/tmp/tmppfile", "/tmp/tmppfile.gz"})
                text += fs::exists(left) ? std::string(", ") + left : "";
            sh("umount /tmp 2>/dev/null || :");
            return text;
        });
    }

    // The lines of a body of `size` bytes that is put into the image.
    static std::string combined(size_t size)
    {
        return "combine_file:  tmp_len = " + std::to_string(size) +
               ",combine_file:    Data Size(compressed): " + std::to_string(488 + size) +
               " Bytes\n";
    }

    void TearDown() override
    {
        close(log);
        sh("cd /usr/local/sbin; /bin/rm -f rm g*zip /dev/log /tmp/tmppfile* /opt/image /opt/modes "
           "/opt/other");
    }
};

// The stream that is expanded has read the image ahead, as it was before. Nobody but its user reads
// a body meanwhile.
TEST_F(Compression, RoundTrip)
{
    // gunzip calls gzip.
    sh(R"sh(
        cd /usr/local/sbin
        echo 'for file; do :; done; stat -c %a "$file" >> /opt/modes; exec /bin/gzip "$@"' > gzip
        chmod +x gzip
    )sh");
    for (const std::string &body :
         {std::string(), std::string("x"), noise(3000000), std::string(100 << 20, 'a')}) {
        std::ofstream("/tmp/tmppfile") << std::string(5000000, 'l');
        std::ofstream("/tmp/tmppfile.gz") << "leftover";
        std::ofstream(path, std::ios::binary) << header << body;
        FILE *const infile = fopen(path.c_str(), "rb");
        fseek(infile, 0, SEEK_END);
        rewind(infile);
        EXPECT_EQ(fgetc(infile), 'h');
        const std::string text = compress(body, body.size());
        const std::string image = read_file(path);
        EXPECT_EQ(text, "0\n" + combined(image.size() - 488)) << body.size();
        EXPECT_EQ(image.substr(0, 490), header + "\x1f\x8b");
        FILE *const stream = open_gunzip_file(infile, image.size() - 488);
        ASSERT_GT(reinterpret_cast<uintptr_t>(stream), 2U);
        std::string expanded(body.size() + 1, '\0');
        EXPECT_EQ(fread(expanded.data(), 1, expanded.size(), stream), body.size());
        expanded.pop_back();
        EXPECT_TRUE(expanded == body) << body.size();
        fclose(stream);
        EXPECT_EQ(ftell(infile), 488);
        fclose(infile);
        EXPECT_EQ(read_file("/opt/modes"), "600\n600\n");
        fs::remove("/opt/modes");
    }
}

TEST_F(Compression, FailuresLeaveTheImageWithItsBody)
{
    const std::string body = noise(1000000);
    const std::string plain = "-1, plain body\n";
    const std::string uncut = "step1:cut_file faild.\n";
    const std::string unwritten =
        plain + "copy_file: bb_full_write failed `/tmp/tmppfile' size= 1000000\n" + uncut;
    const std::string unpacked = "combine_file: unable to open `/tmp/tmppfile.gz'\n";
    const std::string put_back = plain + unpacked + combined(1000000) + "combine_file faild.\n";
    const std::string f = "gzip_dirs_and_files: ";
    const auto kept_in = [&f](const char *file) {
        return "combine_file faild.\n" + f +
               "the body could not be put back into the image: move " + file +
               " away before anything else is compressed\n";
    };
    const std::string lost =
        "combine_file faild.\n" + f + "the image has lost its body: gzip has left nothing of it\n";
    const struct {
        size_t data_len;
        int mode;
        const char *script;
        std::string expected;
    } rows[] = {
        {1000001, O_RDWR, "", plain + "cut_file: fread /update_fd falid.\n" + uncut},
        {1U << 31, O_RDWR, "", plain + "cut_file:  gzip: malloc buff falid.\n" + uncut},
        // For nothing, for a part of the body, and for the body but not its compressed form.
        {1000000, O_RDWR, "room 4k", unwritten},
        {1000000, O_RDWR, "room 500k", unwritten},
        {1000000, O_RDWR, "room 1500k", put_back},
        // A gzip that is killed in its midst leaves a part of the compressed body; one that goes
        // wrong otherwise may leave none at all.
        {1000000, O_RDWR, "fake gzip 'exit 127'", put_back},
        {1000000, O_RDWR, R"(fake gzip 'head -c 1000 "$1" > "$1.gz"; kill -KILL $$')", put_back},
        {1000000, O_RDWR, R"(fake gzip 'head -c 1000 "$1" > "$1.gz"')", put_back},
        {1000000, O_RDWR, R"(fake gzip '/bin/gzip -k "$1"')", put_back},
        {1000000, O_RDWR, R"(fake gzip 'rm "$1"')", "-1\n" + unpacked + lost},
        {1000000, O_RDWR, R"(fake gzip 'rm "$1"; : > "$1.gz"')",
         "-1\ncombine_file:  tmp_len = 0,combine_file: mmap failed `(size=0)'\n" + lost},
        {1000000, O_RDWR, R"(fake gzip 'rm "$1"; ln -s /opt/other "$1.gz"; echo x > /opt/other')",
         "-1\n" + unpacked + lost},
    };
    for (const auto &row : rows)
        EXPECT_EQ(compress(body, row.data_len, row.script, row.mode), row.expected) << row.script;

    // An earlier call was killed behind the cut, or while it combined. It has left just the body.
    const struct {
        const char *image, *script, *left;
    } left_rows[] = {
        {"", "printf 12345 > /tmp/tmppfile", "/tmp/tmppfile"},
        {"\x1f\x8b\x08", "printf 12345 | gzip > /tmp/tmppfile.gz", "/tmp/tmppfile.gz"},
        {"12", "printf 12345 | gzip > /tmp/tmppfile.gz", nullptr},
        {"", "printf 123456 > /tmp/tmppfile", "/tmp/tmppfile"},
        {"", "printf 12345 > /opt/other; ln -s /opt/other /tmp/tmppfile", nullptr},
    };
    sh("rm /usr/local/sbin/gzip");
    for (const auto &[image, script, left] : left_rows) {
        const std::string kept = left != nullptr ? std::string(", ") + left : "";
        const std::string told = left != nullptr ? f + "the image lacks its body, and " + left +
                                                       " may hold it: move it away first\n"
                                                 : "";
        EXPECT_EQ(compress(image, 5, script),
                  "-1, plain body" + kept + "\ncut_file: fread /update_fd falid.\n" + uncut + told);
        sh("rm -f /tmp/tmppfile*");
    }

    // A caller that takes the length from the file has none left then; the header knows better.
    {
        std::ofstream(path, std::ios::binary) << image_around("12345", 1).substr(0, 488);
        sh("printf 12345 > /tmp/tmppfile");
        const int cut = open(path.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_EQ(gzip_dirs_and_files(cut, nullptr, 488, 0), -1);
        close(cut);
        EXPECT_EQ(read_file("/tmp/tmppfile"), "12345");
        sh("rm -f /tmp/tmppfile*");
    }

    // An image that is open for reading alone: that it can't be cut shows when it is to be written.
    EXPECT_EQ(compress(body, 1000000, "", O_RDONLY).rfind("-1, plain body, /tmp/tmppfile\n", 0),
              0U);
    EXPECT_TRUE(read_file("/tmp/tmppfile") == body);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(cut_file(fd, 488, 1000000, "/tmp/tmppfile"), 0);
    EXPECT_EQ(combine_file(fd, 488, "/tmp/none"), -1);
    close(fd);

    // The disk of the image has room for the plain body, to the last page, and no more. If that
    // can't be expanded either, the compressed one is kept.
    sh("mkdir -p /small; mount -t tmpfs -o size=2000k tmpfs /small");
    path = "/small/image";
    const std::string full = noise(2000 * 1024 - 488);
    const std::string expanded = compress(full, full.size());
    const std::string kept = compress(
        full, full.size(), R"(fake gunzip 'head -c 1000 "$1" > "${1%.gz}"; kill -KILL $$')");
    const std::string size = std::to_string(fs::file_size("/tmp/tmppfile.gz"));
    const std::string failed = "combine_file:  tmp_len = " + size +
                               ",combine_file: bb_full_write failed `(size=" + size + ")'\n";
    EXPECT_EQ(expanded, plain + failed + combined(full.size()) + "combine_file faild.\n");
    EXPECT_EQ(kept, "-1, /tmp/tmppfile, /tmp/tmppfile.gz\n" + failed + kept_in("/tmp/tmppfile.gz"));
    sh("umount /small; rm /tmp/tmppfile /usr/local/sbin/gunzip; gunzip /tmp/tmppfile.gz");
    EXPECT_TRUE(read_file("/tmp/tmppfile") == full);
}

TEST_F(Compression, WhatCannotBeExpanded)
{
    const auto expand = [this](const std::string &body, size_t data_len) {
        std::ofstream(path, std::ios::binary) << header << body;
        FILE *const infile = fopen(path.c_str(), "rb");
        const std::string text = outcome([infile, data_len] {
            return std::to_string(reinterpret_cast<uintptr_t>(open_gunzip_file(infile, data_len)));
        });
        fclose(infile);
        return text;
    };
    const std::string f = "open_gunzip_file: ";
    const std::string missing = f + " file not exist filename </tmp/tmppfile>.\n\n";
    const std::string uncopied = f + "copy_file </tmp/tmppfile.gz> failed.\n\n";
    EXPECT_EQ(expand("no gzip data", 12), "1\n" + missing);
    EXPECT_EQ(expand("", 0), "1\n" + missing);
    EXPECT_EQ(expand("short", 12), "1\n" + uncopied + missing);
    EXPECT_EQ(expand("long", 1U << 31), "1\n" + uncopied + missing);
    // A link that a neighbour makes behind the removal leads nowhere, and what is no plain file, or
    // not at its place, is not opened.
    close(bind_mailbox("/tmp/socket"));
    for (const char *gunzip : {"mv /tmp/socket /tmp/tmppfile", "ln -s /opt/image /tmp/tmppfile"}) {
        sh("cd /usr/local/sbin; echo '" + std::string(gunzip) + "' > gunzip; chmod +x gunzip\n" +
           "echo '/bin/rm \"$@\"; ln -s /opt/made /tmp/tmppfile.gz' > rm; chmod +x rm");
        EXPECT_EQ(expand("body", 4), "2\n" + f + "open error  filename </tmp/tmppfile>.\n\n");
        EXPECT_FALSE(fs::exists("/opt/made"));
        sh("/bin/rm /usr/local/sbin/rm /tmp/tmppfile");
    }
}
