#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace veltrin::test {

/// A job of numbered pages, and the sheets that it is to become.
struct Copies {
    std::uint32_t pages = 1;
    std::uint32_t copies = 1;
    bool collate = false;
    std::string sides = "one-sided"; ///< IPP's word
    bool byHand = false;             ///< the printer has no duplex unit: somebody turns the stack

    [[nodiscard]] bool hasBacks() const { return sides != "one-sided" && (pages > 1 || copies > 1); }

    /// The sheets in the order in which they are begun. A stack that is turned by hand begins with its last.
    [[nodiscard]] std::vector<std::string> sheets() const {
        std::vector<std::string> ofOneCopy;
        for (std::uint32_t page = 1; page <= pages; page += hasBacks() ? 2U : 1U) {
            const std::string back = page < pages ? std::to_string(page + 1) : "-";
            ofOneCopy.push_back(std::to_string(page) + (hasBacks() ? "/" + back : ""));
        }
        if (hasBacks() && byHand) {
            std::reverse(ofOneCopy.begin(), ofOneCopy.end());
        }
        std::vector<std::string> all;
        for (std::size_t place = 0; place < ofOneCopy.size() * copies; ++place) {
            all.push_back(ofOneCopy[collate ? place % ofOneCopy.size() : place / copies]);
        }
        return all;
    }
};

inline std::ostream &operator<<(std::ostream &text, const Copies &job) {
    return text << job.pages << " pages, " << job.copies << (job.collate ? " collated" : " uncollated")
                << " copies, " << job.sides << (job.byHand ? ", turned by hand" : ", with a duplex unit");
}

} // namespace veltrin::test
