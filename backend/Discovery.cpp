#include "backend/Discovery.h"

#include "backend/DeviceLine.h"
#include "backend/DeviceUri.h"
#include "backend/LineSplitter.h"
#include "backend/ProgramSafety.h"
#include "backend/Spawn.h"
#include "platform/EndSignals.h"

#include <cups/backend.h>

#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <iostream>
#include <memory>
#include <span>
#include <thread>
#include <vector>

namespace veltrin::backend {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// Those that find devices: on the USB, and in the network by name and by asking.
constexpr std::array finders = {"usb", "dnssd", "snmp"};

/// `lpinfo` waits for 15 seconds.
constexpr auto timeLimit = 10s;
constexpr auto longestWait = 100ms;

/// How long a finder that was told to end may take.
constexpr auto finderEndLimit = 1s;

/// One of CUPS's backends that looks for devices.
class Finder {
  public:
    explicit Finder(const std::string &program) {
        OwnDescriptor theirOutput;
        if (makePipe(output, theirOutput, output) != 0 ||
            spawn({.program = program,
                   .arguments = {program},
                   .environment = environmentWith("SOFTWARE", "Veltrin"),
                   .descriptors = {{&theirOutput, STDOUT_FILENO}}},
                  process) != 0) {
            output.reset(); // it is not installed
        }
    }

    Finder(const Finder &) = delete;
    Finder &operator=(const Finder &) = delete;

    ~Finder() {
        if (process != -1) {
            kill(process, SIGTERM);
            const auto end = steady_clock::now() + finderEndLimit;
            while (waitpid(process, nullptr, WNOHANG) == 0) {
                if (steady_clock::now() >= end) {
                    kill(process, SIGKILL);
                    awaitEnd(process);
                    return;
                }
                std::this_thread::sleep_for(10ms);
            }
        }
    }

    /// -1 once there is nothing more to come.
    [[nodiscard]] int descriptor() const { return output.get(); }

    void read() {
        std::array<std::byte, 4096> block{};
        const ssize_t got = ::read(output.get(), block.data(), block.size());
        if (got > 0) {
            lines.take(std::span(block).first(static_cast<std::size_t>(got)));
        } else if (got == 0) {
            lines.finish();
            output.reset();
        }
    }

  private:
    static void offer(const std::string &line) {
        const auto device = parseDeviceLine(line);
        if (device && isOneOfOurs(device->id) && hasBackChannel(device->uri)) {
            cupsBackendReport(device->deviceClass.c_str(), uriForDevice(device->uri).c_str(),
                              device->makeAndModel.c_str(), device->info.c_str(), device->id.c_str(),
                              device->location.c_str());
        }
    }

    pid_t process = -1;
    OwnDescriptor output;
    LineSplitter lines{offer};
};

} // namespace

void discoverDevices(const std::string &serverBin) {
    std::vector<std::unique_ptr<Finder>> running;
    running.reserve(finders.size());
    for (const char *name : finders) {
        const std::string program = serverBin + "/backend/" + name;
        if (const auto path = insecurePathOf(program)) {
            std::cerr << refusalOfInsecure(*path) + "\n";
        } else {
            running.push_back(std::make_unique<Finder>(program));
        }
    }
    const auto end = steady_clock::now() + timeLimit;
    while (!running.empty() && !endWanted() && steady_clock::now() < end) {
        std::vector<pollfd> watched;
        watched.reserve(running.size());
        for (const auto &finder : running) {
            watched.push_back({finder->descriptor(), POLLIN, 0});
        }
        poll(watched.data(), watched.size(), static_cast<int>(longestWait / 1ms));
        for (std::size_t i = 0; i < running.size(); ++i) {
            if (watched[i].revents != 0) {
                running[i]->read();
            }
        }
        std::erase_if(running, [](const auto &finder) { return finder->descriptor() == -1; });
    }
}

} // namespace veltrin::backend
