#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <thread>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;
using namespace test;
using testing::ElementsAre;
using testing::IsEmpty;

class PresentComesFirst : public OnPrivateBus {
  protected:
    void announce(BusClient &host) const {
        host.signal(notificationPath(backendName), notificationArguments(backendName, "fronted-alive"));
        host.waitForBus();
        letArrive(backend);
    }

    void sayGoodbye(BusClient &host) const {
        host.call(uniqueName, notificationPath(backendName),
                  notificationArguments(backendName, "frontend-byebye"));
        host.waitForBus();
        letArrive(backend);
    }

    /// Has the backend hear the first host.
    void introduceFirst() {
        announce(first);
        turnUntilHeard(1);
        backend.post("backend-alive");
        ASSERT_TRUE(first.awaitReceived(1));
        uniqueName = sd_bus_message_get_sender(first.received.front().get());
        first.answer(first.received.front().get());
    }

    void turnUntilHeard(std::size_t count) {
        EXPECT_TRUE(runUntil([&] { return backend.received.size() == count; }, {turning(backend)}));
    }

    /// Lets everything be heard that has come in.
    void turnALot() const {
        for (int i = 0; i < 50; ++i) {
            backend.center->turn(1ms);
        }
    }

    End backend{backendName, frontendName, {"fronted-alive", "frontend-byebye", true}};
    BusClient first{frontendName};
    BusClient second{frontendName};
    BusClient third{frontendName};
    std::string uniqueName; // of the backend
};

TEST_F(PresentComesFirst, OthersAreHeardAfterItsGoodbyeInTheirOrder) {
    introduceFirst();
    announce(second);
    announce(third);
    turnALot();
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive"));
    EXPECT_THAT(backend.reports, ElementsAre(second.uniqueName() + " has announced itself and waits until " +
                                                 first.uniqueName() + " has left",
                                             third.uniqueName() + " has announced itself and waits until " +
                                                 first.uniqueName() + " has left"));
    backend.post("readPipe"); // still to the first
    EXPECT_TRUE(first.awaitReceived(2));

    sayGoodbye(first);
    turnALot();
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("readPipe");
    EXPECT_TRUE(second.awaitReceived(1));

    sayGoodbye(second);
    turnUntilHeard(5);
    backend.post("readPipe");
    EXPECT_TRUE(third.awaitReceived(1));
    EXPECT_EQ(first.received.size(), 2U);
    EXPECT_EQ(second.received.size(), 1U);
}

TEST_F(PresentComesFirst, OthersAreHeardAfterItHasLeft) {
    {
        BusClient leaver(frontendName);
        announce(leaver);
        turnUntilHeard(1);
        announce(second);
        turnALot();
    }
    turnUntilHeard(3);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("backend-alive");
    EXPECT_TRUE(second.awaitReceived(1));
}

TEST_F(PresentComesFirst, ItStaysSoWhenAPostLooksAtTheNews) {
    introduceFirst();
    announce(second);
    backend.post("readPipe");
    EXPECT_TRUE(first.awaitReceived(2));
    sayGoodbye(first);
    EXPECT_FALSE(backend.center->post(frontendName, "readPipe", std::nullopt));
    announce(third);
    EXPECT_FALSE(backend.center->post(frontendName, "readPipe", std::nullopt));
    turnUntilHeard(3);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
    backend.post("readPipe");
    EXPECT_TRUE(second.awaitReceived(1));
    third.process();
    EXPECT_THAT(third.received, IsEmpty());
}

TEST_F(PresentComesFirst, WhoeverHasGivenUpWaitsNoMore) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        backend.received.clear();
        introduceFirst();
        auto impatient = std::make_unique<BusClient>(frontendName);
        announce(*impatient);
        turnALot();
        if (saysGoodbye) {
            impatient->signal(notificationPath(backendName),
                              notificationArguments(backendName, "frontend-byebye"));
            impatient->waitForBus();
        } else {
            impatient.reset();
        }
        letArrive(backend);
        turnALot();
        sayGoodbye(first);
        turnALot();
        EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "frontend-byebye"));
        first.received.clear();
    }
}

TEST_F(PresentComesFirst, WhoeverHasGivenUpWaitsNoMoreWhereAPostHasLookedAtTheNews) {
    for (const bool saysGoodbye : {false, true}) {
        SCOPED_TRACE(saysGoodbye);
        End ownBackend{backendName, frontendName, {"fronted-alive", "frontend-byebye", true}};
        BusClient present(frontendName);
        auto impatient = std::make_unique<BusClient>(frontendName);
        announce(present);
        ASSERT_TRUE(runUntil([&] { return ownBackend.received.size() == 1; }, {turning(ownBackend)}));
        announce(*impatient);
        ASSERT_TRUE(runUntil([&] { return ownBackend.reports.size() == 1; }, {turning(ownBackend)}));

        // The present one ends and so does the one that waits, both of which a post gets to know at once.
        present.signal(notificationPath(backendName), notificationArguments(backendName, "frontend-byebye"));
        present.waitForBus();
        if (saysGoodbye) {
            impatient->signal(notificationPath(backendName),
                              notificationArguments(backendName, "frontend-byebye"));
            impatient->waitForBus();
        } else {
            impatient.reset();
        }
        letArrive(ownBackend);
        for (int i = 0; i < 50; ++i) {
            EXPECT_FALSE(ownBackend.center->post(frontendName, "readPipe", std::nullopt));
            std::this_thread::sleep_for(1ms);
        }
        announce(third);
        ASSERT_TRUE(runUntil([&] { return ownBackend.received.size() == 3; }, {turning(ownBackend)}));
        ownBackend.post("backend-alive");
        ASSERT_TRUE(third.awaitReceived(1));
        third.answer(third.received.front().get());
        third.received.clear();
        EXPECT_THAT(ownBackend.objects(), ElementsAre("fronted-alive", "frontend-byebye", "fronted-alive"));
        third.signal(notificationPath(backendName), notificationArguments(backendName, "frontend-byebye"));
        third.waitForBus();
    }
}

TEST_F(PresentComesFirst, ItMayAnnounceItselfAgain) {
    introduceFirst();
    announce(first);
    turnUntilHeard(2);
    EXPECT_THAT(backend.objects(), ElementsAre("fronted-alive", "fronted-alive"));
}

} // namespace
} // namespace veltrin::platform
