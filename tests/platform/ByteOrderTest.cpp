#include "platform/ByteOrder.h"

#include <gtest/gtest.h>

#include <cstring>

namespace veltrin {
namespace {

template <typename Wire>
std::string bytesOf(const Wire &wire) {
    std::string bytes(sizeof wire, '\0');
    std::memcpy(bytes.data(), &wire, sizeof wire);
    return bytes;
}

TEST(WireInteger, BigEndianPutsTheMostSignificantByteFirst) {
    EXPECT_EQ(bytesOf(BigEndian16(0x0102)), "\x01\x02");
    EXPECT_EQ(bytesOf(BigEndian32(0x01020304)), "\x01\x02\x03\x04");
}

TEST(WireInteger, LittleEndianPutsTheLeastSignificantByteFirst) {
    EXPECT_EQ(bytesOf(LittleEndian16(0x0102)), "\x02\x01");
    EXPECT_EQ(bytesOf(LittleEndian32(0x01020304)), "\x04\x03\x02\x01");
}

TEST(WireInteger, ReadsBackEveryBitItWasGiven) {
    for (unsigned bit = 0; bit < 32; ++bit) {
        const std::uint32_t value = std::uint32_t{1} << bit;
        EXPECT_EQ(BigEndian32(value).value(), value);
        EXPECT_EQ(LittleEndian32(value).value(), value);
    }
    EXPECT_EQ(BigEndian32(0xFFFFFFFFU).value(), 0xFFFFFFFFU);
    EXPECT_EQ(BigEndian16(0xFFFFU).value(), 0xFFFFU);
}

} // namespace
} // namespace veltrin
