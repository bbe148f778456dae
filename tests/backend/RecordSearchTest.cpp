#include "backend/RecordSearch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

/// A record that is known by its number.
std::string record(std::uint8_t number) {
    std::string bytes(sizeof(ReverseRecord), '\0');
    bytes.replace(0, 4, "GDIR");
    bytes.at(10) = static_cast<char>(number); // the job that the printer receives
    bytes.at(63) = static_cast<char>(number);
    return bytes;
}

std::optional<ReverseRecord> take(RecordSearch &search, const std::string &bytes) {
    return search.take(std::as_bytes(std::span(bytes)));
}

/// The numbers of the records that are found, 0 where none is, one for each piece.
std::vector<int> numbersIn(const std::vector<std::string> &pieces) {
    RecordSearch search;
    std::vector<int> numbers;
    for (const std::string &piece : pieces) {
        const auto found = take(search, piece);
        EXPECT_TRUE(!found || found->receivingJobId == found->BrandID);
        numbers.push_back(found ? found->receivingJobId : 0);
    }
    return numbers;
}

TEST(RecordSearchTest, FindsTheNewestWholeRecord) {
    const std::string half = record(9).substr(0, 32);

    struct Case {
        std::string name;
        std::vector<std::string> pieces;
        std::vector<int> numbers;
    };

    const std::vector<Case> table = {
        {"nothing", {""}, {0}},
        {"a record", {record(1)}, {1}},
        {"several at once", {record(1) + record(2) + record(3)}, {3}},
        {"one after the other", {record(1), record(2)}, {1, 2}},
        {"one and a half", {record(1) + record(2).substr(0, 40), record(2).substr(40)}, {1, 2}},
        {"garbage before", {"garbage" + record(1)}, {1}},
        {"garbage between", {record(1) + "garbage", "and more" + record(2)}, {1, 2}},
        {"the beginnings of tags", {"GGDGDI" + record(1)}, {1}},
        {"a tag in two pieces behind garbage", {"garbageGD", record(1).substr(2)}, {0, 1}},
        {"a false beginning", {"garbageGD", record(1)}, {0, 1}},
        {"half a record, then a whole one", {half + record(1)}, {1}},
        {"the same in pieces", {half, record(1).substr(0, 32), record(1).substr(32)}, {0, 0, 1}},
        {"halves, then a whole one", {half + half + half, record(1)}, {0, 1}},
        {"one cut three bytes early", {record(9).substr(0, 61) + record(1)}, {1}},
        {"one cut two bytes early", {record(9).substr(0, 62) + record(1)}, {1}},
        {"one cut a byte early", {record(9).substr(0, 63) + record(1)}, {1}},
        {"that with another behind", {record(9).substr(0, 63) + record(1) + record(2), record(3)}, {2, 3}},
        {"one that ends as a tag begins", {record('G') + record(1), record('G'), record(2)}, {1, 'G', 2}},
        {"garbage alone", {std::string(10'000, 'G'), std::string(10'000, '\0')}, {0, 0}},
        {"a lone tag", {"GDIR"}, {0}},
    };
    for (const Case &one : table) {
        EXPECT_EQ(numbersIn(one.pieces), one.numbers) << one.name;
    }
}

TEST(RecordSearchTest, FindsRecordsThatComeInPiecesOfAnySize) {
    const std::string stream = "xx" + record(1) + record(2) + "GDGDI" + record(3);
    for (std::size_t size = 1; size <= stream.size(); ++size) {
        std::vector<std::string> pieces;
        for (std::size_t at = 0; at < stream.size(); at += size) {
            pieces.push_back(stream.substr(at, size));
        }
        std::vector<int> found = numbersIn(pieces);
        std::erase(found, 0);
        EXPECT_EQ(found.back(), 3) << size;
        EXPECT_TRUE(std::is_sorted(found.begin(), found.end())) << size;
        if (size <= sizeof(ReverseRecord)) {
            EXPECT_EQ(found, (std::vector{1, 2, 3})) << size;
        }
    }
}

TEST(RecordSearchTest, FindsARecordWhoseTagCameWithTheLastBytesOfOneThatWasCut) {
    for (std::size_t early = 1; early < 4; ++early) {
        RecordSearch search;
        static_cast<void>(take(search, record(9).substr(0, 64 - early) + record(1).substr(0, early)));
        const auto found = take(search, record(1).substr(early));
        ASSERT_TRUE(found) << early;
        EXPECT_EQ(found->receivingJobId, 1) << early;
    }
}

TEST(RecordSearchTest, KeepsEveryByte) {
    std::string bytes = record(1);
    for (std::size_t i = 4; i < bytes.size(); ++i) {
        bytes[i] = static_cast<char>(i * 3);
    }
    RecordSearch search;
    const auto found = take(search, bytes);
    ASSERT_TRUE(found);
    EXPECT_EQ(std::memcmp(&*found, bytes.data(), bytes.size()), 0);
}

} // namespace
} // namespace veltrin::backend
