#include "ipc/FrontendIPC.h"

#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::IsEmpty;
using Block = test::FakeNotificationCenter::Block;
using Post = test::FakeNotificationCenter::Post;

constexpr const char *port = "usb://Veltrin/C200?serial=A%20B'1\\,2";

Block blockOf(std::string_view text) {
    Block block(text.size());
    std::memcpy(block.data(), text.data(), text.size());
    return block;
}

const Block statusRecord = blockOf("GDIR and sixty bytes more");

std::vector<std::string> repeated(int count, const std::vector<std::string> &lines) {
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) {
        result.insert(result.end(), lines.begin(), lines.end());
    }
    return result;
}

std::vector<std::string> joined(const std::vector<std::vector<std::string>> &parts) {
    std::vector<std::string> result;
    for (const auto &part : parts) {
        result.insert(result.end(), part.begin(), part.end());
    }
    return result;
}

class RecordingDelegate final : public FrontendIPCDelegate {
  public:
    void ipcReady(FrontendIPC &ipc) override {
        readyFrom = &ipc;
        ++readyCount;
    }

    void ipcClosed(FrontendIPC & /*ipc*/) override { ++closedCount; }

    [[nodiscard]] std::int32_t readRetryCount() override {
        ++retryQuestions;
        return 5;
    }

    FrontendIPC *readyFrom = nullptr;
    int readyCount = 0;
    int closedCount = 0;
    int retryQuestions = 0;
};

/// Implements only what it must.
class SilentDelegate final : public FrontendIPCDelegate {
  public:
    [[nodiscard]] std::int32_t readRetryCount() override { return 5; }
};

/// The log captures the channel's lines, and between them what the notification center is asked to do.
class FrontendIPCTest : public testing::Test {
  protected:
    FrontendIPCTest() {
        center.trace = [](const std::string &line) { CPSDebugLog("[%s]", line.c_str()); };
    }

    std::unique_ptr<FrontendIPC> makeChannel(double timeout = 0.0) {
        return FrontendIPC::initWithPortName(port, &delegate, timeout, platform, [] { return false; });
    }

    /// A channel whose backend announced itself in the turn after the filter's own announcement.
    std::unique_ptr<FrontendIPC> makeReadyChannel() {
        center.deliver("backend-alive");
        std::unique_ptr<FrontendIPC> channel = makeChannel();
        EXPECT_NE(channel, nullptr);
        forget();
        return channel;
    }

    void makeBackendLeave(FrontendIPC &channel) {
        center.deliver("backend-byebye");
        EXPECT_TRUE(channel.sendData(statusRecord));
        forget();
    }

    void forget() {
        log.clear();
        center.posts.clear();
        center.turns.clear();
    }

    /// Answers every request with this reply, `delay` after it was posted.
    void answerRequests(const std::optional<Block> &reply, std::chrono::microseconds delay = {}) {
        center.afterPost = [this, reply, delay](const Post &post) {
            if (post.object == "readPipe") {
                center.deliver("readPipe", reply, delay);
            }
        };
    }

    test::CapturedLog log;
    test::FakePlatform platform;
    test::FakeNotificationCenter &center = platform.fakeNotificationCenter;
    RecordingDelegate delegate;
    std::optional<Block> record;

    const std::string frontend = std::string(port) + ".frontend";
    const std::string backend = std::string(port) + ".backend";
    const std::string sendWaits = "FrontendIPC sendData: waiting for backend alive...";
    const std::string readWaits = "FrontendIPC waiting for backend alive...";
};

// ---- Announcing

TEST_F(FrontendIPCTest, AnnouncesItselfAndWaitsForTheBackend) {
    center.deliver("backend-alive", std::nullopt, 500ms);
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC initWithPortName: port name is: " + std::string(port),
                            "[observe " + frontend + "]", "[post " + backend + " fronted-alive]",
                            "[turn after post 100 ms]", sendWaits, "[turn 300 ms]", sendWaits,
                            "[turn 300 ms]", "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-alive"));
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "fronted-alive", std::nullopt}));
    EXPECT_EQ(platform.fakeClock.now, 500ms);
}

TEST_F(FrontendIPCTest, TakesABackendThatAnswersDuringTheAnnouncementsOwnTurn) {
    center.deliver("backend-alive", std::nullopt, 100ms);
    EXPECT_NE(makeChannel(), nullptr);
    EXPECT_THAT(center.turns, ElementsAre(100ms));
}

