#include "driver/PriorityTray.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace veltrin {
namespace {

TEST(PriorityTray, IsReadFromTheLastTwoCharactersOfANameInAtAndParenthesis) {
    struct Case {
        std::string jobName;
        std::optional<std::uint32_t> tray;
    };

    const std::vector<Case> cases = {
        {"@(3)", 3},
        {"@letters (1)", 1},
        {"@letters 2)", 2},
        {"@(12)", 2},
        {"@(0)", 0},
        {"@()", 0},
        {"@)", 0},
        {"@x)", 0},
        {"@ )", 0},
        {"@-)", 0},
        {"@(9)", 9},
        {"@\xc3\xa9)", 0},
        {"", std::nullopt},
        {"@", std::nullopt},
        {")", std::nullopt},
        {"3)", std::nullopt},
        {"(3)", std::nullopt},
        {" @(3)", std::nullopt},
        {"@(3) ", std::nullopt},
        {"@(3", std::nullopt},
        {"letters @(3)", std::nullopt},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(priorityTrayNamedBy(one.jobName), one.tray) << '"' << one.jobName << '"';
    }
}

} // namespace
} // namespace veltrin
