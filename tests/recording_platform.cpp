// A platform layer that records.
#include "tests/recording_platform.h"

#include "platform/platform.h"
#include "update/dtt_update_common/trace_log.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <numeric>
#include <set>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace fs = std::filesystem;

recording rec;

static void add(const std::string &line)
{
    rec.lines.push_back(line);
    if (rec.on_line)
        rec.on_line(line);
}

std::string recording::all(const std::string &kind) const
{
    std::string text;
    for (const std::string &line : lines)
        if (line.rfind(kind + " ", 0) == 0)
            text += (text.empty() ? "" : "|") + line.substr(kind.size() + 1);
    return text;
}

bool recording::has(const std::string &line) const
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

std::vector<std::string> recording::last(size_t count) const
{
    return {lines.end() - static_cast<long>(std::min(count, lines.size())), lines.end()};
}

// Sets the limit `size` on `resource` while a line that begins with `head` is the last one.
static void limit_at(const std::string &head, __rlimit_resource_t resource, rlim_t size)
{
    rlimit usual;
    ASSERT_EQ(getrlimit(resource, &usual), 0);
    rec.on_line = [head, resource, size, usual](const std::string &line) {
        const rlimit tight = {size, usual.rlim_max};
        setrlimit(resource, line.rfind(head, 0) == 0 ? &tight : &usual);
    };
}

void exhaust_descriptors_at(const std::string &head)
{
    limit_at(head, RLIMIT_NOFILE, 0);
}

void limit_files_at(const std::string &head, size_t size)
{
    signal(SIGXFSZ, SIG_IGN);
    limit_at(head, RLIMIT_FSIZE, size);
}

void unmappable_at(const std::string &line, const std::string &name)
{
    rec.on_line = [line, name](const std::string &now) {
        if (now != line)
            return;
        for (const fs::directory_entry &item : fs::directory_iterator("/proc/self/fd")) {
            std::error_code error;
            if (fs::read_symlink(item, error).filename() != name)
                continue;
            const int plain = open("/dev/null", O_WRONLY);
            dup2(plain, atoi(item.path().filename().c_str()));
            close(plain);
        }
    };
}

void Recorded::SetUp()
{
    // Paths in links and commands have to be short, so this is no place of the tester's choice.
    dir = "/tmp/recorded_XXXXXX";
    ASSERT_NE(mkdtemp(dir.data()), nullptr);
    rec = {};
    rec.dir = dir;
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    // The first line of a process opens the log file, which is no matter of the test.
    TRACE("\n");
    console();
    rec.lines.clear();
}

std::string Recorded::console()
{
    const std::string text =
        testing::internal::GetCapturedStderr() + testing::internal::GetCapturedStdout();
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    console_text += text;
    return text;
}

void Recorded::TearDown()
{
    // The reports of failures have gone to the same places.
    console();
    testing::internal::GetCapturedStdout();
    testing::internal::GetCapturedStderr();
    if (HasFailure())
        fputs(console_text.c_str(), stdout);
    EXPECT_EQ(chdir("/"), 0);
    fs::remove_all(dir);
}

std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

void write_file_text(const std::string &path, const std::string &text)
{
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << text;
}

std::string tree_text(const std::string &dir)
{
    std::set<std::string> items;
    for (const fs::directory_entry &item : fs::recursive_directory_iterator(dir)) {
        const std::string path = item.path().lexically_relative(dir);
        if (item.is_symlink())
            items.insert(path + " -> " + fs::read_symlink(item).string() + "\n");
        else if (item.is_regular_file())
            items.insert(path + " = " + read_file(item.path()) + "\n");
        else if (fs::is_empty(item))
            items.insert(path + "/\n");
    }
    return std::accumulate(items.begin(), items.end(), std::string());
}

// The fixed scratch tree of a backup, which lies in the test's directory here.
static std::string placed(const char *path)
{
    return strncmp(path, "/tmp/ubackup", 12) == 0 ? rec.dir + path : path;
}

