#include "raster/JobTicket.h"

#include "filter/DuplexPaperRule.h"
#include "filter/OptionValues.h"
#include "status/MediaNames.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>
#include <vector>

namespace veltrin::raster {

namespace {

struct Keyword {
    std::string_view keyword;
    std::string_view name;
};

/// The standard keywords of "media-type" for the PPD's types of paper.
constexpr auto typeKeywords = std::to_array<Keyword>({
    {"stationery", "Plain"},
    {"stationery-lightweight", "Thin"},
    {"stationery-heavyweight", "Plain90"},
    {"stationery-recycled", "Recycled"},
    {"stationery-colored", "Color"},
    {"stationery-letterhead", "Letterhead"},
    {"stationery-preprinted", "Preprinted"},
    {"stationery-prepunched", "Prepunched"},
    {"stationery-bond", "Bond"},
    {"cardstock", "Cardstock"},
    {"labels", "Labels"},
    {"envelope", "Envelope"},
});

constexpr auto typeNames = std::to_array<std::string_view>(
    {"Plain", "Plain90", "Thin", "Thick", "Thick160", "Recycled", "Color", "Letterhead", "Preprinted",
     "Prepunched", "Bond", "Cardstock", "Labels", "Envelope"});

/// The standard keywords of "media-source" for the PPD's trays.
constexpr auto sourceKeywords = std::to_array<Keyword>({
    {"main", "Tray1"},
    {"tray-1", "Tray1"},
    {"tray-2", "Tray2"},
    {"by-pass-tray", "Bypass"},
    {"manual", "Bypass"},
});

constexpr auto sourceNames = std::to_array<std::string_view>({"Tray1", "Tray2", "Bypass"});

/// The PPD's name for a standard keyword, or for itself in another case.
std::optional<std::string> ppdName(std::string_view value, std::span<const Keyword> keywords,
                                   std::span<const std::string_view> names) {
    for (const Keyword &keyword : keywords) {
        if (equalIgnoringCase(keyword.keyword, value)) {
            return std::string(keyword.name);
        }
    }
    for (const std::string_view name : names) {
        if (equalIgnoringCase(name, value)) {
            return std::string(name);
        }
    }
    return std::nullopt;
}

std::optional<std::string> typeNamed(std::string_view value) {
    return ppdName(value, typeKeywords, typeNames);
}

std::optional<std::string> sourceNamed(std::string_view value) {
    return ppdName(value, sourceKeywords, sourceNames);
}

/// The keywords of a list such as "A5,Tray1".
std::vector<std::string_view> keywordsOf(std::string_view list) {
    std::vector<std::string_view> keywords;
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(','), list.size());
        keywords.push_back(list.substr(0, end));
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return keywords;
}

/// The first of the keywords of the job's "media" that `named` knows.
template <typename Named>
std::optional<std::string> inMedia(const JobOptions &options, Named named) {
    const std::string media = options.find("media").value_or("");
    for (const std::string_view keyword : keywordsOf(media)) {
        if (auto name = named(keyword)) {
            return name;
        }
    }
    return std::nullopt;
}

bool isCollated(const JobOptions &options, const PPDChoices &choices) {
    if (choices.collate) {
        return booleanValue(*choices.collate);
    }
    if (const auto collate = options.find("Collate")) {
        return booleanValue(*collate);
    }
    const auto handling = options.find("multiple-document-handling");
    return handling && *handling != "separate-documents-uncollated-copies";
}

/// Whether the filters that lay out the pages take the job's copies to be collated. They know nothing of what
/// is chosen in the PPD.
bool asksForCollation(const JobOptions &options) {
    const auto collate = options.find("Collate");
    const auto handling = options.find("multiple-document-handling");
    const bool byName = collate && (booleanValue(*collate) || equalIgnoringCase(*collate, "on"));
    return byName || (handling && *handling != "separate-documents-uncollated-copies");
}

/// Whether the pages come repeated, so that the copies are not ours to make.
bool areCopiesMade(const JobOptions &options, const PPDChoices &choices, const RasterPage &page) {
    const bool knowsCollation = choices.collate && booleanValue(*choices.collate);
    return page.copies <= 1 && (choices.manualCopies || (asksForCollation(options) && !knowsCollation));
}

Sides sidesOf(const RasterPage &page) {
    if (!page.duplex) {
        return Sides::oneSided;
    }
    return page.tumble ? Sides::shortEdge : Sides::longEdge;
}

/// What the job asks for by the PPD's own name of it. CUPS does not mind the case, but the paper rule and the
/// codes go by the letter.
template <typename Named>
std::string namedLike(const std::string &asked, const std::optional<std::string> &chosen, Named named) {
    if (chosen && equalIgnoringCase(*chosen, asked)) {
        return *chosen;
    }
    return named(asked).value_or(asked);
}

std::optional<std::string> notEmpty(std::string value) {
    return value.empty() ? std::nullopt : std::optional(std::move(value));
}

std::optional<std::string> paperTypeOf(const JobOptions &options, const PPDChoices &choices,
                                       const RasterPage &page) {
    if (auto asked = options.find("PaperType")) {
        return namedLike(*asked, choices.paperType, typeNamed);
    }
    if (const auto type = options.find("media-type")) {
        if (auto name = typeNamed(*type)) {
            return name;
        }
    }
    if (auto name = inMedia(options, typeNamed)) {
        return name;
    }
    return choices.paperType ? choices.paperType : notEmpty(page.mediaType);
}

std::optional<std::string> sizeNameOf(const JobOptions &options, const RasterPage &page) {
    const auto name = page.pageSizeName.empty() ? options.find("media") : page.pageSizeName;
    return name ? std::optional(std::string(ownSizeName(*name))) : std::nullopt;
}

std::string inputSlotOf(const JobOptions &options, const PPDChoices &choices) {
    if (auto asked = options.find("InputSlot")) {
        return namedLike(*asked, choices.inputSlot, sourceNamed);
    }
    if (const auto source = options.find("media-source")) {
        if (auto name = sourceNamed(*source)) {
            return *name;
        }
    }
    if (auto name = inMedia(options, sourceNamed)) {
        return *name;
    }
    return choices.inputSlot.value_or("");
}

} // namespace

JobTicket ticketFor(const std::string &copiesArgument, const JobOptions &options, const PPDChoices &choices,
                    const RasterPage &firstPage) {
    JobTicket ticket;
    ticket.media = sizeNameOf(options, firstPage);
    ticket.paperType = paperTypeOf(options, choices, firstPage);
    ticket.inputSlot = inputSlotOf(options, choices);
    ticket.sides = sidesOf(firstPage);
    if (!areCopiesMade(options, choices, firstPage)) {
        ticket.layout.copies = static_cast<std::uint32_t>(std::max(integerValue(copiesArgument), 1));
    }
    ticket.layout.collate = isCollated(options, choices);
    ticket.layout.twoSided =
        ticket.sides != Sides::oneSided && canDuplexPaper(ticket.media, ticket.paperType);
    return ticket;
}

} // namespace veltrin::raster
