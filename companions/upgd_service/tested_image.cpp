// An image that is tested ahead of its run.
#include "companions/upgd_service/tested_image.h"

#include "companions/signature/check.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/outcome.h"
#include "companions/upgd_service/settings_image.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/platform_log.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

// Where an image is kept while it is applied: beside the directory that images go to by themselves.
static constexpr char KEEP_DIRECTORY[] = "/opt";

// Opens a file without a name that has room for the image. Returns none with a sentence if it can't
// be had.
static descriptor open_keep(const tested_image *image)
{
    descriptor keep(open(KEEP_DIRECTORY, O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
    struct statvfs fs;
    std::string fault;
    if (!keep.is_open())
        // What kernels without such files say, and file systems.
        fault = errno == EISDIR || errno == EOPNOTSUPP ? "its file system has no unnamed files"
                                                       : strerror(errno);
    else if (fstatvfs(keep.get(), &fs) != 0)
        fault = strerror(errno);
    else if (uint64_t{fs.f_bavail} * fs.f_frsize < image->img.size)
        fault = "it needs " + std::to_string((image->img.size + 1023) / 1024) + " KiB, and " +
                std::to_string(uint64_t{fs.f_bavail} * fs.f_frsize / 1024) + " KiB are free";
    else
        return keep;
    refuse("make room there", "%s: can't be kept below %s while it is applied: %s", image->name,
           KEEP_DIRECTORY, fault.c_str());
    return descriptor();
}

// Opens the file that the caller wants the tested bytes in. Returns none with a sentence if it
// can't be had.
static descriptor open_copy(const std::string &path)
{
    descriptor copy(open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!copy.is_open())
        refuse("", "%s: %s", path.c_str(), strerror(errno));
    return copy;
}

// Reads the image once: into `hash` and `keep`, which may be none. Returns null, or what is wrong.
static const char *read_image(tested_image *image, image_hash *hash, const descriptor &keep)
{
    const uint32_t size = image->img.size;
    if (hash != nullptr)
        start_hash(hash);
    return read_through(
        &image->img, [&](const char *block, size_t len, uint32_t at) -> const char * {
            char step[64];
            snprintf(step, sizeof step, "reading, %u of %u MiB", at >> 20, size >> 20);
            show_progress(step, 0, 0, 0);
            image->sums.add(block, len);
            if (hash != nullptr)
                add_to_hash(hash, block, len);
            if (keep.is_open() && bb_full_write(keep.get(), block, len) < 0)
                return strerror(errno);
            return nullptr;
        });
}

// From here on the copy is the image. Returns null, or what is wrong.
static const char *turn_to_copy(tested_image *image, descriptor keep)
{
    if (!keep.is_open())
        return nullptr;
    image->file = std::move(keep);
    return examine_image(image->file.get(), &image->img);
}

// Whether the image is of the kind that the verb is for. Returns false with a sentence that names
// the other verb, but for --force.
static bool is_of_kind(const tested_image *image, image_use use, bool force)
{
    const bool settings = is_settings_backup(&image->img);
    return settings == (use == USE_RESTORE) ||
           refuse_unless(force, "", image->name,
                         settings
                             ? "is a settings backup: bring it back with \"upgd_service restore\""
                             : "is no settings backup: apply it with \"upgd_service update\"");
}

static bool has_its_crc(const tested_image *image, bool force)
{
    const char *const fault = crc_fault(&image->img, image->sums.body());
    return fault == nullptr || refuse_unless(force, "get it anew, or take it as it is with --force",
                                             image->name, fault);
}

// Whether the gate lets the bytes in that were read. Returns false with a sentence.
static bool passes_gate(tested_image *image, image_use use, const char *dir, image_hash *hash,
                        bool quiet)
{
    update_gate *const gate = &image->gate;
    if (gate->closed && use == USE_RESTORE) {
        if (holds_plain_settings(&image->img, dir)) {
            gate->closed = false;
            return true;
        }
        // Its version is no firmware's, and is not recorded.
        const bool settings = is_settings_backup(&image->img);
        if (!is_let_in(image->name, settings ? nullptr : &image->img.header, gate))
            return false;
    }
    if (!gate->closed)
        return true;
    const char *const fault = signature_fault(&gate->key, &gate->signature, hash);
    if (fault != nullptr)
        return refuse("get it anew", "%s: %s", image->name, fault);
    const signature_line line = describe_signature(&gate->signature, nullptr);
    note_key(name_of_key(&gate->signature.key).text);
    if (!quiet)
        say("%s", line.text);
    return true;
}

bool take_tested_image(const service_call *call, image_use use, const char *dir,
                       tested_image *image)
{
    image->name = call->words[0];
    const char *fault = open_image(image->name, &image->img);
    image->file = descriptor(image->img.fd);
    if (fault != nullptr)
        return complain("%s: %s", image->name, fault);
    note_header(&image->img.header);
    update_gate *const gate = &image->gate;
    if (!read_keys(image->name, call->allow_unsigned != 0, gate) ||
        (gate->closed && use != USE_RESTORE && !is_let_in(image->name, &image->img.header, gate)))
        return false;
    const bool kept = use == USE_RESTORE || (use == USE_UPDATE && gate->closed);
    const bool copied = kept || !call->copy.empty();
    descriptor keep = kept ? open_keep(image) : copied ? open_copy(call->copy) : descriptor();
    if (copied && !keep.is_open())
        return false;
    image_hash hash;
    fault = read_image(image, gate->closed ? &hash : nullptr, keep);
    if (fault == nullptr)
        fault = turn_to_copy(image, std::move(keep));
    if (fault != nullptr)
        return refuse(copied ? "get it anew, or make room for its copy" : "get it anew", "%s: %s",
                      image->name, fault);
    const bool force = call->force != 0;
    // A damaged one may look like another kind.
    const bool damaged = crc_fault(&image->img, image->sums.body()) != nullptr;
    if ((!damaged && !is_of_kind(image, use, force)) ||
        !passes_gate(image, use, dir, &hash, call->json != 0) || !has_its_crc(image, force) ||
        (damaged && !is_of_kind(image, use, force)))
        return false;
    snprintf(image->path, sizeof image->path, "/proc/self/fd/%d", image->img.fd);
    PLATFORM_LOG("%s is <%s>", image->path, image->name);
    return true;
}
