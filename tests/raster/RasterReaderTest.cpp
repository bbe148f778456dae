#include "raster/RasterReader.h"

#include "tests/support/PeakMemory.h"
#include "tests/support/RasterForms.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace veltrin::raster {
namespace {

using test::everyForm;
using test::FormedRaster;
using test::RasterSheet;
using testing::AnyOf;
using testing::ElementsAre;
using testing::Eq;
using testing::IsEmpty;
using testing::StartsWith;

/// A page of 40 x 30 points and 20 x 12 dots, some of whose lines are the same and some of whose dots are.
RasterSheet smallPage(std::uint32_t number) {
    cups_page_header2_t header{};
    header.HWResolution[0] = header.HWResolution[1] = 72;
    header.PageSize[0] = 40;
    header.PageSize[1] = 30;
    header.cupsPageSize[0] = 40;
    header.cupsPageSize[1] = 30;
    header.cupsWidth = 20;
    header.cupsHeight = 12;
    header.cupsBitsPerColor = 8;
    header.cupsBitsPerPixel = 24;
    header.cupsBytesPerLine = 60;
    header.cupsNumColors = 3;
    header.cupsColorSpace = CUPS_CSPACE_SRGB;
    return {header, [number](std::uint32_t line, std::span<std::uint8_t> dots) {
                for (std::size_t at = 0; at < dots.size(); ++at) {
                    const std::size_t dot = at / 3;
                    dots[at] = static_cast<std::uint8_t>(
                        dot < 8 ? number : std::size_t{31} * (line / 3) + 7 * dot + at);
                }
            }};
}

/// A pipe out of which this text comes, in pieces of so many bytes.
class TextPipe {
  public:
    explicit TextPipe(const std::string &text, std::size_t pieceSize = SIZE_MAX) {
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
        writer = std::thread([this, text, pieceSize] {
            for (std::size_t at = 0; at < text.size();) {
                const ssize_t wrote = write(ends[1], text.data() + at, std::min(pieceSize, text.size() - at));
                if (wrote <= 0) {
                    break;
                }
                at += static_cast<std::size_t>(wrote);
            }
            close(ends[1]);
        });
    }

    TextPipe(const TextPipe &) = delete;
    TextPipe &operator=(const TextPipe &) = delete;

    ~TextPipe() {
        std::array<char, 4096> rest;
        while (read(ends[0], rest.data(), rest.size()) > 0) {
        }
        writer.join();
        close(ends[0]);
    }

    [[nodiscard]] int descriptor() const { return ends[0]; }

