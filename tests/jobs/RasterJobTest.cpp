// Raster from lp through a real scheduler, renderer and filter: what the scheduler makes of what they tell.

#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/Files.h"
#include "tests/support/RasterText.h"
#include "tests/support/StreamPages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::contentsOf;
using test::numbered;
using test::PrivateScheduler;
using test::rasterText;
using test::readFile;
using testing::IsEmpty;

std::string document(std::uint32_t pages, std::uint32_t copies = 1) {
    std::vector<test::RasterSheet> sheets;
    for (std::uint32_t page = 1; page <= pages; ++page) {
        cups_page_header2_t header = test::rasterHeader(75);
        header.NumCopies = copies;
        sheets.push_back({header, numbered(page)});
    }
    return rasterText(sheets);
}

std::string inCmyk() {
    cups_page_header2_t header = test::rasterHeader(75);
    header.cupsColorSpace = CUPS_CSPACE_CMYK;
    header.cupsBitsPerPixel = 32;
    header.cupsBytesPerLine = 4 * header.cupsWidth;
    header.cupsNumColors = 4;
    return rasterText({{header, numbered(1, 4)}});
}

const std::vector<std::string> asRaster = {"-o", "document-format=application/vnd.cups-raster"};

TEST(RasterJobTest, ARasterThatCannotBePrintedStopsTheJobAndItsReasonIsShown) {
    const std::string whole = document(2);
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    for (const auto &[raster, reason] :
         {std::pair(whole.substr(0, whole.size() - 1), "The raster ends in the middle of page 2."),
          std::pair(whole + "more", "The raster ends in the header of page 3."),
          std::pair(rasterText({}),
                    "There is no page to print: the document is empty, or none of its pages was asked for."),
          std::pair(inCmyk(),
                    "The raster has colour space 6; only sRGB (19 or 1) and gray (18, 0 or 3) can be "
                    "printed.")}) {
        const int job = scheduler.submit(raster, asRaster);
        scheduler.expectState(job, IPP_JSTATE_STOPPED);
        scheduler.expectIdleQueue();
        EXPECT_EQ(scheduler.queueStatus().message, reason);
        EXPECT_THAT(scheduler.temporaryFiles(), IsEmpty());
    }
    // The next document finds the queue as it should be.
    const int next = scheduler.submit(whole, asRaster);
    scheduler.expectState(next, IPP_JSTATE_COMPLETED);
    EXPECT_EQ(contentsOf(readFile(PrivateScheduler::fileDevice)).pages.size(), 2U);
}

TEST(RasterJobTest, EveryCopyOfAPageIsCounted) {
    PrivateScheduler scheduler(PrivateScheduler::fileDeviceUri);
    const int one = scheduler.submit(document(3), asRaster);
    scheduler.expectState(one, IPP_JSTATE_COMPLETED);
    EXPECT_EQ(scheduler.sheetsOf(one), 3);
    std::vector<std::string> twice = asRaster;
    twice.insert(twice.end(), {"-n", "2"});
    const int two = scheduler.submit(document(3, 2), twice);
    scheduler.expectState(two, IPP_JSTATE_COMPLETED);
    EXPECT_EQ(scheduler.sheetsOf(two), 6);
    EXPECT_EQ(contentsOf(readFile(PrivateScheduler::fileDevice)).pages.size(), 6U);
}

} // namespace
} // namespace veltrin
