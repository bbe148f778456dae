#include "tests/support/PrivateBus.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <utility>

namespace veltrin::test {

namespace {

constexpr const char *addressVariable = "DBUS_SYSTEM_BUS_ADDRESS";
constexpr const char *kindVariable = "VELTRIN_TEST_BUS";

/// Waits for the line that the bus writes once it listens. False where it ends before.
bool isListening(int pipeEnd) {
    char last = '\0';
    while (last != '\n' && read(pipeEnd, &last, 1) == 1) {
    }
    return last == '\n';
}

/// A socket of that type that listens or receives at `path`.
int boundSocket(const std::string &path, int type) {
    const int descriptor = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    EXPECT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0)
        << path << ": " << std::strerror(errno);
    return descriptor;
}

/// dbus-broker does not start without a journal, and waits while it takes nothing. This one throws away what
/// it gets.
class Journal {
  public:
    Journal() {
        std::filesystem::create_directories("/run/systemd/journal");
        const int lines = boundSocket("/run/systemd/journal/socket", SOCK_DGRAM);
        const pid_t test = getpid();
        reader = fork();
        if (reader == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (getppid() != test) {
                _exit(EXIT_FAILURE);
            }
            dup2(lines, STDIN_FILENO);
            close_range(STDIN_FILENO + 1, ~0U, 0); // nobody is to wait for this process to close anything
            char line = '\0';
            while (recv(STDIN_FILENO, &line, sizeof line, 0) >= 0) {
            }
            _exit(EXIT_SUCCESS);
        }
        close(lines);
    }

    Journal(const Journal &) = delete;
    Journal &operator=(const Journal &) = delete;

    ~Journal() {
        if (reader > 0) { // -1 would be everybody
            ::kill(reader, SIGKILL);
            waitpid(reader, nullptr, 0);
        }
    }

  private:
    pid_t reader = -1;
};

/// Whether the bus at the address lets us in and answers. False at once where its socket is closed.
bool answers(const std::string &address) {
    constexpr const char *busName = "org.freedesktop.DBus";
    sd_bus *bus = nullptr;
    const bool hasAnswered = sd_bus_new(&bus) >= 0 && sd_bus_set_address(bus, address.c_str()) >= 0 &&
                             sd_bus_set_bus_client(bus, 1) >= 0 && sd_bus_start(bus) >= 0 &&
                             sd_bus_call_method(bus, busName, "/org/freedesktop/DBus", busName, "GetId",
                                                nullptr, nullptr, "") >= 0;
    sd_bus_close_unref(bus);
    return hasAnswered;
}

/// Runs a program that starts others, under a keeper: a child process that waits for SIGTERM or for the end
/// of the test, however that ends, and then kills the program and whatever it has started, even what stands
/// still. It has ended when they have. `execute` replaces its process by the program. Returns the keeper,
/// whose only child the program is.
template <typename Execute>
pid_t forkUnderKeeper(Execute execute) {
    const pid_t test = getpid();
    const pid_t keeper = fork();
    if (keeper != 0) {
        return keeper;
    }
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    prctl(PR_SET_CHILD_SUBREAPER, 1); // what the program leaves behind comes to the keeper
    if (getppid() != test) {
        _exit(EXIT_FAILURE); // the test has ended before the system was told to say so
    }
    const pid_t program = fork();
    if (program == -1) {
        _exit(EXIT_FAILURE);
    }
    // In a group of its own, by which all of it is killed; whichever of the two comes first makes it.
    setpgid(program, 0);
    if (program == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        sigprocmask(SIG_SETMASK, &before, nullptr);
        execute();
        _exit(EXIT_FAILURE);
    }
    close_range(0, ~0U, 0); // nobody is to wait for this process to close anything
    sigset_t end;
    int signal = 0;
    sigemptyset(&end);
    sigaddset(&end, SIGTERM);
    sigwait(&end, &signal);
    ::kill(-program, SIGKILL);
    while (waitpid(-1, nullptr, 0) > 0) {
    }
    _exit(EXIT_SUCCESS);
}

/// The only child of a process; -1 where it has none.
pid_t childOf(pid_t process) {
    const std::string id = std::to_string(process);
    const std::string children = readFile("/proc/" + id + "/task/" + id + "/children");
    return children.empty() ? -1 : std::stoi(children);
}

/// Whether the process stands still: its state follows its name, which stands in brackets.
bool isStopped(pid_t process) {
    const std::string state = readFile("/proc/" + std::to_string(process) + "/stat");
    const std::size_t name = state.rfind(')');
    return name != std::string::npos && state.compare(name, 3, ") T") == 0;
}

} // namespace

