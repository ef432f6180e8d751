// What goes for whatever writes to the device: root alone, one at a time, planned, compared with
// what was tested, and the version read back.
#ifndef COMPANIONS_UPGD_SERVICE_SESSION_H
#define COMPANIONS_UPGD_SERVICE_SESSION_H

#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/interrupts.h"
#include "companions/upgd_service/plan.h"
#include "companions/upgd_service/tested_image.h"

// The lock of a run, as long as this lives. The commands of the run inherit it.
class session
{
  public:
    session() = default;
    session(const session &) = delete;
    session &operator=(const session &) = delete;
    ~session();

    // Returns false with a sentence if this user may not write to the device, or another is at
    // work.
    [[nodiscard]] bool begin(const char *verb);

  private:
    int lock_ = -1;
};

// Whether the finding behind `count` others is told: the first ones are, and that there are more.
[[nodiscard]] bool is_told(size_t count);

// Plans the run. Returns false with sentences if it is bound to fail; with --force they are told,
// and no more.
[[nodiscard]] bool test_plan(const tested_image *image, const service_call *call,
                             update_plan *plan);

// Whether the version is the one that is recorded. Returns false with a sentence.
[[nodiscard]] bool version_is_recorded(const tested_image *image, const std::string &version);

// The run does not look at what its commands have done. Compares what stands below `where` and on
// the partitions with what was tested, and tells what is not there. `done` is what has been done,
// in a word. Returns an exit status.
int compare_applied(const tested_image *image, const char *where, const char *done,
                    const interrupts &interrupted);

#endif
