#pragma once

#include <sys/types.h>

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace veltrin::test {

/// What a process may hold at any time of a job, however long that is. Where more than the limit passes
/// through, a process that kept hold of it would break the limit.
struct HoldLimit {
    std::size_t memory;      ///< resident, in bytes
    std::size_t descriptors; ///< open at a time
};

/// The most that processes have held since they were watched.
struct Held {
    std::size_t memory = 0;      ///< resident, in bytes, of the process that held most
    std::size_t descriptors = 0; ///< of the one that held most
    std::size_t samples = 0;
};

/// The descriptors that a process has open; 0 where it is no more.
[[nodiscard]] std::size_t openDescriptorsOf(pid_t process);

/// Looks into /proc a hundred times a second, in a thread of its own, at what the processes of a job hold.
class Watch {
  public:
    Watch();
    Watch(const Watch &) = delete;
    Watch &operator=(const Watch &) = delete;
    ~Watch();

    /// `role` is what the process is called in the table; several may have the same one.
    void add(const std::string &role, pid_t process);

    [[nodiscard]] Held heldBy(const std::string &role) const;

  private:
    struct Watched {
        std::string role;
        pid_t process;
    };

    void sample();

    mutable std::mutex lock;
    std::condition_variable ending;
    bool isEnding = false;
    std::vector<Watched> processes;
    std::map<std::string, Held> held;
    std::thread sampler;
};

} // namespace veltrin::test
