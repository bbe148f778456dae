#include "driver/PageOutput.h"

#include "driver/stream/StreamMaker.h"
#include "tests/driver/PrinterStatusFixture.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::linesOf;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

const std::string communicationError = "ERROR: recoverable: Unable to communicate with printer";

/// Bands that each hold this many bytes of data.
std::string bandsOf(std::uint32_t size, std::size_t count) {
    BandHeader header{};
    header.MagicNumber = bandHeaderTag;
    header.dwMSize = size;
    StreamHeader bytes;
    bytes.store(header);
    const std::string band =
        test::textOf({bytes.data(), bytes.data() + sizeof header}) + std::string(size, 'd');
    std::string bands;
    for (std::size_t i = 0; i < count; ++i) {
        bands += band;
    }
    return bands;
}

std::span<const std::byte> bytesIn(const std::string &text) {
    return std::as_bytes(std::span(text));
}

/// Takes what a printer that has stopped reading still takes: as much as goes into a pipe that nobody
/// empties.
class FullPipe {
  public:
    FullPipe() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0); }

    FullPipe(const FullPipe &) = delete;
    FullPipe &operator=(const FullPipe &) = delete;

    ~FullPipe() {
        close(ends[0]);
        close(ends[1]);
    }

    [[nodiscard]] int end() const { return ends[1]; }

    [[nodiscard]] std::string taken() const {
        std::string bytes(std::size_t{1} << 20U, '\0');
        const ssize_t count = read(ends[0], bytes.data(), bytes.size());
        bytes.resize(count > 0 ? static_cast<std::size_t>(count) : 0);
        return bytes;
    }

  private:
    std::array<int, 2> ends = {-1, -1};
};

class PageOutputTest : public test::PrinterStatusFixture {
  protected:
    StreamHeader pageHeader() {
        StreamHeader header;
        PageHeader page{};
        page.MagicNumber = pageHeaderTag;
        header.store(page);
        return header;
    }

    PageOutput channel = PageOutput::toPrinter(ipc.get(), status);
    PageOutput standardOutput = PageOutput::toPrinter(nullptr, status);
};

TEST_F(PageOutputTest, OnlyThePrinterIsThePrinter) {
    EXPECT_TRUE(channel.isPrinter());
    EXPECT_TRUE(standardOutput.isPrinter());
    EXPECT_FALSE(PageOutput::toFile(7, status).isPrinter());
}

TEST_F(PageOutputTest, WithAChannelNothingGoesToStandardOutputEvenWhenTheChannelFails) {
    EXPECT_TRUE(channel.writeToFD("data", 4));
    EXPECT_EQ(received, "data");
    center().failsPosts = true;
    cancelAfterSleeps(1);
    EXPECT_FALSE(channel.writeToFD("more", 4));
    EXPECT_EQ(output.written(), "");
    EXPECT_THAT(linesOf(errors.written()), Contains(communicationError));
}

TEST_F(PageOutputTest, WithoutAChannelThePrinterIsAtStandardOutput) {
    EXPECT_TRUE(standardOutput.writeToFD("data", 4));
    EXPECT_EQ(output.written(), "data");
    EXPECT_EQ(received, "");
}

