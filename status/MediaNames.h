#pragma once

#include "status/LocalizedText.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace veltrin {

/// The name of a paper size code of the reverse status record.
[[nodiscard]] LocalizedText paperSizeName(std::uint32_t code);

/// The name of a paper type code of the reverse status record.
[[nodiscard]] LocalizedText paperTypeName(std::uint32_t code);

[[nodiscard]] LocalizedText paperTrayName(std::uint32_t code);

/// The fixed, never translated name of a paper type code; "Plain" for every code without one.
[[nodiscard]] std::string_view mediaTypeName(std::int32_t code);

/// The paper size code for a size of the PPD, such as "A4" or "Env10"; that of custom sizes for every name
/// that begins with "Custom", nothing for any other name.
[[nodiscard]] std::optional<std::uint8_t> paperSizeCode(std::string_view name);

/// The name by which the filter's paper rule knows a size of the PPD: "FS" for "8x13". Any other name is its
/// own.
[[nodiscard]] std::string_view ownSizeName(std::string_view name);

/// The paper type code for a type of the PPD, such as "Plain" or "Thick160"; nothing for any other name.
[[nodiscard]] std::optional<std::uint8_t> mediaTypeCode(std::string_view name);

/// The code name of a model code (0-3, of which the last is for models to come).
[[nodiscard]] LocalizedText modelName(std::uint32_t code);

/// The name that the model is sold under.
[[nodiscard]] LocalizedText modelDescription(std::uint32_t code);

} // namespace veltrin
