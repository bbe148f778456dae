// A scenario file, and the printer that it makes. The input: the file.

#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "printer/Scenario.h"
#include "printer/VirtualPrinter.h"

#include <algorithm>
#include <chrono>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    using namespace std::chrono_literals;
    Input input(data, size);
    const std::string text = input.remainingText();
    std::string problem;
    const auto scenario = printer::parseScenario(text, problem);
    require(scenario.has_value() == problem.empty(), "a file that is no scenario has something wrong");
    require(problem.find('\n') == std::string::npos, "what is wrong is told in one line");
    if (!scenario) {
        return 0;
    }
    std::string again;
    require(printer::parseScenario(text, again).has_value(), "a scenario is one every time");

    std::size_t lines = 0;
    printer::PrinterTime last{};
    printer::VirtualPrinter device(
        *scenario, {.told = [&](printer::PrinterTime when, const std::string &line) {
            ++lines;
            require(when >= last, "time goes on");
            last = when;
            require(line.find('\n') == std::string::npos, "what happens is told in lines");
        }});
    device.needJob();
    // Every step goes to what happens next: so its number is that of the scenario's events and no more.
    const std::size_t most = 4 * scenario->events.size() + 64;
    std::size_t steps = 0;
    for (auto due = device.nextDue(); due && steps <= most; due = device.nextDue()) {
        require(*due >= device.passed(), "what happens next lies ahead");
        device.advance(*due);
        ++steps;
    }
    require(steps <= most, "a scenario comes to its end");
    device.endJob();
    return 0;
}
