#include "backend/ProgramSafety.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

TEST(ProgramSafetyTest, RootStartsWhatRootAloneCanChange) {
    struct Case {
        std::string name;
        FileRights rights;
        bool isSafe;
    };

    const std::vector<Case> table = {
        {"a program", {.owner = 0, .mode = 0100755}, true},
        {"one of root's", {.owner = 0, .mode = 0100700}, true},
        {"one that only root may execute", {.owner = 0, .mode = 0100744}, true},
        {"set-group-ID", {.owner = 0, .mode = 0102755}, true},
        {"a folder", {.owner = 0, .mode = 0040755}, true},
        {"the group may write", {.owner = 0, .mode = 0100775}, false},
        {"all may write", {.owner = 0, .mode = 0100757}, false},
        {"set-user-ID", {.owner = 0, .mode = 0104755}, false},
        {"somebody else's", {.owner = 7, .mode = 0100755}, false},
        {"somebody else's, who alone may execute it", {.owner = 7, .mode = 0100700}, false},
        {"a folder of the group's", {.owner = 0, .mode = 0040775}, false},
        {"a folder for all", {.owner = 0, .mode = 0041777}, false},
        {"a folder of somebody else's", {.owner = 7, .mode = 0040755}, false},
    };
    for (const Case &one : table) {
        EXPECT_EQ(isRootsAlone(one.rights), one.isSafe) << one.name;
    }
}

} // namespace
} // namespace veltrin::backend
