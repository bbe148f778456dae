#include "backend/StateKeywords.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>
#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

ReverseRecord withStatus(std::uint8_t status, std::uint8_t subStatus1 = 0, std::uint8_t subStatus2 = 0) {
    ReverseRecord record{};
    record.bPrinterStatus = status;
    record.bSubStatus1 = subStatus1;
    record.bSubStatus2 = subStatus2;
    return record;
}

TEST(StateKeywordsTest, SayWhatTheStatusSays) {
    struct Case {
        std::uint8_t status;
        std::vector<std::uint8_t> subStatuses;
        Keywords keywords;
    };

    const std::vector<Case> table = {
        {0, {0, 1}, {}},
        {2, {0, 1, 2}, {}},
        {3, {0}, {}},
        {4, {0}, {}},
        {5, {0}, {}},
        {17, {0, 1, 2, 3}, {"media-needed-error"}},
        {18, {0}, {"media-needed-error"}},
        {19, {0, 1, 2, 3}, {"media-needed-error"}},
        {21, {0}, {}},
        {22, {0}, {"input-tray-missing-error"}},
        {26, {0, 1, 2, 3}, {"media-needed-error"}},
        {27, {0}, {"media-jam-error"}},
        {29, {1, 2}, {"media-needed-error"}},
        {29, {0, 3}, {}},
        {30, {1, 2, 3, 4}, {"toner-empty-error"}},
        {30, {0, 5, 7}, {}},
        {30, {6}, {"subunit-life-over-error"}},
        {31, {1, 2, 3, 4}, {"toner-low-warning"}},
        {31, {5, 6}, {"subunit-life-almost-over-warning"}},
        {31, {7}, {"marker-waste-almost-full-warning"}},
        {33, {0, 1}, {"cover-open-error"}},
        {34, {0, 1, 2, 3, 4, 5, 6}, {"media-jam-error"}},
        {35, {0, 1, 2, 3, 4}, {"media-empty-error"}},
        {37, {1, 4}, {"media-needed-error"}},
        {38, {1, 4}, {"media-needed-error"}},
        {39, {1, 2, 3, 4}, {"marker-supply-missing-error"}},
        {39, {5}, {"marker-waste-missing-error"}},
        {39, {6, 7}, {"subunit-missing-error"}},
        {40, {0}, {"other-error"}},
        {41, {0}, {"other-error"}},
        {42, {1}, {"marker-waste-full-error"}},
        {42, {2}, {"subunit-life-over-error"}},
        {42, {3, 4, 5, 6}, {"toner-empty-error"}},
        {43, {0}, {"input-tray-missing-error"}},
        {49, {0, 4}, {"other-error"}},
        {53, {0}, {"other-error"}},
        {54, {1, 2}, {"other-error"}},
        {55, {0}, {"other-error"}},
        {56, {0}, {"other-error"}},
        {200, {0}, {}},
        {255, {0}, {"offline-error"}},
    };
    for (const auto &[status, subStatuses, keywords] : table) {
        for (const std::uint8_t subStatus : subStatuses) {
            EXPECT_EQ(stateKeywords(withStatus(status, subStatus, 1)), keywords)
                << int{status} << "/" << int{subStatus};
        }
    }
}

TEST(StateKeywordsTest, SayWhatTheRecordWarnsOfBeside) {
    ReverseRecord record = withStatus(33);
    record.warningBits = 0x04;
    EXPECT_THAT(stateKeywords(record), ElementsAre("cover-open-error", "marker-waste-almost-full-warning"));
    record = withStatus(31, 5);
    record.warningBits = 0x48; // transfer belt and fuser
    EXPECT_THAT(stateKeywords(record), ElementsAre("subunit-life-almost-over-warning")) << "each once";
    record = withStatus(0);
    record.warningBits = 0xB3; // those that are nobody's business
    EXPECT_THAT(stateKeywords(record), IsEmpty());
}

TEST(StateKeywordsTest, AreEachInTheListOfAllOnceAndInIppsForm) {
    const Keywords all = allStateKeywords();
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(std::adjacent_find(all.begin(), all.end()), all.end());
    EXPECT_EQ(all.size(), 16U);
    for (const std::string_view keyword : all) {
        EXPECT_TRUE(std::regex_match(std::string(keyword), std::regex("[a-z]+(-[a-z]+)*-(error|warning)")))
            << keyword;
    }
    for (int status = 0; status <= 255; ++status) {
        for (std::uint8_t subStatus = 0; subStatus < 10; ++subStatus) {
            for (const std::string_view keyword :
                 stateKeywords(withStatus(static_cast<std::uint8_t>(status), subStatus))) {
                EXPECT_TRUE(std::binary_search(all.begin(), all.end(), keyword)) << keyword;
            }
        }
    }
}

TEST(StateLinesTest, TellWhatChanges) {
    EXPECT_THAT(stateLines(Keywords{}, {"a", "b"}), ElementsAre("STATE: +a,b"));
    EXPECT_THAT(stateLines(Keywords{"a", "b"}, {"b", "c"}), ElementsAre("STATE: +c", "STATE: -a"));
    EXPECT_THAT(stateLines(Keywords{"a", "b"}, {}), ElementsAre("STATE: -a,b"));
    EXPECT_THAT(stateLines(Keywords{"a"}, {"a"}), IsEmpty());
    EXPECT_THAT(stateLines(Keywords{}, {}), IsEmpty());
}

TEST(StateLinesTest, TakeAwayWhatAnEarlierJobHasLeft) {
    const Keywords all = allStateKeywords();
    const std::vector<std::string> lines = stateLines(std::nullopt, {"cover-open-error"});
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "STATE: +cover-open-error");
    EXPECT_EQ(lines[1].find("cover-open"), std::string::npos);
    for (const std::string_view keyword : all) {
        if (keyword != "cover-open-error") {
            EXPECT_NE(lines[1].find(keyword), std::string::npos) << keyword;
        }
    }
    EXPECT_TRUE(
        lines[1].starts_with("STATE: -" + std::string(all[0] == "cover-open-error" ? all[1] : all[0])));
    EXPECT_EQ(stateLines(std::nullopt, {}).size(), 1U);
}

} // namespace
} // namespace veltrin::backend