TEST_F(FrontendIPCTest, TellsTheCenterByWhichObjectsTheBackendComesAndGoes) {
    const auto channel = makeReadyChannel();
    EXPECT_EQ(center.peerCommands.announcement, "backend-alive");
    EXPECT_EQ(center.peerCommands.farewell, "backend-byebye");
}

TEST_F(FrontendIPCTest, GivesUpAfterAHundredTurnsWithoutABackend) {
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_THAT(
        log.messages(),
        ElementsAreArray(joined({
            {"FrontendIPC initWithPortName: port name is: " + std::string(port), "[observe " + frontend + "]",
             "[post " + backend + " fronted-alive]", "[turn after post 100 ms]"},
            repeated(100, {sendWaits, "[turn 300 ms]"}),
            {"[post " + backend + " frontend-byebye]", "[turn after post 100 ms]",
             "FrontendIPC server exit: " + frontend, "FrontendIPC dealloc:", "[stop observing]"},
        })));
    EXPECT_EQ(platform.fakeClock.now, 30200ms);
}

TEST_F(FrontendIPCTest, ABackendThatAnswersInTheVeryLastTurnIsTooLate) {
    center.deliver("backend-alive", std::nullopt, 100ms + 99 * 300ms + 1ms);
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_EQ(center.posts.back().object, "frontend-byebye");
}

TEST_F(FrontendIPCTest, ABackendThatAnswersInTheLastButOneTurnIsInTime) {
    center.deliver("backend-alive", std::nullopt, 100ms + 99 * 300ms);
    EXPECT_NE(makeChannel(), nullptr);
    EXPECT_EQ(center.turns.size(), 1U + 99U);
}

TEST_F(FrontendIPCTest, TheTimeoutChangesNothing) {
    for (const double timeout :
         {0.0, -1.0, 0.001, 1e9, std::numeric_limits<double>::infinity(), std::nan("")}) {
        center.turns.clear();
        EXPECT_EQ(makeChannel(timeout), nullptr) << timeout;
        EXPECT_EQ(center.turns.size(), 102U) << timeout;
    }
}

TEST_F(FrontendIPCTest, FailsAtOnceWhereThereIsNoNotificationCenter) {
    center.connectProblem = "no such bus";
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC initWithPortName: port name is: " + std::string(port),
                            "FrontendIPC initWithPortName: no notification center: no such bus",
                            "FrontendIPC server exit: " + frontend, "FrontendIPC dealloc:"));
}

TEST_F(FrontendIPCTest, FailsAtOnceWithANameThatCannotBeCarried) {
    center.observeProblem = "the name 100%s is no text";
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_THAT(log.messages(), testing::Contains("FrontendIPC initWithPortName: the name 100%s is no text"));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(center.turns, IsEmpty());
}

TEST_F(FrontendIPCTest, ReportsOfTheCenterGoToTheLogAsTheyStand) {
    const auto channel = makeReadyChannel();
    center.client.report("dropped 100%n of %s");
    EXPECT_THAT(log.messages(), ElementsAre("FrontendIPC: dropped 100%n of %s"));
}

TEST_F(FrontendIPCTest, HandsTheQuestionForCancellationToTheCenter) {
    bool isCancelled = false;
    center.deliver("backend-alive");
    const auto channel =
        FrontendIPC::initWithPortName(port, &delegate, 0.0, platform, [&] { return isCancelled; });
    EXPECT_FALSE(center.client.isCancelled());
    isCancelled = true;
    EXPECT_TRUE(center.client.isCancelled());
}

TEST_F(FrontendIPCTest, AFailedAnnouncementIsLoggedAndTheBackendIsWaitedForAllTheSame) {
    center.failsPosts = true;
    center.deliver("backend-alive");
    EXPECT_NE(makeChannel(), nullptr);
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({std::string("FrontendIPC postNotificationCommand: Catch Exception!"),
                                       std::string("FrontendIPC: the test lets posts fail"), sendWaits}));
    EXPECT_THAT(center.turns, ElementsAre(300ms));
}

TEST_F(FrontendIPCTest, AnExceptionWhileItWaitsForTheBackendMakesNoChannel) {
    center.failsTurns = true;
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_THAT(log.messages(), testing::Contains("FrontendIPC initWithPortName: the test lets turns fail"));
}

// ---- The delegate

