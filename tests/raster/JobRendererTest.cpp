#include "raster/JobRenderer.h"

#include "tests/support/PeakMemory.h"
#include "tests/support/RasterText.h"
#include "tests/support/StreamPages.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace veltrin::raster {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr std::uint32_t coarse = 75;

/// The planes of a page with as many dots.
constexpr std::size_t pageBytes = planeCount * planeBytes(620, 877);

std::string noisyPages(std::uint32_t pages) {
    std::string raster = test::rasterText({{test::rasterHeader(coarse), test::noise()}});
    const std::string page = raster.substr(4); // behind the sync word
    for (std::uint32_t i = 1; i < pages; ++i) {
        raster += page;
    }
    return raster;
}

/// A job out of one file into another.
class JobRendererTest : public testing::Test {
  protected:
    JobRendererTest()
        : input(memfd_create("raster", MFD_CLOEXEC)), output(memfd_create("stream", MFD_CLOEXEC)) {}

    ~JobRendererTest() override {
        close(input);
        close(output);
    }

    void useRaster(const std::string &raster) const {
        ASSERT_EQ(ftruncate(input, 0), 0);
        ASSERT_EQ(pwrite(input, raster.data(), raster.size(), 0), static_cast<ssize_t>(raster.size()));
        ASSERT_EQ(lseek(input, 0, SEEK_SET), 0);
    }

    /// Renders the raster to its end; what has failed, or nothing.
    [[nodiscard]] std::string problemOf(const JobLayout &layout, int to) {
        RasterReader reader(input);
        if (reader.nextPage() != RasterReader::Result::page) {
            return reader.problem();
        }
        JobTicket ticket;
        ticket.layout = layout;
        JobRenderer renderer(reader, ticket, CompressMode::zstd, to,
                             [this](const std::string &line) { told.push_back(line); });
        const bool rendered = renderer.render(identifierFor(JobOptions(), "1"), {});
        EXPECT_EQ(rendered, renderer.problem().empty());
        return renderer.problem();
    }

    [[nodiscard]] std::string written() const {
        std::string text(static_cast<std::size_t>(lseek(output, 0, SEEK_END)), '\0');
        EXPECT_EQ(pread(output, text.data(), text.size(), 0), static_cast<ssize_t>(text.size()));
        return text;
    }

    const int input;
    const int output;
    std::vector<std::string> told; ///< to the scheduler
};

TEST_F(JobRendererTest, TakesTheMemoryOfOnePage) {
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    const auto peakOf = [&](std::uint32_t pages, const JobLayout &layout) {
        useRaster(noisyPages(pages));
        return test::peakMemoryOf([&] { EXPECT_EQ(problemOf(layout, nowhere), ""); });
    };
    const std::size_t page = peakOf(1, {.copies = 1, .collate = false, .twoSided = false});
    EXPECT_TRUE(page > pageBytes / 2 || !test::memoryIsMeasured) << page;
    // All pages are read, kept, and written once more.
    EXPECT_LT(peakOf(16, {.copies = 2, .collate = true, .twoSided = true}), page + 6 * pageBytes);
    close(nowhere);
}

TEST_F(JobRendererTest, TellsTheSchedulerOfEachPageAndItsCopies) {
    useRaster(noisyPages(2));
    EXPECT_EQ(problemOf({.copies = 3, .collate = true, .twoSided = false}, output), "");
    EXPECT_THAT(told,
                ElementsAre("INFO: Rendering page 1.", "PAGE: 1 3", "INFO: Rendering page 2.", "PAGE: 2 3"));
}

TEST_F(JobRendererTest, PagesThatCannotBeKeptAreAProblem) {
    useRaster(noisyPages(1));
    setenv("TMPDIR", "/proc", 1);
    EXPECT_EQ(problemOf({.copies = 2, .collate = false, .twoSided = false}, output),
              "The rendered pages cannot be kept for the copies: No such file or directory.");
    unsetenv("TMPDIR");
    EXPECT_THAT(test::contentsOf(written()).pages, IsEmpty());
    EXPECT_FALSE(test::contentsOf(written()).endOfJob);
}

} // namespace
} // namespace veltrin::raster
