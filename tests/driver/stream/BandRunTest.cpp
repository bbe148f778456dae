#include "driver/stream/BandRun.h"

#include "driver/stream/PageStream.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace veltrin {
namespace {

std::string band(std::uint32_t size, bool last = false, Tag tag = bandHeaderTag) {
    BandHeader header{};
    header.MagicNumber = tag;
    header.dwBandSetting = last ? 2 : 0;
    header.dwYSize = size;
    std::string bytes(sizeof header, '\0');
    std::memcpy(bytes.data(), &header, sizeof header);
    return bytes + std::string(size < 100000 ? size : 0, 'd');
}

BandRun runOf(const std::string &stream) {
    return bandRunOf(std::as_bytes(std::span(stream)));
}

TEST(BandRun, HoldsTheWholeBandsUpToTheEndOfThePage) {
    EXPECT_EQ(runOf(band(10) + band(0) + band(5, true) + band(7)), (BandRun{111, 3, true}));
}

TEST(BandRun, EndsBeforeABandThatIsNotThereWhole) {
    const std::string whole = band(10) + band(20);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const BandRun expected = length == whole.size() ? BandRun{whole.size(), 2, false}
                                 : length >= 42         ? BandRun{42, 1, false}
                                                        : BandRun{};
        EXPECT_EQ(runOf(whole.substr(0, length)), expected) << length;
    }
}

TEST(BandRun, EndsBeforeAnythingElse) {
    const BandRun one = {42, 1, false};
    for (const Tag tag : {fileHeaderTag, fileHeaderExTag, pageHeaderTag, endOfJobTag, tagOf("BIDG")}) {
        EXPECT_EQ(runOf(band(10) + band(0, true, tag)), one);
        EXPECT_EQ(runOf(band(0, true, tag)), BandRun());
    }
    EXPECT_EQ(runOf(band(10) + band(0x80000000, true) + std::string(1000, 'x')), one);
    EXPECT_EQ(runOf(band(10) + band(0x7FFFFFFF, true) + std::string(1000, 'x')), one);
    EXPECT_EQ(runOf(""), BandRun());
}

TEST(BandRun, TellsTheBandOfEveryByte) {
    const std::string stream = band(10) + band(0) + band(5, true) + "PIDG";
    for (std::size_t offset = 0; offset < 111; ++offset) {
        const BandExtent found = bandAround(std::as_bytes(std::span(stream)), offset);
        const BandExtent expected = offset < 42   ? BandExtent{32, 42}
                                    : offset < 74 ? BandExtent{74, 74}
                                                  : BandExtent{106, 111};
        EXPECT_EQ(found.headerEnd, expected.headerEnd) << offset;
        EXPECT_EQ(found.dataEnd, expected.dataEnd) << offset;
    }
}

} // namespace
} // namespace veltrin
