#include "backend/StateKeywords.h"

#include <algorithm>
#include <iterator>

namespace veltrin::backend {

namespace {

constexpr int any = -1;

struct Row {
    std::uint8_t status;
    int subStatus1;
    std::string_view keyword;
};

struct WarningRow {
    BitField field;
    std::string_view keyword;
};

// clang-format off

// The conditions of the status catalogue that IPP has a word for; all that fit count. "error" is what keeps
// the printer from printing, "warning" what will do so before long.
constexpr Row table[] = {
    {17, any, "media-needed-error"}, // other paper than the job's
    {18, any, "media-needed-error"},
    {19, any, "media-needed-error"},
    {22, any, "input-tray-missing-error"},
    {26, any, "media-needed-error"},
    {27, any, "media-jam-error"},
    {29, 1, "media-needed-error"}, // the stack is to be turned
    {29, 2, "media-needed-error"},
    {30, 1, "toner-empty-error"},
    {30, 2, "toner-empty-error"},
    {30, 3, "toner-empty-error"},
    {30, 4, "toner-empty-error"},
    {30, 6, "subunit-life-over-error"}, // fuser
    {31, 1, "toner-low-warning"},
    {31, 2, "toner-low-warning"},
    {31, 3, "toner-low-warning"},
    {31, 4, "toner-low-warning"},
    {31, 5, "subunit-life-almost-over-warning"}, // transfer belt
    {31, 6, "subunit-life-almost-over-warning"}, // fuser
    {31, 7, "marker-waste-almost-full-warning"},
    {33, any, "cover-open-error"},
    {34, any, "media-jam-error"},
    {35, any, "media-empty-error"},
    {37, any, "media-needed-error"},
    {38, any, "media-needed-error"},
    {39, 1, "marker-supply-missing-error"},
    {39, 2, "marker-supply-missing-error"},
    {39, 3, "marker-supply-missing-error"},
    {39, 4, "marker-supply-missing-error"},
    {39, 5, "marker-waste-missing-error"},
    {39, 6, "subunit-missing-error"}, // transfer belt
    {39, 7, "subunit-missing-error"}, // fuser
    {40, any, "other-error"},
    {41, any, "other-error"},
    {42, 1, "marker-waste-full-error"},
    {42, 2, "subunit-life-over-error"}, // transfer belt
    {42, 3, "toner-empty-error"},
    {42, 4, "toner-empty-error"},
    {42, 5, "toner-empty-error"},
    {42, 6, "toner-empty-error"},
    {43, any, "input-tray-missing-error"},
    {49, any, "other-error"}, // a service call
    {53, any, "other-error"},
    {54, any, "other-error"},
    {55, any, "other-error"},
    {56, any, "other-error"},
    {255, any, "offline-error"},
};

// What the record warns of beside the status.
constexpr WarningRow warnings[] = {
    {Waste_warn, "marker-waste-almost-full-warning"},
    {Transfer_warn, "subunit-life-almost-over-warning"},
    {Fuser_warn, "subunit-life-almost-over-warning"},
};

// clang-format on

Keywords sorted(Keywords keywords) {
    std::sort(keywords.begin(), keywords.end());
    keywords.erase(std::unique(keywords.begin(), keywords.end()), keywords.end());
    return keywords;
}

Keywords without(const Keywords &all, const Keywords &others) {
    Keywords left;
    std::set_difference(all.begin(), all.end(), others.begin(), others.end(), std::back_inserter(left));
    return left;
}

void addLine(std::vector<std::string> &lines, char sign, const Keywords &keywords) {
    std::string list;
    for (const std::string_view keyword : keywords) {
        list += list.empty() ? sign : ',';
        list += keyword;
    }
    if (!list.empty()) {
        lines.push_back("STATE: " + list);
    }
}

} // namespace

Keywords stateKeywords(const ReverseRecord &record) {
    Keywords keywords;
    for (const Row &row : table) {
        if (row.status == record.bPrinterStatus &&
            (row.subStatus1 == any || row.subStatus1 == record.bSubStatus1)) {
            keywords.push_back(row.keyword);
        }
    }
    for (const WarningRow &row : warnings) {
        if (row.field.valueIn(record) != 0) {
            keywords.push_back(row.keyword);
        }
    }
    return sorted(keywords);
}

Keywords allStateKeywords() {
    Keywords keywords;
    for (const Row &row : table) {
        keywords.push_back(row.keyword);
    }
    for (const WarningRow &row : warnings) {
        keywords.push_back(row.keyword);
    }
    return sorted(keywords);
}

std::vector<std::string> stateLines(const std::optional<Keywords> &before, const Keywords &now) {
    std::vector<std::string> lines;
    addLine(lines, '+', before ? without(now, *before) : now);
    addLine(lines, '-', without(before ? *before : allStateKeywords(), now));
    return lines;
}

} // namespace veltrin::backend