TEST_F(FrontendIPCTest, TellsTheDelegateAtALaterTurnThatTheBackendIsReady) {
    center.deliver("backend-alive");
    const auto channel = makeChannel();
    EXPECT_EQ(delegate.readyCount, 0);
    EXPECT_TRUE(channel->sendData({}));
    EXPECT_EQ(delegate.readyCount, 1);
    EXPECT_EQ(delegate.readyFrom, channel.get());
}

TEST_F(FrontendIPCTest, OffersItAgainWithEveryAnnouncement) {
    const auto channel = makeReadyChannel();
    for (int announcements = 2; announcements <= 4; ++announcements) {
        center.deliver("backend-alive");
        EXPECT_TRUE(channel->sendData({}));
        EXPECT_TRUE(channel->sendData({}));
        EXPECT_EQ(delegate.readyCount, announcements);
    }
}

TEST_F(FrontendIPCTest, AStoppedChannelNoLongerOffersIt) {
    const auto channel = makeReadyChannel();
    EXPECT_TRUE(channel->sendData({}));
    center.deliver("backend-alive");
    channel->stop();
    channel->stop(); // one more turn, for what may be queued
    EXPECT_EQ(delegate.readyCount, 1);
}

TEST_F(FrontendIPCTest, NeverTellsTheDelegateThatItIsClosed) {
    auto channel = makeReadyChannel();
    channel->stop();
    channel->stop();
    channel.reset();
    EXPECT_EQ(delegate.closedCount, 0);
}

TEST_F(FrontendIPCTest, NeverAsksForTheRetryCount) {
    const auto channel = makeReadyChannel();
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(delegate.retryQuestions, 0);
}

TEST_F(FrontendIPCTest, WorksWithADelegateThatIsSilentOrMissing) {
    SilentDelegate silent;
    for (FrontendIPCDelegate *owner :
         {static_cast<FrontendIPCDelegate *>(&silent), static_cast<FrontendIPCDelegate *>(nullptr)}) {
        center.deliver("backend-alive");
        const auto channel = FrontendIPC::initWithPortName(port, owner, 0.0, platform, [] { return false; });
        ASSERT_NE(channel, nullptr);
        EXPECT_TRUE(channel->sendData({}));
        channel->stop();
    }
}

// ---- Sending

TEST_F(FrontendIPCTest, SendsABlockAsOneNotification) {
    const auto channel = makeReadyChannel();
    const Block block = blockOf("GDIC GDIREND    ");
    EXPECT_TRUE(channel->sendData(block));
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "writePipe", block}));
    EXPECT_THAT(log.messages(), ElementsAre("[post " + backend + " writePipe]", "[turn after post 10 ms]",
                                            "FrontendIPC sendData: sending 16 bytes to backend"));
}

TEST_F(FrontendIPCTest, SendsBlocksOfAnySizeWhole) {
    const auto channel = makeReadyChannel();
    for (const std::size_t size :
         {std::size_t{0}, std::size_t{1}, std::size_t{65536}, std::size_t{3000000}}) {
        forget();
        const Block block(size, std::byte{0xA5});
        EXPECT_TRUE(channel->sendData(block));
        EXPECT_THAT(center.posts, ElementsAre(Post{backend, "writePipe", block}));
        EXPECT_EQ(log.messages().back(),
                  "FrontendIPC sendData: sending " + std::to_string(size) + " bytes to backend");
    }
}

TEST_F(FrontendIPCTest, ABlockWaitsForABackendWhoseGoodbyeHasComeInButIsNotHeardYet) {
    const auto channel = makeReadyChannel();
    center.holdsPosts = true;
    center.deliver("backend-byebye");
    center.deliver("backend-alive", std::nullopt, 500ms);
    const Block block = blockOf("page data");
    EXPECT_TRUE(channel->sendData(block));
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "writePipe", block}));
    EXPECT_THAT(
        log.messages(),
        ElementsAre("[post " + backend + " writePipe]", "[turn 0 ms]", "FrontendIPC::handleNotification",
                    "FrontendIPC::handleNotification:backend-byebye", sendWaits, "[turn 300 ms]", sendWaits,
                    "[turn 300 ms]", "FrontendIPC::handleNotification",
                    "FrontendIPC::handleNotification:backend-alive", "[post " + backend + " writePipe]",
                    "[turn after post 10 ms]", "FrontendIPC sendData: sending 9 bytes to backend"));
}

