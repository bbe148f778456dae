#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class DBusNotificationCenterTest : public OnPrivateBus {};

// ---- Turns

TEST_F(DBusNotificationCenterTest, WaitsWithoutUsingTheProcessor) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    EXPECT_LT(processorTimeOf([&] { frontend->center->turn(500ms); }), 250ms);
    introduce(*frontend, backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 5; }; // half a second
    EXPECT_LT(processorTimeOf([&] { frontend->post("writePipe", patternOf(16)); }), 250ms);
    bus.kill();
    EXPECT_LT(processorTimeOf([&] { frontend->center->turn(500ms); }), 250ms);
}

TEST_F(DBusNotificationCenterTest, ATurnLastsItsTimeWhereNothingComes) {
    const auto frontend = makeFrontend();
    frontend->center->turn(10ms);
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    bus.kill();
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
    EXPECT_EQ(frontend->reports.size(), 1U) << "the loss is reported once";
}

TEST_F(DBusNotificationCenterTest, ATurnEndsWithOneNotification) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    for (int i = 0; i < 3; ++i) {
        backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    }
    for (std::size_t i = 1; i <= 3; ++i) {
        EXPECT_LT(durationOf([&] { frontend->center->turn(10s); }), 5s);
        EXPECT_EQ(frontend->received.size(), i);
    }
}

TEST_F(DBusNotificationCenterTest, ATurnGoesOnBehindWhatItDrops) {
    const std::string path = notificationPath(frontendName);
    const std::vector<BusClient::Arguments> table = {
        [](sd_bus_message *) {},
        withData([](sd_bus_message *message) { sd_bus_message_append(message, "v", "s", "GDIR"); }),
        notificationArguments(frontendName + "x", "readPipe"),
    };
    for (const auto &dropped : table) {
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        introduce(*frontend, backend);
        backend.signal(path, dropped);
        backend.waitForBus();
        EXPECT_GE(durationOf([&] { frontend->center->turn(150ms); }), 149ms);
        EXPECT_EQ(frontend->reports.size(), 1U);
        backend.signal(path, dropped);
        backend.signal(path, notificationArguments(frontendName, "readPipe"));
        backend.waitForBus();
        EXPECT_LT(durationOf([&] { frontend->center->turn(10s); }), 5s);
        EXPECT_THAT(frontend->objects(), ElementsAre("readPipe"));
    }
}

TEST_F(DBusNotificationCenterTest, RunsQueuedFunctionsInALaterTurnAndThenWaitsAllTheSame) {
    const auto frontend = makeFrontend();
    std::vector<int> order;
    frontend->center->performLater([&] {
        order.push_back(1);
        frontend->center->performLater([&] { order.push_back(3); });
    });
    frontend->center->performLater([&] { order.push_back(2); });
    EXPECT_THAT(order, IsEmpty());
    EXPECT_GE(durationOf([&] { frontend->center->turn(50ms); }), 49ms);
    EXPECT_THAT(order, ElementsAre(1, 2));
    frontend->center->turn(0ms);
    EXPECT_THAT(order, ElementsAre(1, 2, 3));
}

TEST_F(DBusNotificationCenterTest, AnObserverMayPostAndStop) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->onReceived = [&] {
        backend->post("readPipe", patternOf(64));
        backend->center->turn(1ms); // hears nothing inside of it
        backend->center->stopObserving();
    };
    frontend->post("readPipe");
    frontend->post("readPipe");
    ASSERT_TRUE(
        runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend), turning(*backend)}));
    EXPECT_EQ(backend->received.size(), 1U);
}

// ---- Turns that watch descriptors, too

class TurnWatching : public OnPrivateBus {
  protected:
    TurnWatching() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }

    ~TurnWatching() override {
        close(ends[0]);
        close(ends[1]);
    }

    /// What can be done with the end to read from when the turn is over.
    short readiness(std::chrono::milliseconds length) {
        // A descriptor of -1 is none.
        std::array<pollfd, 2> watched = {{{-1, POLLIN, 0}, {ends[0], POLLIN, 0}}};
        backend->center->turnWatching(length, watched);
        EXPECT_EQ(watched[0].revents, 0);
        return watched[1].revents;
    }

    std::unique_ptr<End> backend = makeBackend();
    std::array<int, 2> ends{};
};

TEST_F(TurnWatching, EndsWhenSomethingCanBeDone) {
    std::thread writer([this] {
        std::this_thread::sleep_for(20ms);
        EXPECT_EQ(write(ends[1], "x", 1), 1);
    });
    EXPECT_LT(durationOf([this] { EXPECT_EQ(readiness(10s), POLLIN); }), 5s);
    writer.join();
}

TEST_F(TurnWatching, LastsItsTimeWhereNothingCan) {
    EXPECT_GE(durationOf([this] { EXPECT_EQ(readiness(150ms), 0); }), 149ms);
}

TEST_F(TurnWatching, SaysWhatCanBeDoneWhenANotificationEndsIt) {
    BusClient host(frontendName);
    host.signal(notificationPath(backendName), notificationArguments(backendName, "fronted-alive"));
    host.waitForBus();
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    backend->onReceived = [this] { EXPECT_EQ(write(ends[1], "x", 1), 1); };
    ASSERT_TRUE(runUntil([this] { return !backend->received.empty(); },
                         {[this] { EXPECT_EQ(readiness(1s), POLLIN); }}));
}

TEST_F(TurnWatching, GoesOnWithoutTheBus) {
    bus.kill();
    EXPECT_GE(durationOf([this] { EXPECT_EQ(readiness(150ms), 0); }), 149ms);
    EXPECT_EQ(write(ends[1], "x", 1), 1);
    EXPECT_LT(durationOf([this] { EXPECT_EQ(readiness(10s), POLLIN); }), 5s);
}

