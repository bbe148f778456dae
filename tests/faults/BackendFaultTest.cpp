#include "ipc/ChannelVocabulary.h"
#include "platform/linux/DBusNotificationCenter.h"
#include "tests/faults/FaultInjector.h"
#include "tests/faults/FaultReport.h"
#include "tests/jobs/DeviceFixture.h"
#include "tests/support/CaseName.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

// Every call of one kind that the backend for devices makes in a small job fails once, the first, the second,
// ... to the last.
//
// To run one of them alone, name its number: VELTRIN_FAULT_CALL=17 backend-fault-tests --gtest_filter=...
// It asks for memory hundreds of times, and whoever loses a message waits. So one of 24 is refused, unless
// VELTRIN_FAULT_STEP=1 asks for all of them.

namespace veltrin::test {
namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr const char *errorFile = "/tmp/errors";
constexpr const char *injectorsReport = "/tmp/injector";

struct Sweep {
    FaultKind kind;
    const char *how;
    std::string name = {};
};

void PrintTo(const Sweep &sweep, std::ostream *stream) {
    *stream << sweep.name;
}

std::vector<Sweep> sweeps() {
    std::vector<Sweep> result;
    for (const Sweep &fault :
         {Sweep{FaultKind::open, "EMFILE"}, Sweep{FaultKind::read, "EIO"}, Sweep{FaultKind::read, "EINTR"},
          Sweep{FaultKind::write, "EIO"}, Sweep{FaultKind::write, "EINTR"}, Sweep{FaultKind::write, "short"},
          Sweep{FaultKind::write, "EPIPE"}, Sweep{FaultKind::allocation, "ENOMEM"},
          Sweep{FaultKind::control, "EINVAL"}, Sweep{FaultKind::status, "EACCES"},
          Sweep{FaultKind::socket, "ECONNRESET"}, Sweep{FaultKind::socket, "EINTR"},
          Sweep{FaultKind::socket, "short"}, Sweep{FaultKind::poll, "EINTR"},
          Sweep{FaultKind::poll, "ENOMEM"}, Sweep{FaultKind::descriptor, "EMFILE"},
          Sweep{FaultKind::process, "EAGAIN"}}) {
        const std::string name = faultKindNames[static_cast<std::size_t>(fault.kind)];
        result.push_back({fault.kind, fault.how, caseName(name + "_" + fault.how)});
    }
    return result;
}

/// The blocks of the job: what the device is told first, a small one, and one that goes as a descriptor.
const std::vector<std::string> &blocks() {
    static const std::vector<std::string> all = {resetRecord(), std::string(1000, 'a'),
                                                 std::string(std::size_t{70} * 1024, 'b')};
    return all;
}

std::string whole() {
    std::string bytes;
    for (const std::string &block : blocks()) {
        bytes += block;
    }
    return bytes;
}

/// How long a filter waits for what does not come: far beyond what a job takes, or, where a call was failed
/// and it may never come, for a moment.
struct Patience {
    std::chrono::milliseconds inAll;
    int questions; ///< for a record, each of them after a while without one
};

constexpr Patience patient{processDeadline, INT_MAX};
constexpr Patience impatient{3s, 4};

/// The filter's end of the channel, which goes through a small job as a filter does but for its long waits.
class PlayedFilter {
  public:
    PlayedFilter(std::string theUri, const Patience &patience)
        : uri(std::move(theUri)), deadline(steady_clock::now() + patience.inAll),
          mostQuestions(patience.questions) {
        std::string problem;
        center = platform::DBusNotificationCenter::connect(
            {[this] { return steady_clock::now() >= deadline; }, [](const std::string &) {}}, problem,
            [](uid_t) { return true; });
        EXPECT_NE(center, nullptr) << problem;
        center->startObserving(uri + channel::frontendSuffix, {channel::backendAlive, channel::backendByebye},
                               [this](const platform::Notification &notification) { take(notification); });
        post(channel::frontendAlive);
    }

    /// Goes on. True once it has said its farewell.
    bool step() {
        attempt([this] { center->turn(1ms); });
        const auto now = steady_clock::now();
        if (isReady && !isReset) {
            isReset = true;
            post(channel::writePipe, blocks().front());
            ask(now);
        } else if (isReset && !hasRecord && now - asked > answerTime) {
            if (questions == mostQuestions || now >= deadline) {
                leave();
            } else {
                ask(now);
            }
        } else if (hasRecord) {
            for (std::size_t block = 1; block < blocks().size(); ++block) {
                post(channel::writePipe, blocks()[block]);
            }
            attempt([this] { isDelivered = center->waitForDelivery() && isDelivered; });
            isComplete = isDelivered && steady_clock::now() < deadline; // beyond it the wait was given up
            leave();
        }
        return hasLeft;
    }

