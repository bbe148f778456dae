#include "backend/DeviceMessage.h"

#include "backend/StateKeywords.h"

#include <algorithm>
#include <vector>

namespace veltrin::backend {

namespace {

constexpr std::string_view blanks = " \t";
constexpr std::string_view separators = ", \t";

void skip(std::string_view &text, std::string_view characters) {
    text.remove_prefix(std::min(text.find_first_not_of(characters), text.size()));
}

/// A "STATE:" line.
struct StateChange {
    char sign; ///< '+' or '-'; '=' for all the keywords that there are
    std::vector<std::string_view> keywords;
};

std::optional<StateChange> stateChangeIn(std::string_view line) {
    constexpr std::string_view beginning = "STATE:";
    if (!line.starts_with(beginning)) {
        return std::nullopt;
    }
    line.remove_prefix(beginning.size());
    skip(line, blanks);
    StateChange change{'=', {}};
    if (line.starts_with('+') || line.starts_with('-')) {
        change.sign = line.front();
        line.remove_prefix(1);
    }
    for (skip(line, separators); !line.empty(); skip(line, separators)) {
        const std::string_view word = line.substr(0, line.find_first_of(separators));
        change.keywords.push_back(word);
        line.remove_prefix(word.size());
    }
    return change;
}

/// What the printer's own conditions begin with in IPP's words, in those that CUPS's backends make of what
/// they ask a printer by SNMP, and in those that stand for a record.
constexpr std::string_view conditions[] = {
    "cleaner-", "cover-", "developer-", "door-",   "fuser-",   "input-", "interlock-",
    "marker-",  "media-", "opc-",       "output-", "subunit-", "toner-", "waste-receptacle-"};

bool isCondition(std::string_view keyword) {
    static const Keywords ours = allStateKeywords();
    return std::any_of(std::begin(conditions), std::end(conditions),
                       [keyword](std::string_view condition) { return keyword.starts_with(condition); }) ||
           std::find(ours.begin(), ours.end(), keyword) != ours.end();
}

bool isAboutMarkers(std::string_view line) {
    constexpr std::string_view beginning = "ATTR:";
    if (!line.starts_with(beginning)) {
        return false;
    }
    line.remove_prefix(beginning.size());
    skip(line, blanks);
    return line.starts_with("marker-");
}

} // namespace

std::optional<bool> keywordIn(std::string_view line, std::string_view keyword) {
    const auto change = stateChangeIn(line);
    if (!change) {
        return std::nullopt;
    }
    const auto &all = change->keywords;
    const bool isNamed = std::find(all.begin(), all.end(), keyword) != all.end();
    if (change->sign == '=') {
        return isNamed;
    }
    return isNamed ? std::optional(change->sign == '+') : std::nullopt;
}

std::optional<bool> connectingIn(std::string_view line) {
    // "socket" takes the keyword away when it knows the address, and once more when it is connected.
    if (line.starts_with("DEBUG: Connecting to ")) {
        return true;
    }
    return keywordIn(line, "connecting-to-device");
}

std::optional<std::string> passedOn(std::string_view line) {
    const auto change = stateChangeIn(line);
    if (!change) {
        return isAboutMarkers(line) ? std::nullopt : std::optional<std::string>(line);
    }
    // All that there are would take away ours: of those that may go on, each is added to them.
    const char sign = change->sign == '=' ? '+' : change->sign;
    std::string list;
    for (const std::string_view keyword : change->keywords) {
        if (keyword != "none" && !isCondition(keyword)) {
            list += list.empty() ? sign : ',';
            list += keyword;
        }
    }
    return list.empty() ? std::nullopt : std::optional("STATE: " + list);
}

} // namespace veltrin::backend
