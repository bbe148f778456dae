#include "backend/StatusDesk.h"

#include <gtest/gtest.h>

#include <cstring>
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

TEST(StatusDeskTest, WhoeverAsksBeforeTheDeviceIsConnectedIsToAskAgain) {
    struct Case {
        std::string name;
        StatusRequest request; // which came at 10 s
        std::chrono::milliseconds now;
        Answer answer;
    };

    const std::vector<Case> table = {
        {"at once", {.sent = at(0s), .hasSeenConnecting = true}, 10'000ms, Answer::later},
        {"not yet", {.sent = at(0s), .hasSeenConnecting = true}, 11'999ms, Answer::later},
        {"after two seconds", {.sent = at(0s), .hasSeenConnecting = true}, 12'000ms, Answer::askAgain},
        {"with data on the way", {.hasSeenConnecting = true}, 12'000ms, Answer::askAgain},
        {"with a record of old",
         {.sent = at(0s), .record = at(7s), .hasSeenConnecting = true},
         12'000ms,
         Answer::askAgain},
        {"with a new record",
         {.sent = at(9s), .record = at(11s), .hasSeenConnecting = true},
         12'000ms,
         Answer::now},
        {"to the end", {.sent = at(0s), .hasSeenConnecting = true}, 15'500ms, Answer::askAgain},
        {"too late", {.sent = at(0s), .hasSeenConnecting = true}, 15'501ms, Answer::never},
        {"connected", {.sent = at(0s)}, 12'000ms, Answer::later},
        {"in a hurry", {.sent = at(0s), .isUrgent = true}, 10'000ms, Answer::askAgain},
        {"in a hurry, with a record",
         {.sent = at(9s), .record = at(9s), .isUrgent = true},
         10'000ms,
         Answer::now},
        {"in a hurry, too late", {.sent = at(0s), .isUrgent = true}, 15'501ms, Answer::never},
    };
    for (Case one : table) {
        one.request.asked = at(10s);
        EXPECT_EQ(answerTo(one.request, at(one.now)), one.answer) << one.name;
    }
}

ReverseRecord numbered(std::uint8_t number) {
    ReverseRecord record{};
    record.receivingJobId = number;
    return record;
}

constexpr int askAgain = -1;

/// The number of the record that is the answer, 0 where there is none.
int answerAt(StatusDesk &desk, std::chrono::milliseconds now) {
    const auto answer = desk.takeAnswer(at(now));
    if (!answer) {
        return 0;
    }
    EXPECT_FALSE(answer->empty()) << "a filter takes that for no answer";
    ReverseRecord record{};
    if (answer->size() != sizeof record) {
        return askAgain;
    }
    std::memcpy(&record, answer->data(), sizeof record);
    return record.receivingJobId;
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

TEST(StatusDeskTest, KeepsThoseWhoAskPatientUntilTheDeviceIsConnected) {
    StatusDesk desk;
    desk.ask(at(0s));
    desk.setConnecting(true);
    desk.setConnecting(false);
    EXPECT_EQ(answerAt(desk, 1'999ms), 0);
    EXPECT_EQ(answerAt(desk, 2'000ms), askAgain) << "it has waited for the connection all the same";
    EXPECT_EQ(answerAt(desk, 2'000ms), 0);
    desk.ask(at(2s));
    EXPECT_EQ(answerAt(desk, 6'000ms), 0) << "connected, and silent";
    desk.setConnecting(true);
    desk.ask(at(10s));
    desk.setConnecting(false);
    EXPECT_EQ(answerAt(desk, 12'000ms), askAgain);
}

TEST(StatusDeskTest, HurriesForOneRequestAndNoMore) {
    for (const bool hasAskedBefore : {false, true}) {
        StatusDesk desk;
        if (hasAskedBefore) {
            desk.ask(at(0s));
        }
        desk.hurry();
        if (!hasAskedBefore) {
            desk.ask(at(0s));
        }
        EXPECT_EQ(answerAt(desk, 1ms), askAgain);
        desk.ask(at(1s));
        EXPECT_EQ(answerAt(desk, 5'000ms), 0);
    }
}

} // namespace
} // namespace veltrin::backend