  private:
    std::array<int, 2> ends{-1, -1};
    std::thread writer;
};

/// A file with this text.
class TextFile {
  public:
    explicit TextFile(const std::string &text) : fd(memfd_create("raster", MFD_CLOEXEC)) {
        EXPECT_EQ(pwrite(fd, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
    }

    TextFile(const TextFile &) = delete;
    TextFile &operator=(const TextFile &) = delete;

    ~TextFile() { close(fd); }

    [[nodiscard]] int descriptor() const { return fd; }

  private:
    int fd;
};

/// What a reader makes of a raster, to its end.
struct Reading {
    std::vector<std::vector<std::uint8_t>> pages; ///< the dots of those that are whole
    std::string problem;                          ///< empty where it ended as it should
};

Reading readingOf(int fd) {
    Reading reading;
    RasterReader reader(fd);
    RasterReader::Result result = reader.nextPage();
    while (result == RasterReader::Result::page) {
        const RasterPage page = reader.page();
        std::vector<std::uint8_t> dots;
        std::vector<std::uint8_t> line(page.bytesPerLine);
        for (std::uint32_t at = 0; at < page.box.lines; ++at) {
            if (!reader.readLine(line)) {
                reading.problem = reader.problem();
                EXPECT_NE(reading.problem, "");
                return reading;
            }
            dots.insert(dots.end(), line.begin(), line.end());
        }
        reading.pages.push_back(std::move(dots));
        result = reader.nextPage();
    }
    reading.problem = reader.problem();
    EXPECT_EQ(result == RasterReader::Result::failed, !reading.problem.empty());
    return reading;
}

std::vector<std::uint8_t> dotsOf(const RasterSheet &page) {
    std::vector<std::uint8_t> dots;
    std::vector<std::uint8_t> line(page.header.cupsBytesPerLine);
    for (std::uint32_t at = 0; at < page.header.cupsHeight; ++at) {
        page.paint(at, line);
        dots.insert(dots.end(), line.begin(), line.end());
    }
    return dots;
}

TEST(RasterReader, ReadsEveryForm) {
    for (const FormedRaster &raster : everyForm({smallPage(1), smallPage(2)})) {
        for (const std::size_t pieceSize : {std::size_t{1}, std::size_t{7}, std::size_t{1000}, SIZE_MAX}) {
            const TextPipe pipe(raster.text, pieceSize);
            const Reading reading = readingOf(pipe.descriptor());
            EXPECT_THAT(reading.pages, ElementsAre(dotsOf(smallPage(1)), dotsOf(smallPage(2))))
                << raster.form;
            EXPECT_EQ(reading.problem, "") << raster.form;
        }
    }
}

TEST(RasterReader, ReadsPagesThatAreLargerThanItsRoom) {
    RasterSheet page = smallPage(3);
    page.header.cupsWidth = 5000;
    page.header.cupsHeight = 100;
    page.header.cupsBytesPerLine = 15000;
    for (const FormedRaster &raster : everyForm({page, page})) {
        const TextPipe pipe(raster.text);
        EXPECT_THAT(readingOf(pipe.descriptor()).pages, ElementsAre(dotsOf(page), dotsOf(page)))
            << raster.form;
    }
}

TEST(RasterReader, NoticesEveryCut) {
    for (const FormedRaster &raster : everyForm({smallPage(1), smallPage(2)})) {
        for (std::size_t size = 1; size <= raster.text.size(); ++size) {
            const TextFile file(raster.text.substr(0, size));
            const Reading reading = readingOf(file.descriptor());
            EXPECT_EQ(reading.pages.size(), raster.wholePages(size)) << raster.form << " cut at " << size;
            EXPECT_EQ(reading.problem.empty(), raster.isBetweenPages(size))
                << raster.form << " cut at " << size << ": " << reading.problem;
        }
    }
}

TEST(RasterReader, TellsWhereItsInputEnds) {
    for (const FormedRaster &raster : everyForm({smallPage(1), smallPage(2)})) {
        const auto problemAt = [&raster](std::size_t size) {
            const TextFile file(raster.text.substr(0, size));
            return readingOf(file.descriptor()).problem;
        };
        EXPECT_EQ(problemAt(3), "The document is no CUPS raster.") << raster.form;
        EXPECT_EQ(problemAt(5), "The raster ends in the header of page 1.") << raster.form;
        EXPECT_EQ(problemAt(raster.pageEnds[1] - 1), "The raster ends in the middle of page 1.")
            << raster.form;
        EXPECT_EQ(problemAt(raster.pageEnds[1] + 1), "The raster ends in the header of page 2.")
            << raster.form;
        EXPECT_EQ(problemAt(raster.pageEnds[2] - 1), "The raster ends in the middle of page 2.")
            << raster.form;
    }
}

TEST(RasterReader, TakesWhatFollowsAPageForThePageAfterIt) {
    for (const FormedRaster &raster : everyForm({smallPage(1)})) {
        for (const std::size_t more : {1U, 100U, 420U, 1796U, 5000U}) {
            const TextFile file(raster.text + std::string(more, '\0'));
            const Reading reading = readingOf(file.descriptor());
            EXPECT_EQ(reading.pages.size(), 1U);
            EXPECT_THAT(reading.problem, AnyOf(Eq("The raster ends in the header of page 2."),
                                               Eq("The raster is damaged in the header of page 2."),
                                               StartsWith("The raster has ")))
                << raster.form;
        }
    }
}

TEST(RasterReader, TellsAnInputThatCannotBeRead) {
    const int directory = open("/", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    EXPECT_EQ(readingOf(directory).problem, "The raster cannot be read: Is a directory.");
    close(directory);
}

TEST(RasterReader, GoesOnAfterASignal) {
    struct sigaction action {};

    struct sigaction before {};

    action.sa_handler = [](int) {}; // without SA_RESTART: it ends a read that has read nothing
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    const std::string text = test::rasterText({smallPage(1), smallPage(2)});
    std::thread writer([&text, output = ends[1], reader = pthread_self()] {
        for (const std::string &half : {text.substr(0, text.size() / 2), text.substr(text.size() / 2)}) {
            for (int i = 0; i < 20; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
                pthread_kill(reader, SIGUSR1);
            }
            EXPECT_EQ(write(output, half.data(), half.size()), static_cast<ssize_t>(half.size()));
        }
        close(output);
    });
    const Reading reading = readingOf(ends[0]);
    writer.join();
    close(ends[0]);
    EXPECT_EQ(reading.problem, "");
    EXPECT_THAT(reading.pages, ElementsAre(dotsOf(smallPage(1)), dotsOf(smallPage(2))));
    EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST(RasterReader, RefusesWhatTheLibraryTakesForRasterThough) {
    const std::string text = test::rasterText({smallPage(1)}, CUPS_RASTER_WRITE_APPLE);
    ASSERT_THAT(text, StartsWith("UNIRAST"));
    const TextFile file(text);
    const Reading reading = readingOf(file.descriptor());
    EXPECT_THAT(reading.pages, IsEmpty());
    EXPECT_EQ(reading.problem, "The document is no CUPS raster.");
}

TEST(RasterReader, TakesNoMemoryForSizesThatCannotBe) {
    using Header = cups_page_header2_t;
    constexpr std::size_t little = std::size_t{4} * 1024 * 1024;
    const std::vector<void (*)(Header &)> changes = {
        [](Header &header) { header.cupsWidth = 0xFFFFFFFF; },
        [](Header &header) { header.cupsHeight = 0xFFFFFFFF; },
        [](Header &header) { header.cupsBytesPerLine = 0xFFFFFFF0; },
        [](Header &header) {
            header.cupsWidth = 0x15555550;
            header.cupsBytesPerLine = 0x3FFFFFF0;
        },
        [](Header &header) { header.cupsPageSize[0] = 1e30F; },
    };
    for (const cups_mode_t mode : {CUPS_RASTER_WRITE, CUPS_RASTER_WRITE_COMPRESSED}) {
        for (const auto change : changes) {
            std::string raster = test::rasterText({smallPage(1)}, mode);
            Header header;
            std::memcpy(&header, raster.data() + 4, sizeof header);
            change(header);
            std::memcpy(raster.data() + 4, &header, sizeof header);
            // What follows is no reason to keep more of it.
            raster += std::string(std::size_t{16} * 1024 * 1024, '\x55');
            const TextFile file(raster);
            EXPECT_LT(test::peakMemoryOf([&file] {
                          const Reading reading = readingOf(file.descriptor());
                          EXPECT_THAT(reading.pages, IsEmpty());
                          EXPECT_THAT(reading.problem, StartsWith("The raster"));
                      }),
                      little);
        }
    }
}

/// Damage may go unnoticed where it changes but colours or paper; never does it take a page away.
TEST(RasterReader, NeverLosesAPageToDamageWithoutAWord) {
    for (const FormedRaster &raster : everyForm({smallPage(1), smallPage(2), smallPage(3)})) {
        std::uint32_t random = 1;
        const auto next = [&random] {
            random = random * 1664525 + 1013904223;
            return random >> 8;
        };
        std::size_t problems = 0;
        for (int round = 0; round < 1000; ++round) {
            std::string damaged = raster.text;
            for (std::uint32_t changes = 1 + next() % 3; changes > 0; --changes) {
                char &byte = damaged[next() % damaged.size()];
                byte = static_cast<char>(static_cast<unsigned char>(byte) ^ (1U << next() % 8));
            }
            const TextFile file(damaged);
            const Reading reading = readingOf(file.descriptor());
            problems += reading.problem.empty() ? 0U : 1U;
            EXPECT_TRUE(!reading.problem.empty() || reading.pages.size() == 3)
                << raster.form << ", round " << round;
        }
        EXPECT_GT(problems, 20U) << raster.form;
        EXPECT_LT(problems, 980U) << raster.form;
    }
}

} // namespace
} // namespace veltrin::raster
