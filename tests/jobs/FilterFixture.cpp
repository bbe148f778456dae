#include "tests/jobs/FilterFixture.h"

#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <filesystem>
#include <regex>

namespace veltrin::test {

FilterFixture::FilterFixture() {
    std::filesystem::create_directories(spoolDirectory);
    std::filesystem::create_directories(bundleDirectory);
    std::filesystem::copy_file(hostPath(VELTRIN_EXECUTABLE), executable);
    environment = {
        {"CHARSET", "utf-8"},
        {"CONTENT_TYPE", "application/vnd.veltrin.page-stream"},
        {"CUPS_SERVER", noScheduler},
        {"CUPS_SERVERROOT", "/tmp/cups"},
        {"DEVICE_URI", "file:///dev/null"},
        {"LANG", "en.UTF-8"},
        {"PRINTER", "queue"},
        {"TMPDIR", spoolDirectory},
        {"TZ", "UTC"},
        // Let an allocation fail as it does without a sanitizer.
        {"ASAN_OPTIONS", "allocator_may_return_null=1:max_allocation_size_mb=1024"},
    };
    configure({{"CUPSFileHeader", "11111111-2222-3333-4444-555555555555"}});
    writeFile(debugMarkerPath, "");
}

FilterFixture::~FilterFixture() {
    for (const char *path : {spoolDirectory, bundleDirectory, debugMarkerPath, debugLogPath, "/tmp/cups"}) {
        std::filesystem::remove_all(path);
    }
}

void FilterFixture::configure(const std::map<std::string, std::string> &keys) {
    std::string plist = "<plist version=\"1.0\"><dict>\n";
    for (const auto &[key, value] : keys) {
        plist += "<key>" + key + "</key><string>" + value + "</string>\n";
    }
    writeFile(std::string(bundleDirectory) + "/Info.plist", plist + "</dict></plist>\n");
}

Command FilterFixture::command(const std::string &options, const std::string &input) const {
    return {.program = executable,
            .arguments = {"queue", "17", "somebody", "a title", "1", options},
            .environment = environment,
            .input = Text{input}};
}

ProcessResult FilterFixture::print(const std::string &options, const std::string &input) {
    return runToEnd(command(options, input));
}

ProcessResult FilterFixture::runToEnd(const Command &command) {
    ProcessResult result = run(command);
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.signal, std::nullopt);
    expectNothingLeftBehind();
    return result;
}

void FilterFixture::expectNothingLeftBehind() const {
    EXPECT_THAT(namesIn(environment.at("TMPDIR")), testing::IsEmpty());
    EXPECT_FALSE(std::filesystem::exists("/tmp/Sem_File00001"));
}

std::vector<std::string> FilterFixture::logMessages() const {
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

} // namespace veltrin::test