TEST_F(FrontendIPCTest, ARequestWaitsForABackendWhoseGoodbyeHasComeInButIsNotHeardYet) {
    const auto channel = makeReadyChannel();
    center.holdsPosts = true;
    center.deliver("backend-byebye");
    center.deliver("backend-alive", std::nullopt, 500ms);
    answerRequests(statusRecord);
    EXPECT_TRUE(channel->readData(record));
    EXPECT_EQ(record, statusRecord);
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "readPipe", std::nullopt}));
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]", "[turn 0 ms]",
                            "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-byebye", readWaits, "[turn 300 ms]",
                            readWaits, "[turn 300 ms]", "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-alive",
                            "[post " + backend + " readPipe]", "[turn after post 100 ms]",
                            "FrontendIPC::handleNotification", "FrontendIPC readData Completed"));
}

TEST_F(FrontendIPCTest, TheGoodbyeGoesOutOnceTheBackendsHasBeenHeard) {
    const auto channel = makeReadyChannel();
    center.holdsPosts = true;
    center.deliver("backend-byebye");
    channel->stop();
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "frontend-byebye", std::nullopt}));
}

TEST_F(FrontendIPCTest, ABlockWaitsForABackendThatLeavesWhileThereIsNoRoomForIt) {
    const auto channel = makeReadyChannel();
    center.leavesDuringPosts = 1;
    center.deliver("backend-alive", std::nullopt, 500ms);
    const Block block = blockOf("page data");
    EXPECT_TRUE(channel->sendData(block));
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "writePipe", block}));
    EXPECT_THAT(log.messages(),
                ElementsAre("[post " + backend + " writePipe]", "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-byebye", sendWaits, "[turn 300 ms]",
                            sendWaits, "[turn 300 ms]", "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-alive",
                            "[post " + backend + " writePipe]", "[turn after post 10 ms]",
                            "FrontendIPC sendData: sending 9 bytes to backend"));

    center.leavesDuringPosts = 1;
    center.posts.clear();
    center.turns.clear();
    EXPECT_FALSE(channel->sendData(block)) << "it does not come back";
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_EQ(center.turns.size(), 100U);
}

TEST_F(FrontendIPCTest, ASendWaitsForABackendThatComesBack) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    center.deliver("backend-alive", std::nullopt, 29s);
    EXPECT_TRUE(channel->sendData(statusRecord));
    EXPECT_THAT(log.messages(),
                ElementsAreArray(joined({
                    repeated(97, {sendWaits, "[turn 300 ms]"}),
                    {"FrontendIPC::handleNotification", "FrontendIPC::handleNotification:backend-alive",
                     "[post " + backend + " writePipe]", "[turn after post 10 ms]",
                     "FrontendIPC sendData: sending 25 bytes to backend"},
                })));
}

TEST_F(FrontendIPCTest, ASendFailsWhenTheBackendStaysAway) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    EXPECT_FALSE(channel->sendData(statusRecord));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(log.messages(), ElementsAreArray(repeated(100, {sendWaits, "[turn 300 ms]"})));
}

TEST_F(FrontendIPCTest, ASendFailsWhenTheBackendComesBackInTheVeryLastTurn) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    center.deliver("backend-alive", std::nullopt, 99 * 300ms + 1ms);
    EXPECT_FALSE(channel->sendData(statusRecord));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_TRUE(channel->sendData(statusRecord)); // it is there, after all
}

TEST_F(FrontendIPCTest, ABlockThatCannotBePostedIsAFailedSend) {
    const auto channel = makeReadyChannel();
    center.failsPosts = true;
    EXPECT_FALSE(channel->sendData(statusRecord));
    EXPECT_THAT(log.messages(), ElementsAre("[post " + backend + " writePipe]",
                                            "FrontendIPC postNotificationSendData: Catch Exception!",
                                            "FrontendIPC: the test lets posts fail",
                                            "FrontendIPC sendData: sending 25 bytes to backend"));
    center.failsPosts = false;
    EXPECT_TRUE(channel->sendData(statusRecord));
}

TEST_F(FrontendIPCTest, AnExceptionWhileASendWaitsIsAFailedSend) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    center.failsTurns = true;
    EXPECT_FALSE(channel->sendData(statusRecord));
    EXPECT_THAT(log.messages(),
                ElementsAre(sendWaits, "[turn 300 ms]", "FrontendIPC sendData: Catch Exception!",
                            "FrontendIPC: the test lets turns fail"));
}

