// The text of a job's options. The input: a byte for what else the job says, a line for the copies' argument
// and the text.

#include "filter/DuplexPaperRule.h"
#include "filter/OptionValues.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "raster/FilterOptions.h"
#include "raster/HeaderFields.h"
#include "raster/JobOptions.h"
#include "raster/JobTicket.h"
#include "raster/RasterPage.h"
#include "tests/raster/RasterHeaders.h"

#include <cups/cups.h>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::fuzz {

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

/// What the library reads in the text.
Pairs parsed(const std::string &text) {
    cups_option_t *options = nullptr;
    const int count = cupsParseOptions(text.c_str(), 0, &options);
    Pairs pairs;
    for (int i = 0; i < count; ++i) {
        pairs.emplace_back(options[i].name, options[i].value != nullptr ? options[i].value : "");
    }
    cupsFreeOptions(count, options);
    return pairs;
}

raster::RasterPage somePage(bool isTwoSided, const char *size) {
    cups_page_header2_t header = test::rasterHeader(100);
    header.Duplex = isTwoSided ? CUPS_TRUE : CUPS_FALSE;
    std::snprintf(header.cupsPageSizeName, sizeof header.cupsPageSizeName, "%s", size);
    std::string problem;
    const auto page = raster::rasterPageFrom(header, problem);
    require(page.has_value(), "an ordinary page can be printed");
    return *page;
}

/// As the filter looks for it: the name's case counts.
std::optional<std::string> valueIn(const Pairs &options, const std::string &name) {
    const auto found = std::find_if(options.begin(), options.end(),
                                    [&name](const auto &option) { return option.first == name; });
    return found != options.end() ? std::optional(found->second) : std::nullopt;
}

std::string settingIn(const Pairs &options, const std::string &name) {
    return valueIn(options, "com.apple.print.PrintSettings." + name).value_or("");
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t switches = input.byte();
    const std::string copies = input.line();
    const std::string text = input.remainingText();
    if (text.find('\0') != std::string::npos || copies.find('\0') != std::string::npos) {
        return 0;
    }
    const raster::JobOptions options(text);
    require(options.all() == parsed(text), "the options are those that every filter reads");
    const raster::JobOptions again(options.text());
    require(again.all() == options.all(), "options that are written down are read as the same");

    raster::PPDChoices choices;
    choices.manualCopies = (switches & 1U) != 0;
    if ((switches & 2U) != 0) {
        choices.collate = (switches & 4U) != 0 ? "True" : "False";
    }
    const raster::JobTicket ticket = raster::ticketFor(
        copies, options, choices, somePage((switches & 8U) != 0, (switches & 16U) != 0 ? "A5" : "A4"));
    require(ticket.layout.copies >= 1, "a job has a copy");

    // The filter reads in its own options what the renderer goes by.
    const Pairs passed = parsed(raster::filterOptions(options, ticket).text());
    require(static_cast<std::uint32_t>(integerValue(settingIn(passed, "PMCopies..n."))) ==
                ticket.layout.copies,
            "the filter is told the copies");
    require(booleanValue(settingIn(passed, "PMCopyCollate..b.")) == ticket.layout.collate,
            "the filter is told whether they are collated");
    const std::int32_t sides = integerValue(settingIn(passed, "PMDuplexing..n."));
    const bool isTwoSided =
        (sides == 2 || sides == 3) && canDuplexPaper(valueIn(passed, "media"), valueIn(passed, "PaperType"));
    require(isTwoSided == ticket.layout.twoSided, "filter and renderer agree on the sides");
    require(raster::identifierFor(options, "17").size() == 36, "an identifier has 36 characters");
    return 0;
}
