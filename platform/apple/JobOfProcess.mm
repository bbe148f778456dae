#include "platform/SchedulerJob.h"
#include "platform/apple/FoundationText.h"
#include "platform/apple/ReleasePool.h"
#include "platform/apple/SystemMessages.h"

#include <unistd.h>

#include <string>
#include <string_view>
#include <vector>

namespace veltrin::platform {

/// A process may look at its own arguments alone. That is all that is asked for here: who posts a
/// notification is not told either.
std::optional<unsigned> schedulerJob(pid_t process) {
    if (process != getpid()) {
        return std::nullopt;
    }
    const ReleasePool pool;
    std::vector<std::string> arguments;
    send(
        [&arguments] {
            NSArray *texts = [[NSProcessInfo processInfo] arguments];
            for (NSUInteger i = 0; i < [texts count]; ++i) {
                arguments.push_back(textOf([texts objectAtIndex:i]).value_or(""));
            }
        },
        [&arguments] { arguments.clear(); });
    const std::vector<std::string_view> views(arguments.begin(), arguments.end());
    return schedulerJob(views);
}

} // namespace veltrin::platform
