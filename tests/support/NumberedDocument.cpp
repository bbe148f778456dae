#include "tests/support/NumberedDocument.h"

#include <cstddef>
#include <vector>

namespace veltrin::test {

namespace {

constexpr double pageHeight = 842;

std::string rectangle(const Patch &patch) {
    return std::to_string(patch.left) + " " + std::to_string(pageHeight - patch.top - patch.height) + " " +
           std::to_string(patch.width) + " " + std::to_string(patch.height) + " re f\n";
}

/// The drawing of one page.
std::string contentsOf(std::uint32_t number) {
    std::string drawing = "0 g\n";
    for (std::uint32_t bit = 0; bit < numberBits; ++bit) {
        if ((number >> bit & 1U) != 0) {
            drawing += rectangle(barOf(bit));
        }
    }
    return drawing + "1 0 0 rg\n" + rectangle(redPatch);
}

} // namespace

Patch barOf(std::uint32_t bit) {
    return {.left = 100 + 50.0 * bit, .top = 200, .width = 30, .height = 100};
}

std::string numberedPdf(std::uint32_t pages) {
    // Objects 1 and 2 are the catalogue and the list of pages, then each page has itself and its contents.
    std::string kids;
    for (std::uint32_t page = 0; page < pages; ++page) {
        kids += std::to_string(3 + 2 * page) + " 0 R ";
    }
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>",
                                        "<< /Type /Pages /Kids [" + kids + "] /Count " +
                                            std::to_string(pages) + " >>"};
    for (std::uint32_t page = 0; page < pages; ++page) {
        const std::string drawing = contentsOf(page + 1);
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [0 0 595 842] /Resources << >> /Contents " +
                          std::to_string(4 + 2 * page) + " 0 R >>");
        objects.push_back("<< /Length " + std::to_string(drawing.size()) + " >>\nstream\n" + drawing +
                          "endstream");
    }

    std::string pdf = "%PDF-1.4\n";
    std::string table = "xref\n0 " + std::to_string(objects.size() + 1) + "\n0000000000 65535 f \n";
    for (std::size_t i = 0; i < objects.size(); ++i) {
        std::string offset = std::to_string(pdf.size());
        offset.insert(0, 10 - offset.size(), '0');
        table += offset + " 00000 n \n";
        pdf += std::to_string(i + 1) + " 0 obj\n" + objects[i] + "\nendobj\n";
    }
    return pdf + table + "trailer\n<< /Size " + std::to_string(objects.size() + 1) +
           " /Root 1 0 R >>\nstartxref\n" + std::to_string(pdf.size()) + "\n%%EOF\n";
}

} // namespace veltrin::test
