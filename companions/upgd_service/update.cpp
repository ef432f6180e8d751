// A service update, with all that the resident service has to see to: the USB flag, the mailboxes
// of the events and of the card update requests, and the answers of the cards.
#include "companions/compare/comparison.h"
#include "companions/upgd_service/byte_progress.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/disk_watch.h"
#include "companions/upgd_service/exit_status.h"
#include "companions/upgd_service/flash.h"
#include "companions/upgd_service/plan.h"
#include "companions/upgd_service/run_look.h"
#include "companions/upgd_service/tested_image.h"
#include "platform/mailbox.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/task_id.h"
#include "update_service.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

static constexpr size_t THREADS = 4;

// Room for words that are put together.
struct step_text {
    char words[64];
};

// What the threads of a run share.
struct service_session {
    tested_image tested;
    byte_progress progress;
    watched_image image;
    card_choice cards;
    int events;   // mailbox
    int requests; // mailbox
    std::atomic<bool> ended{false};
    std::atomic<bool> interrupted{false};
};

// What a run is at, in words. Returns `text`.
static const char *step_words(int step, step_text *text)
{
    for (const card_kind &kind : CARD_KINDS) {
        if (kind.step != step)
            continue;
        snprintf(text->words, sizeof text->words, "%s %s", kind.card, kind.part);
        return text->words;
    }
    return step == UPGD_CTRL ? "unpacking" : step == UPGD_START ? "checking the image" : "starting";
}

// What a run has failed of, in words. An FPGA image and its golden one share a result.
static const char *result_words(int result, step_text *text)
{
    for (const card_kind &kind : CARD_KINDS) {
        if (kind.failure != result)
            continue;
        snprintf(text->words, sizeof text->words, "the %s's %s was not flashed", kind.card,
                 kind.part);
        return text->words;
    }
    switch (result) {
    case UPGD_ERROR_NODISK:
        return "the disk is gone";
    case UPGD_ERROR_FILENOTEXIST:
        return "there is no such file";
    case UPGD_ERROR_FILECHECK:
        return "it can't be opened";
    case UPGD_ERROR_FILEPARSE:
        return "it was refused: no whole update image, or no directory for it";
    case UPGD_ERROR_MMAP:
        return "it can't be mapped";
    case UPGD_ERROR_COPY:
        return "an entry can't be written, or the image is damaged";
    case UPGD_ERROR_BOOT:
        return "the boot loader can't be installed";
    case UPGD_ERROR_KERNEL:
        return "the kernel can't be installed";
    default:
        return "failed";
    }
}

// Returns the mailbox, or -1 with a sentence. One that somebody reads is not taken away.
static int open_mailbox(aptid_t id)
{
    const mailbox_path path = mailbox_of(id);
    const int fd = mailbox_open(path.text);
    if (fd >= 0)
        return fd;
    complain("%s: %s", path.text, fd == -EADDRINUSE ? "another service is at work" : strerror(-fd));
    return -1;
}

static void close_mailbox(int fd, aptid_t id)
{
    if (fd < 0)
        return;
    close(fd);
    unlink(mailbox_of(id).text);
}

static void close_mailboxes(const service_session *run)
{
    close_mailbox(run->events, task_on_this_board(MODULE_SERVICE));
    close_mailbox(run->requests, task_on_this_board(MODULE_CARDS));
}

// Receives the next message of `size` bytes; others are no business of this service and are passed
// over. Returns false when the run has ended.
static bool receive(const service_session *run, int mailbox, void *message, size_t size)
{
    while (!run->ended) {
        const ssize_t got = recv(mailbox, message, size, MSG_TRUNC);
        if (got == static_cast<ssize_t>(size) && !run->ended)
            return true;
        if (got < 0 && errno != EINTR) {
            complain("a mailbox can't be read: %s", strerror(errno));
            break;
        }
    }
    return false;
}

static void *receive_events(void *argument)
{
    service_session *const run = static_cast<service_session *>(argument);
    upgrade_msg_t event;
    while (receive(run, run->events, &event, sizeof event)) {
        const int result = event.upgrade_info.result;
        if (run->interrupted && result == UPGD_ERROR_NODISK)
            continue; // that is how the run was told
        step_text step;
        step_text failure;
        const char *const words = step_words(event.update_param.value, &step);
        const int percent = std::max(event.upgrade_info.cur_percent / 10, shown_percent());
        if (result == UPGD_NORNAL)
            say("%3d %%  %s", percent, words);
        else
            say("%3d %%  %s: %s", percent, words, result_words(result, &failure));
    }
    return nullptr;
}

