#include "tests/support/CapturedLog.h"

#include "log/DebugLog.h"
#include "tests/support/Files.h"

#include <filesystem>
#include <regex>

namespace veltrin::test {

CapturedLog::CapturedLog() {
    clear();
    writeFile(debugMarkerPath, "");
}

CapturedLog::~CapturedLog() {
    DebugEnd();
    std::filesystem::remove(debugMarkerPath);
    std::filesystem::remove(debugLogPath);
}

std::vector<std::string> CapturedLog::messages() const {
    return std::filesystem::exists(debugLogPath) ? messagesOf(readFile(debugLogPath))
                                                 : std::vector<std::string>();
}

void CapturedLog::clear() {
    DebugEnd();
    std::filesystem::remove(debugLogPath);
}

std::vector<std::string> messagesOf(const std::string &log) {
    static const std::regex prefix(R"(^\d\d/\d\d/\d{4} \d\d:\d\d:\d\d\.\d{4,6} \(\d+\) )");
    std::vector<std::string> messages = linesOf(log);
    for (std::string &message : messages) {
        message = std::regex_replace(message, prefix, "", std::regex_constants::format_first_only);
    }
    return messages;
}

} // namespace veltrin::test
