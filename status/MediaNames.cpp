#include "status/MediaNames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace veltrin {

namespace {

struct Name {
    std::uint32_t code;
    LocalizedText text;
};

struct MediaType {
    std::int32_t code;
    std::string_view name;
};

struct PaperSize {
    std::uint8_t code;
    std::string_view name;
};

struct Model {
    LocalizedText name;
    LocalizedText description;
};

// clang-format off

constexpr auto paperSizes = std::to_array<Name>({
    {1, {"gdiPaperSizeLetter", "Letter"}},
    {5, {"gdiPaperSizeLegal", "Legal"}},
    {6, {"gdiPaperSizeHalfLetter", "Half Letter"}},
    {7, {"gdiPaperSizeExecutive", "Executive"}},
    {8, {"gdiPaperSizeA3", "A3"}},
    {9, {"gdiPaperSizeA4", "A4"}},
    {11, {"gdiPaperSizeA5", "A5"}},
    {12, {"gdiPaperSizeB4", "B4"}},
    {13, {"gdiPaperSizeB5", "B5"}},
    {14, {"gdiPaperSizeFoolscap", "8.5 X 13"}},
    {15, {"gdiPaperSizeFolio", "Folio"}},
    {16, {"gdiPaperSizeF", "8 X 13"}},
    {17, {"gdiPaperSizeLedger", "Ledger"}},
    {18, {"gdiPaperSizeGovernmentLG", "Government LG"}},
    {20, {"gdiPaperSizeEnv10", "Envelope 10"}},
    {27, {"gdiPaperSizeEnvDL", "Envelope DL"}},
    {28, {"gdiPaperSizeEnvC5", "Envelope C5"}},
    {31, {"gdiPaperSizeEnvC6", "Envelope C6"}},
    {37, {"gdiPaperSizeMonarch", "Monarch"}},
    {43, {"gdiPaperSizePostcard", "Postcard"}},
    {69, {"gdiPaperSizeReplyPaidCard", "Reply-paid Postcard"}},
    {70, {"gdiPaperSizeA6", "A6"}},
    {88, {"gdiPaperSizeB6", "B6"}},
    {92, {"gdiPaperSizeKai8", "Kai 8"}},
    {93, {"gdiPaperSizeKai16", "16K"}},
    {254, {"gdiPaperSizeAnySize", "Any Size"}},
    {255, {"gdiPaperSizeCustom", "Custom"}},
});

constexpr LocalizedText unknownSize = {"UnknownSize", "Unknown paper size - do not translate"};

constexpr auto paperTypes = std::to_array<Name>({
    {0, {"gdiPaperTypePlainRecycled", "Plain Recycled"}},
    {1, {"gdiPaperTypePlain", "Plain"}},
    {2, {"gdiPaperTypeRecycled", "Recycled"}},
    {3, {"gdiPaperTypeColor", "Color"}},
    {4, {"gdiPaperTypeLetterhead", "Letterhead"}},
    {5, {"gdiPaperTypePreprinted", "Preprinted"}},
    {6, {"gdiPaperTypePrepunched", "Prepunched"}},
    {7, {"gdiPaperTypeLabels", "Labels"}},
    {8, {"gdiPaperTypeBond", "Bond"}},
    {9, {"gdiPaperTypeCardstock", "Cardstock"}},
    {10, {"gdiPaperTypeTab", "Tab Stock"}},
    {11, {"gdiPaperTypeOHP", "OHP"}},
    {12, {"gdiPaperTypeThick", "Thick (105-160g/m2)"}},
    {13, {"gdiPaperTypeThick160", "Thick (160-200g/m2)"}},
    {14, {"gdiPaperTypeEnvelope", "Envelope"}},
    {15, {"gdiPaperTypeThin", "Thin (60-75g/m2)"}},
    {16, {"gdiPaperTypePlain90", "Plain (90-105g/m2)"}},
    {254, {"gdiPaperTypeAnyType", "Any Type"}},
});

constexpr LocalizedText unknownType = {"gdiPaperTypeUnknown", "Unknown paper type - do not translate"};

// Tray 3 is the multi-purpose tray.
constexpr auto trays = std::to_array<Name>({
    {1, {"Tray1", "Tray 1"}},
    {2, {"Tray2", "Tray 2"}},
    {3, {"Tray3", "MP Tray"}},
    {4, {"Tray4", "Tray 4"}},
    {5, {"BypassTray", "Bypass Tray"}},
});

constexpr LocalizedText unknownTray = {"UnknownTray", "Unknown paper tray - do not translate"};

// Tab stock (10) and OHP film (11) are "Plain" here on purpose.
constexpr auto mediaTypes = std::to_array<MediaType>({
    {2, "Recycled"},
    {3, "Color"},
    {4, "Letterhead"},
    {5, "Preprinted"},
    {6, "Prepunched"},
    {7, "Labels"},
    {8, "Bond"},
    {9, "Cardstock"},
    {12, "Thick"},
    {13, "Thick160"},
    {14, "Envelope"},
    {15, "Thin"},
    {16, "Plain90"},
});

constexpr std::string_view otherMediaType = "Plain";

constexpr std::uint8_t plainType = 1;

// By their names in a PPD. Of several for one size the filter's own is the first; the others are those of Adobe's list.
constexpr auto namedSizes = std::to_array<PaperSize>({
    {1, "Letter"},
    {5, "Legal"},
    {6, "HalfLetter"},
    {6, "Statement"},
    {7, "Executive"},
    {8, "A3"},
    {9, "A4"},
    {11, "A5"},
    {12, "B4"},
    {13, "B5"},
    {14, "Foolscap"},
    {14, "FanFoldGermanLegal"},
    {15, "Folio"},
    {16, "FS"},
    {16, "8x13"},
    {17, "Ledger"},
    {17, "Tabloid"},
    {18, "GovernmentLG"},
    {20, "Env10"},
    {27, "EnvDL"},
    {28, "EnvC5"},
    {31, "EnvC6"},
    {37, "Monarch"},
    {37, "EnvMonarch"},
    {43, "Postcard"},
    {69, "ReplyPaid"},
    {69, "DoublePostcardRotated"},
    {70, "A6"},
    {88, "B6"},
    {92, "Kai8"},
    {93, "Kai16"},
    {93, "195x270mm"},
});

constexpr std::uint8_t customSize = 255;
constexpr std::string_view customSizePrefix = "Custom";

// By model code. Model 1 is sold under its code name.
constexpr auto models = std::to_array<Model>({
    {{"ModelQM7-K2a", "QM7-K2a"}, {"ModelQM7-K2aDesc", "Morvex LX 410N"}},
    {{"ModelQM7-K2b", "QM7-K2b"}, {"ModelQM7-K2bDesc", "QM7-K2b"}},
    {{"ModelTM7-K2a", "TM7-K2a"}, {"ModelTM7-K2aDesc", "Morvex LX 520N"}},
    {{"ModelUnknown", "Unknown model - do not translate"}, {"ModelUnknownDesc", "Unknown description - do not translate"}},
});

// clang-format on

LocalizedText nameOf(std::uint32_t code, std::span<const Name> names, LocalizedText unknown) {
    const auto found =
        std::find_if(names.begin(), names.end(), [code](const Name &name) { return name.code == code; });
    return found != names.end() ? found->text : unknown;
}

const Model &modelOf(std::uint32_t code) {
    return models[std::min<std::size_t>(code, models.size() - 1)];
}

} // namespace

