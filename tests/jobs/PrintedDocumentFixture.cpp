#include "tests/jobs/PrintedDocumentFixture.h"

#include "tests/support/Files.h"

#include <filesystem>

namespace veltrin::test {

namespace fs = std::filesystem;

PrintedDocumentFixture::PrintedDocumentFixture() {
    fs::remove_all(folder);
    fs::create_directory(folder);
    // For the user that the printer has.
    fs::permissions(folder, fs::perms(0777));
}

PrintedDocumentFixture::Printed PrintedDocumentFixture::printAll(const std::vector<std::string> &documents,
                                                                 const std::vector<std::string> &options,
                                                                 const Setup &setup) {
    fs::remove_all(sheetFolder);
    const std::string unit = setup.byHand ? R"("stackTurnedAfter": 0)" : R"("model": 2, "duplexUnit": true)";
    Process printer(printerCommand(
        R"({"description": "A printer for documents", "printer": {"pagesPerMinute": 6000, )" + unit + "}}",
        {"--jobs=" + std::to_string(documents.size()), "--dpi=" + std::to_string(setup.dotsPerInch)}));
    awaitPrinter(printer);
    const int job = scheduler.submitAll(documents, options);
    scheduler.expectState(job, IPP_JSTATE_COMPLETED);
    const ProcessResult result = printer.finish();
    EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
    Printed printed = {jobsIn(reportFile), printedSheets(sheetFolder)};
    EXPECT_EQ(printed.documents.size(), documents.size());
    for (const nlohmann::json &document : printed.documents) {
        EXPECT_EQ(document["outcome"], "whole") << scheduler.log();
        EXPECT_EQ(document["printed"], document["pages"].size());
    }
    return printed;
}

Command PrintedDocumentFixture::printerCommand(const std::string &scenario,
                                               const std::vector<std::string> &moreArguments) const {
    const std::string scenarioFile = folder + "/scenario.json";
    writeFile(scenarioFile, scenario);
    std::vector<std::string> arguments = {"--scenario=" + scenarioFile, "--output=" + outputFile,
                                          "--report=" + reportFile, "--sheets=" + sheetFolder};
    arguments.insert(arguments.end(), moreArguments.begin(), moreArguments.end());
    arguments.push_back(uri);
    return scheduler.printerForFilters(arguments);
}

void PrintedDocumentFixture::awaitPrinter(Process &printer) {
    EXPECT_TRUE(printer.waitUntil([&] { return printer.output().find(" listening\n") != std::string::npos; }))
        << printer.output() << printer.errors();
}

std::vector<std::string> lpOptions(const std::vector<std::string> &options) {
    std::vector<std::string> arguments;
    for (const std::string &option : options) {
        arguments.insert(arguments.end(), {"-o", option});
    }
    return arguments;
}

} // namespace veltrin::test
