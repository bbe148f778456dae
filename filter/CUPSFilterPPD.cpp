// CUPSFilter: the queue's PPD, read once at the start.

#include "filter/CUPSFilter.h"
#include "filter/Cancellation.h"
#include "log/DebugLog.h"

#include <cups/ppd.h>

#include <unistd.h>

#include <cstddef>
#include <cstring>

// CUPS has announced that the PPD functions will go. Until they do, a print filter has nothing else that
// tells it the queue's PPD.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

// The first of them to go: linked weakly, so that the filter starts and works with a CUPS library that lacks
// it.
// NOLINTNEXTLINE(readability-redundant-declaration): it is declared again to be weak.
extern "C" [[gnu::weak]] ppd_attr_t *ppdFindAttr(ppd_file_t *ppd, const char *name, const char *spec);

namespace veltrin {

namespace {

constexpr const char *profileName = "cupsICCProfile";

/// As much as CUPS has room for.
constexpr std::size_t longestPPDPath = 1024;

/// A value for the log, which prints a missing one as the C library does.
const char *printable(const char *value) {
    return value != nullptr ? value : "(null)";
}

} // namespace

void CUPSFilter::PPDCloser::operator()(ppd_file_t *file) const {
    ppdClose(file);
}

/// Asks CUPS for the PPD of the queue, whose name is argv[0]. False only where a PPD is needed and there is
/// none.
bool CUPSFilter::findPPD() {
    // The room for the path comes first: once there is a file, nothing may fail that would leave it behind.
    ppdFile.reserve(longestPPDPath);
    const char *path = cupsGetPPD(argv[0]);
    // Where it had to ask the scheduler, the CUPS library has made the process ignore SIGPIPE: take the
    // signal back.
    reinstallBrokenPipeHandler();
    if (path == nullptr) {
        CPSDebugAssert_("Unable to get ppd file");
        return !needsPPD;
    }
    ppdFile = path;
    return true;
}

void CUPSFilter::openPPD() {
    if (!ppdFile.empty()) {
        ppd.reset(ppdOpenFile(ppdFile.c_str()));
        // CUPS has made this copy or link for us, anew at every call, and leaves its removal to us.
        unlink(ppdFile.c_str());
    }
    if (ppd == nullptr) {
        CPSDebugAssert_("Unable to open ppd file");
        return;
    }
    if (ppd->nickname != nullptr) {
        printerName = ppd->nickname;
    }
    if (ppdFindAttr != nullptr) {
        readPPDAttributes();
    }
    if (!cupsICCProfile) {
        cupsICCProfile = objectForInfoDictionaryKey(profileName);
    }
}

void CUPSFilter::readPPDAttributes() {
    for (int i = 0; i < ppd->num_attrs; ++i) {
        const ppd_attr_t *attribute = ppd->attrs[i];
        CPSDebugLog("ppd attr %s = %s", attribute->name, printable(attribute->value));
        if (std::strcmp(attribute->name, "DefaultPaperType") == 0) {
            keepDefaultPaperType(attribute->value);
        }
    }
    const ppd_attr_t *profile = ppdFindAttr(ppd.get(), profileName, nullptr);
    if (profile != nullptr && profile->value != nullptr) {
        cupsICCProfile = profile->value;
    }
}

void CUPSFilter::keepDefaultPaperType(const char *value) {
    const std::string paperType = value != nullptr ? value : "";
    if (paperType.size() >= DefaultPaperType.size()) {
        CPSDebugAssert_("CUPSFilter initWithArgc:argv DefaultPaperType is longer than %zu characters: %s",
                        DefaultPaperType.size() - 1, paperType.c_str());
        return;
    }
    DefaultPaperType.fill('\0');
    paperType.copy(DefaultPaperType.data(), paperType.size());
    CPSDebugLog("DefaultPaperType: %s", DefaultPaperType.data());
}

} // namespace veltrin
