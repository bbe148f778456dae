#pragma once

#include "tests/faults/FaultInjector.h"
#include "tests/faults/FaultReport.h"
#include "tests/jobs/JobFixture.h"
#include "tests/support/PrivateBus.h"

#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::test {

/// The jobs in which calls are failed.
struct JobKind {
    const char *name;
    bool hasChannel;
    bool isTwoSided;
};

inline void PrintTo(const JobKind &kind, std::ostream *stream) {
    *stream << kind.name;
}

inline constexpr JobKind jobKinds[] = {
    {"FileOneSided", false, false},
    {"FileTwoSided", false, true},
    {"ChannelOneSided", true, false},
    {"ChannelTwoSided", true, true},
};

/// What became of a job.
struct FaultedJob : FaultReport {
    ProcessResult filter;
    std::vector<std::string> log;    ///< messages, those that went to standard error in its stead included
    std::vector<std::string> errors; ///< lines on standard error
    std::string printed;             ///< what the printer got
    std::string outcome;             ///< the job's in the printer's report; empty where it had none
    std::vector<std::string> left;   ///< files that ought to be gone
};

/// Runs jobs of one kind, each with the fault injector in the filter.
class FaultFixture : public JobFixture {
  protected:
    /// What the injector is told; see FaultInjector.h.
    struct Injection {
        std::string fault = {};
        std::string signalAt = {}; ///< LINE:SIGNAL, to the filter itself

        enum class Victim { none, printer, bus } victim = Victim::none;
        std::string killAt = {}; ///< LINE, at which the victim is killed
    };

    explicit FaultFixture(const JobKind &theKind);

    [[nodiscard]] FaultedJob print(const Injection &injection);

    /// What the printer gets of the job when nothing is the matter.
    [[nodiscard]] const std::string &whole() const { return expected; }

    const JobKind &kind;

  private:
    void startPrinter(bool onNewBus);
    [[nodiscard]] Command faultedFilter(const Injection &injection) const;
    [[nodiscard]] FaultedJob result() const;

    std::string expected;
    std::optional<PrivateBus> bus;
    std::optional<Process> printer;
};

} // namespace veltrin::test
