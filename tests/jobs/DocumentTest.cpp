// Documents as people have them, from lp through CUPS's own filters, the renderer and the filter to a file
// device, and what is in the stream then.

#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/Files.h"
#include "tests/support/NumberedDocument.h"
#include "tests/support/StreamPages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::numberedPdf;
using test::Patch;
using test::PrivateScheduler;
using test::StreamContents;
using test::StreamPage;
using testing::IsEmpty;

/// The share of the patch's dots that have ink of this plane; looked at in its middle, since pages may be
/// moved by a part of a point.
double inkOf(const StreamPage &page, raster::Plane plane, const Patch &patch) {
    const auto dots = [](double points) { return static_cast<std::uint32_t>(points * 600 / 72); };
    const std::uint32_t columns = dots(patch.width / 2);
    const std::uint32_t lines = dots(patch.height / 2);
    const std::uint32_t ink = page.inkIn(plane, dots(patch.left + patch.width / 4),
                                         dots(patch.top + patch.height / 4), columns, lines);
    return static_cast<double>(ink) / (columns * lines);
}

/// The number that the page's bars show; 0 for a blank one.
std::uint32_t numberOn(const StreamPage &page) {
    if (page.isBlank()) {
        return 0;
    }
    std::uint32_t number = 0;
    for (std::uint32_t bit = 0; bit < test::numberBits; ++bit) {
        number |= (inkOf(page, raster::black, test::barOf(bit)) > 0.5 ? 1U : 0U) << bit;
    }
    return number;
}

class DocumentTest : public testing::Test {
  protected:
    /// Prints a document, and reads what has come to the device.
    StreamContents print(const std::string &document, const std::vector<std::string> &options) {
        const int job = scheduler.submit(document, options);
        scheduler.expectState(job, IPP_JSTATE_COMPLETED);
        stream = test::readFile(PrivateScheduler::fileDevice);
        StreamContents contents = test::contentsOf(stream);
        EXPECT_THAT(contents.problems, IsEmpty()) << scheduler.log();
        return contents;
    }

    std::string stream;
    PrivateScheduler scheduler{PrivateScheduler::fileDeviceUri};
};

TEST_F(DocumentTest, BlackStaysBlackAndRedIsMixed) {
    const StreamContents contents = print(numberedPdf(1), {});
    ASSERT_EQ(contents.pages.size(), 1U);
    const StreamPage &page = contents.pages.front();
    const Patch bar = test::barOf(0);
    EXPECT_EQ(inkOf(page, raster::black, bar), 1.0);
    EXPECT_EQ(inkOf(page, raster::cyan, bar), 0.0);
    EXPECT_EQ(inkOf(page, raster::magenta, bar), 0.0);
    EXPECT_EQ(inkOf(page, raster::yellow, bar), 0.0);
    EXPECT_GT(inkOf(page, raster::magenta, test::redPatch), 0.9);
    EXPECT_GT(inkOf(page, raster::yellow, test::redPatch), 0.9);
    EXPECT_LT(inkOf(page, raster::cyan, test::redPatch), 0.1);
}

TEST_F(DocumentTest, InBlackAndWhiteThereIsBlackAlone) {
    const StreamContents contents = print(numberedPdf(1), {"-o", "print-color-mode=monochrome"});
    ASSERT_EQ(contents.pages.size(), 1U);
    EXPECT_EQ(numberOn(contents.pages.front()), 1U);
    for (const raster::Plane plane : {raster::cyan, raster::magenta, raster::yellow}) {
        EXPECT_THAT(contents.pages.front().planes[plane], IsEmpty());
    }
    EXPECT_GT(inkOf(contents.pages.front(), raster::black, test::redPatch), 0.3);
    EXPECT_EQ(contents.header.bColorMode, 0);
    EXPECT_EQ(contents.pages.front().header.bPlane, 1);
}

TEST_F(DocumentTest, TrayAndPaperTypeStandInThePageHeader) {
    const StreamContents contents =
        print(numberedPdf(1), {"-o", "InputSlot=Tray2", "-o", "PaperType=Thick", "-o", "media=Letter"});
    ASSERT_EQ(contents.pages.size(), 1U);
    const PageHeader &header = contents.pages.front().header;
    EXPECT_EQ(header.bPaperTray, 3);
    EXPECT_EQ(header.bMediaType, 12) << "Thick";
    EXPECT_EQ(header.bPaperSize, 1) << "Letter";
    EXPECT_EQ(header.wScanLineWidth, 5100);
    EXPECT_EQ(header.wHeight, 6600);
}

TEST_F(DocumentTest, APictureIsPrintedAsWell) {
    std::string picture = "P6 64 64 255\n";
    for (int dot = 0; dot < 64 * 64; ++dot) {
        picture.append("\xff\0\0", 3);
    }
    const StreamContents contents = print(picture, {"-n", "2"});
    ASSERT_EQ(contents.pages.size(), 2U);
    EXPECT_FALSE(contents.pages.front().planes[raster::magenta].empty());
    EXPECT_TRUE(contents.pages.front().planes[raster::cyan].empty());
}

} // namespace
} // namespace veltrin
