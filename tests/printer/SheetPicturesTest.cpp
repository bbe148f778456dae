#include "printer/SheetPictures.h"

#include "driver/stream/CommandRecord.h"
#include "tests/raster/DrawnPage.h"
#include "tests/raster/ReadPicture.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <regex>
#include <span>
#include <string>
#include <vector>

namespace veltrin::printer {
namespace {

using raster::CompressMode;
using test::DrawnPage;
using test::jobHeaders;
using test::namesIn;
using test::readFile;
using test::readPicture;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr const char *folder = "/tmp/sheets";
constexpr CompressMode mode = CompressMode::zstd;
const std::string endOfJob = "JIDG";

class SheetPicturesTest : public testing::Test {
  protected:
    SheetPicturesTest() { std::filesystem::remove_all(folder); }

    /// One job, as the printer takes it, in pieces.
    void print(const std::string &stream) {
        JobRecorder recorder(jobs.size() + 1, [](const StreamEvent &) {});
        for (std::size_t at = 0; at < stream.size(); at += 1000) {
            const std::string piece = stream.substr(at, 1000);
            pictures.take(std::as_bytes(std::span(piece)));
            recorder.feed(std::as_bytes(std::span(piece)));
        }
        recorder.finish();
        recorder.report.pagesPrinted = recorder.report.pages.size();
        pictures.endJob(recorder.report);
        jobs.push_back(recorder.report);
    }

    std::string page() {
        pictures.end(jobs);
        EXPECT_EQ(pictures.error(), 0) << pictures.failedFile();
        return readFile(std::string(folder) + "/index.html");
    }

    /// The number that a numbered page bears in its picture.
    static unsigned numberIn(const std::string &name) {
        const test::ReadPicture picture = readPicture(std::string(folder) + "/" + name);
        unsigned number = 0;
        for (unsigned bit = 0; bit < 4; ++bit) {
            number |= picture.at(10 + 5 * bit, 10).green == 0 ? 1U << bit : 0;
        }
        // It lies upright: its mark is in the upper left corner.
        EXPECT_EQ(picture.at(0, 0), raster::colourOf(8)) << name;
        EXPECT_EQ(picture.at(39, 19), raster::colourOf(0)) << name;
        return number;
    }

    /// The texts between two marks.
    static std::vector<std::string> textsIn(const std::string &html, const std::string &expression) {
        const std::regex pattern(expression);
        std::vector<std::string> texts;
        for (std::sregex_iterator found(html.begin(), html.end(), pattern), end; found != end; ++found) {
            texts.push_back((*found)[1]);
        }
        return texts;
    }

    /// The pages as the list of their order has them, in one line.
    static std::string orderIn(const std::string &html) {
        std::string order;
        const std::string list = html.substr(html.find("<ol class='order'>"));
        for (const std::string &item : textsIn(list.substr(0, list.find("</ol>")), "<li[^>]*>([^<]*)</li>")) {
            order += (order.empty() ? "" : " ") + (item.starts_with("pause") ? "[" + item + "]" : item);
        }
        return order;
    }

    static std::vector<std::string> captionsIn(const std::string &html) {
        return textsIn(html, "<p>(Sheet [0-9]+, copy [0-9]+)");
    }