// The effect of the commands that a test needs, without a shell: a damaged image can hold any text.
static void take_effect(const char *cmd)
{
    char path[4096];
    char text[4096];
    char link[4096];
    std::error_code error;
    const auto ours = [&path] {
        const std::string place = placed(path);
        snprintf(path, sizeof path, "%s", place.c_str());
        return place.rfind(rec.dir, 0) == 0;
    };
    if (sscanf(cmd, "/bin/mkdir -p %4095[^\n]", path) == 1 && ours()) {
        fs::create_directories(path, error);
    } else if (sscanf(cmd, "cd /%4095s && /bin/ln -sf %4095s %4095s", path, text, link) == 3 &&
               ours()) {
        fs::remove(std::string(path) + link, error);
        fs::create_symlink(text, std::string(path) + link, error);
    } else if (sscanf(cmd, "/bin/touch %4095s", path) == 1 && ours()) {
        std::ofstream(path, std::ios::app).flush();
    } else if (sscanf(cmd, "/bin/echo %4095s > %4095s", text, path) == 2 && ours()) {
        std::ofstream(path) << text << "\n";
    } else if (sscanf(cmd, "/bin/rm -rf %4095s", path) == 1 && ours()) {
        fs::remove_all(path, error);
    }
}

static bool fails(const char *cmd)
{
    return !rec.failing.empty() && strncmp(cmd, rec.failing.c_str(), rec.failing.size()) == 0;
}

int my_system(const char *cmd)
{
    add(std::string("run ") + cmd);
    if (fails(cmd))
        return -1;
    take_effect(cmd);
    return rec.run_result;
}

apcard_bit_t apcard_bit_self(void)
{
    return rec.card_bit;
}

FILE *my_popen(const char *cmd, const char *mode)
{
    EXPECT_STREQ(mode, "r");
    add(std::string("popen ") + cmd);
    if (fails(cmd))
        return nullptr;
    rec.open_streams++;
    FILE *const stream = tmpfile();
    for (const auto &[head, output] : rec.outputs)
        if (strncmp(cmd, head.c_str(), head.size()) == 0) {
            fputs(output.c_str(), stream);
            break;
        }
    rewind(stream);
    return stream;
}

int my_pclose(FILE *stream)
{
    rec.open_streams--;
    return fclose(stream);
}

int sysconf_openenv(void)
{
    return rec.device_name != nullptr ? 0 : -ENOENT;
}

char *sysconf_getenv(const char *key)
{
    EXPECT_STREQ(key, "device_name");
    return rec.device_name[0] != '-' ? const_cast<char *>(rec.device_name) : nullptr;
}

// The buffer of the one message that is under way. It comes with another message's bytes in it.
static std::string message_buffer;

int apmsg_init(apmsg_t *)
{
    return 0;
}

void *apmsg_alloc(apmsg_t *, unsigned int size)
{
    rec.open_messages++;
    message_buffer.assign(size, 'm');
    return message_buffer.data();
}

int apmsg_detach(apmsg_t *, void *buf)
{
    EXPECT_EQ(buf, message_buffer.data());
    add("apmsg detach");
    return 0;
}

int apmsg_atomic_send(apsess_id_t sess, apmsg_t *, int flag)
{
    EXPECT_EQ(flag, -1);
    add("apmsg send " + std::to_string(sess));
    rec.messages.push_back(message_buffer);
    if (rec.send_result >= 0)
        rec.open_messages--;
    return rec.send_result;
}

int apmsg_free(apmsg_t *)
{
    rec.open_messages--;
    add("apmsg free");
    return 0;
}

int apsess_key_init(apsess_key_t *key, aptid_t *pid, const char *qname, int a, int b, int c)
{
    EXPECT_EQ(qname, nullptr);
    EXPECT_EQ(a | b | c, 0);
    *key = {};
    key->pid = *pid;
    return 0;
}

int apsess_find(apsess_id_t *id, apsess_key_t *key, int)
{
    EXPECT_EQ(key->pid, 0x010a3900U);
    if (!rec.session_exists)
        return -2;
    *id = 5;
    return 0;
}

int apipc_send(aptid_t dest, const void *msg, unsigned int size)
{
    char text[64];
    snprintf(text, sizeof text, "send %08x %u", dest, size);
    rec.messages.emplace_back(static_cast<const char *>(msg), size);
    add(text);
    return rec.send_result;
}

