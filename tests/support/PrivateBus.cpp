#include "tests/support/PrivateBus.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>

namespace veltrin::test {

namespace {

constexpr const char *addressVariable = "DBUS_SYSTEM_BUS_ADDRESS";

/// Waits for the line that the bus writes once it listens. False where it ends before.
bool isListening(int pipeEnd) {
    char last = '\0';
    while (last != '\n' && read(pipeEnd, &last, 1) == 1) {
    }
    return last == '\n';
}

} // namespace

PrivateBus::PrivateBus(const std::string &configuration) {
    start(configuration);
}

void PrivateBus::start(const std::string &configuration) {
    std::string path = "/tmp/bus-XXXXXX";
    directory = mkdtemp(path.data());
    // Other users may try to come in: the bus's policy decides, not the directory.
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    const std::string address = "unix:path=" + directory + "/socket";
    const std::string configurationFile = directory + "/bus.conf";
    writeFile(configurationFile,
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig><type>custom</type><listen>" +
                  address + "</listen><auth>EXTERNAL</auth>" + configuration + "</busconfig>\n");
    const std::string configurationOption = "--config-file=" + configurationFile;

    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    process = fork();
    if (process == 0) {
        // However the test ends, the bus ends with it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execlp("dbus-daemon", "dbus-daemon", configurationOption.c_str(), "--nofork", "--nopidfile",
               "--nosyslog", "--print-address=1", nullptr);
        _exit(EXIT_FAILURE);
    }
    close(ends[1]);
    const bool listening = isListening(ends[0]);
    close(ends[0]);
    ASSERT_TRUE(listening) << "dbus-daemon could not be started";
    setenv(addressVariable, address.c_str(), 1);
}

PrivateBus::~PrivateBus() {
    kill();
    unsetenv(addressVariable);
    std::filesystem::remove_all(directory);
}

void PrivateBus::kill() {
    if (process > 0) {
        ::kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
        process = -1;
    }
}

void PrivateBus::freeze() const {
    ::kill(process, SIGSTOP);
    waitpid(process, nullptr, WUNTRACED);
}

void PrivateBus::thaw() const {
    ::kill(process, SIGCONT);
}

std::size_t PrivateBus::peakMemory() const {
    return peakMemoryOf(process);
}

std::size_t peakMemoryOf(pid_t process) {
    const std::string marker = "VmHWM:";
    for (const std::string &line : linesOf(readFile("/proc/" + std::to_string(process) + "/status"))) {
        if (line.rfind(marker, 0) == 0) {
            return std::stoul(line.substr(marker.size())) * 1024;
        }
    }
    ADD_FAILURE() << "the system does not tell the peak memory of process " << process;
    return 0;
}

} // namespace veltrin::test
