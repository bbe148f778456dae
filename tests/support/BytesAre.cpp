#include "tests/support/BytesAre.h"

#include "platform/Counted.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <string_view>

namespace veltrin::test {

namespace {

/// The bytes around a place in hexadecimal, with the one that stands there, or the end, between brackets.
std::string around(std::string_view bytes, std::size_t place) {
    constexpr std::size_t reach = 8;
    const std::size_t first = place - std::min(place, reach);
    const std::size_t last = std::min(place + reach, bytes.size());
    std::string text = first > 0 ? "..." : "";
    for (std::size_t i = first; i < last; ++i) {
        std::array<char, 8> byte{};
        std::snprintf(byte.data(), byte.size(), i == place ? " [%02x]" : " %02x",
                      unsigned{static_cast<unsigned char>(bytes[i])});
        text += byte.data();
    }
    text += place >= bytes.size() ? " [end]" : last < bytes.size() ? " ..." : "";
    return text.starts_with(' ') ? text.substr(1) : text;
}

class BytesMatcher : public testing::MatcherInterface<const Bytes &> {
  public:
    explicit BytesMatcher(std::string bytes) : expected(std::move(bytes)) {}

    bool MatchAndExplain(const Bytes &actual, testing::MatchResultListener *listener) const override {
        const auto [differing, other] =
            std::mismatch(actual.text.begin(), actual.text.end(), expected.begin(), expected.end());
        if (differing == actual.text.end() && other == expected.end()) {
            return true;
        }
        const auto place = static_cast<std::size_t>(std::distance(actual.text.begin(), differing));
        *listener << "which are at offset " << place << "\n            " << around(actual.text, place)
                  << "\n  instead of  " << around(expected, place);
        return false;
    }

    void DescribeTo(std::ostream *out) const override {
        *out << "are the expected " << counted(expected.size(), "byte", "bytes");
    }

    void DescribeNegationTo(std::ostream *out) const override {
        *out << "are not these " << counted(expected.size(), "byte", "bytes");
    }

  private:
    std::string expected;
};

} // namespace

void PrintTo(const Bytes &bytes, std::ostream *out) {
    *out << counted(bytes.text.size(), "byte", "bytes");
}

testing::Matcher<const Bytes &> BytesAre(std::string expected) {
    return testing::Matcher<const Bytes &>(new BytesMatcher(std::move(expected)));
}

} // namespace veltrin::test
