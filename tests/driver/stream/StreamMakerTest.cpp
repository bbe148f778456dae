#include "driver/stream/StreamMaker.h"

#include "driver/stream/PageStream.h"
#include "tests/support/BytesAre.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using testing::ElementsAreArray;
using testing::HasSubstr;

template <typename Header>
Header headerAt(const std::string &stream, std::size_t offset) {
    Header header{};
    EXPECT_LE(offset + sizeof header, stream.size());
    if (offset + sizeof header <= stream.size()) {
        std::memcpy(&header, stream.data() + offset, sizeof header);
    }
    return header;
}

struct OrderCase {
    const char *name;
    std::uint32_t pages;
    std::uint32_t copies;
    CopyOrder order;
    bool blankPage;
    std::vector<std::uint32_t> expected;
};

void PrintTo(const OrderCase &test, std::ostream *out) {
    *out << test.name;
}

class PageOrderTest : public testing::TestWithParam<OrderCase> {};

TEST_P(PageOrderTest, RepeatsThePagesAsTheRendererDoes) {
    StreamOptions options;
    options.pages = GetParam().pages;
    options.copies = GetParam().copies;
    options.order = GetParam().order;
    options.blankPage = GetParam().blankPage;
    EXPECT_THAT(pageOrder(options), ElementsAreArray(GetParam().expected));
    EXPECT_EQ(pagesInStream(options), GetParam().expected.size());
}

const OrderCase orderCases[] = {
    {"NoPages", 0, 3, CopyOrder::collated, false, {}},
    {"NoPagesUncollated", 0, 3, CopyOrder::uncollated, false, {}},
    {"NoPagesInPairs", 0, 3, CopyOrder::pairs, false, {}},
    {"OnePage", 1, 1, CopyOrder::collated, false, {1}},
    {"Collated", 4, 2, CopyOrder::collated, false, {1, 2, 3, 4, 1, 2, 3, 4}},
    {"Uncollated", 4, 2, CopyOrder::uncollated, false, {1, 1, 2, 2, 3, 3, 4, 4}},
    {"Pairs", 4, 2, CopyOrder::pairs, false, {1, 2, 1, 2, 3, 4, 3, 4}},
    {"PairsOfThreeCopies", 4, 3, CopyOrder::pairs, false, {1, 2, 1, 2, 1, 2, 3, 4, 3, 4, 3, 4}},
    {"PairsOfOneCopy", 4, 1, CopyOrder::pairs, false, {1, 2, 3, 4}},
    {"OddDocumentInPairs", 5, 2, CopyOrder::pairs, false, {1, 2, 1, 2, 3, 4, 3, 4, 5, 5}},
    {"OnePageInPairs", 1, 3, CopyOrder::pairs, false, {1, 1, 1}},
    {"OddDocumentUncollated", 3, 3, CopyOrder::uncollated, false, {1, 1, 1, 2, 2, 2, 3, 3, 3}},
    {"BlankPage", 3, 1, CopyOrder::collated, true, {1, 2, 3, 4}},
    {"BlankPageInEachCopy", 3, 2, CopyOrder::collated, true, {1, 2, 3, 4, 1, 2, 3, 4}},
    {"BlankPageUncollated", 3, 2, CopyOrder::uncollated, true, {1, 1, 2, 2, 3, 3, 4, 4}},
    {"BlankPageInPairs", 3, 2, CopyOrder::pairs, true, {1, 2, 1, 2, 3, 4, 3, 4}},
    {"BlankPageBehindTheOnlyOne", 1, 3, CopyOrder::pairs, true, {1, 2, 1, 2, 1, 2}},
    {"BlankPageAlone", 0, 1, CopyOrder::collated, true, {1}},
    {"BlankPageAloneInEachCopy", 0, 3, CopyOrder::pairs, true, {1, 1, 1}},
};

INSTANTIATE_TEST_SUITE_P(Orders, PageOrderTest, testing::ValuesIn(orderCases),
                         [](const auto &test) { return std::string(test.param.name); });

