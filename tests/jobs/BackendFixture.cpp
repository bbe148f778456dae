#include "tests/jobs/BackendFixture.h"

#include "tests/jobs/Jobs.h"
#include "tests/support/Files.h"

#include <filesystem>

namespace veltrin::test {

namespace fs = std::filesystem;

BackendFixture::BackendFixture() {
    fs::remove_all(folder);
    fs::create_directory(folder);
    // For whatever user the backend has.
    fs::permissions(folder, fs::perms(0777));
}

std::string BackendFixture::uriOf(const std::string &scenario) {
    return "veltrin-printer:/lx-410n?scenario=" + scenario + "&output=" + outputFile +
           "&report=" + reportFile;
}

std::string BackendFixture::coverOpen(const std::string &seconds) {
    std::string path = folder + "/cover-open.json";
    const std::string length = seconds.empty() ? "" : R"(, "for": )" + seconds;
    writeFile(path, R"({"description": "Somebody opens the cover after the first page",
                        "printer": {"pagesPerMinute": 6000, "memory": {"image": 1500000}},
                        "events": [{"afterPage": 1, "do": "cover-open")" +
                        length + "}]}");
    return path;
}

StreamOptions BackendFixture::twoLargePages(std::uint64_t seed) {
    StreamOptions stream;
    stream.pages = 2;
    stream.planeSizes = {100000, 0, 0, 0};
    stream.seed = seed;
    return stream;
}

std::string BackendFixture::printedFrom(const PrivateScheduler &scheduler,
                                        const std::vector<std::string> &options, const std::string &stream) {
    const ProcessResult result = run(scheduler.filterByHand(forFilter(options), stream));
    EXPECT_EQ(result.exitStatus, 0);
    return resetRecord() + result.output;
}

void BackendFixture::awaitPrinter(PrivateScheduler &scheduler) {
    ASSERT_TRUE(scheduler.waitUntil([] { return fs::exists(outputFile) && fs::file_size(outputFile) > 0; }))
        << scheduler.log();
}

} // namespace veltrin::test
