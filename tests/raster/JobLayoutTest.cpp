#include "raster/JobLayout.h"

#include "driver/DuplexOrder.h"
#include "driver/PageSelection.h"
#include "driver/SendPlan.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::raster {
namespace {

/// The whole stream's sides, the document's pages arriving one after the other.
std::vector<Side> sidesOf(const JobLayout &layout, std::uint32_t pages) {
    std::vector<Side> sides;
    const SideSink sink = [&sides](const Side &side) {
        sides.push_back(side);
        return true;
    };
    for (std::uint32_t page = 1; page <= pages; ++page) {
        EXPECT_TRUE(sidesOnArrival(layout, page, sink));
    }
    EXPECT_TRUE(sidesAtEnd(layout, pages, sink));
    return sides;
}

/// Such as "1 2 3 B".
std::string textOf(const std::vector<Side> &sides) {
    std::string text;
    for (const Side &side : sides) {
        text += (text.empty() ? "" : " ") + (side.blank ? "B" : std::to_string(side.number));
    }
    return text;
}

struct LayoutCase {
    std::uint32_t pages;
    std::uint32_t copies;
    bool collate;
    bool twoSided;
    const char *sides;
};

TEST(JobLayout, WritesEveryCopyFilledUpToWholeSheets) {
    constexpr bool collated = true;
    constexpr bool twoSided = true;
    const std::vector<LayoutCase> cases = {
        {0, 1, false, false, ""},
        {0, 3, collated, twoSided, ""},
        {0, 3, false, twoSided, ""},

        {1, 1, false, false, "1"},
        {3, 1, false, false, "1 2 3"},
        {3, 1, collated, false, "1 2 3"},
        {1, 3, false, false, "1 1 1"},
        {1, 3, collated, false, "1 1 1"},
        {2, 2, false, false, "1 1 2 2"},
        {3, 2, collated, false, "1 2 3 1 2 3"},

        {1, 1, false, twoSided, "1"},
        {1, 1, collated, twoSided, "1"},
        {1, 3, false, twoSided, "1 B 1 B 1 B"},
        {1, 2, collated, twoSided, "1 B 1 B"},
        {2, 1, false, twoSided, "1 2"},
        {2, 2, false, twoSided, "1 2 1 2"},
        {2, 2, collated, twoSided, "1 2 1 2"},
        {3, 1, false, twoSided, "1 2 3 B"},
        {3, 1, collated, twoSided, "1 2 3 B"},
        {3, 2, collated, twoSided, "1 2 3 B 1 2 3 B"},
        {3, 2, false, twoSided, "1 2 1 2 3 B 3 B"},
        {4, 2, false, twoSided, "1 2 1 2 3 4 3 4"},
        {5, 3, false, twoSided, "1 2 1 2 1 2 3 4 3 4 3 4 5 B 5 B 5 B"},
    };
    for (const LayoutCase &each : cases) {
        EXPECT_EQ(textOf(sidesOf({each.copies, each.collate, each.twoSided}, each.pages)), each.sides)
            << each.pages << " pages, " << each.copies << " copies, collated " << each.collate
            << ", two-sided " << each.twoSided;
    }
}

TEST(JobLayout, ABlankSideHasTheNumberAfterTheLastPage) {
    EXPECT_EQ(sidesOf({1, false, true}, 3).back(), (Side{.number = 4, .blank = true}));
    EXPECT_EQ(sidesOf({2, false, true}, 1).back(), (Side{.number = 2, .blank = true}));
}

TEST(JobLayout, EndsWhereASideCannotBeTaken) {
    for (const bool collate : {false, true}) {
        for (const bool twoSided : {false, true}) {
            const JobLayout layout = {3, collate, twoSided};
            const std::size_t all = sidesOf(layout, 3).size();
            for (std::size_t room = 0; room < all; ++room) {
                std::size_t taken = 0;
                const SideSink sink = [&taken, room](const Side & /*side*/) { return taken++ < room; };
                bool whole = true;
                for (std::uint32_t page = 1; whole && page <= 3; ++page) {
                    whole = sidesOnArrival(layout, page, sink);
                }
                EXPECT_FALSE(whole && sidesAtEnd(layout, 3, sink)) << room;
                EXPECT_EQ(taken, room + 1) << "nothing more was offered";
            }
        }
    }
}

TEST(JobLayout, KeepsPagesAsLongAsTheyAreWrittenAgain) {
    for (std::uint32_t copies = 1; copies <= 3; ++copies) {
        for (const bool collate : {false, true}) {
            for (const bool twoSided : {false, true}) {
                const JobLayout layout = {copies, collate, twoSided};
                constexpr std::uint32_t pages = 5;
                std::vector<std::uint32_t> kept;
                bool wroteEarlierPage = false;
                std::uint32_t arrived = 0;
                const SideSink sink = [&](const Side &side) {
                    EXPECT_TRUE(side.blank || side.number == arrived ||
                                std::count(kept.begin(), kept.end(), side.number) == 1)
                        << side.number;
                    wroteEarlierPage = wroteEarlierPage || (!side.blank && side.number != arrived);
                    return true;
                };
                for (arrived = 1; arrived <= pages; ++arrived) {
                    if (repeatsPages(layout)) {
                        kept.push_back(arrived);
                    }
                    EXPECT_TRUE(sidesOnArrival(layout, arrived, sink));
                    if (isDoneWithPages(layout, arrived)) {
                        kept.clear();
                    }
                }
                EXPECT_TRUE(sidesAtEnd(layout, pages, sink));
                EXPECT_TRUE(collate ? copies == 1 || wroteEarlierPage : kept.size() <= 1);
            }
        }
    }
}

/// A sheet of paper: the sides on its front and back, 0 for a side without ink.
struct Sheet {
    std::uint32_t front = 0;
    std::uint32_t back = 0;

