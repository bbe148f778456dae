#include "printer/TimeChart.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

namespace veltrin::printer {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

constexpr std::uint32_t mebibyte = 1'048'576;
constexpr StatusCodes ready{0, 0, 0};
constexpr StatusCodes printing{4, 0, 0};
constexpr StatusCodes coverOpen{33, 0, 0};
constexpr StatusCodes trayEmpty{35, 1, 0};

Course courseOf(const std::vector<Moment> &moments) {
    Course course;
    for (const Moment &moment : moments) {
        course.add(moment);
    }
    return course;
}

Moment at(double second, std::uint32_t freeMemory, std::uint64_t printed, StatusCodes status) {
    return {std::chrono::duration_cast<PrinterTime>(std::chrono::duration<double>(second)), freeMemory,
            printed, status};
}

TEST(TimeChart, ShowsMemoryAndSidesInSteps) {
    const std::string html = timeChart(
        courseOf({at(0, 4 * mebibyte, 0, ready), at(5, mebibyte, 0, ready), at(10, 2 * mebibyte, 2, ready)}),
        {});
    EXPECT_THAT(html,
                HasSubstr("aria-label='From 0.0 s to 10.0 s: image memory in use: at most 3.0 MiB of 4.0 "
                          "MiB; sides printed: 2'"));
    // From 60 to 880, and from 26 to 116: a half of the time, then three quarters and a half of the memory.
    EXPECT_THAT(html, HasSubstr("<path class='memory' d='M60.0 116.0H470.0V48.5H880.0V71.0'/>"));
    EXPECT_THAT(html, HasSubstr("<path class='sides' d='M60.0 218.0H470.0V218.0H880.0V148.0'/>"));
    EXPECT_THAT(html, HasSubstr("y='30.0'>4.0 MiB</text>"));
    EXPECT_THAT(html, HasSubstr("y='152.0'>2</text>"));
}

TEST(TimeChart, ShowsEachStatusAndForHowLong) {
    const std::string html =
        timeChart(courseOf({at(0, mebibyte, 0, ready), at(2, mebibyte, 0, printing),
                            at(4, mebibyte, 1, coverOpen), at(5, mebibyte, 1, printing),
                            at(7, mebibyte, 2, trayEmpty), at(8, mebibyte, 2, trayEmpty)}),
                  {});
    EXPECT_THAT(html, HasSubstr("<rect class='ready' x='60.0' y='234.0' width='205.0'"));
    EXPECT_THAT(html, HasSubstr("<rect class='want0' x='470.0' y='234.0' width='102.5' "
                                "height='26.0'><title>33/0/0 Cover open</title>"));
    EXPECT_THAT(html, HasSubstr("<li><span class='ready'></span> 0/0/0 Ready, 2.0 s</li>"));
    EXPECT_THAT(html, HasSubstr("<li><span class='printing'></span> 4/0/0 Printing, 4.0 s</li>"));
    EXPECT_THAT(html, HasSubstr("<li><span class='want0'></span> 33/0/0 Cover open, 1.0 s</li>"));
    EXPECT_THAT(html, HasSubstr("<li><span class='want1'></span> 35/1/0 Tray 1 empty, 1.0 s</li>"));
}

TEST(TimeChart, HasAboutTenRoundSeconds) {
    for (const auto &[end, first, second, beyond] :
         {std::tuple(0.3, "'>0.1<", "'>0.2<", "'>0.4<"), std::tuple(10.0, "'>1.0<", "'>2.0<", "'>11.0<"),
          std::tuple(11.0, "'>2.0<", "'>4.0<", "'>1.0<"), std::tuple(45.0, "'>5.0<", "'>10.0<", "'>2.0<"),
          std::tuple(51.0, "'>10.0<", "'>20.0<", "'>5.0<"),
          std::tuple(2000.0, "'>200.0<", "'>400.0<", "'>100.0<")}) {
        const std::string html =
            timeChart(courseOf({at(0, mebibyte, 0, ready), at(end, mebibyte, 0, ready)}), {});
        EXPECT_THAT(html, HasSubstr(first)) << end;
        EXPECT_EQ(html.find(first), html.rfind(first)) << end;
        EXPECT_THAT(html, HasSubstr(second)) << end;
        EXPECT_THAT(html, Not(HasSubstr(beyond))) << end;
    }
}

TEST(TimeChart, MarksOverrunsWhereTheyHappened) {
    const Course course = courseOf({at(0, mebibyte, 0, ready), at(10, mebibyte, 0, ready)});
    EXPECT_THAT(timeChart(course, {}), Not(HasSubstr("overrun")));
    const std::string html = timeChart(course, {{std::chrono::seconds(5), MemoryPool::image, 1},
                                                {std::chrono::seconds(5), MemoryPool::image, 2}});
    EXPECT_THAT(html, HasSubstr("<line class='overrun' x1='470.0'"));
    EXPECT_EQ(html.find("<line class='overrun'"), html.rfind("<line class='overrun'"));
    EXPECT_THAT(html, HasSubstr(">2 memory overruns</text>"));
}

TEST(TimeChart, IsNothingWhereNoTimeHasPassed) {
    EXPECT_THAT(timeChart(Course(), {}), IsEmpty());
    EXPECT_THAT(timeChart(courseOf({at(1, mebibyte, 0, ready)}), {}), IsEmpty());
    EXPECT_THAT(timeChart(courseOf({at(1, 0, 0, ready), at(1, 0, 0, printing)}), {}), Not(HasSubstr("nan")));
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

} // namespace
} // namespace veltrin::printer
