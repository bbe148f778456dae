// Which pages are sent, in what order and how often. The input: a byte of switches, the settings as numbers,
// a line with the name of an order, and the number of pages that were spooled.

#include "driver/DuplexOrder.h"
#include "driver/MemoryEstimate.h"
#include "driver/PageSelection.h"
#include "driver/SendPlan.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"

#include <algorithm>
#include <map>
#include <set>
#include <vector>

namespace veltrin::fuzz {

namespace {

constexpr std::uint32_t mostPages = 500;
constexpr std::uint32_t mostSent = 20000;

void requireOrder(const std::string &order, std::uint32_t pages) {
    const auto indexes = duplexOrder(order, pages);
    const bool isKnown = order == "214365" || order == "642135" || order == "246135";
    require(indexes.has_value() == isKnown, "three orders are known");
    if (indexes) {
        std::vector<std::uint32_t> sorted = *indexes;
        std::sort(sorted.begin(), sorted.end());
        require(sorted.size() == pages, "an order has every page");
        for (std::uint32_t i = 0; i < pages; ++i) {
            require(sorted[i] == i, "an order has every page once");
        }
        // Six pages are what the orders are named after.
        if (pages == 6) {
            std::string name;
            for (const std::uint32_t index : *indexes) {
                name += static_cast<char>('1' + index);
            }
            require(name == order, "an order is what its name says");
        }
    }
}

void requirePlan(const SendJob &job) {
    std::map<std::uint32_t, std::uint32_t> sent;
    std::uint64_t count = 0;
    std::uint64_t pauses = 0;
    bool isOrdered = true;
    std::uint32_t last = 0;
    forEachPlannedPage(job, [&](const PlannedPage &page) {
        require(page.index < job.pathCount, "every page that is sent is one of the copy");
        isOrdered = isOrdered && (page.index == last || page.index == last + 1);
        last = page.index;
        ++sent[page.index];
        pauses += (page.typeBits & pageTypePause) != 0 ? 1U : 0U;
        require(page.tray == pagesOwnTray || (page.tray == bypassTray && job.duplexBypass),
                "a page has its own tray, or the stack's that is turned by hand");
        return ++count < mostSent;
    });
    if (count == mostSent) {
        return; // the rest is not sent, as of a cancelled job
    }
    require(count == std::uint64_t{job.pathCount} * job.copies, "every page is sent in every copy");
    for (const auto &[index, times] : sent) {
        require(times == job.copies, "no page is sent more often than another");
    }
    require(pauses <= 1, "the stack is turned once");
    require(job.duplex || pauses == 0, "a one-sided job does not pause");
    require(job.collate || job.duplexInstalled || isOrdered, "copies stay together where nobody collates");
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    const std::uint8_t switches = input.byte();
    const std::string order = input.line();
    JobSettings settings;
    settings.collate = (switches & 1U) != 0;
    settings.duplex = (switches & 2U) != 0;
    settings.longEdge = (switches & 4U) != 0;
    const std::uint32_t systemVersion = (switches & 8U) != 0 ? pairedPagesVersion : pairedPagesVersion - 1;
    const std::uint32_t pageCount = input.number() % (mostPages + 1);
    settings.copies = std::max<std::uint32_t>(input.number(), 1);
    settings.sidesImaged = std::max<std::uint32_t>(input.number(), 1);

    settings = adjustedToPageCount(settings, pageCount);
    require(settings.copies >= 1 && settings.sidesImaged <= std::max<std::uint32_t>(pageCount, 1),
            "a job has a copy, and no more sides than pages");
    const CopyCounts counts = countCopy(settings, pageCount);
    const PageSelection selection = selectPages(settings, counts, pageCount, systemVersion);
    require(counts.pathCount <= pageCount, "a copy has no more pages than there are");
    require(selection.indexes.size() <= std::size_t{counts.pathCount} + 1, "nor does what is chosen");
    const std::set<std::uint32_t> chosen(selection.indexes.begin(), selection.indexes.end());
    require(chosen.size() == selection.indexes.size(), "no page is chosen twice");
    require(chosen.empty() || *chosen.rbegin() < pageCount, "a page that is chosen is there");
    require(selection.blankPage == BlankPage::none || settings.duplex,
            "a one-sided copy needs no blank page");
    require(selection.blankPage != BlankPage::appended || pageCount > 0,
            "a blank page is the last that came");
    static_cast<void>(includeBlankPage(counts.pathCount, (switches & 16U) != 0, order));

    auto pages = static_cast<std::uint32_t>(selection.indexes.size());
    pages += selection.blankPage == BlankPage::appended ? 1U : 0U;
    require(selection.blankPage == BlankPage::none || pages % 2 == 0 ||
                selection.blankPage == BlankPage::discarded,
            "a blank page makes the copy even");
    requireOrder(order, pages / 2 * 2);
    requirePlan({.pathCount = pages,
                 .copies = settings.copies,
                 .collate = settings.collate,
                 .duplex = settings.duplex,
                 .duplexInstalled = (switches & 16U) != 0,
                 .duplexBypass = (switches & 32U) != 0});

    MemoryEstimate memory = {input.number(), input.number()};
    const std::uint32_t headerSize = input.byte();
    const std::uint32_t dataSize = input.number() >> 1U;
    if (memory.hasRoomFor(headerSize, dataSize) && dataSize < 0x70000000U) {
        const MemoryEstimate before = memory;
        memory.subtract(headerSize, dataSize);
        require(memory.headerMemory <= before.headerMemory && memory.imageMemory <= before.imageMemory,
                "what there is room for does not wrap the printer's memory");
    }
    return 0;
}