TEST_F(TurnWatching, WaitsWithoutUsingTheProcessor) {
    EXPECT_LT(processorTimeOf([this] { readiness(500ms); }), 250ms);
}

// ---- Turns that follow a post

class TurnAfterPost : public OnPrivateBus {
  protected:
    static constexpr auto length = 150ms; // of a turn that nothing ends
    static constexpr auto tooLong = 5s;   // for one that something ends

    TurnAfterPost() { destination = introduce(*frontend, backend); }

    /// Posts and waits until the backend has it.
    void post(const std::string &object, std::optional<std::span<const std::byte>> data = std::nullopt) {
        EXPECT_TRUE(frontend->center->post(frontend->postName, object, data));
        const std::size_t posted = backend.received.size() + 1;
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == posted; }, {processing(backend)}));
    }

    void postBlocks(int count) {
        for (int i = 0; i < count; ++i) {
            post("writePipe", patternOf(16));
        }
    }

    void expectTurnLastsItsTime() {
        EXPECT_GE(durationOf([&] { frontend->center->turnAfterPost(length); }), length - 1ms);
    }

    void expectTurnEndsEarly() {
        EXPECT_LT(durationOf([&] { frontend->center->turnAfterPost(2 * tooLong); }), tooLong);
    }

    /// Sends a notification that has arrived when this returns.
    void sendFromBackend(const std::string &object) {
        backend.call(destination, notificationPath(frontendName),
                     notificationArguments(frontendName, object));
        backend.waitForBus();
        letArrive(*frontend);
    }

    std::unique_ptr<End> frontend = makeFrontend();
    BusClient backend{backendName};
    std::string destination;
};

TEST_F(TurnAfterPost, EndsWhenACommandIsAnswered) {
    post("readPipe");
    expectTurnLastsItsTime();
    backend.answer(backend.received.back().get());
    expectTurnEndsEarly();

    post("readPipe");
    backend.answerWithError(backend.received.back().get(), SD_BUS_ERROR_FAILED);
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, IsNotEndedByTheAnswerToAnEarlierPost) {
    post("readPipe");
    postBlocks(1);
    post("readPipe");
    backend.answer(backend.received[0].get());
    backend.answer(backend.received[1].get());
    expectTurnLastsItsTime();
    backend.answer(backend.received[2].get());
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, DoesNotWaitWhereThereIsRoomForTheNextBlock) {
    for (int block = 1; block < 16; ++block) {
        postBlocks(1);
        expectTurnEndsEarly();
    }
    postBlocks(1);
    expectTurnLastsItsTime();
    backend.answer(backend.received.front().get());
    expectTurnEndsEarly();
}

TEST_F(TurnAfterPost, DeliversOneNotificationAndLeavesTheOthersToLaterTurnsInOrder) {
    postBlocks(1);
    sendFromBackend("backend-byebye");
    sendFromBackend("backend-alive");
    backend.answer(backend.received.back().get());
    sendFromBackend("readPipe");
    EXPECT_THAT(frontend->received, IsEmpty());
    std::vector<std::string> expected;
    for (const char *object : {"backend-byebye", "backend-alive", "readPipe"}) {
        expectTurnEndsEarly();
        expected.emplace_back(object);
        EXPECT_EQ(frontend->objects(), expected);
    }
}

TEST_F(TurnAfterPost, HearsAGoodbyeThatCameInBeforeItHadToWait) {
    for (int block = 1; block <= 3; ++block) {
        postBlocks(1);
        backend.answer(backend.received.back().get());
        expectTurnEndsEarly();
    }
    postBlocks(1);
    backend.answer(backend.received.back().get());
    sendFromBackend("backend-byebye");
    expectTurnEndsEarly();
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
}

TEST_F(TurnAfterPost, LastsItsTimeWhereNobodyCanAnswer) {
    const auto alone = std::make_unique<End>("nobody", "nobody else", backendCommands);
    alone->post("fronted-alive");
    EXPECT_GE(durationOf([&] { alone->center->turnAfterPost(length); }), length - 1ms) << "a broadcast";

    postBlocks(16);
    frontend->isCancelled = [] { return true; };
    post("frontend-byebye"); // wants no reply
    backend.answer(backend.received.front().get());
    expectTurnLastsItsTime();
    postBlocks(1);
    expectTurnLastsItsTime();
}

TEST_F(TurnAfterPost, LastsItsTimeOnceTheBusIsLostAndTheLossIsHeardOf) {
    postBlocks(1);
    bus.kill();
    expectTurnEndsEarly();
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    expectTurnLastsItsTime();
    expectTurnLastsItsTime();
    EXPECT_EQ(frontend->received.size(), 1U);
}

TEST_F(TurnAfterPost, EndsWithTheGoodbyeOfAPeerThatLeavesAndThenLastsItsTime) {
    for (const bool afterBlock : {false, true}) {
        auto leaving = makeBackend();
        leaving->post("backend-alive"); // takes the other's place
        ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
        frontend->received.clear();
        if (afterBlock) {
            frontend->post("writePipe", patternOf(16));
            leaving.reset();
            ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
        } else {
            frontend->post("readPipe");
            leaving.reset();
            expectTurnEndsEarly();
        }
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
        expectTurnLastsItsTime();
        frontend->received.clear();
    }
}

TEST_F(TurnAfterPost, AnyOtherTurnIsNotEndedByAnAnswer) {
    post("readPipe");
    backend.answer(backend.received.back().get());
    EXPECT_GE(durationOf([&] { frontend->center->turn(length); }), length - 1ms);
    postBlocks(1);
    EXPECT_GE(durationOf([&] { frontend->center->turn(length); }), length - 1ms);
}

} // namespace
} // namespace veltrin::platform
