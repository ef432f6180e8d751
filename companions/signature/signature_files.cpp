// The files that `minisign` writes.
#include "companions/signature/signature_files.h"

#include "companions/owners.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

static constexpr char UNTRUSTED[] = "untrusted comment: ";
static constexpr char TRUSTED[] = "trusted comment: ";
static constexpr char KEY_LABEL[] = "minisign public key ";
static constexpr char KEY_ALGORITHM[] = "Ed";
static constexpr char HASHED_ALGORITHM[] = "ED";

// What the base64 texts stand for.
struct key_record {
    char algorithm[2];
    public_key key;
};

struct signature_record {
    char algorithm[2];
    key_id key;
    uint8_t of_image[sizeof file_signature::of_image];
};

static_assert(sizeof(key_record) == 42 && sizeof(signature_record) == 74, "without padding");

static bool has_algorithm(const char (&algorithm)[2], const char *wanted)
{
    return memcmp(algorithm, wanted, sizeof algorithm) == 0;
}

// Divides a text into the lines that it has to have, each ended by a line feed.
template <size_t COUNT>
static bool take_lines(std::string_view text, std::string_view (&lines)[COUNT])
{
    for (std::string_view &line : lines) {
        const size_t len = text.find('\n');
        if (len == std::string_view::npos)
            return false;
        line = std::string_view(text.data(), len);
        text.remove_prefix(len + 1);
    }
    return text.empty();
}

static bool take_words(std::string_view *line, std::string_view words)
{
    if (std::string_view(line->data(), std::min(line->size(), words.size())) != words)
        return false;
    line->remove_prefix(words.size());
    return true;
}

// Decodes the one base64 text that stands for a record of this size: bits that belong to no byte
// are 0.
static bool decode(std::string_view line, void *record, size_t size)
{
    static constexpr std::string_view DIGITS =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    if (line.size() != (size + 2) / 3 * 4)
        return false;
    size_t bits = 0;
    int count = 0;
    size_t done = 0;
    for (const char digit : line) {
        if (done == size) {
            if (digit != '=')
                return false;
            continue;
        }
        const size_t value = DIGITS.find(digit);
        if (value == std::string_view::npos)
            return false;
        bits = bits << 6 | value;
        count += 6;
        if (count < 8)
            continue;
        count -= 8;
        static_cast<uint8_t *>(record)[done++] = static_cast<uint8_t>(bits >> count);
        bits &= (size_t{1} << count) - 1;
    }
    return bits == 0;
}

key_name name_of_key(const key_id *id)
{
    key_name name;
    unsigned long long number = 0;
    for (size_t i = sizeof id->bytes; i > 0; i--)
        number = number << 8 | id->bytes[i - 1];
    snprintf(name.text, sizeof name.text, "%llX", number);
    return name;
}

// What is wrong with a text whatever it is to be. A line end of another system or a byte 0 would be
// passed over by one reader and not by another one.
static const char *form_fault(const char *text, size_t len)
{
    if (len > SIGNATURE_FILE_SIZE)
        return "is too long";
    if (memchr(text, '\r', len) != nullptr)
        return "has line ends of another system";
    if (memchr(text, '\0', len) != nullptr)
        return "is no text";
    return nullptr;
}

const char *parse_key(const char *text, size_t len, public_key *key)
{
    const char *const fault = form_fault(text, len);
    if (fault != nullptr)
        return fault;
    std::string_view lines[2];
    auto &[label, line] = lines;
    if (!take_lines({text, len}, lines) || !take_words(&label, UNTRUSTED))
        return "is no public key, or is cut short";
    key_record record;
    if (!decode(line, &record, sizeof record) || !has_algorithm(record.algorithm, KEY_ALGORITHM))
        return "is no public key, or is damaged";
    *key = record.key;
    if (!take_words(&label, KEY_LABEL) || label != name_of_key(&key->id).text)
        return "does not name its own key in its first line";
    return nullptr;
}

const char *parse_signature(const char *text, size_t len, file_signature *signature)
{
    const char *const fault = form_fault(text, len);
    if (fault != nullptr)
        return fault;
    std::string_view lines[4];
    auto &[label, line, comment, global] = lines;
    if (!take_lines({text, len}, lines) || !take_words(&label, UNTRUSTED) ||
        !take_words(&comment, TRUSTED))
        return "is no signature, or is cut short";
    if (label != SIGNATURE_LABEL)
        return "has another first line than minisign writes by itself";
    if (comment.size() >= sizeof signature->comment)
        return "has too long a comment";
    signature_record record;
    if (!decode(line, &record, sizeof record) ||
        !decode(global, signature->of_comment, sizeof signature->of_comment))
        return "is no signature, or is damaged";
    if (has_algorithm(record.algorithm, KEY_ALGORITHM))
        return "is in the old form, not over the image's hash: sign without -l";
    if (!has_algorithm(record.algorithm, HASHED_ALGORITHM))
        return "is of an unknown form, or is damaged";
    signature->key = record.key;
    memcpy(signature->of_image, record.of_image, sizeof record.of_image);
    memcpy(signature->comment, comment.data(), comment.size());
    signature->comment[comment.size()] = '\0';
    return nullptr;
}

