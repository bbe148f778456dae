#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <cstdint>

namespace veltrin {

/// Where the most significant byte of a number stands on the wire.
enum class ByteOrder { bigEndian, littleEndian };

/// An unsigned number as a fixed sequence of bytes, the same on every host.
///
/// Wire structures are made of these (and of plain bytes): they need no alignment, leave no gaps, and can be
/// copied to and from a buffer with memcpy.
template <std::unsigned_integral Integer, ByteOrder order>
class WireInteger {
  public:
    constexpr WireInteger() = default;

    // Implicit on purpose: a wire field is assigned and read like the number it holds.
    constexpr WireInteger(Integer value) { *this = value; }

    constexpr WireInteger &operator=(Integer value) {
        for (std::size_t i = 0; i < sizeof(Integer); ++i) {
            bytes[position(i)] = static_cast<std::uint8_t>(value >> (8 * i));
        }
        return *this;
    }

    constexpr operator Integer() const { return value(); }

    [[nodiscard]] constexpr Integer value() const {
        Integer result = 0;
        for (std::size_t i = 0; i < sizeof(Integer); ++i) {
            result =
                static_cast<Integer>(result | static_cast<Integer>(Integer{bytes[position(i)]} << (8 * i)));
        }
        return result;
    }

  private:
    /// Where the byte of significance `i` (0 the least) stands.
    [[nodiscard]] static constexpr std::size_t position(std::size_t i) {
        return order == ByteOrder::littleEndian ? i : sizeof(Integer) - 1 - i;
    }

    std::array<std::uint8_t, sizeof(Integer)> bytes{};
};

using BigEndian16 = WireInteger<std::uint16_t, ByteOrder::bigEndian>;
using BigEndian32 = WireInteger<std::uint32_t, ByteOrder::bigEndian>;
using LittleEndian16 = WireInteger<std::uint16_t, ByteOrder::littleEndian>;
using LittleEndian32 = WireInteger<std::uint32_t, ByteOrder::littleEndian>;

static_assert(sizeof(BigEndian16) == 2 && alignof(BigEndian16) == 1);
static_assert(sizeof(LittleEndian32) == 4 && alignof(LittleEndian32) == 1);

} // namespace veltrin
