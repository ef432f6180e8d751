// What an update would do.
#include "companions/upgd_service/plan.h"

#include "companions/compare/comparison.h"
#include "companions/compare/kernel_look.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/flash.h"
#include "companions/upgd_service/json_line.h"
#include "update/dtt_update/card_table.h"
#include "update/dtt_update/target_search.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/entry_fault.h"
#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/shell_words.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

static std::string find_base(const image_file *img, const std::string &dir)
{
    if (!dir.empty())
        return dir;
    update_header_t header = img->header;
    if (ntohl(header.ih_place) == PLACE_COSTOM)
        return text_of(header.ih_dest_dir).text;
    char base[PATH_SIZE] = "";
    find_dir(&header, base);
    return base;
}

// The directory above `path`, as far as it is there.
static std::string standing_parent(std::string path, struct stat *st)
{
    do {
        const size_t slash = path.find_last_of('/');
        path.resize(slash == std::string::npos ? 0 : slash);
    } while (!path.empty() && stat(path.c_str(), st) != 0);
    if (path.empty()) {
        path = "/";
        stat("/", st);
    }
    return path;
}

// The top directory of the file system that the directory is on.
static std::string mount_point_of(std::string path)
{
    struct stat here;
    struct stat above;
    while (path.size() > 1 && stat(path.c_str(), &here) == 0 &&
           stat((path + "/..").c_str(), &above) == 0 && here.st_dev == above.st_dev)
        path.resize(std::max<size_t>(path.find_last_of('/'), 1));
    return path;
}

static planned_system *find_system(update_plan *plan, dev_t device, const std::string &name,
                                   const struct statvfs &fs)
{
    for (planned_system &system : plan->systems)
        if (system.device == device)
            return &system;
    // What is kept for root is there for the update.
    const uint64_t blocks = geteuid() == 0 ? fs.f_bfree : fs.f_bavail;
    plan->systems.push_back({device, name, fs.f_frsize, blocks * fs.f_frsize, 0, 0});
    return &plan->systems.back();
}

// A new file of `size` bytes takes the place of what has the status `former`, which goes first.
static void take_room(planned_system *system, int64_t size, const struct stat *former)
{
    const int64_t block = std::max<int64_t>(static_cast<int64_t>(system->block), 1);
    if (S_ISREG(former->st_mode) && former->st_nlink == 1)
        system->taken -= int64_t{512} * former->st_blocks;
    system->taken += (size + block - 1) / block * block;
    system->peak = std::max(system->peak, system->taken);
}

static void add_reason(update_plan *plan, const std::string &subject, const char *words)
{
    plan->reasons.push_back(subject + ": " + words);
}

static bool is_directory(int type)
{
    switch (form_of(type)) {
    case entry_form::file:
    case entry_form::link:
        return false;
    case entry_form::directory:
        break;
    }
    return true;
}

// What stands where the entry goes and can't make way, in words, or null.
static const char *obstacle(const finding *found, const std::string &parent,
                            const struct stat *parent_status)
{
    if (!S_ISDIR(parent_status->st_mode))
        return "a file stands in the place of its directory";
    if (found->there.st_mode != 0 &&
        S_ISDIR(found->there.st_mode) != is_directory(found->entry.type))
        return S_ISDIR(found->there.st_mode) ? "a directory stands there"
                                             : "no directory stands there";
    if (access(parent.c_str(), W_OK) != 0)
        return strerror(errno);
    return nullptr;
}

// What goes to the kernel partition is looked at behind all else, in one look.
static void plan_kernel(update_plan *plan, bool in_run)
{
    if (plan->kernel.empty())
        return;
    kernel_look look;
    const char *fault = strerror(ENOMEM);
    if (begin_look(&look, plan->kernel.size())) {
        look.in_run = in_run;
        for (size_t i = 0; i < look.count; i++)
            snprintf(look.files[i].name, sizeof look.files[i].name, "%s",
                     plan->kernel[i].name.c_str());
        fault = take_look(&look);
    }
    for (size_t i = 0; fault == nullptr && i < look.count; i++)
        take_room(find_system(plan, look.device, KERNEL_PARTITION, look.fs), plan->kernel[i].size,
                  &look.files[i].st);
    if (fault != nullptr)
        add_reason(plan, KERNEL_PARTITION, fault);
    end_look(&look);
}

