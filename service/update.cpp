// A service update, with all that the resident service has to see to: the USB flag, the mailboxes
// of the events and of the card update requests, and the answers of the cards.
#include "platform/mailbox.h"
#include "service/commands.h"
#include "service/console.h"
#include "service/disk_watch.h"
#include "update/dtt_update/image_check.h"
#include "update/dtt_update_common/task_id.h"
#include "update_service.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <pthread.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static constexpr int WATCH_US = 100000;
static constexpr int INTERRUPTED = 130;

// What the threads of a run share.
struct update_run {
    watched_image image;
    card_choice cards;
    int events;   // mailbox
    int requests; // mailbox
    std::atomic<bool> ended{false};
    std::atomic<bool> interrupted{false};
};

static const char *step_words(int step)
{
    static constexpr const char *WORDS[] = {
        "starting",         "checking the image",      "unpacking",
        "input card FPGA",  "input card golden FPGA",  "input card MCU",
        "output card FPGA", "output card golden FPGA", "output card MCU",
        "video card FPGA",  "video card golden FPGA",  "video card MCU"};
    constexpr int count = sizeof WORDS / sizeof WORDS[0];
    return WORDS[step >= 0 && step < count ? step : 0];
}

static const char *result_words(int result)
{
    static constexpr const char *WORDS[] = {
        "no failure",
        "success",
        "failed",
        "the disk is gone",
        "there is no such file",
        "it can't be opened",
        "it was refused: no whole update image, or no directory for it",
        "it can't be mapped",
        "an entry can't be written, or the image is damaged",
        "the boot loader can't be installed",
        "the kernel can't be installed",
        "the input card's FPGA was not flashed",
        "the input card's MCU was not flashed",
        "the output card's FPGA was not flashed",
        "the output card's MCU was not flashed",
        "the video card's FPGA was not flashed",
        "the video card's MCU was not flashed"};
    constexpr int count = sizeof WORDS / sizeof WORDS[0];
    return WORDS[result >= 0 && result < count ? result : UPGD_ERROR];
}

// Returns a bound socket, or -1 with a sentence. A mailbox that somebody reads is not taken away.
static int open_mailbox(aptid_t id)
{
    const mailbox_path path = mailbox_of(id);
    const int probe = mailbox_probe(path.text);
    if (probe == 0) {
        complain("%s: another service is at work", path.text);
        return -1;
    }
    if (probe == -ECONNREFUSED)
        unlink(path.text);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path.text, sizeof path.text);
    mkdir("/run/mailbox", 0755);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return fd;
    complain("%s: %s", path.text, strerror(errno));
    if (fd >= 0)
        close(fd);
    return -1;
}

static void *receive_events(void *argument)
{
    update_run *const run = static_cast<update_run *>(argument);
    upgrade_msg_t event;
    while (recv(run->events, &event, sizeof event, 0) == sizeof event) {
        const int result = event.upgrade_info.result;
        if (run->interrupted && result == UPGD_ERROR_NODISK)
            continue; // that is how the run was told
        if (result == UPGD_NORNAL)
            say("%3d %%  %s", event.upgrade_info.cur_percent / 10,
                step_words(event.update_param.value));
        else
            say("%3d %%  %s: %s", event.upgrade_info.cur_percent / 10,
                step_words(event.update_param.value), result_words(result));
    }
    return nullptr;
}

static int answer_for_card(const update_run *run, stPmdFile *file)
{
    switch (run->cards.mode) {
    case CARDS_SIMULATE:
        for (int us = 0; us < run->cards.number * 1000000 && !run->ended; us += WATCH_US)
            usleep(WATCH_US);
        return 0;
    case CARDS_FAIL:
        return file->file_type == run->cards.number ? -2 : 0;
    default:
        return update_one_UserFile(file->file_type, file->file_patch) == 0 ? 0 : -2;
    }
}

static void *answer_requests(void *argument)
{
    update_run *const run = static_cast<update_run *>(argument);
    char message[sizeof(stApMsg) + sizeof(stPmdFile)];
    constexpr ssize_t size = sizeof message;
    while (recv(run->requests, message, sizeof message, 0) == size) {
        stPmdFile file;
        memcpy(&file, message + STAPMSG_DATA_OFFSET, sizeof file);
        file.file_patch[sizeof file.file_patch - 1] = '\0';
        const int answer = answer_for_card(run, &file);
        set_update_card_result(file.file_type, answer);
    }
    return nullptr;
}