int aplog_printf(int level, const char *module, const char *func, const char *format, ...)
{
    EXPECT_EQ(level, 0);
    EXPECT_STREQ(module, "imgdeploy");
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    rec.formats += format + std::string("\n");
    add(std::string("log ") + func + ": " + text);
    return 0;
}

// A trace line is one flush of the log file's stream.
static ssize_t take_trace(void *, const char *data, size_t size)
{
    const std::string text(data, size);
    const size_t end = std::min(text.find("]:: "), text.size() - 4) + 4;
    rec.prefix = text.substr(0, end);
    add("trace " + text.substr(end));
    return static_cast<ssize_t>(size);
}

extern "C" {

FILE *FILE_CALL(__real_, fopen)(const char *path, const char *mode);
int __real_fclose(FILE *stream);
int FILE_CALL(__real_, open)(const char *path, int flags, ...);
int __real_access(const char *path, int mode);
int __real_chdir(const char *path);
int __real_mkdir(const char *path, mode_t mode);

static FILE *trace_stream = nullptr;

FILE *FILE_CALL(__wrap_, fopen)(const char *path, const char *mode)
{
    if (strncmp(path, "/var/log/", 9) != 0)
        return FILE_CALL(__real_, fopen)(path, mode);
    EXPECT_EQ(std::string(mode).substr(0, 2), "w+");
    add(std::string("open ") + path);
    if (!rec.log_file_opens)
        return nullptr;
    trace_stream = fopencookie(nullptr, "w", {nullptr, take_trace, nullptr, nullptr});
    setvbuf(trace_stream, nullptr, _IOFBF, 1 << 16);
    return trace_stream;
}

int FILE_CALL(__wrap_, open)(const char *path, int flags, mode_t mode)
{
    return FILE_CALL(__real_, open)(placed(path).c_str(), flags, mode);
}

int __wrap_access(const char *path, int mode)
{
    return __real_access(placed(path).c_str(), mode);
}

int __wrap_chdir(const char *path)
{
    return __real_chdir(placed(path).c_str());
}

int __wrap_mkdir(const char *path, mode_t mode)
{
    return __real_mkdir(placed(path).c_str(), mode);
}

int __wrap_fclose(FILE *stream)
{
    if (stream == trace_stream)
        add("close");
    return __real_fclose(stream);
}

int __wrap_gettimeofday(timeval *now, void *)
{
    *now = {static_cast<time_t>(rec.time_us / 1000000),
            static_cast<suseconds_t>(rec.time_us % 1000000)};
    return 0;
}

unsigned int __wrap_sleep(unsigned int seconds)
{
    add("sleep " + std::to_string(seconds));
    return 0;
}

int __wrap_syncfs(int)
{
    add("syncfs");
    errno = rec.sync_error;
    return rec.sync_error == 0 ? 0 : -1;
}

int __wrap_usleep(useconds_t us)
{
    add("usleep " + std::to_string(us));
    return 0;
}

int __wrap_select(int count, fd_set *, fd_set *, fd_set *, timeval *timeout)
{
    EXPECT_EQ(count, 0);
    EXPECT_EQ(timeout->tv_sec, 0);
    EXPECT_EQ(timeout->tv_usec, 10000);
    *timeout = {}; // as Linux does
    rec.polls++;
    if (rec.on_poll)
        rec.on_poll(rec.polls);
    return 0;
}

int __wrap_shmget(int key, size_t size, int flags)
{
    char text[64];
    snprintf(text, sizeof text, "shm get 0x%x %zu 0%o", static_cast<unsigned int>(key), size,
             static_cast<unsigned int>(flags));
    add(text);
    errno = ENOENT;
    return (rec.shm_exists || flags != 0) && !rec.shm_fails ? 5 : -1;
}

void *__wrap_shmat(int id, const void *, int)
{
    EXPECT_EQ(id, 5);
    return &rec.block;
}

int __wrap_shmdt(const void *address)
{
    EXPECT_EQ(address, &rec.block);
    add("shm detach");
    return 0;
}
}
