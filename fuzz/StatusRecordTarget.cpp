// A status record on its way to people: the record, the log's dump, the catalogue, the status line. The
// input: a line that is every text's translation, and what comes in as records, one after the other, each
// behind a byte with its length.

#include "driver/PrinterStatus.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "log/DebugLog.h"
#include "status/VeltrinReverseData.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <string_view>

namespace veltrin::fuzz {

namespace {

/// Every text of the catalogue has the same translation.
class TranslatingBundle final : public platform::Bundle {
  public:
    explicit TranslatingBundle(std::string theText) : text(std::move(theText)) {}

    [[nodiscard]] std::optional<std::string>
    objectForInfoDictionaryKey(const std::string & /*key*/) override {
        return std::nullopt;
    }

    [[nodiscard]] std::optional<std::string> infoDictionaryProblem() override { return std::nullopt; }

    void setPreferredLanguage(const std::string & /*language*/) override {}

    [[nodiscard]] std::string localizedStringForKey(const std::string &key,
                                                    const std::string &defaultText) override {
        require(!key.empty(), "nobody asks for a text without a name");
        return text.empty() ? defaultText : text;
    }

  private:
    std::string text;
};

bool isRecord(std::span<const std::byte> bytes) {
    return bytes.size() == sizeof(ReverseRecord) && std::memcmp(bytes.data(), "GDIR", 4) == 0;
}

/// The bytes of the record that the fields say, by the offsets of the printer's manual.
void requireFields(const VeltrinReverseData &data, std::span<const std::byte> bytes) {
    const auto at = [bytes](std::size_t offset) { return std::to_integer<std::uint32_t>(bytes[offset]); };
    const auto wide = [at](std::size_t offset) {
        return at(offset) << 24U | at(offset + 1) << 16U | at(offset + 2) << 8U | at(offset + 3);
    };
    require(data.port() == at(8) && data.receivingJobId() == at(10) && data.printingJobId() == at(11),
            "the record's bytes are its fields");
    require(data.headerMemory() == wide(24) && data.imageMemory() == wide(28), "its memories are big-endian");
    require(data.remainingPages() == (at(34) << 8U | at(35)), "its pages are big-endian");
    require(data.statusCode() == at(36) && data.subStatusCode1() == at(37) && data.subStatusCode2() == at(59),
            "its codes are where they are");
    require(data.duplexInstalled() == ((at(57) & 0x80U) != 0), "its duplex unit is a bit");
}

std::size_t linesIn(const std::string &text) {
    return static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
}

/// What the scheduler is told, whatever the translation: one line, of the severity, and nothing else.
void requireStatusLine(VeltrinReverseData &data, const std::string &text, std::int32_t severity) {
    test::FakePlatform platform;
    bool isCancelled = false;
    platform.fakeClock.afterSleep = [&isCancelled] { isCancelled = true; };
    PrinterStatus status(data, nullptr, platform, [&isCancelled] { return isCancelled; });
    const Caught errors(STDERR_FILENO);
    status.postCUPSStatus(severity, text);
    const std::string written = errors.text();
    const std::string prefix = severity == 0   ? "INFO: "
                               : severity == 1 ? "WARNING: recoverable: "
                                               : "ERROR: recoverable: ";
    require(written == (text.empty() ? "" : prefix + text + "\n"), "a status is one line of its severity");
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::string translation = input.line();
    if (translation.find('\0') != std::string::npos) {
        return 0; // a string table has none
    }
    TranslatingBundle bundle(translation);
    const test::CapturedLog log;
    VeltrinReverseData reverseData(bundle);
    std::string last;
    while (!input.isEmpty()) {
        const auto bytes = input.bytes(input.byte());
        const Caught errors(STDERR_FILENO);
        require(reverseData.setData(bytes) == isRecord(bytes), "a record is 64 bytes that begin as one");
        require(linesIn(errors.text()) == (isRecord(bytes) ? 0U : 1U), "what is none is shown in one line");
        if (isRecord(bytes)) {
            last.assign(reinterpret_cast<const char *>(bytes.data()), bytes.size());
        }
    }
    require(reverseData.hasRecord() == !last.empty(), "a record is there once one has come");
    const ReverseRecord record = reverseData.snapshot();
    if (last.empty()) {
        const std::string zeros(sizeof record, '\0');
        require(std::memcmp(&record, zeros.data(), sizeof record) == 0, "no record is one of zeros");
        return 0;
    }
    require(std::memcmp(&record, last.data(), sizeof record) == 0, "the newest record is kept, whole");
    requireFields(reverseData, std::as_bytes(std::span(last)));
    std::int32_t severity = -1;
    const std::string text = reverseData.statusString(severity);
    require(severity >= 0 && severity <= 2, "a status has one of three severities");
    requireStatusLine(reverseData, text, severity);
    for (const std::uint32_t code : {record.BypassTrayPaperSize, record.Tray1Type, record.bSubStatus2}) {
        static_cast<void>(reverseData.paperSizeString(code) + reverseData.paperTypeString(code) +
                          reverseData.paperTrayString(code) +
                          VeltrinReverseData::mediaTypeString(static_cast<std::int32_t>(code)));
    }
    require(!reverseData.modelInfoString().empty(), "every model has a name");
    const std::string logged = test::readFile(debugLogPath);
    require(logged.find("ReverseData: dwVersion:\t0x") != std::string::npos, "a new record is dumped");
    return 0;
}