TEST(PageOrder, NeedsNoListForTheLargestStream) {
    StreamOptions options;
    options.pages = 65535;
    options.copies = 65535;
    options.order = CopyOrder::pairs;
    const std::uint64_t last = pagesInStream(options) - 1;
    EXPECT_EQ(last, std::uint64_t{65535} * 65535 - 1);
    EXPECT_EQ(pageAt(options, last), 65535U);
    EXPECT_EQ(pageAt(options, last - 65535), 65534U);
}

TEST(DealtOut, GivesEveryByteToOnePlaneBlackFirst) {
    EXPECT_EQ(dealtOut(8), (PlaneSizes{2, 2, 2, 2}));
    EXPECT_EQ(dealtOut(11), (PlaneSizes{3, 3, 3, 2}));
    EXPECT_EQ(dealtOut(1), (PlaneSizes{1, 0, 0, 0}));
    EXPECT_EQ(dealtOut(0xFFFFFFFFU).total(), 0xFFFFFFFFU);
}

TEST(StreamMaker, LaysTheStreamOutAsTheFormatSays) {
    StreamOptions options;
    options.pages = 2;
    options.bandsPerPage = 3;
    options.planeSizes = {40, 30, 20, 10};
    options.paperSize = 9;
    options.paperTray = 3;
    options.mediaType = 7;
    options.pageType = 0x1C;
    options.jobSetting = 0x0600;
    options.fileName = "report.pdf";
    options.hostName = "desk";
    options.userName = "ada";
    const std::string stream = makeStream(options);

    constexpr std::size_t pageSize = 64 + 3 * (32 + 100);
    ASSERT_EQ(stream.size(), 36U + 120 + 152 + 2 * pageSize + 4);
    EXPECT_EQ(stream.substr(0, 36), *options.identifier);

    EXPECT_EQ(stream.substr(36, 4), "GDIJ");
    const auto fileHeader = headerAt<FileHeader>(stream, 36);
    EXPECT_EQ(fileHeader.dwJobHeaderLen, 120U);
    EXPECT_EQ(fileHeader.wJobSetting, 0x0600);
    EXPECT_STREQ(fileHeader.szFileName.data(), "report.pdf");

    EXPECT_EQ(stream.substr(156, 4), "GJET");
    const auto fileHeaderEx = headerAt<FileHeaderEx>(stream, 156);
    EXPECT_EQ(fileHeaderEx.dwJobHeaderLen, 152U);
    EXPECT_STREQ(fileHeaderEx.szHostName.data(), "desk");
    EXPECT_STREQ(fileHeaderEx.szUserName.data(), "ada");

    for (std::uint16_t page = 1; page <= 2; ++page) {
        SCOPED_TRACE(page);
        const std::size_t at = 308 + (page - 1U) * pageSize;
        EXPECT_EQ(stream.substr(at, 4), "GDIP");
        const auto pageHeader = headerAt<PageHeader>(stream, at);
        EXPECT_EQ(pageHeader.dwHeaderLen, 64U);
        EXPECT_EQ(pageHeader.bPaperSize, 9);
        EXPECT_EQ(pageHeader.bPaperTray, 3);
        EXPECT_EQ(pageHeader.bMediaType, 7);
        EXPECT_EQ(pageHeader.bType, 0x1C);
        EXPECT_EQ(pageHeader.wPageNumber, page);
        EXPECT_EQ(pageHeader.wBandNo, 3);
        EXPECT_EQ(pageHeader.dwKSize, 120U);
        EXPECT_EQ(pageHeader.dwYSize, 90U);
        EXPECT_EQ(pageHeader.dwMSize, 60U);
        EXPECT_EQ(pageHeader.dwCSize, 30U);
        EXPECT_EQ(pageHeader.wPaperWidthmm, 210U);
        EXPECT_EQ(pageHeader.wPaperHeightmm, 297U);
        for (std::uint32_t band = 1; band <= 3; ++band) {
            SCOPED_TRACE(band);
            const std::size_t bandAt = at + 64 + (band - std::size_t{1}) * 132;
            EXPECT_EQ(stream.substr(bandAt, 4), "GDIB");
            const auto bandHeader = headerAt<BandHeader>(stream, bandAt);
            EXPECT_EQ(bandHeader.isLastOfPage(), band == 3);
            EXPECT_EQ(bandHeader.dwKSize, 40U);
            EXPECT_EQ(bandHeader.dwYSize, 30U);
            EXPECT_EQ(bandHeader.dwMSize, 20U);
            EXPECT_EQ(bandHeader.dwCSize, 10U);
            const std::string place = "page " + std::to_string(page) + " band " + std::to_string(band);
            EXPECT_EQ(stream.substr(bandAt + 32, 22), place + " plane K\n");
            EXPECT_EQ(stream.substr(bandAt + 72, 22), place + " plane Y\n");
            EXPECT_EQ(stream.substr(bandAt + 102, 20), place + " plane ");
            EXPECT_EQ(stream.substr(bandAt + 122, 10), (place + " plane").substr(0, 10));
        }
    }
    EXPECT_EQ(stream.substr(stream.size() - 4), "JIDG");
}

