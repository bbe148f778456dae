#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <string>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class DeliveryTest : public OnPrivateBus {};

// ---- Room for the next

TEST_F(DeliveryTest, LeavesSixteenCallsUnansweredAndAfterCancellationCallsWithoutReply) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 3; };
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(100000));
    }
    EXPECT_EQ(questions, 0) << "there is room, nothing is waited for";
    EXPECT_GE(durationOf([&] { frontend->post("writePipe", patternOf(16)); }), 250ms);
    EXPECT_EQ(questions, 4);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(17))) << "no page data";
    EXPECT_EQ(frontend->lastError, "the job is cancelled and the peer takes nothing");
    frontend->post("frontend-byebye");
    ASSERT_TRUE(runUntil([&] { return backend.received.size() == 18; }, {processing(backend)}));
    for (std::size_t i = 0; i < 18; ++i) {
        EXPECT_EQ(sd_bus_message_get_expect_reply(backend.received[i].get()) > 0, i < 16) << i;
        EXPECT_GT(sd_bus_message_is_method_call(backend.received[i].get(), nullptr, nullptr), 0);
    }
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "a cancelled job waits for nothing";
}

TEST_F(DeliveryTest, AnAnswerMakesRoomForOneMore) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    std::size_t answeredCalls = 0;
    frontend->isCancelled = [&] {
        backend.process();
        EXPECT_LE(backend.received.size() - answeredCalls, 16U);
        if (answeredCalls < backend.received.size()) {
            backend.answer(backend.received[answeredCalls++].get());
        }
        return false;
    };
    for (int i = 0; i < 60; ++i) {
        frontend->post("writePipe", patternOf(static_cast<std::size_t>(i)));
    }
    EXPECT_GE(answeredCalls, 60U - 16U);
    EXPECT_TRUE(frontend->center->waitForDelivery());
    EXPECT_EQ(answeredCalls, 60U);
}

TEST_F(DeliveryTest, AnAnswerMayTakeAsLongAsItLikes) {
    // What the library gives a call that names no limit, 25 s otherwise.
    setenv("SYSTEMD_BUS_TIMEOUT", "2s", 1);
    const auto frontend = makeFrontend();
    unsetenv("SYSTEMD_BUS_TIMEOUT");
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    frontend->post("readPipe");
    frontend->center->turn(2500ms);
    EXPECT_THAT(frontend->reports, IsEmpty());
    ASSERT_TRUE(runUntil([&] { return backend.received.size() == 2; }, {processing(backend)}));
    backend.answer(backend.received[0].get());
    backend.answer(backend.received[1].get());
    EXPECT_TRUE(frontend->center->waitForDelivery());
    frontend->post("readPipe");
    EXPECT_THAT(frontend->reports, IsEmpty());
}

TEST_F(DeliveryTest, WaitsForRoomEndWithThePeersGoodbye) {
    for (const bool makesRoom : {false, true}) {
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        const std::string destination = introduce(*frontend, backend);
        for (int i = 0; i < 16; ++i) {
            frontend->post("writePipe", patternOf(100));
        }
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 16; }, {processing(backend)}));
        const auto send = [&](const char *object) {
            backend.call(destination, notificationPath(frontendName),
                         notificationArguments(frontendName, object));
        };
        int questions = 0;
        frontend->isCancelled = [&] { // asked in the wait
            if (++questions == 2) {
                send("backend-byebye");
                if (makesRoom) {
                    backend.answer(backend.received.front().get());
                }
            }
            return false;
        };
        EXPECT_FALSE(frontend->center->post(backendName, "writePipe", patternOf(100)));
        EXPECT_THAT(frontend->objects(), ElementsAre("backend-byebye"));
        frontend->post("readPipe"); // a command goes out all the same
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 17; }, {processing(backend)}));

        send("backend-alive");
        ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 2; }, {turning(*frontend)}));
        for (std::size_t i = makesRoom ? 1 : 0; i < 16; ++i) {
            backend.answer(backend.received[i].get());
        }
        frontend->post("writePipe", patternOf(200));
        ASSERT_TRUE(runUntil([&] { return backend.received.size() == 18; }, {processing(backend)}));
    }
}

TEST_F(DeliveryTest, WaitsForRoomEndWhenThePeerLeaves) {
    const auto frontend = makeFrontend();
    auto backend = std::make_unique<BusClient>(backendName);
    introduce(*frontend, *backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] {
        if (++questions == 2) {
            backend.reset();
        }
        return false;
    };
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(DeliveryTest, WaitsForRoomEndWhenTheBusDies) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    for (int i = 0; i < 16; ++i) {
        frontend->post("writePipe", patternOf(16));
    }
    int questions = 0;
    frontend->isCancelled = [&] {
        if (++questions == 2) {
            bus.kill();
        }
        return false;
    };
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THAT(frontend->lastError, HasSubstr("the system bus is lost"));
    EXPECT_FALSE(frontend->center->waitForDelivery());
}