static void plan_boot_loader(update_plan *plan, const finding *found)
{
    plan->boot_size = found->entry.file_size;
    const descriptor partition(open(BOOT_PARTITION, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!partition.is_open()) {
        add_reason(plan, BOOT_PARTITION, strerror(errno));
        return;
    }
    uint64_t size = 0;
    // What is no block device has no size of its own.
    if (ioctl(partition.get(), BLKGETSIZE64, &size) == 0 &&
        size < static_cast<uint64_t>(plan->boot_size))
        add_reason(plan, found->path, "is larger than the partition " BOOT_PARTITION);
}

static void plan_card(update_plan *plan, const finding *found, const service_call *call)
{
    const card_kind *const kind = find_card_kind(found->entry.type);
    if (kind == nullptr)
        return;
    plan->has_card[kind->type] = true;
    const char *const fault = flashing_fault(kind, found->path);
    if (fault != nullptr)
        add_reason(plan, found->path, fault);
    const std::string tool = flashing_tool(kind);
    if (call->cards.mode == CARDS_FLASH && access(tool.c_str(), X_OK) != 0)
        add_reason(plan, found->path, ("the tool " + tool + ": " + strerror(errno)).c_str());
}

static void plan_entry(update_plan *plan, const finding *found, const service_call *call,
                       base_directory *base)
{
    struct stat parent_status = {};
    const std::string parent = standing_parent(found->path, &parent_status);
    entry_place place;
    const char *fault =
        found->kind == FOUND_NO_PLACE ? found->detail : entry_fault(base, &found->entry, &place);
    if (fault == nullptr)
        fault = step_fault(&found->entry, &place);
    if (fault != nullptr) {
        add_reason(plan, found->path, fault);
        return;
    }
    // Nothing is known of what can't be looked at.
    const bool unknown = found->kind == FOUND_UNREADABLE && found->there.st_mode == 0;
    const char *const way = unknown ? found->detail : obstacle(found, parent, &parent_status);
    if (way != nullptr) {
        plan->in_the_way++;
        add_reason(plan, found->path, way);
        return;
    }
    if (found->kind == FOUND_MISSING)
        plan->added++;
    else if (found->kind == FOUND_SAME)
        plan->same++;
    else
        plan->changed++;
    struct statvfs fs;
    if (statvfs(parent.c_str(), &fs) != 0)
        add_reason(plan, parent, (std::string("its room: ") + strerror(errno)).c_str());
    else if (!is_directory(found->entry.type))
        take_room(find_system(plan, parent_status.st_dev, mount_point_of(parent), fs),
                  found->entry.file_size, &found->there);
    if (installs(found->entry.type, found->path)) {
        if (found->entry.type == ENTRY_BOOT)
            plan_boot_loader(plan, found);
        else
            plan->kernel.push_back({last_component(found->path), found->entry.file_size});
    }
    plan_card(plan, found, call);
}

// Returns whether a run comes to its first entry.
static bool plan_base(update_plan *plan, const service_call *call)
{
    const char *const path = plan->base.c_str();
    if (plan->base.empty() || plan->base.size() >= PATH_SIZE) {
        add_reason(plan, "the directory of the image", "there is none, or its path is too long");
        return false;
    }
    struct stat st;
    if (stat(path, &st) == 0) {
        if (S_ISDIR(st.st_mode))
            return true;
        add_reason(plan, plan->base, "is no directory");
        return false;
    }
    if (!call->dir.empty() && can_be_made(path))
        return true;
    add_reason(plan, plan->base,
               !call->dir.empty() ? "can't be made by a command" : "there is no such directory");
    return false;
}

static void plan_entries(update_plan *plan, const tested_image *image, const service_call *call,
                         int what)
{
    base_directory base = {};
    base.top = base.path;
    memcpy(base.path, plan->base.c_str(), plan->base.size() + 1);
    const compared c = compare_with_device(
        &image->img, &image->sums, plan->base.c_str(), what, [&](const finding &found) {
            show_progress("looking at what stands there", 0, 0, 0);
            plan_entry(plan, &found, call, &base);
            return true;
        });
    release_base_directory(&base);
    if (c.fault != nullptr)
        add_reason(plan, "entry " + std::to_string(c.broken), c.fault);
    plan_kernel(plan, (what & COMPARE_IN_RUN) != 0);
}

void plan_update(update_plan *plan, const tested_image *image, const service_call *call, int what)
{
    *plan = {};
    plan->boot_size = -1;
    plan->base = find_base(&image->img, call->dir);
    if (plan_base(plan, call))
        plan_entries(plan, image, call, what);
    for (const planned_system &system : plan->systems)
        if (system.peak > static_cast<int64_t>(system.free))
            add_reason(plan, system.name,
                       ("too little room: " + std::to_string((system.peak + 1023) / 1024) +
                        " KiB are needed, " + std::to_string(system.free / 1024) + " KiB are free")
                           .c_str());
}

// What an update makes of the recorded version.
struct version_change {
    std::string now;
    std::string next;
    bool recordable;
    bool downgrade;
};

// Returns false with a sentence if the recorded one can't be read.
static bool plan_version(const image_file *img, version_change *change)
{
    *change = {"", text_of(img->header.ih_version).text, false, false};
    if (!read_setting(VERSION_KEY, &change->now))
        return false;
    firmware_version from;
    firmware_version to;
    change->recordable = is_shell_safe_text(change->next.c_str());
    change->downgrade = parse_version(change->now.c_str(), &from) &&
                        parse_version(change->next.c_str(), &to) &&
                        compare_versions(&to, &from) < 0;
    return true;
}

static std::vector<std::string> planned_cards(const update_plan *plan)
{
    std::vector<std::string> cards;
    for (const type_patch_t &row : type_patch)
        if (plan->has_card[row.file_type])
            cards.push_back(std::string(find_card_kind(row.file_type)->name) + ", at most " +
                            std::to_string(row.time / 100) + " s");
    return cards;
}

static long long kib(int64_t bytes)
{
    return (bytes + 1023) / 1024;
}

static void say_plan(const tested_image *image, const update_plan *plan,
                     const version_change &version)
{
    if (!image->gate.closed)
        say("signature       none is asked for");
    say("directory       %s", plan->base.c_str());
    say("version         %s -> %s%s%s", version.now.empty() ? "none" : version.now.c_str(),
        version.next.c_str(), version.downgrade ? ", a downgrade" : "",
        version.recordable ? "" : ", which can't be recorded");
    say("files           %u new, %u changed, %u the same, %u in the way", plan->added,
        plan->changed, plan->same, plan->in_the_way);
    for (const planned_system &system : plan->systems)
        say("room            %s: %lld KiB more at the fullest, %lld KiB free", system.name.c_str(),
            kib(system.peak), static_cast<long long>(system.free / 1024));
    if (plan->boot_size >= 0)
        say("boot loader     %lld bytes to %s, no time limit",
            static_cast<long long>(plan->boot_size), BOOT_PARTITION);
    for (const planned_kernel &file : plan->kernel)
        say("kernel          %s to %s, no time limit", file.name.c_str(), KERNEL_PARTITION);
    for (const std::string &card : planned_cards(plan))
        say("card            %s", card.c_str());
    for (const std::string &reason : plan->reasons)
        say("bound to fail   %s", reason.c_str());
    if (plan->reasons.empty())
        say("%s: can be applied", image->name);
    else
        say("%s: bound to fail, for %zu reasons", image->name, plan->reasons.size());
}

static void print_json_plan(FILE *out, const tested_image *image, const update_plan *plan,
                            const version_change &version)
{
    const auto text = [out](const std::string &item) { print_json_text(out, "", item.c_str()); };
    print_json_text(out, "{\"image\":", image->name);
    fprintf(out, ",\"signed\":%s", image->gate.closed ? "true" : "false");
    print_json_text(out, ",\"directory\":", plan->base.c_str());
    print_json_text(out, ",\"version_now\":", version.now.c_str());
    print_json_text(out, ",\"version_next\":", version.next.c_str());
    fprintf(out, ",\"downgrade\":%s,\"new\":%u,\"changed\":%u,\"same\":%u,\"in_the_way\":%u",
            version.downgrade ? "true" : "false", plan->added, plan->changed, plan->same,
            plan->in_the_way);
    print_json_list(out, ",\"room\":[", plan->systems, [out](const planned_system &system) {
        print_json_text(out, "{\"mount_point\":", system.name.c_str());
        fprintf(out, ",\"more_kib\":%lld,\"free_kib\":%lld}", kib(system.peak),
                static_cast<long long>(system.free / 1024));
    });
    fprintf(out, ",\"boot_loader_bytes\":%lld", static_cast<long long>(plan->boot_size));
    print_json_list(out, ",\"kernel\":[", plan->kernel,
                    [&text](const planned_kernel &file) { text(file.name); });
    print_json_list(out, ",\"cards\":[", planned_cards(plan), text);
    print_json_list(out, ",\"bound_to_fail\":[", plan->reasons, text);
    fputc('}', out);
}

// Returns an exit status.
static int show_plan(const service_call *call, tested_image *image)
{
    version_change version;
    if (!take_tested_image(call, USE_LOOK, call->dir.c_str(), image) ||
        !plan_version(&image->img, &version))
        return SERVICE_FAILED;
    update_plan plan;
    plan_update(&plan, image, call, COMPARE_CONTENTS);
    end_progress();
    if (call->json == 0)
        say_plan(image, &plan, version);
    else if (!say_json([&](FILE *out) { print_json_plan(out, image, &plan, version); }))
        return SERVICE_FAILED;
    return plan.reasons.empty() ? SERVICE_WELL : SERVICE_FAILED;
}

// Whoever applies the copy himself has the gate and the floor of an update that way. One that can't
// be applied is not left.
int plan_command(const service_call *call)
{
    if (struct stat there; !call->copy.empty() && lstat(call->copy.c_str(), &there) == 0) {
        refuse("", "%s: it exists", call->copy.c_str());
        return SERVICE_FAILED;
    }
    tested_image image;
    int status = show_plan(call, &image);
    if (call->copy.empty())
        return status;
    if (status == SERVICE_WELL && safe_fsync(image.file.get()) != 0)
        status = fail("%s: %s", call->copy.c_str(), strerror(errno));
    if (status == SERVICE_WELL &&
        !note_floor(&image.gate, text_of(image.img.header.ih_version).text))
        status = SERVICE_FAILED;
    if (status != SERVICE_WELL)
        unlink(call->copy.c_str());
    return status;
}
