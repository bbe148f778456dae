#include "driver/SelectionLog.h"

#include "tests/support/CapturedLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class SelectionLogTest : public testing::Test {
  protected:
    test::CapturedLog log;
};

TEST_F(SelectionLogTest, CountsAreLoggedAsSignedNumbers) {
    logCopyCounts({.copies = 0xFFFFFFFF, .collate = true, .sidesImaged = 0xFFFFFFFE},
                  {.pathCount = 7, .hasGDIBlankPage = true}, 8);
    EXPECT_THAT(log.messages(),
                ElementsAre("DriverFilter spoolPages: copies: -1, sidesImaged: -2, origPaths: 8, pathCount: "
                            "7, collate: YES, hasGDIBlankPage: YES"));
}

TEST_F(SelectionLogTest, MoreSidesThanPagesAreLogged) {
    logCopyCounts({.copies = 1, .sidesImaged = 9}, {.pathCount = 1, .exceedsPageCount = true}, 1);
    EXPECT_THAT(
        log.messages(),
        ElementsAre(
            "DriverFilter spoolPages: sidesImaged / copies > pageCount",
            "DriverFilter spoolPages: copies: 1, sidesImaged: 9, origPaths: 1, pathCount: 1, collate: NO, "
            "hasGDIBlankPage: NO"));
}

TEST_F(SelectionLogTest, ThePagesAreLoggedInTheirOrderAndThenTheBlankOne) {
    logSelection({.paired = true, .indexes = {0, 1}, .blankPage = BlankPage::appended});
    logSelection({.indexes = {2}, .blankPage = BlankPage::discarded});
    logSelection({.indexes = {3}});
    EXPECT_THAT(log.messages(),
                ElementsAre("DriverFilter spoolPages: copying path at index 0 (10.4 special)",
                            "DriverFilter spoolPages: copying path at index 1 (10.4 special)",
                            "DriverFilter spoolPages: appending blank page",
                            "DriverFilter spoolPages: copying path at index 2",
                            "DriverFilter spoolPages: filter supplied a blank page, but we are discarding it",
                            "DriverFilter spoolPages: copying path at index 3"));
}

TEST_F(SelectionLogTest, AllFilesAreLoggedAndThenThoseOfTheCopy) {
    SpooledPages pages;
    logPaths(pages);
    EXPECT_THAT(log.messages(), IsEmpty());
    pages.add("/tmp/none/a");
    pages.add("/tmp/none/b");
    pages.select({1});
    logPaths(pages);
    EXPECT_THAT(log.messages(), ElementsAre("DriverFilter spoolPages: origPath 0 = /tmp/none/a",
                                            "DriverFilter spoolPages: origPath 1 = /tmp/none/b",
                                            "DriverFilter spoolPages: path 0 = /tmp/none/b"));
}

} // namespace
} // namespace veltrin
