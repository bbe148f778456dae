#pragma once

#include <cstddef>
#include <cstdint>

// What every target of the fuzzer is made of.

/// Runs the target on one input; what does not hold ends the process. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

/// Gives the process a /tmp and a /run of its own, and keeps it from the machine's scheduler.
extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

namespace veltrin::fuzz {

/// Ends the process as a crash does, with the property on standard error (that of the process: whatever a
/// target has put in its place), unless it holds.
void require(bool holds, const char *property);

} // namespace veltrin::fuzz
