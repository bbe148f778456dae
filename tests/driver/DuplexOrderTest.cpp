#include "driver/DuplexOrder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <numeric>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using Pages = std::vector<std::uint32_t>;

Pages everyPage(std::uint32_t count) {
    Pages pages(count);
    std::iota(pages.begin(), pages.end(), 0);
    return pages;
}

TEST(DuplexOrder, IsNamedAfterWhatBecomesOfSixPages) {
    for (const std::string name : {"642135", "246135", "214365"}) {
        std::string sent;
        const Pages order = duplexOrder(name, 6).value();
        for (const std::uint32_t index : order) {
            sent += std::to_string(index + 1);
        }
        EXPECT_EQ(sent, name);
    }
}

TEST(DuplexOrder, OfOneTwoAndFourPages) {
    struct Case {
        std::string order;
        std::uint32_t pageCount;
        Pages indexes;
    };

    const std::vector<Case> cases = {
        {"642135", 0, {}},           {"246135", 0, {}},           {"214365", 0, {}},
        {"642135", 2, {1, 0}},       {"246135", 2, {1, 0}},       {"214365", 2, {1, 0}},
        {"642135", 4, {3, 1, 0, 2}}, {"246135", 4, {1, 3, 0, 2}}, {"214365", 4, {1, 0, 3, 2}},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(duplexOrder(one.order, one.pageCount), one.indexes) << one.order << ' ' << one.pageCount;
    }
}

TEST(DuplexOrder, SendsEveryPageOnce) {
    for (const std::string order : {"642135", "246135", "214365"}) {
        for (std::uint32_t count = 0; count <= 40; count += 2) {
            EXPECT_THAT(duplexOrder(order, count).value(),
                        testing::UnorderedElementsAreArray(everyPage(count)))
                << order << ' ' << count;
        }
    }
}

TEST(DuplexOrder, KnowsNoOtherName) {
    for (const std::string order : {"", "123456", "2143", "21436", "2143655", " 214365", "642135 ", "none"}) {
        EXPECT_EQ(duplexOrder(order, 4), std::nullopt) << order;
    }
}

} // namespace
} // namespace veltrin