BusKind busKind() {
    const char *kind = std::getenv(kindVariable);
    if (kind == nullptr) {
        return BusKind::daemon;
    }
    EXPECT_STREQ(kind, "dbus-broker") << kindVariable << " names a bus that is not known here";
    return BusKind::broker;
}

PrivateBus::PrivateBus(const std::string &configuration) {
    start(configuration);
}

void PrivateBus::start(const std::string &configuration) {
    std::string path = "/tmp/bus-XXXXXX";
    directory = mkdtemp(path.data());
    // Other users may try to come in: the bus's policy decides, not the directory.
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    address = "unix:path=" + directory + "/socket";
    const std::string configurationFile = directory + "/bus.conf";
    writeFile(configurationFile,
              "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
              " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
              "<busconfig><type>custom</type><listen>" +
                  address + "</listen><auth>EXTERNAL</auth>" + configuration + "</busconfig>\n");
    setenv(addressVariable, address.c_str(), 1);
    busKind() == BusKind::broker ? startBroker(configurationFile) : startDaemon(configurationFile);
}

std::map<std::string, std::string> PrivateBus::environment() const {
    return {{addressVariable, address}};
}

void PrivateBus::startDaemon(const std::string &configurationFile) {
    const std::string configurationOption = "--config-file=" + configurationFile;
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const pid_t daemon = fork();
    if (daemon == 0) {
        // However the test ends, the bus ends with it.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(ends[1], STDOUT_FILENO);
        execlp("dbus-daemon", "dbus-daemon", configurationOption.c_str(), "--nofork", "--nopidfile",
               "--nosyslog", "--print-address=1", nullptr);
        _exit(EXIT_FAILURE);
    }
    processes.push_back(daemon);
    close(ends[1]);
    const bool listening = isListening(ends[0]);
    close(ends[0]);
    ASSERT_TRUE(listening) << "dbus-daemon could not be started";
}

/// The launcher reads the configuration, starts the broker and tells it what to do. It wants what a service
/// manager gives it: its listening socket as the first descriptor behind the standard ones, and the address
/// of its own bus, on which it looks for services to start.
void PrivateBus::startBroker(const std::string &configurationFile) {
    constexpr int firstGivenDescriptor = 3;
    static const Journal journal; // for all buses of this process
    const std::string socketPath = directory + "/socket";
    const int listening = boundSocket(socketPath, SOCK_STREAM);
    std::filesystem::permissions(socketPath, std::filesystem::perms(0777));
    ASSERT_EQ(listen(listening, SOMAXCONN), 0);
    keeper = forkUnderKeeper([&] {
        setenv("LISTEN_FDS", "1", 1);
        setenv("LISTEN_PID", std::to_string(getpid()).c_str(), 1);
        dup2(fcntl(listening, F_DUPFD, firstGivenDescriptor + 1), firstGivenDescriptor);
        close_range(firstGivenDescriptor + 1, ~0U, 0);
        execlp("dbus-broker-launch", "dbus-broker-launch", "--scope", "system", "--config-file",
               configurationFile.c_str(), nullptr);
    });
    ASSERT_NE(keeper, -1) << std::strerror(errno);
    close(listening);
    ASSERT_TRUE(answers("unix:path=" + socketPath)) << "dbus-broker-launch could not be started";
    const pid_t launcher = childOf(keeper);
    ASSERT_NE(launcher, -1);
    const pid_t broker = childOf(launcher);
    ASSERT_NE(broker, -1);
    processes = {launcher, broker};
}

PrivateBus::~PrivateBus() {
    kill();
    unsetenv(addressVariable);
    std::filesystem::remove_all(directory);
}

void PrivateBus::kill() {
    if (keeper != -1) {
        ::kill(keeper, SIGTERM);
        waitpid(std::exchange(keeper, -1), nullptr, 0);
    } else if (!processes.empty()) {
        ::kill(processes.front(), SIGKILL);
        waitpid(processes.front(), nullptr, 0);
    }
    processes.clear();
}

void PrivateBus::freeze() const {
    for (const pid_t process : processes) {
        ::kill(process, SIGSTOP);
        for (int i = 0; i < 10000 && !isStopped(process); ++i) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        EXPECT_TRUE(isStopped(process));
    }
}

void PrivateBus::thaw() const {
    for (const pid_t process : processes) {
        ::kill(process, SIGCONT);
    }
}

std::size_t PrivateBus::peakMemory() const {
    return processes.empty() ? 0 : peakMemoryOf(processes.back());
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
