#include "raster/HeaderFields.h"

#include "status/MediaNames.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace veltrin::raster {

namespace {

constexpr std::uint8_t blackOnly = 0;
constexpr std::uint8_t fullColour = 1;

constexpr std::uint8_t plainPaper = 1;
constexpr std::uint8_t customSize = 255;

struct Tray {
    std::string_view inputSlot;
    std::uint8_t number;
};

constexpr std::uint8_t firstTray = 2;

constexpr auto trays = std::to_array<Tray>({
    {"Bypass", 1},
    {"BypassTray", 1},
    {"Manual", 1},
    {"ManualFeed", 1},
    {"MultiPurpose", 1},
    {"Tray1", firstTray},
    {"Tray2", 3},
});

struct Size {
    std::uint32_t widthMillimetres;
    std::uint32_t heightMillimetres;
    std::string_view name;
};

constexpr auto standardSizes = std::to_array<Size>({
    {216, 279, "Letter"}, {216, 356, "Legal"}, {140, 216, "HalfLetter"}, {184, 267, "Executive"},
    {210, 297, "A4"},     {148, 210, "A5"},    {105, 148, "A6"},         {182, 257, "B5"},
    {128, 182, "B6"},     {203, 330, "FS"},    {216, 330, "Foolscap"},   {210, 330, "Folio"},
    {195, 270, "Kai16"},  {105, 241, "Env10"}, {98, 191, "Monarch"},     {110, 220, "EnvDL"},
    {162, 229, "EnvC5"},  {114, 162, "EnvC6"}, {100, 148, "Postcard"},   {148, 200, "ReplyPaid"},
});

constexpr std::size_t uuidSize = identifierSize;
constexpr std::string_view uuidPrefix = "urn:uuid:";

bool isUuid(std::string_view text) {
    if (text.size() != uuidSize) {
        return false;
    }
    for (std::size_t at = 0; at < text.size(); ++at) {
        constexpr std::string_view hexadecimal = "0123456789abcdefABCDEF";
        const bool isDash = at == 8 || at == 13 || at == 18 || at == 23;
        if (isDash ? text[at] != '-' : hexadecimal.find(text[at]) == std::string_view::npos) {
            return false;
        }
    }
    return true;
}

bool continuesCharacter(char byte) {
    return (static_cast<unsigned char>(byte) & 0xC0U) == 0x80U;
}

} // namespace

std::array<char, 64> fittedName(std::string_view text) {
    std::array<char, 64> field{};
    text = text.substr(0, text.find('\0'));
    std::size_t size = std::min(text.size(), field.size() - 1);
    while (size > 0 && size < text.size() && continuesCharacter(text[size])) {
        --size;
    }
    text.copy(field.data(), size);
    return field;
}

std::string identifierFor(const JobOptions &options, std::string_view jobId) {
    const std::string uuid = options.find("job-uuid").value_or("");
    if (uuid.starts_with(uuidPrefix) && isUuid(std::string_view(uuid).substr(uuidPrefix.size()))) {
        return uuid.substr(uuidPrefix.size());
    }
    const std::string number(jobId);
    std::array<char, uuidSize + 1> text{};
    static_cast<void>(std::snprintf(text.data(), text.size(), "00000000-0000-4000-8000-%012llu",
                                    std::strtoull(number.c_str(), nullptr, 10) % 1000000000000U));
    return {text.data(), uuidSize};
}

FileHeader fileHeaderFor(const JobIdentity &identity, const JobFormat &format) {
    FileHeader header{};
    header.MagicNumber = fileHeaderTag;
    header.dwJobHeaderLen = sizeof header;
    header.Version = 1;
    header.wCopyCount = 1; // the copies are in the stream; the printer is not to multiply them
    header.dwJobSubmittedTime = identity.submittedTime;
    header.bColorMode = format.colour ? fullColour : blackOnly;
    header.wResolution = static_cast<std::uint16_t>(format.resolution);
    header.wCompressMode = static_cast<std::uint16_t>(format.compressMode);
    header.szFileName = fittedName(identity.title);
    return header;
}

FileHeaderEx fileHeaderExFor(const JobIdentity &identity) {
    FileHeaderEx header{};
    header.MagicNumber = fileHeaderExTag;
    header.dwJobHeaderLen = sizeof header;
    header.szHostName = fittedName(identity.host);
    header.szUserName = fittedName(identity.user);
    return header;
}

std::uint8_t pageTray(std::string_view inputSlot) {
    const auto *found = std::find_if(trays.begin(), trays.end(),
                                     [inputSlot](const Tray &tray) { return tray.inputSlot == inputSlot; });
    return found != trays.end() ? found->number : firstTray;
}

std::uint8_t pageSizeCode(std::string_view name, std::uint32_t widthMillimetres,
                          std::uint32_t heightMillimetres) {
    if (const auto code = paperSizeCode(name)) {
        return *code;
    }
    const auto *found = std::find_if(standardSizes.begin(), standardSizes.end(), [&](const Size &size) {
        // A size in whole points may be a millimetre away.
        const auto isNear = [](std::uint32_t one, std::uint32_t other) {
            return std::max(one, other) - std::min(one, other) <= 1;
        };
        return isNear(size.widthMillimetres, widthMillimetres) &&
               isNear(size.heightMillimetres, heightMillimetres);
    });
    return found != standardSizes.end() ? paperSizeCode(found->name).value_or(customSize) : customSize;
}

PageHeader pageHeaderFor(const JobFormat &format, const JobTicket &ticket, const PagePlacement &placement,
                         std::string_view pageSizeName, std::uint32_t number, const PlaneSizes &planes) {
    PageHeader header{};
    header.MagicNumber = pageHeaderTag;
    header.dwHeaderLen = sizeof header;
    header.bPaperSize = pageSizeCode(pageSizeName, placement.widthMillimetres, placement.heightMillimetres);
    header.bPaperTray = pageTray(ticket.inputSlot);
    header.bMediaType = mediaTypeCode(ticket.paperType.value_or("")).value_or(plainPaper);
    header.wScanLineWidth = static_cast<std::uint16_t>(placement.across.page);
    header.wHeight = static_cast<std::uint16_t>(placement.down.page);
    header.bPlane = format.colour ? 4 : 1;
    header.wPageNumber = static_cast<std::uint16_t>(number);
    header.dwKSize = planes.black;
    header.dwYSize = planes.yellow;
    header.dwMSize = planes.magenta;
    header.dwCSize = planes.cyan;
    header.wBandNo = static_cast<std::uint16_t>(bandCount(placement.down.page));
    header.wPaperWidthmm = placement.widthMillimetres;
    header.wPaperHeightmm = placement.heightMillimetres;
    return header;
}

BandHeader bandHeaderFor(const PagePlacement &placement, std::uint32_t band, const PlaneSizes &planes) {
    const std::uint32_t first = band * bandLines;
    const bool isLast = first + bandLines >= placement.down.page;
    BandHeader header{};
    header.MagicNumber = bandHeaderTag;
    header.dwBandSetting = isLast ? bandSettingLastOfPage : 0;
    header.dwKSize = planes.black;
    header.dwYSize = planes.yellow;
    header.dwMSize = planes.magenta;
    header.dwCSize = planes.cyan;
    header.wBandWidth = static_cast<std::uint16_t>(placement.across.page);
    header.wBandHeight = static_cast<std::uint16_t>(std::min(bandLines, placement.down.page - first));
    return header;
}

} // namespace veltrin::raster
