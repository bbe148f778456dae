// DriverFilter: spooling a two-sided job's pages, and choosing those of one copy.

#include "driver/DriverFilter.h"
#include "driver/PageSelection.h"
#include "driver/SendPlan.h"
#include "log/DebugLog.h"

#include <cups/cups.h>

#include <unistd.h>

#include <array>

namespace veltrin {

namespace {

constexpr std::size_t longestSpoolPath = 1024;

const char *yesOrNo(bool flag) {
    return flag ? "YES" : "NO";
}

} // namespace

bool DriverFilter::spoolPages() {
    origPaths.clear();
    pageCount = 0;
    PageInput input(sourceFD, inputMemory);
    bool eoj = false;
    const bool result = readFileHeaders(input) && spoolEveryPage(input, eoj);
    if (pageCount == 1) {
        CPSDebugLog("DriverFilter spoolPages: Spacial casing one page job");
    }
    settings = adjustedToPageCount(settings, pageCount);
    selectPagesOfOneCopy();

    for (std::size_t i = 0; i < origPaths.size(); ++i) {
        CPSDebugLog("DriverFilter spoolPages: origPath %d = %s", static_cast<int>(i), origPaths[i].c_str());
    }
    for (std::size_t i = 0; i < paths.size(); ++i) {
        CPSDebugLog("DriverFilter spoolPages: path %d = %s", static_cast<int>(i), paths[i].c_str());
    }
    CPSDebugLog("DriverFilter spoolPages: copied %d pages, eoj: %d, result %d",
                static_cast<int>(paths.size()), static_cast<int>(eoj), static_cast<int>(result));
    return result;
}

/// Copies pages into files of their own until the job ends or a page fails; the file of a failed page is kept
/// among the others.
bool DriverFilter::spoolEveryPage(PageInput &input, bool &eoj) {
    bool result = true;
    while (result && !eoj) {
        std::array<char, longestSpoolPath> path{};
        const int fd = cupsTempFd(path.data(), static_cast<int>(path.size()));
        if (fd == -1) {
            CPSDebugAssert_("DriverFilter spoolPages: cupsTempFd failed");
            return false;
        }
        PageOutput to = PageOutput::toFile(fd, *status);
        result = copyPageFrom(input, to, 0, pagesOwnTray, eoj);
        if (!result) {
            CPSDebugAssert_("DriverFilter spoolPages: copyPageFrom:to:additionalType: failed");
        }
        if (eoj) {
            CPSDebugLog("DriverFilter spoolPages: EOJ detected after page %d",
                        static_cast<std::int32_t>(pageCount - 1));
            // Empty, or holding the start of a page that never ended: nobody else will remove it.
            unlink(path.data());
        } else {
            origPaths.emplace_back(path.data());
            CPSDebugLog("DriverFilter spoolPages: Copied page %u to file: %s", pageCount, path.data());
            ++pageCount;
        }
        close(fd);
    }
    return result;
}

/// Fills `paths`.
void DriverFilter::selectPagesOfOneCopy() {
    const CopyCounts counts = countCopy(settings, pageCount);
    if (counts.exceedsPageCount) {
        CPSDebugLog("DriverFilter spoolPages: sidesImaged / copies > pageCount");
    }
    CPSDebugLog(
        "DriverFilter spoolPages: copies: %d, sidesImaged: %d, origPaths: %d, pathCount: %d, collate: %s, "
        "hasGDIBlankPage: %s",
        static_cast<std::int32_t>(settings.copies), static_cast<std::int32_t>(settings.sidesImaged),
        static_cast<int>(origPaths.size()), static_cast<std::int32_t>(counts.pathCount),
        yesOrNo(settings.collate), yesOrNo(counts.hasGDIBlankPage));

    std::uint32_t systemVersion = 0;
    if (const std::int32_t error = platform.systemVersion(systemVersion); error != 0) {
        CPSDebugAssert_("Gestalt(gestaltSystemVersion) failed %d", error);
    }

    const PageSelection selection = selectPages(settings, counts, pageCount, systemVersion);
    paths.clear();
    for (const std::uint32_t index : selection.indexes) {
        if (selection.paired) {
            CPSDebugLog("DriverFilter spoolPages: copying path at index %d (10.4 special)",
                        static_cast<std::int32_t>(index));
        } else {
            CPSDebugLog("DriverFilter spoolPages: copying path at index %d",
                        static_cast<std::int32_t>(index));
        }
        paths.push_back(origPaths[index]);
    }
    switch (selection.blankPage) {
    case BlankPage::none:
        break;
    case BlankPage::appended:
        CPSDebugLog("DriverFilter spoolPages: appending blank page");
        paths.push_back(origPaths.back());
        break;
    case BlankPage::discarded:
        CPSDebugLog("DriverFilter spoolPages: filter supplied a blank page, but we are discarding it");
        break;
    }
}

void DriverFilter::cleanupSpoolFiles() {
    for (const std::string &path : origPaths) {
        unlink(path.c_str());
    }
    origPaths.clear();
    paths.clear();
}

bool DriverFilter::includeBlankPage() const {
    if (paths.size() % 2 == 0) {
        return false;
    }
    if (!duplexInstalled()) {
        return true;
    }
    // Paper with a front and a back of its own.
    const std::string paperType = stringForOption("PaperType").value_or("");
    return paperType == "Letterhead" || paperType == "Preprinted" || paperType == "Prepunched";
}

} // namespace veltrin
