#include "tests/jobs/PrinterFixture.h"

#include "driver/stream/PageStream.h"
#include "tests/support/Files.h"

#include <algorithm>
#include <filesystem>

namespace veltrin::test {

void PrinterFixture::startPrinter(const std::string &scenario,
                                  const std::vector<std::string> &moreArguments) {
    Command command{hostPath(VELTRIN_PRINTER),
                    {"veltrin-printer",
                     "--scenario=" + hostPath(VELTRIN_SCENARIOS) + "/" + scenario + ".json",
                     std::string("--output=") + outputFile, std::string("--report=") + reportFile}};
    command.arguments.insert(command.arguments.end(), moreArguments.begin(), moreArguments.end());
    command.arguments.push_back(uri);
    printer.emplace(command);
    awaitPrinter("listening");
}

void PrinterFixture::startFilter(const FilterJob &job) {
    filter.emplace(filterOnBus(job));
}

Command PrinterFixture::filterOnBus(const FilterJob &job) const {
    Command command = filterCommand(job);
    (*command.environment)["DEVICE_URI"] = uri;
    command.environment->merge(bus.environment());
    if (!job.input) {
        std::filesystem::remove("/tmp/job"); // which a filter may still be reading
        writeFile("/tmp/job", job.stream);
        command.input = File{"/tmp/job"};
    }
    return command;
}

void PrinterFixture::awaitPrinter(const std::string &line) {
    ASSERT_TRUE(printer->waitUntil([&] {
        const std::vector<std::string> lines = printerLines(printer->output());
        return std::find(lines.begin(), lines.end(), line) != lines.end();
    })) << "the printer has not written \""
        << line << "\" but\n"
        << printer->output() << printer->errors();
}

void PrinterFixture::awaitLog(const std::string &message, std::size_t times) {
    ASSERT_TRUE(filter->waitUntil([&] { return hasLogged(message, times); }))
        << "the log does not have \"" << message << "\"";
}

void PrinterFixture::awaitStatusLine(const std::string &line, std::size_t times) {
    ASSERT_TRUE(filter->waitUntil([&] {
        const std::vector<std::string> lines = linesOf(filter->errors());
        return static_cast<std::size_t>(std::count(lines.begin(), lines.end(), line)) >= times;
    })) << "the filter has not written \""
        << line << "\" but\n"
        << filter->errors();
}

ProcessResult PrinterFixture::finishFilter() {
    ProcessResult result = filter->finish();
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.output, "");
    return result;
}

ProcessResult PrinterFixture::finishPrinter() {
    ProcessResult result = printer->finish();
    EXPECT_FALSE(result.timedOut) << result.output;
    EXPECT_EQ(result.errors, "");
    return result;
}

bool PrinterFixture::says(Process &backend, const std::string &text) {
    return backend.waitUntil([&] { return backend.errors().find(text) != std::string::npos; });
}

ProcessResult PrinterFixture::finishBackend() {
    printer->closeInput();
    ProcessResult result = printer->finish();
    EXPECT_FALSE(result.timedOut) << result.errors;
    EXPECT_EQ(result.output, "");
    return result;
}

std::string PrinterFixture::printTwoSidedJob(std::uint32_t blockSize) {
    StreamOptions stream;
    stream.pages = 4;
    stream.bandsPerPage = 1;
    stream.planeSizes = {blockSize, 0, 0, 0};
    startFilter(
        {.stream = makeStream(stream), .options = JobOptions{.duplexing = 2, .sidesImaged = 4}.argument()});
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishBackend().exitStatus, 0);
    return resetRecord() + printed(stream, jobSettingDuplex, "2(12) 1(4) 4(12) 3(4)");
}

void PrinterFixture::expectSecondToWait(const Command &second) {
    Process waiting(second);
    ASSERT_TRUE(says(waiting, "INFO: Waiting for another job to leave the printer.\n"));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishBackend().exitStatus, 0);
    ASSERT_TRUE(says(waiting, "INFO: Printing.\nDEBUG: listening\n"));
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    waiting.closeInput();
    EXPECT_EQ(waiting.finish().exitStatus, 0);
}

std::vector<std::string> PrinterFixture::notifications() const {
    std::vector<std::string> result;
    for (const std::string &line : printerLines(printer->output())) {
        const bool block = line.starts_with("< writePipe, ");
        const std::string text = block ? "< writePipe" : line;
        if ((line.starts_with("<") || line.starts_with(">")) &&
            !(block && !result.empty() && result.back() == text)) {
            result.push_back(text);
        }
    }
    return result;
}

nlohmann::json PrinterFixture::reportedJob() {
    const nlohmann::json jobs = jobsIn(reportFile);
    if (jobs.size() != 1) {
        ADD_FAILURE() << "the report does not have one job: " << jobs.dump();
        return nlohmann::json::object();
    }
    return jobs[0];
}

std::vector<std::string> PrinterFixture::statusLines(const ProcessResult &filter) {
    std::vector<std::string> lines = linesOf(filter.errors);
    lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
    EXPECT_FALSE(lines.empty());
    if (!lines.empty()) {
        lines.erase(lines.begin());
    }
    return lines;
}

std::vector<std::string> PrinterFixture::printerLines(const std::string &output) {
    std::vector<std::string> lines = linesOf(output);
    for (std::string &line : lines) {
        line.erase(0, line.find(' ') + 1);
    }
    return lines;
}

} // namespace veltrin::test
