#include "printer/PrinterRun.h"

#include <signal.h>

#include <atomic>

namespace veltrin::printer {

namespace {

std::atomic<bool> endSignal{false};
static_assert(std::atomic<bool>::is_always_lock_free);

extern "C" void noteEndSignal(int /*signal*/) {
    endSignal = true;
}

bool serve(VirtualPrinter &printer, Plug &plug, const PrinterClock &clock, const GoOn &goOn,
           std::string &problem) {
    while (true) {
        if (!plug.act(problem)) {
            return false;
        }
        if (plug.isGone() || !goOn(printer, clock.now())) {
            return true;
        }
        plug.turn();
    }
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

bool runPrinter(VirtualPrinter &printer, Plug &plug, const PrinterClock &clock, const GoOn &goOn,
                std::string &problem) {
    if (!plug.open(problem)) {
        return false;
    }
    const bool served = serve(printer, plug, clock, goOn, problem);
    plug.close();
    printer.endJob();
    printer.tellUnprinted();
    return served;
}

} // namespace veltrin::printer