    bool operator==(const Sheet &) const = default;
    auto operator<=>(const Sheet &) const = default;
};

void PrintTo(const Sheet &sheet, std::ostream *os);

void PrintTo(const Sheet &sheet, std::ostream *os) {
    *os << sheet.front << '/' << sheet.back;
}

/// What the filter is told of the job besides its stream.
struct FilterJob {
    JobLayout layout;
    bool longEdge = true;
    bool duplexUnit = true;
    std::string_view handOrder = "642135"; ///< of a stack that is turned by hand
};

/// The sheets that lie in the output tray when the filter has picked, ordered and repeated the stream's
/// pages: the decisions of the driver, and the printer's paper path.
std::vector<Sheet> printedSheets(const FilterJob &job, const std::vector<Side> &stream) {
    const auto inkOf = [](const Side &side) { return side.blank ? 0 : side.number; };
    std::vector<Sheet> sheets;
    if (!job.layout.twoSided) {
        // The filter passes a one-sided stream through.
        for (const Side &side : stream) {
            sheets.push_back({inkOf(side), 0});
        }
        return sheets;
    }

    const auto pageCount = static_cast<std::uint32_t>(stream.size());
    JobSettings settings;
    settings.copies = job.layout.copies;
    settings.collate = job.layout.collate;
    settings.duplex = true;
    settings.longEdge = job.longEdge;
    settings.shortEdge = !job.longEdge;
    settings.sidesImaged = 1;
    settings = adjustedToPageCount(settings, pageCount);
    const PageSelection selection =
        selectPages(settings, countCopy(settings, pageCount), pageCount, pairedPagesVersion);
    std::vector<std::uint32_t> path = selection.indexes;
    if (selection.blankPage == BlankPage::appended) {
        path.push_back(pageCount - 1);
    }
    if (settings.duplex) {
        EXPECT_EQ(path.size() % 2, 0U);
        const auto order = duplexOrder(job.duplexUnit ? duplexUnitOrder : job.handOrder,
                                       static_cast<std::uint32_t>(path.size()));
        EXPECT_TRUE(order);
        std::vector<std::uint32_t> ordered;
        for (const std::uint32_t index : order.value_or(std::vector<std::uint32_t>())) {
            ordered.push_back(path[index]);
        }
        path = ordered;
    }

    std::vector<std::uint32_t> firstPass;
    std::vector<std::uint32_t> secondPass;
    bool turned = false;
    forEachPlannedPage({.pathCount = static_cast<std::uint32_t>(path.size()),
                        .copies = settings.copies,
                        .collate = settings.collate,
                        .duplex = settings.duplex,
                        .duplexInstalled = job.duplexUnit},
                       [&](const PlannedPage &page) {
                           const std::uint32_t ink = inkOf(stream[path[page.index]]);
                           if (!settings.duplex) {
                               sheets.push_back({ink, 0});
                               return true;
                           }
                           if (job.duplexUnit) {
                               // The back comes first.
                               if ((page.typeBits & pageTypeFirstOfSheet) == pageTypeFirstOfSheet) {
                                   sheets.push_back({0, ink});
                               } else {
                                   sheets.back().front = ink;
                               }
                               return true;
                           }
                           turned = turned || (page.typeBits & pageTypePause) != 0;
                           (turned ? secondPass : firstPass).push_back(ink);
                           return true;
                       });

    if (!firstPass.empty()) {
        // Backs first. From the stack that goes back in, the sheet printed last comes first, or, where the
        // way of the paper turns the order round again, the one printed first.
        EXPECT_EQ(firstPass.size(), secondPass.size());
        if (job.handOrder == "642135") {
            std::reverse(firstPass.begin(), firstPass.end());
        }
        for (std::size_t i = 0; i < std::min(firstPass.size(), secondPass.size()); ++i) {
            sheets.push_back({secondPass[i], firstPass[i]});
        }
    }
    return sheets;
}

/// The sheets of one copy, as they should lie in the output tray.
std::vector<Sheet> sheetsOfACopy(std::uint32_t pages, bool twoSided) {
    std::vector<Sheet> sheets;
    for (std::uint32_t page = 1; page <= pages; page += twoSided ? 2 : 1) {
        sheets.push_back({page, twoSided && page < pages ? page + 1 : 0});
    }
    return sheets;
}

std::vector<Sheet> expectedSheets(const JobLayout &layout, std::uint32_t pages) {
    const std::vector<Sheet> copy = sheetsOfACopy(pages, layout.twoSided);
    std::vector<Sheet> sheets;
    if (layout.collate) {
        for (std::uint32_t i = 0; i < layout.copies; ++i) {
            sheets.insert(sheets.end(), copy.begin(), copy.end());
        }
    } else {
        for (const Sheet &sheet : copy) {
            sheets.insert(sheets.end(), layout.copies, sheet);
        }
    }
    return sheets;
}

TEST(JobLayout, TheFilterMakesTheRightSheetsOfIt) {
    for (std::uint32_t pages = 1; pages <= 9; ++pages) {
        for (std::uint32_t copies = 1; copies <= 5; ++copies) {
            for (const bool collate : {false, true}) {
                for (const bool twoSided : {false, true}) {
                    const JobLayout layout = {copies, collate, twoSided};
                    const std::vector<Side> stream = sidesOf(layout, pages);
                    for (const bool longEdge : {true, false}) {
                        const std::string job = std::to_string(pages) + " pages, " + std::to_string(copies) +
                                                " copies, " + textOf(stream) +
                                                (longEdge ? ", long edge" : ", short edge");
                        EXPECT_EQ(printedSheets({layout, longEdge, true}, stream),
                                  expectedSheets(layout, pages))
                            << job << ", duplex unit";
                        // Of four uncollated copies and more, the pause comes behind some of the fronts
                        // already.
                        if (copies > 3 && !collate) {
                            continue;
                        }
                        for (const char *order : {"642135", "246135"}) {
                            EXPECT_EQ(printedSheets({layout, longEdge, false, order}, stream),
                                      expectedSheets(layout, pages))
                                << job << ", by hand in the order " << order;
                        }
                    }
                }
            }
        }
    }
}

TEST(JobLayout, ASingleBlankSideAtTheVeryEndWouldPrintAPageOnBothSides) {
    const std::vector<Side> stream = {{1}, {2}, {1}, {2}, {3}, {3}, {4, true}};
    const std::vector<Sheet> sheets = printedSheets({{2, false, true}, true, true}, stream);
    EXPECT_NE(sheets, expectedSheets({2, false, true}, 3));
    EXPECT_NE(std::find(sheets.begin(), sheets.end(), Sheet{3, 3}), sheets.end());
}

} // namespace
} // namespace veltrin::raster
