#pragma once

#include "platform/NotificationCenter.h"
#include "platform/apple/ReleasePool.h"

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>

// For Objective-C++ alone.

@class VeltrinNotificationObserver;

namespace veltrin::platform {

/// Whoever is told of notifications by an object of the system's kind. An interface, since Objective-C wants
/// to describe what its objects hold, and knows no word for much of what is C++'s.
class NotificationTaker {
  public:
    NotificationTaker() = default;
    NotificationTaker(const NotificationTaker &) = delete;
    NotificationTaker &operator=(const NotificationTaker &) = delete;

    /// Throws nothing: its caller is the system, which lets no exception of C++'s through.
    virtual void take(NSNotification *notification) noexcept = 0;

  protected:
    ~NotificationTaker() = default;
};

/// What the distributed notification center has brought and the observer has not been told of yet.
///
/// The system calls its observer whenever it turns the run loop, which is not only in our turns: some do so
/// inside a post, and in one delivery before another has returned. So what it brings is only put into a
/// queue, and a turn takes it from there. Where the system waits for a turn, the queue is simply empty before
/// each.
class FoundationInbox final : private NotificationTaker {
  public:
    using Observer = NotificationCenter::Observer;
    using Report = std::function<void(const std::string &line)>;

    FoundationInbox(NSDistributedNotificationCenter *theCenter, Report theReport);
    ~FoundationInbox();

    void startObserving(NSString *name, const std::string &farewell, Observer observer);
    void stopObserving() noexcept;

    /// Tells the observer of one notification. False where none has come.
    [[nodiscard]] bool deliverNext();

    /// Has the observer hear of the peer's farewell, behind what has come.
    void noteFarewell();

    /// Whether a farewell has come that the observer has yet to hear of.
    [[nodiscard]] bool isFarewellUntold() const;

    [[nodiscard]] std::size_t size() const { return queue.size(); }

    [[nodiscard]] std::unique_ptr<HeldNotification> hold() const;

  private:
    struct Heard {
        std::optional<std::string> object;
        Retained<NSData *> data;
    };

    void take(NSNotification *notification) noexcept override;

    Retained<NSDistributedNotificationCenter *> center;
    Report report;
    VeltrinNotificationObserver *systemObserver = nil; ///< never freed, see `stopObserving`
    std::string farewell;
    Observer observer;
    std::deque<Heard> queue;
    NSData *present = nil; ///< of the notification that the observer is being told of
};

} // namespace veltrin::platform
