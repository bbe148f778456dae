#include "driver/stream/ForeignFormat.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace veltrin {

namespace {

using namespace std::string_view_literals;

constexpr const char *renderFirst = "it has to be rendered first";
constexpr const char *convertFirst = "it has to be turned into the printer's own format first";
constexpr const char *behindPjl = "its page stream, if it has one, begins behind the PJL lines";
constexpr const char *errorPage = "perhaps a server's error page, saved in place of the stream";

struct Format {
    std::string_view beginning;
    const char *name;
    const char *remedy;
};

// clang-format off

// Raster begins with a number in the byte order of the machine that wrote it.
constexpr auto formats = std::to_array<Format>({
    {"%PDF-"sv, "a PDF document", renderFirst},
    {"%!"sv, "a PostScript document", renderFirst},
    {"\x04%!"sv, "a PostScript document", renderFirst},
    {"\xC5\xD0\xD3\xC6"sv, "a PostScript document", renderFirst},
    {"\x1B%-12345X"sv, "a PJL job", behindPjl},
    {"@PJL"sv, "a PJL job", behindPjl},
    {"RaSt"sv, "CUPS raster (version 1, big-endian)", convertFirst},
    {"tSaR"sv, "CUPS raster (version 1, little-endian)", convertFirst},
    {"RaS2"sv, "CUPS or PWG raster (version 2, big-endian)", convertFirst},
    {"2SaR"sv, "CUPS raster (version 2, little-endian)", convertFirst},
    {"RaS3"sv, "CUPS raster (version 3, big-endian)", convertFirst},
    {"3SaR"sv, "CUPS raster (version 3, little-endian)", convertFirst},
    {"\x1F\x8B"sv, "gzip data", "unpack it with gunzip first"},
    {"PK\x03\x04"sv, "a ZIP archive or an office document", "it has to be unpacked or rendered first"},
    {"\x89PNG\r\n\x1A\n"sv, "a PNG image", renderFirst},
    {"\xFF\xD8\xFF"sv, "a JPEG image", renderFirst},
});

// clang-format on

constexpr auto htmlBeginnings =
    std::to_array<std::string_view>({"<!doctype html", "<html", "<head", "<body"});

char smallLetter(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character - 'A' + 'a') : character;
}

bool beginsWithSmallLetters(std::string_view text, std::string_view beginning) {
    return text.size() >= beginning.size() &&
           std::equal(beginning.begin(), beginning.end(), text.begin(),
                      [](char expected, char given) { return expected == smallLetter(given); });
}

bool isBlank(char character) {
    return character == ' ' || (character >= '\t' && character <= '\r');
}

/// The text without a byte-order mark and blanks in front.
std::string_view withoutLead(std::string_view text) {
    if (constexpr auto mark = "\xEF\xBB\xBF"sv; text.starts_with(mark)) {
        text.remove_prefix(mark.size());
    }
    const auto *first = std::find_if_not(text.begin(), text.end(), isBlank);
    return text.substr(static_cast<std::size_t>(first - text.begin()));
}

/// A job identifier is text as well, but one word.
bool isPlainText(std::string_view text) {
    return std::any_of(text.begin(), text.end(), isBlank) &&
           std::all_of(text.begin(), text.end(), [](char character) {
               const auto byte = static_cast<unsigned char>(character);
               return isBlank(character) || (byte >= 0x20 && byte != 0x7F);
           });
}

std::string inWords(const char *name, const char *remedy) {
    return std::string("this is ") + name + ", not a page stream: " + remedy;
}

} // namespace

std::optional<std::string> foreignFormat(std::span<const std::byte> beginning) {
    beginning = beginning.first(std::min(beginning.size(), foreignFormatBytes));
    const std::string text(reinterpret_cast<const char *>(beginning.data()), beginning.size());
    const std::string_view content = withoutLead(text);

    const auto *format = std::find_if(formats.begin(), formats.end(), [&](const Format &candidate) {
        return content.starts_with(candidate.beginning);
    });
    if (format != formats.end()) {
        return inWords(format->name, format->remedy);
    }
    if (std::any_of(htmlBeginnings.begin(), htmlBeginnings.end(),
                    [&](std::string_view candidate) { return beginsWithSmallLetters(content, candidate); })) {
        return inWords("an HTML page", errorPage);
    }
    if (isPlainText(text)) {
        return inWords("plain text", renderFirst);
    }
    return std::nullopt;
}

} // namespace veltrin
