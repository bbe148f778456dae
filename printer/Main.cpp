#include "Version.h"
#include "platform/CommandLine.h"
#include "platform/EndSignals.h"
#include "platform/StandardDescriptors.h"
#include "printer/BackendJob.h"
#include "printer/ChannelPlug.h"
#include "printer/Display.h"
#include "printer/Pace.h"
#include "printer/PrinterOptions.h"
#include "printer/PrinterRun.h"
#include "printer/Results.h"
#include "printer/ScenarioLibrary.h"
#include "printer/WirePlug.h"

#include <iostream>
#include <memory>
#include <string>
#include <utility>

// veltrin-printer: a printer at the other end of the filter's channel, where it is its own backend, or of a
// wire.

namespace {

using namespace veltrin;
using namespace veltrin::printer;

constexpr const char *program = "veltrin-printer";

/// What the printer is reached by, as far as it is known before it is.
std::string nameOf(const PrinterOptions &options) {
    return options.listen ? "socket://" + textOf(*options.listen) : options.uri;
}

/// Serves the printer until it is to end. Returns whether it could be reached; says it if not.
bool serve(const PrinterOptions &options, VirtualPrinter &printer, const PrinterClock &clock, Plug &plug,
           Display &display, Results &results) {
    Pace pace;
    const auto goOn = [&](const VirtualPrinter &, PrinterTime now) {
        results.start();
        results.note(now, printer.printer());
        if (pace.isDue(now)) {
            display.show(printer);
        }
        const bool isDone = options.jobs != 0 && results.jobCount() >= options.jobs && printer.isAtRest();
        return !endWanted() && results.takesData() && display.isFine() && !isDone;
    };
    std::string problem;
    const bool served = runPrinter(printer, plug, clock, goOn, problem);
    if (served || !display.isPicture() || results.jobCount() != 0) {
        display.show(printer);
    }
    if (!served) {
        std::cerr << program << ": " << problem << '\n';
    }
    return served;
}

bool serveOnPlug(const PrinterOptions &options, VirtualPrinter &printer, Display &display, Results &results) {
    const PrinterClock clock;
    if (options.listen) {
        WirePlug plug(printer, clock, *options.listen);
        const bool served = serve(options, printer, clock, plug, display, results);
        results.end("socket://" + textOf(plug.address()), printer.printer());
        return served;
    }
    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    ChannelPlug plug(*platform, printer, clock, {.uri = options.uri, .stays = options.stays});
    const bool served = serve(options, printer, clock, plug, display, results);
    results.end(options.uri, printer.printer());
    return served;
}

int servePrinter(const PrinterOptions &options) {
    Scenario scenario;
    if (!options.scenario.empty()) {
        std::string problem;
        auto loaded = loadScenario(options.scenario, problem);
        if (!loaded) {
            std::cerr << program << ": " << problem << '\n';
            return exitFailure;
        }
        scenario = std::move(*loaded);
    }
    Results results(options);
    if (!results.areFilesFine(program)) {
        return exitFailure;
    }
    Display display(nameOf(options) + (scenario.description.empty() ? "" : ": " + scenario.description));
    catchEndSignals();
    PrinterListener listener;
    listener.told = [&](PrinterTime when, const std::string &line) { display.tell(when, line); };
    listener.dataArrived = [&](std::span<const std::byte> bytes) { results.add(bytes); };
    listener.jobEnded = [&](const JobReport &report) { results.add(report); };
    VirtualPrinter printer(std::move(scenario), listener);
    const bool served = serveOnPlug(options, printer, display, results);
    const bool areFilesFine = results.areFilesFine(program);
    const int status = display.end(program);
    return status == exitFine && (!served || !areFilesFine || results.hasBrokenJob()) ? exitFailure : status;
}

int listScenarios() {
    std::string text;
    for (const ListedScenario &scenario : listedScenarios()) {
        text += scenario.name + std::string(scenario.name.size() < 20 ? 20 - scenario.name.size() : 0, ' ') +
                "  " + scenario.description + "\n";
    }
    return printText(program, text);
}

int serveScheduler(int argc, char **argv) {
    catchEndSignals();
    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    return runBackendJob(argc, argv, *platform);
}

int servePeople(int argc, char **argv) {
    std::string problem;
    const auto options = parsePrinterOptions(argc, argv, problem);
    if (!options) {
        return problem.empty() ? refuseUsage(program) : refuseUsage(program, problem);
    }
    switch (options->task) {
    case PrinterOptions::Task::listScenarios:
        return listScenarios();
    case PrinterOptions::Task::help:
        return printText(program, printerHelp);
    case PrinterOptions::Task::version:
        return printText(program, std::string(program) + " " + version + "\n");
    case PrinterOptions::Task::serve:
        break;
    }
    return servePrinter(*options);
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    switch (backendRole(argc, argv)) {
    case BackendRole::discovery:
        return printText(program, discoveryLines());
    case BackendRole::job:
        return serveScheduler(argc, argv);
    case BackendRole::none:
        break;
    }
    return servePeople(argc, argv);
}
