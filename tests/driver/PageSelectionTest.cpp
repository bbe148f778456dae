#include "driver/PageSelection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t unpairedVersion = 0x1039;

struct Selected {
    JobSettings settings;
    CopyCounts counts;
    PageSelection pages;
};

/// The three steps as the spooler takes them.
Selected select(JobSettings settings, std::uint32_t pageCount, std::uint32_t version = pairedPagesVersion) {
    settings = adjustedToPageCount(settings, pageCount);
    const CopyCounts counts = countCopy(settings, pageCount);
    return {settings, counts, selectPages(settings, counts, pageCount, version)};
}

/// Calls `visit` for every combination of settings and page counts that a small job can have.
template <typename Visit>
void forEverySmallSelection(Visit visit) {
    for (std::uint32_t pageCount = 0; pageCount <= 12; ++pageCount) {
        for (std::uint32_t copies = 1; copies <= 4; ++copies) {
            for (std::uint32_t sides = 0; sides <= 60; ++sides) {
                for (unsigned flags = 0; flags < 8; ++flags) {
                    for (const std::uint32_t version : {unpairedVersion, pairedPagesVersion}) {
                        const JobSettings settings = {.copies = copies,
                                                      .collate = (flags & 1U) != 0,
                                                      .duplex = (flags & 2U) != 0,
                                                      .longEdge = (flags & 4U) != 0,
                                                      .sidesImaged = sides};
                        visit(settings, pageCount, version);
                    }
                }
            }
        }
    }
}

TEST(PageSelection, TakesOneInstanceOfEachPageOfAFourPageDocumentInTwoCopies) {
    struct Case {
        std::string name;
        bool collate;
        bool duplex;
        std::uint32_t version;
        std::vector<std::uint32_t> indexes;
        std::vector<int> spooled; // the page numbers in the stream
    };

    const std::vector<Case> cases = {
        {"collated", true, true, pairedPagesVersion, {0, 1, 2, 3}, {1, 2, 3, 4, 1, 2, 3, 4}},
        {"uncollated", false, true, unpairedVersion, {0, 2, 4, 6}, {1, 1, 2, 2, 3, 3, 4, 4}},
        {"uncollated, one-sided", false, false, pairedPagesVersion, {0, 2, 4, 6}, {1, 1, 2, 2, 3, 3, 4, 4}},
        {"uncollated, in pairs", false, true, pairedPagesVersion, {0, 1, 4, 5}, {1, 2, 1, 2, 3, 4, 3, 4}},
    };
    for (const Case &one : cases) {
        const Selected selected = select(
            {.copies = 2, .collate = one.collate, .duplex = one.duplex, .longEdge = true, .sidesImaged = 8},
            8, one.version);
        EXPECT_EQ(selected.counts.pathCount, 4U) << one.name;
        EXPECT_EQ(selected.pages.indexes, one.indexes) << one.name;
        std::vector<int> pages;
        for (const std::uint32_t index : selected.pages.indexes) {
            pages.push_back(one.spooled[index]);
        }
        EXPECT_THAT(pages, ElementsAre(1, 2, 3, 4)) << one.name;
    }
}

TEST(PageSelection, PairsOnlyFromTheVersionOnWhoseRendererDoes) {
    const JobSettings settings = {.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = 8};
    EXPECT_FALSE(select(settings, 8, 0).pages.paired);
    EXPECT_FALSE(select(settings, 8, 0x103F).pages.paired);
    EXPECT_TRUE(select(settings, 8, 0x1040).pages.paired);
    EXPECT_TRUE(select(settings, 8, 0x1050).pages.paired);
}

TEST(PageSelection, PairsOnlyUncollatedTwoSidedCopiesOfSeveralPages) {
    JobSettings settings = {.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = 8};
    EXPECT_TRUE(select(settings, 8).pages.paired);
    settings.collate = true;
    EXPECT_FALSE(select(settings, 8).pages.paired);
    settings.collate = false;
    settings.duplex = false;
    EXPECT_FALSE(select(settings, 8).pages.paired);
    settings.duplex = true;
    settings.copies = 1;
    EXPECT_FALSE(select(settings, 8).pages.paired);
    EXPECT_FALSE(select({.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = 3}, 3).pages.paired)
        << "one page a copy";
    EXPECT_TRUE(select({.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = 4}, 4).pages.paired);
}

