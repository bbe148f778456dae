#include "platform/linux/ChannelPeer.h"

namespace veltrin::platform {

bool ChannelPeer::isReplacedBy(const std::string &sender, Word word) const {
    return sender != uniqueName && (!exists() || word == Word::announcement);
}

bool ChannelPeer::isChangedBy(const std::string &sender, Word word) const {
    return isReplacedBy(sender, word) || (sender == uniqueName && word != Word::other);
}

/// What a peer that was replaced still sends is nobody's.
Standing ChannelPeer::hear(const std::string &sender, Word word) {
    if (isReplacedBy(sender, word)) {
        uniqueName = sender;
        hasSaidItsFarewell = false;
    }
    if (sender != uniqueName) {
        return Standing::ofNobody;
    }
    if (word == Word::announcement) {
        hasSaidItsFarewell = false;
    } else if (word == Word::farewell) {
        hasSaidItsFarewell = true;
        return Standing::peersFarewell;
    }
    return Standing::ofPeer;
}

Standing ChannelPeer::leave(const std::string &sender) {
    if (sender != uniqueName) {
        return Standing::ofNobody;
    }
    uniqueName.clear();
    hasOneLeft = true;
    return hasSaidItsFarewell ? Standing::ofNobody : Standing::peersFarewell;
}

} // namespace veltrin::platform