TEST_F(FrontendIPCTest, WaitsForDeliveryAsTheCenterSays) {
    const auto channel = makeReadyChannel();
    EXPECT_TRUE(channel->waitForDelivery());
    center.isDelivered = false;
    EXPECT_FALSE(channel->waitForDelivery());
    EXPECT_EQ(center.deliveryWaits, 2);
    center.isDelivered = true;
    center.failsWaits = true;
    EXPECT_FALSE(channel->waitForDelivery());
    EXPECT_THAT(log.messages(), ElementsAre("FrontendIPC waitForDelivery: Catch Exception!",
                                            "FrontendIPC: the test lets waits fail"));
}

// ---- Reading

TEST_F(FrontendIPCTest, ReadsAReplyThatComesDuringTheRequestsOwnTurn) {
    const auto channel = makeReadyChannel();
    answerRequests(statusRecord, 100ms);
    EXPECT_TRUE(channel->readData(record));
    EXPECT_EQ(record, statusRecord);
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "readPipe", std::nullopt}));
    EXPECT_THAT(log.messages(), ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]",
                                            "[turn after post 100 ms]", "FrontendIPC::handleNotification",
                                            "FrontendIPC readData Completed"));
}

TEST_F(FrontendIPCTest, WaitsForALaterReply) {
    const auto channel = makeReadyChannel();
    answerRequests(statusRecord, 500ms);
    EXPECT_TRUE(channel->readData(record));
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]",
                            "[turn after post 100 ms]", "FrontendIPC waiting data...", "[turn 300 ms]",
                            "FrontendIPC waiting data...", "[turn 300 ms]", "FrontendIPC::handleNotification",
                            "FrontendIPC readData Completed"));
}

TEST_F(FrontendIPCTest, AReadFailsAfterTwentyTurnsWithoutAReply) {
    const auto channel = makeReadyChannel();
    record = statusRecord;
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(record, std::nullopt);
    EXPECT_THAT(log.messages(),
                ElementsAreArray(joined({
                    {"FrontendIPC readData", "[post " + backend + " readPipe]", "[turn after post 100 ms]"},
                    repeated(20, {"FrontendIPC waiting data...", "[turn 300 ms]"}),
                    {"FrontendIPC readData failed!", "FrontendIPC readData Completed"},
                })));
}

TEST_F(FrontendIPCTest, AReplyInTheVeryLastTurnIsTooLateAndInTheOneBeforeInTime) {
    const auto channel = makeReadyChannel();
    answerRequests(statusRecord, 100ms + 19 * 300ms);
    EXPECT_TRUE(channel->readData(record));
    answerRequests(statusRecord, 100ms + 19 * 300ms + 1ms);
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(record, std::nullopt);
}

TEST_F(FrontendIPCTest, AnEmptyReplyIsAFailureAtOnce) {
    const auto channel = makeReadyChannel();
    for (const std::optional<Block> &reply : {std::optional(Block()), std::optional<Block>()}) {
        forget();
        answerRequests(reply);
        EXPECT_FALSE(channel->readData(record));
        EXPECT_EQ(record, std::nullopt);
        EXPECT_THAT(log.messages(),
                    ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]",
                                "[turn after post 100 ms]", "FrontendIPC::handleNotification",
                                "FrontendIPC readData failed!", "FrontendIPC readData Completed"));
    }
}

TEST_F(FrontendIPCTest, AReplyWithoutDataEffacesTheOneBefore) {
    const auto channel = makeReadyChannel();
    answerRequests(statusRecord);
    EXPECT_TRUE(channel->readData(record));
    answerRequests(std::nullopt);
    EXPECT_FALSE(channel->readData(record));
}

TEST_F(FrontendIPCTest, AReplyThatCameTooLateIsNotTakenForTheNextRequests) {
    const auto channel = makeReadyChannel();
    EXPECT_FALSE(channel->readData(record));
    center.deliver("readPipe", blockOf("late"));
    EXPECT_TRUE(channel->sendData({})); // the late reply comes in here
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(record, std::nullopt);
}

TEST_F(FrontendIPCTest, AnyReplyThatComesInAfterTheRequestBeganIsItsAnswer) {
    const auto channel = makeReadyChannel();
    center.deliver("readPipe", blockOf("late"));
    EXPECT_TRUE(channel->readData(record));
    EXPECT_EQ(record, blockOf("late"));
}