TEST(StreamMaker, CutsANameThatDoesNotFitItsFieldAndStillTerminatesIt) {
    StreamOptions options;
    options.fileName = std::string(100, 'f');
    const auto header = headerAt<FileHeader>(makeJobHeaders(options), 0);
    EXPECT_EQ(std::string(header.szFileName.data(), 64), std::string(63, 'f') + '\0');
}

TEST(StreamMaker, LeavesTheIdentifierAwayWhenAskedTo) {
    StreamOptions options;
    const std::string withIdentifier = makeStream(options);
    options.identifier.reset();
    EXPECT_THAT(Bytes(makeStream(options)), BytesAre(withIdentifier.substr(36)));
}

TEST(StreamMaker, MakesADocumentWithoutPages) {
    StreamOptions options;
    options.pages = 0;
    options.identifier.reset();
    EXPECT_THAT(Bytes(makeStream(options)), BytesAre(makeJobHeaders(options) + "JIDG"));
}

TEST(StreamMaker, WritesTheBlankPageWithEmptyBands) {
    StreamOptions options;
    options.pages = 3;
    options.blankPage = true;
    options.bandsPerPage = 2;
    const std::string blank = makePage(options, 4);
    ASSERT_EQ(blank.size(), 64U + 2 * 32);
    EXPECT_EQ(headerAt<PageHeader>(blank, 0).wPageNumber, 4);
    EXPECT_EQ(headerAt<PageHeader>(blank, 0).dwKSize, 0U);
    EXPECT_EQ(headerAt<BandHeader>(blank, 64).dataSize(), 0);
    EXPECT_FALSE(headerAt<BandHeader>(blank, 64).isLastOfPage());
    EXPECT_EQ(headerAt<BandHeader>(blank, 96).dataSize(), 0);
    EXPECT_TRUE(headerAt<BandHeader>(blank, 96).isLastOfPage());
}

TEST(StreamMaker, IsMadeOfItsPartsInPageOrder) {
    for (const CopyOrder order : {CopyOrder::collated, CopyOrder::uncollated, CopyOrder::pairs}) {
        StreamOptions options;
        options.pages = 3;
        options.copies = 2;
        options.order = order;
        options.blankPage = true;
        std::string expected = *options.identifier + makeJobHeaders(options);
        for (const std::uint32_t page : pageOrder(options)) {
            expected += makePage(options, page);
        }
        EXPECT_THAT(Bytes(makeStream(options)), BytesAre(expected + "JIDG"));
    }
}

TEST(StreamMaker, MakesTheSameDataFromTheSameSeedOnly) {
    StreamOptions options;
    options.pages = 3;
    const std::string once = makeStream(options);
    EXPECT_THAT(Bytes(makeStream(options)), BytesAre(once));
    options.seed = 1;
    const std::string other = makeStream(options);
    EXPECT_NE(other, once);
    EXPECT_EQ(other.size(), once.size());
}

