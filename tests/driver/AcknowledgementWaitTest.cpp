#include "driver/AcknowledgementWait.h"

#include "tests/support/FakeClock.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;

TEST(AcknowledgementWait, AsksOnceASecondUnlessTheJobIsCancelled) {
    struct Case {
        int askings;                // until it is acknowledged
        std::size_t cancelledAfter; // sleeps
        std::vector<std::chrono::microseconds> sleeps;
    };

    constexpr int never = 1000;
    for (const Case &one :
         {Case{1, 99, {}}, Case{3, 99, {1s, 1s}}, Case{never, 2, {1s, 1s}}, Case{never, 0, {}}}) {
        test::FakeClock clock;
        int asked = 0;
        std::size_t lookedWhetherCancelled = 0;
        awaitAcknowledgement([&] { return ++asked >= one.askings; },
                             [&] {
                                 ++lookedWhetherCancelled;
                                 return clock.sleeps.size() >= one.cancelledAfter;
                             },
                             clock);
        EXPECT_EQ(clock.sleeps, one.sleeps);
        // Not before it is known that there is something to wait for: the look is logged.
        EXPECT_EQ(lookedWhetherCancelled, one.sleeps.size() + (asked >= one.askings ? 0 : 1));
    }
}

} // namespace
} // namespace veltrin