TEST_F(PageOutputTest, AFileIsWrittenBesideTheChannel) {
    const int file = open("/tmp/other", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_TRUE(PageOutput::toFile(file, status).writeToFD("data", 4));
    close(file);
    EXPECT_EQ(test::readFile("/tmp/other"), "data");
    EXPECT_EQ(received, "");
    EXPECT_EQ(output.written(), "");
}

TEST_F(PageOutputTest, AHeaderAndItsDataAreABlockEachWhereThereIsAnyOfThem) {
    const std::string data = "ink";
    const auto blocksOf = [&](std::int32_t headerSize, std::int32_t dataSize) {
        center().posts.clear();
        EXPECT_EQ(channel.writeHeaderAndData(pageHeader(), headerSize, bytesIn(data).data(), dataSize),
                  Written::all);
        std::vector<std::string> blocks;
        for (const auto &post : center().posts) {
            blocks.push_back(test::textOf(post.data.value_or(std::vector<std::byte>())));
        }
        return blocks;
    };
    EXPECT_THAT(blocksOf(4, 3), ElementsAre("GDIP", "ink"));
    EXPECT_THAT(blocksOf(4, 0), ElementsAre("GDIP"));
    EXPECT_THAT(blocksOf(0, 3), ElementsAre("ink"));
    EXPECT_THAT(blocksOf(0, 0), IsEmpty());
}

TEST_F(PageOutputTest, BandsAreWrittenTogetherUnlessTheChannelTakesThemOneByOne) {
    const std::string bands = bandsOf(3, 2);
    const BandRun run = {.size = 70, .bands = 2, .endsPage = false};
    EXPECT_EQ(standardOutput.bandsToBatch(bytesIn(bands)), run);
    EXPECT_EQ(PageOutput::toFile(7, status).bandsToBatch(bytesIn(bands)), run);
    EXPECT_EQ(channel.bandsToBatch(bytesIn(bands)), BandRun());
    EXPECT_EQ(standardOutput.writeBandRun(run, bytesIn(bands + "more")), Written::all);
    EXPECT_THAT(Bytes(output.written()), BytesAre(bands));
}

TEST_F(PageOutputTest, AFailedWriteReportsWhatIsMissingAndTellsTheUser) {
    cancelAfterSleeps(2);
    PageOutput closed = PageOutput::toFile(-1, status);
    EXPECT_EQ(closed.writeHeaderAndData(pageHeader(), 64, nullptr, 0), Written::headerFailed);
    EXPECT_EQ(closed.writeHeaderAndData(pageHeader(), 0, bytesIn("ink").data(), 3), Written::dataFailed);
    const std::string report = "ASSERT: DriverFilter writeToFD: Unable to write all of data. Wanted ";
    EXPECT_THAT(log.messages(),
                testing::IsSupersetOf({report + "64 bytes, got -1 bytes", report + "3 bytes, got -1 bytes"}));
    // Until the job was cancelled, then once more.
    EXPECT_THAT(linesOf(errors.written()),
                ElementsAre(communicationError, communicationError, communicationError));
}

TEST_F(PageOutputTest, AFailedBandRunIsThatOfTheHeaderOrDataItStrikes) {
    gSigTerm = 1;
    std::vector<Written> outcomes;
    std::vector<std::uint32_t> bandSizes = {480,
                                            704}; // a pipe of 64 KiB is full between bands, behind a header
    for (std::uint32_t bandSize = 0; bandSize < 3000; bandSize += 61) {
        bandSizes.push_back(bandSize);
    }
    for (const std::uint32_t bandSize : bandSizes) {
        const std::size_t whole = 32 + bandSize;
        const std::string bands = bandsOf(bandSize, 200000 / whole + 1);
        const FullPipe pipe;
        PageOutput stuck = PageOutput::toFile(pipe.end(), status);
        log.clear();
        errors.clear();
        outcomes.push_back(stuck.writeBandRun(stuck.bandsToBatch(bytesIn(bands)), bytesIn(bands)));
        const std::string taken = pipe.taken();
        ASSERT_GT(taken.size(), 0U);
        EXPECT_TRUE(bands.starts_with(taken));
        // What the pipe took tells what must be reported.
        const std::size_t inBand = taken.size() % whole;
        const std::size_t missing = inBand < 32 ? 32 - inBand : whole - inBand;
        EXPECT_EQ(outcomes.back(), inBand < 32 ? Written::headerFailed : Written::dataFailed) << bandSize;
        EXPECT_EQ(log.messages().front(),
                  "ASSERT: DriverFilter writeToFD: Unable to write all of data. Wanted " +
                      std::to_string(missing) + " bytes, got -1 bytes")
            << bandSize;
        EXPECT_EQ(errors.written(), communicationError + "\n");
    }
    EXPECT_THAT(outcomes, Contains(Written::headerFailed));
    EXPECT_THAT(outcomes, Contains(Written::dataFailed));
}

} // namespace
} // namespace veltrin
