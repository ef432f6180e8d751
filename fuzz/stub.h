// What the fuzz targets share: a platform log and a trace log that go nowhere, and the check that
// ends a target.
#ifndef FUZZ_STUB_H
#define FUZZ_STUB_H

#include <cstddef>
#include <cstdint>

// While the code under test runs. The wrapped system calls do their special work only then: the
// fuzzer itself, which is in the same process, lists and writes its corpus by the same calls.
extern bool under_test;

// Reports `what` and ends the process, which the fuzzer takes as a finding, unless `holds`.
void check(bool holds, const char *what);

extern "C" {
int LLVMFuzzerInitialize(int *argc, char ***argv);
int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
}

#endif
