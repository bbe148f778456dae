// The inspector of streams, with both of its reports. The input: a byte for how it reads, one for how the
// bytes are cut, and the stream.

#include "driver/stream/StreamReader.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "tools/dump/JsonReport.h"
#include "tools/dump/TextReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <sstream>
#include <variant>

namespace veltrin::fuzz {

namespace {

struct Report {
    std::string text;
    std::string json;
    StreamTotals totals;
    bool isWellFormed = false;
    std::uint64_t data = 0;     ///< bytes, as they were handed on
    std::uint64_t problems = 0; ///< that were told of
};

Report reportOn(std::span<const std::byte> stream, IdentifierRule rule, const ReaderOptions &options,
                std::size_t piece) {
    std::ostringstream text;
    std::ostringstream json;
    TextReport textReport(text);
    JsonReport jsonReport(json, "stream");
    Report report;
    StreamReader reader(
        [&](const StreamEvent &event) {
            if (const auto *read = std::get_if<BandDataRead>(&event)) {
                report.data += read->bytes.size(); // the pieces are as the input was cut
                return;
            }
            report.problems += std::holds_alternative<ProblemFound>(event) ? 1U : 0U;
            textReport.show(event);
            jsonReport.show(event);
        },
        rule, options);
    while (!stream.empty()) {
        const auto next = stream.first(std::min(piece, stream.size()));
        reader.feed(next);
        stream = stream.subspan(next.size());
    }
    reader.finish();
    textReport.showTotals(reader.totals());
    jsonReport.showTotals(reader.totals());
    report.text = text.str();
    report.json = json.str();
    report.totals = reader.totals();
    report.isWellFormed = reader.isWellFormed();
    return report;
}

bool isPrintable(const std::string &text) {
    return std::all_of(text.begin(), text.end(),
                       [](char byte) { return byte == '\n' || (byte >= ' ' && byte <= '~'); });
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t how = input.byte();
    const auto rule = static_cast<IdentifierRule>(how % 3);
    const ReaderOptions options = {.afterFault = static_cast<AfterFault>(how / 3 % 3),
                                   .bands = (how & 0x40U) != 0,
                                   .data = (how & 0x80U) != 0};
    const std::size_t piece = std::size_t{input.byte()} + 1;
    const auto stream = input.remaining();

    const Report whole = reportOn(stream, rule, options, stream.size());
    const Report cut = reportOn(stream, rule, options, piece);
    require(whole.text == cut.text && whole.json == cut.json, "the reports do not depend on how it is cut");
    require(isPrintable(whole.text) && isPrintable(whole.json), "a report does nothing to a terminal");
    require(nlohmann::json::accept(whole.json), "the report for programs is JSON");

    const StreamTotals &totals = whole.totals;
    require(totals.bytes == stream.size(), "all of the input is counted");
    require(totals.unread + totals.skipped + totals.dataBytes <= totals.bytes, "no byte is counted twice");
    require(!options.data || whole.data == totals.dataBytes, "data are handed on as they are counted");
    require(totals.problems == whole.problems, "every problem is told of");
    require(whole.isWellFormed == (whole.problems == 0), "a stream is whole where no problem is");
    require(!whole.isWellFormed || totals.endOfJob || totals.cancelled, "a whole stream has an end");
    require(!whole.isWellFormed || totals.unread + totals.skipped == 0, "a whole stream is read whole");
    return 0;
}
