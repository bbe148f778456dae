// DriverFilter: spooling a two-sided job's pages, and choosing those of one copy.

#include "driver/DriverFilter.h"
#include "driver/PageSelection.h"
#include "driver/SelectionLog.h"
#include "driver/SendPlan.h"
#include "log/DebugLog.h"

namespace veltrin {

bool DriverFilter::spoolPages() {
    PageInput input(sourceFD, inputMemory);
    bool eoj = false;
    const bool result = readFileHeaders(input) && spoolEveryPage(input, eoj);
    if (spooled.pageCount() == 1) {
        CPSDebugLog("DriverFilter spoolPages: Spacial casing one page job");
    }
    settings = adjustedToPageCount(settings, spooled.pageCount());
    selectPagesOfOneCopy();
    logPaths(spooled);
    CPSDebugLog("DriverFilter spoolPages: copied %d pages, eoj: %d, result %d", asSigned(spooled.pathCount()),
                eoj, result);
    return result;
}

/// Copies pages into files of their own until the job ends or a page fails; the file of a failed page is kept
/// among the others.
bool DriverFilter::spoolEveryPage(PageInput &input, bool &eoj) {
    bool result = true;
    while (result && !eoj) {
        SpoolFile file;
        if (!file.isOpen()) {
            CPSDebugAssert_("DriverFilter spoolPages: cupsTempFd failed");
            return false;
        }
        PageOutput to = PageOutput::toFile(file.descriptor(), *status);
        result = copyPageFrom(input, to, 0, pagesOwnTray, eoj);
        if (!result) {
            CPSDebugAssert_("DriverFilter spoolPages: copyPageFrom:to:additionalType: failed");
        }
        if (eoj) {
            CPSDebugLog("DriverFilter spoolPages: EOJ detected after page %d",
                        asSigned(spooled.pageCount() - 1));
            // The file is empty, or holds the start of a page that never ended.
        } else {
            CPSDebugLog("DriverFilter spoolPages: Copied page %u to file: %s", spooled.pageCount(),
                        file.path().c_str());
            spooled.add(file.path());
            file.keep();
        }
    }
    return result;
}

void DriverFilter::selectPagesOfOneCopy() {
    const CopyCounts counts = countCopy(settings, spooled.pageCount());
    logCopyCounts(settings, counts, spooled.pageCount());

    std::uint32_t systemVersion = 0;
    if (const std::int32_t error = platform.systemVersion(systemVersion); error != 0) {
        CPSDebugAssert_("Gestalt(gestaltSystemVersion) failed %d", error);
    }
    const PageSelection selection = selectPages(settings, counts, spooled.pageCount(), systemVersion);
    logSelection(selection);
    spooled.select(selection.indexes);
    if (selection.blankPage == BlankPage::appended) {
        spooled.appendBlankPage();
    }
}

} // namespace veltrin
