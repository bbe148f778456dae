#pragma once

#include <map>
#include <string>

namespace veltrin::test {

/// What makes programs on GNUstep look for their daemon, and keep their settings, in the private /tmp.
[[nodiscard]] std::map<std::string, std::string> gnustepEnvironment();

/// Gives this process that environment. GNUstep takes its own down before main() begins, so the process
/// begins anew, with the arguments that it had; at its second beginning this does nothing. To be called in
/// the private /tmp. Returns false where it cannot begin anew.
[[nodiscard]] bool enterGnustepEnvironment(char *const *arguments);

/// Whether this is the second beginning.
[[nodiscard]] bool isInGnustepEnvironment();

/// The daemon behind GNUstep's distributed notifications, one of this process's own, running while the object
/// lives and until the process ends: the library finds its way to another one only by failures. A daemon that
/// cannot be started fails the running test.
class PrivateGdnc {
  public:
    PrivateGdnc();
    PrivateGdnc(const PrivateGdnc &) = delete;
    PrivateGdnc &operator=(const PrivateGdnc &) = delete;

    /// By which programs find it.
    [[nodiscard]] static std::map<std::string, std::string> environment() { return gnustepEnvironment(); }

    /// Ends the daemon without a warning.
    static void kill();

    /// Starts one where there is none.
    static void start();

  private:
    class Daemon;

    static Daemon &daemon();
};

} // namespace veltrin::test
