#include "platform/linux/NotificationPath.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

TEST(NotificationPathTest, HashesAsFnv1aDoes) {
    // From the hash's own published test vectors.
    const std::vector<std::pair<std::string_view, std::uint64_t>> table = {
        {"", 0xcbf29ce484222325U},
        {"a", 0xaf63dc4c8601ec8cU},
        {"b", 0xaf63df4c8601f1a5U},
        {"foobar", 0x85944171f73967e8U},
        {std::string_view("\0", 1), 0xaf63bd4c8601b7dfU},
        {"\xff", 0xaf64724c8602eb6eU},
    };
    for (const auto &[text, hash] : table) {
        EXPECT_EQ(fnv1a(text), hash) << text;
    }
}

TEST(NotificationPathTest, WritesTheHashAsSixteenLowerCaseDigits) {
    EXPECT_EQ(notificationPath("foobar"), "/org/veltrin/Notifications/n85944171f73967e8");
    // A hash that begins with zeros keeps them.
    EXPECT_EQ(notificationPath("77kepQFQ8Kl"), "/org/veltrin/Notifications/n0000000000000000");
}

} // namespace
} // namespace veltrin::platform
