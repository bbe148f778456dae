#include "filter/ProcessEntry.h"

#include "filter/WithinMemory.h"
#include "log/DebugLog.h"

namespace veltrin {

int filterMain(int argc, char **argv, platform::Platform &platform, const FilterAllocator &allocate) {
    DebugUseClock(platform.clock());
    DebugStart();
    CPSDebugLog("veltrin starting");
    std::unique_ptr<CUPSFilter> filter;
    const bool isPrinted = withinMemory("filterMain", [&] {
        filter = CUPSFilter::initWithArgc(allocate(platform), argc, argv);
        return filter != nullptr && filter->run();
    });
    const int result = isPrinted ? 0 : 1;
    filter.reset();
    CPSDebugLog("veltrin ending with result %d", result);
    return result;
}

} // namespace veltrin
