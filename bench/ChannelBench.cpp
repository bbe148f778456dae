// The channel at its fastest: the real filter and the virtual printer, which never lacks room, over a message
// bus of their own, as a ratio to plain calls of the same blocks over the same bus, in turns in the same run.

#include "bench/Child.h"
#include "bench/Inputs.h"
#include "bench/PlainCalls.h"
#include "bench/Table.h"
#include "driver/stream/PageStream.h"
#include "platform/linux/CallWindow.h"
#include "tests/support/PrivateBus.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

namespace veltrin::bench {
namespace {

constexpr int runs = 5;
constexpr const char *uri = "socket://printer.example:9100";

/// What a job has cost.
struct JobCost {
    double seconds = 0; ///< from the filter's start to its end
    double filterPeak = 0;
    double printerPeak = 0; // KiB
};

class ChannelBench {
  public:
    ChannelBench() {
        unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); // each part starts a bus of its own
        setenv("DEVICE_URI", uri, 1);
        std::ofstream(directory.file("scenario.json")) << R"({
            "description": "A printer that is never full",
            "printer": {"memory": {"header": 4000000000, "image": 4000000000}, "pagesPerMinute": 60000}})";
    }

    void run() const {
        std::printf("Time for each block, best of %d runs.\n\n", runs);
        printHead("channel");
        blocks();
        memory("32 KiB", 32768);
        memory("64 KiB", 65536);
        std::printf("\nPages that the filter can feed, with bands of 4 KiB.\n\n");
        pages();
    }

  private:
    [[nodiscard]] JobCost print(const InputFile &input) const {
        if (std::getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr) {
            throw std::runtime_error("no message bus"); // rather than disturb the machine's own
        }
        Child printer(VELTRIN_PRINTER,
                      {"veltrin-printer", "--scenario=" + directory.file("scenario.json"), "--jobs=1", uri},
                      Sink::pipe, "");
        printer.awaitOutput();
        const Measurement filter = runChild(
            VELTRIN_EXECUTABLE, {"queue", "1", "user", "title", "1", "", input.path()}, Sink::pipe, "");
        return {filter.time.count(), static_cast<double>(filter.peakKibibytes),
                static_cast<double>(printer.finish().peakKibibytes)};
    }

    [[nodiscard]] double bestOf(const InputFile &input) const {
        double best = 1e9;
        for (int i = 0; i < runs; ++i) {
            best = std::min(best, print(input).seconds);
        }
        return best;
    }

    /// What every job takes: mostly the 2 seconds after asking for the printer's port.
    [[nodiscard]] double emptyJob() const { return bestOf(InputFile(directory, 1, 1, 1)); }

    void blocks() const {
        const test::PrivateBus bus;
        const double empty = emptyJob();
        blocksOf("1 KiB", 1024, 4000, empty);
        blocksOf("4 KiB", 4096, 4000, empty);
        blocksOf("64 KiB", 65536, 4000, empty);
        blocksOf("1 MiB", 1024 * 1024, 250, empty);
    }

    void blocksOf(const std::string &name, std::uint32_t bandSize, std::uint32_t bands, double empty) const {
        const InputFile input(directory, 1, bands, bandSize);
        const double blocks = 2.0 * bands;
        const Pair times = inTurns(
            runs, [&] { return print(input).seconds; },
            [&] { return timePlainCalls(bands, sizeof(BandHeader), bandSize, platform::CallWindow::size); });
        const double block = (times.subject - empty) / blocks;
        const double plain = times.reference / blocks;
        printRow("channel, bands of " + name + " / plain calls", milliseconds(block, 3),
                 milliseconds(plain, 3), block / plain, "<= 2.00");
    }

    void memory(const std::string &name, std::uint32_t bandSize) const {
        struct Peaks {
            JobCost job;
            double bus;
        };

        const auto peaksOf = [&](std::uint64_t size) {
            const test::PrivateBus bus; // whose memory begins with the job
            const InputFile input(directory, static_cast<std::uint32_t>(size / (5 * mebibyte)),
                                  static_cast<std::uint32_t>(5 * mebibyte / bandSize), bandSize);
            const JobCost job = print(input);
            return Peaks{job, static_cast<double>(bus.peakMemory()) / 1024};
        };
        const Peaks small = peaksOf(10 * mebibyte);
        const Peaks large = peaksOf(1024 * mebibyte);
        const auto row = [&name](const char *who, double largePeak, double smallPeak) {
            printRow(std::string(who) + ", peak memory, " + name + ", 1 GiB / 10 MiB", mebibytes(largePeak),
                     mebibytes(smallPeak), largePeak / smallPeak, "");
        };
        row("filter", large.job.filterPeak, small.job.filterPeak);
        row("bus", large.bus, small.bus);
        row("printer", large.job.printerPeak, small.job.printerPeak);
    }

    void pages() const {
        const test::PrivateBus bus;
        const double empty = emptyJob();
        std::printf("| %12s | %14s | %16s | %14s |\n", "bands a page", "blocks a page", "a page",
                    "pages a minute");
        std::printf("|-------------:|---------------:|-----------------:|---------------:|\n");
        for (const std::uint32_t bands : {55U, 220U, 1000U, 5000U}) {
            const std::uint32_t pageCount = std::max(10000 / bands, 2U);
            const double page = (bestOf(InputFile(directory, pageCount, bands, 4096)) - empty) / pageCount;
            std::printf("| %12u | %14u | %16s | %14.0f |\n", bands, 1 + 2 * bands, milliseconds(page).c_str(),
                        60 / page);
        }
    }

    WorkDirectory directory;
};

} // namespace
} // namespace veltrin::bench

int main() {
    try {
        veltrin::bench::ChannelBench().run();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "channel-bench: %s\n", problem.what());
        return 1;
    }
    return 0;
}