// The beginning of a file, one byte more than one may have.
struct file_head {
    char text[SIGNATURE_FILE_SIZE + 1];
    size_t len;
};

// Whether nobody else than the superuser and this user can write to it.
static bool is_ours(const struct stat *st)
{
    return (st->st_uid == 0 || st->st_uid == geteuid()) && (st->st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

// Reads the file `name` of the directory open on `dir`. With `ours` it must be one that others
// can't write to or have led to.
static const char *read_head(int dir, const char *name, bool ours, file_head *head)
{
    // Without O_NONBLOCK a named pipe would wait for its writer.
    const descriptor file(
        openat(dir, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (ours ? O_NOFOLLOW : 0)));
    struct stat st;
    if (!file.is_open() || fstat(file.get(), &st) != 0)
        return errno == ELOOP && ours ? "is a link" : strerror(errno);
    if (!S_ISREG(st.st_mode))
        return "is no plain file";
    if (ours && !is_ours(&st))
        return "can be written to by others";
    head->len = full_pread(file.get(), head->text, sizeof head->text, 0);
    return errno != 0 ? strerror(errno) : nullptr;
}

static const char *read_key_at(int dir, const char *name, bool ours, public_key *key)
{
    file_head head;
    const char *const fault = read_head(dir, name, ours, &head);
    return fault != nullptr ? fault : parse_key(head.text, head.len, key);
}

const char *read_key(const char *path, public_key *key)
{
    return read_key_at(AT_FDCWD, path, false, key);
}

const char *read_signature_of(const char *image, file_signature *signature)
{
    const std::string path = std::string(image) + SIGNATURE_SUFFIX;
    file_head head;
    const char *const fault = read_head(AT_FDCWD, path.c_str(), false, &head);
    return fault != nullptr ? fault : parse_signature(head.text, head.len, signature);
}

const public_key *find_key(const key_ring *ring, const key_id *id)
{
    for (int i = 0; i < ring->count; i++)
        if (memcmp(&ring->keys[i].id, id, sizeof *id) == 0)
            return &ring->keys[i];
    return nullptr;
}

static const char *add_key(int dir, const char *name, key_ring *ring)
{
    public_key key;
    const char *const fault = read_key_at(dir, name, true, &key);
    if (fault != nullptr)
        return fault;
    if (find_key(ring, &key.id) != nullptr)
        return "has the id of another key file";
    if (ring->count == KEYS_MAX)
        return "is one key file too many";
    ring->keys[ring->count++] = key;
    return nullptr;
}

static const char *directory_fault(int fd)
{
    struct stat st;
    struct stat above;
    if (fstat(fd, &st) != 0 || fstatat(fd, "..", &above, 0) != 0)
        return strerror(errno);
    return is_ours(&st) && is_ours(&above) ? nullptr : "can be written to by others";
}

static bool is_key_name(const char *name)
{
    const size_t len = strlen(name);
    return name[0] != '.' && len > 4 && strcmp(name + len - 4, ".pub") == 0;
}

static const char *add_all_keys(DIR *list, key_ring *ring, key_fault *fault)
{
    const size_t len = strlen(fault->where);
    const char *why = nullptr;
    errno = 0;
    for (const dirent *entry; why == nullptr && (entry = readdir(list)) != nullptr; errno = 0) {
        if (!is_key_name(entry->d_name))
            continue;
        why = add_key(dirfd(list), entry->d_name, ring);
        if (why != nullptr)
            snprintf(fault->where + len, sizeof fault->where - len, "/%s", entry->d_name);
    }
    return why == nullptr && errno != 0 ? strerror(errno) : why;
}

// Like opendir(3), but follows no link.
static DIR *open_directory(const char *path)
{
    const int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    DIR *const list = fd >= 0 ? fdopendir(fd) : nullptr;
    const descriptor unused(list == nullptr ? fd : -1);
    return list;
}

// Whether the path, or the directory above it, stands there in whatever form: keys are meant then.
static bool is_meant(const char *dir)
{
    struct stat st;
    char above[PATH_MAX];
    snprintf(above, sizeof above, "%.*s", static_cast<int>(strrchr(dir, '/') - dir), dir);
    return lstat(dir, &st) == 0 || (lstat(above, &st) == 0 && !S_ISDIR(st.st_mode));
}

key_fault load_keys(const char *dir, key_ring *ring)
{
    ring->count = 0;
    key_fault fault = {};
    snprintf(fault.where, sizeof fault.where, "%s", dir);
    const directory_stream list(open_directory(dir));
    if (list == nullptr) {
        const int error = errno;
        fault.why =
            (error == ENOENT || error == ENOTDIR) && !is_meant(dir) ? nullptr : strerror(error);
        return fault;
    }
    fault.why = directory_fault(dirfd(list.get()));
    if (fault.why == nullptr)
        fault.why = add_all_keys(list.get(), ring, &fault);
    if (fault.why == nullptr && ring->count == 0)
        fault.why = "holds no key: put one there with \"install -m 644 KEY.pub /etc/upgd/keys/\"";
    return fault;
}
