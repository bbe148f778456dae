#include "driver/PageSelection.h"

#include <algorithm>

namespace veltrin {

JobSettings adjustedToPageCount(JobSettings settings, std::uint32_t pageCount) {
    if (pageCount == 1) {
        settings.collate = false;
        settings.duplex = false;
        settings.copies = 1;
        settings.sidesImaged = 1;
        return settings;
    }
    settings.sidesImaged = std::min(settings.sidesImaged, pageCount);
    if (settings.sidesImaged == 1 && pageCount >= 2) {
        // The setting was missing. A job not bound on the long edge counts one side less: renderers rely on
        // it.
        settings.sidesImaged = settings.longEdge ? pageCount : pageCount - 1;
    }
    return settings;
}

CopyCounts countCopy(const JobSettings &settings, std::uint32_t pageCount) {
    const std::uint32_t sidesPerCopy = settings.sidesImaged / settings.copies;
    return {
        .pathCount = std::min(sidesPerCopy, pageCount),
        .exceedsPageCount = sidesPerCopy > pageCount,
        .hasGDIBlankPage = settings.duplex && sidesPerCopy % 2 == 1,
    };
}

PageSelection selectPages(const JobSettings &settings, const CopyCounts &counts, std::uint32_t pageCount,
                          std::uint32_t systemVersion) {
    PageSelection selection;
    const auto take = [&](std::uint32_t index) {
        // Numbers that contradict each other may name more pages than there are.
        if (index < pageCount) {
            selection.indexes.push_back(index);
        }
    };

    selection.paired = systemVersion >= pairedPagesVersion && !settings.collate && settings.duplex &&
                       counts.pathCount >= 2 && settings.copies >= 2;
    const std::uint32_t step = settings.collate ? 1 : settings.copies;
    if (selection.paired) {
        for (std::uint32_t front = 0; front < counts.pathCount; front += 2) {
            take(front * settings.copies);
            take((front * settings.copies) | 1);
        }
    } else {
        for (std::uint32_t page = 0; page < counts.pathCount; ++page) {
            take(page * step);
        }
    }

    if (counts.hasGDIBlankPage) {
        selection.blankPage = selection.indexes.size() % 2 == 1 ? BlankPage::appended : BlankPage::discarded;
    }
    return selection;
}

bool includeBlankPage(std::uint32_t pathCount, bool duplexInstalled, std::string_view paperType) {
    const bool hasFront = paperType == "Letterhead" || paperType == "Preprinted" || paperType == "Prepunched";
    return pathCount % 2 == 1 && (!duplexInstalled || hasFront);
}

} // namespace veltrin
