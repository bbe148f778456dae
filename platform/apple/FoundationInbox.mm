#include "platform/apple/FoundationInbox.h"

#include "platform/apple/FoundationText.h"

#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <span>
#include <utility>

/// Called by the system for each notification.
@interface VeltrinNotificationObserver : NSObject {
    veltrin::platform::NotificationTaker *taker;
}

/// Null: from now on nobody wants to hear of anything.
- (void)tell:(veltrin::platform::NotificationTaker *)theTaker;

- (void)hear:(NSNotification *)notification;

@end

@implementation VeltrinNotificationObserver

- (void)tell:(veltrin::platform::NotificationTaker *)theTaker {
    taker = theTaker;
}

- (void)hear:(NSNotification *)notification {
    if (taker != nullptr) {
        taker->take(notification);
    }
}

@end

namespace veltrin::platform {

namespace {

std::span<const std::byte> bytesOf(NSData *data) {
    return {static_cast<const std::byte *>([data bytes]), [data length]};
}

/// A block that stays where the system has put it. Nobody is told whether it is taken: this system has no
/// word for that.
class HeldBlock final : public HeldNotification {
  public:
    explicit HeldBlock(NSData *theBlock) : block(theBlock) {}

    [[nodiscard]] std::span<const std::byte> data() const override { return bytesOf(block.get()); }

    [[nodiscard]] ssize_t writeTo(int descriptor, std::size_t from) override {
        const std::span<const std::byte> rest = data().subspan(from);
        return write(descriptor, rest.data(), rest.size());
    }

    void acknowledge() override {}

  private:
    Retained<NSData *> block;
};

/// Has a block be the one that is told of, until the end of its scope.
class Presence {
  public:
    Presence(NSData *&thePresent, NSData *data)
        : present(thePresent), outer(std::exchange(thePresent, data)) {}

    Presence(const Presence &) = delete;
    Presence &operator=(const Presence &) = delete;

    ~Presence() { present = outer; }

  private:
    NSData *&present;
    NSData *outer;
};

} // namespace

FoundationInbox::FoundationInbox(NSDistributedNotificationCenter *theCenter, Report theReport)
    : center(theCenter), report(std::move(theReport)) {}

FoundationInbox::~FoundationInbox() {
    stopObserving();
}

void FoundationInbox::startObserving(NSString *name, const std::string &theFarewell, Observer theObserver) {
    stopObserving();
    farewell = theFarewell;
    observer = std::move(theObserver);
    systemObserver = [[VeltrinNotificationObserver alloc] init];
    [systemObserver tell:this];
    [center.get() addObserver:systemObserver selector:@selector(hear:) name:name object:nil];
    [center.get() setSuspended:NO];
}

/// What the system calls is let go of but not freed: a message to it may be under way, in this very call
/// stack or from the service, which knows it by its address alone. It is a few words for each channel of a
/// process.
void FoundationInbox::stopObserving() noexcept {
    if (systemObserver != nil) {
        const ReleasePool pool;
        [systemObserver tell:nullptr];
        try {
            [center.get() removeObserver:systemObserver];
        } catch (...) { // then it stays, and is deaf
        }
        systemObserver = nil;
    }
    observer = nullptr;
    queue.clear();
}

void FoundationInbox::take(NSNotification *notification) noexcept {
    try {
        id block = [[notification userInfo] objectForKey:@"data"];
        const bool isBlock = [block isKindOfClass:[NSData class]];
        queue.push_back({.object = textOf([notification object]),
                         .data = Retained<NSData *>(isBlock ? static_cast<NSData *>(block) : nil)});
    } catch (...) { // of the system, which read it, or for want of memory
        try {
            report("dropped: a notification that cannot be read or kept");
        } catch (...) { // for want of memory
        }
    }
}

bool FoundationInbox::deliverNext() {
    if (queue.empty() || !observer) {
        return false;
    }
    const Heard heard = std::move(queue.front());
    queue.pop_front();
    // The observer may stop the observation, itself included.
    const Observer told = observer;
    const Presence presence(present, heard.data.get());
    told({.object = heard.object, .data = present != nil ? std::optional(bytesOf(present)) : std::nullopt});
    return true;
}

void FoundationInbox::noteFarewell() {
    if (observer) {
        queue.push_back({.object = farewell, .data = {}});
    }
}

bool FoundationInbox::isFarewellUntold() const {
    return std::any_of(queue.begin(), queue.end(),
                       [this](const Heard &heard) { return heard.object == farewell; });
}

std::unique_ptr<HeldNotification> FoundationInbox::hold() const {
    return std::make_unique<HeldBlock>(present);
}

} // namespace veltrin::platform
