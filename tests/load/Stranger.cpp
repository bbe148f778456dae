#include "tests/load/Stranger.h"

#include "platform/linux/BusHandles.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/NotificationPath.h"

#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <new>
#include <system_error>

namespace veltrin::test {

namespace {

using platform::notificationInterface;
using platform::notificationMember;

constexpr uid_t nobody = 65534;
constexpr unsigned newcomerAfter = 5000; // messages

/// All that a peer can say, the farewell among it.
constexpr std::array objects = {"readPipe",       "writePipe",     "backend-alive",
                                "backend-byebye", "fronted-alive", "frontend-byebye"};

platform::Bus openBus() {
    sd_bus *bus = nullptr;
    static_cast<void>(sd_bus_open_system(&bus));
    return platform::Bus(bus);
}

/// The connections that are there; the bus's policy may keep that to itself.
std::vector<std::string> everybodyOn(sd_bus *bus) {
    using platform::busName;
    sd_bus_message *raw = nullptr;
    std::vector<std::string> names;
    if (sd_bus_call_method(bus, busName, platform::busPath, busName, "ListNames", nullptr, &raw, "") < 0) {
        return names;
    }
    const platform::BusMessage reply(raw);
    const char *name = nullptr;
    sd_bus_message_enter_container(raw, 'a', "s");
    while (sd_bus_message_read_basic(raw, 's', &name) > 0) {
        if (*name == ':') {
            names.emplace_back(name);
        }
    }
    return names;
}

/// A notification with a record's worth of data; a call where there is a receiver.
bool send(sd_bus *bus, const char *receiver, const std::string &name, const char *object) {
    const std::array<char, 64> data = {'G', 'D', 'I', 'R'};
    const std::string path = platform::notificationPath(name);
    sd_bus_message *raw = nullptr;
    const int made =
        receiver != nullptr
            ? sd_bus_message_new_method_call(bus, &raw, receiver, path.c_str(), notificationInterface,
                                             notificationMember)
            : sd_bus_message_new_signal(bus, &raw, path.c_str(), notificationInterface, notificationMember);
    const platform::BusMessage message(raw);
    if (made < 0 || (receiver != nullptr && sd_bus_message_set_expect_reply(raw, 0) < 0) ||
        sd_bus_message_append(raw, "sv", name.c_str(), "s", object) < 0 ||
        sd_bus_message_open_container(raw, 'a', "{sv}") < 0 ||
        sd_bus_message_open_container(raw, 'e', "sv") < 0 || sd_bus_message_append(raw, "s", "data") < 0 ||
        sd_bus_message_open_container(raw, 'v', "ay") < 0 ||
        sd_bus_message_append_array(raw, 'y', data.data(), data.size()) < 0 ||
        sd_bus_message_close_container(raw) < 0 || sd_bus_message_close_container(raw) < 0 ||
        sd_bus_message_close_container(raw) < 0) {
        return false;
    }
    if (sd_bus_send(bus, raw, nullptr) < 0) {
        return false;
    }
    while (sd_bus_process(bus, nullptr) > 0) {
    }
    return sd_bus_flush(bus) >= 0;
}

/// As one connection, until it is to be another one or the bus has had enough of it.
void floodOnce(const std::vector<std::string> &names, std::atomic<unsigned long> &count) {
    const platform::Bus bus = openBus();
    if (!bus) {
        return;
    }
    const std::vector<std::string> everybody = everybodyOn(bus.get());
    for (unsigned turn = 0; turn < newcomerAfter; ++turn) {
        const std::string &name = names[turn % names.size()];
        const char *object = objects[turn % objects.size()];
        const char *receiver =
            turn % 2 == 0 || everybody.empty() ? nullptr : everybody[turn % everybody.size()].c_str();
        if (!send(bus.get(), receiver, name, object)) {
            return;
        }
        ++count;
    }
    // Else the bus would still be busy with many a one whom he has been.
    sd_bus_call_method(bus.get(), platform::busName, platform::busPath, platform::busName, "GetId", nullptr,
                       nullptr, "");
}

} // namespace

bool Stranger::canBePlayed() {
    return geteuid() == 0;
}

Stranger::Stranger(const std::vector<std::string> &names) {
    void *shared = mmap(nullptr, sizeof *count, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (shared == MAP_FAILED) {
        throw std::bad_alloc();
    }
    count = new (shared) std::atomic<unsigned long>(0);
    const pid_t test = getpid();
    process = fork();
    if (process == -1) {
        munmap(count, sizeof *count);
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (process == 0) {
        if (setgid(nobody) != 0 || setuid(nobody) != 0) {
            _exit(EXIT_FAILURE);
        }
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != test) {
            _exit(EXIT_FAILURE);
        }
        while (true) {
            floodOnce(names, *count);
        }
    }
}

Stranger::~Stranger() {
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    munmap(count, sizeof *count);
}

} // namespace veltrin::test
