// Whole jobs through the real executable, each as a ratio to a plain program that moves the same bytes,
// measured in turns in the same run: figures that mean the same on any machine.

#include "bench/Child.h"
#include "tools/StreamMaker.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::bench {
namespace {

constexpr const char *cat = "/bin/cat";
constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;

/// A directory for inputs, spool files and outputs, removed at the end.
class WorkDirectory {
  public:
    WorkDirectory() {
        const char *parent = std::getenv("TMPDIR");
        std::string pattern = std::string(parent != nullptr ? parent : "/var/tmp") + "/veltrin-bench.XXXXXX";
        if (mkdtemp(pattern.data()) == nullptr) {
            std::perror(pattern.c_str());
            std::exit(EXIT_FAILURE);
        }
        path = pattern;
        setenv("TMPDIR", path.c_str(), 1);
    }

    WorkDirectory(const WorkDirectory &) = delete;
    WorkDirectory &operator=(const WorkDirectory &) = delete;

    ~WorkDirectory() {
        std::error_code error;
        std::filesystem::remove_all(path, error);
    }

    [[nodiscard]] std::string file(const std::string &name) const { return path + "/" + name; }

  private:
    std::string path;
};

/// Writes a stream of about `size` bytes, in pages of 16 MiB (at least one), with bands of `bandSize` bytes.
std::string makeInput(const WorkDirectory &directory, std::uint64_t size, std::uint32_t bandSize) {
    StreamOptions options;
    const std::uint64_t pageSize = std::min(16 * mebibyte, size);
    options.pages = static_cast<std::uint32_t>(size / pageSize);
    options.bandsPerPage = static_cast<std::uint32_t>(std::max<std::uint64_t>(pageSize / bandSize, 1));
    options.planeSizes = dealtOut(bandSize);
    const std::string path = directory.file(std::to_string(size) + "-" + std::to_string(bandSize));
    std::ofstream file(path, std::ios::binary);
    const bool made = makeStream(options, [&file](std::span<const std::byte> bytes) {
        file.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
        return file.good();
    });
    file.close();
    if (!made || !file.good()) {
        std::perror(path.c_str());
        std::exit(EXIT_FAILURE);
    }
    return path;
}

/// The best of several runs of two things in turns: what disturbs a run only ever makes it slower.
struct Pair {
    double subject = 1e9;   // seconds
    double reference = 1e9; // seconds
};

Pair inTurns(int runs, const std::function<double()> &subject, const std::function<double()> &reference) {
    Pair best;
    for (int i = 0; i < runs; ++i) {
        best.reference = std::min(best.reference, reference());
        best.subject = std::min(best.subject, subject());
    }
    return best;
}

void printRow(const std::string &what, const std::string &subject, const std::string &reference, double ratio,
              const std::string &aim) {
    std::printf("| %-46s | %12s | %12s | %6.2f | %-12s |\n", what.c_str(), subject.c_str(), reference.c_str(),
                ratio, aim.c_str());
}

std::string milliseconds(double seconds) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f ms", seconds * 1000);
    return text.data();
}

std::string mebibytes(long kibibytes) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.1f MiB", static_cast<double>(kibibytes) / 1024);
    return text.data();
}

class JobBench {
  public:
    JobBench(std::uint64_t jobSize, int repetitions) : size(jobSize), runs(repetitions) {}

    void run() {
        setenv("DEVICE_URI", "file:///dev/null", 1);
        std::printf("Jobs of %llu MiB, best of %d runs.\n\n",
                    static_cast<unsigned long long>(size / mebibyte), runs);
        std::printf("| %-46s | %12s | %12s | %6s | %-12s |\n", "what", "filter", "reference", "ratio", "aim");
        std::printf("|%s|%s|%s|%s|%s|\n", std::string(48, '-').c_str(), std::string(14, '-').c_str(),
                    std::string(14, '-').c_str(), std::string(8, '-').c_str(), std::string(14, '-').c_str());
        oneSided(64 * 1024, "64 KiB", ">= 0.80");
        oneSided(1024, "1 KiB", ">= 0.50");
        twoSided();
        memory();
        start();
    }

  private:
    [[nodiscard]] Measurement print(const std::string &input, const std::string &options, Sink sink) const {
        return runChild(VELTRIN_EXECUTABLE, {"queue", "1", "user", "title", "1", options, input}, sink,
                        directory.file("output"));
    }

    [[nodiscard]] Measurement copy(const std::string &input, Sink sink, const std::string &output) const {
        return runChild(cat, {"cat", input}, sink, directory.file(output));
    }

    void oneSided(std::uint32_t bandSize, const std::string &name, const std::string &aim) const {
        const std::string input = makeInput(directory, size, bandSize);
        for (const Sink sink : {Sink::pipe, Sink::file}) {
            const Pair times = inTurns(
                runs, [&] { return print(input, "", sink).time.count(); },
                [&] { return copy(input, sink, "output").time.count(); });
            printRow("one-sided, bands of " + name + (sink == Sink::pipe ? ", to a pipe" : ", to a file") +
                         " / cat",
                     milliseconds(times.subject), milliseconds(times.reference),
                     times.reference / times.subject, aim);
        }
        std::filesystem::remove(input);
    }

    void twoSided() const {
        const std::string input = makeInput(directory, size, 64 * 1024);
        const std::string options = "com.apple.print.PrintSettings.PMDuplexing..n.=2";
        const Pair times = inTurns(
            runs, [&] { return print(input, options, Sink::pipe).time.count(); },
            [&] {
                const double there = copy(input, Sink::file, "spool").time.count();
                const double back = copy(directory.file("spool"), Sink::pipe, "").time.count();
                std::filesystem::remove(directory.file("spool"));
                return there + back;
            });
        printRow("two-sided, to a pipe / copy to disk and back", milliseconds(times.subject),
                 milliseconds(times.reference), times.reference / times.subject, "");
        std::filesystem::remove(input);
    }

    void memory() const {
        const std::string small = makeInput(directory, 10 * mebibyte, 64 * 1024);
        const std::string large = makeInput(directory, 1024 * mebibyte, 64 * 1024);
        for (const std::string &options :
             {std::string(), std::string("com.apple.print.PrintSettings.PMDuplexing..n.=2")}) {
            const long smallPeak = print(small, options, Sink::pipe).peakKibibytes;
            const long largePeak = print(large, options, Sink::pipe).peakKibibytes;
            printRow(std::string(options.empty() ? "one" : "two") + "-sided, peak memory, 1 GiB / 10 MiB",
                     mebibytes(largePeak), mebibytes(smallPeak),
                     static_cast<double>(largePeak) / static_cast<double>(smallPeak), "< 16 MiB");
        }
    }

    void start() const {
        const std::string input = makeInput(directory, 4096, 1024);
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
    veltrin::bench::JobBench(size * veltrin::bench::mebibyte, 5).run();
    return 0;
}