    SheetPictures pictures{{folder, std::nullopt}};
    std::vector<JobReport> jobs;
};

/// A page that can be told from the others by its dots.
std::string numberedPage(std::uint16_t number, std::uint8_t type = 0) {
    DrawnPage page(40, 20);
    page.draw(raster::cyan, 0, 0, 3, 3);
    for (unsigned bit = 0; bit < 4; ++bit) {
        if ((unsigned{number} >> bit & 1U) != 0) {
            page.draw(raster::black, 10 + 5 * bit, 8, 3, 4);
        }
    }
    return page.page(mode, 128, number, type);
}

TEST_F(SheetPicturesTest, HaveTheSidesOfAPrinterWithADuplexUnit) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(2, 0x0C) + numberedPage(1, 0x04) + numberedPage(4, 0x0C) +
          numberedPage(3, 0x04) + endOfJob);
    EXPECT_THAT(namesIn(folder), ElementsAre("sheet-0001-back.png", "sheet-0001-front.png",
                                             "sheet-0002-back.png", "sheet-0002-front.png"));
    EXPECT_EQ(numberIn("sheet-0001-front.png"), 1U);
    EXPECT_EQ(numberIn("sheet-0001-back.png"), 2U);
    EXPECT_EQ(numberIn("sheet-0002-front.png"), 3U);
    EXPECT_EQ(numberIn("sheet-0002-back.png"), 4U);
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<strong>whole</strong>: 4 sides on 2 sheets, 1 copy, 4 printed, "
                                "two-sided by the duplex unit, "));
    EXPECT_EQ(orderIn(html), "2 1 4 3");
    EXPECT_THAT(html, HasSubstr("<p>Sheet 2, copy 1: A4, Plain, from tray 1</p>"));
    EXPECT_THAT(html, HasSubstr("src='sheet-0001-front.png' alt='Sheet 1, Front: page 1'"));
    EXPECT_THAT(html, Not(HasSubstr("class='bad'")));
    EXPECT_THAT(html, Not(HasSubstr("<script")));
}

TEST_F(SheetPicturesTest, HaveTheSidesOfAStackTurnedByHand) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(4) + numberedPage(2) + numberedPage(1, 0x10) + numberedPage(3) +
          endOfJob);
    // The first sheet begun has page 4 on its back.
    EXPECT_EQ(numberIn("sheet-0001-front.png"), 3U);
    EXPECT_EQ(numberIn("sheet-0001-back.png"), 4U);
    EXPECT_EQ(numberIn("sheet-0002-front.png"), 1U);
    EXPECT_EQ(numberIn("sheet-0002-back.png"), 2U);
    const std::string html = page();
    EXPECT_EQ(orderIn(html), "4 2 [pause: the stack is turned by hand] 1 3");
    EXPECT_THAT(html, HasSubstr("two-sided by hand"));
}

TEST_F(SheetPicturesTest, GoOnWithTheNumbersOfCopiesAndJobs) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(1) + numberedPage(2) + numberedPage(1) + numberedPage(2) +
          endOfJob);
    print(jobHeaders(mode) + numberedPage(9) + endOfJob);
    EXPECT_THAT(namesIn(folder),
                ElementsAre("sheet-0001-front.png", "sheet-0002-front.png", "sheet-0003-front.png",
                            "sheet-0004-front.png", "sheet-0005-front.png"));
    EXPECT_EQ(numberIn("sheet-0004-front.png"), 2U);
    EXPECT_EQ(numberIn("sheet-0005-front.png"), 9U);
    const std::string html = page();
    const std::size_t second = html.find("<h3>Copy 2</h3>");
    ASSERT_NE(second, std::string::npos);
    EXPECT_LT(html.find("Sheet 2, copy 1"), second);
    EXPECT_LT(second, html.find("Sheet 3, copy 2"));
    EXPECT_THAT(html, HasSubstr("not printed on</div><figcaption>Back"));
    EXPECT_THAT(html, HasSubstr("4 printed, one-sided"));
    EXPECT_THAT(html, HasSubstr("<h2>Job 2"));
    EXPECT_THAT(html, HasSubstr("Sheet 5, copy 1"));
}

TEST_F(SheetPicturesTest, CountCopiesInTheOrderOfTheSheets) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(2) + numberedPage(2) + numberedPage(1, 0x10) + numberedPage(1) +
          endOfJob);
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("Sheet 1, copy 1"));
    EXPECT_THAT(html, HasSubstr("Sheet 2, copy 2"));
}

