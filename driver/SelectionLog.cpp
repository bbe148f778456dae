#include "driver/SelectionLog.h"

#include "log/DebugLog.h"

namespace veltrin {

namespace {

const char *yesOrNo(bool flag) {
    return flag ? "YES" : "NO";
}

} // namespace

void logCopyCounts(const JobSettings &settings, const CopyCounts &counts, std::uint32_t pageCount) {
    if (counts.exceedsPageCount) {
        CPSDebugLog("DriverFilter spoolPages: sidesImaged / copies > pageCount");
    }
    CPSDebugLog(
        "DriverFilter spoolPages: copies: %d, sidesImaged: %d, origPaths: %d, pathCount: %d, collate: %s, "
        "hasGDIBlankPage: %s",
        asSigned(settings.copies), asSigned(settings.sidesImaged), asSigned(pageCount),
        asSigned(counts.pathCount), yesOrNo(settings.collate), yesOrNo(counts.hasGDIBlankPage));
}

void logSelection(const PageSelection &selection) {
    for (const std::uint32_t index : selection.indexes) {
        CPSDebugLog("DriverFilter spoolPages: copying path at index %d%s", asSigned(index),
                    selection.paired ? " (10.4 special)" : "");
    }
    switch (selection.blankPage) {
    case BlankPage::none:
        break;
    case BlankPage::appended:
        CPSDebugLog("DriverFilter spoolPages: appending blank page");
        break;
    case BlankPage::discarded:
        CPSDebugLog("DriverFilter spoolPages: filter supplied a blank page, but we are discarding it");
        break;
    }
}

void logPaths(const SpooledPages &pages) {
    for (std::uint32_t i = 0; i < pages.pageCount(); ++i) {
        CPSDebugLog("DriverFilter spoolPages: origPath %d = %s", asSigned(i), pages.origPath(i).c_str());
    }
    for (std::uint32_t i = 0; i < pages.pathCount(); ++i) {
        CPSDebugLog("DriverFilter spoolPages: path %d = %s", asSigned(i), pages.path(i).c_str());
    }
}

} // namespace veltrin
