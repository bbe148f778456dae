#include "tests/platform/ChannelEnd.h"

#include <cstdlib>
#include <utility>

namespace veltrin::test {

using namespace std::chrono_literals;
using platform::Notification;
using platform::NotificationError;
using std::chrono::steady_clock;

Block patternOf(std::size_t size) {
    Block block(size);
    for (std::size_t i = 0; i < size; ++i) {
        block[i] = static_cast<std::byte>(i * 13 + i / 257);
    }
    return block;
}

ChannelEnd::ChannelEnd(const Connect &connect, const std::string &observed, std::string posted,
                       const platform::PeerCommands &peer)
    : postName(std::move(posted)) {
    std::string problem;
    center = connect(
        {[this] { return isCancelled(); }, [this](const std::string &line) { reports.push_back(line); }},
        problem);
    if (!center) {
        ADD_FAILURE() << problem;
        std::abort();
    }
    center->startObserving(observed, peer, [this](const Notification &notification) {
        received.push_back({notification.object,
                            notification.data
                                ? std::optional(Block(notification.data->begin(), notification.data->end()))
                                : std::nullopt});
        onReceived();
    });
}

bool ChannelEnd::tryPost(const std::string &object, std::optional<std::span<const std::byte>> data) {
    try {
        EXPECT_TRUE(center->post(postName, object, data));
        return true;
    } catch (const NotificationError &error) {
        lastError = error.what();
        return false;
    }
}

std::vector<std::string> ChannelEnd::objects() const {
    std::vector<std::string> result;
    for (const Received &one : received) {
        result.push_back(one.object.value_or("(no text)"));
    }
    return result;
}

bool runUntil(const std::function<bool()> &done, const std::vector<std::function<void()>> &steps,
              std::chrono::seconds limit) {
    const auto deadline = steady_clock::now() + limit;
    while (!done()) {
        if (steady_clock::now() > deadline) {
            return false;
        }
        for (const auto &step : steps) {
            step();
        }
    }
    return true;
}

std::function<void()> turning(ChannelEnd &end) {
    return [&end] { end.center->turn(1ms); };
}

void introduce(ChannelEnd &frontend, ChannelEnd &backend) {
    frontend.post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {turning(backend)}));
    backend.post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return !frontend.received.empty(); }, {turning(frontend)}));
    backend.center->turn(20ms); // takes the reply
    frontend.received.clear();
    backend.received.clear();
}

std::chrono::milliseconds durationOf(const std::function<void()> &deed) {
    const auto start = steady_clock::now();
    deed();
    return std::chrono::duration_cast<std::chrono::milliseconds>(steady_clock::now() - start);
}

} // namespace veltrin::test
