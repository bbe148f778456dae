#include "platform/linux/TrustedUser.h"
#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pwd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class SenderTrustTest : public OnPrivateBus {};

// ---- Who takes part

TEST(TrustedUserTest, IsRootOrOneselfAndForRootTheScheduler) {
    constexpr uid_t scheduler = 7;
    constexpr uid_t somebody = 1000;
    constexpr auto nobody = static_cast<uid_t>(-1);

    struct Case {
        uid_t peer;
        uid_t own;
        bool isTrusted;
    };

    for (const Case &one : std::vector<Case>{{0, scheduler, true},
                                             {0, somebody, true},
                                             {0, 0, true},
                                             {scheduler, scheduler, true},
                                             {somebody, somebody, true},
                                             {scheduler, 0, true},
                                             {somebody, 0, false},
                                             {nobody, 0, false},
                                             {somebody, scheduler, false},
                                             {scheduler, somebody, false},
                                             {nobody, scheduler, false}}) {
        EXPECT_EQ(isTrustedUser(one.peer, one.own, scheduler), one.isTrusted) << one.peer << " " << one.own;
    }
    EXPECT_FALSE(isTrustedUser(scheduler, 0, std::nullopt));
    EXPECT_TRUE(isTrustedUser(0, 0, std::nullopt));
}

/// Only root can play the others' part; anybody else plays their own, which is trusted.
TEST_F(SenderTrustTest, TakesTheSchedulersUserByDefaultAndNobodyElse) {
    const bool isRoot = geteuid() == 0;
    for (const char *name : {VELTRIN_SCHEDULER_USER, "nobody"}) {
        const passwd *user = getpwnam(name);
        ASSERT_NE(user, nullptr);
        const bool isTrusted = !isRoot || std::string(name) == VELTRIN_SCHEDULER_USER;
        const auto frontend = makeFrontend();
        const pid_t child = fork();
        if (child == 0) {
            if (!isRoot || setuid(user->pw_uid) == 0) {
                const auto backend = makeBackend();
                backend->post("backend-alive");
                pause();
            }
            _exit(1);
        }
        EXPECT_TRUE(runUntil([&] { return !frontend->received.empty() || !frontend->reports.empty(); },
                             {turning(*frontend)}));
        EXPECT_EQ(frontend->objects(),
                  isTrusted ? std::vector<std::string>{"backend-alive"} : std::vector<std::string>());
        if (!isTrusted) {
            EXPECT_THAT(frontend->reports,
                        ElementsAre(HasSubstr(": the user nobody may not take part with the user root")));
        }
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
}

TEST_F(SenderTrustTest, RefusesPeersOfAnotherUser) {
    std::vector<uid_t> asked;
    const auto frontend = makeFrontend([&](uid_t user) {
        asked.push_back(user);
        return false;
    });
    frontend->post("fronted-alive");
    BusClient stranger(backendName);
    const std::string path = notificationPath(frontendName);
    stranger.signal(path, notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(runUntil([&] { return !frontend->reports.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(asked, ElementsAre(geteuid()));
    const std::string own = getpwuid(geteuid())->pw_name;
    const std::string reason = "the user " + own + " may not take part with the user " + own;
    EXPECT_THAT(frontend->reports, ElementsAre("refused " + stranger.uniqueName() + ": " + reason));
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !stranger.received.empty(); }, {processing(stranger)}));
    EXPECT_GT(sd_bus_message_is_signal(stranger.received.front().get(), nullptr, nullptr), 0)
        << "it must not have become the peer";
    stranger.call(sd_bus_message_get_sender(stranger.received.front().get()), path,
                  notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(
        runUntil([&] { return !stranger.replies.empty(); }, {turning(*frontend), processing(stranger)}));
    EXPECT_THAT(stranger.replies, ElementsAre(SD_BUS_ERROR_ACCESS_DENIED));
    EXPECT_THAT(stranger.replyTexts, ElementsAre(reason)) << "who is refused can read why";
    EXPECT_THAT(frontend->received, IsEmpty());
    EXPECT_EQ(frontend->reports.size(), 1U) << "a stranger is reported once";
}

TEST_F(SenderTrustTest, RefusesPeersWhomItLacksTheMemoryToJudge) {
    const auto frontend = makeFrontend([](uid_t /*user*/) -> bool { throw std::bad_alloc(); });
    BusClient backend(backendName);
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    ASSERT_TRUE(runUntil([&] { return !frontend->reports.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->reports, ElementsAre("refused a sender: not enough memory"));
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_EQ(frontend->lastError, "there is no peer yet to send data to");
}

TEST_F(SenderTrustTest, HearsNoProcessThatItsOwnerObjectsTo) {
    std::vector<pid_t> asked;
    std::vector<std::string> objections = {"it is another's", ""};
    std::vector<std::string> reports;
    std::string problem;
    const auto backend = DBusNotificationCenter::connect(
        {.isCancelled = [] { return false; },
         .report = [&reports](const std::string &line) { reports.push_back(line); },
         .objectionTo =
             [&](pid_t process) {
                 asked.push_back(process);
                 return asked.size() <= objections.size() ? objections[asked.size() - 1] : "asked too often";
             }},
        problem);
    ASSERT_NE(backend, nullptr) << problem;
    std::vector<std::string> received;
    backend->startObserving(backendName, frontendCommands, [&](const Notification &notification) {
        received.push_back(notification.object.value_or(""));
    });
    const std::function<void()> turn = [&] { backend->turn(1ms); };

    const auto stranger = makeFrontend();
    stranger->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !reports.empty(); }, {turn}));
    EXPECT_THAT(reports, ElementsAre(testing::EndsWith(": it is another's")));
    EXPECT_THAT(received, IsEmpty());
    EXPECT_EQ(backend->peerProcess(), std::nullopt);

    const auto own = makeFrontend();
    own->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !received.empty(); }, {turn}));
    EXPECT_THAT(received, ElementsAre("fronted-alive"));
    EXPECT_THAT(asked, ElementsAre(getpid(), getpid()));
    EXPECT_EQ(reports.size(), 1U);

    EXPECT_EQ(backend->peerProcess(), getpid());
    own->post("frontend-byebye");
    ASSERT_TRUE(runUntil([&] { return received.size() == 2; }, {turn}));
    EXPECT_EQ(backend->peerProcess(), std::nullopt) << "it has gone";
}

