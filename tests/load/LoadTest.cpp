#include "driver/stream/PageStream.h"
#include "log/DebugLog.h"
#include "tests/jobs/DeviceFixture.h"
#include "tests/load/Stranger.h"
#include "tests/load/StreamCheck.h"
#include "tests/load/Watch.h"
#include "tests/support/BusClient.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

// Jobs that are long, or many at a time. Each must come out whole, and whoever had a part in it must have
// held no more at any time than it does for a small one. How long it took is told and never judged.

namespace veltrin::test {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

/// Far beyond what anything here takes.
constexpr auto patience = 5min;

/// A filter has a buffer for data, one for reading ahead, and at most 16 blocks on their way to the backend,
/// each a descriptor where it is large.
constexpr HoldLimit filterLimit{16 * mebibyte, 64};

/// A backend has as many blocks in hand as the filter has on their way.
constexpr HoldLimit backendLimit{16 * mebibyte, 96};

/// The virtual printer reports every page at the end.
constexpr HoldLimit printerLimit{24 * mebibyte, 64};

/// The bus has them while they pass.
constexpr HoldLimit busLimit{16 * mebibyte, 128};
constexpr HoldLimit busOfFiftyLimit{16 * mebibyte, 2048};

std::string projectsPolicy() {
    return PrivateBus::systemPolicy + ("<include>" + hostPath(VELTRIN_BUS_POLICY) + "</include>");
}

/// A printer that never lacks room and never keeps anybody waiting.
std::string hastyPrinter(bool hasDuplexUnit) {
    return std::string(R"({"description": "A printer that is never full", "printer": {"duplexUnit": )") +
           (hasDuplexUnit ? "true" : "false") +
           R"(, "memory": {"header": 4000000000, "image": 4000000000}, "pagesPerMinute": 60000}})";
}

/// More than any queue on the way has room for; each is some 300 bytes.
constexpr unsigned long enoughToFlood = 500'000;

/// What the printer gets of a one-sided job, piece by piece.
bool printedOneSided(const StreamOptions &stream, const StreamSink &sink) {
    StreamOptions alone = stream;
    alone.identifier.reset();
    return makeStream(alone, sink);
}

/// The two ends of a pipe.
class Ends {
  public:
    Ends() {
        if (pipe2(ends.data(), O_CLOEXEC) != 0) {
            ADD_FAILURE() << "no pipe";
        }
    }

    Ends(const Ends &) = delete;
    Ends &operator=(const Ends &) = delete;

    ~Ends() {
        closeReading();
        closeWriting();
    }

    [[nodiscard]] int reading() const { return ends[0]; }

    [[nodiscard]] int writing() const { return ends[1]; }

    void closeReading() { closeEnd(ends[0]); }

    void closeWriting() { closeEnd(ends[1]); }

  private:
    static void closeEnd(int &end) {
        if (end != -1) {
            close(end);
            end = -1;
        }
    }

    std::array<int, 2> ends{-1, -1};
};

/// Writes a stream into a pipe, and ends it.
std::thread feeder(const StreamOptions &stream, Ends &pipe) {
    return std::thread([stream, &pipe] {
        static_cast<void>(makeStream(stream, [&pipe](std::span<const std::byte> bytes) {
            while (!bytes.empty()) {
                const ssize_t written = write(pipe.writing(), bytes.data(), bytes.size());
                if (written <= 0) {
                    return false; // the filter has ended, and its exit status tells why
                }
                bytes = bytes.subspan(static_cast<std::size_t>(written));
            }
            return true;
        }));
        pipe.closeWriting();
    });
}

/// A folder on the machine's disk: the tests' own /tmp is memory.
class DiskFolder {
  public:
    DiskFolder() {
        if (mkdtemp(name.data()) == nullptr) {
            ADD_FAILURE() << "no folder like " << name;
        }
    }

    DiskFolder(const DiskFolder &) = delete;
    DiskFolder &operator=(const DiskFolder &) = delete;

    ~DiskFolder() { std::filesystem::remove_all(name); }

    [[nodiscard]] const std::string &path() const { return name; }

