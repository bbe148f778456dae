#include "driver/stream/ForeignFormat.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace veltrin {
namespace {

using namespace std::string_literals;

std::optional<std::string> formatOf(const std::string &input) {
    return foreignFormat(std::as_bytes(std::span(input)));
}

struct Example {
    std::string input;
    std::string text;
};

TEST(ForeignFormat, IsNamedWithWhatToDo) {
    const std::string rendered = ", not a page stream: it has to be rendered first";
    const std::string converted =
        ", not a page stream: it has to be turned into the printer's own format first";
    const std::string pjl =
        "this is a PJL job, not a page stream: its page stream, if it has one, begins behind "
        "the PJL lines";
    const std::string html =
        "this is an HTML page, not a page stream: perhaps a server's error page, saved in "
        "place of the stream";
    const Example examples[] = {
        {"%PDF-1.7\n%\xE2\xE3\xCF\xD3\n", "this is a PDF document" + rendered},
        {"\r\n %PDF-1.4", "this is a PDF document" + rendered},
        {"\xEF\xBB\xBF%PDF-1.4", "this is a PDF document" + rendered},
        {"%!PS-Adobe-3.0\n", "this is a PostScript document" + rendered},
        {"\x04%!PS-Adobe-3.0\n", "this is a PostScript document" + rendered},
        {"\xC5\xD0\xD3\xC6\x1E\0\0\0"s, "this is a PostScript document" + rendered},
        {"\x1B%-12345X@PJL JOB\r\n", pjl},
        {"@PJL ENTER LANGUAGE=X\r\n", pjl},
        {"RaSt\0\0"s, "this is CUPS raster (version 1, big-endian)" + converted},
        {"tSaR\0\0"s, "this is CUPS raster (version 1, little-endian)" + converted},
        {"RaS2PwgRaster\0"s, "this is CUPS or PWG raster (version 2, big-endian)" + converted},
        {"2SaR\0\0"s, "this is CUPS raster (version 2, little-endian)" + converted},
        {"RaS3\0\0"s, "this is CUPS raster (version 3, big-endian)" + converted},
        {"3SaR\0\0"s, "this is CUPS raster (version 3, little-endian)" + converted},
        {"\x1F\x8B\x08\0"s, "this is gzip data, not a page stream: unpack it with gunzip first"},
        {"PK\x03\x04\x14\0"s, "this is a ZIP archive or an office document, not a page stream: it has to be "
                              "unpacked or rendered first"},
        {"\x89PNG\r\n\x1A\n\0\0"s, "this is a PNG image" + rendered},
        {"\xFF\xD8\xFF\xE0\0\x10JFIF"s, "this is a JPEG image" + rendered},
        {"<!DOCTYPE html>\n<title>404", html},
        {"\n  <HTML><body>", html},
        {"<head>", html},
        {"<Body>", html},
        {"\xEF\xBB\xBF<html>", html},
        {"Dear all,\r\n\tmany thanks\n", "this is plain text" + rendered},
        {"Gr\xC3\xBC\xC3\x9F"
         "e an alle",
         "this is plain text" + rendered},
        {"\n", "this is plain text" + rendered},
        {"<table>\n", "this is plain text" + rendered},
    };
    for (const Example &example : examples) {
        EXPECT_EQ(formatOf(example.input), example.text) << testing::PrintToString(example.input);
    }
}

TEST(ForeignFormat, IsNothingThatCouldBeAPageStream) {
    const std::string inputs[] = {
        "",
        "00000000-0000-4000-8000-000000000000",
        "00000000-0000-4000-8000-000000000000GDIX",
        "GDIJ\0\0\0\x78"s,
        "a word\0and more"s,
        "a word \x7F",
        "a word \x01",
        "%PD",
        "\x1F",
        "<htm",
        "\x89PNG"s,
        "X%PDF-1.7",
    };
    for (const std::string &input : inputs) {
        EXPECT_EQ(formatOf(input), std::nullopt) << testing::PrintToString(input);
    }
}

TEST(ForeignFormat, GoesByTheBeginningOnly) {
    EXPECT_NE(formatOf(std::string(foreignFormatBytes, ' ') + '\0'), std::nullopt);
    EXPECT_EQ(formatOf(std::string(foreignFormatBytes - 1, ' ') + '\0'), std::nullopt);
}

} // namespace
} // namespace veltrin
