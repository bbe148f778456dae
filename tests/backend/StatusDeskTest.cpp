#include "backend/StatusDesk.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

using namespace std::chrono_literals;

constexpr Time start{1h};

constexpr Time at(std::chrono::milliseconds time) {
    return start + time;
}

constexpr std::optional<Time> never = std::nullopt;

TEST(StatusDeskTest, ARecordAnswersARequestWhenItIsNewEnough) {
    struct Case {
        std::string name;
        std::optional<Time> sent;
        std::optional<Time> record;
        std::chrono::milliseconds now; // the request came at 10 s
        Answer answer;
    };

    const std::vector<Case> table = {
        {"no record yet", at(0s), never, 10'000ms, Answer::later},
        {"no record to the end", at(0s), never, 15'500ms, Answer::later},
        {"no record in time", at(0s), never, 15'501ms, Answer::never},
        {"a record after all was sent", at(9s), at(9'500ms), 10'000ms, Answer::now},
        {"a record just as all was sent", at(9s), at(9s), 10'000ms, Answer::now},
        {"a record before all was sent", at(9'501ms), at(9'500ms), 10'000ms, Answer::later},
        {"one that comes during the wait", at(9s), at(14s), 14'000ms, Answer::now},
        {"what was sent takes a while", at(12s), at(11s), 12'000ms, Answer::later},
        {"and a record follows it", at(12s), at(12s), 12'000ms, Answer::now},
        {"a record of two seconds", at(0s), at(8s), 10'000ms, Answer::now},
        {"an older one", at(0s), at(7'999ms), 10'000ms, Answer::later},
        {"an older one all the time", at(0s), at(7'999ms), 15'501ms, Answer::never},
        {"something is on its way", never, at(11s), 13'999ms, Answer::later},
        {"and does not get there", never, at(11s), 14'000ms, Answer::now},
        {"and nothing is heard either", never, at(9'999ms), 14'000ms, Answer::later},
        {"a record just as it was asked for", never, at(10s), 14'000ms, Answer::now},
        {"too late for any", at(9s), at(15'501ms), 15'501ms, Answer::never},
    };
    for (const Case &one : table) {
        EXPECT_EQ(answerTo({.asked = at(10s), .sent = one.sent, .record = one.record}, at(one.now)),
                  one.answer)
            << one.name;
    }
}

ReverseRecord numbered(std::uint8_t number) {
    ReverseRecord record{};
    record.receivingJobId = number;
    return record;
}

int answerAt(StatusDesk &desk, std::chrono::milliseconds now) {
    const auto answer = desk.takeAnswer(at(now));
    return answer ? answer->receivingJobId : 0;
}

TEST(StatusDeskTest, AnswersEachRequestOnceAndWithTheNewestRecord) {
    StatusDesk desk;
    desk.takeRecord(numbered(1), at(0s));
    EXPECT_EQ(answerAt(desk, 0ms), 0) << "nobody has asked";
    desk.takeRecord(numbered(2), at(1s));
    desk.ask(at(1s));
    EXPECT_EQ(answerAt(desk, 1'000ms), 2);
    EXPECT_EQ(answerAt(desk, 1'000ms), 0);
}

TEST(StatusDeskTest, WaitsForARecordBehindWhatIsSent) {
    StatusDesk desk;
    desk.takeRecord(numbered(1), at(0s));
    desk.noteSending();
    desk.ask(at(1s));
    EXPECT_EQ(answerAt(desk, 1'000ms), 0);
    desk.noteSent(at(1'500ms));
    EXPECT_EQ(answerAt(desk, 1'500ms), 0);
    desk.takeRecord(numbered(2), at(1'600ms));
    EXPECT_EQ(answerAt(desk, 1'600ms), 2);
}

TEST(StatusDeskTest, GivesNothingToThoseWhoHaveGivenUp) {
    StatusDesk desk;
    desk.ask(at(0s));
    EXPECT_EQ(answerAt(desk, 6'000ms), 0);
    desk.takeRecord(numbered(1), at(6'100ms));
    EXPECT_EQ(answerAt(desk, 6'100ms), 0) << "it would be taken for the answer to the next request";
    desk.ask(at(6'200ms));
    desk.forgetRequest();
    EXPECT_EQ(answerAt(desk, 6'200ms), 0);
}

} // namespace
} // namespace veltrin::backend
