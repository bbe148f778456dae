#include "raster/PageStore.h"

#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

std::span<const std::byte> bytesOf(const std::string &text) {
    return std::as_bytes(std::span(text));
}

std::string pageIn(const PageStore &store, std::size_t index) {
    std::string page;
    EXPECT_TRUE(store.copy(index, [&page](std::span<const std::byte> bytes) {
        page.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
        return true;
    }));
    return page;
}

TEST(PageStore, HandsOutEachPageAsOftenAsItIsAskedFor) {
    PageStore store;
    const std::string large(300000, 'x');
    EXPECT_TRUE(store.add(bytesOf("first"), bytesOf("")));
    EXPECT_TRUE(store.add(bytesOf("second,"), bytesOf(large)));
    EXPECT_TRUE(store.add(bytesOf("third, "), bytesOf("bands")));
    EXPECT_EQ(store.size(), 3U);
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(pageIn(store, 2), "third, bands");
        EXPECT_EQ(pageIn(store, 0), "first");
        EXPECT_EQ(pageIn(store, 1), "second," + large);
    }
}

TEST(PageStore, BeginsAfreshOnceItIsCleared) {
    PageStore store;
    store.clear();
    EXPECT_TRUE(store.add(bytesOf("one"), bytesOf("two")));
    store.clear();
    EXPECT_EQ(store.size(), 0U);
    EXPECT_TRUE(store.add(bytesOf("three"), bytesOf("")));
    EXPECT_EQ(pageIn(store, 0), "three");
}

TEST(PageStore, StopsWhereThePageIsNotTaken) {
    PageStore store;
    EXPECT_TRUE(store.add(bytesOf(std::string(300000, 'x')), bytesOf("")));
    int pieces = 0;
    EXPECT_FALSE(store.copy(0, [&pieces](std::span<const std::byte> /*bytes*/) {
        ++pieces;
        return false;
    }));
    EXPECT_EQ(pieces, 1);
}

TEST(PageStore, ItsFileHasNoName) {
    setenv("TMPDIR", "/tmp/store", 1);
    std::filesystem::create_directory("/tmp/store");
    {
        PageStore store;
        EXPECT_TRUE(store.add(bytesOf("page"), bytesOf("")));
        EXPECT_THAT(test::namesIn("/tmp/store"), testing::IsEmpty());
    }
    std::filesystem::remove("/tmp/store");
    unsetenv("TMPDIR");
}

} // namespace
} // namespace veltrin::raster
