#include "tests/faults/FaultFixture.h"
#include "tests/faults/FaultOutcomes.h"
#include "tests/support/CaseName.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <ostream>
#include <string>
#include <vector>

// Every call of one kind that a job makes fails once, the first, the second, ... to the last.
//
// To run one of them alone, name its number: VELTRIN_FAULT_CALL=17 fault-tests --gtest_filter=...

namespace veltrin::test {
namespace {

/// A kind of calls, how they fail, and in which jobs.
struct Fault {
    FaultKind kind;
    const char *how;
    bool inFileJobs = true;
    bool inOneSidedJobs = true;
};

constexpr Fault faults[] = {
    {FaultKind::open, "EACCES"},
    {FaultKind::open, "EMFILE"},
    {FaultKind::read, "EIO"},
    {FaultKind::read, "EINTR"},
    {FaultKind::read, "short"},
    {FaultKind::write, "EIO"},
    {FaultKind::write, "EINTR"},
    {FaultKind::write, "short"},
    {FaultKind::write, "ENOSPC"},
    {FaultKind::write, "ENOSPC:lasting"},
    {FaultKind::write, "EPIPE"},
    {FaultKind::write, "EPIPE:lasting"},
    {FaultKind::print, "EIO"},
    {FaultKind::allocation, "ENOMEM"},
    {.kind = FaultKind::temporaryFile, .how = "EACCES", .inOneSidedJobs = false},
    {FaultKind::control, "EINVAL"},
    {FaultKind::status, "EACCES"},
    {.kind = FaultKind::memoryFile, .how = "EMFILE", .inFileJobs = false},
    {.kind = FaultKind::memoryFile, .how = "EACCES", .inFileJobs = false},
    {.kind = FaultKind::socket, .how = "ECONNRESET", .inFileJobs = false},
    {.kind = FaultKind::socket, .how = "EINTR", .inFileJobs = false},
    {.kind = FaultKind::socket, .how = "ENOBUFS", .inFileJobs = false},
    {.kind = FaultKind::socket, .how = "short", .inFileJobs = false},
    {.kind = FaultKind::poll, .how = "EINTR", .inFileJobs = false},
    {.kind = FaultKind::poll, .how = "ENOMEM", .inFileJobs = false},
};

/// One test: the fault in a job of one kind, at every so many-th call.
struct Sweep {
    JobKind job;
    Fault fault;
    long first = 1;
    long step = 1;
    std::string name = {};
};

void PrintTo(const Sweep &sweep, std::ostream *stream) {
    *stream << sweep.name;
}

/// Jobs with a channel ask for memory thousands of times: their sweeps are in parts, which may run beside
/// each other.
std::vector<Sweep> sweeps() {
    constexpr long parts = 8;
    std::vector<Sweep> result;
    for (const JobKind &job : jobKinds) {
        for (const Fault &fault : faults) {
            if ((!job.hasChannel && !fault.inFileJobs) || (!job.isTwoSided && !fault.inOneSidedJobs)) {
                continue;
            }
            const bool isLong = job.hasChannel && fault.kind == FaultKind::allocation;
            const std::string name = std::string(job.name) + "_" +
                                     faultKindNames[static_cast<std::size_t>(fault.kind)] + "_" + fault.how;
            for (long part = 1; part <= (isLong ? parts : 1); ++part) {
                result.push_back({job, fault, part, isLong ? parts : 1,
                                  caseName(isLong ? name + "_" + std::to_string(part) : name)});
            }
        }
    }
    return result;
}

/// The last lines, for the report of a failure.
std::string endOf(const std::vector<std::string> &lines) {
    constexpr std::ptrdiff_t enough = 12;
    std::string text;
    std::vector<std::string> different(lines.size());
    different.erase(std::unique_copy(lines.begin(), lines.end(), different.begin()), different.end());
    const auto from = std::max(different.begin(),
                               different.end() - std::min<std::ptrdiff_t>(enough, std::ssize(different)));
    std::for_each(from, different.end(), [&text](const std::string &line) { text += "\n    " + line; });
    return text;
}

class FaultTest : public FaultFixture, public testing::WithParamInterface<Sweep> {
  protected:
    FaultTest() : FaultFixture(GetParam().job) {}
};

TEST_P(FaultTest, IsSurvivedAndTold) {
    const Sweep &sweep = GetParam();
    const std::string callKind = faultKindNames[static_cast<std::size_t>(sweep.fault.kind)];
    const FaultedJob sound = print({});
    ASSERT_THAT(objectionsTo(sound, kind, whole(), ""), testing::IsEmpty()) << endOf(sound.log);
    long first = sweep.first;
    long last = sound.counts.at(callKind);
    ASSERT_GE(last, first) << "the job makes no such calls";
    if (const char *call = std::getenv("VELTRIN_FAULT_CALL")) {
        first = last = std::stol(call);
    }
    long hits = 0;
    for (long call = first; call <= last; call += sweep.step) {
        const FaultedJob job =
            print({.fault = callKind + ":" + std::to_string(call) + ":" + sweep.fault.how});
        hits += job.hit ? 1 : 0;
        EXPECT_THAT(objectionsTo(job, kind, whole(), sweep.fault.how), testing::IsEmpty())
            << "VELTRIN_FAULT_CALL=" << call << (job.hit ? " " + job.hit->call + " " + job.hit->target : "")
            << ", the log ends:" << endOf(job.log) << "\nstandard error:" << endOf(job.errors);
    }
    EXPECT_GT(hits, 0) << "no call was failed";
}

INSTANTIATE_TEST_SUITE_P(Faults, FaultTest, testing::ValuesIn(sweeps()), nameOfCase<Sweep>);

// ---- Signals, when the log has come to each of its lines

class SignalTest : public FaultFixture, public testing::WithParamInterface<JobKind> {
  protected:
    SignalTest() : FaultFixture(GetParam()) {}

