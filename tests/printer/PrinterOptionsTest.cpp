#include "printer/PrinterOptions.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace veltrin::printer {
namespace {

std::optional<PrinterOptions> parsed(std::vector<std::string> arguments, std::string &problem) {
    arguments.insert(arguments.begin(), "veltrin-printer");
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    return parsePrinterOptions(static_cast<int>(arguments.size()), argv.data(), problem);
}

PrinterOptions parsed(const std::vector<std::string> &arguments) {
    std::string problem;
    const auto options = parsed(arguments, problem);
    EXPECT_TRUE(options) << problem;
    return options.value_or(PrinterOptions());
}

TEST(PrinterOptions, AreFewForAPrinterOnAChannel) {
    const PrinterOptions options = parsed({"usb://printer"});
    EXPECT_EQ(options.task, PrinterOptions::Task::serve);
    EXPECT_EQ(options.uri, "usb://printer");
    EXPECT_EQ(options.listen, std::nullopt);
    EXPECT_EQ(options.scenario, "");
    EXPECT_EQ(options.jobs, 0U);
    EXPECT_FALSE(options.stays);
    EXPECT_EQ(options.sheets.dotsPerInch, std::nullopt);
}

TEST(PrinterOptions, HaveLongAndShortNames) {
    for (const std::vector<std::string> &arguments : std::vector<std::vector<std::string>>{
             {"--scenario=s", "--output=o", "--report=r", "--sheets=p", "--dpi=0x64", "--jobs=3", "--stay",
              "uri"},
             {"-s", "s", "-o", "o", "-r", "r", "-p", "p", "-d", "100", "-j3", "-k", "uri"}}) {
        const PrinterOptions options = parsed(arguments);
        EXPECT_EQ(options.scenario, "s");
        EXPECT_EQ(options.outputFile, "o");
        EXPECT_EQ(options.reportFile, "r");
        EXPECT_EQ(options.sheets.folder, "p");
        EXPECT_EQ(options.sheets.dotsPerInch, 100U);
        EXPECT_EQ(options.jobs, 3U);
        EXPECT_TRUE(options.stays);
        EXPECT_EQ(options.uri, "uri");
    }
}

TEST(PrinterOptions, PutThePrinterOnAWire) {
    for (const std::vector<std::string> &arguments :
         std::vector<std::vector<std::string>>{{"--listen=[::1]:9100"}, {"-t", "[::1]:9100"}}) {
        EXPECT_EQ(parsed(arguments).listen, (ListenAddress{"::1", 9100}));
        EXPECT_EQ(parsed(arguments).uri, "");
    }
}

TEST(PrinterOptions, AskForOtherThingsThanAPrinter) {
    using Task = PrinterOptions::Task;
    for (const auto &[argument, task] :
         std::vector<std::pair<std::string, Task>>{{"--list-scenarios", Task::listScenarios},
                                                   {"-l", Task::listScenarios},
                                                   {"--help", Task::help},
                                                   {"-h", Task::help},
                                                   {"--version", Task::version},
                                                   {"-V", Task::version}}) {
        EXPECT_EQ(parsed({argument}).task, task) << argument;
    }
}

TEST(PrinterOptions, MayBeMistaken) {
    const std::string wanted = "wants one device URI, or --listen";
    for (const auto &[arguments, expected] : std::vector<std::pair<std::vector<std::string>, std::string>>{
             {{"--jobs=1"}, wanted},
             {{""}, wanted},
             {{"uri", "another"}, wanted},
             {{"--listen=9100", "uri"}, "wants a device URI or --listen, not both"},
             {{"--listen=9100", ""}, "wants a device URI or --listen, not both"},
             {{"--listen=9100", "--stay"}, "--stay is for a device URI"},
             {{"--listen=", "uri"}, "--listen does not take ''"},
             {{"--listen=::1"}, "--listen does not take '::1'"},
             {{"--jobs=0", "uri"}, "--jobs does not take '0'"},
             {{"--jobs=many", "uri"}, "--jobs does not take 'many'"},
             {{"--sheets=x", "--dpi=0", "uri"}, "--dpi does not take '0'"},
             {{"--sheets=x", "--dpi=65536", "uri"}, "--dpi does not take '65536'"},
             {{"--dpi=100", "uri"}, "--dpi is for --sheets"}}) {
        std::string problem;
        EXPECT_FALSE(parsed(arguments, problem));
        EXPECT_EQ(problem, expected);
    }
}

TEST(PrinterOptions, LeaveTheWordsAboutAnUnknownOneToTheSystem) {
    testing::internal::CaptureStderr();
    std::string problem = "of before";
    EXPECT_FALSE(parsed({"--unknown", "uri"}, problem));
    EXPECT_EQ(problem, "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "veltrin-printer: unrecognized option '--unknown'\n");
}

} // namespace
} // namespace veltrin::printer
