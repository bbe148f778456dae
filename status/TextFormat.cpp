#include "status/TextFormat.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace veltrin {

std::string formatText(std::string_view format, std::string_view argument) {
    struct Placeholder {
        std::string_view mark;
        std::string_view replacement;
    };

    const std::array placeholders = {Placeholder{"%@", argument}, Placeholder{"%1$@", argument},
                                     Placeholder{"%%", "%"}};
    std::string result;
    while (!format.empty()) {
        const std::size_t plain = std::min(format.find('%'), format.size());
        result += format.substr(0, plain);
        format.remove_prefix(plain);

        const auto *found =
            std::find_if(placeholders.begin(), placeholders.end(),
                         [format](const Placeholder &known) { return format.starts_with(known.mark); });
        if (found != placeholders.end()) {
            result += found->replacement;
            format.remove_prefix(found->mark.size());
        } else if (!format.empty()) {
            result += format.front();
            format.remove_prefix(1);
        }
    }
    return result;
}

} // namespace veltrin
