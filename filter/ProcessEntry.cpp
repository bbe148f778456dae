#include "filter/ProcessEntry.h"

#include "log/DebugLog.h"

namespace veltrin {

int filterMain(int argc, char **argv, platform::Platform &platform, const FilterAllocator &allocate) {
    DebugUseClock(platform.clock());
    DebugStart();
    CPSDebugLog("veltrin starting");
    std::unique_ptr<CUPSFilter> filter = CUPSFilter::initWithArgc(allocate(platform), argc, argv);
    const int result = filter != nullptr && filter->run() ? 0 : 1;
    filter.reset();
    CPSDebugLog("veltrin ending with result %d", result);
    return result;
}

} // namespace veltrin
