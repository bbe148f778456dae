#include "printer/StatusRecords.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;

struct DueCase {
    std::optional<PrinterTime> last;
    bool changed;
    PrinterTime interval;
    PrinterTime due;
};

TEST(StatusRecords, AreDueOnChangeAndAtARate) {
    for (const DueCase &test : {DueCase{std::nullopt, false, 1s, 10s}, DueCase{std::nullopt, true, 1s, 10s},
                                DueCase{9s, false, 1s, 10s}, DueCase{9s, false, 5s, 14s},
                                DueCase{9s, true, 5s, 9100ms}, DueCase{9s, false, 0s, 9100ms}}) {
        EXPECT_EQ(recordDue(test.last, test.changed, test.interval, 10s), test.due);
    }
}

std::string bytesOf(const std::vector<RecordRule> &rules, std::uint64_t number) {
    ReverseRecord record{};
    record.dwFlag = reverseRecordTag;
    record.bPrinterStatus = 33;
    const std::vector<std::byte> bytes = recordBytes(rules, number, record);
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

TEST(StatusRecords, AreWholeUnlessARuleSaysOtherwise) {
    const std::string whole = bytesOf({}, 1);
    EXPECT_EQ(whole.size(), 64U);
    EXPECT_TRUE(whole.starts_with("GDIR"));
    EXPECT_EQ(whole[36], 33);

    const std::vector<RecordRule> rules = {{2, 2, RecordFault::missing},
                                           {3, 3, RecordFault::half},
                                           {4, 5, RecordFault::garbage},
                                           {5, 6, RecordFault::wrongTag}};
    EXPECT_EQ(bytesOf(rules, 1), whole);
    EXPECT_EQ(bytesOf(rules, 2), "");
    EXPECT_EQ(bytesOf(rules, 3), whole.substr(0, 32));
    const std::string garbled = bytesOf(rules, 4);
    EXPECT_TRUE(garbled.ends_with(whole));
    EXPECT_GT(garbled.size(), 64U);
    EXPECT_EQ(bytesOf(rules, 5), garbled) << "the first rule that fits";
    EXPECT_EQ(bytesOf(rules, 6), "RIDG" + whole.substr(4));
    EXPECT_EQ(bytesOf(rules, 7), whole);
}

} // namespace
} // namespace veltrin::printer
