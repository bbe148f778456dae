#include "printer/PrinterRun.h"

namespace veltrin::printer {

namespace {

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
