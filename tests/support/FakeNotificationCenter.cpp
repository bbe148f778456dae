#include "tests/support/FakeNotificationCenter.h"

#include <algorithm>
#include <span>
#include <utility>

namespace veltrin::test {

class FakeNotificationCenter::Connection final : public platform::NotificationCenter {
  public:
    explicit Connection(FakeNotificationCenter &theCenter) : center(theCenter) {}

    ~Connection() override { center.later.clear(); }

    void startObserving(const std::string &name, const platform::PeerCommands &peer,
                        Observer newObserver) override {
        if (!center.observeProblem.empty()) {
            throw platform::NotificationError(center.observeProblem);
        }
        center.trace("observe " + name);
        center.observedName = name;
        center.peerCommands = peer;
        center.observer = std::move(newObserver);
    }

    [[nodiscard]] std::unique_ptr<platform::HeldNotification> hold() override { return nullptr; }

    void stopObserving() noexcept override {
        center.trace("stop observing");
        center.observedName.clear();
        center.observer = nullptr;
    }

    [[nodiscard]] bool claim(const std::string &name) override {
        center.trace("claim " + name);
        return !center.isClaimed;
    }

    [[nodiscard]] bool isConnected() const override { return center.isConnected; }

    [[nodiscard]] std::optional<pid_t> peerProcess() const override { return std::nullopt; }

    [[nodiscard]] bool post(const std::string &name, const std::string &object,
                            std::optional<std::span<const std::byte>> data) override {
        center.trace("post " + name + " " + object);
        if (center.holdsPosts) {
            return false;
        }
        center.posts.push_back(
            {name, object, data ? std::optional(Block(data->begin(), data->end())) : std::nullopt});
        if (center.failsPosts) {
            throw platform::NotificationError("the test lets posts fail");
        }
        if (data && center.leavesDuringPosts > 0) {
            --center.leavesDuringPosts;
            center.posts.pop_back();
            center.observer({center.peerCommands.farewell, std::nullopt});
            return false;
        }
        center.afterPost(Post(center.posts.back()));
        return true;
    }

    void turn(std::chrono::microseconds length) override { center.turn("turn", length); }

    void turnWatching(std::chrono::microseconds length, std::span<pollfd> watched) override {
        center.turn("turn watching", length);
        poll(watched.data(), watched.size(), 0);
    }

    void turnAfterPost(std::chrono::microseconds length) override { center.turn("turn after post", length); }

    void performLater(std::function<void()> function) override {
        if (center.failsToQueue) {
            throw platform::NotificationError("the test lets functions be refused");
        }
        center.later.push_back(std::move(function));
    }

    [[nodiscard]] bool waitForDelivery() override {
        center.beforeDeliveryWait();
        ++center.deliveryWaits;
        if (center.failsWaits) {
            throw platform::NotificationError("the test lets waits fail");
        }
        return center.isDelivered;
    }

  private:
    FakeNotificationCenter &center;
};

std::unique_ptr<platform::NotificationCenter>
FakeNotificationCenter::connect(platform::NotificationCenterClient connectingClient, std::string &problem) {
    if (!connectProblem.empty()) {
        problem = connectProblem;
        return nullptr;
    }
    client = std::move(connectingClient);
    return std::make_unique<Connection>(*this);
}

void FakeNotificationCenter::deliver(std::optional<std::string> object, std::optional<Block> data,
                                     std::chrono::microseconds delay) {
    const auto due = clock.now + delay;
    const auto place = std::upper_bound(
        pending.begin(), pending.end(), due,
        [](std::chrono::microseconds time, const Pending &entry) { return time < entry.due; });
    pending.insert(place, {due, std::move(object), std::move(data)});
}

void FakeNotificationCenter::turn(const std::string &kind, std::chrono::microseconds length) {
    using std::chrono::duration_cast;
    using std::chrono::milliseconds;
    trace(kind + " " + std::to_string(duration_cast<milliseconds>(length).count()) + " ms");
    turns.push_back(length);
    holdsPosts = false;
    if (failsTurns) {
        throw platform::NotificationError("the test lets turns fail");
    }
    for (const auto &function : std::exchange(later, {})) {
        function();
    }
    const auto end = clock.now + length;
    if (pending.empty() || pending.front().due > end) {
        clock.now = end;
        return;
    }
    const Pending first = std::move(pending.front());
    pending.erase(pending.begin());
    clock.now = std::max(clock.now, first.due);
    if (observer) {
        observer({first.object, first.data ? std::optional(std::span<const std::byte>(*first.data))
                                           : std::optional<std::span<const std::byte>>()});
    }
}

} // namespace veltrin::test
