#pragma once

#include "status/LocalizedText.h"

#include <cstdint>

namespace veltrin {

/// Whose name takes the place of "%@" in a status text: that of the second sub-status code read as a paper
/// size code or as a paper type code.
enum class PaperName { none, size, type };

/// How bad a printer's status is, in the numbers that status lines are posted with.
inline constexpr std::int32_t severityInformation = 0;
inline constexpr std::int32_t severityFatal = 2;

struct StatusText {
    LocalizedText text; // empty key and text where the catalogue has none
    std::int32_t severity = severityInformation;
    PaperName name = PaperName::none;
};

/// What the printer means by its status code and its two sub-status codes.
[[nodiscard]] StatusText statusText(std::uint8_t status, std::uint8_t subStatus1, std::uint8_t subStatus2);

} // namespace veltrin
