#include "status/ConditionLock.h"

namespace veltrin {

void ConditionLock::lock() {
    mutex.lock();
}

void ConditionLock::lockWhenCondition(int condition) {
    std::unique_lock held(mutex);
    changed.wait(held, [this, condition] { return state == condition; });
    held.release(); // held on past this call, until an unlock
}

void ConditionLock::unlock() {
    mutex.unlock();
}

void ConditionLock::unlockWithCondition(int condition) {
    state = condition;
    // Woken while the lock is still held: once it is free, a reader may be done and destroy the lock.
    changed.notify_all();
    mutex.unlock();
}

} // namespace veltrin
