#pragma once

#include "status/LocalizedText.h"

#include <cstdint>
#include <string_view>

namespace veltrin {

/// The name of a paper size code of the reverse status record.
[[nodiscard]] LocalizedText paperSizeName(std::uint32_t code);

/// The name of a paper type code of the reverse status record.
[[nodiscard]] LocalizedText paperTypeName(std::uint32_t code);

[[nodiscard]] LocalizedText paperTrayName(std::uint32_t code);

/// The fixed, never translated name of a paper type code; "Plain" for every code without one.
[[nodiscard]] std::string_view mediaTypeName(std::int32_t code);

/// The code name of a model code (0-3, of which the last is for models to come).
[[nodiscard]] LocalizedText modelName(std::uint32_t code);

/// The name that the model is sold under.
[[nodiscard]] LocalizedText modelDescription(std::uint32_t code);

} // namespace veltrin