TEST_F(FrontendIPCTest, ARecordReadStaysWhatItWas) {
    const auto channel = makeReadyChannel();
    answerRequests(blockOf("first"));
    EXPECT_TRUE(channel->readData(record));
    center.deliver("readPipe", blockOf("other"));
    EXPECT_TRUE(channel->sendData({}));
    EXPECT_EQ(record, blockOf("first"));
}

TEST_F(FrontendIPCTest, AReadWaitsForABackendThatComesBack) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    center.deliver("backend-alive", std::nullopt, 400ms);
    answerRequests(statusRecord);
    EXPECT_TRUE(channel->readData(record));
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC readData", readWaits, "[turn 300 ms]", readWaits, "[turn 300 ms]",
                            "FrontendIPC::handleNotification",
                            "FrontendIPC::handleNotification:backend-alive",
                            "[post " + backend + " readPipe]", "[turn after post 100 ms]",
                            "FrontendIPC::handleNotification", "FrontendIPC readData Completed"));
}

TEST_F(FrontendIPCTest, AReadFailsWhenTheBackendStaysAway) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    EXPECT_FALSE(channel->readData(record));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(log.messages(), ElementsAreArray(joined({
                                    {"FrontendIPC readData"},
                                    repeated(100, {readWaits, "[turn 300 ms]"}),
                                    {"FrontendIPC readData Completed"},
                                })));
}

TEST_F(FrontendIPCTest, ARequestThatCannotBePostedIsWaitedForLikeOneThatIsNotAnswered) {
    const auto channel = makeReadyChannel();
    center.failsPosts = true;
    EXPECT_FALSE(channel->readData(record));
    EXPECT_THAT(log.messages(), ElementsAreArray(joined({
                                    {"FrontendIPC readData", "[post " + backend + " readPipe]",
                                     "FrontendIPC postNotificationCommand: Catch Exception!",
                                     "FrontendIPC: the test lets posts fail"},
                                    repeated(20, {"FrontendIPC waiting data...", "[turn 300 ms]"}),
                                    {"FrontendIPC readData failed!", "FrontendIPC readData Completed"},
                                })));
}

TEST_F(FrontendIPCTest, AnExceptionWhileAReadWaitsIsAFailedRead) {
    const auto channel = makeReadyChannel();
    center.failsTurns = true;
    record = statusRecord;
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(record, std::nullopt);
    EXPECT_THAT(
        log.messages(),
        ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]", "[turn after post 100 ms]",
                    "FrontendIPC postNotificationCommand: Catch Exception!",
                    "FrontendIPC: the test lets turns fail", "FrontendIPC waiting data...", "[turn 300 ms]",
                    "FrontendIPC readData: Catch Exception!", "FrontendIPC: the test lets turns fail"));
}

// ---- What else may come in

TEST_F(FrontendIPCTest, OtherNotificationsChangeNothing) {
    for (const std::optional<std::string> &object :
         {std::optional<std::string>(), std::optional<std::string>("writePipe"),
          std::optional<std::string>("fronted-alive"), std::optional<std::string>("Backend-byebye"),
          std::optional<std::string>("")}) {
        const auto channel = makeReadyChannel();
        center.deliver(object, blockOf("not a reply"));
        EXPECT_FALSE(channel->readData(record)) << object.value_or("a number");
        forget();
        EXPECT_TRUE(channel->sendData({}));
        EXPECT_THAT(center.turns, ElementsAre(10ms)) << "the backend counts as gone";
    }
}

TEST_F(FrontendIPCTest, LogsEveryNotificationAndTheOnesThatMatter) {
    const auto channel = makeReadyChannel();
    const std::vector<std::pair<std::optional<std::string>, std::vector<std::string>>> table = {
        {std::nullopt, {"FrontendIPC::handleNotification"}},
        {"writePipe", {"FrontendIPC::handleNotification"}},
        {"readPipe", {"FrontendIPC::handleNotification"}},
        {"backend-alive",
         {"FrontendIPC::handleNotification", "FrontendIPC::handleNotification:backend-alive"}},
        {"backend-byebye",
         {"FrontendIPC::handleNotification", "FrontendIPC::handleNotification:backend-byebye"}},
    };
    center.trace = [](const std::string &) {};
    for (const auto &[object, lines] : table) {
        forget();
        center.deliver(object);
        EXPECT_TRUE(channel->sendData({}));
        EXPECT_THAT(log.messages(), ElementsAreArray(joined({
                                        lines,
                                        {"FrontendIPC sendData: sending 0 bytes to backend"},
                                    })));
    }
}

