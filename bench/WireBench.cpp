// The way to a device on a network: the real filter, the message bus, the backend for devices and CUPS's own
// backend for the network, as a ratio to the latter alone with the same stream to the same device, in turns
// in the same run.

#include "bench/Child.h"
#include "bench/Inputs.h"
#include "bench/Table.h"
#include "bench/WireSink.h"
#include "tests/support/PrivateBus.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <future>
#include <stdexcept>
#include <string>
#include <utility>

namespace veltrin::bench {
namespace {

constexpr int runs = 5;
constexpr std::uint64_t jobSize = 64 * mebibyte;
constexpr std::uint64_t smallJobSize = 4 * mebibyte;

/// A backend as the scheduler starts it, with this standard input and what goes with a side channel. Paths
/// need no quoting.
std::string backendInShell(const std::string &program, const std::string &input, int sideChannel) {
    return "exec " + program + " 1 user title 1 '' <" + input + " 3>/dev/null 4<&" +
           std::to_string(sideChannel);
}

/// Two ends, the first of which children have, too.
class Ends {
  public:
    explicit Ends(int (*make)(int ends[2])) {
        if (make(ends.data()) != 0 || fcntl(ends[1], F_SETFD, FD_CLOEXEC) != 0) {
            throw std::runtime_error("no descriptors");
        }
    }

    Ends(const Ends &) = delete;
    Ends &operator=(const Ends &) = delete;

    ~Ends() {
        close(ends[0]);
        closeSecond();
    }

    [[nodiscard]] int first() const { return ends[0]; }

    void closeSecond() {
        if (ends[1] != -1) {
            close(std::exchange(ends[1], -1));
        }
    }

  private:
    std::array<int, 2> ends{};
};

int makePipe(int ends[2]) {
    return pipe(ends);
}

int makeSocketPair(int ends[2]) {
    return socketpair(AF_UNIX, SOCK_STREAM, 0, ends);
}

InputFile inputOf(const WorkDirectory &directory, std::uint64_t size, std::uint32_t bandSize) {
    constexpr std::uint64_t pageSize = 4 * mebibyte;
    return {directory, static_cast<std::uint32_t>(size / pageSize),
            static_cast<std::uint32_t>(pageSize / bandSize), bandSize};
}

class WireBench {
  public:
    WireBench() { unsetenv("DBUS_SYSTEM_BUS_ADDRESS"); } // a bus of its own

    void run() const {
        std::printf("Jobs of %llu MiB to a device on the network, best of %d runs.\n\n",
                    static_cast<unsigned long long>(jobSize / mebibyte), runs);
        const test::PrivateBus bus;
        printHead("veltrin");
        throughput("1 MiB", 1024 * 1024, "");
        throughput("64 KiB", 64 * 1024, ">= 0.50");
        throughput("4 KiB", 4 * 1024, "");
        memory();
    }

  private:
    struct JobCost {
        double seconds = 0;
        double backendPeak = 0; // KiB
    };

    /// As the scheduler starts them. The backend's standard input is where the filter's output would come.
    [[nodiscard]] JobCost print(const InputFile &input) const {
        if (std::getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr) {
            throw std::runtime_error("no message bus"); // rather than disturb the machine's own
        }
        setenv("DEVICE_URI", ("veltrin:" + sink.uri()).c_str(), 1);
        Ends filterOutput(makePipe);
        std::future<WireSink::Taken> taken =
            std::async(std::launch::async, [this] { return sink.takeJob(); });
        Child backend("/bin/sh",
                      {"sh", "-c",
                       backendInShell(VELTRIN_BACKEND, "&" + std::to_string(filterOutput.first()),
                                      sideChannel.first())},
                      Sink::pipe, "");
        static_cast<void>(runChild(VELTRIN_EXECUTABLE, {"queue", "1", "user", "title", "1", "", input.path()},
                                   Sink::pipe, ""));
        filterOutput.closeSecond();
        const Measurement end = backend.finish();
        return {taken.get().time.count(), static_cast<double>(end.peakKibibytes)};
    }

    /// The device's backend alone, with its back channel and messages going nowhere.
    [[nodiscard]] double send(const InputFile &input) const {
        setenv("DEVICE_URI", sink.uri().c_str(), 1);
        std::future<WireSink::Taken> taken =
            std::async(std::launch::async, [this] { return sink.takeJob(); });
        static_cast<void>(runChild(
            "/bin/sh", {"sh", "-c", backendInShell(CUPS_SOCKET_BACKEND, input.path(), sideChannel.first())},
            Sink::pipe, ""));
        return taken.get().time.count();
    }

    void throughput(const std::string &name, std::uint32_t bandSize, const std::string &aim) const {
        const InputFile input = inputOf(directory, jobSize, bandSize);
        const Pair times = inTurns(
            runs, [&] { return print(input).seconds; }, [&] { return send(input); });
        printRow("bands of " + name + " / socket alone", milliseconds(times.subject),
                 milliseconds(times.reference), times.reference / times.subject, aim);
    }

    void memory() const {
        const InputFile small = inputOf(directory, smallJobSize, 64 * 1024);
        const InputFile large = inputOf(directory, jobSize, 64 * 1024);
        const double smallPeak = print(small).backendPeak;
        const double largePeak = print(large).backendPeak;
        printRow("backend, peak memory, 64 MiB / 4 MiB", mebibytes(largePeak), mebibytes(smallPeak),
                 largePeak / smallPeak, "<= 1.10");
    }

    WorkDirectory directory;
    WireSink sink;
    Ends sideChannel{makeSocketPair};
};

} // namespace
} // namespace veltrin::bench

int main() {
    try {
        veltrin::bench::WireBench().run();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "wire-bench: %s\n", problem.what());
        return 1;
    }
    return 0;
}
