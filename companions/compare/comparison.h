// An image against what stands on the device, one finding at a time: by the checksums of the bytes
// that were tested, and by what stands on the medium, see sum_file.
#ifndef COMPANIONS_COMPARE_COMPARISON_H
#define COMPANIONS_COMPARE_COMPARISON_H

#include "companions/compare/image_sums.h"

#include <sys/stat.h>

enum finding_kind {
    FOUND_SAME,
    FOUND_MISSING,
    FOUND_OTHER_CONTENT,
    FOUND_OTHER_KIND,
    FOUND_OTHER_TARGET, // of a link
    FOUND_UNREADABLE,
    FOUND_NO_PLACE,         // an entry that no run can bring there
    FOUND_NOT_ON_PARTITION, // of the boot loader or the kernel
    FOUND_EXTRA,
    FOUND_KINDS
};

struct finding {
    finding_kind kind;
    const char *detail; // what there is to say beside the kind, or null
    char path[PATH_SIZE];
    image_entry entry; // but for FOUND_EXTRA
    struct stat there; // of the path; `st_mode` is 0 if nothing stands there
};

enum {
    COMPARE_CONTENTS = 1, // else a file of the same length counts as the same
    COMPARE_DEVICE = 2,   // the partitions as well
    COMPARE_EXTRA = 4,    // what the image's directories hold beside its entries
    COMPARE_IN_RUN = 8    // the caller holds the lock of a run
};

// A function that is told of each finding, FOUND_SAME as well. Where it returns false, the
// comparison ends.
class finding_visitor
{
  public:
    template <typename Function>
    finding_visitor(const Function &function)
        : function_(&function), call_([](const void *visited, const finding &found) {
              return (*static_cast<const Function *>(visited))(found);
          })
    {
    }
    bool operator()(const finding &found) const
    {
        return call_(function_, found);
    }

  private:
    const void *function_;
    bool (*call_)(const void *function, const finding &found);
};

// How far a comparison has come.
struct compared {
    uint32_t entries;
    const char *fault; // why it could not go on, in words, or null
    uint32_t broken;   // number of the entry that it could not go on at
};

// Compares `img`, whose entries' data have the checksums `sums`, with what stands below `dir`,
// entry by entry, and then what else `what` says. The kernel partition is looked at ahead of the
// first finding.
[[nodiscard]] compared compare_with_device(const image_file *img, const image_sums *sums,
                                           const char *dir, int what, const finding_visitor &visit);

// A word for programs, and words for a person.
struct finding_name {
    const char *key;
    const char *words;
};
extern const finding_name FINDING_NAMES[FOUND_KINDS];

#endif
