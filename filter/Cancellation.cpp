#include "filter/Cancellation.h"

#include <cstdio>

namespace veltrin {

std::atomic<std::uint8_t> gSigTerm{0};
std::atomic<std::uint8_t> gSigPipe{0};

static_assert(std::atomic<std::uint8_t>::is_always_lock_free);

extern "C" void signalHandler(int signal, [[maybe_unused]] siginfo_t *information,
                              [[maybe_unused]] void *context) {
    if (signal == SIGPIPE) {
        gSigPipe = 1;
    } else if (signal == SIGTERM) {
        gSigTerm = 1;
    }
}

namespace {

/// Returns false with `errno` set where the system refuses.
bool installHandlerOf(int signal) {
    struct sigaction action {};

    action.sa_sigaction = signalHandler;
    // SA_RESTART: a read that waits for the renderer goes on waiting, so that a cancelled job still ends in
    // order.
    action.sa_flags = SA_SIGINFO | SA_RESTART;
    sigemptyset(&action.sa_mask);
    return sigaction(signal, &action, nullptr) == 0;
}

} // namespace

void installSignalHandlers() {
    if (!installHandlerOf(SIGTERM)) {
        std::perror("DEBUG: Failed to set SIGTERM handler");
    }
    if (!installHandlerOf(SIGPIPE)) {
        std::perror("DEBUG: Failed to set SIGPIPE handler");
    }
}

void reinstallBrokenPipeHandler() {
    static_cast<void>(installHandlerOf(SIGPIPE));
}

} // namespace veltrin