    /// How far it has come: 0 to `lastStage`.
    [[nodiscard]] int stage() const {
        return (isReady ? 1 : 0) + (isReset ? 1 : 0) + (hasRecord ? 1 : 0) + (hasLeft ? 1 : 0);
    }

    static constexpr int lastStage = 4;

    /// Whether all blocks were taken.
    [[nodiscard]] bool hasPrinted() const { return isComplete; }

  private:
    static constexpr auto answerTime = 200ms;

    void take(const platform::Notification &notification) {
        isReady = isReady || notification.object == channel::backendAlive;
        hasRecord = hasRecord || (notification.object == channel::readPipe && notification.data &&
                                  notification.data->size() == sizeof(ReverseRecord));
    }

    void ask(steady_clock::time_point now) {
        asked = now;
        ++questions;
        post(channel::readPipe);
    }

    void leave() {
        post(channel::frontendByebye);
        attempt([this] { center->turnAfterPost(100ms); });
        hasLeft = true;
    }

    void post(const char *object, const std::string &data = "") {
        attempt([&] {
            const auto bytes = std::as_bytes(std::span(data));
            const bool isPosted = center->post(uri + channel::backendSuffix, object,
                                               data.empty() ? std::nullopt : std::optional(bytes));
            isDelivered = isPosted && isDelivered;
        });
    }

    /// What cannot be delivered is lost.
    template <typename Step>
    void attempt(Step step) {
        try {
            step();
        } catch (const platform::NotificationError &) {
            isDelivered = false;
        }
    }

