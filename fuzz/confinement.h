// The system calls and shell commands of an apply run, kept below its base directory. Whatever the
// image says, nothing else of this machine is touched.
#ifndef FUZZ_CONFINEMENT_H
#define FUZZ_CONFINEMENT_H

#include <string>

struct confinement {
    std::string dir;            // holds everything else
    std::string base;           // the run's base directory
    bool commands_fail = false; // those that can't be run here: do they fail?
    int image_fd = -1;
    int calls_to_change = 0; // until the image's body becomes `new_body`; 0 for never
    std::string new_body;
};

extern confinement confined;

// Makes the directory, with a small tree in place of the file system that the target search sees.
void confine();

#endif
