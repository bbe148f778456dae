#include "raster/PagePlanes.h"

#include "tests/raster/DecodedPages.h"
#include "tests/raster/DrawnPage.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <zstd.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using test::bandOf;
using test::DrawnPage;
using test::jobHeaders;
using test::markedPage;
using test::pageHeader;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr Plane everyPlane[] = {black, yellow, magenta, cyan};
constexpr CompressMode everyMode[] = {CompressMode::raw, CompressMode::zstd};
const std::string endOfJob = "JIDG";

/// The page's dots by lines, as text: a digit for the mix of each dot, in hexadecimal.
std::string shown(const PagePlanes &planes) {
    if (planes.width() * planes.height() > 100'000) {
        return "large";
    }
    std::string text;
    for (std::uint32_t line = 0; line < planes.height(); ++line) {
        for (std::uint32_t dot = 0; dot < planes.width(); ++dot) {
            unsigned mix = 0;
            for (const auto &[plane, bit] : {std::pair(black, 1U), {yellow, 2U}, {magenta, 4U}, {cyan, 8U}}) {
                const auto row = planes.row(plane, line);
                if (!row.empty() && (std::to_integer<unsigned>(row[dot / 8]) & 0x80U >> dot % 8) != 0) {
                    mix |= bit;
                }
            }
            text += "0123456789abcdef"[mix];
        }
        text += '\n';
    }
    return text;
}

std::string shown(const DrawnPage &page, unsigned fromLine = 0, unsigned toLine = 0x10000) {
    std::string text;
    for (unsigned line = 0; line < page.lines; ++line) {
        for (unsigned dot = 0; dot < page.dots; ++dot) {
            text += "0123456789abcdef"[line >= fromLine && line < toLine ? page.mixAt(dot, line) : 0];
        }
        text += '\n';
    }
    return text;
}

struct Decoded {
    std::vector<std::string> pages; ///< "" for one that cannot be shown
    std::vector<std::uint32_t> linesBegun;
    std::vector<std::string> problems; ///< as "name at offset"
    std::vector<std::string> texts;
};

Decoded decoded(const std::string &stream, std::size_t pieceSize = SIZE_MAX) {
    Decoded result;
    PagePlanes planes([&result](const PageProblemFound &found) {
        result.problems.push_back(nameOf(found.problem) + std::string(" at ") + std::to_string(found.offset));
        result.texts.push_back(found.text);
    });
    test::decodePages(
        stream, planes,
        [&](const PageRead &) {
            result.pages.push_back(planes.isDecodable() ? shown(planes) : "");
            result.linesBegun.push_back(planes.linesBegun());
        },
        pieceSize);
    return result;
}

TEST(PagePlanes, HaveEveryDotInItsPlace) {
    const DrawnPage drawn = markedPage(101, 300);
    for (const CompressMode mode : everyMode) {
        const std::string stream = jobHeaders(mode) + drawn.page(mode) + endOfJob;
        for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{7}, std::size_t{1000}, SIZE_MAX}) {
            const Decoded result = decoded(stream, pieceSize);
            EXPECT_THAT(result.problems, IsEmpty());
            EXPECT_THAT(result.pages, ElementsAre(shown(drawn)));
            EXPECT_THAT(result.linesBegun, ElementsAre(300));
        }
    }
}

TEST(PagePlanes, AreThoseOfTheJobsResolutionAndThePagesSize) {
    const std::string stream =
        jobHeaders(CompressMode::raw, 1200) + markedPage(64, 32).page(CompressMode::raw);
    PagePlanes planes([](const PageProblemFound &) {});
    test::decodePages(stream, planes, [&](const PageRead &) {
        EXPECT_TRUE(planes.isDecodable());
        EXPECT_EQ(planes.width(), 64U);
        EXPECT_EQ(planes.height(), 32U);
        EXPECT_EQ(planes.resolution(), 1200U);
    });
    EXPECT_EQ(planes.height(), 32U);
}

TEST(PagePlanes, FollowOneAnotherWithoutATrace) {
    const CompressMode mode = CompressMode::zstd;
    const DrawnPage first = markedPage(200, 200);
    const DrawnPage blank(80, 40);
    const DrawnPage small = markedPage(48, 24);
    const Decoded result =
        decoded(jobHeaders(mode) + first.page(mode) + blank.page(mode) + small.page(mode) + endOfJob);
    EXPECT_THAT(result.problems, IsEmpty());
    EXPECT_THAT(result.pages, ElementsAre(shown(first), shown(blank), shown(small)));
}

