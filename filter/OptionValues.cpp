#include "filter/OptionValues.h"

#include <strings.h>

#include <algorithm>
#include <limits>

namespace veltrin {

bool equalIgnoringCase(std::string_view one, std::string_view other) {
    return one.size() == other.size() && strncasecmp(one.data(), other.data(), one.size()) == 0;
}

std::int32_t integerValue(std::string_view text) {
    using Limits = std::numeric_limits<std::int32_t>;
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    const bool negative = text.starts_with('-');
    if (negative || text.starts_with('+')) {
        text.remove_prefix(1);
    }
    std::int64_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            break;
        }
        value = value * 10 + (character - '0');
        if (value > Limits::max()) {
            return negative ? Limits::min() : Limits::max();
        }
    }
    return static_cast<std::int32_t>(negative ? -value : value);
}

bool booleanValue(std::string_view text) {
    return equalIgnoringCase(text, "true") || equalIgnoringCase(text, "yes");
}

} // namespace veltrin
