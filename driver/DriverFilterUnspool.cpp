// DriverFilter: reordering a spooled job for two-sided printing, and sending it.

#include "driver/DriverFilter.h"
#include "driver/DuplexOrder.h"
#include "driver/SendPlan.h"
#include "filter/WithinMemory.h"
#include "log/DebugLog.h"

namespace veltrin {

namespace {

/// How the log names the ways of sending a job: for a page sent in the first and in the second pass, and for
/// a page that failed.
struct BranchNames {
    const char *sending;
    const char *sendingSecondPass;
    const char *failed;
};

BranchNames namesOf(SendBranch branch) {
    switch (branch) {
    case SendBranch::uncollated:
        return {"(not-collated)", "(not-collated)", "(not-collated)"};
    case SendBranch::uncollatedDuplexUnit:
        return {"(uncollated) 1", "(uncollated) 1", "(uncollated)"};
    case SendBranch::collatedByHand:
        return {"(collated duplex) 1", "(collated duplex) 2", "(collated duplex)"};
    case SendBranch::collated:
    case SendBranch::collatedDuplexUnit:
        break;
    }
    return {"(collated) 1", "(collated) 1", "(collated)"};
}

} // namespace

bool DriverFilter::duplex(const std::string &order) {
    const std::uint32_t pathCount = spooled.pathCount();
    if (pathCount % 2 != 0) {
        CPSDebugLog("DriverFilter duplex: odd number of pages submitted: %d", asSigned(pathCount));
    } else if (const auto indexes = duplexOrder(order, pathCount)) {
        CPSDebugLog("DriverFilter duplex: Duplexing %s", order.c_str());
        spooled.reorder(*indexes);
    } else {
        CPSDebugLog("DriverFilter duplex: duplexing order not specified");
    }
    for (std::uint32_t i = 0; i < pathCount; ++i) {
        CPSDebugLog("DriverFilter duplex: path %d = %s", asSigned(i), spooled.path(i).c_str());
    }
    return true;
}

bool DriverFilter::unspoolPages() {
    if (settings.duplex) {
        markJobAsDuplex();
    }
    CPSDebugLog("DriverFilter unspoolPages: Sending file headers");
    constexpr const char *name = "DriverFilter unspoolPages";
    const bool headersSent = withinMemory(name, [this] { return writeFileHeaders(); });
    const bool lastPageSent = withinMemory(name, [&] { return sendPlannedPages(headersSent); });

    CPSDebugLog("DriverFilter unspoolPages: Sending EOJ");
    const bool ended = sendEndOfJob();
    if (!ended) {
        CPSDebugAssert_("DriverFilter unspoolPages: failed to send EOJ");
    }
    return lastPageSent && ended;
}

/// Tells the printer in the job file header how the sheets are turned.
void DriverFilter::markJobAsDuplex() {
    auto header = fileHeader.as<FileHeader>();
    const bool manualDuplex = boolForPPDAttr("VeltrinManualDuplex");
    header.wJobSetting =
        static_cast<std::uint16_t>(header.wJobSetting | duplexJobSetting(manualDuplex, duplexInstalled()));
    fileHeader.store(header);
}

/// Sends every page as often and in the order that the job asks for. A page that fails does not keep the
/// others from the printer, unless the job is cancelled and goes over the channel: they would fail as well,
/// each of them slowly, or be printed for nobody. The result is that of the last page, or `headersSent` where
/// there is none.
bool DriverFilter::sendPlannedPages(bool headersSent) {
    CPSDebugLog("DriverFilter unspoolPages: collate: %d, copies: %d, pathCount: %d", settings.collate,
                asSigned(settings.copies), asSigned(spooled.pathCount()));
    const SendJob job = {
        .pathCount = spooled.pathCount(),
        .copies = settings.copies,
        .collate = settings.collate,
        .duplex = settings.duplex,
        .duplexInstalled = duplexInstalled(),
        .duplexBypass = boolForPPDAttr("VeltrinDuplexBypass"),
    };
    const BranchNames names = namesOf(sendBranch(job));
    bool result = headersSent;
    forEachPlannedPage(job, [&](const PlannedPage &page) {
        const std::string &path = spooled.path(page.index);
        CPSDebugLog("DriverFilter unspoolPages %s: sending path %s, flags: %x",
                    page.secondPass ? names.sendingSecondPass : names.sending, path.c_str(),
                    unsigned{page.typeBits});
        result = withinMemory("DriverFilter copyPageFromPath",
                              [&] { return copyPageFromPath(path, page.typeBits, page.tray); });
        if (!result) {
            CPSDebugAssert_("DriverFilter unspoolPages %s: copyPageFromPath failed on index %d", names.failed,
                            asSigned(page.index));
        }
        return result || ipc == nullptr || !cancelled();
    });
    return result;
}

} // namespace veltrin
