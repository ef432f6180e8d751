// The files that `minisign` writes.
#include "companions/signature/signature_files.h"

#include "update/dtt_update_common/raw_io.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr char UNTRUSTED[] = "untrusted comment: ";
static constexpr char TRUSTED[] = "trusted comment: ";
static constexpr char KEY_LABEL[] = "minisign public key ";
static constexpr uint8_t KEY_ALGORITHM[] = {'E', 'd'};
static constexpr uint8_t HASHED_ALGORITHM[] = {'E', 'D'};
static constexpr size_t ALGORITHM_SIZE = 2;

// A piece of a text that has no terminator.
struct text_part {
    const char *at;
    size_t len;
};

// Takes the next line, which ends with a line feed, off the rest of a text.
static bool take_line(text_part *rest, text_part *line)
{
    const void *const end = memchr(rest->at, '\n', rest->len);
    if (end == nullptr)
        return false;
    *line = {rest->at, static_cast<size_t>(static_cast<const char *>(end) - rest->at)};
    rest->at += line->len + 1;
    rest->len -= line->len + 1;
    return true;
}

static bool take_words(text_part *line, const char *words)
{
    const size_t len = strlen(words);
    if (line->len < len || memcmp(line->at, words, len) != 0)
        return false;
    *line = {line->at + len, line->len - len};
    return true;
}

static int sextet(char digit)
{
    static constexpr char DIGITS[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    const void *const found = memchr(DIGITS, digit, sizeof DIGITS - 1);
    return found != nullptr ? static_cast<int>(static_cast<const char *>(found) - DIGITS) : -1;
}

// Decodes the one base64 text that stands for `size` bytes: bits that belong to no byte are 0.
static bool decode(text_part line, uint8_t *bytes, size_t size)
{
    if (line.len != (size + 2) / 3 * 4)
        return false;
    unsigned int bits = 0;
    int count = 0;
    size_t done = 0;
    for (size_t i = 0; i < line.len; i++) {
        if (done == size) {
            if (line.at[i] != '=')
                return false;
            continue;
        }
        const int value = sextet(line.at[i]);
        if (value < 0)
            return false;
        bits = bits << 6 | static_cast<unsigned int>(value);
        count += 6;
        if (count < 8)
            continue;
        count -= 8;
        bytes[done++] = static_cast<uint8_t>(bits >> count);
        bits &= (1U << count) - 1;
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
    text_part rest = {text, len};
    text_part label;
    text_part line;
    if (!take_line(&rest, &label) || !take_words(&label, UNTRUSTED) || !take_line(&rest, &line) ||
        rest.len != 0)
        return "is no public key, or is cut short";
    uint8_t bytes[ALGORITHM_SIZE + sizeof *key];
    if (!decode(line, bytes, sizeof bytes) || memcmp(bytes, KEY_ALGORITHM, ALGORITHM_SIZE) != 0)
        return "is no public key, or is damaged";
    memcpy(key, bytes + ALGORITHM_SIZE, sizeof *key);
    const key_name name = name_of_key(&key->id);
    if (!take_words(&label, KEY_LABEL) || label.len != strlen(name.text) ||
        memcmp(label.at, name.text, label.len) != 0)
        return "does not name its own key in its first line";
    return nullptr;
}

const char *parse_signature(const char *text, size_t len, file_signature *signature)
{
    const char *const fault = form_fault(text, len);
    if (fault != nullptr)
        return fault;
    text_part rest = {text, len};
    text_part label;
    text_part line;
    text_part comment;
    text_part global;
    if (!take_line(&rest, &label) || !take_words(&label, UNTRUSTED) || !take_line(&rest, &line) ||
        !take_line(&rest, &comment) || !take_words(&comment, TRUSTED) ||
        !take_line(&rest, &global) || rest.len != 0)
        return "is no signature, or is cut short";
    if (!take_words(&label, SIGNATURE_LABEL) || label.len != 0)
        return "has another first line than minisign writes by itself";
    if (comment.len >= sizeof signature->comment)
        return "has too long a comment";
    uint8_t bytes[ALGORITHM_SIZE + sizeof signature->key + sizeof signature->of_image];
    if (!decode(line, bytes, sizeof bytes) ||
        !decode(global, signature->of_comment, sizeof signature->of_comment))
        return "is no signature, or is damaged";
    if (memcmp(bytes, KEY_ALGORITHM, ALGORITHM_SIZE) == 0)
        return "is in the old form, not over the image's hash: sign without -l";
    if (memcmp(bytes, HASHED_ALGORITHM, ALGORITHM_SIZE) != 0)
        return "is of an unknown form, or is damaged";
    memcpy(&signature->key, bytes + ALGORITHM_SIZE, sizeof signature->key);
    memcpy(signature->of_image, bytes + ALGORITHM_SIZE + sizeof signature->key,
           sizeof signature->of_image);
    memcpy(signature->comment, comment.at, comment.len);
    signature->comment[comment.len] = '\0';
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
    head->len = 0;
    // Without O_NONBLOCK a named pipe would wait for its writer.
    const int fd =
        openat(dir, name, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY | (ours ? O_NOFOLLOW : 0));
    if (fd < 0)
        return errno == ELOOP && ours ? "is a link" : strerror(errno);
    struct stat st;
    const char *fault = nullptr;
    if (fstat(fd, &st) != 0)
        fault = strerror(errno);
    else if (!S_ISREG(st.st_mode))
        fault = "is no plain file";
    else if (ours && !is_ours(&st))
        fault = "can be written to by others";
    else
        head->len = full_pread(fd, head->text, sizeof head->text, 0);
    close(fd);
    return fault;
}

const char *read_key(const char *path, public_key *key)
{
    file_head head;
    const char *const fault = read_head(AT_FDCWD, path, false, &head);
    return fault != nullptr ? fault : parse_key(head.text, head.len, key);
}

const char *read_signature_of(const char *image, file_signature *signature)
{
    char path[PATH_MAX];
    const int len = snprintf(path, sizeof path, "%s%s", image, SIGNATURE_SUFFIX);
    if (len < 0 || static_cast<size_t>(len) >= sizeof path)
        return strerror(ENAMETOOLONG);
    file_head head;
    const char *const fault = read_head(AT_FDCWD, path, false, &head);
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
    file_head head;
    public_key key;
    const char *fault = read_head(dir, name, true, &head);
    if (fault == nullptr)
        fault = parse_key(head.text, head.len, &key);
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
    static constexpr char SUFFIX[] = ".pub";
    const size_t len = strlen(name);
    return name[0] != '.' && len >= sizeof SUFFIX &&
           strcmp(name + len - (sizeof SUFFIX - 1), SUFFIX) == 0;
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

key_fault load_keys(const char *dir, key_ring *ring)
{
    ring->count = 0;
    key_fault fault = {};
    snprintf(fault.where, sizeof fault.where, "%s", dir);
    const int fd = open(dir, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        fault.why = errno == ENOENT ? nullptr : strerror(errno);
        return fault;
    }
    fault.why = directory_fault(fd);
    DIR *const list = fault.why == nullptr ? fdopendir(fd) : nullptr;
    if (list == nullptr) {
        if (fault.why == nullptr)
            fault.why = strerror(errno);
        close(fd);
        return fault;
    }
    fault.why = add_all_keys(list, ring, &fault);
    closedir(list);
    return fault;
}
