#pragma once

#include <sys/types.h>

#include <cstddef>
#include <map>
#include <string>
#include <vector>

namespace veltrin::test {

/// The programs that distributions run as their system bus.
enum class BusKind { daemon, broker };

/// The program that the tests of this process use: dbus-broker where VELTRIN_TEST_BUS is "dbus-broker", else
/// dbus-daemon.
[[nodiscard]] BusKind busKind();

/// A message bus of the test's own, in the private /tmp, which stands for the system bus as long as the
/// object lives. A bus that cannot be started fails the running test.
class PrivateBus {
  public:
    /// Everybody may do everything.
    static constexpr const char *openPolicy = R"(
        <policy context="default">
          <allow user="*"/>
          <allow own="*"/>
          <allow send_destination="*"/>
          <allow receive_sender="*"/>
        </policy>)";

    /// The rules of a system bus as installed, without those of any service.
    static constexpr const char *systemPolicy = R"(
        <policy context="default">
          <allow user="*"/>
          <deny own="*"/>
          <deny send_type="method_call"/>
          <allow send_type="signal"/>
          <allow send_requested_reply="true" send_type="method_return"/>
          <allow send_requested_reply="true" send_type="error"/>
          <allow receive_type="method_call"/>
          <allow receive_type="method_return"/>
          <allow receive_type="error"/>
          <allow receive_type="signal"/>
          <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
        </policy>)";

    /// `configuration` goes into the bus's configuration file as it stands.
    explicit PrivateBus(const std::string &configuration = openPolicy);

    PrivateBus(const PrivateBus &) = delete;
    PrivateBus &operator=(const PrivateBus &) = delete;
    ~PrivateBus();

    /// By which programs find it; set in the test's own environment as well.
    [[nodiscard]] std::map<std::string, std::string> environment() const;

    /// Ends the bus without a warning.
    void kill();

    /// Lets the bus stand still: connections stay, nothing is taken off them.
    void freeze() const;
    void thaw() const;

    /// The bus itself, last; before it the program that launched it, where there is one.
    [[nodiscard]] const std::vector<pid_t> &processIds() const { return processes; }

    /// The most memory that the bus has used since its start, in bytes.
    [[nodiscard]] std::size_t peakMemory() const;

  private:
    void start(const std::string &configuration);
    void startDaemon(const std::string &configurationFile);
    void startBroker(const std::string &configurationFile);

    std::string directory;
    std::string address;
    std::vector<pid_t> processes;
    pid_t keeper = -1; // ends several processes together; -1 where there is one
};

/// The most memory a process has used since its start or since its mark was last reset, in bytes.
[[nodiscard]] std::size_t peakMemoryOf(pid_t process);

} // namespace veltrin::test
