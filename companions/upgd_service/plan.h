// What an update would do, found out before anything is written.
#ifndef COMPANIONS_UPGD_SERVICE_PLAN_H
#define COMPANIONS_UPGD_SERVICE_PLAN_H

#include "companions/upgd_service/commands.h"
#include "update/dtt_update_common/image_reader.h"

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

struct update_plan {
    std::string base;        // directory
    unsigned int added;      // files and links
    unsigned int changed;    // those that stand there with another content
    unsigned int same;       // those that stand there as they are, which are written all the same
    unsigned int in_the_way; // what can't be replaced
    std::vector<planned_system> systems;
    int64_t boot_size;                // of the boot loader, -1 for none
    std::vector<std::string> kernel;  // names of the files
    bool has_card[256];               // by type
    std::vector<std::string> reasons; // why the update is bound to fail
};

// Plans the update with `img`. Files of the same length count as the same unless `contents` are
// compared.
void plan_update(update_plan *plan, const image_file *img, const service_call *call, bool contents);

#endif