// Keeps the USB flag, and shows the progress, which comes without events in between.
static void *watch_run(void *argument)
{
    update_run *const run = static_cast<update_run *>(argument);
    const upgrade_msg_t *const msg = get_upgd_msg();
    while (!run->ended) {
        set_usb_status(!run->interrupted && disk_is_there(&run->image) ? TRUE : FALSE);
        const upgrade_info_t *const info = &msg->upgrade_info;
        show_progress(step_words(__atomic_load_n(&msg->update_param.value, __ATOMIC_RELAXED)),
                      __atomic_load_n(&info->cur_percent, __ATOMIC_RELAXED),
                      __atomic_load_n(&info->cur_nums, __ATOMIC_RELAXED),
                      __atomic_load_n(&info->file_nums, __ATOMIC_RELAXED));
        usleep(WATCH_US);
    }
    return nullptr;
}

// The first interrupt ends the run after the step in hand, as if the disk had gone: a file or a
// card is not left half done. The second one ends the program at once.
static void *take_interrupts(void *argument)
{
    update_run *const run = static_cast<update_run *>(argument);
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    int signal = 0;
    sigwait(&signals, &signal);
    run->interrupted = true;
    set_usb_status(FALSE);
    say("interrupted: the step in hand is finished first; once more to end at once");
    sigwait(&signals, &signal);
    end_progress();
    _exit(INTERRUPTED);
}

static int run_update(update_run *run, char *dir)
{
    pthread_t threads[4];
    void *(*const bodies[])(void *) = {receive_events, answer_requests, watch_run, take_interrupts};
    // The commands of the run inherit the mask and are not interrupted in their midst.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    for (size_t i = 0; i < 4; i++) {
        const int error = pthread_create(&threads[i], nullptr, bodies[i], run);
        if (error != 0) {
            complain("thread: %s", strerror(error));
            return -1;
        }
    }
    set_usb_status(disk_is_there(&run->image) ? TRUE : FALSE);
    empty_UserFile_patch();
    char path[sizeof run->image.path];
    memcpy(path, run->image.path, sizeof path);
    const int ret = do_update_upgd(task_on_this_board(MODULE_SERVICE), path, dir);
    run->ended = true;
    shutdown(run->events, SHUT_RDWR);
    shutdown(run->requests, SHUT_RDWR);
    for (size_t i = 0; i < 3; i++)
        pthread_join(threads[i], nullptr);
    return ret;
}

int update_command(const char *image, char *dir, card_choice cards)
{
    update_run run;
    run.cards = cards;
    const char *const fault = image_fault(image);
    if (fault != nullptr || find_disk(image, &run.image) != 0) {
        complain("%s: %s", image, fault != nullptr ? fault : strerror(errno));
        return SERVICE_FAILED;
    }
    run.events = open_mailbox(task_on_this_board(MODULE_SERVICE));
    run.requests = run.events >= 0 ? open_mailbox(task_on_this_board(MODULE_CARDS)) : -1;
    if (run.requests < 0)
        return SERVICE_FAILED;
    const int ret = run_update(&run, dir);
    unlink(mailbox_of(task_on_this_board(MODULE_SERVICE)).text);
    unlink(mailbox_of(task_on_this_board(MODULE_CARDS)).text);
    const upgrade_info_t *const info = &get_upgd_msg()->upgrade_info;
    if (ret == 0) {
        show_progress("done", 1000, info->cur_nums, info->file_nums);
        end_progress();
        say("%s: applied, %d entries", image, info->file_nums);
        return SERVICE_WELL;
    }
    end_progress();
    if (run.interrupted)
        complain("%s: interrupted: what was written stays", image);
    else if (info->result == UPGD_NORNAL)
        complain("%s: a card could not be asked: %s", image, strerror(-ret));
    else
        complain("%s: %s", image, result_words(info->result));
    return run.interrupted ? INTERRUPTED : SERVICE_FAILED;
}
