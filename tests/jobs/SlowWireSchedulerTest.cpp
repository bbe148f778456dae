// Many jobs in a row, from lp to a printer at the end of a wire.

#include "tests/jobs/Jobs.h"
#include "tests/jobs/WireSchedulerFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using testing::Each;
using testing::ElementsAre;

using PrinterOfManyJobs = test::WireSchedulerFixture;

TEST_F(PrinterOfManyJobs, GetsEachOfThemInTurnAndNothingIsLeftBehind) {
    constexpr int count = 20;
    switchOn(R"("printer": {"pagesPerMinute": 6000, "stackTurnedAfter": 0.1})");
    startScheduler();
    std::vector<int> jobs;
    std::string expected;
    for (int i = 0; i < count; ++i) {
        StreamOptions stream = test::document();
        stream.seed = static_cast<std::uint64_t>(i);
        const std::vector<std::string> options =
            i % 2 == 0 ? std::vector<std::string>{"media=A4"} : test::twoSidedTwoCopies;
        jobs.push_back(submit(stream, options));
        expected += test::resetRecord() +
                    test::run(scheduler->filterByHand(test::forFilter(options), makeStream(stream))).output;
    }
    for (const int job : jobs) {
        scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    }
    scheduler->expectIdleQueue();
    EXPECT_THAT(scheduler->temporaryFiles(), ElementsAre());
    EXPECT_THAT(scheduler->runningPrograms(), ElementsAre());
    const std::vector<std::string> outcomes = switchOff();
    EXPECT_EQ(outcomes.size(), static_cast<std::size_t>(count));
    EXPECT_THAT(outcomes, Each("whole")) << scheduler->log();
    EXPECT_THAT(Bytes(test::readFile(outputFile)), BytesAre(expected));
}

} // namespace
} // namespace veltrin
