// Pages of A4 at 600 dots per inch through the real renderer: the time that a page takes, and as a yardstick,
// where it is installed, that of Ghostscript for making raster of such a page in the first place.

#include "bench/Child.h"
#include "bench/Inputs.h"
#include "bench/Table.h"

#include <cups/raster.h>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

namespace veltrin::bench {
namespace {

constexpr const char *ghostscript = "/usr/bin/gs";

constexpr unsigned resolution = 600;
constexpr unsigned columns = 4761;
constexpr unsigned lines = 6816;

/// Paints one line of red, green and blue.
using Paint = std::function<void(unsigned line, std::vector<std::uint8_t> &rgb)>;

cups_page_header2_t a4Header() {
    cups_page_header2_t header{};
    header.HWResolution[0] = resolution;
    header.HWResolution[1] = resolution;
    header.cupsPageSize[0] = 595.28F;
    header.cupsPageSize[1] = 841.89F;
    header.cupsImagingBBox[0] = 12;
    header.cupsImagingBBox[3] = 829.89F;
    header.cupsWidth = columns;
    header.cupsHeight = lines;
    header.cupsBitsPerColor = 8;
    header.cupsBitsPerPixel = 24;
    header.cupsBytesPerLine = 3 * columns;
    header.cupsNumColors = 3;
    header.cupsColorSpace = CUPS_CSPACE_SRGB;
    return header;
}

void writeRaster(const std::string &path, unsigned pages, const Paint &paint) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    cups_raster_t *raster = fd != -1 ? cupsRasterOpen(fd, CUPS_RASTER_WRITE) : nullptr;
    bool written = raster != nullptr;
    std::vector<std::uint8_t> rgb(std::size_t{3} * columns);
    for (unsigned page = 0; written && page < pages; ++page) {
        cups_page_header2_t header = a4Header();
        written = cupsRasterWriteHeader2(raster, &header) != 0;
        for (unsigned line = 0; written && line < lines; ++line) {
            paint(line, rgb);
            written =
                cupsRasterWritePixels(raster, rgb.data(), header.cupsBytesPerLine) == header.cupsBytesPerLine;
        }
    }
    cupsRasterClose(raster);
    close(fd);
    if (!written) {
        throw std::runtime_error("cannot write " + path);
    }
}

/// Lines of small black shapes with straight and slanted edges, about as much ink as ten-point text has.
void paintText(unsigned line, std::vector<std::uint8_t> &rgb) {
    std::fill(rgb.begin(), rgb.end(), std::uint8_t{255});
    constexpr unsigned lineHeight = 100;
    constexpr unsigned glyphHeight = 58;
    constexpr unsigned glyphWidth = 42;
    const unsigned row = line / lineHeight;
    const unsigned y = line % lineHeight;
    if (y >= glyphHeight) {
        return;
    }
    for (unsigned glyph = 0; glyph < columns / glyphWidth - 8; ++glyph) {
        const unsigned shape = (row * 7919 + glyph * 104729) >> 3;
        if (shape % 6 == 0) {
            continue; // a space between words
        }
        const auto ink = [&](unsigned x, unsigned width) {
            const std::size_t at = (std::size_t{glyph} * glyphWidth + x) * 3;
            std::fill_n(rgb.begin() + static_cast<std::ptrdiff_t>(at), 3 * width, std::uint8_t{0});
        };
        if (shape % 2 == 0) {
            ink(4, 7); // a stem
        }
        if (shape % 3 == 0) {
            ink(4 + y * 24 / glyphHeight, 7); // a slanted stroke
        }
        if (shape % 5 < 3 && (y < 6 || y > glyphHeight - 7 || y / 6 == 4)) {
            ink(4, 28); // bars
        }
    }
}

/// Soft shades of all colours with a grain, without a white dot.
void paintPhoto(unsigned line, std::vector<std::uint8_t> &rgb) {
    std::uint32_t grain = line * 2654435761U + 1;
    const double down = line / double{lines};
    for (unsigned column = 0; column < columns; ++column) {
        grain = grain * 1664525 + 1013904223;
        const double across = column / double{columns};
        const double shades[3] = {0.5 + 0.4 * std::sin(9 * across + 5 * down),
                                  0.45 + 0.4 * std::cos(7 * down - 3 * across),
                                  0.5 + 0.4 * std::sin(4 * across * down + 2)};
        for (unsigned colour = 0; colour < 3; ++colour) {
            const auto noise = static_cast<double>(grain >> (8 + 6 * colour) & 15U);
            rgb[3 * column + colour] = static_cast<std::uint8_t>(shades[colour] * 235 + noise);
        }
    }
}

constexpr const char *textDocument = R"(%!PS
/Helvetica findfont 10 scalefont setfont
0 1 63 { 800 exch 12 mul sub 20 exch moveto
(The quick brown fox jumps over the lazy dog, and whoever reads all of this line knows every letter that there is in it.) show } for
showpage
)";