TEST(PageSelection, TakesTheLonelyLastPageOfAnOddDocumentWithWhatFollowsIt) {
    // Three pages and the renderer's blank one behind them, twice: 1 2 1 2 3 b 3 b.
    const Selected selected = select({.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = 6}, 8);
    EXPECT_EQ(selected.counts.pathCount, 3U);
    EXPECT_THAT(selected.pages.indexes, ElementsAre(0, 1, 4, 5));
    EXPECT_EQ(selected.pages.blankPage, BlankPage::discarded);
}

TEST(PageSelection, OnePageBecomesAOneSidedSingleCopy) {
    const Selected selected =
        select({.copies = 5, .collate = true, .duplex = true, .longEdge = true, .sidesImaged = 10}, 1);
    EXPECT_EQ(selected.settings.copies, 1U);
    EXPECT_EQ(selected.settings.sidesImaged, 1U);
    EXPECT_FALSE(selected.settings.collate);
    EXPECT_FALSE(selected.settings.duplex);
    EXPECT_TRUE(selected.settings.longEdge);
    EXPECT_THAT(selected.pages.indexes, ElementsAre(0));
    EXPECT_EQ(selected.pages.blankPage, BlankPage::none);
}

TEST(PageSelection, OneSideImagedStandsForEverySpooledPageOrForOneLess) {
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = true, .sidesImaged = 1}, 5).sidesImaged, 5U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = false, .sidesImaged = 1}, 5).sidesImaged, 4U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = true, .sidesImaged = 1}, 2).sidesImaged, 2U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = false, .sidesImaged = 1}, 2).sidesImaged, 1U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = false, .sidesImaged = 2}, 5).sidesImaged, 2U);
}

TEST(PageSelection, SidesImagedIsNeverMoreThanWhatWasSpooled) {
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = true, .sidesImaged = 9}, 5).sidesImaged, 5U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = true, .sidesImaged = 4294967295}, 5).sidesImaged,
              5U);
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = true, .sidesImaged = 9}, 0).sidesImaged, 0U);
}

TEST(PageSelection, OnePageWithManySidesIsNotADefaultedSetting) {
    // Lowered to 1 by the page count, not 1 by default: there is only one page then, which has a rule of its
    // own.
    EXPECT_EQ(adjustedToPageCount({.copies = 1, .longEdge = false, .sidesImaged = 7}, 1).sidesImaged, 1U);
}

TEST(PageSelection, CountsMorePagesThanWereSpooledAsThoseSpooled) {
    const CopyCounts counts = countCopy({.copies = 1, .duplex = true, .sidesImaged = 9}, 5);
    EXPECT_TRUE(counts.exceedsPageCount);
    EXPECT_EQ(counts.pathCount, 5U);
    EXPECT_TRUE(counts.hasGDIBlankPage) << "the sides of a copy count, not the pages";
    EXPECT_FALSE(countCopy({.copies = 1, .duplex = true, .sidesImaged = 5}, 5).exceedsPageCount);
}

TEST(PageSelection, AppendsTheBlankPageOnlyToAnOddNumberOfPages) {
    // Three pages, and the renderer's blank page at the end of the stream.
    const Selected odd = select({.copies = 1, .duplex = true, .longEdge = true, .sidesImaged = 3}, 4);
    EXPECT_TRUE(odd.counts.hasGDIBlankPage);
    EXPECT_THAT(odd.pages.indexes, ElementsAre(0, 1, 2));
    EXPECT_EQ(odd.pages.blankPage, BlankPage::appended);

    const Selected even = select({.copies = 1, .duplex = true, .longEdge = true, .sidesImaged = 4}, 4);
    EXPECT_FALSE(even.counts.hasGDIBlankPage);
    EXPECT_EQ(even.pages.blankPage, BlankPage::none);

    const Selected oneSided = select({.copies = 1, .duplex = false, .longEdge = true, .sidesImaged = 3}, 4);
    EXPECT_FALSE(oneSided.counts.hasGDIBlankPage);
    EXPECT_EQ(oneSided.pages.blankPage, BlankPage::none);
}

