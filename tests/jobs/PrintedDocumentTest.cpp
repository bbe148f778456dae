// Documents as people have them, from lp through CUPS's own filters, the renderer, the filter and the channel
// to the printer, and what is on the sheets then.

#include "tests/jobs/Copies.h"
#include "tests/jobs/PrintedDocumentFixture.h"
#include "tests/support/ColourDocument.h"
#include "tests/support/Files.h"
#include "tests/support/RasterText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <png.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Copies;
using test::lpOptions;
using test::numberedPdf;
using test::Patch;
using test::PlaceOnSheet;
using test::PrintedSheet;
using testing::Each;
using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

using PrintedDocumentTest = test::PrintedDocumentFixture;

/// The numbers of pages that came to lie elsewhere, one to a sheet.
std::vector<std::string> frontsAt(const PlaceOnSheet &place, const std::vector<PrintedSheet> &sheets) {
    std::vector<std::string> numbers;
    for (const PrintedSheet &sheet : sheets) {
        numbers.push_back(!sheet.front || sheet.back ? "not one-sided" : sheet.front->number(place));
    }
    return numbers;
}

constexpr double a4Width = 595.28;
constexpr double a4Height = 841.89;
constexpr double margin = 12; ///< that the printer leaves white on each edge

/// A page of A4 in the middle of other paper, cut on its edges.
PlaceOnSheet centredOn(double width, double height) {
    return {.left = (width - a4Width) / 2, .top = (height - a4Height) / 2};
}

/// A page of A4, made smaller for an area of the paper and in the middle of it.
PlaceOnSheet fittedInto(double left, double top, double width, double height) {
    const double scale = std::min(width / a4Width, height / a4Height);
    return {.scale = scale,
            .left = left + (width - scale * a4Width) / 2,
            .top = top + (height - scale * a4Height) / 2};
}

PlaceOnSheet fittedOn(double width, double height) {
    return fittedInto(margin, margin, width - 2 * margin, height - 2 * margin);
}

constexpr double a5Width = 419.53;
constexpr double a5Height = 595.28;

// ---- Copies

/// So that each value of one column meets each of every other one. (All of them are in PrintedCopiesTest.cpp,
/// where nobody has to wait for Ghostscript.)
const std::vector<Copies> someCopies = {
    {1, 1, true, "two-sided-long-edge", false},
    {1, 2, true, "one-sided", true},
    {1, 3, false, "two-sided-short-edge", false},
    {2, 1, false, "one-sided", false},
    {2, 2, false, "two-sided-short-edge", false},
    {2, 3, true, "two-sided-long-edge", true},
    {3, 1, true, "two-sided-short-edge", true},
    {3, 2, false, "two-sided-long-edge", false},
    {3, 3, false, "one-sided", true},
    {4, 1, true, "two-sided-long-edge", false},
    {4, 2, false, "one-sided", true},
    {4, 3, false, "two-sided-short-edge", false},
};

/// By the number of pages.
class CopiesOfADocument : public PrintedDocumentTest, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(CopiesOfADocument, LieOnTheRightSheets) {
    for (const Copies &job : someCopies) {
        if (job.pages != GetParam()) {
            continue;
        }
        SCOPED_TRACE(testing::PrintToString(job));
        const Printed printed = print(numberedPdf(job.pages),
                                      {"-n", std::to_string(job.copies), "-o", "sides=" + job.sides, "-o",
                                       job.collate ? "Collate=True" : "Collate=False"},
                                      {.byHand = job.byHand});
        EXPECT_THAT(printed.numbers(), ElementsAreArray(job.sheets()));
        EXPECT_THAT(test::numbersIn(printed.documents[0], job.pages), ElementsAreArray(job.sheets()));
        EXPECT_EQ(printed.documents[0]["copies"], job.copies);
        EXPECT_EQ(printed.documents[0]["pauses"].empty(), !(job.hasBacks() && job.byHand));
    }
}

INSTANTIATE_TEST_SUITE_P(Pages, CopiesOfADocument, testing::Values(1U, 2U, 3U, 4U));

