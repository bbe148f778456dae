#pragma once

#import <Foundation/Foundation.h>

#include <utility>

// For Objective-C++ alone.

namespace veltrin::platform {

/// Takes what the messages sent in its scope leave to be released, and releases it at the scope's end. Every
/// operation of the room has one: nobody turns a loop around the filter that would have a pool of its own.
///
/// Retaining and releasing is by hand, since not every compiler of the room counts references by itself. It
/// is no hindrance that a pool's owner may leave its scope by an exception: a pool that is released in
/// between releases those inside it.
class ReleasePool {
  public:
    ReleasePool() : pool([[NSAutoreleasePool alloc] init]) {}

    ReleasePool(const ReleasePool &) = delete;
    ReleasePool &operator=(const ReleasePool &) = delete;

    ~ReleasePool() { [pool release]; }

  private:
    NSAutoreleasePool *pool;
};

/// Keeps an object from being freed.
template <typename Object>
class Retained {
  public:
    Retained() = default;

    explicit Retained(Object theObject) : object([theObject retain]) {}

    Retained(Retained &&other) noexcept : object(std::exchange(other.object, nil)) {}

    Retained &operator=(Retained &&other) noexcept {
        std::swap(object, other.object);
        return *this;
    }

    Retained(const Retained &) = delete;
    Retained &operator=(const Retained &) = delete;

    ~Retained() { [object release]; }

    [[nodiscard]] Object get() const { return object; }

  private:
    Object object = nil;
};

} // namespace veltrin::platform
