#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace veltrin::fuzz {

/// The bytes that a target is given, taken from their beginning. Where there are none left, numbers are 0 and
/// texts are empty: every input means something.
class Input {
  public:
    Input(const std::uint8_t *data, std::size_t size) : rest(data, size) {}

    [[nodiscard]] bool isEmpty() const { return rest.empty(); }

    [[nodiscard]] std::uint8_t byte() {
        const std::uint8_t first = rest.empty() ? std::uint8_t{0} : rest.front();
        rest = rest.subspan(std::min<std::size_t>(rest.size(), 1));
        return first;
    }

    [[nodiscard]] bool flag() { return (byte() & 1U) != 0; }

    /// The lowest byte comes first.
    [[nodiscard]] std::uint32_t number() {
        std::uint32_t value = 0;
        for (unsigned shift = 0; shift < 32; shift += 8) {
            value |= std::uint32_t{byte()} << shift;
        }
        return value;
    }

    [[nodiscard]] std::span<const std::byte> bytes(std::size_t count) {
        const auto taken = rest.first(std::min(count, rest.size()));
        rest = rest.subspan(taken.size());
        return std::as_bytes(taken);
    }

    [[nodiscard]] std::span<const std::byte> remaining() { return bytes(rest.size()); }

    /// Up to the next newline, which is left out.
    [[nodiscard]] std::string line() {
        const auto end = std::find(rest.begin(), rest.end(), std::uint8_t{'\n'});
        std::string text(rest.begin(), end);
        rest = rest.subspan(std::min(rest.size(), text.size() + 1));
        return text;
    }

    [[nodiscard]] std::string remainingText() {
        std::string text(rest.begin(), rest.end());
        rest = {};
        return text;
    }

  private:
    std::span<const std::uint8_t> rest;
};

} // namespace veltrin::fuzz