TEST_F(DeliveryTest, TwoEndsThatBothWaitForRoomDoNotBlockEachOther) {
    constexpr std::size_t posts = 100;
    // The first notification is the other's announcement.
    const auto exchange = [](End &end, const std::string &object) {
        bool succeeded = runUntil([&] { return !end.received.empty(); }, {turning(end)});
        for (std::size_t i = 0; i < posts; ++i) {
            succeeded = end.tryPost(object, patternOf(64)) && succeeded;
        }
        return runUntil([&] { return end.received.size() > posts; }, {turning(end)}) && succeeded;
    };
    const auto frontend = makeFrontend();
    const pid_t other = fork();
    if (other == 0) {
        End backend(backendName, frontendName, frontendCommands);
        backend.post("backend-alive");
        _exit(exchange(backend, "readPipe") ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    frontend->post("fronted-alive");
    EXPECT_TRUE(exchange(*frontend, "writePipe"));
    int status = -1;
    while (waitpid(other, &status, WNOHANG) == 0) {
        frontend->center->turn(1ms);
    }
    EXPECT_EQ(status, EXIT_SUCCESS);
}

// ---- Losses

TEST_F(DeliveryTest, DoesNotBroadcastData) {
    const auto frontend = makeFrontend();
    BusClient witness(backendName);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THAT(frontend->lastError, HasSubstr("no peer"));
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !witness.received.empty(); }, {processing(witness)}));
    EXPECT_EQ(witness.received.size(), 1U);
}

TEST_F(DeliveryTest, AnErrorReplyIsOneFailedSend) {
    for (const char *error : {SD_BUS_ERROR_SERVICE_UNKNOWN, SD_BUS_ERROR_NO_REPLY, SD_BUS_ERROR_ACCESS_DENIED,
                              SD_BUS_ERROR_LIMITS_EXCEEDED, "org.example.Error"}) {
        SCOPED_TRACE(error);
        const auto frontend = makeFrontend();
        BusClient backend(backendName);
        introduce(*frontend, backend);
        frontend->post("writePipe", patternOf(16));
        ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
        backend.answerWithError(backend.received.front().get(), error);
        frontend->center->turn(50ms);
        EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr(error)));
        EXPECT_TRUE(frontend->tryPost("readPipe")) << "a lost block is not a command's failure";
        EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
        EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16))) << "one failure for one loss";
    }
}

TEST_F(DeliveryTest, ARefusedBlockFailsTheWaitForDelivery) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    frontend->post("writePipe", patternOf(16));
    std::size_t answeredCalls = 0;
    frontend->isCancelled = [&] {
        backend.process();
        if (answeredCalls < backend.received.size()) {
            sd_bus_message *call = backend.received[answeredCalls].get();
            answeredCalls++ == 0 ? backend.answerWithError(call, SD_BUS_ERROR_FAILED) : backend.answer(call);
        }
        return false;
    };
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_EQ(answeredCalls, 2U) << "it waits for all of them";
    EXPECT_TRUE(frontend->center->waitForDelivery());
}

TEST_F(DeliveryTest, ALostCommandIsTheNextCommandsFailureAndNoBlocks) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    introduce(*frontend, backend);
    frontend->post("readPipe");
    EXPECT_TRUE(frontend->center->waitForDelivery()) << "commands are not waited for";
    ASSERT_TRUE(runUntil([&] { return !backend.received.empty(); }, {processing(backend)}));
    backend.answerWithError(backend.received.front().get(), SD_BUS_ERROR_FAILED);
    frontend->center->turn(50ms);
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_TRUE(frontend->tryPost("readPipe"));
}

TEST_F(DeliveryTest, BlocksThatADepartedPeerDidNotTakeAreFailedSends) {
    const auto frontend = makeFrontend();
    auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("writePipe", patternOf(16));
    backend.reset();
    EXPECT_FALSE(frontend->center->waitForDelivery());
}

TEST_F(DeliveryTest, BlocksThatAReplacedPeerDidNotTakeAreFailedSends) {
    const auto frontend = makeFrontend();
    BusClient older(backendName);
    introduce(*frontend, older);
    frontend->post("writePipe", patternOf(16));
    const auto newer = makeBackend();
    newer->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return frontend->received.size() == 1; }, {turning(*frontend)}));
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(DeliveryTest, ABusThatDiesIsAFailedSendForWhatWasUnderWayAndForWhatComes) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    frontend->post("writePipe", patternOf(16));
    bus.kill();
    frontend->center->turn(20ms);
    EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr("the system bus is lost")));
    EXPECT_FALSE(frontend->center->waitForDelivery());
    EXPECT_FALSE(frontend->tryPost("readPipe"));
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_THROW(frontend->center->startObserving("x", backendCommands, [](const Notification &) {}),
                 NotificationError);
}

TEST_F(DeliveryTest, APostIntoABusThatHasJustDiedFails) {
    const auto frontend = makeFrontend();
    const auto backend = makeBackend();
    introduce(*frontend, *backend);
    bus.kill();
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)) && frontend->center->waitForDelivery());
}

} // namespace
} // namespace veltrin::platform
