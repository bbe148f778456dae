#pragma once

#include <string>
#include <string_view>

namespace veltrin {

/// `format` with `argument` in place of every "%@" and "%1$@", and a "%" in place of every "%%". Anything
/// else stays as it is: a format may come from a translation, which must be able to do no harm.
[[nodiscard]] std::string formatText(std::string_view format, std::string_view argument);

} // namespace veltrin
