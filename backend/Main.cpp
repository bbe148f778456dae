#include "backend/BackendJob.h"
#include "backend/DeviceUri.h"
#include "backend/Discovery.h"
#include "backend/Spawn.h"
#include "platform/EndSignals.h"
#include "platform/Platform.h"
#include "platform/SchedulerJob.h"
#include "platform/StandardDescriptors.h"

#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The CUPS backend "veltrin": the filter's peer on the channel, in front of CUPS's own backend for a device.

namespace {

using namespace veltrin;

/// For the scheduler; there may be no memory for a stream's own words.
constexpr std::string_view noMemory = "ERROR: There is not enough memory to print.\n";

std::string valueOf(const char *variable, const std::string &otherwise) {
    const char *value = std::getenv(variable);
    return value != nullptr && *value != '\0' ? value : otherwise;
}

int fail(const std::string &line, int status) {
    std::cerr << line + "\n";
    return status;
}

int runJob(std::vector<std::string> arguments, const std::string &serverBin) {
    const std::string uri = valueOf("DEVICE_URI", arguments.front());
    std::string problem;
    const auto device = backend::parseDeviceUri(uri, problem);
    if (!device) {
        return fail("ERROR: " + problem, platform::backendStop);
    }
    const std::unique_ptr<platform::Platform> platform = platform::makePlatform();
    return backend::BackendJob(
               *platform,
               {.uri = uri, .device = *device, .arguments = std::move(arguments), .serverBin = serverBin})
        .run();
}

int runProgram(int argc, char **argv) {
    const std::string serverBin = valueOf("CUPS_SERVERBIN", VELTRIN_CUPS_SERVERBIN);
    if (argc == 1) {
        backend::discoverDevices(serverBin);
        return platform::backendOk;
    }
    constexpr int withoutFile = 6;
    const std::vector<std::string_view> arguments(argv, argv + argc);
    if (!platform::schedulerJob(arguments)) {
        return fail("Usage: veltrin job user title copies options\n"
                    "CUPS starts this backend for queues with a device URI like "
                    "\"veltrin:socket://printer.example:9100\"; see veltrin-backend(8).",
                    platform::backendFailed);
    }
    if (argc != withoutFile) {
        return fail(backend::refusalOfPageData(), platform::backendCancel);
    }
    return runJob({arguments.begin(), arguments.end()}, serverBin);
}

} // namespace

int main(int argc, char **argv) {
    platform::reserveStandardDescriptors();
    backend::reserveBackendDescriptors();
    signal(SIGCHLD, SIG_DFL); // whoever ignores it never learns how a child has ended
    catchEndSignals();
    try {
        return runProgram(argc, argv);
    } catch (const std::bad_alloc &) {
        // The device's backend has been ended on the way here, and the filter hears that its peer has left.
        static_cast<void>(!write(STDERR_FILENO, noMemory.data(), noMemory.size()));
        return platform::backendFailed;
    }
}
