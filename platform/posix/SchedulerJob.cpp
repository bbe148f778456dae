#include "platform/SchedulerJob.h"

#include <unistd.h>

#include <charconv>
#include <csignal>

namespace veltrin::platform {

std::optional<unsigned> schedulerJob(std::span<const std::string_view> arguments) {
    constexpr std::size_t withoutFile = 6;
    if (arguments.size() != withoutFile && arguments.size() != withoutFile + 1) {
        return std::nullopt;
    }
    const std::string_view text = arguments[1];
    unsigned job = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), job);
    return error == std::errc() && end == text.data() + text.size() ? std::optional(job) : std::nullopt;
}

std::string objectionToPeer(pid_t process) {
    const std::optional<unsigned> own = schedulerJob(getpid());
    const std::optional<unsigned> peers = schedulerJob(process);
    if (!own || !peers || *own == *peers) {
        return "";
    }
    return "it works for job " + std::to_string(*peers) + ", not " + std::to_string(*own);
}

bool askPeerToEnd(pid_t process) {
    const std::optional<unsigned> own = schedulerJob(getpid());
    return own && schedulerJob(process) == own && kill(process, SIGTERM) == 0;
}

} // namespace veltrin::platform
