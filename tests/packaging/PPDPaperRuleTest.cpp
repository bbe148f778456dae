// Paper that is printed on one side only: what a dialogue is told by the PPD, against what the renderer and
// the filter do.

#include "filter/DuplexPaperRule.h"
#include "raster/JobTicket.h"
#include "raster/QueuePPD.h"
#include "status/MediaNames.h"
#include "tests/packaging/MadePPD.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace veltrin {
namespace {

using test::MadePPD;
using test::openPPDs;

constexpr const char *customSize = "Custom.300x500";

std::vector<std::string> sizesOf(const MadePPD &ppd) {
    std::vector<std::string> sizes = ppd.choices("PageSize");
    for (std::string &size : sizes) {
        if (size == "Custom") {
            size = customSize;
        }
    }
    return sizes;
}

/// Whether the renderer lays out what is marked in the PPD on both sides.
bool isTwoSided(const MadePPD &ppd) {
    std::string problem;
    const raster::PPDChoices choices =
        raster::choicesInPPD(ppd.path(), "PaperType=" + ppd.marked("PaperType"), problem);
    EXPECT_EQ(problem, "");
    return raster::ticketFor("1", raster::JobOptions(), choices, ppd.page()).layout.twoSided;
}

struct Paper {
    std::string size;
    std::string type;
};

/// Each size of plain paper, and A4 paper of each type.
std::vector<Paper> papersOf(const MadePPD &ppd) {
    std::vector<Paper> papers;
    for (const std::string &size : sizesOf(ppd)) {
        papers.push_back({size, "Plain"});
    }
    for (const std::string &type : ppd.choices("PaperType")) {
        papers.push_back({"A4", type});
    }
    return papers;
}

TEST(PPDPaperRule, WhatIsForbiddenInADialogueIsWhatIsNotPrintedTwoSided) {
    for (const MadePPD &ppd : openPPDs()) {
        int forbidden = 0;
        for (const Paper &paper : papersOf(ppd)) {
            for (const char *sides : {"DuplexNoTumble", "DuplexTumble"}) {
                ppd.markDefaults();
                ppd.mark("PageSize", paper.size);
                ppd.mark("PaperType", paper.type);
                ppd.mark("Duplex", sides);
                EXPECT_EQ(ppd.hasConflict(), !isTwoSided(ppd))
                    << ppd.path() << ": " << sides << ", " << paper.size << ", " << paper.type;
                forbidden += ppd.hasConflict() ? 1 : 0;
            }
        }
        // 15 sizes, custom sizes and 7 types.
        EXPECT_EQ(forbidden, 2 * 23) << ppd.path();
    }
}

TEST(PPDPaperRule, OneSidedEveryPaperGoes) {
    for (const MadePPD &ppd : openPPDs()) {
        for (const std::string &size : sizesOf(ppd)) {
            for (const std::string &type : ppd.choices("PaperType")) {
                ppd.markDefaults();
                ppd.mark("PageSize", size);
                ppd.mark("PaperType", type);
                EXPECT_FALSE(ppd.hasConflict()) << ppd.path() << ": " << size << ", " << type;
            }
        }
    }
}

TEST(PPDPaperRule, TheFilterKnowsThePaperByTheNamesItIsGiven) {
    std::set<std::string> refused;
    for (const MadePPD &ppd : openPPDs()) {
        for (const std::string &size : ppd.choices("PageSize")) {
            const std::string_view name = ownSizeName(size);
            if (!canDuplexPaper(name, std::nullopt)) {
                refused.emplace(name);
            }
        }
    }
    EXPECT_THAT(refused, testing::UnorderedElementsAre("A5", "B6", "A6", "HalfLetter", "FS", "Foolscap",
                                                       "Folio", "Env10", "Monarch", "EnvC5", "EnvC6", "EnvDL",
                                                       "Kai16", "Postcard", "ReplyPaid", "Custom"));
}

TEST(PPDPaperRule, EveryConstraintStandsInBothDirections) {
    using Side = std::pair<std::string, std::string>;
    for (const MadePPD &ppd : openPPDs()) {
        std::set<std::pair<Side, Side>> constraints;
        for (int place = 0; place < ppd->num_consts; ++place) {
            const ppd_const_t &one = ppd->consts[place];
            constraints.insert({{one.option1, one.choice1}, {one.option2, one.choice2}});
        }
        for (const auto &[one, other] : constraints) {
            EXPECT_TRUE(constraints.contains({other, one}))
                << ppd.path() << ": " << one.first << ' ' << one.second;
        }
    }
}

} // namespace
} // namespace veltrin
