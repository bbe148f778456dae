#include "tests/driver/DriverFixture.h"

#include "tests/support/Files.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

namespace veltrin::test {

DriverFixture::DriverFixture() {
    std::filesystem::create_directories(spoolFolder);
    setenv("TMPDIR", spoolFolder, 1);
    setenv("CUPS_SERVERROOT", "/tmp/none", 1);
    setenv("LANG", "en.UTF-8", 1);
}

DriverFixture::~DriverFixture() {
    driver.reset();
    EXPECT_EQ(namesIn(spoolFolder), std::vector<std::string>()) << "left behind";
    std::filesystem::remove_all(spoolFolder);
}

bool DriverFixture::start(const std::string &deviceURI, const std::string &options,
                          const std::string &input) {
    driver.reset();
    setenv("DEVICE_URI", deviceURI.c_str(), 1);
    writeFile("/tmp/input", input);
    arguments = Arguments({"queue", "1", "user", "title", "1", options, "/tmp/input"});
    driver = CUPSFilter::initWithArgc(std::make_unique<DriverFilter>(platform), arguments.count(),
                                      arguments.vector());
    return driver != nullptr;
}

bool DriverFixture::printTo(const std::string &deviceURI, const std::string &options,
                            const std::string &input) {
    if (!start(deviceURI, options, input)) {
        ADD_FAILURE() << "no driver for " << deviceURI;
        return false;
    }
    log.clear();
    output.clear();
    errors.clear();
    received.clear();
    return driver->run();
}

std::vector<std::string> DriverFixture::spooledPages() const {
    std::vector<std::string> pages;
    for (const std::string &message : log.messages()) {
        if (const auto at = message.find("to file: "); at != std::string::npos) {
            pages.push_back(readFile(message.substr(at + 9)));
        }
    }
    return pages;
}

void DriverFixture::loseSpooledPages() {
    for (const std::string &name : namesIn(spoolFolder)) {
        std::filesystem::remove(std::filesystem::path(spoolFolder) / name);
    }
}

std::vector<std::string> DriverFixture::messagesBetween(const std::string &first,
                                                        const std::string &last) const {
    std::vector<std::string> messages = log.messages();
    const auto from = std::find(messages.begin(), messages.end(), first);
    const auto to = std::find(from, messages.end(), last);
    return {from, to == messages.end() ? to : to + 1};
}

StreamOptions streamOf(std::uint32_t pages, std::uint32_t copies, CopyOrder order) {
    StreamOptions stream;
    stream.pages = pages;
    stream.copies = copies;
    stream.order = order;
    stream.bandsPerPage = 2;
    return stream;
}

} // namespace veltrin::test
