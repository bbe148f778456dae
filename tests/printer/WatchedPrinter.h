#pragma once

#include "printer/StatusView.h"
#include "printer/VirtualPrinter.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::printer {

/// A virtual printer with these members in its scenario, and what it tells of itself.
class WatchedPrinter {
  public:
    explicit WatchedPrinter(const std::string &members) : virtualPrinter(scenario(members), listener()) {}

    [[nodiscard]] VirtualPrinter &printer() { return virtualPrinter; }

    std::vector<std::string> told; ///< "1.000 status 0/0/0 Ready"
    std::vector<JobReport> jobs;
    std::string output;

  private:
    static Scenario scenario(const std::string &members) {
        std::string problem;
        auto parsed = parseScenario(
            R"({"description": "test")" + (members.empty() ? "" : ", " + members) + "}", problem);
        EXPECT_EQ(problem, "");
        return parsed.value_or(Scenario());
    }

    PrinterListener listener() {
        return {.told = [this](PrinterTime when,
                               const std::string &line) { told.push_back(secondsText(when) + " " + line); },
                .dataArrived =
                    [this](std::span<const std::byte> bytes) {
                        output.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
                    },
                .jobEnded = [this](const JobReport &report) { jobs.push_back(report); }};
    }

    VirtualPrinter virtualPrinter;
};

} // namespace veltrin::printer
