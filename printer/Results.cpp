#include "printer/Results.h"

#include "platform/CommandLine.h"

#include <algorithm>
#include <utility>

namespace veltrin::printer {

Results::Results(const PrinterOptions &theOptions)
    : options(theOptions), output(options.outputFile), reportFile(options.reportFile),
      sheets(options.sheets) {}

void Results::start() {
    if (!std::exchange(hasStarted, true)) {
        output.drop();
        reportFile.drop();
        sheets.start();
    }
}

void Results::add(std::span<const std::byte> bytes) {
    output.write(bytes);
    sheets.take(bytes);
}

void Results::add(const JobReport &job) {
    jobs.push_back(job);
    sheets.endJob(job);
}

bool Results::hasBrokenJob() const {
    return std::any_of(jobs.begin(), jobs.end(),
                       [](const JobReport &job) { return job.outcome() == JobOutcome::broken; });
}

void Results::end(const std::string &uri, const PrinterModel &printer) {
    for (JobReport &job : jobs) {
        job.pagesPrinted = printer.pagesPrintedOf(job.number);
    }
    const std::string report = hasStarted ? reportDocument(uri, jobs) : "";
    reportFile.write(std::as_bytes(std::span(report)));
    reportFile.close();
    output.close();
    if (hasStarted) {
        sheets.end(jobs);
    }
}

bool Results::areFilesFine(const char *program) const {
    const auto isFine = [program](int error, const std::string &path) {
        return error == 0 || reportFailure(program, path, error) == exitFine;
    };
    return isFine(output.error(), options.outputFile) && isFine(reportFile.error(), options.reportFile) &&
           isFine(sheets.error(), sheets.failedFile());
}

} // namespace veltrin::printer