  private:
    std::string name = "/var/tmp/veltrin-load.XXXXXX";
};

/// What the bus has open for itself. It opens some of it when somebody comes.
std::size_t descriptorsWithNobodyOn(const PrivateBus &bus) {
    BusClient client("nobody");
    client.waitForBus();
    return openDescriptorsOf(bus.processIds().back()) - 1;
}

/// A filter and the virtual printer, which is never full, at a device of their own.
struct Pair {
    std::string uri;
    std::string input;
    std::string output;
    std::string report;
    std::optional<Process> printer;
    std::optional<Process> filter;
};

/// With the bus as it is installed, and no debug log.
class LoadTest : public DeviceFixture {
  protected:
    static constexpr const char *twoSided = "com.apple.print.PrintSettings.PMDuplexing..n.=2";

    LoadTest() : DeviceFixture(projectsPolicy()) {
        std::filesystem::remove(debugMarkerPath);
        std::filesystem::create_directory(work);
        std::signal(SIGPIPE, SIG_IGN);
        watch.add("bus", bus.processIds().back());
    }

    ~LoadTest() override {
        const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
        std::printf("| %-27s | %-8s | %7.1f s |%11s|%11s|%7s|%7s|\n", caseName(), "all", time.count(), "", "",
                    "", "");
        expectNothingLeft();
        std::filesystem::remove_all(work);
    }

    /// A printer at the channel, and the filter's command for it, which is not started yet.
    std::unique_ptr<Pair> makePair(const std::string &name, bool hasDuplexUnit = false,
                                   const std::string &printed = "") {
        auto pair = std::make_unique<Pair>();
        pair->uri = "socket://" + name + ".example:9100";
        pair->input = work + "/input-" + name;
        pair->output = printed.empty() ? work + "/printed-" + name : printed;
        pair->report = work + "/report-" + name;
        const std::string scenario = work + "/scenario-" + name + ".json";
        writeFile(scenario, hastyPrinter(hasDuplexUnit));
        pair->printer.emplace(
            Command{.program = hostPath(VELTRIN_PRINTER),
                    .arguments = {"veltrin-printer", "--scenario=" + scenario, "--output=" + pair->output,
                                  "--report=" + pair->report, "--jobs=1", pair->uri},
                    .output = File{"/dev/null"}});
        watch.add("printer", pair->printer->id());
        return pair;
    }

    /// Starts the pair's filter on what is in its input file.
    void startFilterOf(Pair &pair, const std::string &options = "") {
        startFilterOf(pair, options, File{pair.input});
    }

    void startFilterOf(Pair &pair, const std::string &options, const decltype(Command::input) &input) {
        Command command = filterCommand({.options = options});
        command.input = input;
        command.output = File{"/dev/null"};
        (*command.environment)["DEVICE_URI"] = pair.uri;
        (*command.environment)["DBUS_SYSTEM_BUS_ADDRESS"] = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        pair.filter.emplace(command);
        watch.add("filter", pair.filter->id());
    }

    /// Both have ended as they do when nothing is the matter.
    static void expectSuccess(Pair &pair) {
        const ProcessResult filter = pair.filter->finish(patience);
        EXPECT_EQ(filter.exitStatus, 0) << pair.uri << "\n" << filter.errors;
        const ProcessResult printer = pair.printer->finish(patience);
        EXPECT_EQ(printer.exitStatus, 0) << pair.uri << "\n" << printer.errors;
    }

    /// What the printer says of its only job, which is to be whole.
    [[nodiscard]] static nlohmann::json wholeJobOf(const Pair &pair) {
        const nlohmann::json jobs = jobsIn(pair.report);
        if (jobs.size() != 1) {
            ADD_FAILURE() << pair.uri << " has not had one job but " << jobs.size();
            return nlohmann::json::object();
        }
        EXPECT_EQ(jobs[0].value("outcome", ""), "whole") << pair.uri;
        EXPECT_EQ(jobs[0].value("overruns", nlohmann::json::array()).size(), 0U) << pair.uri;
        return jobs[0];
    }

    /// What a process of that role has held, which must be within its limit.
    void judge(const std::string &role, const HoldLimit &limit) const {
        const Held held = watch.heldBy(role);
        EXPECT_GT(held.samples, 0U) << role << " was never seen";
        EXPECT_LE(held.memory, limit.memory) << role;
        EXPECT_LE(held.descriptors, limit.descriptors) << role;
        const auto inMebibytes = [](std::size_t bytes) {
            return static_cast<double>(bytes) / static_cast<double>(mebibyte);
        };
        std::printf("| %-27s | %-8s | %9s | %5.1f MiB | %5.1f MiB | %5zu | %5zu |\n", caseName(),
                    role.c_str(), "", inMebibytes(held.memory), inMebibytes(limit.memory), held.descriptors,
                    limit.descriptors);
    }

