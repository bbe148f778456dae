#include "driver/DriverFilter.h"
#include "filter/ProcessEntry.h"
#include "filter/WithinMemory.h"
#include "log/DebugLog.h"
#include "platform/StandardDescriptors.h"

int main(int argc, char **argv) {
    veltrin::platform::reserveStandardDescriptors();
    const auto makeDriver = [](veltrin::platform::Platform &platform) {
        return std::make_unique<veltrin::DriverFilter>(platform);
    };
    const auto runFilter = [&] {
        const std::unique_ptr<veltrin::platform::Platform> platform = veltrin::platform::makePlatform(
            [](const std::string &line) { veltrin::CPSDebugAssert_("CUPSFilter: %s", line.c_str()); });
        return veltrin::filterMain(argc, argv, *platform, makeDriver) == 0;
    };
    return veltrin::withinMemory("main", runFilter) ? 0 : 1;
}
