#include "driver/DriverFilter.h"
#include "filter/ProcessEntry.h"
#include "log/DebugLog.h"
#include "platform/StandardDescriptors.h"

int main(int argc, char **argv) {
    veltrin::platform::reserveStandardDescriptors();
    const std::unique_ptr<veltrin::platform::Platform> platform = veltrin::platform::makePlatform(
        [](const std::string &line) { veltrin::CPSDebugAssert_("CUPSFilter: %s", line.c_str()); });
    return veltrin::filterMain(argc, argv, *platform, [](veltrin::platform::Platform &ofProcess) {
        return std::make_unique<veltrin::DriverFilter>(ofProcess);
    });
}
