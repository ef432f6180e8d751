// The list of what the system asks for. The linker sends the calls here, by their names.
#include "tests/story.h"

#include "device_msg.h"
#include "platform/platform.h"
#include "update_service.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <regex>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/vfs.h>
#include <unistd.h>
#include <utility>

#if __SIZEOF_POINTER__ == 4
#define FILE_CALL(prefix, call) prefix##call##64
#else
#define FILE_CALL(prefix, call) prefix##call
#endif

recording rec;

static const upgrade_info_t *block = nullptr;
static int card_type = 0; // of the last request

static std::string format(const char *text, ...)
{
    char line[8192];
    va_list args;
    va_start(args, text);
    vsnprintf(line, sizeof line, text, args);
    va_end(args);
    return line;
}

std::string shown(const std::string &text)
{
    static const std::string named("\n\r\t\0\\\"", 6);
    std::string out;
    for (size_t at = 0, count; at < text.size(); at += count) {
        const char c = text[at];
        count = std::min(text.find_first_not_of(c, at), text.size()) - at;
        std::string one(1, c);
        if (const size_t name = named.find(c); name != named.npos)
            one = {'\\', "nrt0\\\""[name]};
        else if (c < ' ' || c > '~')
            one = format("\\x%02hhX", c);
        if (count < 24 && !(c == '\0' && count > 3))
            count = 1;
        out += one + (count > 1 ? "{" + std::to_string(count) + "}" : "");
    }
    if (!out.empty() && out.back() == ' ')
        out.replace(out.size() - 1, 1, "\\s");
    return out;
}

static bool fails(const std::string &line)
{
    return std::any_of(rec.failing.begin(), rec.failing.end(),
                       [&line](const std::string &head) { return line.rfind(head, 0) == 0; });
}

static std::string name_of(int fd)
{
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(fd), error);
}

// Adds the line and returns whether the call is to fail.
static bool add(const std::string &line)
{
    static std::string last_block;
    static int last_polls = 0;
    if (block != nullptr) {
        const std::string now = format("block %d %d %d %d %d", block->file_nums, block->cur_nums,
                                       block->result, block->cur_percent, block->failed_nums);
        if (now != last_block)
            rec.on_line(last_block = now);
    }
    if (std::exchange(last_polls, rec.polls) != rec.polls && rec.polls != 0)
        rec.on_line("polls " + std::to_string(rec.polls));
    rec.on_line(line);
    return fails(line);
}

// An event's step, result and percent; a request's type, slot, model, number and file.
static std::string message_text(aptid_t task, const std::string &bytes)
{
    upgrade_msg_t event;
    stPmdFile file;
    stApMsg request;
    if (!rec.raw && bytes.size() == sizeof event) {
        memcpy(&event, bytes.data(), sizeof event);
        return format("event %d/%d/%d", event.update_param.value, event.upgrade_info.result,
                      event.upgrade_info.cur_percent);
    }
    if (rec.raw || bytes.size() != sizeof request + sizeof file)
        return format("send %08x ", task) + bytes;
    memcpy(&request, bytes.data(), sizeof request);
    memcpy(&file, bytes.data() + STAPMSG_DATA_OFFSET, sizeof file);
    card_type = file.file_type;
    return format("request %d/%d/0x%x/%d %s", file.file_type, request.kmddata.slot,
                  request.kmddata.model, request.kmddata.seq, file.file_patch);
}

// A trace line is one flush of the log file's stream.
static ssize_t take_trace(void *, const char *data, size_t size)
{
    static const std::regex form(R"((\S+ \S+ )pid=\d+(\] \[ +\S+/ *(\w+))/ *\d+ \]:: )");
    const std::string text(data, size);
    std::smatch found;
    std::regex_search(text, found, form);
    rec.prefix = found.format("$1$2");
    add(found.format("trace $3: $'"));
    return size;
}

