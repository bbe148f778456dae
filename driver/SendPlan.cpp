#include "driver/SendPlan.h"

namespace veltrin {

namespace {

using Send = std::function<bool(const PlannedPage &)>;

/// The instance of the middle page that carries the pause: the one with this number (from 0) among its
/// copies. Odd numbers of copies round down, so 2 and 3 copies pause at the first instance, 4 and 5 at the
/// second. One copy has only the first.
std::uint32_t pausingInstance(std::uint32_t copies) {
    return copies == 1 ? 0 : copies / 2 - 1;
}

void sendUncollated(const SendJob &job, const Send &send) {
    std::uint8_t tray = pagesOwnTray;
    for (std::uint32_t index = 0; index < job.pathCount; ++index) {
        for (std::uint32_t copy = 0; copy < job.copies; ++copy) {
            const bool pause =
                job.duplex && index == job.pathCount / 2 && copy == pausingInstance(job.copies);
            if (pause && job.duplexBypass) {
                tray = bypassTray;
            }
            if (!send({.index = index, .typeBits = pause ? pageTypePause : std::uint8_t{0}, .tray = tray})) {
                return;
            }
        }
    }
}

void sendUncollatedDuplexUnit(const SendJob &job, const Send &send) {
    for (std::uint32_t index = 0; index < job.pathCount; index += 2) {
        for (std::uint32_t copy = 0; copy < job.copies; ++copy) {
            if (!send({.index = index, .typeBits = pageTypeFirstOfSheet})) {
                return;
            }
            if (index + 1 < job.pathCount && !send({.index = index + 1, .typeBits = pageTypeSecondOfSheet})) {
                return;
            }
        }
    }
}

void sendCollated(const SendJob &job, const Send &send) {
    for (std::uint32_t copy = 0; copy < job.copies; ++copy) {
        for (std::uint32_t index = 0; index < job.pathCount; ++index) {
            if (!send({.index = index})) {
                return;
            }
        }
    }
}

void sendCollatedByHand(const SendJob &job, const Send &send) {
    const std::uint32_t half = job.pathCount / 2;
    for (std::uint32_t copy = 0; half > 0 && copy < job.copies; ++copy) {
        for (std::uint32_t index = 0; index < half; ++index) {
            if (!send({.index = index})) {
                return;
            }
        }
    }
    const std::uint8_t tray = job.duplexBypass ? bypassTray : pagesOwnTray;
    for (std::uint32_t copy = 0; copy < job.copies; ++copy) {
        for (std::uint32_t index = half; index < job.pathCount; ++index) {
            const bool pause = copy == 0 && index == half;
            if (!send({.index = index,
                       .typeBits = pause ? pageTypePause : std::uint8_t{0},
                       .tray = tray,
                       .secondPass = true})) {
                return;
            }
        }
    }
}

void sendCollatedDuplexUnit(const SendJob &job, const Send &send) {
    for (std::uint32_t copy = 0; copy < job.copies; ++copy) {
        for (std::uint32_t index = 0; index < job.pathCount; ++index) {
            if (!send({.index = index,
                       .typeBits = index % 2 == 0 ? pageTypeFirstOfSheet : pageTypeSecondOfSheet})) {
                return;
            }
        }
    }
}

} // namespace

SendBranch sendBranch(const SendJob &job) {
    if (!job.collate) {
        return job.duplexInstalled ? SendBranch::uncollatedDuplexUnit : SendBranch::uncollated;
    }
    if (!job.duplex) {
        return SendBranch::collated;
    }
    return job.duplexInstalled ? SendBranch::collatedDuplexUnit : SendBranch::collatedByHand;
}

void forEachPlannedPage(const SendJob &job, const Send &send) {
    if (job.pathCount == 0) {
        return;
    }
    switch (sendBranch(job)) {
    case SendBranch::uncollated:
        return sendUncollated(job, send);
    case SendBranch::uncollatedDuplexUnit:
        return sendUncollatedDuplexUnit(job, send);
    case SendBranch::collated:
        return sendCollated(job, send);
    case SendBranch::collatedByHand:
        return sendCollatedByHand(job, send);
    case SendBranch::collatedDuplexUnit:
        return sendCollatedDuplexUnit(job, send);
    }
}

PageHeader sentAs(PageHeader page, std::uint32_t typeBits, std::uint8_t tray) {
    page.bType |= static_cast<std::uint8_t>(typeBits);
    if (tray != pagesOwnTray) {
        page.bPaperTray = tray;
    }
    return page;
}

bool isDuplexedPage(std::uint32_t typeBits) {
    return (typeBits & pageTypeFirstOfSheet) == pageTypeFirstOfSheet;
}

std::uint16_t duplexJobSetting(bool manualDuplex, bool duplexInstalled) {
    return manualDuplex && !duplexInstalled ? jobSettingManualDuplex : jobSettingDuplex;
}

} // namespace veltrin
