#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace veltrin::fuzz {

/// Writes values as they stand in a message of D-Bus, the lowest byte first.
class Wire {
  public:
    void align(std::size_t boundary) {
        text.resize((text.size() + boundary - 1) / boundary * boundary, '\0');
    }

    void byte(unsigned value) { text += static_cast<char>(value); }

    void number(std::uint32_t value) {
        align(4);
        for (unsigned shift = 0; shift < 32; shift += 8) {
            byte(value >> shift & 0xFFU);
        }
    }

    void string(std::string_view value) {
        number(static_cast<std::uint32_t>(value.size()));
        text += value;
        byte(0);
    }

    void signature(std::string_view value) {
        byte(static_cast<unsigned>(value.size()));
        text += value;
        byte(0);
    }

    void append(std::string_view value) { text += value; }

    [[nodiscard]] const std::string &bytes() const { return text; }

    [[nodiscard]] std::size_t size() const { return text.size(); }

  private:
    std::string text;
};

} // namespace veltrin::fuzz
