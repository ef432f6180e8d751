// What an update would do.
#include "companions/upgd_service/plan.h"

#include "companions/compare/comparison.h"
#include "companions/compare/kernel_partition.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/flash.h"
#include "companions/upgd_service/tested_image.h"
#include "platform/configuration.h"
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

static void plan_kernel(update_plan *plan, const finding *found, descriptor *partition)
{
    const char *const name = last_component(found->path);
    // The run mounts the partition for itself.
    const char *const fault = plan->kernel.empty() ? open_kernel_partition(partition) : nullptr;
    plan->kernel.emplace_back(name);
    if (fault != nullptr)
        add_reason(plan, found->path, fault);
    struct statvfs fs;
    struct stat st;
    if (fstatvfs(partition->get(), &fs) != 0 || fstat(partition->get(), &st) != 0)
        return;
    struct stat former = {};
    fstatat(partition->get(), name, &former, AT_SYMLINK_NOFOLLOW);
    take_room(find_system(plan, st.st_dev, KERNEL_PARTITION, fs), found->entry.file_size, &former);
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
                       base_directory *base, descriptor *kernel)
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
    const char *const way = obstacle(found, parent, &parent_status);
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
    if (!is_directory(found->entry.type) && statvfs(parent.c_str(), &fs) == 0)
        take_room(find_system(plan, parent_status.st_dev, parent, fs), found->entry.file_size,
                  &found->there);
    if (installs(found->entry.type, found->path)) {
        if (found->entry.type == ENTRY_BOOT)
            plan_boot_loader(plan, found);
        else
            plan_kernel(plan, found, kernel);
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

static void plan_entries(update_plan *plan, const image_file *img, const service_call *call,
                         bool contents)
{
    descriptor kernel;
    base_directory base = {};
    base.top = base.path;
    memcpy(base.path, plan->base.c_str(), plan->base.size() + 1);
    const compared c = compare_with_device(
        img, plan->base.c_str(), contents ? COMPARE_CONTENTS : 0, [&](const finding &found) {
            show_progress("looking at what stands there", 0, 0, 0);
            plan_entry(plan, &found, call, &base, &kernel);
            return true;
        });
    release_base_directory(&base);
    if (c.fault != nullptr)
        add_reason(plan, "entry " + std::to_string(c.broken), c.fault);
}

void plan_update(update_plan *plan, const image_file *img, const service_call *call, bool contents)
{
    *plan = {};
    plan->boot_size = -1;
    plan->base = find_base(img, call->dir);
    if (plan_base(plan, call))
        plan_entries(plan, img, call, contents);
    for (const planned_system &system : plan->systems)
        if (system.peak > static_cast<int64_t>(system.free))
            add_reason(plan, system.name,
                       ("too little room: " + std::to_string((system.peak + 1023) / 1024) +
                        " KiB are needed, " + std::to_string(system.free / 1024) + " KiB are free")
                           .c_str());
}

static void say_version(const image_file *img)
{
    char now[CONFIGURATION_VALUE_SIZE];
    if (configuration_get(CONFIGURATION_PATH, "fw_version", now, sizeof now) != 0)
        snprintf(now, sizeof now, "none");
    const header_text next = text_of(img->header.ih_version);
    say("version         %s -> %s%s", now, next.text,
        is_shell_safe_text(next.text) ? "" : ", which can't be recorded");
}

static void say_installed(const update_plan *plan)
{
    if (plan->boot_size >= 0)
        say("boot loader     %lld bytes to %s, no time limit",
            static_cast<long long>(plan->boot_size), BOOT_PARTITION);
    for (const std::string &name : plan->kernel)
        say("kernel          %s to %s, no time limit", name.c_str(), KERNEL_PARTITION);
    for (int i = 0; i < CARD_TYPES; i++) {
        const type_patch_t *const row = &type_patch[i];
        if (plan->has_card[row->file_type])
            say("card            %s, at most %d s", find_card_kind(row->file_type)->name,
                row->time / 100);
    }
}

int plan_command(const service_call *call)
{
    tested_image image;
    test_options test = call->test;
    test.look = true;
    if (!take_tested_image(call->words[0], &test, &image))
        return SERVICE_FAILED;
    update_plan plan;
    plan_update(&plan, &image.img, call, true);
    end_progress();
    if (!image.gate.closed)
        say("signature: none is asked for");
    say("directory       %s", plan.base.c_str());
    say_version(&image.img);
    say("files           %u new, %u changed, %u the same, %u in the way", plan.added, plan.changed,
        plan.same, plan.in_the_way);
    for (const planned_system &system : plan.systems)
        say("room            %s: %lld KiB more at the fullest, %llu KiB free", system.name.c_str(),
            static_cast<long long>((system.peak + 1023) / 1024),
            static_cast<unsigned long long>(system.free / 1024));
    say_installed(&plan);
    for (const std::string &reason : plan.reasons)
        say("bound to fail   %s", reason.c_str());
    if (plan.reasons.empty())
        say("%s: can be applied", image.name);
    return plan.reasons.empty() ? SERVICE_WELL : SERVICE_FAILED;
}
