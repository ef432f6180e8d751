// What the fuzz targets share: logs that go nowhere, and the check that ends a target.
#ifndef FUZZ_HARNESS_H
#define FUZZ_HARNESS_H

#include <cstddef>
#include <cstdint>

// While the code under test runs. Wrapped calls do their special work only then: the fuzzer itself,
// which is in the same process, lists and writes its corpus by the same calls.
extern bool under_test;

// Unless it `holds`, reports `what` and ends the process, which is a finding.
void check(bool holds, const char *what);

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

#endif
