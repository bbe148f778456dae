#include "driver/SendPlan.h"

#include "driver/DuplexOrder.h"
#include "driver/stream/PageStream.h"
#include "tests/support/PageNotation.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>
#include <vector>

namespace veltrin {
namespace {

std::vector<PlannedPage> planOf(const SendJob &job) {
    std::vector<PlannedPage> plan;
    forEachPlannedPage(job, [&plan](const PlannedPage &page) {
        plan.push_back(page);
        return true;
    });
    return plan;
}

/// The plan of a job in the notation of pages, numbered from 1 (through `order`).
std::string described(const SendJob &job, const std::vector<std::uint32_t> &order = {}) {
    std::vector<test::MarkedPage> pages;
    for (const PlannedPage &page : planOf(job)) {
        EXPECT_TRUE(page.tray == pagesOwnTray || page.tray == 1) << unsigned{page.tray};
        EXPECT_LE(page.typeBits, 0xFFU);
        pages.push_back({.number = (order.empty() ? page.index : order[page.index]) + 1,
                         .typeBits = static_cast<std::uint8_t>(page.typeBits),
                         .fromBypass = page.tray == 1});
    }
    return test::notationOf(pages);
}

template <typename Visit>
void forEverySmallJob(Visit visit) {
    for (std::uint32_t pathCount = 0; pathCount <= 12; ++pathCount) {
        for (std::uint32_t copies = 1; copies <= 8; ++copies) {
            for (unsigned flags = 0; flags < 16; ++flags) {
                visit(SendJob{.pathCount = pathCount,
                              .copies = copies,
                              .collate = (flags & 1U) != 0,
                              .duplex = (flags & 2U) != 0,
                              .duplexInstalled = (flags & 4U) != 0,
                              .duplexBypass = (flags & 8U) != 0});
            }
        }
    }
}

TEST(SendPlan, OfAFourPageDocumentInTwoCopies) {
    const auto byHand = duplexOrder("642135", 4).value();
    const auto byUnit = duplexOrder("214365", 4).value();
    const SendJob job = {.pathCount = 4, .copies = 2, .duplex = true};
    SendJob collated = job;
    collated.collate = true;
    EXPECT_EQ(described(job, byHand), "4 4 2 2 1* 1 3 3");
    EXPECT_EQ(described(collated, byHand), "4 2 4 2 1* 3 1 3");

    SendJob unit = job;
    unit.duplexInstalled = true;
    SendJob collatedUnit = collated;
    collatedUnit.duplexInstalled = true;
    EXPECT_EQ(described(unit, byUnit), "2(12) 1(4) 2(12) 1(4) 4(12) 3(4) 4(12) 3(4)");
    EXPECT_EQ(described(collatedUnit, byUnit), "2(12) 1(4) 4(12) 3(4) 2(12) 1(4) 4(12) 3(4)");
}

TEST(SendPlan, GoesOnFromTheBypassTrayAtThePause) {
    EXPECT_EQ(described({.pathCount = 4, .copies = 2, .duplex = true, .duplexBypass = true}),
              "1 1 2 2 3*b 3b 4b 4b");
    EXPECT_EQ(described({.pathCount = 4, .copies = 2, .collate = true, .duplex = true, .duplexBypass = true}),
              "1 2 1 2 3*b 4b 3b 4b");
    EXPECT_EQ(described({.pathCount = 4, .copies = 4, .duplex = true, .duplexBypass = true}),
              "1 1 1 1 2 2 2 2 3 3*b 3b 3b 4b 4b 4b 4b");
}

TEST(SendPlan, PausesAtTheInstanceThatTheNumberOfCopiesSays) {
    const std::map<std::uint32_t, std::uint32_t> instances = {{1, 1}, {2, 1}, {3, 1}, {4, 2},
                                                              {5, 2}, {6, 3}, {7, 3}, {8, 4}};
    for (const auto &[copies, instance] : instances) {
        const std::vector<PlannedPage> plan = planOf({.pathCount = 6, .copies = copies, .duplex = true});
        for (std::size_t i = 0; i < plan.size(); ++i) {
            EXPECT_EQ(plan[i].typeBits == pageTypePause, i == std::size_t{3} * copies + instance - 1)
                << copies << " copies, page " << i;
        }
    }
}

TEST(SendPlan, PausesBeforeTheMiddlePageRoundedDown) {
    EXPECT_EQ(described({.pathCount = 5, .copies = 1, .duplex = true}), "1 2 3* 4 5");
    EXPECT_EQ(described({.pathCount = 5, .copies = 1, .collate = true, .duplex = true}), "1 2 3* 4 5");
    EXPECT_EQ(described({.pathCount = 1, .copies = 1, .duplex = true}), "1*");
    EXPECT_EQ(described({.pathCount = 1, .copies = 2, .collate = true, .duplex = true}), "1* 1");
    EXPECT_EQ(described({.pathCount = 2, .copies = 1, .duplex = true}), "1 2*");
}

TEST(SendPlan, OfAOneSidedJobHasNoBits) {
    EXPECT_EQ(described({.pathCount = 3, .copies = 2}), "1 1 2 2 3 3");
    EXPECT_EQ(described({.pathCount = 3, .copies = 2, .collate = true}), "1 2 3 1 2 3");
    EXPECT_EQ(described({.pathCount = 3, .copies = 2, .collate = true, .duplexInstalled = true}),
              "1 2 3 1 2 3");
    EXPECT_EQ(described({.pathCount = 1, .copies = 1}), "1");
}

TEST(SendPlan, ADuplexUnitGetsItsBitsUncollatedEvenInAOneSidedJob) {
    EXPECT_EQ(described({.pathCount = 1, .copies = 1, .duplexInstalled = true}), "1(12)");
    EXPECT_EQ(described({.pathCount = 3, .copies = 2, .duplexInstalled = true}),
              "1(12) 2(4) 1(12) 2(4) 3(12) 3(12)");
}

TEST(SendPlan, BranchIsChosenByCollationDuplexAndUnit) {
    struct Case {
        bool collate, duplex, unit;
        SendBranch branch;
    };

    const std::vector<Case> cases = {
        {false, false, false, SendBranch::uncollated},
        {false, true, false, SendBranch::uncollated},
        {false, false, true, SendBranch::uncollatedDuplexUnit},
        {false, true, true, SendBranch::uncollatedDuplexUnit},
        {true, false, false, SendBranch::collated},
        {true, false, true, SendBranch::collated},
        {true, true, false, SendBranch::collatedByHand},
        {true, true, true, SendBranch::collatedDuplexUnit},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(sendBranch({.collate = one.collate, .duplex = one.duplex, .duplexInstalled = one.unit}),
                  one.branch);
    }
}

TEST(SendPlan, SendsEveryPageOfTheCopyAsOftenAsThereAreCopies) {
    forEverySmallJob([](const SendJob &job) {
        std::vector<std::uint32_t> times(job.pathCount);
        for (const PlannedPage &page : planOf(job)) {
            ASSERT_LT(page.index, job.pathCount);
            ++times[page.index];
        }
        for (const std::uint32_t count : times) {
            ASSERT_EQ(count, job.copies);
        }
    });
}

TEST(SendPlan, PausesOnceInAJobTurnedByHandAndNeverElse) {
    forEverySmallJob([](const SendJob &job) {
        const std::vector<PlannedPage> plan = planOf(job);
        const auto pauses = std::count_if(plan.begin(), plan.end(), [](const PlannedPage &page) {
            return (page.typeBits & pageTypePause) != 0;
        });
        ASSERT_EQ(pauses, job.duplex && !job.duplexInstalled && job.pathCount > 0 ? 1 : 0);
    });
}

TEST(SendPlan, SwitchesTheTrayOnlyFromThePauseOnAndOnlyWithTheBypass) {
    forEverySmallJob([](const SendJob &job) {
        bool paused = false;
        for (const PlannedPage &page : planOf(job)) {
            paused = paused || page.typeBits == pageTypePause;
            ASSERT_EQ(page.tray, paused && job.duplexBypass ? 1 : 255);
        }
    });
}

TEST(SendPlan, GivesTheBitsOfADuplexUnitToItAlone) {
    forEverySmallJob([](const SendJob &job) {
        const bool forUnit = job.duplexInstalled && (job.duplex || !job.collate);
        for (const PlannedPage &page : planOf(job)) {
            if (forUnit) {
                ASSERT_EQ(page.typeBits, page.index % 2 == 0 ? 0x0C : 0x04);
            } else {
                ASSERT_TRUE(page.typeBits == 0 || page.typeBits == 0x10);
            }
        }
    });
}

TEST(SendPlan, EndsAtOnceWithoutPagesWhateverTheNumberOfCopies) {
    forEverySmallJob([](SendJob job) {
        job.pathCount = 0;
        job.copies = 4294967295;
        ASSERT_TRUE(planOf(job).empty());
    });
}

TEST(SendPlan, EndsWhereItIsToldTo) {
    forEverySmallJob([](const SendJob &job) {
        const std::vector<PlannedPage> whole = planOf(job);
        for (std::size_t length = 1; length <= whole.size(); ++length) {
            std::vector<PlannedPage> sent;
            forEachPlannedPage(job, [&sent, length](const PlannedPage &page) {
                sent.push_back(page);
                return sent.size() < length;
            });
            ASSERT_TRUE(std::equal(sent.begin(), sent.end(), whole.begin(),
                                   whole.begin() + static_cast<std::ptrdiff_t>(length)));
        }
    });
}

TEST(SendPlan, KeepsNothingOfAnEndlessNumberOfCopies) {
    std::uint64_t sent = 0;
    const SendJob job = {.pathCount = 1, .copies = 4294967295, .collate = true, .duplex = true};
    forEachPlannedPage(job, [&sent](const PlannedPage &) { return ++sent < 1000; });
    EXPECT_EQ(sent, 1000U);
}

TEST(SendPlan, OnlyTheFirstSideOfASheetCountsAsTwoSided) {
    for (const std::uint32_t bits : {0x0CU, 0x1CU, 0xFFU, 0xFFFFFF0CU}) {
        EXPECT_TRUE(isDuplexedPage(bits)) << bits;
    }
    for (const std::uint32_t bits : {0x00U, 0x04U, 0x08U, 0x10U, 0x14U, 0x18U, 0xF3U, 0x0C00U}) {
        EXPECT_FALSE(isDuplexedPage(bits)) << bits;
    }
}

TEST(SendPlan, JobSettingTellsHowSheetsAreTurned) {
    EXPECT_EQ(duplexJobSetting(true, false), 0x0400);
    EXPECT_EQ(duplexJobSetting(true, true), 0x0200);
    EXPECT_EQ(duplexJobSetting(false, false), 0x0200);
    EXPECT_EQ(duplexJobSetting(false, true), 0x0200);
}

TEST(SendPlan, AddsTypeBitsToAPageAndReplacesItsTray) {
    struct Case {
        std::uint32_t typeBits;
        std::uint8_t tray;
        std::uint8_t sentType;
        std::uint8_t sentTray;
    };

    PageHeader page{};
    page.bType = 0x42;
    page.bPaperTray = 3;
    page.bMediaType = 9;
    for (const Case &one : {Case{0, pagesOwnTray, 0x42, 3}, Case{0x0C, pagesOwnTray, 0x4E, 3},
                            Case{0x42, pagesOwnTray, 0x42, 3}, Case{0xFFFFFF0C, pagesOwnTray, 0x4E, 3},
                            Case{0x100, 1, 0x42, 1}, Case{0, 0, 0x42, 0}, Case{0x10, 254, 0x52, 254}}) {
        PageHeader expected = page;
        expected.bType = one.sentType;
        expected.bPaperTray = one.sentTray;
        const PageHeader sent = sentAs(page, one.typeBits, one.tray);
        EXPECT_EQ(std::memcmp(&sent, &expected, sizeof sent), 0) << one.typeBits << ' ' << int{one.tray};
    }
}

} // namespace
} // namespace veltrin