LocalizedText paperSizeName(std::uint32_t code) {
    return nameOf(code, paperSizes, unknownSize);
}

LocalizedText paperTypeName(std::uint32_t code) {
    return nameOf(code, paperTypes, unknownType);
}

LocalizedText paperTrayName(std::uint32_t code) {
    return nameOf(code, trays, unknownTray);
}

std::string_view mediaTypeName(std::int32_t code) {
    const auto *found = std::find_if(mediaTypes.begin(), mediaTypes.end(),
                                     [code](const MediaType &type) { return type.code == code; });
    return found != mediaTypes.end() ? found->name : otherMediaType;
}

std::optional<std::uint8_t> paperSizeCode(std::string_view name) {
    if (name.starts_with(customSizePrefix)) {
        return customSize;
    }
    const auto *found = std::find_if(namedSizes.begin(), namedSizes.end(),
                                     [name](const PaperSize &size) { return size.name == name; });
    return found != namedSizes.end() ? std::optional(found->code) : std::nullopt;
}

std::string_view ownSizeName(std::string_view name) {
    const std::optional<std::uint8_t> code = paperSizeCode(name);
    const auto *found = std::find_if(namedSizes.begin(), namedSizes.end(),
                                     [code](const PaperSize &size) { return size.code == code; });
    return found != namedSizes.end() ? found->name : name;
}

std::optional<std::uint8_t> mediaTypeCode(std::string_view name) {
    if (name == otherMediaType) {
        return plainType;
    }
    const auto *found = std::find_if(mediaTypes.begin(), mediaTypes.end(),
                                     [name](const MediaType &type) { return type.name == name; });
    return found != mediaTypes.end() ? std::optional(static_cast<std::uint8_t>(found->code)) : std::nullopt;
}

LocalizedText modelName(std::uint32_t code) {
    return modelOf(code).name;
}

LocalizedText modelDescription(std::uint32_t code) {
    return modelOf(code).description;
}

} // namespace veltrin
