#include "driver/stream/BandRun.h"

#include "driver/stream/PageStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

using Band = BandRun::Band;

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
    const BandRun run = runOf(band(10) + band(0) + band(5, true) + band(7));
    EXPECT_THAT(run.bands, ElementsAre(Band{0, 42}, Band{42, 74}, Band{74, 111}));
    EXPECT_TRUE(run.endsPage);
    EXPECT_EQ(run.size(), 111U);
}

TEST(BandRun, EndsBeforeABandThatIsNotThereWhole) {
    const std::string whole = band(10) + band(20);
    for (std::size_t length = 0; length <= whole.size(); ++length) {
        const BandRun run = runOf(whole.substr(0, length));
        EXPECT_EQ(run.bands.size(), length == whole.size() ? 2U : length >= 42 ? 1U : 0U) << length;
        EXPECT_EQ(run.size(), length == whole.size() ? whole.size() : length >= 42 ? 42U : 0U) << length;
        EXPECT_FALSE(run.endsPage);
    }
}

TEST(BandRun, EndsBeforeAnythingElse) {
    for (const Tag tag : {fileHeaderTag, fileHeaderExTag, pageHeaderTag, endOfJobTag, tagOf("BIDG")}) {
        EXPECT_THAT(runOf(band(10) + band(0, true, tag)).bands, ElementsAre(Band{0, 42}));
        EXPECT_THAT(runOf(band(0, true, tag)).bands, IsEmpty());
    }
    EXPECT_THAT(runOf(band(10) + band(0x80000000, true) + std::string(1000, 'x')).bands,
                ElementsAre(Band{0, 42}));
    EXPECT_THAT(runOf(band(10) + band(0x7FFFFFFF, true) + std::string(1000, 'x')).bands,
                ElementsAre(Band{0, 42}));
    EXPECT_THAT(runOf("").bands, IsEmpty());
}

} // namespace
} // namespace veltrin
