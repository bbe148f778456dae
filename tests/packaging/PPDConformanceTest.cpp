// The PPDs against CUPS's own judge, and as a print dialogue opens them.

#include "tests/packaging/MadePPD.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <string>

namespace veltrin {
namespace {

using test::MadePPD;
using test::openPPDs;
using testing::HasSubstr;
using testing::Not;

// Whether the filters are installed is the machine's affair.
TEST(PPDConformance, CupsFindsNothingToWarnOf) {
    for (const std::filesystem::path &path : test::madePPDs()) {
        const test::ProcessResult result =
            test::run({.program = CUPSTESTPPD,
                       .arguments = {CUPSTESTPPD, "-v", "-I", "filters", path.string()},
                       .environment = std::map<std::string, std::string>{{"LANG", "C"}}});
        EXPECT_EQ(result.exitStatus, 0) << path;
        EXPECT_THAT(result.output, HasSubstr("NO ERRORS FOUND")) << path;
        EXPECT_THAT(result.output, Not(HasSubstr("WARN"))) << path;
        EXPECT_EQ(result.errors, "") << path;
    }
}

TEST(PPDConformance, DefaultsAreMarkedAndAgreeWithEachOther) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_FALSE(ppd.hasConflict()) << ppd.path();
        for (const ppd_option_t *option : ppd.options()) {
            int marked = 0;
            for (int choice = 0; choice < option->num_choices; ++choice) {
                marked += option->choices[choice].marked != 0 ? 1 : 0;
            }
            // A page region is what is marked where no page size is.
            EXPECT_EQ(marked, std::string(option->keyword) == "PageRegion" ? 0 : 1)
                << ppd.path() << ": " << option->keyword;
        }
    }
}

TEST(PPDConformance, DefaultsAreThoseThatPeopleExpect) {
    for (const MadePPD &ppd : openPPDs()) {
        const raster::RasterPage page = ppd.page();
        EXPECT_EQ(page.pageSizeName, "A4") << ppd.path();
        EXPECT_EQ(page.mediaType, "Plain") << ppd.path();
        EXPECT_EQ(page.samples, raster::Samples::rgb) << ppd.path();
        EXPECT_FALSE(page.duplex) << ppd.path();
        EXPECT_EQ(ppd->color_device, 1) << ppd.path();
        EXPECT_EQ(ppd.attribute("DefaultInputSlot"), "Tray1") << ppd.path();
    }
}

} // namespace
} // namespace veltrin