    /// The bus has closed all that it had open for those who have gone.
    void expectBusAsBefore() const {
        const pid_t process = bus.processIds().back();
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (openDescriptorsOf(process) > descriptorsOfIdleBus &&
               std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(10ms);
        }
        EXPECT_LE(openDescriptorsOf(process), descriptorsOfIdleBus);
    }

    /// Prints a stream that is made as it goes, without a channel, and compares what comes out with what
    /// `expected` makes.
    void printThroughPipes(const StreamOptions &stream, const std::string &options,
                           const std::function<bool(const StreamSink &)> &expected) {
        Ends input;
        Ends output;
        Command command = filterCommand({.options = options});
        command.input = Descriptor{input.reading()};
        command.output = Descriptor{output.writing()};
        Process filterProcess(command);
        watch.add("filter", filterProcess.id());
        input.closeReading();
        output.closeWriting();
        std::thread feeding = feeder(stream, input);
        if (!compare(output.reading(), expected)) {
            filterProcess.send(SIGTERM); // it would wait until it can write
        }
        output.closeReading();
        EXPECT_EQ(filterProcess.finish(patience).exitStatus, 0);
        feeding.join();
    }

    /// Takes all that comes out of the pipe, and tells how much it was. False where it is not as expected.
    static bool compare(int pipe, const std::function<bool(const StreamSink &)> &expected) {
        StreamCheck check(pipe);
        const bool isAsExpected =
            expected([&check](std::span<const std::byte> bytes) { return check.expect(bytes); }) &&
            check.expectEnd();
        EXPECT_TRUE(isAsExpected) << check.problem();
        std::printf("%s: %llu bytes came as they were to come\n", caseName(),
                    static_cast<unsigned long long>(check.count()));
        return isAsExpected;
    }

    [[nodiscard]] static const char *caseName() {
        return testing::UnitTest::GetInstance()->current_test_info()->name();
    }

