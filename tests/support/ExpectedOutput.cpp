#include "tests/support/ExpectedOutput.h"

#include "tests/support/PageNotation.h"

#include <cstddef>

namespace veltrin::test {

namespace {

constexpr std::size_t jobSettingOffset = 16;
constexpr std::size_t pageTrayOffset = 9;
constexpr std::size_t pageTypeOffset = 33;

} // namespace

std::string JobOptions::argument() const {
    std::string text = "com.apple.print.PrintSettings.PMCopies..n.=" + std::to_string(copies);
    if (collate) {
        text += " com.apple.print.PrintSettings.PMCopyCollate..b.=true";
    }
    if (duplexing != 0) {
        text += " com.apple.print.PrintSettings.PMDuplexing..n.=" + std::to_string(duplexing);
    }
    if (sidesImaged != 0) {
        text += " com.apple.print.PrintSettings.PMTotalSidesImaged..n.=" + std::to_string(sidesImaged);
    }
    if (!jobName.empty()) {
        text += " com.apple.print.JobInfo.PMJobName=\"" + jobName + "\"";
    }
    return others.empty() ? text : text + " " + others;
}

std::string printed(const StreamOptions &stream, std::uint16_t jobSetting, const std::string &pages) {
    std::string bytes = makeJobHeaders(stream);
    bytes[jobSettingOffset] = static_cast<char>(bytes[jobSettingOffset] | jobSetting >> 8);
    bytes[jobSettingOffset + 1] = static_cast<char>(bytes[jobSettingOffset + 1] | (jobSetting & 0xFF));
    for (const MarkedPage &marked : markedPages(pages)) {
        std::string page = makePage(stream, marked.number);
        page[pageTypeOffset] = static_cast<char>(page[pageTypeOffset] | marked.typeBits);
        if (marked.fromBypass) {
            page[pageTrayOffset] = 1;
        }
        bytes += page;
    }
    return bytes + "JIDG";
}

const std::string &cancelRecord() {
    static const std::string record("GDIC CANCEL    \0", 16);
    return record;
}

const std::string &resetRecord() {
    static const std::string record = "GDIC GDIREND    ";
    return record;
}

} // namespace veltrin::test
