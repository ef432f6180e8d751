// What goes for whatever writes to the device.
#include "companions/upgd_service/session.h"

#include "companions/compare/comparison.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/run_lock.h"

#include <arpa/inet.h>
#include <unistd.h>

bool session::begin(const char *verb)
{
    if (geteuid() != 0)
        return refuse("", "%s: only root may do that", verb);
    lock_ = take_run_lock();
    return lock_ != RUN_LOCK_BUSY || refuse("wait for its end", "another update is at work");
}

session::~session()
{
    release_lock(lock_);
}

bool is_told(size_t count)
{
    static constexpr size_t TOLD = 20;
    if (count == TOLD)
        complain("and more");
    return count < TOLD;
}

bool test_plan(const tested_image *image, const service_call *call, update_plan *plan)
{
    plan_update(plan, image, call, COMPARE_IN_RUN);
    size_t told = 0;
    for (const std::string &reason : plan->reasons)
        if (is_told(told++))
            complain("%s", reason.c_str());
    return plan->reasons.empty() ||
           refuse_unless(call->force != 0, "mend that, or try it with --force", image->name,
                         "bound to fail");
}

bool version_is_recorded(const tested_image *image, const std::string &version)
{
    std::string recorded;
    if (!read_setting(VERSION_KEY, &recorded))
        return false;
    return recorded == recorded_form(version.c_str()) ||
           complain("%s: all of it was applied, but its version '%s' was not recorded: %s is '%s'; "
                    "set it with \"sysconfig set %s\"",
                    image->name, version.c_str(), VERSION_KEY, recorded.c_str(), VERSION_KEY);
}

int compare_applied(const tested_image *image, const char *where, const char *done,
                    const interrupts &interrupted)
{
    const int entries = static_cast<int>(ntohl(image->img.header.ih_filenum));
    size_t findings = 0;
    const compared c = compare_with_device(
        &image->img, &image->sums, where, COMPARE_CONTENTS | COMPARE_DEVICE | COMPARE_IN_RUN,
        [&](const finding &found) {
            if (interrupted)
                return false;
            show_progress("comparing", 1000, entries, entries);
            if (found.kind != FOUND_SAME && is_told(findings++))
                complain("%s: %s%s%s", found.path, FINDING_NAMES[found.kind].words,
                         found.detail != nullptr ? ": " : "",
                         found.detail != nullptr ? found.detail : "");
            return true;
        });
    end_progress();
    if (findings > 0) {
        fail("%s: %s below %s, but not all of it stands there; mend that and try it again",
             image->name, done, where);
        show_command_output();
        return SERVICE_FAILED;
    }
    if (interrupted) {
        complain("%s: %s below %s; interrupted while it was compared", image->name, done, where);
        return SERVICE_INTERRUPTED;
    }
    if (c.fault != nullptr)
        return fail("%s: %s below %s, but could not be compared: %s", image->name, done, where,
                    c.fault);
    say("100 %%  done");
    say("%s: %s below %s, %d entries", image->name, done, where, entries);
    return SERVICE_WELL;
}
