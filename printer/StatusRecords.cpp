#include "printer/StatusRecords.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <string_view>

namespace veltrin::printer {

namespace {

/// With the tag's first bytes, and with the whole of it but no record behind.
constexpr std::string_view garbage = "\x1b%-12345X GDI GDI";

} // namespace

PrinterTime recordDue(const std::optional<PrinterTime> &last, bool changed, PrinterTime interval,
                      PrinterTime now) {
    if (!last) {
        return now;
    }
    return *last + (changed ? closestRecords : std::max(interval, closestRecords));
}

std::vector<std::byte> recordBytes(const std::vector<RecordRule> &rules, std::uint64_t number,
                                   const ReverseRecord &record) {
    std::vector<std::byte> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    const auto rule = std::find_if(rules.begin(), rules.end(), [number](const RecordRule &candidate) {
        return number >= candidate.first && number <= candidate.last;
    });
    if (rule == rules.end()) {
        return bytes;
    }
    switch (rule->fault) {
    case RecordFault::missing:
        bytes.clear();
        break;
    case RecordFault::half:
        bytes.resize(bytes.size() / 2);
        break;
    case RecordFault::garbage: {
        const auto rubbish = std::as_bytes(std::span(garbage));
        bytes.insert(bytes.begin(), rubbish.begin(), rubbish.end());
        break;
    }
    case RecordFault::wrongTag:
        std::reverse(bytes.begin(), bytes.begin() + reverseRecordTag.size());
        break;
    }
    return bytes;
}

} // namespace veltrin::printer
