// Every kind of copies of small documents, from raster through the renderer, the filter and the channel to
// the printer, and what is on the sheets then.

#include "tests/jobs/Copies.h"
#include "tests/jobs/JobFixture.h"
#include "tests/support/Files.h"
#include "tests/support/PrintedSheets.h"
#include "tests/support/PrivateBus.h"
#include "tests/support/Process.h"
#include "tests/support/RasterText.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace veltrin {
namespace {

using test::Copies;
using testing::ElementsAreArray;

/// As coarse as its bars allow: what is of interest is which page is where.
constexpr std::uint32_t coarse = 36;

cups_page_header2_t headerOf(const Copies &job) {
    cups_page_header2_t header = test::rasterHeader(coarse);
    header.NumCopies = job.copies;
    header.Duplex = job.sides == "one-sided" ? CUPS_FALSE : CUPS_TRUE;
    header.Tumble = job.sides == "two-sided-short-edge" ? CUPS_TRUE : CUPS_FALSE;
    return header;
}

/// A job on its way, with a printer and a folder of its own.
class PrintedJob {
  public:
    PrintedJob(Copies theJob, const std::string &place)
        : job(std::move(theJob)), folder("/tmp/job-" + place), uri("socket://printer.example:9100/" + place) {
        std::filesystem::remove_all(folder); // of a job before, whose sheets were more
        std::filesystem::create_directory(folder);
        test::writeFile(folder + "/raster", test::numberedRaster(job.pages, headerOf(job)));
        printer.emplace(
            test::Command{test::hostPath(VELTRIN_PRINTER),
                          {"veltrin-printer",
                           "--scenario=" + test::hostPath(VELTRIN_SCENARIOS) +
                               (job.byHand ? "/stack-turned-at-once.json" : "/duplex-unit.json"),
                           "--report=" + reportFile(), "--sheets=" + sheetFolder(), "--jobs=1", uri}});
    }

    /// Gives the job to the renderer once the printer listens.
    void start(test::Command renderer) {
        ASSERT_TRUE(printer->waitUntil([this] {
            return printer->output().find(" listening\n") != std::string::npos;
        })) << printer->output();
        renderer.program = test::hostPath(VELTRIN_RASTER);
        renderer.arguments[4] = std::to_string(job.copies);
        renderer.input = test::File{folder + "/raster"};
        (*renderer.environment)["DEVICE_URI"] = uri;
        (*renderer.environment)["DBUS_SYSTEM_BUS_ADDRESS"] = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
        filter.emplace(renderer);
    }

    /// Waits for its end.
    void finish() {
        const test::ProcessResult printed = filter->finish();
        EXPECT_EQ(printed.exitStatus, 0) << printed.errors;
        const test::ProcessResult result = printer->finish();
        EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
    }

    [[nodiscard]] std::string reportFile() const { return folder + "/report.json"; }

    [[nodiscard]] std::string sheetFolder() const { return folder + "/sheets"; }

    const Copies job;

  private:
    const std::string folder;
    const std::string uri;
    std::optional<test::Process> printer;
    std::optional<test::Process> filter;
};

/// The number of pages, and whether the stack is turned by hand.
class PrintedCopies : public test::JobFixture,
                      public testing::WithParamInterface<std::tuple<std::uint32_t, bool>> {
  protected:
    /// Prints all of them at the same time: a job waits more than it works.
    static void print(std::deque<PrintedJob> &jobs, const test::Command &renderer) {
        for (PrintedJob &printed : jobs) {
            test::Command one = renderer;
            one.arguments[5] = printed.job.collate ? "Collate=True" : "";
            printed.start(one);
        }
        for (PrintedJob &printed : jobs) {
            SCOPED_TRACE(testing::PrintToString(printed.job));
            printed.finish();
        }
    }

    static void expectSheets(const PrintedJob &printed) {
        const Copies &job = printed.job;
        SCOPED_TRACE(testing::PrintToString(job));
        const nlohmann::json reports = jobsIn(printed.reportFile());
        ASSERT_EQ(reports.size(), 1U);
        const nlohmann::json &report = reports[0];
        EXPECT_EQ(report["outcome"], "whole");
        EXPECT_EQ(report["copies"], job.copies);
        EXPECT_EQ(report["printed"], report["pages"].size());
        EXPECT_EQ(report["jobSetting"], !job.hasBacks() ? 0 : job.byHand ? 0x0400 : 0x0200);
        EXPECT_EQ(report["pauses"].empty(), !(job.hasBacks() && job.byHand));
        EXPECT_THAT(test::numbersIn(report, job.pages), ElementsAreArray(job.sheets()));
        EXPECT_THAT(test::numbersOf(test::printedSheets(printed.sheetFolder())),
                    ElementsAreArray(job.sheets()));
    }

    test::PrivateBus bus;
};

TEST_P(PrintedCopies, LieOnTheirSheets) {
    const auto [pages, byHand] = GetParam();
    for (const std::uint32_t copies : {1U, 2U, 3U}) {
        std::deque<PrintedJob> jobs;
        for (const bool collate : {false, true}) {
            for (const char *sides : {"one-sided", "two-sided-long-edge", "two-sided-short-edge"}) {
                jobs.emplace_back(Copies{pages, copies, collate, sides, byHand},
                                  std::to_string(copies) + "-" + std::to_string(jobs.size()));
            }
        }
        print(jobs, filterCommand({}));
        for (const PrintedJob &printed : jobs) {
            expectSheets(printed);
        }
    }
    expectNothingLeft();
}

std::string nameOf(const testing::TestParamInfo<PrintedCopies::ParamType> &info) {
    const auto [pages, byHand] = info.param;
    return std::to_string(pages) + (byHand ? "PagesByHand" : "PagesWithADuplexUnit");
}

INSTANTIATE_TEST_SUITE_P(Pages, PrintedCopies,
                         testing::Combine(testing::Values(1U, 2U, 3U, 4U), testing::Bool()), nameOf);

} // namespace
} // namespace veltrin
