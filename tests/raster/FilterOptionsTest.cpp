#include "raster/FilterOptions.h"

#include "filter/CUPSFilter.h"
#include "tests/raster/A4Page.h"
#include "tests/support/Arguments.h"
#include "tests/support/FakePlatform.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using test::a4Page;

/// The filter, as far as it reads its options.
class ReadingFilter : public CUPSFilter {
  public:
    using CUPSFilter::CUPSFilter;
    using CUPSFilter::settings;

    [[nodiscard]] bool init() override {
        const bool result = CUPSFilter::init();
        needsPPD = false;
        return result;
    }
};

JobSettings filtersSettings(const std::string &options) {
    test::FakePlatform platform;
    test::Arguments arguments({"queue", "1", "user", "title", "1", options});
    const std::unique_ptr<CUPSFilter> filter = CUPSFilter::initWithArgc(
        std::make_unique<ReadingFilter>(platform), arguments.count(), arguments.vector());
    EXPECT_TRUE(filter != nullptr && filter->run());
    return static_cast<const ReadingFilter &>(*filter).settings;
}

/// What the filter makes of its options.
JobLayout filtersLayout(const std::string &options) {
    const JobSettings settings = filtersSettings(options);
    EXPECT_EQ(settings.sidesImaged, 1U) << "no number of sides is told";
    return {.copies = settings.copies, .collate = settings.collate, .twoSided = settings.duplex};
}

TEST(FilterOptions, MakeTheFilterAgree) {
    const std::vector<std::string> jobs = {
        "",
        "media=A5",
        "media=A5,Labels",
        "media=iso_a4_210x297mm sides=two-sided-short-edge",
        "MEDIA=A5 papertype=Labels",
        "PaperType=Labels",
        "media-type=labels",
        "com.apple.print.PrintSettings.PMCopies..n.=2",
        "COM.APPLE.PRINT.PRINTSETTINGS.PMCOPIES..N.=7 com.apple.print.printsettings.pmcopycollate..b.=true",
        "com.apple.print.PrintSettings.PMDuplexing..n.=3 com.apple.print.PrintSettings.PMTotalSidesImaged..n.=9",
        "com.apple.print.PrintSettings.PMCopyCollate..b.=yes collate=true",
    };
    for (const std::string &job : jobs) {
        for (const char *size : {"", "A4", "A5", "Custom.283.00x566.00"}) {
            for (const char *copies : {"1", "2", "3"}) {
                for (const auto &collate : {std::optional<std::string>(), std::optional<std::string>("True"),
                                            std::optional<std::string>("False")}) {
                    for (const auto &type :
                         {std::optional<std::string>(), std::optional<std::string>("Plain"),
                          std::optional<std::string>("Envelope")}) {
                        for (int sides = 0; sides < 3; ++sides) {
                            RasterPage page = a4Page(sides > 0, sides > 1);
                            page.pageSizeName = size;
                            const JobOptions options(job);
                            const JobTicket ticket =
                                ticketFor(copies, options, {.collate = collate, .paperType = type}, page);
                            EXPECT_EQ(filtersLayout(filterOptions(options, ticket).text()), ticket.layout)
                                << job << ", " << size << ", " << copies << ", " << sides;
                        }
                    }
                }
            }
        }
    }
}

TEST(FilterOptions, LeaveTheRestAlone) {
    const JobOptions options("com.apple.print.JobInfo.PMJobName='@letters 3)' job-uuid=urn:uuid:1 media=A5 "
                             "finishings=3 note='it is \"so\"'");
    const JobOptions result = filterOptions(options, ticketFor("2", options, {}, a4Page(true, true)));
    EXPECT_EQ(result.find("com.apple.print.JobInfo.PMJobName"), "@letters 3)");
    EXPECT_EQ(result.find("job-uuid"), "urn:uuid:1");
    EXPECT_EQ(result.find("finishings"), "3");
    EXPECT_EQ(result.find("note"), "it is \"so\"");
    EXPECT_EQ(result.find("media"), "A4");
    EXPECT_EQ(result.find("com.apple.print.PrintSettings.PMCopies..n."), "2");
    EXPECT_EQ(result.find("com.apple.print.PrintSettings.PMCopyCollate..b."), "false");
    EXPECT_EQ(result.find("com.apple.print.PrintSettings.PMDuplexing..n."), "3");
    EXPECT_EQ(result.find("PaperType"), std::nullopt);
}

} // namespace
} // namespace veltrin::raster