static int answer_for_card(const service_session *run, stPmdFile *file)
{
    if (run->cards.mode == CARDS_FLASH)
        return call_flashing_tool(file->file_type, file->file_patch) ? CARD_DONE : CARD_FAILED;
    // What no tool can be given fails without the tools as well.
    const card_kind *const kind = find_card_kind(file->file_type);
    if (kind == nullptr || flashing_fault(kind, file->file_patch) != nullptr)
        return CARD_FAILED;
    if (run->cards.mode == CARDS_FAIL)
        return file->file_type == run->cards.number ? CARD_FAILED : CARD_DONE;
    for (int us = 0; us < run->cards.number * 1000000 && !run->ended; us += LOOK_US)
        usleep(LOOK_US);
    return CARD_DONE;
}

static void *answer_requests(void *argument)
{
    service_session *const run = static_cast<service_session *>(argument);
    char message[sizeof(stApMsg) + sizeof(stPmdFile)];
    while (receive(run, run->requests, message, sizeof message)) {
        stPmdFile file;
        memcpy(&file, message + STAPMSG_DATA_OFFSET, sizeof file);
        file.file_patch[sizeof file.file_patch - 1] = '\0';
        const int answer = answer_for_card(run, &file);
        set_update_card_result(file.file_type, answer);
    }
    return nullptr;
}

// The unpacking takes the whole bar, or the tenth that the run itself gives it if cards follow.
static void show_state(byte_progress *progress)
{
    const upgrade_msg_t *const msg = get_upgd_msg();
    const upgrade_info_t *const info = &msg->upgrade_info;
    const int step = field(&msg->update_param.value);
    const int done = field(&info->cur_nums);
    const uint32_t finished = static_cast<uint32_t>(done);
    step_text text;
    const char *words = step_words(step, &text);
    int permille = field(&info->cur_percent);
    if (step == UPGD_CTRL) {
        permille = unpacked_permille(progress, finished) / (progress->has_cards ? 10 : 1);
        if (is_unpacked(progress, finished))
            words = "bringing it to the medium";
    }
    show_progress(words, permille, done, field(&info->file_nums));
}

// Keeps the USB flag, and shows the progress, which comes without events in between.
static void *watch_run(void *argument)
{
    service_session *const run = static_cast<service_session *>(argument);
    while (!run->ended) {
        set_usb_status(!run->interrupted && disk_is_there(&run->image) ? TRUE : FALSE);
        show_state(&run->progress);
        usleep(LOOK_US);
    }
    return nullptr;
}

static sigset_t interrupts()
{
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    return signals;
}

// The first interrupt ends the run after the step in hand, as if the disk had gone: a file or a
// card is not left half done. The second one ends the program at once.
static void *take_interrupts(void *argument)
{
    service_session *const run = static_cast<service_session *>(argument);
    const sigset_t signals = interrupts();
    int signal = 0;
    sigwait(&signals, &signal);
    run->interrupted = true;
    set_usb_status(FALSE);
    say("interrupted: the step in hand is finished first; once more to end at once");
    sigwait(&signals, &signal);
    end_progress();
    close_mailboxes(run);
    _exit(SERVICE_INTERRUPTED);
}

// Starts the threads beside the run's. Returns how many there are, with a sentence if it is not
// all.
static size_t start_threads(service_session *run, pthread_t (&threads)[THREADS])
{
    void *(*const bodies[THREADS])(void *) = {receive_events, answer_requests, watch_run,
                                              take_interrupts};
    for (size_t i = 0; i < THREADS; i++) {
        const int error = pthread_create(&threads[i], nullptr, bodies[i], run);
        if (error != 0) {
            complain("a thread can't be started: %s; nothing was touched", strerror(error));
            return i;
        }
    }
    return THREADS;
}

