#pragma once

#include "status/ReverseRecord.h"
#include "tests/jobs/PrinterFixture.h"

#include <functional>
#include <string>
#include <vector>

namespace veltrin::test {

/// Runs the filter and the backend for devices on a message bus of the test's own, with a device behind them
/// that is none (tests/jobs/DeviceBackend.cpp).
class DeviceFixture : public PrinterFixture {
  protected:
    static constexpr const char *folder = "/tmp/device";
    static constexpr const char *printedFile = "/tmp/device/printed";
    static constexpr const char *goFile = "/tmp/device/go";
    static constexpr const char *serverBin = "/tmp/lib";

    /// In the order of the scheduler's arguments.
    static inline const std::string arguments = "7\nuser\ntitle\n1\noptions\n";

    explicit DeviceFixture(const std::string &busConfiguration = PrivateBus::openPolicy);
    ~DeviceFixture() override;

    /// What the device says from now on: a printer that is ready, but for what `change` changes.
    static void setRecord(const std::function<void(ReverseRecord &)> &change = [](ReverseRecord &) {});

    /// A program in the folder where CUPS has its backends.
    static void installBackend(const std::string &name, const std::string &program);

    /// The backend as the scheduler starts it, for a device that does this.
    [[nodiscard]] Command backendCommand(const std::string &device = "") const;

    /// Starts it and waits until it listens.
    void startBackend(const std::string &device = "");

    [[nodiscard]] static std::string printedByDevice();
};

} // namespace veltrin::test