TEST(PageSelection, SelectsNothingFromAnEmptyStreamOrForMoreCopiesThanPages) {
    EXPECT_THAT(select({.copies = 1, .duplex = true, .sidesImaged = 1}, 0).pages.indexes, IsEmpty());
    for (const std::uint32_t copies : {13U, 0x80000000U, 4294967295U}) {
        for (const bool collate : {false, true}) {
            const Selected selected = select(
                {.copies = copies, .collate = collate, .duplex = true, .longEdge = true, .sidesImaged = 60},
                12);
            EXPECT_THAT(selected.pages.indexes, IsEmpty()) << copies;
            EXPECT_EQ(selected.pages.blankPage, BlankPage::none) << copies;
        }
    }
}

TEST(PageSelection, TakesPagesThatExistAndNoneTwice) {
    forEverySmallSelection([](const JobSettings &settings, std::uint32_t pageCount, std::uint32_t version) {
        const Selected selected = select(settings, pageCount, version);
        const std::set<std::uint32_t> distinct(selected.pages.indexes.begin(), selected.pages.indexes.end());
        ASSERT_EQ(distinct.size(), selected.pages.indexes.size());
        ASSERT_TRUE(std::is_sorted(selected.pages.indexes.begin(), selected.pages.indexes.end()));
        ASSERT_TRUE(distinct.empty() || *distinct.rbegin() < pageCount);
        ASSERT_LE(selected.settings.sidesImaged, pageCount);
        ASSERT_FALSE(selected.counts.exceedsPageCount);
        ASSERT_TRUE(selected.pages.blankPage == BlankPage::none || pageCount > 0);
    });
}

TEST(PageSelection, NumbersOfTheCopyAreThoseOfTheSettings) {
    forEverySmallSelection([](const JobSettings &settings, std::uint32_t pageCount, std::uint32_t version) {
        const Selected selected = select(settings, pageCount, version);
        const std::uint32_t pathCount = selected.counts.pathCount;
        ASSERT_EQ(pathCount, selected.settings.sidesImaged / selected.settings.copies);
        // A pair may take in the page behind an odd document's last.
        const std::uint32_t taken = selected.pages.paired ? pathCount + pathCount % 2 : pathCount;
        ASSERT_EQ(selected.pages.indexes.size(), taken);
    });
}

TEST(PageSelection, ContradictoryNumbersStillNameOnlyPagesThatExist) {
    for (std::uint32_t pageCount = 0; pageCount <= 12; ++pageCount) {
        for (const std::uint32_t copies : {1U, 2U, 3U, 1431655765U, 2147483648U, 4294967295U}) {
            for (const std::uint32_t pathCount : {0U, 1U, 2U, 3U, 4U, 12U}) {
                for (const bool collate : {false, true}) {
                    const PageSelection selection = selectPages(
                        {.copies = copies, .collate = collate, .duplex = true},
                        {.pathCount = pathCount, .hasGDIBlankPage = true}, pageCount, pairedPagesVersion);
                    for (const std::uint32_t index : selection.indexes) {
                        ASSERT_LT(index, pageCount);
                    }
                }
            }
        }
    }
}

TEST(PageSelection, AnOddCopyIncludesABlankPageForAStackTurnedByHandOrForPaperWithAFront) {
    for (const bool unit : {false, true}) {
        for (const std::string paperType :
             {"", "Plain", "Letterhead", "Preprinted", "Prepunched", "letterhead", "Letterheads"}) {
            const bool hasFront =
                paperType == "Letterhead" || paperType == "Preprinted" || paperType == "Prepunched";
            for (const std::uint32_t pathCount : {0U, 2U, 4294967294U}) {
                EXPECT_FALSE(includeBlankPage(pathCount, unit, paperType)) << pathCount << paperType;
            }
            for (const std::uint32_t pathCount : {1U, 3U, 4294967295U}) {
                EXPECT_EQ(includeBlankPage(pathCount, unit, paperType), !unit || hasFront)
                    << pathCount << paperType;
            }
        }
    }
}

} // namespace
} // namespace veltrin
