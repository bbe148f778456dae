#include "filter/DuplexPaperRule.h"

#include <algorithm>
#include <array>

namespace veltrin {

namespace {

constexpr std::array<std::string_view, 15> oneSidedSizes = {
    "A5",      "B6",    "A6",    "HalfLetter", "FS",    "Foolscap", "Folio",     "Env10",
    "Monarch", "EnvC5", "EnvC6", "EnvDL",      "Kai16", "Postcard", "ReplyPaid",
};

constexpr std::string_view customSizePrefix = "Custom";

constexpr std::array<std::string_view, 7> oneSidedTypes = {
    "Plain90", "Thick", "Thick160", "Bond", "Cardstock", "Labels", "Envelope",
};

template <std::size_t count>
bool isOneOf(std::string_view name, const std::array<std::string_view, count> &names) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

bool canDuplexPaper(std::optional<std::string_view> media, std::optional<std::string_view> paperType) {
    if (media && (isOneOf(*media, oneSidedSizes) || media->starts_with(customSizePrefix))) {
        return false;
    }
    return !paperType || !isOneOf(*paperType, oneSidedTypes);
}

} // namespace veltrin
