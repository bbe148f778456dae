#include "backend/TonerLevels.h"

#include <string_view>

namespace veltrin::backend {

namespace {

struct Toner {
    std::string_view name;
    std::string_view colour;
    std::uint8_t ReverseRecord::*level;
};

constexpr Toner toners[] = {
    {"Black toner", "#000000", &ReverseRecord::TonerKStatus},
    {"Cyan toner", "#00FFFF", &ReverseRecord::TonerCStatus},
    {"Magenta toner", "#FF00FF", &ReverseRecord::TonerMStatus},
    {"Yellow toner", "#FFFF00", &ReverseRecord::TonerYStatus},
};

constexpr unsigned fullLevel = 100;
constexpr std::string_view lowLevel = "10"; // where people are told to buy some

/// The values that the function finds for each toner, between commas.
template <typename ValueOf>
std::string listOf(ValueOf valueOf) {
    std::string list;
    for (const Toner &toner : toners) {
        list += list.empty() ? "" : ",";
        list += valueOf(toner);
    }
    return list;
}

/// In per cent; -1 for what is none.
std::string levelsIn(const ReverseRecord &record) {
    return listOf([&record](const Toner &toner) {
        const unsigned level = record.*toner.level;
        return level <= fullLevel ? std::to_string(level) : std::string("-1");
    });
}

} // namespace

std::vector<std::string> tonerLines(const std::optional<ReverseRecord> &before, const ReverseRecord &now) {
    std::vector<std::string> lines;
    if (!before) {
        lines.push_back("ATTR: marker-colors=" +
                        listOf([](const Toner &toner) { return std::string(toner.colour); }));
        // The outer marks are the line's, the inner ones the list's.
        lines.push_back("ATTR: marker-names=\"" +
                        listOf([](const Toner &toner) { return "'" + std::string(toner.name) + "'"; }) +
                        "\"");
        lines.push_back("ATTR: marker-types=" + listOf([](const Toner &) { return std::string("toner"); }));
        lines.push_back("ATTR: marker-low-levels=" +
                        listOf([](const Toner &) { return std::string(lowLevel); }));
        lines.push_back("ATTR: marker-high-levels=" +
                        listOf([](const Toner &) { return std::to_string(fullLevel); }));
    }
    if (const std::string levels = levelsIn(now); !before || levels != levelsIn(*before)) {
        lines.push_back("ATTR: marker-levels=" + levels);
    }
    return lines;
}

} // namespace veltrin::backend
