#include "tests/jobs/JobFixture.h"

#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <regex>

namespace veltrin::test {

std::map<std::string, std::string> filterEnvironment(const FilterSurroundings &surroundings) {
    return {
        {"CHARSET", "utf-8"},
        {"CONTENT_TYPE", "application/vnd.veltrin.page-stream"},
        {"CUPS_SERVER", surroundings.server},
        {"CUPS_SERVERROOT", surroundings.serverRoot},
        {"DEVICE_URI", surroundings.deviceUri},
        {"LANG", "en.UTF-8"},
        {"PRINTER", surroundings.queue},
        {"TMPDIR", surroundings.temporaryFolder},
        {"TZ", "UTC"},
        // Let an allocation fail as it does without a sanitizer.
        {"ASAN_OPTIONS", "allocator_may_return_null=1:max_allocation_size_mb=1024"},
    };
}

JobFixture::JobFixture() {
    std::filesystem::create_directories(spoolFolder);
}

JobFixture::~JobFixture() {
    for (const char *path : {spoolFolder, bundleFolder, debugMarkerPath, debugLogPath, "/tmp/cups"}) {
        std::filesystem::remove_all(path);
    }
}

void JobFixture::switchLogOn() {
    writeFile(debugMarkerPath, "");
}

Command JobFixture::filterCommand(const FilterJob &job) const {
    Command command{.program = filterProgram,
                    .arguments = {"queue", job.id, "user", "a title", "1", job.options},
                    .environment = environment,
                    .input = Text{job.stream}};
    if (job.input) {
        std::visit([&command](const auto &input) { command.input = input; }, *job.input);
    }
    if (job.output) {
        command.output = *job.output;
    }
    return command;
}

std::vector<std::string> JobFixture::logMessages() {
    static const std::regex spoolFile(R"(/tmp/spool/\w+)");
    std::vector<std::string> files;
    std::vector<std::string> messages = messagesOf(readFile(debugLogPath));
    for (std::string &message : messages) {
        std::smatch match;
        if (std::regex_search(message, match, spoolFile)) {
            const std::string name = match.str();
            const auto known = std::find(files.begin(), files.end(), name);
            const auto number = known - files.begin();
            if (known == files.end()) {
                files.push_back(name);
            }
            message = std::string(match.prefix()) + "<file " + std::to_string(number) + ">" +
                      std::string(match.suffix());
        }
    }
    return messages;
}

bool JobFixture::hasLogged(const std::string &message, std::size_t times) {
    if (!std::filesystem::exists(debugLogPath)) {
        return false;
    }
    const std::vector<std::string> messages = logMessages();
    return static_cast<std::size_t>(std::count(messages.begin(), messages.end(), message)) >= times;
}

void JobFixture::expectNothingLeft() {
    EXPECT_THAT(namesIn(spoolFolder), testing::IsEmpty());
    EXPECT_FALSE(std::filesystem::exists("/tmp/Sem_File00001"));
}

nlohmann::json JobFixture::jobsIn(const std::string &reportFile) {
    const nlohmann::json report = nlohmann::json::parse(readFile(reportFile), nullptr, false);
    if (!report.is_object()) {
        ADD_FAILURE() << "there is no report";
        return nlohmann::json::array();
    }
    return report.value("jobs", nlohmann::json::array());
}

} // namespace veltrin::test