    /// The lines at which the signal comes: all that the job writes.
    [[nodiscard]] std::vector<std::string> lines() {
        std::vector<std::string> numbers;
        const FaultedJob sound = print({});
        EXPECT_THAT(objectionsTo(sound, kind, whole(), ""), testing::IsEmpty()) << endOf(sound.log);
        for (long line = 1; line <= sound.counts.at("line"); ++line) {
            numbers.push_back(std::to_string(line));
        }
        if (const char *line = std::getenv("VELTRIN_FAULT_LINE")) {
            numbers = {line};
        }
        EXPECT_FALSE(numbers.empty());
        return numbers;
    }

    /// The job ended in one of these ways; or as a sound one, where it wrote a line or two less this time.
    void expectOneOf(std::vector<Ending> endings, const FaultedJob &job, const std::string &line) const {
        std::vector<std::string> objections = generalObjectionsTo(job);
        const bool isWellBehaved = objections.empty();
        if (!job.isStepped) {
            endings = {Ending::whole};
        }
        for (const Ending ending : endings) {
            const std::vector<std::string> differences = objectionsTo(ending, job, kind, whole());
            if (differences.empty() && isWellBehaved) {
                return;
            }
            objections.insert(objections.end(), differences.begin(), differences.end());
        }
        ADD_FAILURE() << "VELTRIN_FAULT_LINE=" << line << ": " << testing::PrintToString(objections)
                      << ", the log ends:" << endOf(job.log) << "\nstandard error:" << endOf(job.errors);
    }
};

TEST_P(SignalTest, CancelTheJob) {
    for (const std::string &line : lines()) {
        const FaultedJob job = print({.signalAt = line + ":" + std::to_string(SIGTERM)});
        if (line == "1") {
            // The filter has yet to say what the signal is to do, and has done nothing so far.
            EXPECT_EQ(job.filter.signal, SIGTERM);
            EXPECT_THAT(job.printed, testing::IsEmpty());
            EXPECT_THAT(job.left, testing::IsEmpty());
            continue;
        }
        // Without a channel nothing is waited for, and so nothing looks whether the job is cancelled.
        const std::vector<Ending> endings =
            kind.hasChannel ? std::vector{Ending::whole, Ending::cancelled} : std::vector{Ending::whole};
        expectOneOf(endings, job, line);
    }
}

class ChannelSignalTest : public SignalTest {};

TEST_P(ChannelSignalTest, ThePrinterVanishes) {
    for (const std::string &line : lines()) {
        const FaultedJob job = print({.victim = Injection::Victim::printer, .killAt = line});
        expectOneOf({Ending::taken, Ending::unstarted, Ending::cutOff}, job, line);
    }
}

TEST_P(ChannelSignalTest, TheBusVanishes) {
    for (const std::string &line : lines()) {
        const FaultedJob job = print({.victim = Injection::Victim::bus, .killAt = line});
        expectOneOf({Ending::taken, Ending::unstarted, Ending::cutOff}, job, line);
    }
}

INSTANTIATE_TEST_SUITE_P(Signals, SignalTest, testing::ValuesIn(jobKinds), nameOfCase<JobKind>);
INSTANTIATE_TEST_SUITE_P(Signals, ChannelSignalTest, testing::Values(jobKinds[2], jobKinds[3]),
                         nameOfCase<JobKind>);

} // namespace
} // namespace veltrin::test
