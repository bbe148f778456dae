#include "tests/support/PrintedSheets.h"

#include "tests/support/Files.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>

namespace veltrin::test {

namespace {

constexpr double pointsPerMetre = 72 / 0.0254;
constexpr double halfOfTheLight = 128;

bool isDark(const MeanColour &colour) {
    return colour.red < halfOfTheLight && colour.green < halfOfTheLight && colour.blue < halfOfTheLight;
}

/// Whether there is ink of some kind.
bool hasInk(const MeanColour &colour) {
    return colour.green < halfOfTheLight + halfOfTheLight / 2;
}

std::string nameOf(std::size_t sheet, const char *side) {
    std::array<char, 40> name{};
    std::snprintf(name.data(), name.size(), "sheet-%04zu-%s.png", sheet, side);
    return name.data();
}

std::optional<PrintedSide> sideOf(const std::string &folder, std::size_t sheet, const char *side) {
    const std::string path = folder + "/" + nameOf(sheet, side);
    return std::filesystem::exists(path) ? std::optional<PrintedSide>(path) : std::nullopt;
}

std::string together(const std::string &front, const std::string &back) {
    return back.empty() ? front : front + "/" + back;
}

} // namespace

bool PrintedSide::isBlank() const {
    return std::all_of(picture.rgb.begin(), picture.rgb.end(),
                       [](std::uint8_t light) { return light == 255; });
}

std::uint32_t PrintedSide::dotAt(double points) const {
    return static_cast<std::uint32_t>(std::lround(points * picture.dotsPerMetre / pointsPerMetre));
}

MeanColour PrintedSide::meanIn(const Patch &patch) const {
    const std::uint32_t left = dotAt(patch.left + patch.width / 4);
    const std::uint32_t top = dotAt(patch.top + patch.height / 4);
    const std::uint32_t right = std::min(dotAt(patch.left + patch.width * 3 / 4), picture.width);
    const std::uint32_t bottom = std::min(dotAt(patch.top + patch.height * 3 / 4), picture.height);
    MeanColour mean;
    std::uint32_t dots = 0;
    for (std::uint32_t y = top; y < bottom; ++y) {
        for (std::uint32_t x = left; x < right; ++x) {
            const raster::PictureColour dot = picture.at(x, y);
            mean.red += dot.red;
            mean.green += dot.green;
            mean.blue += dot.blue;
            ++dots;
        }
    }
    EXPECT_GT(dots, 0U) << "the patch is not on the paper";
    return {mean.red / dots, mean.green / dots, mean.blue / dots};
}

std::string PrintedSide::number(const PlaceOnSheet &place) const {
    std::uint32_t number = 0;
    for (std::uint32_t bit = 0; bit < numberBits; ++bit) {
        number |= (isDark(meanIn(place.of(barOf(bit)))) ? 1U : 0U) << bit;
    }
    // The patch is not where it would be on a page that is turned or mirrored.
    if (hasInk(meanIn(place.of(redPatch)))) {
        return std::to_string(number);
    }
    return isBlank() ? "-" : "turned";
}

std::string PrintedSheet::numbers() const {
    return together(front ? front->number() : "none", back ? back->number() : "");
}

std::vector<PrintedSheet> printedSheets(const std::string &folder) {
    std::vector<PrintedSheet> sheets;
    for (std::size_t sheet = 1;; ++sheet) {
        PrintedSheet one = {sideOf(folder, sheet, "front"), sideOf(folder, sheet, "back")};
        if (!one.front && !one.back) {
            return sheets;
        }
        sheets.push_back(std::move(one));
    }
}

std::vector<std::string> numbersOf(const std::vector<PrintedSheet> &sheets) {
    std::vector<std::string> numbers;
    for (const PrintedSheet &sheet : sheets) {
        numbers.push_back(sheet.numbers());
    }
    return numbers;
}

std::vector<std::string> numbersIn(const nlohmann::json &jobReport, std::uint32_t pages) {
    const auto number = [&](const nlohmann::json &place) -> std::string {
        if (place.is_null()) {
            return "";
        }
        const nlohmann::json &page = jobReport.at("pages").at(place.get<std::size_t>());
        const auto shown = page.at("number").get<std::uint32_t>();
        // A blank side has the number after the last page's.
        return shown > pages ? "-" : std::to_string(shown);
    };
    std::vector<std::string> numbers;
    for (const nlohmann::json &sheet : jobReport.at("sheets")) {
        numbers.push_back(together(number(sheet.at("front")), number(sheet.at("back"))));
    }
    return numbers;
}

} // namespace veltrin::test
