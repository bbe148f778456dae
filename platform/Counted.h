#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace veltrin {

/// A number of things in words for people: "1 page", "2 pages".
[[nodiscard]] inline std::string counted(std::uint64_t number, std::string_view one, std::string_view many) {
    return std::to_string(number).append(" ").append(number == 1 ? one : many);
}

} // namespace veltrin
