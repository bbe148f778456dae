#include "tests/support/PrivateGdnc.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

namespace veltrin::test {

namespace {

/// A short path: sockets lie some folders below it, and the path of a socket has 107 bytes at most.
constexpr const char *folder = "/tmp/gnustep";

constexpr const char *configurationFile = "/tmp/gnustep/GNUstep.conf";
constexpr const char *configurationVariable = "GNUSTEP_CONFIG_FILE";

/// Where the daemon says that it listens: its name, "GDNCServer", in the form of a file's.
std::string nameFile() {
    return std::string(folder) + "/GNUstepSecure" + std::to_string(geteuid()) +
           "/NSMessagePort/names/R0ROQ1NlcnZlcg==";
}

/// The daemon calls itself once more for each notification that an end has yet to take, and dies when its
/// stack is used up: of the usual 8 MiB, at some 850.
constexpr rlim_t stackSize = rlim_t{256} << 20;

} // namespace

std::map<std::string, std::string> gnustepEnvironment() {
    // Whoever finds no daemon starts one that nobody ends; so none is found that could be started.
    return {{configurationVariable, configurationFile}, {"PATH", "/nowhere"}, {"TMP", folder}};
}

bool isInGnustepEnvironment() {
    const char *file = std::getenv(configurationVariable);
    return file != nullptr && std::string(file) == configurationFile;
}

bool enterGnustepEnvironment(char *const *arguments) {
    if (isInGnustepEnvironment()) {
        return true;
    }
    std::filesystem::create_directory(folder);
    writeFile(configurationFile, std::string("GNUSTEP_USER_DIR=") + folder +
                                     "\nGNUSTEP_USER_DEFAULTS_DIR=" + folder +
                                     "/Defaults\n"
                                     "GNUSTEP_SYSTEM_TOOLS=/nowhere\nGNUSTEP_NETWORK_TOOLS=/nowhere\n"
                                     "GNUSTEP_LOCAL_TOOLS=/nowhere\n");
    for (const auto &[name, value] : gnustepEnvironment()) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    execv("/proc/self/exe", arguments);
    return false;
}

/// Ends with the process.
class PrivateGdnc::Daemon {
  public:
    Daemon() = default;
    Daemon(const Daemon &) = delete;
    Daemon &operator=(const Daemon &) = delete;

    ~Daemon() { kill(); }

    void start();
    void kill();

    [[nodiscard]] bool isAlive() const;

  private:
    pid_t process = -1;
};

PrivateGdnc::Daemon &PrivateGdnc::daemon() {
    static Daemon daemon;
    return daemon;
}

PrivateGdnc::PrivateGdnc() {
    start();
}

void PrivateGdnc::start() {
    if (!daemon().isAlive()) {
        daemon().start();
    }
}

void PrivateGdnc::kill() {
    daemon().kill();
}

void PrivateGdnc::Daemon::start() {
    std::filesystem::remove(nameFile()); // of one that was killed
    process = fork();
    if (process == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL); // however the test ends, the daemon ends with it
        rlimit limit{};
        getrlimit(RLIMIT_STACK, &limit);
        limit.rlim_cur = std::min(stackSize, limit.rlim_max);
        setrlimit(RLIMIT_STACK, &limit);
        execl(GDNC, "gdnc", "-f", nullptr);
        _exit(EXIT_FAILURE);
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!std::filesystem::exists(nameFile()) && isAlive() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_TRUE(std::filesystem::exists(nameFile())) << "gdnc could not be started";
}

bool PrivateGdnc::Daemon::isAlive() const {
    siginfo_t end{};
    return process != -1 &&
           waitid(P_PID, static_cast<id_t>(process), &end, WEXITED | WNOHANG | WNOWAIT) == 0 &&
           end.si_pid == 0;
}

void PrivateGdnc::Daemon::kill() {
    if (process != -1) {
        ::kill(process, SIGKILL);
        waitpid(std::exchange(process, -1), nullptr, 0);
    }
}

} // namespace veltrin::test
