// What an update would do, found out before anything is written.
#ifndef COMPANIONS_UPGD_SERVICE_PLAN_H
#define COMPANIONS_UPGD_SERVICE_PLAN_H

#include "companions/upgd_service/tested_image.h"

#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

// A file system that the update writes to.
struct planned_system {
    dev_t device;
    std::string name;
    uint64_t block; // bytes, that files take in whole numbers
    uint64_t free;  // bytes
    int64_t taken;  // bytes more than now, after the entries so far
    int64_t peak;   // the most that it comes to
};

struct planned_kernel {
    std::string name;
    int size; // bytes
};

struct update_plan {
    std::string base;        // directory
    unsigned int added;      // files and links
    unsigned int changed;    // those that stand there with another content
    unsigned int same;       // those that stand there as they are, which are written all the same
    unsigned int in_the_way; // what can't be replaced
    std::vector<planned_system> systems;
    int64_t boot_size; // of the boot loader, -1 for none
    std::vector<planned_kernel> kernel;
    bool has_card[256];               // by type
    std::vector<std::string> reasons; // why the update is bound to fail
};

// Plans the update with `image`. `what` has COMPARE_CONTENTS, without which files of one length
// count as the same, and COMPARE_IN_RUN.
void plan_update(update_plan *plan, const tested_image *image, const service_call *call, int what);

#endif
