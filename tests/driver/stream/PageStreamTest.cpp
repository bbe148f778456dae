#include "driver/stream/PageStream.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

StreamHeader headerFrom(const std::string &bytes) {
    StreamHeader header;
    std::memcpy(header.data(), bytes.data(), bytes.size());
    return header;
}

TEST(PageStream, HeaderSizeIsSetByTheTagAlone) {
    EXPECT_EQ(headerSizeOf(headerFrom("GDIJ").tag()), 120U);
    EXPECT_EQ(headerSizeOf(headerFrom("GJET").tag()), 152U);
    EXPECT_EQ(headerSizeOf(headerFrom("GDIP").tag()), 64U);
    EXPECT_EQ(headerSizeOf(headerFrom("GDIB").tag()), 32U);
    EXPECT_EQ(headerSizeOf(headerFrom("JIDG").tag()), 4U);
    for (const char *unknown : {"PIDG", "BIDG", "TEJG", "gdij", "GDIR", "GDIC"}) {
        EXPECT_EQ(headerSizeOf(headerFrom(unknown).tag()), std::nullopt) << unknown;
    }
}

TEST(PageStream, TagIsLoadedInLittleEndianOrder) {
    EXPECT_EQ(static_cast<std::uint32_t>(headerFrom("GDIJ").tag()), 0x4A494447U);
    EXPECT_EQ(headerFrom("GDIJ").tag(), fileHeaderTag);
}

TEST(PageStream, NumbersAreBigEndian) {
    StreamHeader stored;
    PageHeader page{};
    page.MagicNumber = pageHeaderTag;
    page.wPageNumber = 0x0102;
    page.dwKSize = 0x03040506;
    stored.store(page);
    const std::string bytes(reinterpret_cast<const char *>(stored.data()), sizeof page);
    EXPECT_EQ(bytes.substr(0, 4), "GDIP");
    EXPECT_EQ(bytes.substr(34, 2), "\x01\x02");
    EXPECT_EQ(bytes.substr(36, 4), "\x03\x04\x05\x06");
}

TEST(PageStream, LastBandIsBitOneOfTheByteAtOffsetSeven) {
    for (unsigned offset = 4; offset < 8; ++offset) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            std::string bytes = "GDIB" + std::string(28, '\0');
            bytes[offset] = static_cast<char>(1U << bit);
            EXPECT_EQ(headerFrom(bytes).as<BandHeader>().isLastOfPage(), offset == 7 && bit == 1)
                << offset << ' ' << bit;
        }
    }
}

TEST(PageStream, DataSizeIsTheSumOfThePlanesInThirtyTwoBits) {
    struct Case {
        std::uint32_t k, y, m, c;
        std::int32_t size;
    };

    const std::vector<Case> cases = {
        {0, 0, 0, 0, 0},
        {1, 20, 300, 4000, 4321},
        {0x7FFFFFFF, 0, 0, 0, 0x7FFFFFFF},
        {0x7FFFFFFF, 1, 0, 0, -0x7FFFFFFF - 1},
        {0, 0, 0, 0xFFFFFFFF, -1},
        {0xFFFFFFFF, 1, 0, 0, 0},
        {0x80000000, 0x80000000, 5, 0, 5},
    };
    for (const Case &one : cases) {
        BandHeader band{};
        band.dwKSize = one.k;
        band.dwYSize = one.y;
        band.dwMSize = one.m;
        band.dwCSize = one.c;
        EXPECT_EQ(band.dataSize(), one.size);
    }
}

} // namespace
} // namespace veltrin
