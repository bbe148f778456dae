#include "platform/PipeCapacity.h"
#include "tests/platform/ChannelEnds.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <string>
#include <utility>
#include <vector>

// Notifications that are acknowledged later than they are heard.

namespace veltrin::platform {
namespace {

using namespace test;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

class HeldNotificationTest : public OnPrivateBus {
  protected:
    HeldNotificationTest() {
        backend->onReceived = [this] { held.push_back(backend->center->hold()); };
        destination = introduceTo(host);
    }

    /// Sends the backend a block as a call; its answer goes into the host's replies.
    void call(const std::function<void(sd_bus_message *)> &appendData) {
        host.call(destination, notificationPath(backendName), [&appendData](sd_bus_message *message) {
            sd_bus_message_append(message, "sv", backendName.c_str(), "s", "writePipe");
            sd_bus_message_open_container(message, 'a', "{sv}");
            sd_bus_message_open_container(message, 'e', "sv");
            sd_bus_message_append(message, "s", "data");
            appendData(message);
            sd_bus_message_close_container(message);
            sd_bus_message_close_container(message);
        });
    }

    void callWith(const std::string &block) {
        call([&block](sd_bus_message *message) {
            sd_bus_message_open_container(message, 'v', "ay");
            sd_bus_message_append_array(message, 'y', block.data(), block.size());
            sd_bus_message_close_container(message);
        });
    }

    void awaitHeld(std::size_t count) {
        ASSERT_TRUE(runUntil([&] { return held.size() == count; }, {turning(*backend)}));
    }

    static std::string textOf(const HeldNotification &one) {
        return {reinterpret_cast<const char *>(one.data().data()), one.data().size()};
    }

    /// Whether these bytes are what comes out of a pipe that the block is written to from this byte on.
    static bool isWhatIsWritten(HeldNotification &one, std::size_t from, std::span<const std::byte> bytes) {
        std::array<int, 2> ends{};
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        widenPipe(ends[1], one.data().size());
        EXPECT_EQ(one.writeTo(ends[1], from), static_cast<ssize_t>(bytes.size()));
        close(ends[1]);
        std::vector<std::byte> got(bytes.size() + 1);
        const ssize_t size = read(ends[0], got.data(), got.size());
        close(ends[0]);
        return std::ranges::equal(std::span(got).first(static_cast<std::size_t>(std::max<ssize_t>(size, 0))),
                                  bytes);
    }

    std::unique_ptr<End> backend = makeBackend();
    BusClient host{frontendName};
    std::string destination;
    std::vector<std::unique_ptr<HeldNotification>> held;

  private:
    std::string introduceTo(BusClient &client) {
        backend->post("backend-alive");
        EXPECT_TRUE(client.awaitReceived(1));
        return sd_bus_message_get_sender(client.received.front().get());
    }
};

TEST_F(HeldNotificationTest, IsAnsweredWhenItIsAcknowledgedAndNoSooner) {
    callWith("first");
    callWith("second");
    awaitHeld(2);
    letArrive(*backend);
    host.waitForBus();
    EXPECT_THAT(host.replies, IsEmpty());
    EXPECT_EQ(textOf(*held[0]), "first");
    EXPECT_EQ(textOf(*held[1]), "second");
    EXPECT_TRUE(isWhatIsWritten(*held[1], 3, std::as_bytes(std::span("ond", 3))));
    held[1]->acknowledge();
    held[0]->acknowledge();
    held.clear();
    ASSERT_TRUE(runUntil([&] { return host.replies.size() == 2; }, {processing(host), turning(*backend)}));
    EXPECT_THAT(host.replies, ElementsAre("", ""));
}

TEST_F(HeldNotificationTest, KeepsAMemoryFileAsLongAsItIsThere) {
    const Block block = patternOf(100'000);
    const auto frontend = makeFrontend();
    frontend->post("fronted-alive");
    awaitHeld(1);
    held.clear();
    backend->post("backend-alive");
    ASSERT_TRUE(runUntil([&] { return !frontend->received.empty(); }, {turning(*frontend)}));
    frontend->post("writePipe", block);
    awaitHeld(1);
    EXPECT_EQ(Block(held[0]->data().begin(), held[0]->data().end()), block);
    EXPECT_TRUE(isWhatIsWritten(*held[0], 0, block));
    EXPECT_TRUE(isWhatIsWritten(*held[0], 99'999, std::span(block).last(1)));
    held[0]->acknowledge();
    ASSERT_TRUE(runUntil([&] { return frontend->center->waitForDelivery(); }, {turning(*backend)}));
}

TEST_F(HeldNotificationTest, IsLostWhenItIsLetGoWithoutAWord) {
    callWith("lost");
    awaitHeld(1);
    held.clear();
    ASSERT_TRUE(runUntil([&] { return !host.replies.empty(); }, {processing(host), turning(*backend)}));
    EXPECT_THAT(host.replies, ElementsAre(SD_BUS_ERROR_FAILED));
    EXPECT_THAT(host.replyTexts, ElementsAre("it was not taken"));
}

TEST_F(HeldNotificationTest, MayOutliveTheChannel) {
    callWith("late");
    awaitHeld(1);
    backend->center.reset();
    EXPECT_EQ(textOf(*held[0]), "late");
    held[0]->acknowledge();
}

TEST_F(HeldNotificationTest, IsHeldOnceAndOnlyByTheObserver) {
    EXPECT_EQ(backend->center->hold(), nullptr);
    std::unique_ptr<HeldNotification> again;
    backend->onReceived = [&] {
        held.push_back(backend->center->hold());
        again = backend->center->hold();
    };
    callWith("once");
    awaitHeld(1);
    EXPECT_NE(held[0], nullptr);
    EXPECT_EQ(again, nullptr);
}

TEST_F(HeldNotificationTest, CountsAmongThoseInHand) {
    for (int i = 0; i < 32; ++i) {
        callWith("one of many");
    }
    awaitHeld(32);
    callWith("too many");
    ASSERT_TRUE(runUntil([&] { return !host.replies.empty(); }, {processing(host), turning(*backend)}));
    EXPECT_THAT(host.replies, ElementsAre(SD_BUS_ERROR_LIMITS_EXCEEDED));
    EXPECT_THAT(backend->reports, ElementsAre(HasSubstr("it comes too fast")));
    held.pop_back();
    callWith("one more");
    awaitHeld(32);
}

} // namespace
} // namespace veltrin::platform
