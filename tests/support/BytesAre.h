#pragma once

#include <gmock/gmock.h>

#include <ostream>
#include <string>
#include <utility>

namespace veltrin::test {

/// The bytes of a stream for a comparison: a failing test tells how many there are, and does not show them
/// all.
struct Bytes {
    explicit Bytes(std::string bytes) : text(std::move(bytes)) {}

    std::string text;
};

void PrintTo(const Bytes &bytes, std::ostream *out);

/// Matches `Bytes` that are the expected ones. If they are not, it says where they first differ and shows a
/// few bytes around that place.
[[nodiscard]] testing::Matcher<const Bytes &> BytesAre(std::string expected);

} // namespace veltrin::test
