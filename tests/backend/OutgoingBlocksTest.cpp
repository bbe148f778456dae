#include "backend/OutgoingBlocks.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// Blocks that say what becomes of them.
class OutgoingBlocksTest : public testing::Test {
  protected:
    class Block final : public platform::HeldNotification {
      public:
        Block(std::string theText, std::vector<std::string> &theEvents)
            : text(std::move(theText)), events(theEvents) {}

        ~Block() override {
            if (!isAcknowledged) {
                events.push_back("lost " + text);
            }
        }

        [[nodiscard]] std::span<const std::byte> data() const override {
            return std::as_bytes(std::span(text));
        }

        ssize_t writeTo(int /*descriptor*/, std::size_t /*from*/) override { return -1; }

        void acknowledge() override {
            isAcknowledged = true;
            events.push_back("took " + text);
        }

      private:
        std::string text;
        std::vector<std::string> &events;
        bool isAcknowledged = false;
    };

    void add(const std::string &text) { blocks.add(std::make_unique<Block>(text, events)); }

    /// Writes with room for so many bytes, at most `atOnce` of them at a time.
    void write(std::size_t room, std::size_t atOnce = 100) {
        blocks.write([&](platform::HeldNotification &block, std::size_t from) {
            const auto bytes = block.data().subspan(from);
            EXPECT_FALSE(bytes.empty());
            const std::size_t taken = std::min({bytes.size(), room, atOnce});
            written.append(reinterpret_cast<const char *>(bytes.data()), taken);
            room -= taken;
            return taken;
        });
    }

    std::vector<std::string> events; // outlives the blocks
    std::string written;
    OutgoingBlocks blocks;
};

TEST_F(OutgoingBlocksTest, AreAcknowledgedInOrderAndOnlyWhole) {
    add("one");
    add("two");
    add("three");
    write(0);
    EXPECT_THAT(events, IsEmpty());
    write(4);
    EXPECT_THAT(events, ElementsAre("took one"));
    write(1);
    EXPECT_THAT(events, ElementsAre("took one"));
    EXPECT_FALSE(blocks.isEmpty());
    write(6, 1);
    EXPECT_THAT(events, ElementsAre("took one", "took two", "took three"));
    EXPECT_TRUE(blocks.isEmpty());
    EXPECT_EQ(written, "onetwothree");
}

TEST_F(OutgoingBlocksTest, WithoutBytesAreWrittenAtOnce) {
    add("");
    write(0);
    EXPECT_THAT(events, ElementsAre("took "));
}

TEST_F(OutgoingBlocksTest, AreLostWhenTheyAreDropped) {
    add("one");
    add("two");
    write(1);
    blocks.drop();
    EXPECT_THAT(events, ElementsAre("lost one", "lost two"));
    add("three");
    write(100);
    EXPECT_EQ(written, "othree") << "from its beginning";
}

} // namespace
} // namespace veltrin::backend
