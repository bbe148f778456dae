#pragma once

#include <string>

namespace veltrin::test {

/// Gives this process, and every process it starts, an empty /tmp and an empty /run of its own that go with
/// the process.
///
/// The product uses fixed names in /tmp; this way two test runs never meet there, and a test sees exactly
/// what the program under test left behind. In /run are the sockets of the machine's message bus and print
/// scheduler, which no test is to talk to by mistake. Returns false (with `problem` set) where the system
/// allows no mount namespace.
[[nodiscard]] bool enterPrivateFolders(std::string &problem);

/// Makes a folder look empty to this process and every process it starts. Returns false (with `problem` set)
/// where it cannot; a folder that is not there needs no hiding.
[[nodiscard]] bool hideFolder(const std::string &path, std::string &problem);

/// The scheduler that all tests are pointed at but those that start one: there is none. It is a path, so that
/// the CUPS library still takes PPDs from its server root.
inline constexpr const char *noScheduler = "/tmp/no scheduler";

/// Where a file of the machine is seen from inside the private folders: a build tree may itself lie in /tmp.
[[nodiscard]] std::string hostPath(const std::string &path);

} // namespace veltrin::test
