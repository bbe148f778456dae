#include "tests/platform/ChannelContract.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <string>
#include <vector>

namespace veltrin::test {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::size_t kibibyte = 1024;
constexpr std::size_t mebibyte = kibibyte * kibibyte;

TEST_P(ChannelContract, CarriesTheBytesOfABlock) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{16}, 64 * kibibyte, mebibyte, 8 * mebibyte}) {
        SCOPED_TRACE(size);
        const Block block = patternOf(size);
        frontend->post("writePipe", block);
        ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
        ASSERT_EQ(backend->received.size(), 1U);
        EXPECT_EQ(backend->received[0].object, "writePipe");
        EXPECT_TRUE(backend->received[0].data == block);
        backend->received.clear();
        frontend->center->turn(1ms); // takes the answer
    }
    EXPECT_TRUE(frontend->center->waitForDelivery());
}

TEST_P(ChannelContract, CarriesBlocksBothWays) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("readPipe", patternOf(64));
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->received, ElementsAre(ChannelEnd::Received{"readPipe", patternOf(64)}));
    EXPECT_THAT(backend->received, IsEmpty());
}

TEST_P(ChannelContract, KeepsTheOrderOfPosts) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    std::vector<ChannelEnd::Received> posted;
    for (std::size_t i = 0; i < 6; ++i) {
        const std::size_t size = i % 2 == 0 ? 10 * i : 100000 * i;
        posted.push_back({"writePipe", patternOf(size)});
        frontend->post("writePipe", *posted.back().data);
        posted.push_back({"readPipe", std::nullopt});
        frontend->post("readPipe");
    }
    ASSERT_TRUE(runUntil([&] { return backend->received.size() == posted.size(); }, {turning(*backend)}));
    EXPECT_TRUE(backend->received == posted);
}

TEST_P(ChannelContract, HandsOnObjectsThatAreNoCommands) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    const std::vector<std::string> objects{"", "7", "hello", "writePipe ", "größer", "a\nb"};
    for (const std::string &object : objects) {
        frontend->post(object);
    }
    ASSERT_TRUE(runUntil([&] { return backend->received.size() == objects.size(); }, {turning(*backend)}));
    EXPECT_EQ(backend->objects(), objects);
    EXPECT_FALSE(backend->received[1].data.has_value());
}

TEST_P(ChannelContract, DeliversInTurnsAloneAndOneInEach) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    for (const char *object : {"first", "second", "third"}) {
        frontend->post(object);
    }
    backend->post("readPipe", patternOf(16));
    frontend->center->turn(20ms); // a system that has one run loop for both brings the other's, too
    EXPECT_THAT(backend->received, IsEmpty());
    backend->post("readPipe", patternOf(16));
    EXPECT_THAT(backend->received, IsEmpty()) << "a post is no turn";
    for (std::size_t turns = 1; turns <= 3; ++turns) {
        backend->center->turn(10s);
        EXPECT_EQ(backend->received.size(), turns);
    }
    EXPECT_THAT(backend->objects(), ElementsAre("first", "second", "third"));
}

TEST_P(ChannelContract, RunsWhatIsQueuedInTheNextTurn) {
    const auto frontend = makeFrontend();
    std::vector<int> calls;
    frontend->center->performLater([&] {
        calls.push_back(1);
        frontend->center->performLater([&] { calls.push_back(2); });
    });
    EXPECT_THAT(calls, IsEmpty());
    frontend->center->turn(0us);
    EXPECT_THAT(calls, ElementsAre(1));
    frontend->center->turn(0us);
    EXPECT_THAT(calls, ElementsAre(1, 2));
}

TEST_P(ChannelContract, DeliversNothingToAnEndThatHasStoppedObserving) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("readPipe");
    frontend->post("readPipe");
    frontend->center->turn(20ms); // lets both come in, where one run loop brings what is for either
    backend->onReceived = [&] { backend->center->stopObserving(); };
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    frontend->tryPost("readPipe");
    for (int i = 0; i < 5; ++i) {
        backend->center->turn(10ms);
    }
    EXPECT_THAT(backend->objects(), ElementsAre("readPipe"));
}

TEST_P(ChannelContract, GoesOnWithAPeerThatReturns) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("backend-byebye");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    backend->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye", "backend-alive"));
    frontend->post("writePipe", patternOf(100));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->received, ElementsAre(ChannelEnd::Received{"writePipe", patternOf(100)}));
}

TEST_P(ChannelContract, GoesOnWithAnotherPeerInThePlaceOfOneThatHasLeft) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("backend-byebye");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    backend.reset();
    backend = makeBackend();
    backend->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    frontend->post("writePipe", patternOf(100));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->received, ElementsAre(ChannelEnd::Received{"writePipe", patternOf(100)}));
}

TEST_P(ChannelContract, TellsThatAPeerHasLeftWithoutAWordWhereTheSystemDoes) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend.reset();
    if (GetParam().tellsDepartures) {
        ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    } else {
        for (int i = 0; i < 20; ++i) {
            frontend->center->turn(10ms);
        }
        EXPECT_THAT(frontend->received, IsEmpty());
    }
}

TEST_P(ChannelContract, HearsNothingOfOtherNames) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    ChannelEnd other(connect, "usb://other.backend", "usb://other.frontend", frontendCommands);
    introduce(*frontend, *backend);
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend), turning(other)}));
    other.center->turn(10ms);
    EXPECT_THAT(other.received, IsEmpty());
    EXPECT_THAT(frontend->received, IsEmpty()) << "nor of its own posts";
}

} // namespace
} // namespace veltrin::test