TEST_F(SheetPicturesTest, KeepTheSheetsOfACopyTogether) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(1) + numberedPage(1) + numberedPage(2) + numberedPage(2) +
          endOfJob);
    EXPECT_THAT(captionsIn(page()),
                ElementsAre("Sheet 1, copy 1", "Sheet 3, copy 1", "Sheet 2, copy 2", "Sheet 4, copy 2"));
}

TEST_F(SheetPicturesTest, HaveABlankBackBlank) {
    pictures.start();
    print(jobHeaders(mode) + DrawnPage(40, 20).page(mode, 128, 2, 0x0C) + numberedPage(1, 0x04) + endOfJob);
    const test::ReadPicture back = readPicture(std::string(folder) + "/sheet-0001-back.png");
    EXPECT_THAT(back.rgb, testing::Each(255));
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<figcaption>Back: page 2, blank</figcaption>"));
    EXPECT_THAT(html, HasSubstr("<figcaption>Front: page 1</figcaption>"));
    EXPECT_EQ(orderIn(html), "2 blank 1");
}

TEST_F(SheetPicturesTest, ShowABrokenSideAsFarAsItCame) {
    pictures.start();
    const DrawnPage drawn = test::markedPage(40, 20);
    const std::vector<std::string> bands = drawn.bands(mode, 5);
    print(jobHeaders(mode) + test::pageHeader(40, 20) + bands[0] + bands[1] + bands[2].substr(0, 40));
    const test::ReadPicture picture = readPicture(std::string(folder) + "/sheet-0001-front.png");
    EXPECT_EQ(picture.at(0, 0), raster::colourOf(1));
    EXPECT_EQ(picture.at(0, 19), raster::colourOf(0));
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<strong class='bad'>broken</strong>: 1 side on 1 sheet"));
    EXPECT_THAT(html, HasSubstr("broke off at line 15 of 20"));
    EXPECT_THAT(html, HasSubstr("inside a band&#39;s data"));
}

TEST_F(SheetPicturesTest, TellWhatCannotBeShown) {
    pictures.start();
    std::string stream = jobHeaders(mode);
    for (unsigned page = 0; page < 30; ++page) {
        stream += test::pageHeader(40, 0) + test::bandOf(40, 20, {}, true);
    }
    print(stream + endOfJob);
    EXPECT_THAT(namesIn(folder), IsEmpty());
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("at byte 272: the page header tells no size: 40 x 0 dots"));
    EXPECT_THAT(html, HasSubstr("and 10 more like it"));
    EXPECT_THAT(html, HasSubstr("cannot be shown"));
    EXPECT_EQ(jobs[0].outcome(), JobOutcome::whole);
}

TEST_F(SheetPicturesTest, ShowNamesAsTextAlone) {
    pictures.start();
    std::string headers = jobHeaders(mode);
    headers.replace(56, 24, "<script>alert('1')\xFF\x01</b>");
    headers.replace(120 + 72, 6, "J\xC3\xB6rg&");
    print(headers + numberedPage(1) + endOfJob);
    const std::string html = page();
    EXPECT_THAT(html, Not(HasSubstr("<script")));
    EXPECT_THAT(html, HasSubstr("&#60;script&#62;alert(&#39;1&#39;)\xEF\xBF\xBD.&#60;/b&#62;"));
    EXPECT_THAT(html, HasSubstr("Of <bdi>J\xC3\xB6rg&#38;</bdi>"));
}

TEST_F(SheetPicturesTest, TellOfAJobWithoutPages) {
    pictures.start();
    print(jobHeaders(mode) + endOfJob);
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<h2>Job 1: <span class='soft'>without a name</span></h2>"));
    EXPECT_THAT(html, HasSubstr("0 sides on 0 sheets, 0 copies"));
    EXPECT_THAT(html, HasSubstr("Not a single page came."));
}

