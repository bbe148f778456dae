#include "fuzz/ExpectedJob.h"

#include "driver/DuplexOrder.h"
#include "driver/PageSelection.h"
#include "driver/SendPlan.h"
#include "filter/DuplexPaperRule.h"
#include "filter/OptionValues.h"
#include "raster/JobOptions.h"

#include <algorithm>
#include <map>
#include <utility>

namespace veltrin::fuzz {

namespace {

constexpr std::size_t identifier = 36;
constexpr std::size_t jobHeader = 120;
constexpr std::size_t extendedJobHeader = 152;
constexpr std::size_t pageHeader = 64;
constexpr std::size_t bandHeader = 32;

constexpr std::size_t jobSettingOffset = 16;
constexpr std::size_t trayOffset = 9;
constexpr std::size_t mediaOffset = 10;
constexpr std::size_t typeOffset = 33;

const std::string endMark = "JIDG";
const std::string cancelRecord("GDIC CANCEL    \0", 16);

std::uint32_t numberAt(std::string_view bytes, std::size_t offset) {
    std::uint32_t number = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        number = number << 8U | static_cast<std::uint8_t>(bytes[offset + i]);
    }
    return number;
}

/// The header's and its data's size; nothing where the stream does not go on with a whole one.
std::optional<std::size_t> wholeSize(std::string_view bytes) {
    std::size_t size = 0;
    if (bytes.starts_with("GDIJ")) {
        size = jobHeader;
    } else if (bytes.starts_with("GJET")) {
        size = extendedJobHeader;
    } else if (bytes.starts_with("GDIP")) {
        size = pageHeader;
    } else if (bytes.starts_with("GDIB") && bytes.size() >= bandHeader) {
        const std::uint32_t data =
            numberAt(bytes, 8) + numberAt(bytes, 12) + numberAt(bytes, 16) + numberAt(bytes, 20);
        if (data > 0x7FFFFFFF) {
            return std::nullopt;
        }
        size = bandHeader + data;
    } else {
        return std::nullopt;
    }
    return size <= bytes.size() ? std::optional(size) : std::nullopt;
}

/// Whether the job's name asks for a tray, and for which.
std::optional<int> wishedTray(const JobSettings &settings) {
    const std::string name = settings.jobName.value_or("");
    if (!name.starts_with('@') || !name.ends_with(')')) {
        return std::nullopt;
    }
    const char digit = name.size() > 1 ? name[name.size() - 2] : '0';
    return digit >= '0' && digit <= '9' ? digit - '0' : 0;
}

/// A page header as it is sent; others as they are.
std::string sent(const Unit &unit, const JobSettings &settings, std::uint8_t type, std::uint8_t tray) {
    std::string bytes = unit.bytes;
    if (!unit.isPageHeader()) {
        return bytes;
    }
    bytes[typeOffset] = static_cast<char>(bytes[typeOffset] | type);
    if (tray != pagesOwnTray) {
        bytes[trayOffset] = static_cast<char>(tray);
    }
    if (const auto wished = wishedTray(settings)) {
        // Tray 1 is the feeder's second, tray 2 its third, the bypass tray its first.
        constexpr std::string_view feeder("\0\2\3\1", 4);
        bytes[trayOffset] = *wished <= 3 ? feeder[static_cast<std::size_t>(*wished)] : '\0';
        bytes[mediaOffset] = '\0'; // as long as the printer has told nothing
    }
    return bytes;
}

ExpectedJob failed(std::string output) {
    return {false, std::move(output) + cancelRecord, 0};
}

ExpectedJob oneSided(const Units &units, const JobSettings &settings) {
    std::string output = units.jobHeaders;
    for (const Unit &unit : units.rest) {
        output += sent(unit, settings, 0, pagesOwnTray);
    }
    output += endMark;
    return units.ended ? ExpectedJob{true, output, 0} : failed(output);
}

/// The pages that are whole; what stands behind the last of them is nobody's.
std::vector<std::vector<Unit>> pagesOf(const Units &units) {
    std::vector<std::vector<Unit>> pages;
    std::vector<Unit> page;
    for (const Unit &unit : units.rest) {
        page.push_back(unit);
        if (unit.endsPage()) {
            pages.push_back(std::move(page));
            page.clear();
        }
    }
    return pages;
}

/// The places of one copy's pages in the stream, in the order to be sent.
std::vector<std::uint32_t> copyOf(const JobSettings &settings, std::uint32_t pageCount,
                                  std::uint32_t systemVersion, const std::optional<std::string> &order) {
    const CopyCounts counts = countCopy(settings, pageCount);
    const PageSelection selection = selectPages(settings, counts, pageCount, systemVersion);
    std::vector<std::uint32_t> places = selection.indexes;
    if (selection.blankPage == BlankPage::appended) {
        places.push_back(pageCount - 1);
    }
    const auto count = static_cast<std::uint32_t>(places.size());
    const auto turned = order && count % 2 == 0 ? duplexOrder(*order, count) : std::nullopt;
    if (!turned) {
        return places;
    }
    std::vector<std::uint32_t> ordered;
    for (const std::uint32_t index : *turned) {
        ordered.push_back(places[index]);
    }
    return ordered;
}

} // namespace

