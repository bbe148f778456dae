#include "platform/EndSignals.h"

#include <signal.h>

#include <atomic>

namespace veltrin {

namespace {

std::atomic<bool> endSignal{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void noteEndSignal(int /*signal*/) {
    endSignal = true;
}

} // namespace

void catchEndSignals() {
    struct sigaction action {};

    action.sa_handler = noteEndSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGTERM, &action, nullptr);
    sigaction(SIGINT, &action, nullptr);
    action.sa_handler = SIG_IGN;
    sigaction(SIGPIPE, &action, nullptr);
}

bool endWanted() {
    return endSignal;
}

} // namespace veltrin
