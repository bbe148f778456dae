#include "backend/TonerLevels.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace veltrin::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ReverseRecord withLevels(std::uint8_t black, std::uint8_t cyan, std::uint8_t magenta, std::uint8_t yellow) {
    ReverseRecord record{};
    record.TonerKStatus = black;
    record.TonerCStatus = cyan;
    record.TonerMStatus = magenta;
    record.TonerYStatus = yellow;
    return record;
}

TEST(TonerLinesTest, NameTheTonersWithTheFirstRecord) {
    EXPECT_THAT(
        tonerLines(std::nullopt, withLevels(100, 75, 3, 0)),
        ElementsAre("ATTR: marker-colors=#000000,#00FFFF,#FF00FF,#FFFF00",
                    R"(ATTR: marker-names="'Black toner','Cyan toner','Magenta toner','Yellow toner'")",
                    "ATTR: marker-types=toner,toner,toner,toner", "ATTR: marker-low-levels=10,10,10,10",
                    "ATTR: marker-high-levels=100,100,100,100", "ATTR: marker-levels=100,75,3,0"));
}

TEST(TonerLinesTest, TellOnlyWhatDiffersLater) {
    const ReverseRecord first = withLevels(100, 75, 3, 0);
    ReverseRecord second = first;
    second.bPrinterStatus = 33;
    EXPECT_THAT(tonerLines(first, second), IsEmpty());
    EXPECT_THAT(tonerLines(first, withLevels(99, 75, 3, 0)), ElementsAre("ATTR: marker-levels=99,75,3,0"));
}

TEST(TonerLinesTest, DoNotMakeUpALevel) {
    EXPECT_THAT(tonerLines(withLevels(0, 0, 0, 0), withLevels(101, 255, 100, 1)),
                ElementsAre("ATTR: marker-levels=-1,-1,100,1"));
}

} // namespace
} // namespace veltrin::backend