TEST_F(PrintedDocumentTest, CollationHasMoreThanOneName) {
    const std::vector<std::string> twoSided = {"-n", "2", "-o", "sides=two-sided-long-edge", "-o"};
    const auto with = [&](const char *option) {
        std::vector<std::string> options = twoSided;
        options.emplace_back(option);
        return print(numberedPdf(3), options).numbers();
    };
    EXPECT_THAT(with("multiple-document-handling=separate-documents-collated-copies"),
                ElementsAre("1/2", "3/-", "1/2", "3/-"));
    EXPECT_THAT(with("multiple-document-handling=separate-documents-uncollated-copies"),
                ElementsAre("1/2", "1/2", "3/-", "3/-"));
    EXPECT_THAT(with("collate=true"), ElementsAre("1/2", "3/-", "1/2", "3/-"));
    EXPECT_THAT(with("Collate=on"), ElementsAre("1/2", "3/-", "1/2", "3/-"));
}

// ---- Pages and sheets

TEST_F(PrintedDocumentTest, FourPagesOnASideLeaveABlankBack) {
    const Printed printed = print(numberedPdf(9), lpOptions({"number-up=4", "sides=two-sided-long-edge"}));
    ASSERT_THAT(printed.sheets, SizeIs(2));
    const auto numberAt = [](const test::PrintedSide &side, unsigned column, unsigned row) {
        const double width = a4Width / 2;
        const double height = a4Height / 2;
        return side.number(fittedInto(column * width, row * height, width, height));
    };
    unsigned number = 0;
    for (const test::PrintedSide *side : {&*printed.sheets[0].front, &*printed.sheets[0].back}) {
        for (const unsigned row : {0U, 1U}) {
            for (const unsigned column : {0U, 1U}) {
                EXPECT_EQ(numberAt(*side, column, row), std::to_string(++number));
            }
        }
    }
    EXPECT_EQ(numberAt(*printed.sheets[1].front, 0, 0), "9");
    ASSERT_TRUE(printed.sheets[1].back);
    EXPECT_TRUE(printed.sheets[1].back->isBlank());
}

TEST_F(PrintedDocumentTest, PagesAreChosenAndTurnedRoundInFrontOfTheRenderer) {
    EXPECT_THAT(print(numberedPdf(4), lpOptions({"page-ranges=2-4", "sides=two-sided-long-edge"})).numbers(),
                ElementsAre("2/3", "4/-"));
    EXPECT_THAT(print(numberedPdf(3), lpOptions({"outputorder=reverse"})).numbers(),
                ElementsAre("3", "2", "1"));
}

TEST_F(PrintedDocumentTest, EachFileOfAJobHasItsOwnSheets) {
    const Printed printed = printAll({numberedPdf(3), numberedPdf(1)},
                                     {"-n", "2", "-o", "sides=two-sided-long-edge", "-o", "Collate=True"});
    EXPECT_THAT(printed.numbers(), ElementsAre("1/2", "3/-", "1/2", "3/-", "1/-", "1/-"));
    ASSERT_EQ(printed.documents.size(), 2U);
    EXPECT_EQ(printed.documents[0]["copies"], 2);
    EXPECT_EQ(printed.documents[1]["copies"], 2);
}

// ---- Paper

struct OneSidedPaper {
    std::string name;
    std::vector<std::string> options;
    PlaceOnSheet place;
    int paperSize; ///< codes of the page header
    int media;
    int tray;
};

void PrintTo(const OneSidedPaper &paper, std::ostream *text);

void PrintTo(const OneSidedPaper &paper, std::ostream *text) {
    *text << paper.name;
}

class PaperWithOneSide : public PrintedDocumentTest, public testing::WithParamInterface<OneSidedPaper> {};

