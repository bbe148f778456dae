#include "raster/PagePlanes.h"
#include "tests/raster/DecodedPages.h"
#include "tests/raster/DrawnPage.h"
#include "tests/support/CaseName.h"
#include "tests/support/PeakMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <zstd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

// Pages whose planes are made to take more memory than the page, which whoever shows them must not give.

namespace veltrin::raster {
namespace {

using test::bandOf;
using test::jobHeaders;
using test::pageHeader;
using testing::Each;
using testing::StartsWith;

constexpr std::uint16_t fullDots = 4961;
constexpr std::uint16_t fullLines = 7016;
constexpr std::uint16_t bandHeight = 128;
constexpr std::size_t bandBytes = planeBytes(fullDots, bandHeight);
constexpr std::size_t pageBytes = planeCount * planeBytes(fullDots, fullLines);

/// What the decompressor needs, and what the allocator and a sanitizer add.
constexpr std::size_t tolerance = std::size_t{8} * 1024 * 1024;

/// Far beyond all that.
constexpr std::size_t bombBytes = std::size_t{128} * 1024 * 1024;

/// A frame of so many equal bytes.
std::string frameOf(std::size_t size, bool tellsSize = true) {
    const std::string content(size, '\x55');
    std::string frame(ZSTD_compressBound(size), '\0');
    ZSTD_CCtx *context = ZSTD_createCCtx();
    ZSTD_CCtx_setParameter(context, ZSTD_c_contentSizeFlag, tellsSize ? 1 : 0);
    frame.resize(ZSTD_compress2(context, frame.data(), frame.size(), content.data(), content.size()));
    ZSTD_freeCCtx(context);
    return frame;
}

void putLittleEndian(std::string &text, std::size_t at, std::uint32_t number) {
    for (std::size_t i = 0; i < sizeof number; ++i) {
        text[at + i] = static_cast<char>(number >> (8 * i));
    }
}

/// A frame that says the right size, and unpacks to another.
std::string bombInDisguise() {
    std::string frame = frameOf(bombBytes);
    // Behind the magic number a descriptor, here of a size in four bytes, and a byte for the window.
    EXPECT_EQ(frame[4], '\x80');
    putLittleEndian(frame, 6, bandBytes);
    return frame;
}

/// One that wants a window of 3.75 GiB to be held.
std::string hugeWindow() {
    std::string frame = "\x28\xB5\x2F\xFD\x80\xAF";
    frame.resize(10);
    putLittleEndian(frame, 6, bandBytes);
    const std::string content = frameOf(bandBytes); // its blocks stand behind 9 bytes of header
    return frame + content.substr(9);
}

std::string pageOf(const std::array<std::string, planeCount> &planes) {
    std::string stream = pageHeader(fullDots, fullLines);
    for (unsigned top = 0; top < fullLines; top += bandHeight) {
        const bool isLast = top + bandHeight >= fullLines;
        stream += bandOf(fullDots, static_cast<std::uint16_t>(isLast ? fullLines - top : bandHeight), planes,
                         isLast);
    }
    return stream;
}

std::string pageOf(const std::string &plane) {
    return pageOf({plane, plane, plane, plane});
}

struct PagesTaken {
    std::size_t pages = 0;
    std::vector<std::uint64_t> problemsAt;
    std::vector<std::string> problems;
};

PagesTaken pagesTakenFrom(const std::string &stream) {
    PagesTaken result;
    PagePlanes planes([&result](const PageProblemFound &found) {
        result.problemsAt.push_back(found.offset);
        result.problems.push_back(found.text);
    });
    test::decodePages(
        stream, planes, [&](const PageRead &) { ++result.pages; }, 65536);
    return result;
}

std::size_t peakOf(const std::string &stream) {
    return test::peakMemoryOf([&stream] { static_cast<void>(pagesTakenFrom(stream)); });
}

struct Hostile {
    const char *name;
    std::uint16_t compressMode;
    std::string (*plane)();
    const char *problem; ///< of the planes of all bands
};

const std::vector<Hostile> &hostilePlanes() {
    static const std::vector<Hostile> planes = {
        {"zstd bomb", 1, [] { return frameOf(bombBytes); }, "announces another size than its band's"},
        {"zstd bomb that says another size", 1, bombInDisguise, "is damaged"},
        {"zstd bomb that says no size", 1, [] { return frameOf(bombBytes, false); },
         "announces another size than its band's"},
        {"two frames", 1, [] { return frameOf(bandBytes) + frameOf(bombBytes); },
         "goes on behind its last row"},
        {"frame that lacks its end", 1, [] { return frameOf(bandBytes).substr(0, 12); },
         "ends before its last row"},
        {"rows that are too many", 0, [] { return std::string(bandBytes + 1, '\x55'); },
         "has more rows than its band"},
        {"rows that are too few", 0, [] { return std::string(100, '\x55'); }, "ends before its last row"},
    };
    return planes;
}

class HostilePlanes : public testing::TestWithParam<Hostile> {};

TEST_P(HostilePlanes, AreErrorsWithAnOffsetAndTakeNoMoreThanAPage) {
    const std::string plane = GetParam().plane();
    const std::string before = jobHeaders(GetParam().compressMode);
    const std::string stream = before + pageOf(plane) + "JIDG";
    const PagesTaken result = pagesTakenFrom(stream);
    EXPECT_EQ(result.pages, 1U);
    constexpr std::size_t bands = (fullLines + bandHeight - 1) / bandHeight;
    ASSERT_EQ(result.problems.size(), bands * planeCount);
    // The last band is lower, and has more than one reason to be refused.
    const std::vector<std::string> ofWholeBands(result.problems.begin(), result.problems.end() - planeCount);
    EXPECT_THAT(ofWholeBands, Each(testing::EndsWith(GetParam().problem)));
    EXPECT_THAT(result.problems.front(), StartsWith("the black plane of lines 0 to 128 "));
    const std::uint64_t first = before.size() + sizeof(PageHeader) + sizeof(BandHeader);
    EXPECT_EQ(result.problemsAt[0], first);
    EXPECT_EQ(result.problemsAt[1], first + plane.size());
    EXPECT_EQ(result.problemsAt[planeCount], first + planeCount * plane.size() + sizeof(BandHeader));
    EXPECT_LT(peakOf(stream), pageBytes + tolerance);
}

INSTANTIATE_TEST_SUITE_P(PagePlanes, HostilePlanes, testing::ValuesIn(hostilePlanes()),
                         test::nameOfCase<Hostile>);

TEST(HostilePages, TakeAsMuchAsHonestOnes) {
    // What the measure shows at all: a page of which each plane has ink, more than once.
    const std::string honest = pageOf(frameOf(bandBytes));
    const std::size_t one = peakOf(jobHeaders(CompressMode::zstd) + honest);
    EXPECT_TRUE(one > pageBytes * 9 / 10 || !test::memoryIsMeasured) << one;
    EXPECT_LT(one, pageBytes + tolerance);
    std::string several = jobHeaders(CompressMode::zstd);
    for (int i = 0; i < 4; ++i) {
        several += honest;
    }
    EXPECT_LT(peakOf(several), pageBytes + tolerance);
}

TEST(HostilePages, AWindowThatIsHugeIsNotMade) {
    const std::string stream = jobHeaders(CompressMode::zstd) + pageOf(hugeWindow()) + "JIDG";
    EXPECT_LT(peakOf(stream), pageBytes + tolerance);
}

TEST(HostilePages, AnnouncedBytesTakeNothingThoughTheyCome) {
    std::string band = bandOf(fullDots, bandHeight, {"", "", "", ""}, false);
    BandHeader header;
    std::memcpy(&header, band.data(), sizeof header);
    header.dwKSize = 0x7FFFFFFF;
    std::memcpy(band.data(), &header, sizeof header);
    for (const std::uint16_t mode : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{7}}) {
        const std::string stream =
            jobHeaders(mode) + pageHeader(fullDots, fullLines) + band + std::string(bombBytes / 4, '\1');
        EXPECT_LT(peakOf(stream), tolerance);
    }
}

TEST(HostilePages, TheLargestTakesNothingWhereItHasNoInk) {
    std::string stream = jobHeaders(CompressMode::raw) + pageHeader(65535, 8191);
    const std::string line(rowBytes(65535), '\x55');
    stream += bandOf(65535, 1, {line, line, line, line}, false);
    EXPECT_LT(peakOf(stream), tolerance);
}

TEST(HostilePages, InAnUnknownModeTakeNothing) {
    const std::string stream = jobHeaders(std::uint16_t{2}) + pageOf(frameOf(bombBytes)) + "JIDG";
    const PagesTaken result = pagesTakenFrom(stream);
    EXPECT_THAT(result.problems, testing::ElementsAre("planes compressed in an unknown way, 2"));
    EXPECT_LT(peakOf(stream), tolerance);
}

} // namespace
} // namespace veltrin::raster
