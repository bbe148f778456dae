#include "tests/load/Watch.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

namespace veltrin::test {

namespace {

constexpr std::chrono::milliseconds interval{10};
constexpr std::size_t kibibyte = 1024;

/// The most memory that a process has had resident since its start, in bytes; 0 where it is no more.
std::size_t peakOf(pid_t process) {
    const std::string marker = "VmHWM:";
    std::ifstream status("/proc/" + std::to_string(process) + "/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with(marker)) {
            return std::stoul(line.substr(marker.size())) * kibibyte;
        }
    }
    return 0;
}

} // namespace

std::size_t openDescriptorsOf(pid_t process) {
    std::error_code error;
    std::filesystem::directory_iterator files("/proc/" + std::to_string(process) + "/fd", error);
    std::size_t count = 0;
    for (const std::filesystem::directory_iterator end; !error && files != end; files.increment(error)) {
        ++count;
    }
    return count;
}

Watch::Watch()
    : sampler([this] {
          std::unique_lock<std::mutex> guard(lock);
          while (!ending.wait_for(guard, interval, [this] { return isEnding; })) {
              sample();
          }
      }) {}

Watch::~Watch() {
    {
        const std::lock_guard<std::mutex> guard(lock);
        isEnding = true;
    }
    ending.notify_all();
    sampler.join();
}

void Watch::add(const std::string &role, pid_t process) {
    const std::lock_guard<std::mutex> guard(lock);
    processes.push_back({role, process});
}

Held Watch::heldBy(const std::string &role) const {
    const std::lock_guard<std::mutex> guard(lock);
    const auto entry = held.find(role);
    return entry != held.end() ? entry->second : Held();
}

void Watch::sample() {
    for (const Watched &watched : processes) {
        const std::size_t memory = peakOf(watched.process);
        if (memory == 0) {
            continue;
        }
        Held &most = held[watched.role];
        most.memory = std::max(most.memory, memory);
        most.descriptors = std::max(most.descriptors, openDescriptorsOf(watched.process));
        ++most.samples;
    }
}

} // namespace veltrin::test
