#include "printer/PrinterUri.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::printer {
namespace {

struct Whole {
    const char *uri;
    PrinterUri parsed;
};

TEST(ParsePrinterUri, TakesWhatTheQuerySays) {
    for (const Whole &test : std::vector<Whole>{
             {"veltrin-printer:/lx-520n", {"veltrin-printer:/lx-520n", "", "", ""}},
             {"veltrin-printer:/lx-520n?", {"veltrin-printer:/lx-520n", "", "", ""}},
             {"veltrin-printer:/a?scenario=fast", {"veltrin-printer:/a", "fast", "", ""}},
             {"veltrin-printer:/a?report=/r&output=/o&scenario=/s.json",
              {"veltrin-printer:/a", "/s.json", "/o", "/r"}},
             {"veltrin-printer:/a?output=/with%20a%26b%3d%25", {"veltrin-printer:/a", "", "/with a&b=%", ""}},
             {"veltrin-printer:?output=a=b", {"veltrin-printer:", "", "a=b", ""}},
             {"socket://printer/?waiteof=false", {"socket://printer/", "", "", ""}},
         }) {
        std::string problem;
        const auto parsed = parsePrinterUri(test.uri, problem);
        ASSERT_TRUE(parsed) << test.uri << ": " << problem;
        EXPECT_EQ(parsed->printer, test.parsed.printer) << test.uri;
        EXPECT_EQ(parsed->scenario, test.parsed.scenario) << test.uri;
        EXPECT_EQ(parsed->outputFile, test.parsed.outputFile) << test.uri;
        EXPECT_EQ(parsed->reportFile, test.parsed.reportFile) << test.uri;
    }
}

TEST(ParsePrinterUri, SaysWhatIsWrong) {
    const std::string only = ", but only scenario, output and report mean anything";
    for (const auto &[query, expected] : std::vector<std::pair<std::string, std::string>>{
             {"speed=3", "the device URI has \"speed\"" + only},
             {"Scenario=fast", "the device URI has \"Scenario\"" + only},
             {"scenario=fast&&output=/o", "the device URI has \"\"" + only},
             {"scenario", "the device URI's \"scenario\" has no proper value"},
             {"scenario=", "the device URI's \"scenario\" has no proper value"},
             {"output=%", "the device URI's \"output\" has no proper value"},
             {"output=%2", "the device URI's \"output\" has no proper value"},
             {"output=%2x", "the device URI's \"output\" has no proper value"},
             {"output=%-1", "the device URI's \"output\" has no proper value"},
             {"output=a%00b", "the device URI's \"output\" has no proper value"},
             {"output=/a&output=/b", "the device URI has \"output\" twice"},
         }) {
        std::string problem;
        EXPECT_FALSE(parsePrinterUri("veltrin-printer:/a?" + query, problem)) << query;
        EXPECT_EQ(problem, expected) << query;
    }
}

} // namespace
} // namespace veltrin::printer
