#include "bench/PlainCalls.h"

#include "platform/linux/BusHandles.h"
#include "platform/linux/NotificationMessage.h"
#include "platform/linux/SealedMemory.h"

#include <systemd/sd-bus.h>

#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <memory>
#include <span>
#include <string>
#include <system_error>
#include <vector>

namespace veltrin::bench {

namespace {

constexpr const char *path = "/plain";
constexpr const char *interface = "org.example.Plain";
constexpr const char *member = "Block";

/// Returns a result of the library that is no error.
int checked(int result) {
    if (result < 0) {
        throw std::system_error(-result, std::generic_category(), "plain calls");
    }
    return result;
}

platform::Bus openBus() {
    sd_bus *bus = nullptr;
    checked(sd_bus_open_system(&bus));
    return platform::Bus(bus);
}

void turn(sd_bus *bus) {
    if (checked(sd_bus_process(bus, nullptr)) == 0) {
        checked(sd_bus_wait(bus, UINT64_MAX));
    }
}

/// Another process, which answers every call until it is killed.
class Answerer {
  public:
    Answerer() {
        std::array<int, 2> ends{};
        if (pipe(ends.data()) != 0) {
            checked(-errno);
        }
        process = fork();
        if (process == 0) {
            answerForEver(ends[1]);
        }
        close(ends[1]);
        std::array<char, 64> text{};
        if (process < 0 || read(ends[0], text.data(), text.size() - 1) <= 0) {
            checked(-EPIPE);
        }
        close(ends[0]);
        uniqueName = text.data();
    }

    Answerer(const Answerer &) = delete;
    Answerer &operator=(const Answerer &) = delete;

    ~Answerer() {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }

    [[nodiscard]] const std::string &name() const { return uniqueName; }

  private:
    static int answer(sd_bus_message *call, void * /*data*/, sd_bus_error * /*error*/) {
        return sd_bus_reply_method_return(call, "");
    }

    [[noreturn]] static void answerForEver(int pipeEnd) noexcept {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const platform::Bus bus = openBus();
        const char *name = nullptr;
        checked(sd_bus_add_object(bus.get(), nullptr, path, answer, nullptr));
        checked(sd_bus_get_unique_name(bus.get(), &name));
        if (write(pipeEnd, name, std::strlen(name)) <= 0) {
            checked(-EPIPE);
        }
        while (true) {
            turn(bus.get());
        }
    }

    pid_t process = -1;
    std::string uniqueName;
};

int answered(sd_bus_message *reply, void *unanswered, sd_bus_error * /*error*/) {
    checked(-sd_bus_message_get_errno(reply));
    --*static_cast<std::size_t *>(unanswered);
    return 1;
}

void call(sd_bus *bus, const std::string &peer, std::span<const std::byte> block, std::size_t &unanswered) {
    sd_bus_message *raw = nullptr;
    checked(sd_bus_message_new_method_call(bus, &raw, peer.c_str(), path, interface, member));
    const platform::BusMessage message(raw);
    if (block.size() < platform::memoryFileThreshold) {
        checked(sd_bus_message_append_array(raw, 'y', block.data(), block.size()));
    } else {
        const int descriptor = checked(platform::makeSealedMemory(block));
        checked(sd_bus_message_append(raw, "h", descriptor));
        close(descriptor);
    }
    checked(sd_bus_call_async(bus, nullptr, raw, answered, &unanswered, UINT64_MAX));
    ++unanswered;
}

} // namespace

double timePlainCalls(std::size_t bands, std::size_t headerSize, std::size_t bandSize, std::size_t window) {
    const Answerer peer;
    const platform::Bus bus = openBus();
    const std::vector<std::byte> header(headerSize);
    const std::vector<std::byte> band(bandSize);
    std::size_t unanswered = 0;

    const auto start = std::chrono::steady_clock::now();
    for (std::size_t i = 0; i < 2 * bands; ++i) {
        while (unanswered >= window) {
            turn(bus.get());
        }
        call(bus.get(), peer.name(), i % 2 == 0 ? header : band, unanswered);
    }
    while (unanswered > 0) {
        turn(bus.get());
    }
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace veltrin::bench
