// A run of the service, with all that the resident service has to see to: the USB flag, the
// mailboxes of the events and of the card update requests, the answers of the cards, and who
// interrupts it.
#ifndef COMPANIONS_UPGD_SERVICE_ATTENDED_RUN_H
#define COMPANIONS_UPGD_SERVICE_ATTENDED_RUN_H

#include "companions/owners.h"
#include "companions/upgd_service/byte_progress.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/disk_watch.h"
#include "companions/upgd_service/interrupts.h"
#include "companions/upgd_service/tested_image.h"

#include <atomic>
#include <pthread.h>
#include <vector>

// What the threads of a run share.
struct attended_run {
    attended_run(const tested_image *tested, card_choice choice);

    const tested_image *image;
    card_choice cards;
    byte_progress progress = {};
    watched_image disk = {};
    descriptor events = descriptor();   // mailbox
    descriptor requests = descriptor(); // mailbox
    std::vector<pthread_t> threads = {};
    std::atomic<bool> ended{false};
    interrupts interrupted; // the run ends after the step in hand then, as if the disk had gone
};

// Applies the image below `dir`, null for the directory that it asks for. Returns what
// do_update_upgd does, or 1 with a sentence if the run could not begin. An interrupt is taken note
// of as long as `run` lives.
int attend_run(attended_run *run, char *dir);

// What a run has failed of, in words.
std::string result_words(int result);

#endif
