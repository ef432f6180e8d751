// A service update, and what has become of it.
#include "companions/compare/comparison.h"
#include "companions/upgd_service/attended_run.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/plan.h"
#include "update_service.h"

#include <climits>
#include <cstring>

// Tells each of `count` sentences, or the first ones if they are many.
static bool is_told(size_t count)
{
    static constexpr size_t TOLD = 20;
    if (count == TOLD)
        complain("and more");
    return count < TOLD;
}

// Returns false with sentences if the update is bound to fail.
static bool test_plan(const tested_image *image, const service_call *call)
{
    update_plan plan;
    plan_update(&plan, &image->img, call, false);
    size_t told = 0;
    for (const std::string &reason : plan.reasons)
        if (is_told(told++))
            complain("%s", reason.c_str());
    if (!plan.reasons.empty())
        complain("%s: bound to fail: nothing was touched; mend that, or try it with --force",
                 image->name);
    return plan.reasons.empty();
}

// The run does not look at what its commands have done. Compares what stands below `where` and on
// the partitions, and tells what is not there. Returns an exit status.
static int compare_applied(const attended_run *run, const char *where)
{
    const char *const image = run->image->name;
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    size_t findings = 0;
    const compared c = compare_with_device(
        &run->image->img, where, COMPARE_CONTENTS | COMPARE_DEVICE, [&](const finding &found) {
            if (run->interrupted)
                return false;
            show_progress("comparing", 1000, info->cur_nums, info->file_nums);
            if (found.kind != FOUND_SAME && is_told(findings++))
                complain("%s: %s%s%s", found.path, FINDING_NAMES[found.kind].words,
                         found.detail != nullptr ? ": " : "",
                         found.detail != nullptr ? found.detail : "");
            return true;
        });
    end_progress();
    if (findings > 0) {
        show_command_output();
        return fail(
            "%s: applied below %s, but not all of it stands there; mend that and apply it again",
            image, where);
    }
    if (run->interrupted) {
        complain("%s: applied below %s; interrupted while it was compared", image, where);
        return SERVICE_INTERRUPTED;
    }
    if (c.fault != nullptr)
        return fail("%s: applied below %s, but could not be compared: %s", image, where, c.fault);
    say("100 %%  done");
    say("%s: applied below %s, %d entries", image, where, info->file_nums);
    return SERVICE_WELL;
}

// What is left to do behind a run that went well. Returns an exit status.
static int finish_update(const attended_run *run, const service_call *call)
{
    if (has_changed(run->image)) {
        end_progress();
        return fail("%s: it was changed while it was applied; apply it again", run->image->name);
    }
    // A run moves into the directory that it unpacks below, which its image may have chosen.
    char where[PATH_MAX];
    if (getcwd(where, sizeof where) == nullptr)
        snprintf(where, sizeof where, "%s", call->dir.empty() ? "?" : call->dir.c_str());
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    show_progress("done", 1000, info->cur_nums, info->file_nums);
    const int status = compare_applied(run, where);
    return status == SERVICE_WELL && !raise_floor(&run->image->gate) ? SERVICE_FAILED : status;
}

// Tells why the run, which has returned `ret`, has failed. Returns an exit status.
static int tell_failure(const attended_run *run, int ret)
{
    const char *const image = run->image->name;
    const int result = get_upgd_msg()->upgrade_info.result;
    end_progress();
    if (run->interrupted) {
        complain("%s: interrupted: what was written stays", image);
        return SERVICE_INTERRUPTED;
    }
    if (result == UPGD_NORNAL)
        complain("%s: a card could not be asked: %s", image, strerror(-ret));
    else
        complain("%s: %s", image, result_words(result).c_str());
    if (result == UPGD_ERROR_COPY || result == UPGD_ERROR_BOOT || result == UPGD_ERROR_KERNEL)
        show_command_output();
    return SERVICE_FAILED;
}

int update_command(const service_call *call)
{
    tested_image image;
    if (!take_tested_image(call->words[0], &call->test, &image))
        return SERVICE_FAILED;
    if (call->force == 0 && !test_plan(&image, call))
        return SERVICE_FAILED;
    attended_run run = {&image, call->cards};
    std::string dir = call->dir;
    const int ret = attend_run(&run, dir.empty() ? nullptr : dir.data());
    if (ret > 0)
        return SERVICE_FAILED;
    return ret == 0 ? finish_update(&run, call) : tell_failure(&run, ret);
}
