#include "driver/DuplexOrder.h"

#include <algorithm>

namespace veltrin {

std::optional<std::vector<std::uint32_t>> duplexOrder(std::string_view order, std::uint32_t pageCount) {
    std::vector<std::uint32_t> fronts;
    std::vector<std::uint32_t> backs;
    std::vector<std::uint32_t> sheets;
    for (std::uint32_t front = 0; front < pageCount; front += 2) {
        const std::uint32_t back = front + 1;
        fronts.push_back(front);
        backs.push_back(back);
        sheets.insert(sheets.end(), {back, front});
    }
    if (order == duplexUnitOrder) {
        return sheets;
    }
    if (order == "642135") {
        std::reverse(backs.begin(), backs.end());
    } else if (order != "246135") {
        return std::nullopt;
    }
    backs.insert(backs.end(), fronts.begin(), fronts.end());
    return backs;
}

} // namespace veltrin