TEST_F(SenderTrustTest, AnAnnouncementOfAStrangerChangesNothingBeforeAPost) {
    const auto frontend = makeFrontend([](uid_t user) { return user != getuid(); });
    BusClient backend(backendName);
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    backend.waitForBus();
    letArrive(*frontend);
    EXPECT_FALSE(frontend->tryPost("writePipe", patternOf(16)));
    EXPECT_EQ(frontend->lastError, "there is no peer yet to send data to");
}

// ---- Strangers who speak in another's name

/// On a bus that lets everybody answer what others were asked, which no system bus does, and dbus-broker
/// cannot be told to.
class AmongStrangers : public testing::Test {
  protected:
    static constexpr const char *everybodysReplies = R"(
        <policy context="default">
          <allow send_requested_reply="false" send_type="method_return"/>
          <allow receive_requested_reply="false" receive_type="method_return"/>
        </policy>)";
    PrivateBus bus{std::string(PrivateBus::openPolicy) +
                   (test::busKind() == BusKind::daemon ? everybodysReplies : "")};
};

TEST_F(AmongStrangers, OnlyTheBusIsBelievedThatAPeerHasLeft) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    BusClient stranger("somebody else");
    stranger.forgeDeparture(destination, backend.uniqueName());
    stranger.waitForBus();
    backend.signal(notificationPath(frontendName), notificationArguments(frontendName, "readPipe"));
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    EXPECT_THAT(frontend->objects(), ElementsAre("readPipe"));
    EXPECT_TRUE(frontend->tryPost("writePipe", patternOf(16)));
}

TEST_F(AmongStrangers, OnlyTheReceiverIsBelievedThatItHasTakenABlock) {
    const auto frontend = makeFrontend();
    BusClient backend(backendName);
    const std::string destination = introduce(*frontend, backend);
    frontend->post("writePipe", patternOf(16));
    BusClient stranger("somebody else");
    stranger.forgeReplies(destination);
    stranger.waitForBus();
    int questions = 0;
    frontend->isCancelled = [&] { return ++questions > 20; };
    const bool isDelivered = frontend->center->waitForDelivery();
    if (test::busKind() == BusKind::broker) {
        // This bus passes nobody's replies on but the receiver's: the block is as unanswered as before.
        EXPECT_EQ(questions, 21);
        EXPECT_THAT(frontend->reports, IsEmpty());
    } else {
        EXPECT_FALSE(isDelivered);
        EXPECT_THAT(frontend->reports,
                    ElementsAre("a notification was answered by somebody else than its receiver"));
    }
}

TEST_F(AmongStrangers, OnlyTheBusIsBelievedWhoseNotificationItIs) {
    constexpr uid_t trusted = 4711;
    const auto frontend = makeFrontend([](uid_t user) { return user == trusted; });
    BusClient witness(backendName);
    frontend->post("fronted-alive");
    ASSERT_TRUE(runUntil([&] { return !witness.received.empty(); }, {processing(witness)}));
    const std::string destination = sd_bus_message_get_sender(witness.received.back().get());
    BusClient stranger("somebody else");
    // The replies are there before the bus can answer the question that this notification raises.
    stranger.signal(notificationPath(frontendName), notificationArguments(frontendName, "backend-alive"));
    stranger.forgeReplies(destination, trusted);
    stranger.waitForBus();
    ASSERT_TRUE(runUntil([&] { return !frontend->reports.empty() || !frontend->received.empty(); },
                         {turning(*frontend)}));
    EXPECT_THAT(frontend->received, IsEmpty());
    EXPECT_THAT(frontend->reports, ElementsAre(HasSubstr("may not take part")));
}

} // namespace
} // namespace veltrin::platform