TEST_F(FrontendIPCTest, AnExceptionWhileANotificationIsHandledGoesNoFurther) {
    const auto channel = makeReadyChannel();
    makeBackendLeave(*channel);
    center.failsToQueue = true; // what the delegate is to be told
    center.deliver("backend-alive");
    EXPECT_TRUE(channel->sendData(statusRecord)) << "the backend is back all the same";
    EXPECT_EQ(delegate.readyCount, 1);
    EXPECT_THAT(log.messages(), ElementsAre(sendWaits, "[turn 300 ms]", "FrontendIPC::handleNotification",
                                            "FrontendIPC::handleNotification:backend-alive",
                                            "FrontendIPC handleNotification: Catch Exception!",
                                            "FrontendIPC: the test lets functions be refused",
                                            "[post " + backend + " writePipe]", "[turn after post 10 ms]",
                                            "FrontendIPC sendData: sending 25 bytes to backend"));
}

// ---- Stopping

TEST_F(FrontendIPCTest, StopSaysGoodbye) {
    const auto channel = makeReadyChannel();
    channel->stop();
    EXPECT_THAT(center.posts, ElementsAre(Post{backend, "frontend-byebye", std::nullopt}));
    EXPECT_THAT(log.messages(),
                ElementsAre("[post " + backend + " frontend-byebye]", "[turn after post 100 ms]"));
}

TEST_F(FrontendIPCTest, AStoppedChannelNeitherSendsNorReadsNorWaits) {
    const auto channel = makeReadyChannel();
    channel->stop();
    forget();
    record = statusRecord;
    EXPECT_FALSE(channel->sendData(statusRecord));
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(record, std::nullopt);
    EXPECT_THAT(log.messages(), ElementsAre("FrontendIPC readData", "FrontendIPC readData Completed"));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(center.turns, IsEmpty());
}

TEST_F(FrontendIPCTest, AStoppedChannelDropsReplies) {
    const auto channel = makeReadyChannel();
    center.deliver("readPipe", statusRecord);
    channel->stop();
    EXPECT_FALSE(channel->readData(record));
    EXPECT_EQ(log.messages().back(), "FrontendIPC readData Completed");
}

TEST_F(FrontendIPCTest, AStopInTheMidstOfAWaitEndsIt) {
    class StoppingDelegate final : public FrontendIPCDelegate {
      public:
        void ipcReady(FrontendIPC &ipc) override { ipc.stop(); }

        [[nodiscard]] std::int32_t readRetryCount() override { return 5; }
    } stopping;

    center.deliver("backend-alive");
    const auto channel = FrontendIPC::initWithPortName(port, &stopping, 0.0, platform, [] { return false; });
    ASSERT_NE(channel, nullptr);
    log.clear();
    // The delegate is told, and stops the channel, in the turn that follows the request.
    EXPECT_FALSE(channel->readData(record));
    EXPECT_THAT(log.messages(),
                ElementsAre("FrontendIPC readData", "[post " + backend + " readPipe]",
                            "[turn after post 100 ms]", "[post " + backend + " frontend-byebye]",
                            "[turn after post 100 ms]", "FrontendIPC readData failed!",
                            "FrontendIPC readData Completed"));
}

TEST_F(FrontendIPCTest, AcknowledgementsAreAlwaysThere) {
    const auto channel = makeReadyChannel();
    EXPECT_TRUE(channel->sendAck());
    EXPECT_TRUE(channel->eojAck());
    makeBackendLeave(*channel);
    EXPECT_TRUE(channel->eojAck());
    channel->stop();
    forget();
    EXPECT_TRUE(channel->sendAck());
    EXPECT_TRUE(channel->eojAck());
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(center.turns, IsEmpty());
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(FrontendIPCTest, ItsEndStopsObservingAndPostsNothing) {
    auto channel = makeReadyChannel();
    channel.reset();
    EXPECT_THAT(log.messages(), ElementsAre("FrontendIPC server exit: " + frontend,
                                            "FrontendIPC dealloc:", "[stop observing]"));
    EXPECT_THAT(center.posts, IsEmpty());
    EXPECT_THAT(center.turns, IsEmpty());
}

} // namespace
} // namespace veltrin