/// Paper that the printer does not take two-sided is printed on one side, and whole: all pages in their
/// copies, in the order of a one-sided job.
TEST_P(PaperWithOneSide, IsPrintedOneSidedAndWhole) {
    const OneSidedPaper &paper = GetParam();
    std::vector<std::string> options = {"-n", "2", "-o", "sides=two-sided-long-edge", "-o", "Collate=True"};
    const std::vector<std::string> more = lpOptions(paper.options);
    options.insert(options.end(), more.begin(), more.end());
    const Printed printed = print(numberedPdf(3), options);
    EXPECT_THAT(frontsAt(paper.place, printed.sheets), ElementsAre("1", "2", "3", "1", "2", "3"));
    const nlohmann::json &report = printed.documents[0];
    EXPECT_EQ(report["jobSetting"], 0);
    for (const nlohmann::json &page : report["pages"]) {
        EXPECT_EQ(page["paperSize"], paper.paperSize);
        EXPECT_EQ(page["media"], paper.media);
        EXPECT_EQ(page["tray"], paper.tray);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Papers, PaperWithOneSide,
    testing::Values(
        OneSidedPaper{
            "A5ByThePpdsName", {"PageSize=A5", "fit-to-page"}, fittedOn(a5Width, a5Height), 11, 1, 2},
        OneSidedPaper{
            "A5ByItsStandardName", {"media=iso_a5_148x210mm"}, fittedOn(a5Width, a5Height), 11, 1, 2},
        OneSidedPaper{"A5FromATray", {"media=A5,Tray2"}, fittedOn(a5Width, a5Height), 11, 1, 3},
        OneSidedPaper{
            "Envelope", {"media=iso_dl_110x220mm", "fit-to-page"}, fittedOn(311.81, 623.62), 27, 1, 2},
        OneSidedPaper{"CustomSize", {"media=Custom.450x700"}, fittedOn(450, 700), 255, 1, 2},
        OneSidedPaper{"LabelsByTheStandardName", {"media-type=labels"}, {}, 9, 7, 2},
        OneSidedPaper{"LabelsAmongTheMedia", {"media=A4,Labels"}, {}, 9, 7, 2},
        OneSidedPaper{"ThickPaper", {"PaperType=Thick"}, {}, 9, 12, 2}),
    [](const auto &paper) { return paper.param.name; });

TEST_F(PrintedDocumentTest, APageLiesInTheMiddleOfLargerPaper) {
    const Printed printed = print(numberedPdf(1), lpOptions({"media=na_legal_8.5x14in"}));
    EXPECT_THAT(frontsAt(centredOn(612, 1008), printed.sheets), ElementsAre("1"));
    EXPECT_EQ(printed.sheets.at(0).front->picture.width, 638U);   // 8.5 inches
    EXPECT_EQ(printed.sheets.at(0).front->picture.height, 1050U); // 14 inches
    EXPECT_EQ(printed.documents[0]["pages"][0]["paperSize"], 5);
    const Printed fitted = print(numberedPdf(1), lpOptions({"PageSize=Legal", "fit-to-page"}));
    EXPECT_THAT(frontsAt(fittedOn(612, 1008), fitted.sheets), ElementsAre("1"));
}

TEST_F(PrintedDocumentTest, APageThatIsALittleTooWideIsCutAtItsSides) {
    const PlaceOnSheet centred = {.left = (a4Width - 612) / 2, .top = (a4Height - 792) / 2};
    EXPECT_THAT(frontsAt(centred, print(test::numberedLetters(2)).sheets), ElementsAre("1", "2"));
}

// ---- What nobody asked for in the job

TEST_F(PrintedDocumentTest, TheQueuesOwnDefaultsCount) {
    scheduler.administer({"-o", "Duplex=DuplexNoTumble", "-o", "Collate=True", "-o", "InputSlot=Tray2", "-o",
                          "PaperType=Recycled"});
    const Printed printed = print(numberedPdf(3), {"-n", "2"});
    EXPECT_THAT(printed.numbers(), ElementsAre("1/2", "3/-", "1/2", "3/-"));
    EXPECT_EQ(printed.documents[0]["pages"][0]["tray"], 3);
    EXPECT_EQ(printed.documents[0]["pages"][0]["media"], 2);
    // The job has the last word.
    EXPECT_THAT(print(numberedPdf(2), {"-n", "2", "-o", "sides=one-sided", "-o", "Collate=False"}).numbers(),
                ElementsAre("1", "1", "2", "2"));
}

TEST_F(PrintedDocumentTest, TheUsersOwnDefaultsCount) {
    scheduler.prefer({"-o", "sides=two-sided-short-edge"});
    EXPECT_THAT(print(numberedPdf(3)).numbers(), ElementsAre("1/2", "3/-"));
}

TEST_F(PrintedDocumentTest, TheQueuesNumberOfCopiesCounts) {
    scheduler.administer({"-o", "copies-default=2"});
    EXPECT_THAT(print(numberedPdf(2)).numbers(), ElementsAre("1", "1", "2", "2"));
}

// ---- Kinds of documents

/// A picture whose corners can be told from each other: red on the left above, green on the right, blue on
/// the left below, black on the right. Twice as high as wide.
std::string cornersAsPng() {
    constexpr std::uint32_t width = 100;
    constexpr std::uint32_t height = 200;
    std::vector<std::uint8_t> dots;
    for (std::uint32_t y = 0; y < height; ++y) {
        for (std::uint32_t x = 0; x < width; ++x) {
            const bool above = y < height / 2;
            const bool left = x < width / 2;
            const auto light = [](bool lit) { return static_cast<std::uint8_t>(lit ? 255 : 0); };
            dots.insert(dots.end(), {light(above && left), light(above && !left), light(!above && left)});
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = width;
    image.height = height;
    image.format = PNG_FORMAT_RGB;
    png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(image);
    std::string file(size, '\0');
    EXPECT_NE(png_image_write_to_memory(&image, file.data(), &size, 0, dots.data(), 0, nullptr), 0);
    file.resize(size);
    return file;
}

/// Which of the primary colours it is; "other" for anything that is none nearly.
std::string nameOf(const test::MeanColour &colour) {
    std::string name;
    for (const double light : {colour.red, colour.green, colour.blue}) {
        name += light > 240 ? '1' : light < 15 ? '0' : '?';
    }
    return name == "000"   ? "black"
           : name == "100" ? "red"
           : name == "010" ? "green"
           : name == "001" ? "blue"
           : name == "111" ? "white"
                           : "other";
}

/// Whether there is no dot of a colour in it: the same light of all three, to the last digit.
bool isGray(const test::MeanColour &colour) {
    return colour.red == colour.green && colour.green == colour.blue;
}

/// What is in the four quarters of an area, row by row.
std::vector<std::string> quartersOf(const test::PrintedSide &side, const Patch &area) {
    std::vector<std::string> names;
    for (const double row : {0.0, 0.5}) {
        for (const double column : {0.0, 0.5}) {
            names.push_back(nameOf(side.meanIn({area.left + column * area.width, area.top + row * area.height,
                                                area.width / 2, area.height / 2})));
        }
    }
    return names;
}

TEST_F(PrintedDocumentTest, APictureLiesUprightInTheMiddleOfThePage) {
    const Printed printed = print(cornersAsPng(), lpOptions({"fit-to-page"}));
    ASSERT_THAT(printed.sheets, SizeIs(1));
    // As high as the printable area, and half as wide as high.
    const double height = a4Height - 2 * margin;
    const Patch area = {(a4Width - height / 2) / 2, margin, height / 2, height};
    EXPECT_THAT(quartersOf(*printed.sheets[0].front, area), ElementsAre("red", "green", "blue", "black"));
    const auto isPaper = [&](const Patch &patch) {
        return nameOf(printed.sheets[0].front->meanIn(patch)) == "white";
    };
    EXPECT_TRUE(isPaper({0, 0, area.left, a4Height}));
    EXPECT_TRUE(isPaper({area.left + area.width, 0, a4Width - area.left - area.width, a4Height}));
}

TEST_F(PrintedDocumentTest, ATextStandsInBlackOnTheLeft) {
    std::string text;
    for (int line = 0; line < 40; ++line) {
        text += "A line of text.\n";
    }
    const Printed printed = print(text);
    ASSERT_THAT(printed.sheets, SizeIs(1));
    const test::MeanColour left = printed.sheets[0].front->meanIn({0, 0, a4Width / 2, a4Height});
    EXPECT_TRUE(isGray(left));
    EXPECT_LT(left.red, 250);
    EXPECT_GT(left.red, 200);
    EXPECT_EQ(nameOf(printed.sheets[0].front->meanIn({a4Width / 2, 0, a4Width / 2, a4Height})), "white");
}

TEST_F(PrintedDocumentTest, InBlackAndWhiteThereIsNoColour) {
    const Printed printed = print(numberedPdf(1), lpOptions({"print-color-mode=monochrome"}));
    EXPECT_THAT(printed.numbers(), ElementsAre("1"));
    ASSERT_THAT(printed.sheets, SizeIs(1));
    const test::MeanColour red = printed.sheets[0].front->meanIn(test::redPatch);
    EXPECT_TRUE(isGray(red));
    EXPECT_LT(red.red, 200);
    EXPECT_GT(red.red, 30);
    EXPECT_TRUE(isGray(printed.sheets[0].front->meanIn({0, 0, a4Width, a4Height})));
    EXPECT_EQ(nameOf(print(numberedPdf(1)).sheets.at(0).front->meanIn(test::redPatch)), "red");
}

TEST_F(PrintedDocumentTest, RasterOfADriverlessClientIsPrintedAsWell) {
    cups_page_header2_t header = test::rasterHeader(150);
    // The whole page, as the format has it.
    header.cupsWidth = 1240;
    header.cupsHeight = 1754;
    header.cupsBytesPerLine = 3 * header.cupsWidth;
    header.cupsImagingBBox[0] = 0;
    header.cupsImagingBBox[1] = 0;
    header.cupsImagingBBox[2] = header.cupsPageSize[0];
    header.cupsImagingBBox[3] = header.cupsPageSize[1];
    EXPECT_THAT(print(test::numberedRaster(3, header, CUPS_RASTER_WRITE_PWG),
                      lpOptions({"sides=two-sided-short-edge"}))
                    .numbers(),
                ElementsAre("1/2", "3/-"));
}

TEST_F(PrintedDocumentTest, PostScriptIsPrintedAsWell) {
    // The same shapes in a language whose ways to draw them are named like those of a PDF's page.
    std::string program =
        "%!PS-Adobe-3.0\n<< /PageSize [595 842] >> setpagedevice\n"
        "/re { newpath 4 2 roll moveto 1 index 0 rlineto 0 exch rlineto neg 0 rlineto "
        "closepath } def /f /fill load def /g /setgray load def /rg /setrgbcolor load def\n";
    for (const std::uint32_t number : {1U, 2U, 3U}) {
        program += test::numberedDrawing(number) + "showpage\n";
    }
    EXPECT_THAT(print(program, lpOptions({"sides=two-sided-long-edge"})).numbers(),
                ElementsAre("1/2", "3/-"));
}

// ---- Cancelling

TEST_F(PrintedDocumentTest, ACancelledJobEndsRendererAndFilterInOrder) {
    // It has room for a page, and does not print it.
    test::Process printer(printerCommand(
        R"({"description": "Somebody opens the cover after the first page",
            "printer": {"pagesPerMinute": 6000, "memory": {"image": 12000000}},
            "events": [{"afterPage": 1, "do": "cover-open"}]})",
        {"--jobs=1"}));
    awaitPrinter(printer);
    const int job = scheduler.submit(test::noisePdf(5), {});
    ASSERT_TRUE(printer.waitUntil([&] {
        return printer.output().find(" page 1 arrived") != std::string::npos;
    })) << printer.output();
    EXPECT_THAT(scheduler.runningFilters(), UnorderedElementsAre("veltrin", "veltrin-raster"));

    scheduler.cancel(job);
    scheduler.expectState(job, IPP_JSTATE_CANCELED);
    EXPECT_TRUE(scheduler.waitUntil([&] { return scheduler.runningFilters().empty(); }));
    scheduler.expectIdleQueue();
    // By itself, and not without telling that the document broke off.
    EXPECT_TRUE(scheduler.waitUntil([&] {
        return scheduler.log().find("filter/veltrin-raster) stopped with status 1") != std::string::npos;
    }));
    // Ghostscript leaves a file of its own when it is ended.
    EXPECT_THAT(scheduler.temporaryFiles(), Each(StartsWith("gs_")));
    EXPECT_EQ(printer.finish().exitStatus, 0);
    EXPECT_THAT(test::readFile(outputFile), testing::EndsWith(test::cancelRecord()));
    EXPECT_EQ(jobsIn(reportFile).at(0)["outcome"], "cancelled");
}

} // namespace
} // namespace veltrin
