#pragma once

#include <string>
#include <string_view>

namespace veltrin::printer {

/// A text from outside as text of an HTML document, whatever it holds: U+FFFD for what is no UTF-8, a dot for
/// a control character, and entities for what HTML would take for its own.
[[nodiscard]] std::string htmlText(std::string_view text);

} // namespace veltrin::printer
