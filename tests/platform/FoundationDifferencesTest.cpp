#include "platform/Platform.h"
#include "tests/foundation/Stranger.h"
#include "tests/platform/ChannelEnd.h"
#include "tests/support/PrivateGdnc.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

// Where Foundation's notifications give less than the message bus does, or another thing.

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr std::size_t mebibyte = std::size_t{1024} * 1024;

class FoundationDifferencesTest : public testing::Test {
  protected:
    PrivateGdnc daemon;
    std::unique_ptr<Platform> system = makePlatform();
    ChannelEnd::Connect connect = [this](const NotificationCenterClient &client, std::string &problem) {
        return system->makeNotificationCenter(client, problem);
    };
    std::unique_ptr<ChannelEnd> frontend =
        std::make_unique<ChannelEnd>(connect, frontendName, backendName, backendCommands);
    std::unique_ptr<ChannelEnd> backend =
        std::make_unique<ChannelEnd>(connect, backendName, frontendName, frontendCommands);
};

TEST_F(FoundationDifferencesTest, NoPostWaitsForAPeerThatTakesNothing) {
    introduce(*frontend, *backend);
    frontend->isCancelled = [] {
        ADD_FAILURE() << "there is no wait that a cancellation would end";
        return true;
    };
    constexpr std::size_t posts = 100;
    for (std::size_t i = 0; i < posts; ++i) {
        frontend->post("writePipe", patternOf(i));
    }
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "what is posted counts as delivered";
    EXPECT_THAT(backend->received, IsEmpty());
    ASSERT_TRUE(runUntil([&] { return backend->received.size() == posts; }, {turning(*backend)}));
    for (std::size_t i = 0; i < posts; ++i) {
        EXPECT_EQ(backend->received[i].data, patternOf(i));
    }
}

TEST_F(FoundationDifferencesTest, PostsWithoutAPeerAreNoFailure) {
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_TRUE(frontend->center->isConnected());
    EXPECT_EQ(frontend->center->peerProcess(), std::nullopt);
}

TEST_F(FoundationDifferencesTest, ABlockOf32MebibytesIsAFailedPostAndNoMore) {
    introduce(*frontend, *backend);
    EXPECT_FALSE(frontend->tryPost("writePipe", Block(32 * mebibyte)));
    EXPECT_THAT(frontend->lastError, HasSubstr("larger than the notification service takes"));
    const Block largest = patternOf(32 * mebibyte - 64 * 1024);
    frontend->post("writePipe", largest);
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_TRUE(backend->received[0].data == largest);
}

TEST_F(FoundationDifferencesTest, ADaemonThatDiesEndsTheConnectionForGood) {
    introduce(*frontend, *backend);
    daemon.kill();
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_FALSE(frontend->center->isConnected());
    EXPECT_THAT(frontend->reports, ElementsAre("the notification service is lost"));
    frontend->center->turn(0us);
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    daemon.start();
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_EQ(frontend->lastError, "the notification service is lost");

    // Whoever connects anew has the new one, which the library finds at the second attempt.
    ASSERT_TRUE(runUntil(
        [&] {
            std::string problem;
            const auto center =
                connect({.isCancelled = [] { return false; }, .report = [](const std::string &) {}}, problem);
            try {
                return center->post(backendName, "hello", std::nullopt);
            } catch (const NotificationError &) {
                return false;
            }
        },
        {}));
    frontend = std::make_unique<ChannelEnd>(connect, frontendName, backendName, backendCommands);
    backend = std::make_unique<ChannelEnd>(connect, backendName, frontendName, frontendCommands);
    introduce(*frontend, *backend);
}

TEST_F(FoundationDifferencesTest, NothingIsPostedToAPeerWhoseFarewellHasYetToBeHeard) {
    introduce(*frontend, *backend);
    backend->post("backend-byebye");
    bool isPosted = true;
    for (int i = 0; i < 500 && isPosted; ++i) {
        std::this_thread::sleep_for(10ms); // for it to come in
        isPosted = frontend->center->post(backendName, "readPipe", std::nullopt);
    }
    EXPECT_FALSE(isPosted);
    EXPECT_THAT(frontend->received, IsEmpty()) << "a post delivers nothing";
    frontend->center->turn(0us);
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    EXPECT_TRUE(frontend->tryPost("readPipe"));
}

