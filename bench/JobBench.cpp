// Whole jobs through the real executable, each as a ratio to a plain program that moves the same bytes,
// measured in turns in the same run: figures that mean the same on any machine.

#include "bench/Child.h"
#include "bench/Inputs.h"
#include "bench/Table.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <string>

namespace veltrin::bench {
namespace {

constexpr const char *cat = "/bin/cat";

/// A stream of about `size` bytes, in pages of 16 MiB (at least one), with bands of `bandSize` bytes.
InputFile inputOf(const WorkDirectory &directory, std::uint64_t size, std::uint32_t bandSize) {
    const std::uint64_t pageSize = std::min(16 * mebibyte, size);
    return {directory, static_cast<std::uint32_t>(size / pageSize),
            static_cast<std::uint32_t>(std::max<std::uint64_t>(pageSize / bandSize, 1)), bandSize};
}

class JobBench {
  public:
    JobBench(std::uint64_t theSize, int theRuns) : size(theSize), runs(theRuns) {}

    void run() {
        setenv("DEVICE_URI", "file:///dev/null", 1);
        std::printf("Jobs of %llu MiB, best of %d runs.\n\n",
                    static_cast<unsigned long long>(size / mebibyte), runs);
        printHead("filter");
        oneSided(64 * 1024, "64 KiB", ">= 0.80");
        oneSided(1024, "1 KiB", ">= 0.50");
        twoSided();
        memory();
        start();
    }

  private:
    [[nodiscard]] Measurement print(const InputFile &input, const std::string &options, Sink sink) const {
        return runChild(VELTRIN_EXECUTABLE, {"queue", "1", "user", "title", "1", options, input.path()}, sink,
                        directory.file("output"));
    }

    [[nodiscard]] Measurement copy(const std::string &input, Sink sink, const std::string &output) const {
        return runChild(cat, {"cat", input}, sink, directory.file(output));
    }

    void oneSided(std::uint32_t bandSize, const std::string &name, const std::string &aimToFile) const {
        const InputFile input = inputOf(directory, size, bandSize);

        struct Row {
            Sink sink;
            std::string to;
            std::string aim;
        };

        for (const Row &row :
             {Row{Sink::pipe, "to a pipe", ">= 0.95"}, Row{Sink::widePipe, "to a wide pipe", ""},
              Row{Sink::file, "to a file", aimToFile}}) {
            const Pair times = inTurns(
                runs, [&] { return print(input, "", row.sink).time.count(); },
                [&] { return copy(input.path(), row.sink, "output").time.count(); });
            printRow("one-sided, bands of " + name + ", " + row.to + " / cat", milliseconds(times.subject),
                     milliseconds(times.reference), times.reference / times.subject, row.aim);
        }
    }

    void twoSided() const {
        const InputFile input = inputOf(directory, size, 64 * 1024);
        const std::string options = "com.apple.print.PrintSettings.PMDuplexing..n.=2";
        for (const Sink sink : {Sink::pipe, Sink::widePipe}) {
            const Pair times = inTurns(
                runs, [&] { return print(input, options, sink).time.count(); },
                [&] {
                    const double there = copy(input.path(), Sink::file, "spool").time.count();
                    const double back = copy(directory.file("spool"), sink, "").time.count();
                    std::filesystem::remove(directory.file("spool"));
                    return there + back;
                });
            printRow(std::string("two-sided, to a ") + (sink == Sink::pipe ? "" : "wide ") +
                         "pipe / copy to disk and back",
                     milliseconds(times.subject), milliseconds(times.reference),
                     times.reference / times.subject, sink == Sink::pipe ? ">= 0.90" : "");
        }
    }

    void memory() const {
        const InputFile small = inputOf(directory, 10 * mebibyte, 64 * 1024);
        const InputFile large = inputOf(directory, 1024 * mebibyte, 64 * 1024);
        for (const std::string &options :
             {std::string(), std::string("com.apple.print.PrintSettings.PMDuplexing..n.=2")}) {
            const auto smallPeak = static_cast<double>(print(small, options, Sink::pipe).peakKibibytes);
            const auto largePeak = static_cast<double>(print(large, options, Sink::pipe).peakKibibytes);
            printRow(std::string(options.empty() ? "one" : "two") + "-sided, peak memory, 1 GiB / 10 MiB",
                     mebibytes(largePeak), mebibytes(smallPeak), largePeak / smallPeak, "< 16 MiB");
        }
    }

    void start() const {
        const InputFile input = inputOf(directory, 4096, 1024);
        const Pair times = inTurns(
            50, [&] { return print(input, "", Sink::pipe).time.count(); },
            [&] { return runChild("/bin/true", {"true"}, Sink::pipe, "").time.count(); });
        printRow("one page, start to end / true", milliseconds(times.subject), milliseconds(times.reference),
                 times.subject / times.reference, "");
    }

    std::uint64_t size;
    int runs;
    WorkDirectory directory;
};

} // namespace
} // namespace veltrin::bench

int main(int argc, char **argv) {
    const unsigned long size = argc > 1 ? std::strtoul(argv[1], nullptr, 10) : 1024;
    if (argc > 2 || size < 16) {
        std::fprintf(stderr,
                     "usage: %s [MEBIBYTES]\n\nMeasures print jobs of this size (1024, at least 16).\n",
                     argv[0]);
        return 2;
    }
    try {
        veltrin::bench::JobBench(size * veltrin::bench::mebibyte, 5).run();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "%s: %s\n", argv[0], problem.what());
        return 1;
    }
    return 0;
}
