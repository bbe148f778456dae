#include "driver/PageInput.h"

#include "tests/support/CapturedLog.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cstring>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;

/// Each input reads a file of its own, through the same memory.
class PageInputTest : public testing::Test {
  protected:
    static constexpr const char *path = "/tmp/page";

    PageInput inputOf(const std::string &contents) {
        test::writeFile(path, contents);
        return {path, memory};
    }

    /// Reads the data of a band of so many bytes, and gives back how many were read.
    static std::int32_t readBand(PageInput &input, std::uint32_t size) {
        StreamHeader header;
        BandHeader bandHeader{};
        bandHeader.MagicNumber = bandHeaderTag;
        bandHeader.dwMSize = size;
        header.store(bandHeader);
        std::int32_t got = -1;
        EXPECT_TRUE(input.readHeaderData(header, got));
        return got;
    }

    test::CapturedLog log;
    InputMemory memory;
};

TEST_F(PageInputTest, ReadsHeadersBySizeAndKeepsTheSizeOfATruncatedOne) {
    struct Case {
        std::string bytes;
        bool result;
        std::int32_t size;
        std::string message; // the last one logged
    };

    const std::vector<Case> cases = {
        {"GDIJ" + std::string(116, 'x'), true, 120, ""},
        {"GJET" + std::string(148, 'x'), true, 152, ""},
        {"GDIP" + std::string(60, 'x'), true, 64, ""},
        {"GDIB" + std::string(28, 'x'), true, 32, ""},
        {"JIDG", true, 4, ""},
        {"JIDGmore", true, 4, ""},
        {"", false, 0, "ASSERT: DriverFilter readHeader: Unable to read header tag"},
        {"GDI", false, 0, "ASSERT: DriverFilter readHeader: Unable to read header tag"},
        {"PIDG", false, 0, "ASSERT: DriverFilter readHeader: Unknown header tag (PIDG)"},
        {"%n%s", false, 0, "ASSERT: DriverFilter readHeader: Unknown header tag (%n%s)"},
        {"GDIJ" + std::string(115, 'x'), false, 120,
         "ASSERT: DriverFilter readHeader: Unable to read rest of header"},
        {"GJET", false, 152, "ASSERT: DriverFilter readHeader: Unable to read rest of header"},
        {"GDIP1", false, 64, "ASSERT: DriverFilter readHeader: Unable to read rest of header"},
        {"GDIB" + std::string(27, 'x'), false, 32,
         "ASSERT: DriverFilter readHeader: Unable to read rest of header"},
    };
    for (const Case &one : cases) {
        log.clear();
        StreamHeader header;
        std::int32_t size = 99;
        EXPECT_EQ(inputOf(one.bytes).readHeader(header, size), one.result) << one.bytes;
        EXPECT_EQ(size, one.size) << one.bytes;
        EXPECT_EQ(log.messages().empty() ? "" : log.messages().back(), one.message) << one.bytes;
        if (one.result) {
            EXPECT_EQ(std::memcmp(header.data(), one.bytes.data(), static_cast<std::size_t>(one.size)), 0);
        }
    }
}

TEST_F(PageInputTest, ReadsExactlyWhatIsAskedForAndLogsWhatIsMissing) {
    PageInput input = inputOf("0123456789");
    std::string buffer(8, '\0');
    EXPECT_TRUE(input.readFromFD(buffer.data(), 4));
    EXPECT_EQ(buffer.substr(0, 4), "0123");
    EXPECT_FALSE(input.readFromFD(buffer.data(), 8));
    EXPECT_FALSE(PageInput(-1, memory).readFromFD(buffer.data(), 8));
    EXPECT_THAT(
        log.messages(),
        ElementsAre(
            "ASSERT: DriverFilter readFromFD: Wanted 2 bytes, got 0 bytes. EOF hit",
            "ASSERT: DriverFilter readFromFD: Wanted 8 bytes, got -1 bytes. Error: Bad file descriptor"));
}

