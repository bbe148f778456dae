#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <vector>

namespace veltrin::test {

/// A user of the machine who has no right to take part, and sends the bus notifications as fast as it takes
/// them: broadcasts under the names of channels, and calls to whoever is on the bus. Every now and then he
/// comes back as somebody new.
class Stranger {
  public:
    /// Somebody else can be played by root alone.
    [[nodiscard]] static bool canBePlayed();

    /// Begins at once, in a process of its own, until the object's end.
    explicit Stranger(const std::vector<std::string> &names);
    Stranger(const Stranger &) = delete;
    Stranger &operator=(const Stranger &) = delete;
    ~Stranger();

    [[nodiscard]] unsigned long sent() const { return *count; }

  private:
    std::atomic<unsigned long> *count; ///< shared by both processes
    pid_t process = -1;
};

} // namespace veltrin::test
