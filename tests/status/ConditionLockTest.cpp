#include "status/ConditionLock.h"

#include "status/VeltrinReverseData.h"
#include "tests/support/FakePlatform.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <thread>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

/// Longer than any machine needs to get a thread going; only a failing test waits so long.
constexpr auto deadline = 60s;

/// How long a thread that ought to wait is watched doing so.
constexpr auto watched = 50ms;

/// Runs `body` on a thread of its own. A body that never ends fails the test in `expectEnds`, which then ends
/// the process: the thread still uses what the test would take down.
class Background {
  public:
    explicit Background(std::function<void()> body) : thread(std::move(body)) {
        done = thread.get_future();
        runner = std::thread(std::move(thread));
    }

    Background(const Background &) = delete;
    Background &operator=(const Background &) = delete;

    ~Background() { runner.join(); }

    [[nodiscard]] bool waits() const { return done.wait_for(watched) == std::future_status::timeout; }

    void expectEnds() const {
        if (done.wait_for(deadline) == std::future_status::timeout) {
            ADD_FAILURE() << "the thread waits for ever";
            std::abort();
        }
    }

  private:
    std::packaged_task<void()> thread;
    std::future<void> done;
    std::thread runner;
};

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

// The record behind the lock

std::array<std::byte, 64> recordFilledWith(std::uint8_t value) {
    std::array<std::byte, 64> record{};
    record.fill(std::byte{value});
    record[0] = std::byte{'G'};
    record[1] = std::byte{'D'};
    record[2] = std::byte{'I'};
    record[3] = std::byte{'R'};
    return record;
}

class SharedRecordTest : public testing::Test {
  protected:
    test::FakeBundle bundle;
    VeltrinReverseData data{bundle};
};

TEST_F(SharedRecordTest, EveryAccessorWaitsForTheFirstRecord) {
    std::int32_t severity = -1;
    const std::vector<std::function<void()>> accessors = {
        [this] { EXPECT_EQ(data.port(), 0x81U); },
        [this] { EXPECT_TRUE(data.recoverFlag()); },
        [this] { EXPECT_FALSE(data.readyToReceive()); },
        [this] { EXPECT_FALSE(data.frontPanelCancel()); },
        [this] { EXPECT_EQ(data.modelInfo(), 2U); },
        [this] { EXPECT_EQ(data.marketInfo(), 0U); },
        [this] { EXPECT_EQ(data.receivingJobId(), 0x81U); },
        [this] { EXPECT_EQ(data.printingJobId(), 0x81U); },
        [this] { EXPECT_EQ(data.headerMemory(), 0x81818181U); },
        [this] { EXPECT_EQ(data.imageMemory(), 0x81818181U); },
        [this] { EXPECT_EQ(data.remainingPages(), 0x8181U); },
        [this] { EXPECT_EQ(data.statusCode(), 0x81U); },
        [this] { EXPECT_EQ(data.subStatusCode1(), 0x81U); },
        [this] { EXPECT_EQ(data.subStatusCode2(), 0x81U); },
        [this] { EXPECT_EQ(data.jobCount(), 0x81U); },
        [this] { EXPECT_EQ(data.totalMemory(), 0x810000U); },
        [this] { EXPECT_TRUE(data.duplexInstalled()); },
        [this] { EXPECT_FALSE(data.tray2Installed()); },
        [this] { EXPECT_FALSE(data.bypassPaperEmpty()); },
        [this] { EXPECT_FALSE(data.tray1PaperEmpty()); },
        [this] { EXPECT_FALSE(data.tray2PaperEmpty()); },
        [this] { EXPECT_EQ(data.bypassPaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.tray1PaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.tray2PaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.bypassPaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tray1PaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tray2PaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerCStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerMStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerYStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerKStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.totalTextEmission(), 0x81U); },
        [this] { EXPECT_EQ(data.totalGraphicsEmission(), 0x81U); },
        [this] { EXPECT_EQ(data.totalImagesEmission(), 0x81U); },
        [this] { EXPECT_TRUE(data.USBWarning()); },
        [this] { EXPECT_FALSE(data.NetworkWarning()); },
        [this] { EXPECT_FALSE(data.WasteTonerWarning()); },
        [this] { EXPECT_FALSE(data.TransferBeltWarning()); },
        [this] { EXPECT_FALSE(data.TMACleaningWarning()); },
        [this] { EXPECT_FALSE(data.FuserWarning()); },
        [this] { EXPECT_EQ(data.paperTypeForTray(1), 0x81U); },
        [this] { EXPECT_EQ(data.paperTypeForTray(2), 0x81U); },
        [this] { EXPECT_EQ(data.paperTypeForTray(3), 0x81U); },
        [this, &severity] { EXPECT_EQ(data.statusString(severity), ""); },
    };
    std::atomic<std::size_t> answered = 0;
    std::vector<std::unique_ptr<Background>> readers;
    for (const auto &accessor : accessors) {
        readers.push_back(std::make_unique<Background>([&answered, &accessor] {
            accessor();
            ++answered;
        }));
    }
    EXPECT_TRUE(readers.back()->waits());
    EXPECT_EQ(answered, 0U);
    EXPECT_FALSE(data.hasRecord());
    EXPECT_EQ(data.modelInfoString(), "");
    EXPECT_EQ(data.modelInfoDescription(), "");

    EXPECT_TRUE(data.setData(recordFilledWith(0x81)));
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
    EXPECT_EQ(answered, accessors.size());
    EXPECT_EQ(severity, 0);
}

TEST_F(SharedRecordTest, ARefusedBufferEndsNoWait) {
    const Background reader([this] { EXPECT_EQ(data.port(), 2U); });
    testing::internal::CaptureStderr();
    EXPECT_FALSE(data.setData(std::array<std::byte, 64>{}));
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(reader.waits());
    EXPECT_TRUE(data.setData(recordFilledWith(2)));
    reader.expectEnds();
}

TEST_F(SharedRecordTest, AFieldIsNeverReadHalfWritten) {
    std::atomic<bool> finished = false;
    std::atomic<int> torn = 0;
    std::atomic<int> tray2Seen = 0;
    const auto uniform = [](std::uint32_t value) { return value == (value & 0xFFU) * 0x01010101U; };
    std::vector<std::unique_ptr<Background>> readers;
    for (int i = 0; i < 3; ++i) {
        readers.push_back(std::make_unique<Background>([&] {
            while (!finished) {
                torn += uniform(data.headerMemory()) && uniform(data.imageMemory()) ? 0 : 1;
                // Reads beside the lock: ThreadSanitizer watches that this is no data race.
                tray2Seen += data.tray2Installed() ? 1 : 0;
            }
        }));
    }
    // Until the readers have had their share, however the machine deals out its time.
    for (unsigned round = 0; round < 2000 || tray2Seen == 0; ++round) {
        EXPECT_TRUE(data.setData(recordFilledWith(static_cast<std::uint8_t>(round))));
    }
    finished = true;
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
    EXPECT_EQ(torn, 0);
}

} // namespace
} // namespace veltrin