TEST_F(PageInputTest, TheBufferGrowsToExactlyWhatTheLargestBandNeeds) {
    constexpr std::int32_t initial = 1048576;
    ASSERT_TRUE(memory.allocateDataBuffer(initial));
    EXPECT_EQ(memory.dataBufferSize, initial);
    const std::int32_t large = initial + 17;
    PageInput input = inputOf(std::string(3 * std::size_t{initial}, 'd'));
    const std::byte *first = input.data();
    EXPECT_EQ(readBand(input, 0), 0);
    EXPECT_EQ(readBand(input, initial), initial);
    EXPECT_EQ(input.data(), first);
    EXPECT_EQ(readBand(input, large), large);
    EXPECT_EQ(memory.dataBufferSize, large);
    const std::byte *grown = input.data();
    EXPECT_EQ(readBand(input, 5), 5);
    EXPECT_EQ(memory.dataBufferSize, large);
    EXPECT_EQ(input.data(), grown);
}

TEST_F(PageInputTest, AMissingBufferIsNotTouchedAndMadeAgainWhenNeeded) {
    // As a failed allocation leaves it.
    memory.dataBufferSize = 0x70000000;
    PageInput input = inputOf("abc");
    EXPECT_EQ(readBand(input, 0), 0);
    EXPECT_EQ(input.data(), nullptr);
    EXPECT_EQ(readBand(input, 3), 3);
    EXPECT_EQ(memory.dataBufferSize, 3);
    ASSERT_NE(input.data(), nullptr);
    EXPECT_EQ(std::memcmp(input.data(), "abc", 3), 0);
}

TEST_F(PageInputTest, OnlyBandHeadersAreFollowedByData) {
    for (const Tag tag : {fileHeaderTag, fileHeaderExTag, pageHeaderTag}) {
        StreamHeader header;
        BandHeader bytes{};
        bytes.MagicNumber = tag;
        bytes.dwKSize = 100;
        header.store(bytes);
        std::int32_t size = 99;
        EXPECT_TRUE(inputOf("").readHeaderData(header, size));
        EXPECT_EQ(size, 0);
    }
}

TEST_F(PageInputTest, SaysWhetherAFileCouldBeOpened) {
    EXPECT_TRUE(inputOf("").isOpen());
    EXPECT_FALSE(PageInput("/tmp/no-such-page", memory).isOpen());
}

TEST_F(PageInputTest, WhatWasReadAheadOfAClosedFileIsNotTakenForTheNextOnes) {
    std::string buffer(4, '\0');
    EXPECT_TRUE(inputOf("JIDGold page").readFromFD(buffer.data(), 4));
    PageInput next = inputOf("JIDGnew");
    EXPECT_TRUE(next.readFromFD(buffer.data(), 4));
    EXPECT_TRUE(next.readFromFD(buffer.data(), 3));
    EXPECT_EQ(buffer.substr(0, 3), "new");
}

TEST_F(PageInputTest, WhatWasReadAheadOfTheJobsInputIsStillThereForTheNextReader) {
    test::writeFile(path, "0123456789");
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    std::string buffer(4, '\0');
    EXPECT_TRUE(PageInput(fd, memory).readFromFD(buffer.data(), 4));
    EXPECT_EQ(lseek(fd, 0, SEEK_CUR), 10) << "all of it has been read";
    PageInput next(fd, memory);
    EXPECT_EQ(next.kept().size(), 6U);
    next.skip(2);
    EXPECT_TRUE(next.readFromFD(buffer.data(), 4));
    EXPECT_EQ(buffer, "6789");
    EXPECT_NE(fcntl(fd, F_GETFD), -1) << "it is not this object's to close";
    close(fd);
}

TEST_F(PageInputTest, ClosesWhatItHasOpened) {
    const std::size_t before = test::namesIn("/proc/self/fd").size();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(inputOf("x").isOpen());
    }
    EXPECT_EQ(test::namesIn("/proc/self/fd").size(), before);
}

} // namespace
} // namespace veltrin
