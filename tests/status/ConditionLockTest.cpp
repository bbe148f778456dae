#include "status/ConditionLock.h"

#include "tests/status/Background.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <vector>

namespace veltrin {
namespace {

using test::Background;

TEST(ConditionLock, StartsWithItsCondition) {
    ConditionLock lock(7);
    lock.lock();
    EXPECT_EQ(lock.condition(), 7);
    lock.unlock();
}

TEST(ConditionLock, UnlockLeavesTheConditionAndUnlockWithConditionChangesIt) {
    ConditionLock lock(0);
    lock.lock();
    lock.unlock();
    lock.lockWhenCondition(0);
    lock.unlockWithCondition(5);
    lock.lockWhenCondition(5);
    EXPECT_EQ(lock.condition(), 5);
    lock.unlock();
}

TEST(ConditionLock, ExcludesEveryoneElseWhileHeld) {
    ConditionLock lock(1);
    lock.lock();
    const Background plain([&lock] {
        lock.lock();
        lock.unlock();
    });
    const Background conditional([&lock] {
        lock.lockWhenCondition(1);
        lock.unlock();
    });
    EXPECT_TRUE(plain.waits());
    EXPECT_TRUE(conditional.waits());
    lock.unlock();
    plain.expectEnds();
    conditional.expectEnds();
}

TEST(ConditionLock, LockWhenConditionHoldsTheLock) {
    ConditionLock lock(1);
    lock.lockWhenCondition(1);
    const Background other([&lock] {
        lock.lock();
        lock.unlock();
    });
    EXPECT_TRUE(other.waits());
    lock.unlock();
    other.expectEnds();
}

TEST(ConditionLock, WaitsForItsConditionOnlyAndLeavesTheLockFreeMeanwhile) {
    ConditionLock lock(0);
    const Background reader([&lock] {
        lock.lockWhenCondition(2);
        lock.unlock();
    });
    EXPECT_TRUE(reader.waits());
    for (const int other : {1, 3, -2}) {
        lock.lock();
        lock.unlockWithCondition(other);
        EXPECT_TRUE(reader.waits()) << "condition " << other;
    }
    lock.lock();
    lock.unlockWithCondition(2);
    reader.expectEnds();
}

TEST(ConditionLock, OneChangeWakesAllWhoWait) {
    ConditionLock lock(0);
    std::vector<std::unique_ptr<Background>> readers;
    readers.reserve(8);
    for (int i = 0; i < 8; ++i) {
        readers.push_back(std::make_unique<Background>([&lock] {
            lock.lockWhenCondition(1);
            lock.unlock();
        }));
    }
    for (const auto &reader : readers) {
        EXPECT_TRUE(reader->waits());
    }
    lock.lock();
    lock.unlockWithCondition(1);
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
}

TEST(ConditionLock, KeepsAWriterAndReadersApart) {
    ConditionLock lock(0);
    std::array<int, 16> shared{}; // all the same while nobody writes
    std::atomic<int> torn = 0;
    std::vector<std::unique_ptr<Background>> readers;
    readers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        readers.push_back(std::make_unique<Background>([&] {
            for (int round = 0; round < 2000; ++round) {
                lock.lockWhenCondition(1);
                for (const int value : shared) {
                    torn += value != shared[0] ? 1 : 0;
                }
                lock.unlock();
            }
        }));
    }
    for (int round = 1; round <= 2000; ++round) {
        lock.lock();
        shared.fill(round);
        lock.unlockWithCondition(1);
    }
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
    EXPECT_EQ(torn, 0);
}

} // namespace
} // namespace veltrin
