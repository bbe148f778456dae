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
    EXPECT_THAT(html, HasSubstr("whole: 4 sides on 2 sheets, 1 copy, 4 printed"));
    EXPECT_THAT(html, HasSubstr("In the order printed: 2, 1, 4, 3</p>"));
    EXPECT_THAT(html, HasSubstr("<p>Sheet 2, copy 1: A4, Plain, from tray 1</p>"));
    EXPECT_THAT(html, HasSubstr("src='sheet-0001-front.png' alt='Front: page 1'"));
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
    EXPECT_THAT(page(),
                HasSubstr("4, 2, <span class='pause'>pause: the stack is turned by hand</span> 1, 3"));
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

TEST_F(SheetPicturesTest, HaveABlankBackBlank) {
    pictures.start();
    print(jobHeaders(mode) + DrawnPage(40, 20).page(mode, 128, 2, 0x0C) + numberedPage(1, 0x04) + endOfJob);
    const test::ReadPicture back = readPicture(std::string(folder) + "/sheet-0001-back.png");
    EXPECT_THAT(back.rgb, testing::Each(255));
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
    EXPECT_THAT(html, HasSubstr("broken: 1 side"));
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
    print(headers + numberedPage(1) + endOfJob);
    const std::string html = page();
    EXPECT_THAT(html, Not(HasSubstr("<script")));
    EXPECT_THAT(html, HasSubstr("&#60;script&#62;alert(&#39;1&#39;)..&#60;/b&#62;"));
}

TEST_F(SheetPicturesTest, HaveAChartOfTheTime) {
    pictures.start();
    PrinterModel printer(PrinterSettings{});
    pictures.note(std::chrono::seconds(0), printer);
    printer.jobBegan();
    printer.received(MemoryPool::image, 7'864'320);
    PageHeader header{};
    header.bPaperTray = 2;
    printer.pageArrived(header);
    for (int tenth = 1; tenth <= 60; ++tenth) {
        printer.advance(std::chrono::milliseconds(100 * tenth));
        pictures.note(std::chrono::milliseconds(100 * tenth), printer);
    }
    print(jobHeaders(mode) + numberedPage(1) + endOfJob);
    const std::string html = page();
    EXPECT_THAT(html, HasSubstr("image memory in use, of 15.0 MiB"));
    EXPECT_THAT(html, HasSubstr("sides printed: 1</text>"));
    EXPECT_THAT(html, HasSubstr("V60.0H")); // half of the memory
    EXPECT_THAT(html, HasSubstr("<title>4/0/0 Printing</title>"));
    EXPECT_THAT(html, HasSubstr(">6.0 s</text>"));
}

TEST(Course, KeepsNoMoreThanCanBeSeen) {
    Course course;
    for (unsigned i = 0; i < 1'000'000; ++i) {
        course.add({std::chrono::milliseconds(i), i < 500'000 ? 7 : i, 0, {}});
    }
    EXPECT_LE(course.moments().size(), 4000U);
    EXPECT_GE(course.moments().size(), 1000U);
    EXPECT_EQ(course.moments().front().when, std::chrono::milliseconds(0));
    EXPECT_GE(course.moments().back().when, std::chrono::milliseconds(990'000));
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