TEST_F(FoundationDifferencesTest, ClaimsAreGrantedToEverybodyAndSaidSo) {
    EXPECT_TRUE(frontend->center->claim("usb://x"));
    EXPECT_TRUE(backend->center->claim("usb://x"));
    EXPECT_THAT(backend->reports,
                ElementsAre(HasSubstr("nothing keeps another program from serving \"usb://x\"")));
}

TEST_F(FoundationDifferencesTest, OneHearsOfOnesOwnPosts) {
    std::vector<std::string> heard;
    std::string problem;
    const auto center =
        system->makeNotificationCenter({.isCancelled = [] { return false; },
                                        .report = [](const std::string &) {},
                                        .overheard = [&](const std::string &name) { heard.push_back(name); }},
                                       problem);
    EXPECT_TRUE(center->post(frontendName, "backend-alive", std::nullopt));
    EXPECT_THAT(heard, ElementsAre(frontendName));
}

TEST_F(FoundationDifferencesTest, WhatIsNoTextIsRefused) {
    EXPECT_FALSE(frontend->tryPost("\xFF"));
    EXPECT_THAT(frontend->lastError, HasSubstr("not UTF-8"));
    EXPECT_THROW(frontend->center->startObserving("\xFF", backendCommands, [](const Notification &) {}),
                 NotificationError);
}

TEST_F(FoundationDifferencesTest, WhatIsNoTextOrNoBlockIsNone) {
    introduce(*frontend, *backend);
    postTextAsData(backendName, "writePipe");
    postWithoutObject(backendName);
    ASSERT_TRUE(runUntil([&] { return backend->received.size() == 2; }, {turning(*backend)}));
    EXPECT_THAT(backend->received, ElementsAre(ChannelEnd::Received{"writePipe", std::nullopt},
                                               ChannelEnd::Received{std::nullopt, std::nullopt}));
}

// ---- Turns

TEST_F(FoundationDifferencesTest, ATurnLastsItsTimeWhereNothingComes) {
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 150ms);
    EXPECT_GE(durationOf([&] { frontend->center->turnAfterPost(150ms); }), 150ms)
        << "nobody says that a post was taken";
}

TEST_F(FoundationDifferencesTest, ATurnThatWatchesEndsWhenADescriptorIsReady) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    std::array<pollfd, 2> watched{pollfd{ends[0], POLLIN, 0}, pollfd{-1, POLLIN, 0}};
    EXPECT_GE(durationOf([&] { frontend->center->turnWatching(50ms, watched); }), 50ms);
    EXPECT_EQ(watched[0].revents, 0);
    ASSERT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_LT(durationOf([&] { frontend->center->turnWatching(15s, watched); }), 10s);
    EXPECT_EQ(watched[0].revents, POLLIN);
    close(ends[0]);
    close(ends[1]);
}

// ---- Blocks and observers that outlive their time

TEST_F(FoundationDifferencesTest, AHeldBlockStaysWhereItIs) {
    introduce(*frontend, *backend);
    std::unique_ptr<HeldNotification> held;
    backend->onReceived = [&] {
        if (!held) {
            held = backend->center->hold();
        }
    };
    const Block block = patternOf(100000);
    frontend->post("writePipe", block);
    frontend->post("writePipe", Block(100000));
    ASSERT_TRUE(runUntil([&] { return backend->received.size() == 2; }, {turning(*backend)}));
    EXPECT_TRUE(Block(held->data().begin(), held->data().end()) == block);

    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
    EXPECT_EQ(held->writeTo(ends[1], 99999), 1);
    char byte = 0;
    EXPECT_EQ(read(ends[0], &byte, 1), 1);
    EXPECT_EQ(std::byte(byte), block.back());
    close(ends[0]);
    close(ends[1]);
    held->acknowledge();
}

TEST_F(FoundationDifferencesTest, ABlockIsGivenBackWithThePost) {
    introduce(*frontend, *backend);
    Block block = patternOf(100000);
    frontend->post("writePipe", block);
    std::fill(block.begin(), block.end(), std::byte{});
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_TRUE(backend->received[0].data == patternOf(100000));
}

TEST_F(FoundationDifferencesTest, AnEndMayGoWhileNotificationsForItAreUnderWay) {
    introduce(*frontend, *backend);
    for (int i = 0; i < 20; ++i) {
        frontend->post("readPipe");
    }
    backend.reset();
    backend = std::make_unique<ChannelEnd>(connect, backendName, frontendName, frontendCommands);
    frontend->post("the last");
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->objects(), ElementsAre("the last"));
}

} // namespace
} // namespace veltrin::platform
