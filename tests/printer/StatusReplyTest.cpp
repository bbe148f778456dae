#include "printer/StatusReply.h"

#include "platform/ByteOrder.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

namespace veltrin::printer {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t always = UINT64_MAX;

ReverseRecord someRecord() {
    ReverseRecord record{};
    record.dwFlag = reverseRecordTag;
    record.BrandID = 77;
    return record;
}

std::vector<std::byte> bytesOf(const ReverseRecord &record) {
    std::vector<std::byte> bytes(sizeof record);
    std::memcpy(bytes.data(), &record, sizeof record);
    return bytes;
}

TEST(StatusReply, IsTheRecord) {
    const auto reply = statusReply({}, 1, someRecord());
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->object, "readPipe");
    EXPECT_EQ(reply->data, bytesOf(someRecord()));
    EXPECT_EQ(reply->delay, 0s);
}

TEST(StatusReply, CanHaveEveryFault) {
    const std::vector<std::byte> whole = bytesOf(someRecord());
    const auto with = [](ReplyFault fault) { return statusReply({{1, always, fault, 3s}}, 5, someRecord()); };

    EXPECT_FALSE(with(ReplyFault::missing));
    EXPECT_EQ(with(ReplyFault::late)->delay, 3s);
    EXPECT_EQ(with(ReplyFault::late)->data, whole);
    EXPECT_EQ(with(ReplyFault::empty)->data, std::vector<std::byte>());
    EXPECT_EQ(with(ReplyFault::noData)->data, std::nullopt);
    EXPECT_EQ(with(ReplyFault::tooShort)->data, std::vector(whole.begin(), whole.end() - 1));
    std::vector<std::byte> longer = whole;
    longer.push_back(std::byte{0});
    EXPECT_EQ(with(ReplyFault::tooLong)->data, longer);
    EXPECT_EQ(with(ReplyFault::wrongObject)->object, "writePipe");
    EXPECT_EQ(with(ReplyFault::wrongObject)->data, whole);
    const std::vector<std::byte> wrongTag = with(ReplyFault::wrongTag)->data.value();
    ASSERT_EQ(wrongTag.size(), 64U);
    EXPECT_EQ(std::memcmp(wrongTag.data(), "RIDG", 4), 0);
    EXPECT_TRUE(std::equal(wrongTag.begin() + 4, wrongTag.end(), whole.begin() + 4));
}

TEST(StatusReply, HasTheFaultOfTheFirstRuleThatFits) {
    const std::vector<ReplyRule> rules = {{2, 3, ReplyFault::empty, {}},
                                          {3, always, ReplyFault::missing, {}}};
    EXPECT_EQ(statusReply(rules, 1, someRecord())->data->size(), 64U);
    EXPECT_EQ(statusReply(rules, 2, someRecord())->data->size(), 0U);
    EXPECT_EQ(statusReply(rules, 3, someRecord())->data->size(), 0U);
    EXPECT_FALSE(statusReply(rules, 4, someRecord()));
}

} // namespace
} // namespace veltrin::printer
