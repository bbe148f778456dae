#include "platform/linux/BusConnection.h"

#include "platform/linux/NotificationMessage.h"

#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <ctime>
#include <thread>
#include <utility>
#include <vector>

namespace veltrin::platform {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

constexpr auto connectionLimit = 5s;
constexpr auto drainLimit = 2s;

/// How long to pause when the system is short of something.
constexpr auto shortagePause = 10ms;

/// Polls the descriptors until `until` or something happens. Returns a negative error number where that is
/// impossible.
int pollUntil(std::span<pollfd> descriptors, BusConnection::Time until) {
    const auto left = std::max(until - steady_clock::now(), steady_clock::duration::zero());
    const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(left);
    const timespec timeout{.tv_sec = seconds.count(),
                           .tv_nsec = std::chrono::nanoseconds(left - seconds).count()};
    const int result = ppoll(descriptors.data(), descriptors.size(), &timeout, nullptr);
    return result >= 0 || errno == EINTR ? 0 : -errno;
}

/// The same of the bus and the descriptors.
int pollBus(sd_bus *bus, BusConnection::Time until, std::span<const pollfd> watched = {}) {
    const int events = sd_bus_get_events(bus);
    std::uint64_t libraryWants = UINT64_MAX; // microseconds of the steady clock
    const int result = events < 0 ? events : sd_bus_get_timeout(bus, &libraryWants);
    if (result < 0) {
        return result;
    }
    if (libraryWants != UINT64_MAX) {
        until = std::min(until, BusConnection::Time(std::chrono::microseconds(libraryWants)));
    }
    std::vector<pollfd> descriptors(watched.begin(), watched.end());
    descriptors.push_back({sd_bus_get_fd(bus), static_cast<short>(events), 0});
    return pollUntil(descriptors, until);
}

} // namespace

BusConnection::BusConnection(Settings settings)
    : report(std::move(settings.report)), whenLost(std::move(settings.whenLost)) {}

bool BusConnection::open(std::string &problem) {
    const Time deadline = steady_clock::now() + connectionLimit;
    sd_bus *raw = nullptr;
    int result = 0;
    // The bus's socket refuses for a moment while too many others are waiting there.
    while ((result = sd_bus_open_system(&raw)) == -EAGAIN && steady_clock::now() < deadline) {
        std::this_thread::sleep_for(shortagePause);
    }
    Bus opened(raw);
    while (result >= 0 && sd_bus_is_ready(raw) <= 0) {
        if (steady_clock::now() >= deadline) {
            problem = "the system bus did not let us in within 5 seconds";
            return false;
        }
        result = sd_bus_process(raw, nullptr);
        if (result >= 0 && sd_bus_is_open(raw) <= 0) {
            problem = "the system bus closed the connection before it let us in";
            return false;
        }
        if (result == 0) {
            result = pollBus(raw, deadline);
        }
    }
    if (result < 0) {
        problem = "cannot connect to the system bus: " + busErrorText(result);
        return false;
    }
    bus = std::move(opened);
    return true;
}

bool BusConnection::hasUnsent() const {
    std::uint64_t queued = 0;
    return !isBusLost && bus && sd_bus_get_n_queued_write(bus.get(), &queued) >= 0 && queued > 0;
}

bool BusConnection::process() {
    if (isBusLost) {
        return false;
    }
    const int result = sd_bus_process(bus.get(), nullptr);
    if (isPassingShortage(result)) {
        std::this_thread::sleep_for(shortagePause);
        return true;
    }
    if (result < 0) {
        lose(busErrorText(result));
    } else if (sd_bus_is_open(bus.get()) <= 0) {
        lose("it closed the connection");
    }
    return result > 0;
}

void BusConnection::waitUntil(Time until, std::span<const pollfd> watched) {
    if (isBusLost) {
        std::vector<pollfd> descriptors(watched.begin(), watched.end());
        static_cast<void>(pollUntil(descriptors, until));
    } else if (const int result = pollBus(bus.get(), until, watched);
               result < 0 && !isPassingShortage(result)) {
        lose(busErrorText(result));
    }
}

