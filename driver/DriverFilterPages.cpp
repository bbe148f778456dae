// DriverFilter: copying single pages, and sending a job straight through.

#include "driver/DriverFilter.h"
#include "driver/PriorityTray.h"
#include "driver/SendPlan.h"
#include "filter/WithinMemory.h"
#include "log/DebugLog.h"

#include <bit>

namespace veltrin {

std::uint32_t pageBandNumber = 0;

namespace {

/// Reports what of a page could not be written.
bool isWritten(Written written) {
    switch (written) {
    case Written::headerFailed:
        CPSDebugAssert_("DriverFilter copyPageFrom: failed to write header");
        return false;
    case Written::dataFailed:
        CPSDebugAssert_("DriverFilter copyPageFrom: failed to write data");
        return false;
    case Written::all:
        break;
    }
    return true;
}

} // namespace

bool DriverFilter::copyPageFrom(PageInput &from, PageOutput &to, std::uint32_t additionalType,
                                std::uint8_t paperTray, bool &eoj) {
    std::uint32_t headerCount = 0;
    CopyStep step = CopyStep::goesOn;
    while (step == CopyStep::goesOn) {
        if (const BandRun run = to.bandsToBatch(from.kept()); run.bands != 0) {
            step = copyBandRun(from, to, run);
            headerCount += run.bands;
        } else {
            step = copyHeader(from, to, additionalType, paperTray);
            headerCount += step == CopyStep::endOfJob ? 0 : 1; // the mark is no header
        }
    }
    if (step == CopyStep::endOfJob) {
        eoj = true;
        CPSDebugLog("DriverFilter copyPageFrom: eoj at tag: %u", headerCount);
    } else if (step == CopyStep::pageDone) {
        CPSDebugLog("DriverFilter copyPageFrom: done with page");
    }
    return step != CopyStep::failed;
}

/// Copies bands that have been read ahead already.
DriverFilter::CopyStep DriverFilter::copyBandRun(PageInput &from, PageOutput &to, const BandRun &run) {
    if (!isWritten(to.writeBandRun(run, from.kept()))) {
        return CopyStep::failed;
    }
    from.skip(run.size);
    return run.endsPage ? CopyStep::pageDone : CopyStep::goesOn;
}

/// Copies one header and its data, unless it is the mark at the end of the job.
DriverFilter::CopyStep DriverFilter::copyHeader(PageInput &from, PageOutput &to, std::uint32_t additionalType,
                                                std::uint8_t paperTray) {
    StreamHeader header;
    std::int32_t headerSize = 0;
    std::int32_t dataSize = 0;
    const bool headerRead = from.readHeader(header, headerSize);
    const Tag tag = header.tag();
    if (headerRead && tag == endOfJobTag) {
        return CopyStep::endOfJob;
    }
    if (tag != bandHeaderTag && tag != pageHeaderTag) {
        // Copied all the same: the printer may know more kinds of header than we do.
        CPSDebugLog("DriverFilter copyPageFrom: encountered unexpected file header");
    }
    if (!headerRead) {
        return CopyStep::failed;
    }
    if (tag == pageHeaderTag) {
        patchPageHeader(header, additionalType, paperTray);
    }
    if (!from.readHeaderData(header, dataSize)) {
        CPSDebugAssert_("DriverFilter copyPageFrom: failed to read header and data");
        return CopyStep::failed;
    }
    if (to.isPrinter() &&
        !status->checkHeaderSize(static_cast<std::uint32_t>(headerSize), static_cast<std::uint32_t>(dataSize),
                                 isDuplexedPage(additionalType))) {
        return CopyStep::failed;
    }
    if (!isWritten(to.writeHeaderAndData(header, headerSize, from.data(), dataSize))) {
        return CopyStep::failed;
    }
    const bool isLast = tag == bandHeaderTag && header.as<BandHeader>().isLastOfPage();
    return isLast ? CopyStep::pageDone : CopyStep::goesOn;
}

void DriverFilter::patchPageHeader(StreamHeader &header, std::uint32_t additionalType,
                                   std::uint8_t paperTray) {
    PageHeader page = sentAs(header.as<PageHeader>(), additionalType, paperTray);
    if (isSDCJob()) {
        overrideTrayAndMedia(page);
    }
    pageBandNumber = std::bit_cast<LittleEndian16>(page.wBandNo);
    header.store(page);
}

bool DriverFilter::copyPageFromPath(const std::string &path, std::uint32_t additionalType,
                                    std::uint8_t paperTray) {
    PageInput from(path, inputMemory);
    if (!from.isOpen()) {
        CPSDebugAssert_("DriverFilter copyPageFromPath: unable to open file: %s", path.c_str());
        return false;
    }
    PageOutput to = printer();
    bool eoj = false;
    return copyPageFrom(from, to, additionalType, paperTray, eoj);
}

bool DriverFilter::isSDCJob() {
    const std::optional<std::uint32_t> tray = priorityTrayNamedBy(settings.jobName.value_or(""));
    if (!tray) {
        return false;
    }
    settings.priorityTray = *tray;
    CPSDebugLog("DriverFilter: isSDCJob - priorityTray = %d", asSigned(settings.priorityTray));
    return true;
}

/// Both the tray and the media are asked of the tray that the job's name names: the media is what lies in
/// that tray, not in the one that is printed from.
void DriverFilter::overrideTrayAndMedia(PageHeader &page) {
    page.bPaperTray =
        static_cast<std::uint8_t>(reverseData->priorityTrayForTargetTray(settings.priorityTray));
    const auto media = paperTypeField(settings.priorityTray);
    page.bMediaType = media != nullptr ? reverseData->snapshot().*media : std::uint8_t{0};
    CPSDebugLog("DriverFilter copyPageFrom: overriding tray (%d) and media type (%d)", page.bPaperTray,
                page.bMediaType);
}

/// Reads the job's two headers, in their order, from the input.
bool DriverFilter::readFileHeaders(PageInput &input) {
    // Direct sending and spooling both log under this name.
    CPSDebugLog("DriverFilter spoolPages Reading file headers");
    std::int32_t size = 0;
    if (!input.readHeader(fileHeader, size) || !input.readHeader(fileHeaderEx, size)) {
        return false;
    }
    if (fileHeader.tag() != fileHeaderTag || fileHeaderEx.tag() != fileHeaderExTag) {
        CPSDebugAssert_("DriverFilter readFileHeaders: The stream does not begin with the headers of a job");
        return false;
    }
    return true;
}

/// Sends the job's two headers to the printer.
bool DriverFilter::writeFileHeaders() {
    PageOutput to = printer();
    return to.writeToFD(fileHeader.data(), sizeof(FileHeader)) &&
           to.writeToFD(fileHeaderEx.data(), sizeof(FileHeaderEx));
}

bool DriverFilter::sendPages() {
    const bool result = withinMemory("DriverFilter sendPages", [this] { return sendHeadersAndPages(); });

    // The printer waits for the mark whatever has become of the pages.
    CPSDebugLog("DriverFilter sendPages: Sending EOJ");
    const bool ended = sendEndOfJob();
    if (!ended) {
        CPSDebugAssert_("DriverFilter sendPages: failed to send EOJ");
    }
    return result && ended;
}

bool DriverFilter::sendHeadersAndPages() {
    PageInput input(sourceFD, inputMemory);
    const bool valid = readFileHeaders(input);
    CPSDebugLog("DriverFilter sendPages: Sending file headers");
    bool result = valid && writeFileHeaders();
    PageOutput to = printer();
    bool eoj = false;
    while (result && !eoj) {
        result = copyPageFrom(input, to, 0, pagesOwnTray, eoj);
    }
    return result;
}

bool DriverFilter::sendEndOfJob() {
    const WireTag mark = endOfJobTag;
    return printer().writeToFD(&mark, sizeof mark);
}

} // namespace veltrin