TEST(PagePlanes, TakeNothingForAPlaneWithoutInk) {
    DrawnPage drawn(40, 20);
    drawn.draw(magenta, 3, 3);
    PagePlanes planes([](const PageProblemFound &) { FAIL(); });
    test::decodePages(jobHeaders(CompressMode::raw) + drawn.page(CompressMode::raw), planes,
                      [&](const PageRead &) {
                          for (const Plane plane : everyPlane) {
                              EXPECT_EQ(planes.hasInk(plane), plane == magenta);
                              EXPECT_EQ(planes.row(plane, 3).empty(), plane != magenta);
                          }
                      });
}

TEST(PagePlanes, HaveABandThatIsNarrowerAtTheirLeft) {
    for (const CompressMode mode : everyMode) {
        for (const std::uint16_t dots : {std::uint16_t{40}, std::uint16_t{43}, std::uint16_t{97}}) {
            DrawnPage narrow = markedPage(dots, 30);
            DrawnPage wide(100, 30);
            for (const Plane plane : everyPlane) {
                for (unsigned y = 0; y < 30; ++y) {
                    for (unsigned x = 0; x < dots; ++x) {
                        if (narrow.at(plane, x, y)) {
                            wide.draw(plane, x, y);
                        }
                    }
                    // What fills up a row is no ink, whatever stands there.
                    if (dots % 8 != 0) {
                        narrow.planes[plane][(y + 1) * rowBytes(dots) - 1] |= std::byte{1};
                    }
                }
            }
            std::string stream = jobHeaders(mode) + pageHeader(100, 30);
            for (const std::string &band : narrow.bands(mode, 16)) {
                stream += band;
            }
            const Decoded result = decoded(stream + endOfJob);
            EXPECT_THAT(result.problems, IsEmpty());
            EXPECT_THAT(result.pages, ElementsAre(shown(wide)));
        }
    }
}

TEST(PagePlanes, AreNotThereForAPageWithoutSizeOrTooLarge) {
    for (const auto &[dots, lines, problem] :
         {std::tuple(0, 10, "page-without-size at 272"), std::tuple(10, 0, "page-without-size at 272"),
          std::tuple(65535, 65535, "page-too-large at 272"),
          std::tuple(8193, 65535, "page-too-large at 272")}) {
        const DrawnPage drawn = markedPage(40, 20);
        std::string stream = jobHeaders(CompressMode::raw) +
                             pageHeader(static_cast<std::uint16_t>(dots), static_cast<std::uint16_t>(lines));
        for (const std::string &band : drawn.bands(CompressMode::raw)) {
            stream += band;
        }
        const Decoded result = decoded(stream + endOfJob);
        EXPECT_THAT(result.problems, ElementsAre(problem));
        EXPECT_THAT(result.pages, ElementsAre(""));
    }
    EXPECT_THAT(decoded(jobHeaders(CompressMode::raw) + pageHeader(65535, 65535) + endOfJob).texts,
                ElementsAre("a page of 65535 x 65535 dots is too large to be decoded"));
}

/// The largest page, in one band without ink.
std::string hugePage() {
    return pageHeader(8192, 65535) + bandOf(8192, 65535, {}, true);
}

TEST(PagePlanes, AreNoMoreThanSoFewBytesTellOf) {
    std::string stream = jobHeaders(CompressMode::zstd);
    for (int page = 0; page < 10; ++page) {
        stream += hugePage();
    }
    const DrawnPage drawn = markedPage(40, 20);
    stream += drawn.page(CompressMode::zstd) + endOfJob;
    const Decoded result = decoded(stream);
    EXPECT_THAT(result.problems, ElementsAre("too-many-dots at 1040", "too-many-dots at 1136"));
    EXPECT_EQ(result.texts[0], "a page of 8192 x 65535 dots is too much: the pages before it had more dots "
                               "already than so few bytes tell of");
    ASSERT_EQ(result.pages.size(), 11U);
    EXPECT_EQ(result.pages[7], "large");
    EXPECT_EQ(result.pages[8], "");
    EXPECT_EQ(result.pages[10], shown(drawn)) << "a small one";
}

TEST(PagePlanes, AreThoseOfEachStreamByItself) {
    std::vector<std::string> problems;
    PagePlanes planes([&problems](const PageProblemFound &found) { problems.push_back(found.text); });
    std::string stream = jobHeaders(CompressMode::zstd);
    for (int page = 0; page < 8; ++page) {
        stream += hugePage();
    }
    for (int time = 0; time < 3; ++time) {
        planes.beginStream();
        test::decodePages(
            stream + endOfJob, planes, [](const PageRead &) {}, SIZE_MAX);
    }
    EXPECT_THAT(problems, IsEmpty());
}

