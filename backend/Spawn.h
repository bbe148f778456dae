#pragma once

#include <sys/types.h>

#include <string>
#include <utility>
#include <vector>

// Children, and the pipes to them.

namespace veltrin::backend {

/// A descriptor of our own, closed at the end; -1 is none.
class OwnDescriptor {
  public:
    OwnDescriptor() = default;
    OwnDescriptor(const OwnDescriptor &) = delete;
    OwnDescriptor &operator=(const OwnDescriptor &) = delete;

    ~OwnDescriptor() { reset(); }

    void reset(int other = -1);

    [[nodiscard]] int get() const { return number; }

  private:
    int number = -1;
};

/// Makes a pipe whose `ownEnd` does not wait. Returns 0, or the system's number of what went wrong.
[[nodiscard]] int makePipe(OwnDescriptor &readEnd, OwnDescriptor &writeEnd, const OwnDescriptor &ownEnd);

/// Keeps the places of the descriptors that a backend is given besides the standard ones, where this process
/// was started without them: what it opens itself must not take them, and a child is not to find it there.
void reserveBackendDescriptors();

struct ChildStart {
    std::string program;
    std::vector<std::string> arguments; ///< argv
    std::vector<std::string> environment;
    std::vector<std::pair<const OwnDescriptor *, int>> descriptors; ///< each with its number in the child
};

/// Starts a child as the scheduler starts a backend: with the signals as at first, and with the descriptors
/// of a backend alone: those of our own that it may have, in the places that `descriptors` does not fill.
/// Returns 0, or the system's number of what went wrong.
[[nodiscard]] int spawn(const ChildStart &start, pid_t &process);

/// Waits for a child's end.
void awaitEnd(pid_t process);

/// This process's environment with a variable of another value.
[[nodiscard]] std::vector<std::string> environmentWith(const std::string &name, const std::string &value);

} // namespace veltrin::backend
