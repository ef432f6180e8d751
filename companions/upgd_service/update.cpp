// A service update, and what has become of it.
#include "companions/upgd_service/attended_run.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/session.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/raw_io.h"
#include "update_service.h"

#include <climits>
#include <cstring>

const char UPDATE_HELP[] = "apply the image, and compare it with what stands there then";

// What is left to do behind a run that went well. Returns an exit status.
static int finish_update(const attended_run *run, const service_call *call, const char *version,
                         const update_plan *plan)
{
    // A run moves into the directory that it unpacks below, which its image may have chosen.
    char where[PATH_MAX];
    if (getcwd(where, sizeof where) == nullptr)
        snprintf(where, sizeof where, "%s", call->dir.empty() ? "?" : call->dir.c_str());
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    show_progress("done", 1000, info->cur_nums, info->file_nums);
    const bool raised =
        take_up_floor() && (call->cards.mode != CARDS_FLASH || raise_floor(&run->image->gate));
    const bool recorded = version_is_recorded(run->image, version);
    const int status = compare_applied(run->image, where, "applied", run->interrupted);
    if (status == SERVICE_WELL && (plan->boot_size >= 0 || !plan->kernel.empty()))
        say("boot loader and kernel work from the next restart on");
    return status == SERVICE_WELL && !(raised && recorded) ? SERVICE_FAILED : status;
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
    else if (result == UPGD_ERROR_NODISK)
        complain(
            "%s: the disk is gone: what was written stays, and the version that is recorded as "
            "well; put the disk in again, and apply the image again",
            image);
    else if (result == UPGD_ERROR_COPY && is_full("."))
        complain("%s: there is no room left on the device: make room, and apply it again", image);
    else
        complain("%s: %s", image, result_words(result).c_str());
    if (result == UPGD_ERROR_COPY || result == UPGD_ERROR_BOOT || result == UPGD_ERROR_KERNEL)
        show_command_output();
    return SERVICE_FAILED;
}

int update_command(const service_call *call)
{
    session session;
    tested_image image;
    update_plan plan;
    if (!session.begin("update") ||
        !take_tested_image(call, USE_UPDATE, call->dir.c_str(), &image) ||
        !test_plan(&image, call, &plan))
        return SERVICE_FAILED;
    const header_text version = text_of(image.img.header.ih_version);
    // Simulated cards are no update.
    if (call->cards.mode == CARDS_FLASH && !note_floor(&image.gate, version.text))
        return SERVICE_FAILED;
    attended_run run(&image, call->cards);
    std::string dir = call->dir;
    const int ret = attend_run(&run, dir.empty() ? nullptr : dir.data());
    if (ret > 0)
        return SERVICE_FAILED;
    return ret == 0 ? finish_update(&run, call, version.text, &plan) : tell_failure(&run, ret);
}
