#pragma once

#include <gtest/gtest.h>

#include <cctype>
#include <string>
#include <string_view>

namespace veltrin::test {

/// A case's name as a test's name takes it: "short edge, odd" becomes "short_edge_odd".
[[nodiscard]] inline std::string caseName(std::string_view name) {
    std::string result;
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            result += c;
        } else if (!result.ends_with('_')) {
            result += '_';
        }
    }
    return result;
}

/// Names each case of INSTANTIATE_TEST_SUITE_P by its member `name`.
template <typename Case>
[[nodiscard]] std::string nameOfCase(const testing::TestParamInfo<Case> &test) {
    return caseName(test.param.name);
}

} // namespace veltrin::test
