#pragma once

#include <signal.h>

#include <atomic>
#include <cstdint>

namespace veltrin {

/// Set to 1, once and for good, when the signal has arrived. One lock-free byte each, which a signal handler
/// may write.
extern std::atomic<std::uint8_t> gSigTerm;
extern std::atomic<std::uint8_t> gSigPipe;

/// The handler of SIGTERM and SIGPIPE: it only sets the flags, which the filter's waiting loops look at. A
/// job is never ended from inside the handler, so spool files are removed and the printer is told.
extern "C" void signalHandler(int signal, siginfo_t *information, void *context);

/// Installs `signalHandler` for both signals. A signal that cannot be handled is reported on standard error,
/// and the job goes on without its handler.
void installSignalHandlers();

/// Takes SIGPIPE back from a library that has made the process ignore it. A signal that cannot be handled has
/// been reported before.
void reinstallBrokenPipeHandler();

} // namespace veltrin