void BusConnection::lose(const std::string &reason) {
    if (std::exchange(isBusLost, true)) {
        return;
    }
    report("the system bus is lost: " + reason);
    whenLost();
    sd_bus_close(bus.get());
}

void BusConnection::drain() noexcept {
    const auto send = [this] {
        const Time deadline = steady_clock::now() + drainLimit;
        while (hasUnsent() && steady_clock::now() < deadline) {
            if (!process()) {
                waitUntil(deadline);
            }
        }
    };
    static_cast<void>(withinMemory(send, report, "not all was sent"));
}

bool BusConnection::isPassingShortage(int error) {
    switch (-error) {
    case EAGAIN:
    case EMFILE:
    case ENFILE:
    case ENOBUFS:
    case ENOMEM:
    case ETOOMANYREFS:
        return true;
    default:
        return false;
    }
}

void BusConnection::waitOutShortage() {
    process();
    waitUntil(steady_clock::now() + shortagePause);
}

bool BusConnection::canCarry(const std::string &text) {
    if (!carriable.contains(text)) {
        if (!canCarryText(bus.get(), text)) {
            return false;
        }
        carriable.insert(text);
    }
    return true;
}

// ---- Questions to the bus that are waited for

int BusConnection::match(const std::string &rule) {
    sd_bus_slot *slot = nullptr;
    matchError.reset();
    int result = sd_bus_add_match_async(bus.get(), &slot, rule.c_str(), nullptr, matchAnswered, this);
    matching.reset(slot);
    if (result >= 0) {
        result = awaitAnswer(matchError);
    }
    if (result >= 0) {
        result = *matchError;
    }
    if (result != 0) {
        endMatch();
    }
    return result;
}

int BusConnection::matchAnswered(sd_bus_message *reply, void *connection, sd_bus_error * /*error*/) noexcept {
    const int error = sd_bus_message_get_errno(reply);
    static_cast<BusConnection *>(connection)->matchError =
        error != 0 || isFrom(reply, busName) ? error : EPERM;
    return 1;
}

int BusConnection::claim(const std::string &name, bool &isGranted) {
    constexpr std::uint32_t doNotQueue = 4;
    sd_bus_slot *raw = nullptr;
    isClaimGranted.reset();
    int result = isBusLost
                     ? -ENOTCONN
                     : sd_bus_call_method_async(bus.get(), &raw, busName, busPath, busName, "RequestName",
                                                claimAnswered, this, "su", name.c_str(), doNotQueue);
    const BusSlot slot(raw);
    if (result >= 0) {
        result = awaitAnswer(isClaimGranted);
    }
    if (result >= 0) {
        isGranted = *isClaimGranted;
    }
    return result;
}

int BusConnection::claimAnswered(sd_bus_message *reply, void *connection, sd_bus_error * /*error*/) noexcept {
    constexpr std::uint32_t granted = 1;
    constexpr std::uint32_t heldAlready = 4;
    BusConnection &asking = *static_cast<BusConnection *>(connection);
    std::uint32_t answer = granted;
    const sd_bus_error *error = sd_bus_message_get_error(reply);
    if (error != nullptr || !isFrom(reply, busName) || sd_bus_message_read(reply, "u", &answer) <= 0) {
        const char *reason =
            error != nullptr && error->message != nullptr ? error->message : "a strange answer";
        constexpr const char *loss = "cannot make sure that nobody else is a backend of the same printer";
        static_cast<void>(
            withinMemory([&] { asking.report(loss + std::string(": ") + reason); }, asking.report, loss));
    }
    asking.isClaimGranted = answer == granted || answer == heldAlready;
    return 1;
}

/// Waits until the bus has answered. Returns 0 or the negative error number.
template <typename Answer>
int BusConnection::awaitAnswer(const std::optional<Answer> &answer) {
    const Time deadline = steady_clock::now() + connectionLimit;
    while (!answer) {
        if (isBusLost || steady_clock::now() >= deadline) {
            return -ETIMEDOUT;
        }
        if (!process()) {
            waitUntil(deadline);
        }
    }
    return 0;
}

} // namespace veltrin::platform
