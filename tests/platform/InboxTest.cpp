#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class InboxTest : public OnPrivateBus {};

// ---- What is delivered

TEST_F(InboxTest, KeepsTheOrderAcrossSignalsAndCalls) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    std::vector<std::string> expected;
    for (int i = 0; i < 20; ++i) {
        expected.push_back("object " + std::to_string(i));
        const auto arguments = notificationArguments(frontendName, expected.back());
        if (i % 3 == 0) {
            backend.signal(notificationPath(frontendName), arguments);
        } else {
            backend.call(destination, notificationPath(frontendName), arguments);
        }
    }
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 20; }, {turning(*frontend)}));
    EXPECT_EQ(frontend->objects(), expected);
}

TEST_F(InboxTest, DropsANotificationOfAnotherNameOnTheSamePath) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    backend.call(destination, notificationPath(frontendName),
                 notificationArguments(frontendName + "x", "readPipe"));
    ASSERT_TRUE(
        runUntil([&] { return !backend.replies.empty(); }, {turning(*frontend), processing(backend)}));
    EXPECT_THAT(backend.replies, ElementsAre(SD_BUS_ERROR_UNKNOWN_OBJECT));
    EXPECT_THAT(frontend->received, IsEmpty());
}

TEST_F(InboxTest, HearsNothingOfOtherPortsAndNothingAfterItStoppedObserving) {
    const auto frontend = makeFrontend();
    End other("usb://other.frontend", frontendName, backendCommands);
    BusClient backend(backendName);
    introduce(*frontend, backend);
    other.center->turn(20ms);
    EXPECT_THAT(other.received, IsEmpty());
    frontend->center->stopObserving();
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    frontend->center->turn(20ms);
    EXPECT_THAT(frontend->received, IsEmpty());
}

TEST_F(InboxTest, WhoeverWantsToOverhearsTheAnnouncementsOfOthersAndItsOwn) {
    std::vector<std::string> names;
    std::string problem;
    const auto listener = DBusNotificationCenter::connect(
        {.isCancelled = [] { return false; },
         .report = [](const std::string &line) { ADD_FAILURE() << line; },
         .overheard = [&names](const std::string &name) { names.push_back(name); }},
        problem);
    ASSERT_NE(listener, nullptr) << problem;
    std::vector<std::string> received;
    listener->startObserving(backendName, frontendCommands, [&](const Notification &notification) {
        received.push_back(notification.object.value_or(""));
    });
    static_cast<void>(listener->post(frontendName, "backend-alive", std::nullopt));
    const End other("usb://other.frontend", "usb://other.backend", backendCommands);
    other.post("fronted-alive");
    const auto host = makeFrontend();
    host->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !received.empty(); }, {[&] { listener->turn(1ms); }}));
    EXPECT_THAT(received, ElementsAre("fronted-alive"));
    EXPECT_THAT(names, ElementsAre(frontendName, "usb://other.backend"));
}

TEST_F(InboxTest, SaysThatItCannotAnswer) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->onReceived = [this] { bus.kill(); };
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
    EXPECT_THAT(backend->reports, Contains(testing::StartsWith("cannot answer :")));
}

TEST_F(InboxTest, AFloodFromThePeerIsTakenOneByOne) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    const std::string path = notificationPath(frontendName);
    std::vector<std::string> expected;
    for (int i = 0; i < 500; ++i) {
        expected.push_back(std::to_string(i));
        // A bus lets nobody wait for more than 128 replies.
        if (i % 5 == 0) {
            backend.call(destination, path, notificationArguments(frontendName, expected.back()));
        } else {
            backend.signal(path, notificationArguments(frontendName, expected.back()));
        }
    }
    for (std::size_t turns = 1; turns <= 500; ++turns) {
        frontend->center->turn(10s);
        ASSERT_EQ(frontend->received.size(), turns);
    }
    EXPECT_EQ(frontend->objects(), expected);
    ASSERT_TRUE(
        runUntil([&] { return backend.replies.size() == 100; }, {turning(*frontend), processing(backend)}));
    EXPECT_THAT(backend.replies, testing::Each(""));
    EXPECT_THAT(frontend->reports, IsEmpty());
}

TEST_F(InboxTest, AFloodFromSomebodyUnknownIsCutShort) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    for (int i = 0; i < 500; ++i) {
        backend.signal(notificationPath(frontendName),
                       notificationArguments(frontendName, std::to_string(i)));
    }
    backend.waitForBus(); // so that the answer about its user comes behind all of them
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() + frontend->reports.size() == 500; },
                         {turning(*frontend)}));
    // While its user is not known yet, 32 are kept and no more.
    ASSERT_GE(frontend->received.size(), 32U);
    for (std::size_t i = 0; i < 32; ++i) {
        EXPECT_EQ(frontend->objects()[i], std::to_string(i));
    }
    EXPECT_THAT(frontend->reports, Contains(HasSubstr("it comes too fast")));
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "good"));
    frontend->center->turn(10s);
    EXPECT_EQ(frontend->objects().back(), "good");
}

// ---- Who the peer is

