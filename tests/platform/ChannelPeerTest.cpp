#include "platform/linux/ChannelPeer.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::platform {
namespace {

const std::string first = ":1.1";
const std::string second = ":1.2";

/// What happens to the channel, and what is to come of it.
struct Event {
    enum class Kind { announces, speaks, saysFarewell, leaves } kind;
    std::string sender;
    Standing standing;
    std::string peer;
    bool isThere;
};

constexpr auto announces = Event::Kind::announces;
constexpr auto speaks = Event::Kind::speaks;
constexpr auto saysFarewell = Event::Kind::saysFarewell;
constexpr auto leaves = Event::Kind::leaves;

Word wordOf(Event::Kind kind) {
    switch (kind) {
    case announces:
        return Word::announcement;
    case saysFarewell:
        return Word::farewell;
    default:
        return Word::other;
    }
}

/// Has the peer go through the events, one after the other.
ChannelPeer peerAfter(const std::vector<Event> &events) {
    ChannelPeer peer;
    for (std::size_t i = 0; i < events.size(); ++i) {
        SCOPED_TRACE(i);
        const Event &event = events[i];
        const Standing standing =
            event.kind == leaves ? peer.leave(event.sender) : peer.hear(event.sender, wordOf(event.kind));
        EXPECT_EQ(standing, event.standing);
        EXPECT_EQ(peer.name(), event.peer);
        EXPECT_EQ(peer.exists(), !event.peer.empty());
        EXPECT_EQ(peer.isThere(), event.isThere);
    }
    return peer;
}

TEST(ChannelPeerTest, IsNobodyAtFirst) {
    const ChannelPeer peer;
    EXPECT_FALSE(peer.exists());
    EXPECT_FALSE(peer.isThere());
    EXPECT_FALSE(peer.hasLeft());
    EXPECT_FALSE(peer.hasSaidFarewell());
}

TEST(ChannelPeerTest, IsTheFirstThatIsHeardOfWhateverItSays) {
    peerAfter({{announces, first, Standing::ofPeer, first, true}});
    peerAfter({{speaks, first, Standing::ofPeer, first, true}});
    peerAfter({{saysFarewell, first, Standing::peersFarewell, first, false}});
    peerAfter(
        {{leaves, first, Standing::ofNobody, "", false}, {speaks, first, Standing::ofPeer, first, true}});
}

TEST(ChannelPeerTest, IsTheNewestThatAnnouncesItself) {
    peerAfter({
        {announces, first, Standing::ofPeer, first, true},
        {speaks, second, Standing::ofNobody, first, true},
        {saysFarewell, second, Standing::ofNobody, first, true},
        {announces, second, Standing::ofPeer, second, true},
        {speaks, first, Standing::ofNobody, second, true},
        {saysFarewell, first, Standing::ofNobody, second, true},
        {leaves, first, Standing::ofNobody, second, true},
        {speaks, second, Standing::ofPeer, second, true},
    });
}

TEST(ChannelPeerTest, RemainsItAfterItsFarewellAndMayComeBack) {
    const ChannelPeer gone = peerAfter({
        {announces, first, Standing::ofPeer, first, true},
        {saysFarewell, first, Standing::peersFarewell, first, false},
        {speaks, first, Standing::ofPeer, first, false},
        {speaks, second, Standing::ofNobody, first, false},
    });
    EXPECT_TRUE(gone.hasSaidFarewell());
    EXPECT_FALSE(gone.hasLeft());
    const ChannelPeer back = peerAfter({
        {saysFarewell, first, Standing::peersFarewell, first, false},
        {announces, first, Standing::ofPeer, first, true},
    });
    EXPECT_FALSE(back.hasSaidFarewell());
}

TEST(ChannelPeerTest, LeavesWithOneFarewellAtMost) {
    const ChannelPeer silent = peerAfter({
        {announces, first, Standing::ofPeer, first, true},
        {leaves, first, Standing::peersFarewell, "", false},
        {leaves, first, Standing::ofNobody, "", false},
    });
    EXPECT_TRUE(silent.hasLeft());
    const ChannelPeer polite = peerAfter({
        {announces, first, Standing::ofPeer, first, true},
        {saysFarewell, first, Standing::peersFarewell, first, false},
        {leaves, first, Standing::ofNobody, "", false},
    });
    EXPECT_TRUE(polite.hasLeft());
}

TEST(ChannelPeerTest, BeginsAnewWithWhoeverComesNext) {
    const ChannelPeer next = peerAfter({
        {announces, first, Standing::ofPeer, first, true},
        {saysFarewell, first, Standing::peersFarewell, first, false},
        {leaves, first, Standing::ofNobody, "", false},
        {speaks, second, Standing::ofPeer, second, true},
        {leaves, second, Standing::peersFarewell, "", false},
        {announces, first, Standing::ofPeer, first, true},
    });
    EXPECT_FALSE(next.hasLeft());
    EXPECT_FALSE(next.hasSaidFarewell());
}

TEST(ChannelPeerTest, TellsBeforehandWhatIsChangedByANotification) {
    struct Case {
        std::string present;
        std::string sender;
        Word word;
        bool isReplaced;
        bool isChanged;
    };

    for (const Case &one : std::vector<Case>{
             {"", first, Word::announcement, true, true},
             {"", first, Word::farewell, true, true},
             {"", first, Word::other, true, true},
             {first, first, Word::announcement, false, true},
             {first, first, Word::farewell, false, true},
             {first, first, Word::other, false, false},
             {first, second, Word::announcement, true, true},
             {first, second, Word::farewell, false, false},
             {first, second, Word::other, false, false},
         }) {
        ChannelPeer peer;
        if (!one.present.empty()) {
            peer.hear(one.present, Word::announcement);
        }
        EXPECT_EQ(peer.isReplacedBy(one.sender, one.word), one.isReplaced);
        EXPECT_EQ(peer.isChangedBy(one.sender, one.word), one.isChanged);
    }
}

} // namespace
} // namespace veltrin::platform