    std::string uri;
    steady_clock::time_point deadline;
    int mostQuestions;
    std::unique_ptr<platform::DBusNotificationCenter> center;
    steady_clock::time_point asked;
    int questions = 0;
    bool isReady = false;
    bool isReset = false;
    bool hasRecord = false;
    bool isDelivered = true;
    bool isComplete = false;
    bool hasLeft = false;
};

/// Ends what the backend has left behind: this process is the parent of whatever its children leave.
std::size_t endOrphans(pid_t bus) {
    std::size_t count = 0;
    const std::string self = std::to_string(getpid());
    std::istringstream children(readFile("/proc/" + self + "/task/" + self + "/children"));
    for (pid_t child = -1; children >> child;) {
        if (child != bus) {
            ++count;
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }
    return count;
}

/// What became of a job.
struct PassedJob : FaultReport {
    ProcessResult end;
    bool hasFilterPrinted = false;
    bool hadToBeEnded = false;
    std::vector<std::string> messages; ///< lines for the scheduler
    std::string printed;
    std::size_t orphans = 0; ///< processes that the backend left behind
};

class FaultedBackend : public DeviceFixture {
  protected:
    FaultedBackend() { prctl(PR_SET_CHILD_SUBREAPER, 1); }

    ~FaultedBackend() override {
        std::filesystem::remove(errorFile);
        std::filesystem::remove(injectorsReport);
    }

    /// What else happens to a job.
    enum class Event {
        none,
        backendTerminated, ///< as the scheduler does where the job is cancelled
        filterGone,        ///< without a word
    };

    /// Passes a job, in which the event happens when the filter has come to this stage.
    [[nodiscard]] PassedJob pass(const std::string &fault, const Patience &patience = patient,
                                 Event event = Event::none, int stage = 0) {
        std::filesystem::remove(injectorsReport);
        std::filesystem::remove(printedFile);
        uri = "veltrin:test:orphaned";
        Command command = backendCommand();
        command.errors = File{errorFile};
        injectFaults(command, fault, injectorsReport);
        std::optional<PlayedFilter> filterEnd(std::in_place, uri, patience);
        Process backend(command);
        if (event != Event::none) {
            EXPECT_TRUE(backend.waitUntil([&] { return filterEnd->step() || filterEnd->stage() >= stage; }));
        }
        bool hasPrinted = false;
        if (event == Event::filterGone) {
            filterEnd.reset();
        } else {
            backend.send(event == Event::backendTerminated ? SIGTERM : 0);
            static_cast<void>(backend.waitUntil(
                [&] { return filterEnd->stage() == PlayedFilter::lastStage || filterEnd->step(); },
                2 * patience.inAll));
            hasPrinted = filterEnd->hasPrinted();
        }
        backend.closeInput();
        // The scheduler's user would lose patience at some time, and cancel the job.
        const bool hadToBeEnded = !backend.waitUntil([&] { return backend.hasEnded(); });
        backend.send(SIGTERM);
        const ProcessResult end = backend.finish();
        PassedJob job{readFaultReport(injectorsReport, {}),
                      end,
                      hasPrinted,
                      hadToBeEnded,
                      linesOf(readFile(errorFile)),
                      printedByDevice(),
                      0};
        job.orphans = endOrphans(bus.processIds().back());
        return job;
    }

    /// Whether a call that fails in this way costs the job nothing.
    [[nodiscard]] static bool mustGoOn(const std::string &how, FaultKind kind) {
        return (how == "EINTR" || how == "short") && kind != FaultKind::socket;
    }

    /// What is wrong with a job in which a call may have failed: it is to be whole, or to say why it is not.
    [[nodiscard]] static std::vector<std::string> objectionsTo(const PassedJob &job, const std::string &how,
                                                               FaultKind kind = FaultKind::socket) {
        std::vector<std::string> objections;
        if (isEndedByLibrary(job, job.end, job.messages)) {
            return objections;
        }
        const auto object = [&objections](const std::string &objection) { objections.push_back(objection); };
        const bool isTold =
            std::any_of(job.messages.begin(), job.messages.end(), [](const std::string &line) {
                return line.starts_with("ERROR: ") || line.starts_with("INFO: ");
            });
        if (job.end.timedOut || job.hadToBeEnded) {
            object("it does not end");
        } else if (job.end.signal) {
            object("signal " + std::to_string(*job.end.signal));
        } else if (job.end.exitStatus != 0 && !isTold) {
            object("nothing says why it failed");
        }
        // A filter that has been told of a lost block fails the job by itself.
        if (job.hasFilterPrinted && job.end.exitStatus == 0 && job.printed != whole()) {
            object("it is not whole but " + std::to_string(job.printed.size()) +
                   " bytes, and neither the filter nor the exit status says so");
        }
        if (job.hasFilterPrinted && !whole().starts_with(job.printed)) {
            object("the device got something else");
        }
        if (mustGoOn(how, kind) && job.printed != whole()) {
            object("it may go on, and does not");
        }
        if (const std::string words = lastWordsIn(job.messages); !words.empty()) {
            object(words);
        }
        if (job.orphans > 0) {
            object("the device's backend is left behind");
        }
        return objections;
    }
};

class BackendFaultTest : public FaultedBackend, public testing::WithParamInterface<Sweep> {};

TEST_P(BackendFaultTest, IsSurvivedAndTold) {
    const Sweep &sweep = GetParam();
    const std::string callKind = faultKindNames[static_cast<std::size_t>(sweep.kind)];
    const PassedJob sound = pass("");
    ASSERT_EQ(sound.end.exitStatus, 0) << testing::PrintToString(sound.messages);
    ASSERT_THAT(objectionsTo(sound, ""), testing::IsEmpty());
    ASSERT_TRUE(sound.hasFilterPrinted);
    long first = 1;
    long last = sound.counts.at(callKind);
    ASSERT_GE(last, first) << "the job makes no such calls";
    if (const char *call = std::getenv("VELTRIN_FAULT_CALL")) {
        first = last = std::stol(call);
    }
    const char *wantedStep = std::getenv("VELTRIN_FAULT_STEP");
    const long step = wantedStep != nullptr                 ? std::stol(wantedStep)
                      : sweep.kind == FaultKind::allocation ? 24
                                                            : 1;
    long hits = 0;
    for (long call = first; call <= last; call += step) {
        const PassedJob job = pass(callKind + ":" + std::to_string(call) + ":" + sweep.how,
                                   mustGoOn(sweep.how, sweep.kind) ? patient : impatient);
        hits += job.hit ? 1 : 0;
        EXPECT_THAT(objectionsTo(job, sweep.how, sweep.kind), testing::IsEmpty())
            << "VELTRIN_FAULT_CALL=" << call << (job.hit ? " " + job.hit->call + " " + job.hit->target : "")
            << ", exit status " << job.end.exitStatus.value_or(-1)
            << ", messages: " << testing::PrintToString(job.messages);
    }
    EXPECT_GT(hits, 0) << "no call was failed";
}

INSTANTIATE_TEST_SUITE_P(Faults, BackendFaultTest, testing::ValuesIn(sweeps()), nameOfCase<Sweep>);

// ---- What happens to a job in its course, once the backend is ready

class BackendEventTest : public FaultedBackend, public testing::WithParamInterface<int> {};

TEST_P(BackendEventTest, ACancelledJobIsTakenToItsGoodbye) {
    const PassedJob job = pass("", patient, Event::backendTerminated, GetParam());
    EXPECT_THAT(objectionsTo(job, ""), testing::IsEmpty()) << testing::PrintToString(job.messages);
    EXPECT_EQ(job.end.exitStatus, 0);
    EXPECT_TRUE(job.hasFilterPrinted);
}

TEST_P(BackendEventTest, AFilterThatIsGoneLeavesNothingBehind) {
    const PassedJob job = pass("", patient, Event::filterGone, GetParam());
    EXPECT_THAT(objectionsTo(job, ""), testing::IsEmpty()) << testing::PrintToString(job.messages);
    EXPECT_TRUE(whole().starts_with(job.printed));
}

INSTANTIATE_TEST_SUITE_P(Stages, BackendEventTest, testing::Range(1, PlayedFilter::lastStage + 1));

} // namespace
} // namespace veltrin::test
