#include "tests/support/NumberedDocument.h"

#include <cstddef>
#include <vector>

namespace veltrin::test {

namespace {

constexpr double pageHeight = 842;

} // namespace

std::string rectangle(const Patch &patch) {
    return std::to_string(patch.left) + " " + std::to_string(pageHeight - patch.top - patch.height) + " " +
           std::to_string(patch.width) + " " + std::to_string(patch.height) + " re f\n";
}

Patch barOf(std::uint32_t bit) {
    return {.left = 100 + 50.0 * bit, .top = 200, .width = 30, .height = 100};
}

std::string pdfOf(const std::vector<std::string> &pages, const PdfParts &parts) {
    // Objects 1 and 2 are the catalogue and the list of pages; at the end each page has itself and its
    // contents.
    const std::size_t firstPage = 3 + parts.objects.size();
    std::string kids;
    for (std::size_t page = 0; page < pages.size(); ++page) {
        kids += std::to_string(firstPage + 2 * page) + " 0 R ";
    }
    std::vector<std::string> objects = {"<< /Type /Catalog /Pages 2 0 R >>",
                                        "<< /Type /Pages /Kids [" + kids + "] /Count " +
                                            std::to_string(pages.size()) + " >>"};
    objects.insert(objects.end(), parts.objects.begin(), parts.objects.end());
    for (const std::string &contents : pages) {
        objects.push_back("<< /Type /Page /Parent 2 0 R /MediaBox [" + parts.mediaBox + "] /Resources << " +
                          parts.resources + " >> /Contents " + std::to_string(objects.size() + 2) +
                          " 0 R >>");
        objects.push_back("<< /Length " + std::to_string(contents.size()) + " >>\nstream\n" + contents +
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

std::string numberedDrawing(std::uint32_t number) {
    std::string drawing = "0 g\n";
    for (std::uint32_t bit = 0; bit < numberBits; ++bit) {
        if ((number >> bit & 1U) != 0) {
            drawing += rectangle(barOf(bit));
        }
    }
    return drawing + "1 0 0 rg\n" + rectangle(redPatch);
}

std::string numberedPdf(std::uint32_t pages, const PdfParts &parts) {
    std::vector<std::string> drawings;
    for (std::uint32_t number = 1; number <= pages; ++number) {
        drawings.push_back(numberedDrawing(number));
    }
    return pdfOf(drawings, parts);
}

std::string numberedLetters(std::uint32_t pages) {
    return numberedPdf(pages, {.resources = "", .objects = {}, .mediaBox = "0 50 612 842"});
}

} // namespace veltrin::test
