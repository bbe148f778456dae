#include "status/StatusWording.h"

#include "status/MediaNames.h"
#include "status/TextFormat.h"

namespace veltrin {

std::string inEnglish(LocalizedText text) {
    return std::string(text.english);
}

std::string statusWording(const StatusText &entry, std::uint8_t subStatus2, const Translation &translation) {
    if (entry.text.key.empty()) {
        return {};
    }
    std::string text = translation(entry.text);
    switch (entry.name) {
    case PaperName::none:
        break;
    case PaperName::size:
        return formatText(text, translation(paperSizeName(subStatus2)));
    case PaperName::type:
        return formatText(text, translation(paperTypeName(subStatus2)));
    }
    return text;
}

} // namespace veltrin