extern "C" {

int __real_my_system(const char *cmd);
FILE *__real_my_popen(const char *cmd, const char *mode);
FILE *FILE_CALL(__real_, fopen)(const char *path, const char *mode);
ssize_t __real_getdents64(int fd, void *items, size_t size);
void *FILE_CALL(__real_, mmap)(void *place, size_t size, int access, int flags, int fd, off_t at);
int FILE_CALL(__real_, fstatfs)(int fd, struct statfs *fs);
void *__real_shmat(int id, const void *address, int flags);
int __real_rename(const char *from, const char *to);
int __real_close(int fd);

int __wrap_aplog_printf(int level, const char *module, const char *func, const char *text, ...)
{
    char line[8192];
    va_list args;
    va_start(args, text);
    vsnprintf(line, sizeof line, text, args);
    va_end(args);
    const bool usual = level == 0 && strcmp(module, "imgdeploy") == 0;
    add((usual ? "log " : "log of another module ") + std::string(func) + ": " + line);
    return 0;
}

int __wrap_my_system(const char *cmd)
{
    return add(std::string("run ") + cmd) ? -1 : __real_my_system(cmd);
}

FILE *__wrap_my_popen(const char *cmd, const char *mode)
{
    if (add(std::string("read ") + cmd))
        return nullptr;
    for (const auto &[head, output] : rec.outputs)
        if (std::string(cmd).rfind(head, 0) == 0) {
            setenv("OUTPUT", output.c_str(), 1);
            return __real_my_popen("printf %s \"$OUTPUT\"", mode);
        }
    return __real_my_popen(cmd, mode);
}

int __wrap_apipc_send(aptid_t task, const void *msg, unsigned int size)
{
    rec.polls = 0;
    return add(message_text(task, std::string(static_cast<const char *>(msg), size))) ? -7 : 0;
}

FILE *FILE_CALL(__wrap_, fopen)(const char *path, const char *mode)
{
    if (strncmp(path, "/var/log/", 9) != 0)
        return FILE_CALL(__real_, fopen)(path, mode);
    if (add(std::string("open ") + path + " " + std::string(mode).substr(0, 2)))
        return nullptr;
    FILE *const stream = fopencookie(nullptr, "w", {nullptr, take_trace, nullptr, nullptr});
    setvbuf(stream, nullptr, _IOFBF, 1 << 16);
    return stream;
}

ssize_t __wrap_getdents64(int fd, void *items, size_t size)
{
    const ssize_t read = __real_getdents64(fd, items, size);
    add("listing");
    for (ssize_t at = 0; at < read && !rec.types_are_told;) {
        auto *const item = reinterpret_cast<dirent64 *>(static_cast<char *>(items) + at);
        item->d_type = DT_UNKNOWN;
        at += item->d_reclen;
    }
    return read;
}

void *FILE_CALL(__wrap_, mmap)(void *place, size_t size, int access, int flags, int fd, off_t at)
{
    return add("map") ? (errno = ENOMEM, MAP_FAILED)
                      : FILE_CALL(__real_, mmap)(place, size, access, flags, fd, at);
}

// A mounted directory of this name does not count its subdirectories.
int FILE_CALL(__wrap_, fstatfs)(int fd, struct statfs *fs)
{
    const int result = FILE_CALL(__real_, fstatfs)(fd, fs);
    if (name_of(fd).find("/uncounted") != std::string::npos)
        fs->f_type = 0;
    return result;
}

// Each is interrupted once.
int __wrap_fsync(int fd)
{
    static bool again = false;
    again = !again;
    if (again)
        return errno = EINTR, -1;
    return add("fsync " + name_of(fd)) ? (errno = ENOSPC, -1) : 0;
}

int __wrap_syncfs(int fd)
{
    return add("syncfs " + name_of(fd)) ? (errno = ENOSPC, -1) : 0;
}

int __wrap_sync_file_range(int fd, off_t at, off_t size, unsigned int flags)
{
    add((at + size == 0 && flags == SYNC_FILE_RANGE_WRITE ? "begin " : "wait ") + name_of(fd));
    return 0;
}

int __wrap_rename(const char *from, const char *to)
{
    add(std::string("rename ") + from + " " + to);
    return __real_rename(from, to);
}

// A disk over a network tells of a failure only now.
int __wrap_close(int fd)
{
    const bool bad = fails("close " + name_of(fd));
    return __real_close(fd) != 0 || bad ? (errno = EIO, -1) : 0;
}

void __wrap_sync()
{
    add("sync");
}

void *__wrap_shmat(int id, const void *address, int flags)
{
    if (fails("shmat"))
        return MAP_FAILED;
    void *const place = __real_shmat(id, address, flags);
    block = static_cast<const upgrade_info_t *>(place);
    return place;
}

int __wrap_gettimeofday(timeval *now, void *)
{
    *now = {rec.time_us / 1000000, rec.time_us % 1000000};
    return 0;
}

time_t __wrap_time(time_t *)
{
    return rec.time_us / 1000000;
}

unsigned int __wrap_sleep(unsigned int seconds)
{
    add(format("wait %u s", seconds));
    return 0;
}

int __wrap_usleep(useconds_t us)
{
    add(format("wait %u us", us));
    return 0;
}

// A card answers at a poll; the polls are counted at the end of a wait for it.
int __wrap_select(int count, fd_set *, fd_set *, fd_set *, timeval *timeout)
{
    if (count != 0 || timeout->tv_sec != 0 || timeout->tv_usec != 10000)
        add("wait of another length");
    *timeout = {}; // as Linux does
    const auto answer = rec.answers.find(format("%d %d", card_type, ++rec.polls));
    if (answer != rec.answers.end())
        set_update_card_result(card_type, answer->second);
    return 0;
}
}
