// A run of the service, with all that the resident service has to see to.
#include "companions/upgd_service/attended_run.h"

#include "companions/upgd_service/console.h"
#include "companions/upgd_service/flash.h"
#include "platform/mailbox.h"
#include "update/dtt_update_common/task_id.h"
#include "update_service.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>

// What a run is at, in words.
static std::string step_words(int step)
{
    for (const card_kind &kind : CARD_KINDS)
        if (kind.step == step)
            return std::string(kind.card) + " " + kind.part;
    static constexpr code_words STEPS[] = {
        {0, "starting"}, {UPGD_START, "checking the image"}, {UPGD_CTRL, "unpacking"}};
    return words_for(STEPS, step, ("step " + std::to_string(step)).c_str());
}

// An FPGA image and its golden one share a result.
std::string result_words(int result)
{
    for (const card_kind &kind : CARD_KINDS)
        if (kind.failure == result)
            return std::string("the ") + kind.card + "'s " + kind.part + " was not flashed";
    static constexpr code_words RESULTS[] = {
        {UPGD_ERROR_NODISK, "the disk is gone"},
        {UPGD_ERROR_FILENOTEXIST, "there is no such file"},
        {UPGD_ERROR_FILECHECK, "it can't be opened"},
        {UPGD_ERROR_FILEPARSE, "it was refused: no whole update image, or no directory for it"},
        {UPGD_ERROR_MMAP, "it can't be mapped"},
        {UPGD_ERROR_COPY, "an entry can't be written, or the image is damaged"},
        {UPGD_ERROR_BOOT, "the boot loader can't be installed"},
        {UPGD_ERROR_KERNEL, "the kernel can't be installed"},
    };
    return words_for(RESULTS, result, "failed");
}

// Opens the mailbox. Returns none with a sentence if it can't be had: one that somebody reads is
// not taken away.
static descriptor open_mailbox(aptid_t id)
{
    const mailbox_path path = mailbox_of(id);
    const int fd = mailbox_open(path.text);
    if (fd < 0)
        complain("%s: %s", path.text,
                 fd == -EADDRINUSE ? "another service is at work" : strerror(-fd));
    return descriptor(fd);
}

static void remove_mailbox(aptid_t id)
{
    unlink(mailbox_of(id).text);
}

// Receives the next message of `size` bytes; others are no business of this service and are passed
// over. Returns false when the run has ended.
static bool receive(const attended_run *run, const descriptor &mailbox, void *message, size_t size)
{
    while (!run->ended) {
        const ssize_t got = recv(mailbox.get(), message, size, MSG_TRUNC);
        if (got == static_cast<ssize_t>(size) && !run->ended)
            return true;
        if (got < 0)
            return complain("a mailbox can't be read: %s", strerror(errno));
    }
    return false;
}

static void *receive_events(void *argument)
{
    attended_run *const run = static_cast<attended_run *>(argument);
    upgrade_msg_t event;
    while (receive(run, run->events, &event, sizeof event)) {
        const int result = event.upgrade_info.result;
        if (run->interrupted && result == UPGD_ERROR_NODISK)
            continue; // that is how the run was told
        const int percent = std::max(event.upgrade_info.cur_percent / 10, shown_percent());
        std::string words = step_words(event.update_param.value);
        if (result != UPGD_NORNAL)
            words += ": " + result_words(result);
        say("%3d %%  %s", percent, words.c_str());
    }
    return nullptr;
}

static int answer_for_card(const attended_run *run, stPmdFile *file)
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
    attended_run *const run = static_cast<attended_run *>(argument);
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
    std::string words = step_words(step);
    int permille = field(&info->cur_percent);
    if (step == UPGD_CTRL) {
        permille = unpacked_permille(progress, finished) / (progress->has_cards ? 10 : 1);
        if (is_unpacked(progress, finished))
            words = "bringing it to the medium";
    }
    show_progress(words.c_str(), permille, done, field(&info->file_nums));
}

// Keeps the USB flag, and shows the progress, which comes without events in between.
static void *watch_run(void *argument)
{
    attended_run *const run = static_cast<attended_run *>(argument);
    while (!run->ended) {
        set_usb_status(disk_is_there(&run->disk) && !run->interrupted ? TRUE : FALSE);
        show_state(&run->progress);
        usleep(LOOK_US);
    }
    return nullptr;
}

using thread_body = void *(*)(void *);
static constexpr thread_body BODIES[] = {receive_events, answer_requests, watch_run};

// Returns false with a sentence if not all can be started.
static bool start_threads(attended_run *run)
{
    for (const thread_body body : BODIES) {
        pthread_t thread;
        const int error = pthread_create(&thread, nullptr, body, run);
        if (error != 0)
            return refuse("", "a thread can't be started: %s", strerror(error));
        run->threads.push_back(thread);
    }
    return true;
}

// A file or a card is not left half done.
attended_run::attended_run(const tested_image *tested, card_choice choice)
    : image(tested), cards(choice),
      interrupted([] { set_usb_status(FALSE); },
                  [] {
                      remove_mailbox(task_on_this_board(MODULE_SERVICE));
                      remove_mailbox(task_on_this_board(MODULE_CARDS));
                  })
{
}

// Returns what do_update_upgd does, or 1 with a sentence if the run could not begin.
static int run_update(attended_run *run, char *dir)
{
    int ret = 1;
    if (run->interrupted.begin() && start_threads(run)) {
        set_usb_status(disk_is_there(&run->disk) ? TRUE : FALSE);
        std::string path = run->image->path;
        ret = do_update_upgd(task_on_this_board(MODULE_SERVICE), path.data(), dir);
    }
    run->ended = true;
    shutdown(run->events.get(), SHUT_RDWR);
    shutdown(run->requests.get(), SHUT_RDWR);
    for (const pthread_t thread : run->threads)
        pthread_join(thread, nullptr);
    return ret;
}

int attend_run(attended_run *run, char *dir)
{
    find_disk(run->image->path, &run->disk);
    start_byte_progress(&run->progress, &run->image->img);
    const aptid_t service = task_on_this_board(MODULE_SERVICE);
    const aptid_t cards = task_on_this_board(MODULE_CARDS);
    int ret = 1;
    run->events = open_mailbox(service);
    if (!run->events.is_open())
        return ret;
    run->requests = open_mailbox(cards);
    if (run->requests.is_open()) {
        ret = run_update(run, dir);
        remove_mailbox(cards);
    }
    remove_mailbox(service);
    return ret;
}
