#pragma once

#include <condition_variable>
#include <mutex>

namespace veltrin {

/// A lock that carries a condition, a number that its holder may change and others may wait for.
///
/// Not recursive. Whoever holds the lock gives it back with `unlock` or `unlockWithCondition`, on the thread
/// that took it.
class ConditionLock {
  public:
    explicit ConditionLock(int condition) : state(condition) {}

    /// Takes the lock, whatever the condition.
    void lock();

    /// Takes the lock as soon as the condition is `condition`; waits for that without a limit.
    void lockWhenCondition(int condition);

    /// Gives the lock back and leaves the condition as it is.
    void unlock();

    /// Gives the lock back with a new condition and wakes whoever waits for it.
    void unlockWithCondition(int condition);

    /// The condition. To be asked by the holder of the lock only.
    [[nodiscard]] int condition() const { return state; }

  private:
    std::mutex mutex;
    std::condition_variable changed;
    int state;
};

} // namespace veltrin
