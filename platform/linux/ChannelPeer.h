#pragma once

#include <string>

namespace veltrin::platform {

/// What a notification says of its sender.
enum class Word { announcement, farewell, other };

/// What a notification, or the departure of its sender, is to the channel.
enum class Standing {
    ofPeer,        ///< of the peer, which it may have become by it
    peersFarewell, ///< said, or meant by leaving the bus
    ofNobody,      ///< of somebody who is not the peer
};

/// Who the other end of the channel is, and whether it is there. Senders are those that may take part, by
/// their unique names.
class ChannelPeer {
  public:
    /// The peer's unique name, which it keeps after its farewell; empty while there is none.
    [[nodiscard]] const std::string &name() const { return uniqueName; }

    [[nodiscard]] bool exists() const { return !uniqueName.empty(); }

    /// Whether there is one and it has not said its farewell.
    [[nodiscard]] bool isThere() const { return exists() && !hasSaidItsFarewell; }

    /// Whether the peer has left the bus, and none has come in its place.
    [[nodiscard]] bool hasLeft() const { return !exists() && hasOneLeft; }

    /// Whether the peer that is there, or was there last, has said its farewell.
    [[nodiscard]] bool hasSaidFarewell() const { return hasSaidItsFarewell; }

    /// Whether the sender becomes the peer by this: the first that is heard of, and later one that announces
    /// itself.
    [[nodiscard]] bool isReplacedBy(const std::string &sender, Word word) const;

    /// Whether this makes any difference to who the peer is and whether it is there.
    [[nodiscard]] bool isChangedBy(const std::string &sender, Word word) const;

    /// Lets a notification count.
    Standing hear(const std::string &sender, Word word);

    /// Lets a departure from the bus count.
    Standing leave(const std::string &sender);

  private:
    std::string uniqueName;
    bool hasOneLeft = false;
    bool hasSaidItsFarewell = false;
};

} // namespace veltrin::platform