// Returns what do_update_upgd does, or 1 with a sentence if the run could not begin.
static int run_update(service_session *run, char *dir)
{
    // The commands of the run inherit the mask and are not interrupted in their midst.
    const sigset_t signals = interrupts();
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    // A run that has begun goes on when its terminal or the reader of its output goes away.
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    pthread_t threads[THREADS];
    const size_t started = start_threads(run, threads);
    int ret = 1;
    if (started == THREADS) {
        set_usb_status(disk_is_there(&run->image) ? TRUE : FALSE);
        empty_UserFile_patch();
        ret = do_update_upgd(task_on_this_board(MODULE_SERVICE), run->tested.path, dir);
    }
    run->ended = true;
    shutdown(run->events, SHUT_RDWR);
    shutdown(run->requests, SHUT_RDWR);
    // The last one waits for interrupts to the end of the process.
    for (size_t i = 0; i < std::min(started, THREADS - 1); i++)
        pthread_join(threads[i], nullptr);
    return ret;
}

// Tells each of `count` sentences, or the first ones if they are many.
static bool is_told(size_t count)
{
    static constexpr size_t TOLD = 20;
    if (count == TOLD)
        complain("and more");
    return count < TOLD;
}

// Returns false with sentences if the update is bound to fail.
static bool test_plan(const service_session *run, const update_options *options)
{
    update_plan plan;
    plan_update(&plan, &run->tested.img, options, false);
    size_t told = 0;
    for (const std::string &reason : plan.reasons)
        if (is_told(told++))
            complain("%s", reason.c_str());
    if (!plan.reasons.empty())
        complain("%s: bound to fail: nothing was touched; mend that, or try it with --force",
                 options->image);
    return plan.reasons.empty();
}

// The run does not look at what its commands have done. Compares what stands below `where` and on
// the partitions, and tells what is not there. Returns an exit status.
static int compare_applied(const service_session *run, const char *where)
{
    const char *const image = run->tested.name;
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    size_t findings = 0;
    const compared c = compare_with_device(
        &run->tested.img, where, COMPARE_CONTENTS | COMPARE_DEVICE, [&](const finding &found) {
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
        complain(
            "%s: applied below %s, but not all of it stands there; mend that and apply it again",
            image, where);
        return SERVICE_FAILED;
    }
    if (run->interrupted) {
        complain("%s: applied below %s; interrupted while it was compared", image, where);
        return SERVICE_INTERRUPTED;
    }
    if (c.fault != nullptr) {
        complain("%s: applied below %s, but could not be compared: %s", image, where, c.fault);
        return SERVICE_FAILED;
    }
    say("100 %%  done");
    say("%s: applied below %s, %d entries", image, where, info->file_nums);
    return SERVICE_WELL;
}

int update_command(const update_options *options)
{
    const char *const image = options->image;
    service_session run;
    run.cards = options->cards;
    if (!take_tested_image(image, &options->test, &run.tested))
        return SERVICE_FAILED;
    if (!options->force && !test_plan(&run, options))
        return SERVICE_FAILED;
    find_disk(run.tested.path, &run.image);
    start_byte_progress(&run.progress, &run.tested.img);
    run.events = open_mailbox(task_on_this_board(MODULE_SERVICE));
    run.requests = run.events >= 0 ? open_mailbox(task_on_this_board(MODULE_CARDS)) : -1;
    const int ret = run.requests >= 0 ? run_update(&run, options->dir) : 1;
    close_mailboxes(&run);
    if (ret > 0)
        return SERVICE_FAILED;
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    // A run moves into the directory that it unpacks below, which its image may have chosen.
    char where[PATH_MAX] = "";
    if (getcwd(where, sizeof where) == nullptr)
        snprintf(where, sizeof where, "%s", options->dir != nullptr ? options->dir : "?");
    if (ret == 0 && has_changed(&run.tested)) {
        end_progress();
        complain("%s: it was changed while it was applied; apply it again", image);
        return SERVICE_FAILED;
    }
    if (ret == 0) {
        show_progress("done", 1000, info->cur_nums, info->file_nums);
        const int status = compare_applied(&run, where);
        return status == SERVICE_WELL && !raise_floor(&run.tested.gate) ? SERVICE_FAILED : status;
    }
    end_progress();
    if (run.interrupted) {
        complain("%s: interrupted: what was written stays", image);
        return SERVICE_INTERRUPTED;
    }
    step_text failure;
    if (info->result == UPGD_NORNAL)
        complain("%s: a card could not be asked: %s", image, strerror(-ret));
    else
        complain("%s: %s", image, result_words(info->result, &failure));
    if (info->result == UPGD_ERROR_COPY || info->result == UPGD_ERROR_BOOT ||
        info->result == UPGD_ERROR_KERNEL)
        show_command_output();
    return SERVICE_FAILED;
}
