#include "printer/ListenAddress.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace veltrin::printer {
namespace {

TEST(ListenAddress, IsThisMachinesAloneUnlessSomethingElseIsSaid) {
    EXPECT_EQ(parseListenAddress("9100"), (ListenAddress{"127.0.0.1", 9100}));
    EXPECT_EQ(parseListenAddress("0"), (ListenAddress{"127.0.0.1", 0}));
}

TEST(ListenAddress, IsReadAndWrittenAlike) {
    for (const auto &[text, address] : std::vector<std::pair<std::string, ListenAddress>>{
             {"0.0.0.0:9100", {"0.0.0.0", 9100}},
             {"192.0.2.7:65535", {"192.0.2.7", 65535}},
             {"localhost:1", {"localhost", 1}},
             {"[::1]:9100", {"::1", 9100}},
             {"[::]:0", {"::", 0}},
             {"[fe80::1%eth0]:9100", {"fe80::1%eth0", 9100}}}) {
        EXPECT_EQ(parseListenAddress(text), address) << text;
        EXPECT_EQ(textOf(address), text);
    }
}

TEST(ListenAddress, IsNothingElse) {
    for (const char *text :
         {"", "port", "65536", "-1", ":9100", "127.0.0.1:", "127.0.0.1", "::1:9100", "::1", "[::1]",
          "[]:9100", "[127.0.0.1]:9100", "[::1:9100", "::1]:9100", "a b:x", "[[::1]]:9100", "9100 "}) {
        EXPECT_EQ(parseListenAddress(text), std::nullopt) << text;
    }
}

} // namespace
} // namespace veltrin::printer
