#pragma once

#include <string_view>

namespace veltrin {

/// A text that may be translated.
struct LocalizedText {
    std::string_view key;     // in the string tables
    std::string_view english; // shown where no table has the key
};

} // namespace veltrin
