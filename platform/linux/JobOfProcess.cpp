#include "platform/SchedulerJob.h"

#include <fstream>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::platform {

std::optional<unsigned> schedulerJob(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/cmdline", std::ios::binary);
    std::vector<std::string> arguments;
    for (std::string argument; std::getline(file, argument, '\0');) {
        arguments.push_back(argument);
    }
    const std::vector<std::string_view> views(arguments.begin(), arguments.end());
    return schedulerJob(views);
}

} // namespace veltrin::platform
