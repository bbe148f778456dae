#include "tools/dump/Meanings.h"

#include "driver/stream/PageStream.h"
#include "status/MediaNames.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace veltrin {

std::vector<std::string> meaningsOfPageType(std::uint8_t bType) {
    if (bType == 0) {
        return {"plain"};
    }
    std::vector<std::string> meanings;
    unsigned unexplained = bType;
    // The bits of the first side contain the one of the second.
    if ((unexplained & pageTypeFirstOfSheet) == pageTypeFirstOfSheet) {
        meanings.emplace_back("first side of a sheet");
        unexplained &= ~unsigned{pageTypeFirstOfSheet};
    } else if ((unexplained & pageTypeSecondOfSheet) != 0) {
        meanings.emplace_back("second side of a sheet");
        unexplained &= ~unsigned{pageTypeSecondOfSheet};
    }
    if ((unexplained & pageTypePause) != 0) {
        meanings.emplace_back("pause before this page");
        unexplained &= ~unsigned{pageTypePause};
    }
    if (unexplained != 0) {
        meanings.push_back("unknown bits " + hexadecimal(unexplained, 2));
    }
    return meanings;
}

std::vector<std::string> meaningsOfJobSetting(std::uint16_t wJobSetting) {
    std::vector<std::string> meanings;
    unsigned others = wJobSetting;
    if ((others & jobSettingDuplex) != 0) {
        meanings.emplace_back("duplex");
        others &= ~unsigned{jobSettingDuplex};
    }
    if ((others & jobSettingManualDuplex) != 0) {
        meanings.emplace_back("manual duplex");
        others &= ~unsigned{jobSettingManualDuplex};
    }
    if (meanings.empty()) {
        meanings.emplace_back("no duplex");
    }
    if (others != 0) {
        meanings.push_back("other bits " + hexadecimal(others, 4));
    }
    return meanings;
}

namespace {

/// Beyond all codes of one byte: its name is the one of the codes without a name.
constexpr std::uint32_t noCode = 0x100;

using NameOf = LocalizedText (*)(std::uint32_t code);

std::string_view nameIn(NameOf table, std::uint32_t code) {
    const LocalizedText name = table(code);
    return name.key == table(noCode).key ? std::string_view() : name.english;
}

struct PageTray {
    std::uint8_t code;
    std::uint32_t trayName; ///< the code of its name
};

constexpr auto pageTrays = std::to_array<PageTray>({{1, 5}, {2, 1}, {3, 2}});

} // namespace

std::string_view nameOfPaperSize(std::uint8_t code) {
    return nameIn(paperSizeName, code);
}

std::string_view nameOfMediaType(std::uint8_t code) {
    return nameIn(paperTypeName, code);
}

std::string_view nameOfPageTray(std::uint8_t code) {
    const auto *found = std::find_if(pageTrays.begin(), pageTrays.end(),
                                     [code](const PageTray &tray) { return tray.code == code; });
    return found == pageTrays.end() ? std::string_view() : nameIn(paperTrayName, found->trayName);
}

std::string withName(std::uint8_t code, std::string_view name) {
    return std::to_string(code) + " (" + std::string(name.empty() ? "unknown" : name) + ")";
}

std::string_view stringIn(std::span<const char> field) {
    const auto end = std::find(field.begin(), field.end(), '\0');
    return {field.data(), static_cast<std::size_t>(end - field.begin())};
}

std::string escaped(std::string_view text) {
    std::string result = "\"";
    for (const char character : text) {
        const auto number = static_cast<unsigned char>(character);
        if (character == '"' || character == '\\') {
            result += '\\';
            result += character;
        } else if (number >= 0x20 && number < 0x7F) {
            result += character;
        } else {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\x%02x", unsigned{number});
            result += escape.data();
        }
    }
    return result + '"';
}

std::string hexadecimal(std::uint64_t number, int digits) {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "0x%0*llx", digits, static_cast<unsigned long long>(number));
    return text.data();
}

std::string listed(const std::vector<std::string> &texts) {
    std::string result;
    for (const std::string &text : texts) {
        result += (result.empty() ? "" : ", ") + text;
    }
    return result;
}

} // namespace veltrin
