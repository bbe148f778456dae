#include "platform/Counted.h"

#include <gtest/gtest.h>

namespace veltrin {
namespace {

TEST(Counted, IsOneThingOrMany) {
    EXPECT_EQ(counted(0, "copy", "copies"), "0 copies");
    EXPECT_EQ(counted(1, "copy", "copies"), "1 copy");
    EXPECT_EQ(counted(2, "copy", "copies"), "2 copies");
    EXPECT_EQ(counted(UINT64_MAX, "byte was", "bytes were"), "18446744073709551615 bytes were");
}

} // namespace
} // namespace veltrin