TEST(StreamMaker, GivesEveryPlaneOfEveryBandOfEveryPageItsOwnNoise) {
    StreamOptions options;
    options.pages = 3;
    options.bandsPerPage = 3;
    options.planeSizes = {256, 256, 256, 256};
    std::set<std::string> noises;
    for (std::uint32_t page = 1; page <= 3; ++page) {
        const std::string bytes = makePage(options, page);
        for (std::size_t band = 0; band < 3; ++band) {
            for (std::size_t plane = 0; plane < 4; ++plane) {
                noises.insert(bytes.substr(64 + band * (32 + 1024) + 32 + plane * 256 + 64, 32));
            }
        }
    }
    EXPECT_EQ(noises.size(), 36U);
}

TEST(StreamMaker, HandsALargeBandOverInSmallPieces) {
    StreamOptions options;
    options.bandsPerPage = 1;
    options.planeSizes = {5'000'000, 0, 0, 1};
    std::size_t total = 0;
    std::size_t largest = 0;
    EXPECT_TRUE(makeStream(options, [&](std::span<const std::byte> bytes) {
        total += bytes.size();
        largest = std::max(largest, bytes.size());
        return true;
    }));
    EXPECT_EQ(total, 36U + 120 + 152 + 64 + 32 + 5'000'001 + 4);
    EXPECT_LE(largest, 65536U);
}

TEST(StreamMaker, StopsAtTheFirstRefusalOfTheSink) {
    StreamOptions options;
    options.pages = 2;
    std::size_t wholeStream = 0;
    ASSERT_TRUE(makeStream(options, [&](auto) { return ++wholeStream != 0; }));
    for (std::size_t refused = 1; refused <= wholeStream; ++refused) {
        std::size_t calls = 0;
        EXPECT_FALSE(makeStream(options, [&](auto) { return ++calls != refused; }));
        EXPECT_EQ(calls, refused);
    }
}

struct RefusalCase {
    const char *name;
    void (*spoil)(StreamOptions &options);
    const char *problem;
};

void PrintTo(const RefusalCase &test, std::ostream *out) {
    *out << test.name;
}

class RefusalTest : public testing::TestWithParam<RefusalCase> {};

TEST_P(RefusalTest, NamesTheProblemAndMakesNothing) {
    StreamOptions options;
    ASSERT_FALSE(problemWith(options));
    GetParam().spoil(options);
    ASSERT_TRUE(problemWith(options));
    EXPECT_THAT(*problemWith(options), HasSubstr(GetParam().problem));
    EXPECT_EQ(makeStream(options), "");
}

const RefusalCase refusalCases[] = {
    {"MorePagesThanNumbers", [](StreamOptions &options) { options.pages = 65536; }, "65535"},
    {"BlankPageBeyondTheNumbers",
     [](StreamOptions &options) {
         options.pages = 65535;
         options.blankPage = true;
     },
     "65535"},
    {"NoCopies", [](StreamOptions &options) { options.copies = 0; }, "copies is 1 to"},
    {"TooManyCopies", [](StreamOptions &options) { options.copies = 65536; }, "copies is 1 to"},
    {"NoBands", [](StreamOptions &options) { options.bandsPerPage = 0; }, "1 to 65535 bands"},
    {"TooManyBands", [](StreamOptions &options) { options.bandsPerPage = 65536; }, "1 to 65535 bands"},
    {"BandTooLarge",
     [](StreamOptions &options) {
         options.planeSizes = {0x7FFFFFFF, 1, 0, 0};
     },
     "2147483647 bytes"},
    {"BandSumThatWraps",
     [](StreamOptions &options) {
         options.planeSizes = {0x80000000, 0x80000000, 0, 8};
     },
     "2147483647 bytes"},
    {"ShortIdentifier", [](StreamOptions &options) { options.identifier = "job"; }, "36 bytes long, not 3"},
    {"LongIdentifier", [](StreamOptions &options) { options.identifier = std::string(37, 'i'); },
     "36 bytes long, not 37"},
};

INSTANTIATE_TEST_SUITE_P(Options, RefusalTest, testing::ValuesIn(refusalCases),
                         [](const auto &test) { return std::string(test.param.name); });

} // namespace
} // namespace veltrin