TEST_F(InboxTest, APeerThatLeavesCountsAsOneThatSaidGoodbye) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    BusClient witness(backendName);
    introduce(*frontend, *backend);
    witness.process();
    witness.received.clear();
    backend.reset();
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->received, ElementsAre(End::Received{"backend-byebye", std::nullopt}));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_THAT(frontend->lastError, HasSubstr("left"));
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    witness.process();
    EXPECT_THAT(witness.received, IsEmpty()) << "nothing is broadcast in its stead";

    backend = makeBackend(); // another one comes
    backend->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !backend->received.empty(); }, {turning(*backend)}));
}

TEST_F(InboxTest, APeerThatSaidGoodbyeMayLeaveWithoutAnother) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("backend-byebye");
    backend.reset();
    frontend->center->turn(10s);
    frontend->center->turn(100ms);
    EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
}

TEST_F(InboxTest, WhatAPeerSentBeforeItLeftIsDeliveredBeforeItsGoodbye) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    backend->post("readPipe", patternOf(100));
    backend->post("readPipe", patternOf(100000));
    backend.reset();
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 3; }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe", "readPipe", "backend-byebye"));
    EXPECT_TRUE(frontend->received[1].data == patternOf(100000));
}

TEST_F(InboxTest, TheNewestPeerThatAnnouncesItselfCounts) {
    const auto frontend = makeFrontend();
    const auto older = makeBackend();
    const auto newer = makeBackend();
    introduce(*frontend, *older);
    newer->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    newer->received.clear();
    frontend->post("writePipe", patternOf(16));
    ASSERT_TRUE(runUntil([&] { return !newer->received.empty(); }, {turning(*newer)}));
    EXPECT_THAT(older->received, IsEmpty());

    // What the older one still says, its goodbye above all, is not the newer one's.
    older->post("backend-byebye");
    frontend->center->turn(100ms);
    EXPECT_EQ(frontend->received.size(), 1U);
    older->center->turn(100ms);
    EXPECT_FALSE(older->tryPost("readPipe")) << "it is told so";
    frontend->post("writePipe", patternOf(16));

    older->post("backend-alive"); // unless it announces itself again
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    older->received.clear();
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(17))) << "the newer one has not taken its block";
    ASSERT_TRUE(runUntil([&] { return !older->received.empty(); }, {turning(*older)}));
}

// ---- News that have come in before a post

TEST_F(InboxTest, APostGoesToThePeerThatHasAnnouncedItselfMeanwhile) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        const auto frontend = makeFrontend();
        auto first = std::make_unique<BusClient>(backendName);
        const std::string destination = introduce(*frontend, *first);
        if (saysGoodbye) {
            first->call(destination, notificationPath(frontendName),
                        notificationArguments(frontendName, "backend-byebye"));
        }
        first->waitForBus();
        first.reset();
        BusClient second(backendName);
        second.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
        second.waitForBus();
        letArrive(*frontend);

        frontend->post("readPipe");
        frontend->post("writePipe", patternOf(16));
        EXPECT_TRUE(second.awaitReceived(2));
        EXPECT_THAT(frontend->received, IsEmpty()) << "the observer hears of it in turns only";
        ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye", "backend-alive"));
        EXPECT_THAT(frontend->reports, IsEmpty());
    }
}

TEST_F(InboxTest, APostIsNotMadeUntilItIsKnownThatThePeerHasGone) {
    const auto frontend = makeFrontend();
    auto backend = std::make_unique<BusClient>(backendName);
    const std::string destination = introduce(*frontend, *backend);
    for (const char *object : {"readPipe", "backend-byebye"}) {
        backend->call(destination, notificationPath(frontendName),
                      notificationArguments(frontendName, object));
    }
    backend->waitForBus();
    letArrive(*frontend);
    const Block block = patternOf(16);
    EXPECT_FALSE(frontend->center->post(backendName, "writePipe", block));
    EXPECT_FALSE(frontend->center->post(backendName, "readPipe", std::nullopt));
    frontend->center->turn(0us);
    EXPECT_FALSE(frontend->center->post(backendName, "writePipe", block)) << "it is yet to be heard";
    frontend->center->turn(0us);
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe", "backend-byebye"));
    frontend->post("frontend-byebye");
    EXPECT_TRUE(backend->awaitReceived(1));

    backend.reset();
    ASSERT_TRUE(runUntil([&] { return !frontend->tryPost("readPipe"); }, {turning(*frontend)}));
    EXPECT_EQ(frontend->received.size(), 2U);
}

TEST_F(InboxTest, OfThoseThatAnnounceThemselvesBeforeAPostTheNewestCounts) {
    const auto frontend = makeFrontend();
    BusClient first(backendName);
    introduce(*frontend, first);
    BusClient second(backendName);
    BusClient third(backendName);
    for (BusClient *newcomer : {&second, &third}) {
        newcomer->signal(notificationPath(frontendName),
                         notificationArguments(frontendName, "backend-alive"));
        newcomer->waitForBus();
        letArrive(*frontend);
    }
    frontend->post("writePipe", patternOf(16));
    frontend->post("readPipe");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
    frontend->post("writePipe", patternOf(16));
    EXPECT_TRUE(third.awaitReceived(3));
    second.process();
    EXPECT_THAT(second.received, IsEmpty());
    for (const BusClient::Message &call : third.received) {
        third.answer(call.get());
    }
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "what was posted to it is not given up";
}

} // namespace
} // namespace veltrin::platform