JobSettings settingsOf(const std::string &text) {
    // The last of several of the same name counts.
    std::map<std::string, std::string> options;
    const raster::JobOptions parsed(text);
    for (const auto &[name, value] : parsed.all()) {
        options.insert_or_assign(name, value);
    }
    const auto value = [&](const std::string &name) {
        const auto found = options.find(name);
        return found != options.end() ? std::optional(found->second) : std::nullopt;
    };
    const auto number = [&](const std::string &name) {
        return integerValue(value("com.apple.print.PrintSettings." + name).value_or(""));
    };
    const auto orOne = [](std::int32_t count) { return count == 0 ? 1U : static_cast<std::uint32_t>(count); };
    JobSettings settings;
    settings.jobName = value("com.apple.print.JobInfo.PMJobName");
    settings.copies = orOne(number("PMCopies..n."));
    settings.collate = booleanValue(value("com.apple.print.PrintSettings.PMCopyCollate..b.").value_or(""));
    settings.sidesImaged = orOne(number("PMTotalSidesImaged..n."));
    const std::int32_t duplexing = number("PMDuplexing..n.");
    settings.longEdge = duplexing == 2;
    settings.shortEdge = duplexing == 3;
    settings.duplex =
        (settings.longEdge || settings.shortEdge) && canDuplexPaper(value("media"), value("PaperType"));
    return settings;
}

bool Unit::endsPage() const {
    return bytes.starts_with("GDIB") && (numberAt(bytes, 4) & 2U) != 0;
}

Units unitsOf(const std::string &stream) {
    Units units;
    std::string_view rest = std::string_view(stream).substr(std::min(identifier, stream.size()));
    if (rest.size() < jobHeader + extendedJobHeader || !rest.starts_with("GDIJ") ||
        !rest.substr(jobHeader).starts_with("GJET")) {
        return units;
    }
    units.jobHeaders = rest.substr(0, jobHeader + extendedJobHeader);
    rest.remove_prefix(units.jobHeaders.size());
    while (const auto size = wholeSize(rest)) {
        units.rest.push_back({std::string(rest.substr(0, *size))});
        rest.remove_prefix(*size);
    }
    units.ended = rest.starts_with(endMark);
    return units;
}

std::size_t wholeBytes(std::string_view piece) {
    std::string_view rest = piece;
    for (auto size = wholeSize(rest); size || rest.starts_with(endMark); size = wholeSize(rest)) {
        rest.remove_prefix(size.value_or(endMark.size()));
    }
    return piece.size() - rest.size();
}

std::optional<ExpectedJob> expectedJob(const std::string &stream, JobSettings settings,
                                       const PrinterKeys &keys, std::uint32_t systemVersion,
                                       std::size_t mostPages) {
    if (stream.size() < identifier) {
        return failed("");
    }
    const Units units = unitsOf(stream);
    if (!settings.duplex) {
        return units.jobHeaders.empty() ? failed(endMark) : oneSided(units, settings);
    }
    if (!units.ended) {
        return failed("");
    }
    const std::vector<std::vector<Unit>> pages = pagesOf(units);
    const auto pageCount = static_cast<std::uint32_t>(pages.size());
    settings = adjustedToPageCount(settings, pageCount);
    const std::vector<std::uint32_t> copy = copyOf(settings, pageCount, systemVersion, keys.duplexOrder);
    if (std::uint64_t{settings.copies} * copy.size() > mostPages) {
        return std::nullopt;
    }

    ExpectedJob job = {true, units.jobHeaders, 0};
    if (settings.duplex) {
        const int bit = keys.manualDuplex ? 0x04 : 0x02;
        job.output[jobSettingOffset] = static_cast<char>(job.output[jobSettingOffset] | bit);
    }
    const SendJob plan = {.pathCount = static_cast<std::uint32_t>(copy.size()),
                          .copies = settings.copies,
                          .collate = settings.collate,
                          .duplex = settings.duplex,
                          .duplexInstalled = false,
                          .duplexBypass = keys.duplexBypass};
    forEachPlannedPage(plan, [&](const PlannedPage &planned) {
        ++job.spooledPages;
        for (const Unit &unit : pages[copy[planned.index]]) {
            job.output += sent(unit, settings, planned.typeBits, planned.tray);
        }
        return true;
    });
    job.output += endMark;
    return job;
}

} // namespace veltrin::fuzz