TEST(MostDots, AreEnoughForAnyNumberOfBlankPages) {
    struct Paper {
        std::uint64_t dots;
        std::uint64_t lines;
    };

    constexpr std::uint64_t linesPerBand = 128;
    for (const Paper &paper :
         {Paper{4961, 7016}, Paper{7016, 9921}, Paper{9921, 14031}, Paper{14031, 19843}}) {
        const std::uint64_t bands = (paper.lines + linesPerBand - 1) / linesPerBand;
        const std::uint64_t bytes = sizeof(PageHeader) + bands * sizeof(BandHeader);
        for (std::uint64_t page = 0; page < 100'000; page += 99) {
            ASSERT_LE((page + 1) * paper.dots * paper.lines, mostDotsUntil(272 + page * bytes)) << page;
        }
    }
}

TEST(MostDots, AreBoundedAndDoNotOverflow) {
    EXPECT_EQ(mostDotsUntil(0), std::uint64_t{1} << 32);
    EXPECT_EQ(mostDotsUntil(1'000'000), (std::uint64_t{1} << 32) + 65'536'000'000);
    EXPECT_GE(mostDotsUntil(UINT64_MAX), mostDotsUntil(UINT64_MAX >> 17));
}

TEST(PagePlanes, LeaveOutABandBeyondThePage) {
    const CompressMode mode = CompressMode::zstd;
    const DrawnPage drawn = markedPage(48, 40);
    const std::vector<std::string> bands = drawn.bands(mode, 20);
    const std::string begin = jobHeaders(mode) + pageHeader(48, 40) + bands[0];
    const std::string at = std::to_string(begin.size());

    const std::string wide = markedPage(49, 20).bands(mode)[0];
    Decoded result = decoded(begin + wide + endOfJob);
    EXPECT_THAT(result.problems, ElementsAre("band-too-wide at " + at));
    EXPECT_THAT(result.texts, ElementsAre("a band of 49 dots a line, in a page of 48"));
    EXPECT_THAT(result.pages, ElementsAre(shown(drawn, 0, 20)));

    const std::string high = markedPage(48, 21).bands(mode)[0];
    result = decoded(begin + high + endOfJob);
    EXPECT_THAT(result.problems, ElementsAre("band-too-low at " + at));
    EXPECT_THAT(result.texts, ElementsAre("a band reaches to line 41 of a page of 40"));
    EXPECT_THAT(result.pages, ElementsAre(shown(drawn, 0, 20)));
}

TEST(PagePlanes, TellWhichLinesNeverCame) {
    const CompressMode mode = CompressMode::raw;
    const DrawnPage drawn = markedPage(48, 40);
    DrawnPage upper(48, 30);
    for (const Plane plane : everyPlane) {
        std::copy_n(drawn.planes[plane].begin(), upper.planes[plane].size(), upper.planes[plane].begin());
    }
    std::string stream = jobHeaders(mode) + pageHeader(48, 40);
    for (const std::string &band : upper.bands(mode, 10)) {
        stream += band;
    }
    const Decoded result = decoded(stream + endOfJob);
    EXPECT_THAT(result.problems, ElementsAre("lines-missing at 272"));
    EXPECT_THAT(result.texts, ElementsAre("the page's bands end at line 30 of 40"));
    EXPECT_THAT(result.pages, ElementsAre(shown(drawn, 0, 30)));
}

TEST(PagePlanes, AreThereAsFarAsTheyCame) {
    const DrawnPage drawn = markedPage(48, 40);
    for (const CompressMode mode : everyMode) {
        const std::vector<std::string> bands = drawn.bands(mode, 10);
        const std::string begin = jobHeaders(mode) + pageHeader(48, 40) + bands[0] + bands[1];
        // The reader of the stream tells that the page is not complete.
        for (const std::string &rest : {std::string(), bands[2].substr(0, 20), bands[2].substr(0, 33)}) {
            const Decoded result = decoded(begin + rest);
            EXPECT_THAT(result.problems, IsEmpty());
            EXPECT_THAT(result.pages, ElementsAre(shown(drawn, 0, 20)));
        }
        const Decoded missingEnd = decoded(begin + drawn.page(mode) + endOfJob);
        EXPECT_THAT(missingEnd.pages, ElementsAre(shown(drawn, 0, 20), shown(drawn)));
    }
}

TEST(PagePlanes, GoOnBehindAPlaneThatCannotBeDecoded) {
    const DrawnPage drawn = markedPage(48, 30);
    for (const CompressMode mode : everyMode) {
        std::string stream = jobHeaders(mode) + pageHeader(48, 30);
        const std::array<std::string, 4> rubbish = {"rubbish", "", "", "more rubbish"};
        const std::size_t at = stream.size() + sizeof(BandHeader);
        const std::vector<std::string> bands = drawn.bands(mode, 10);
        stream += bandOf(48, 10, rubbish, false) + bands[1] + bands[2];
        const Decoded result = decoded(stream + endOfJob);
        EXPECT_THAT(result.problems, ElementsAre("damaged-plane at " + std::to_string(at),
                                                 "damaged-plane at " + std::to_string(at + 7)));
        const char *const what =
            mode == CompressMode::raw ? "ends before its last row" : "is no compressed plane";
        EXPECT_THAT(result.texts, ElementsAre(std::string("the black plane of lines 0 to 10 ") + what,
                                              std::string("the cyan plane of lines 0 to 10 ") + what));
        EXPECT_THAT(result.pages, ElementsAre(shown(drawn, 10)));
    }
}

TEST(PagePlanes, AreNotGuessedAtInAnUnknownMode) {
    const DrawnPage drawn = markedPage(48, 30);
    std::string stream = jobHeaders(std::uint16_t{7}) + drawn.page(CompressMode::raw, 10);
    Decoded result = decoded(stream + endOfJob);
    const std::string at = std::to_string(272 + sizeof(PageHeader) + sizeof(BandHeader));
    EXPECT_THAT(result.problems, ElementsAre("unknown-compress-mode at " + at));
    EXPECT_THAT(result.texts, ElementsAre("planes compressed in an unknown way, 7"));
    EXPECT_THAT(result.pages, ElementsAre(shown(DrawnPage(48, 30))));
    // Without ink there is nothing to guess.
    stream = jobHeaders(std::uint16_t{7}) + DrawnPage(48, 30).page(CompressMode::raw);
    result = decoded(stream + endOfJob);
    EXPECT_THAT(result.problems, IsEmpty());
}

TEST(PagePlanes, RefuseAFrameThatUnpacksToMoreThanItsBand) {
    const std::vector<char> same(50'000'000, '\1');
    std::string bomb(ZSTD_compressBound(same.size()), '\0');
    bomb.resize(ZSTD_compress(bomb.data(), bomb.size(), same.data(), same.size(), 3));
    ASSERT_LT(bomb.size(), 10'000U);
    const Decoded result = decoded(jobHeaders(CompressMode::zstd) + pageHeader(48, 30) +
                                   bandOf(48, 30, {bomb, "", "", ""}, true) + endOfJob);
    ASSERT_EQ(result.problems.size(), 1U);
    EXPECT_THAT(result.pages, ElementsAre(shown(DrawnPage(48, 30))));
}

TEST(PagePlanes, DoNotEvenKeepAPlaneThatIsTooLong) {
    const std::string plane(100'000, '\1');
    for (const CompressMode mode : everyMode) {
        const Decoded result = decoded(jobHeaders(mode) + pageHeader(48, 30) +
                                       bandOf(48, 30, {"", plane, "", ""}, true) + endOfJob);
        EXPECT_THAT(result.texts,
                    ElementsAre("the yellow plane of lines 0 to 30 has more rows than its band"));
        EXPECT_THAT(result.pages, ElementsAre(shown(DrawnPage(48, 30))));
    }
}

TEST(PagePlanes, LeaveOutBandsOutsideAPage) {
    const DrawnPage drawn = markedPage(48, 30);
    const CompressMode mode = CompressMode::raw;
    const Decoded result =
        decoded(jobHeaders(mode) + drawn.bands(mode)[0] + drawn.page(mode) + drawn.bands(mode)[0] + endOfJob);
    EXPECT_THAT(result.problems, IsEmpty());
    EXPECT_THAT(result.pages, ElementsAre(shown(drawn)));
}

TEST(PagePlanes, SurviveAnyDamage) {
    const DrawnPage drawn = markedPage(101, 60);
    std::size_t problems = 0;
    std::size_t pages = 0;
    for (std::uint32_t seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        const CompressMode mode = everyMode[seed % 2];
        std::string stream = jobHeaders(mode) + drawn.page(mode, 16) + drawn.page(mode, 25) + endOfJob;
        for (std::uint32_t times = 1 + random() % 4; times > 0; --times) {
            // Headers are where it is worth it.
            const std::size_t at = random() % (seed % 3 == 0 ? 500 : stream.size());
            stream[at] = static_cast<char>(random() % 4 == 0 ? 0xFFU : random());
        }
        const Decoded result = decoded(stream);
        for (const std::string &page : result.pages) {
            pages += page.empty() ? 0U : 1U;
        }
        problems += result.problems.size();
        ASSERT_EQ(decoded(stream, 100).pages, result.pages);
        ASSERT_EQ(decoded(stream, 100).problems, result.problems);
    }
    EXPECT_GT(problems, 100U);
    EXPECT_GT(pages, 450U);
}

} // namespace
} // namespace veltrin::raster