constexpr const char *photoDocument = R"(%!PS
12 12 translate 571 818 scale
/row 3720 string def
1240 1754 8 [1240 0 0 -1754 0 1754]
{ 0 1 3719 { row exch dup 7 mul rand 15 and add 255 and put } for row } false 3 colorimage
showpage
)";

class RasterBench {
  public:
    void run() const {
        std::printf("Pages of A4 at %u dpi, best of %d runs; the time of one page in a job of %u.\n\n",
                    resolution, runs, pages);
        printHead("renderer");
        page("text page", paintText, textDocument, "<= 300 ms");
        page("photo page", paintPhoto, photoDocument, "<= 600 ms");
    }

  private:
    static constexpr int runs = 5;
    static constexpr unsigned pages = 2;

    static Measurement render(const std::string &raster, const std::string &copies) {
        return runChild(VELTRIN_RASTER,
                        {"veltrin-raster", "--stream", "1", "user", "title", copies, "collate=true", raster},
                        Sink::pipe, "");
    }

    void page(const std::string &name, const Paint &paint, const char *document, const char *aim) const {
        const std::string raster = directory.file("raster");
        writeRaster(raster, pages, paint);
        const auto renderOnce = [&] { return render(raster, "1").time.count() / pages; };
        const Pair plain = inTurns(runs, renderOnce, [&] {
            return runChild("/bin/cat", {"cat", raster}, Sink::pipe, "").time.count() / pages;
        });
        printRow(name + " / cat of its raster", milliseconds(plain.subject), milliseconds(plain.reference),
                 plain.subject / plain.reference, aim);
        if (access(ghostscript, X_OK) == 0) {
            const std::string source = directory.file("document.ps");
            std::ofstream(source) << document;
            const Pair pair = inTurns(runs, renderOnce, [&] {
                return runChild(ghostscript,
                                {"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-sPAPERSIZE=a4", "-r600",
                                 "-sDEVICE=ppmraw", "-sOutputFile=" + directory.file("page.ppm"), source},
                                Sink::pipe, "")
                    .time.count();
            });
            printRow(name + " / gs", milliseconds(pair.subject), milliseconds(pair.reference),
                     pair.subject / pair.reference, "<= 1.00");
        }
        const auto peakOf = [&](const char *copies) {
            return static_cast<double>(render(raster, copies).peakKibibytes);
        };
        const double single = peakOf("1");
        const double several = peakOf("5");
        printRow(name + ", peak memory, 5 copies / 1 copy", mebibytes(several), mebibytes(single),
                 several / single, "");
    }

    WorkDirectory directory;
};

} // namespace
} // namespace veltrin::bench

int main() {
    try {
        veltrin::bench::RasterBench().run();
    } catch (const std::exception &problem) {
        std::fprintf(stderr, "raster-bench: %s\n", problem.what());
        return 1;
    }
    return 0;
}
