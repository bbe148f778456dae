#include "tests/support/PrivateTmp.h"

#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace veltrin::test {
namespace {

TEST(PrivateFolders, ShowTheMachinesOwnUnderOneNameOnly) {
    EXPECT_THAT(namesIn("/run"), testing::ElementsAre(".outer"));
    EXPECT_THAT(namesIn("/tmp"), testing::Contains(".outer"));
    EXPECT_EQ(hostPath("/tmp/build/file"), "/tmp/.outer/build/file");
    EXPECT_EQ(hostPath("/run/build/file"), "/run/.outer/build/file");
    EXPECT_EQ(hostPath("/tmpfile"), "/tmpfile");
    EXPECT_EQ(hostPath("/home/build/tmp/file"), "/home/build/tmp/file");
}

} // namespace
} // namespace veltrin::test
