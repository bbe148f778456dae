#pragma once

#include "platform/NotificationCenter.h"
#include "tests/support/FakeClock.h"

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::test {

/// A notification service in memory, in virtual time: the test plays the other end, says what it sends and
/// when, and sees everything that is posted. It is the test's own; `connect` makes the object that a channel
/// holds, which must not outlive it.
class FakeNotificationCenter {
  public:
    using Block = std::vector<std::byte>;

    struct Post {
        std::string name;
        std::string object;
        std::optional<Block> data;

        bool operator==(const Post &) const = default;
    };

    explicit FakeNotificationCenter(FakeClock &theClock) : clock(theClock) {}

    [[nodiscard]] std::unique_ptr<platform::NotificationCenter>
    connect(platform::NotificationCenterClient connectingClient, std::string &problem);

    /// Sends a notification of the observed name, to be delivered in the first turn that lasts until `delay`
    /// from now or longer. No object stands for one that is not a text.
    void deliver(std::optional<std::string> object, std::optional<Block> data = std::nullopt,
                 std::chrono::microseconds delay = {});

    /// What has been posted so far, in order, failed posts included.
    std::vector<Post> posts;

    /// The lengths of the turns so far, in order.
    std::vector<std::chrono::microseconds> turns;

    /// Called after each post that succeeds, so that the test can answer it.
    std::function<void(const Post &)> afterPost = [](const Post &) {};

    /// Called at the beginning of each wait for delivery.
    std::function<void()> beforeDeliveryWait = [] {};

    /// Called with a line for each post ("post <name> <object>"), turn ("turn <milliseconds> ms", "turn after
    /// post <milliseconds> ms") and change of the observation, so that a test can see them in the order of
    /// the log's lines.
    std::function<void(const std::string &)> trace = [](const std::string &) {};

    std::string connectProblem; // fails `connect` where it is not empty
    std::string observeProblem; // makes `startObserving` throw where it is not empty
    bool failsPosts = false;    // makes `post` throw
    int leavesDuringPosts = 0;  // during so many posts of blocks the other end says its farewell
    bool holdsPosts = false;   // no post is made until the next turn: the other end's farewell is to be heard
    bool failsTurns = false;   // makes `turn` throw
    bool failsToQueue = false; // makes `performLater` throw
    bool failsWaits = false;   // makes `waitForDelivery` throw
    bool isClaimed = false;    // somebody else serves every name
    bool isConnected = true;   // whether the service is there
    bool isDelivered = true;   // what `waitForDelivery` returns
    int deliveryWaits = 0;     // how often it was called

    std::string observedName; // empty while nobody observes
    platform::PeerCommands peerCommands;
    platform::NotificationCenterClient client;

  private:
    class Connection;

    struct Pending {
        std::chrono::microseconds due;
        std::optional<std::string> object;
        std::optional<Block> data;
    };

    void turn(const std::string &kind, std::chrono::microseconds length);

    FakeClock &clock;
    platform::NotificationCenter::Observer observer;
    std::vector<Pending> pending; // by due time, first sent first
    std::vector<std::function<void()>> later;
};

} // namespace veltrin::test
