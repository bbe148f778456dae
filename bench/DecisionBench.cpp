// What is done for every header, page or log line: the parts of a job that must cost almost nothing.

#include "driver/PageSelection.h"
#include "driver/SendPlan.h"
#include "driver/stream/BandRun.h"
#include "driver/stream/PageStream.h"
#include "log/DebugLog.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace veltrin {
namespace {

void LogCallWhileTheLogIsOff(benchmark::State &state) {
    for ([[maybe_unused]] const auto turn : state) {
        CPSDebugLog("page %d", 1);
    }
}

BENCHMARK(LogCallWhileTheLogIsOff);

void FindBandsInTheReadAheadBuffer(benchmark::State &state) {
    const auto bandSize = static_cast<std::uint32_t>(state.range(0));
    std::vector<std::byte> stream(std::size_t{128} * 1024);
    BandHeader header{};
    header.MagicNumber = bandHeaderTag;
    header.dwKSize = bandSize;
    for (std::size_t at = 0; at + sizeof header <= stream.size(); at += sizeof header + bandSize) {
        std::memcpy(&stream[at], &header, sizeof header);
    }
    for ([[maybe_unused]] const auto turn : state) {
        benchmark::DoNotOptimize(bandRunOf(stream));
    }
}

BENCHMARK(FindBandsInTheReadAheadBuffer)->Arg(0)->Arg(1024)->Arg(65536);

void SelectAndPlanATwoSidedJob(benchmark::State &state) {
    const auto pages = static_cast<std::uint32_t>(state.range(0));
    const JobSettings settings = {.copies = 2, .duplex = true, .longEdge = true, .sidesImaged = pages};
    for ([[maybe_unused]] const auto turn : state) {
        const CopyCounts counts = countCopy(settings, pages);
        const PageSelection selection = selectPages(settings, counts, pages, pairedPagesVersion);
        forEachPlannedPage(
            {.pathCount = static_cast<std::uint32_t>(selection.indexes.size()), .copies = 2, .duplex = true},
            [](const PlannedPage &page) {
                benchmark::DoNotOptimize(page);
                return true;
            });
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}

BENCHMARK(SelectAndPlanATwoSidedJob)->Arg(100)->Arg(10000);

} // namespace
} // namespace veltrin

BENCHMARK_MAIN();