TEST_F(SheetPicturesTest, TellOfAPrinterWithoutJobs) {
    pictures.start();
    EXPECT_THAT(page(), HasSubstr("No job has come."));
}

TEST_F(SheetPicturesTest, TellWhatIsNotPrinted) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(1) + numberedPage(2) + endOfJob);
    jobs[0].pagesPrinted = 1;
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<figcaption>Front: page 1</figcaption>"));
    EXPECT_THAT(html, HasSubstr("Front: page 2 <span class='bad'>not printed</span>"));
}

TEST_F(SheetPicturesTest, TakeThePlaceOfAnEarlierPrintersAndOfNothingElse) {
    const std::vector<std::string> ours = {"sheet-0002-front.png", "sheet-0002-back.png",
                                           "sheet-12345-front.png", "side-0003.png"};
    const std::vector<std::string> others = {"my-sheet-0002-back.png", "sheet-0002-front.jpg",
                                             "sheet-0002.png",         "sheet-2-front.png",
                                             "sheet-front.png",        "side-0003.png.old"};
    std::filesystem::create_directory(folder);
    for (const auto *names : {&ours, &others}) {
        for (const std::string &name : *names) {
            test::writeFile(std::string(folder) + "/" + name, "old");
        }
    }
    pictures.start();
    EXPECT_EQ(pictures.error(), 0);
    EXPECT_EQ(namesIn(folder), others);
}

TEST_F(SheetPicturesTest, TellForWhichSidesTheMemoryWasTooSmall) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(1) + numberedPage(2) + endOfJob);
    jobs[0].overruns = {{std::chrono::seconds(1), MemoryPool::header, 3, 1},
                        {std::chrono::seconds(2), MemoryPool::image, 7, 1},
                        {std::chrono::seconds(3), MemoryPool::header, 4, 2}};
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("<figcaption>Front: page 1</figcaption>"));
    EXPECT_THAT(html, HasSubstr("Front: page 2 <span class='bad'>overran the memory</span></figcaption>"));
    EXPECT_THAT(html, HasSubstr("<li class='bad'>3 memory overruns</li>"));
}

TEST_F(SheetPicturesTest, GiveEachSideTheShapeOfItsPaper) {
    pictures.start();
    print(jobHeaders(mode) + numberedPage(1) + endOfJob);
    EXPECT_THAT(page(),
                HasSubstr("<a class='paper' style='aspect-ratio: 40 / 20' href='sheet-0001-front.png'>"));
}

TEST_F(SheetPicturesTest, HaveAChartOfTheTime) {
    pictures.start();
    PrinterModel printer(PrinterSettings{});
    pictures.note(std::chrono::seconds(0), printer);
    printer.received(MemoryPool::image, 1);
    pictures.note(std::chrono::seconds(3), printer);
    print(jobHeaders(mode) + numberedPage(1) + endOfJob);
    jobs[0].overruns.push_back({std::chrono::seconds(2), MemoryPool::image, 7, 1});
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("From 0.0 s to 3.0 s"));
    EXPECT_THAT(html, HasSubstr("<li class='bad'>1 memory overrun</li>"));
    EXPECT_THAT(html, HasSubstr(">1 memory overrun</text>"));
}

TEST(SheetPictures, DoNothingWhereNothingIsWanted) {
    SheetPictures pictures({"", std::nullopt});
    pictures.start();
    const std::string stream = jobHeaders(mode) + numberedPage(1) + endOfJob;
    pictures.take(std::as_bytes(std::span(stream)));
    pictures.endJob({});
    pictures.end({});
    EXPECT_EQ(pictures.error(), 0);
}

TEST(SheetPictures, TellWhatCannotBeWritten) {
    SheetPictures pictures({"/no/such/folder", std::nullopt});
    pictures.start();
    EXPECT_EQ(pictures.failedFile(), "/no/such/folder");
    EXPECT_EQ(pictures.error(), ENOENT);
}

} // namespace
} // namespace veltrin::printer