    const std::string work = "/tmp/load";
    std::chrono::steady_clock::time_point start = std::chrono::steady_clock::now();
    std::size_t descriptorsOfIdleBus = descriptorsWithNobodyOn(bus);
    Watch watch;
};

// ---- Long jobs

constexpr std::uint32_t thousand = 1000;

/// Backs first, sheet by sheet.
std::string dealtToSheets(std::uint32_t pages) {
    std::string order;
    for (std::uint32_t page = 1; page < pages; page += 2) {
        order += std::to_string(page + 1) + "(12) " + std::to_string(page) + "(4) ";
    }
    return order;
}

TEST_F(LoadTest, ThousandPagesTwoSided) {
    StreamOptions stream;
    stream.pages = thousand;
    stream.bandsPerPage = 2;
    stream.planeSizes = dealtOut(32768);
    const auto pair = makePair("long", true);
    writeFile(pair->input, makeStream(stream));
    startFilterOf(*pair, JobOptions{.duplexing = 2, .sidesImaged = static_cast<int>(thousand)}.argument());
    expectSuccess(*pair);
    const nlohmann::json job = wholeJobOf(*pair);
    EXPECT_EQ(job["pages"].size(), thousand);
    EXPECT_EQ(job["sheets"].size(), thousand / 2);
    EXPECT_EQ(job["printed"], thousand);
    EXPECT_THAT(Bytes(readFile(pair->output)),
                BytesAre(resetRecord() + printed(stream, jobSettingDuplex, dealtToSheets(thousand))));
    expectBusAsBefore();
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    judge("bus", busLimit);
}

/// One page of more than 4 GiB: whatever counts in 32 bits comes round.
StreamOptions hugePage() {
    StreamOptions stream;
    stream.bandsPerPage = 65000;
    stream.planeSizes = dealtOut(68000);
    EXPECT_EQ(problemWith(stream), std::nullopt);
    return stream;
}

TEST_F(LoadTest, FourGibibytesOneSided) {
    const StreamOptions stream = hugePage();
    printThroughPipes(stream, "", [&](const StreamSink &sink) { return printedOneSided(stream, sink); });
    judge("filter", filterLimit);
}

/// A single page is printed on one side of its sheet, but only when it has been spooled is it known to be
/// one.
TEST_F(LoadTest, FourGibibytesTwoSided) {
    const DiskFolder disk;
    environment["TMPDIR"] = disk.path();
    const StreamOptions stream = hugePage();
    bool isSpooled = false;
    printThroughPipes(stream, twoSided, [&](const StreamSink &sink) {
        return printedOneSided(stream, [&](std::span<const std::byte> bytes) {
            const bool isTaken = sink(bytes);
            isSpooled = isSpooled || !namesIn(disk.path()).empty();
            return isTaken;
        });
    });
    EXPECT_TRUE(isSpooled);
    EXPECT_THAT(namesIn(disk.path()), testing::IsEmpty());
    judge("filter", filterLimit);
}

/// In two pages: a printer has no memory for one of this size.
TEST_F(LoadTest, FourGibibytesToAPrinter) {
    StreamOptions stream = hugePage();
    stream.pages = 2;
    stream.bandsPerPage /= 2;
    const std::string pipe = work + "/pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    Ends input;
    const auto pair = makePair("huge", false, pipe);
    startFilterOf(*pair, "", Descriptor{input.reading()});
    input.closeReading();
    std::thread feeding = feeder(stream, input);
    const int descriptor = open(pipe.c_str(), O_RDONLY | O_CLOEXEC); // once the printer has opened it, too
    if (!compare(descriptor, [&](const StreamSink &sink) {
            return sink(std::as_bytes(std::span(resetRecord()))) && printedOneSided(stream, sink);
        })) {
        pair->filter->send(SIGTERM);
    }
    close(descriptor);
    expectSuccess(*pair);
    feeding.join();
    const nlohmann::json job = wholeJobOf(*pair);
    const std::uint64_t data = std::uint64_t{stream.bandsPerPage} * stream.planeSizes.total();
    ASSERT_EQ(job["pages"].size(), 2U);
    EXPECT_EQ(job["pages"][1]["dataBytes"], data);
    EXPECT_GT(job["pages"][1]["offset"], data);
    EXPECT_GT(job["bytes"], 2 * data);
    expectBusAsBefore();
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    judge("bus", busLimit);
}

TEST_F(LoadTest, TwentyThousandNotifications) {
    StreamOptions stream;
    stream.bandsPerPage = 10000;
    stream.planeSizes = dealtOut(1024);
    const auto pair = makePair("many");
    writeFile(pair->input, makeStream(stream));
    startFilterOf(*pair);
    expectSuccess(*pair);
    // Both job headers, the page's, each band's header and data, the reset record and the end-of-job mark.
    EXPECT_EQ(wholeJobOf(*pair)["notifications"]["writePipe"], 2 + 1 + 2 * stream.bandsPerPage + 2);
    EXPECT_THAT(Bytes(readFile(pair->output)), BytesAre(resetRecord() + printed(stream, 0, "1")));
    expectBusAsBefore();
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    judge("bus", busLimit);
}

// ---- Many at a time

TEST_F(LoadTest, FiftyPrintersAtOnce) {
    constexpr std::uint64_t count = 50;
    StreamOptions stream;
    stream.pages = 2;
    stream.bandsPerPage = 20;
    stream.planeSizes = dealtOut(65536);
    std::vector<std::unique_ptr<Pair>> pairs;
    for (std::uint64_t number = 0; number < count; ++number) {
        pairs.push_back(makePair("printer-" + std::to_string(number)));
        stream.seed = number;
        writeFile(pairs.back()->input, makeStream(stream));
    }
    for (const auto &pair : pairs) {
        startFilterOf(*pair);
    }
    for (std::uint64_t number = 0; number < count; ++number) {
        expectSuccess(*pairs[number]);
        static_cast<void>(wholeJobOf(*pairs[number]));
        stream.seed = number;
        EXPECT_THAT(Bytes(readFile(pairs[number]->output)),
                    BytesAre(resetRecord() + printed(stream, 0, "1 2")));
    }
    expectBusAsBefore();
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    judge("bus", busOfFiftyLimit);
}

// ---- Others who do as they should not

/// A document that takes some seconds.
StreamOptions longDocument(std::uint64_t seed) {
    StreamOptions stream;
    stream.pages = 4;
    stream.bandsPerPage = 1000;
    stream.planeSizes = dealtOut(65536);
    stream.seed = seed;
    return stream;
}

/// Two jobs, while a stranger floods the bus.
TEST_F(LoadTest, FloodedBus) {
    if (!Stranger::canBePlayed()) {
        GTEST_SKIP() << "only root can play somebody else";
    }
    std::vector<std::unique_ptr<Pair>> pairs;
    std::vector<std::string> names;
    for (const char *name : {"first", "second"}) {
        pairs.push_back(makePair(name));
        names.push_back(pairs.back()->uri + ".frontend");
        names.push_back(pairs.back()->uri + ".backend");
        writeFile(pairs.back()->input, makeStream(longDocument(pairs.size())));
    }
    std::optional<Stranger> stranger(std::in_place, names);
    const auto awaitSent = [&](unsigned long count) {
        const auto deadline = std::chrono::steady_clock::now() + patience;
        while (stranger->sent() < count && std::chrono::steady_clock::now() < deadline) {
            std::this_thread::sleep_for(1ms);
        }
        EXPECT_GE(stranger->sent(), count);
    };
    awaitSent(1);
    for (const auto &pair : pairs) {
        startFilterOf(*pair);
    }
    std::uint64_t seed = 0;
    for (const auto &pair : pairs) {
        expectSuccess(*pair);
        static_cast<void>(wholeJobOf(*pair));
        EXPECT_THAT(Bytes(readFile(pair->output)),
                    BytesAre(resetRecord() + printed(longDocument(++seed), 0, "1 2 3 4")));
    }
    std::printf("%s: %lu messages by the stranger\n", caseName(), stranger->sent());
    awaitSent(enoughToFlood); // the bus's memory is to show it
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    stranger.reset();
    expectBusAsBefore();
    judge("bus", busLimit);
}

/// A printer that stands still, and a device that takes nothing, for a minute in the midst of a job; a third
/// job passes them by.
TEST_F(LoadTest, BackendsThatStopForAMinute) {
    constexpr auto stop = 60s;
    const auto stopped = makePair("stopped");
    writeFile(stopped->input, makeStream(longDocument(1)));
    startFilterOf(*stopped);
    ASSERT_TRUE(stopped->filter->waitUntil([&] {
        return std::filesystem::exists(stopped->output) &&
               std::filesystem::file_size(stopped->output) > mebibyte;
    }));
    stopped->printer->send(SIGSTOP);

    startBackend("stuck");
    watch.add("backend", printer->id());
    const auto stuck = std::make_unique<Pair>();
    stuck->uri = uri;
    stuck->input = work + "/input-stuck";
    writeFile(stuck->input, makeStream(longDocument(2)));
    startFilterOf(*stuck);

    const auto end = std::chrono::steady_clock::now() + stop;
    const auto passing = makePair("passing");
    writeFile(passing->input, makeStream(longDocument(3)));
    startFilterOf(*passing);
    expectSuccess(*passing);
    static_cast<void>(wholeJobOf(*passing));
    EXPECT_THAT(Bytes(readFile(passing->output)),
                BytesAre(resetRecord() + printed(longDocument(3), 0, "1 2 3 4")));
    EXPECT_TRUE(stuck->filter->waitUntil([&] { return std::chrono::steady_clock::now() >= end; }, 2 * stop))
        << "it has not waited\n"
        << stuck->filter->errors() << printer->errors();
    EXPECT_FALSE(stopped->filter->waitUntil([&] { return stopped->filter->hasEnded(); }, 10ms))
        << "it has not waited";

    stopped->printer->send(SIGCONT);
    writeFile(goFile, "");
    expectSuccess(*stopped);
    static_cast<void>(wholeJobOf(*stopped));
    EXPECT_THAT(Bytes(readFile(stopped->output)),
                BytesAre(resetRecord() + printed(longDocument(1), 0, "1 2 3 4")));
    EXPECT_EQ(stuck->filter->finish(patience).exitStatus, 0) << stuck->filter->errors();
    EXPECT_EQ(finishBackend().exitStatus, 0) << printer->errors();
    EXPECT_THAT(Bytes(printedByDevice()), BytesAre(resetRecord() + printed(longDocument(2), 0, "1 2 3 4")));
    expectBusAsBefore();
    judge("filter", filterLimit);
    judge("printer", printerLimit);
    judge("backend", backendLimit);
    judge("bus", busLimit);
}

} // namespace
} // namespace veltrin::test
