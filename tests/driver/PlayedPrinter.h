#pragma once

#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Redirected.h"

#include <gtest/gtest.h>

#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace veltrin::test {

inline constexpr std::uint32_t mebibyte = 0x100000;

/// The device URI of the printer that is played.
inline const std::string printerUri = "socket://printer.example:9100/?waiteof=false";

[[nodiscard]] std::vector<std::byte> bytesOf(const std::string &text);
[[nodiscard]] std::string textOf(const std::vector<std::byte> &bytes);

/// What the printer says of itself.
struct PrinterState {
    std::uint8_t port = 0;
    std::uint8_t status = 0;
    std::uint8_t sub1 = 0;
    std::uint32_t headerMemory = 16 * mebibyte;
    std::uint32_t imageMemory = 256 * mebibyte;
    bool duplexUnit = false;

    /// As a status record; the paper types are 33 in the bypass tray, 11 in tray 1 and 22 in tray 2.
    [[nodiscard]] std::vector<std::byte> record() const;
};

/// A printer and its backend, played by the test at the other end of a channel in virtual time. What goes to
/// the standard descriptors is kept in files.
class PlayedPrinter : public testing::Test {
  protected:
    PlayedPrinter();
    ~PlayedPrinter() override;

    FakeNotificationCenter &center() { return platform.fakeNotificationCenter; }

    /// The job is cancelled once this many sleeps are over.
    void cancelAfterSleeps(std::size_t count);

    /// The objects of the notifications that the backend has got, in order.
    [[nodiscard]] std::vector<std::string> postedObjects();

    /// How often the backend was asked for a status record.
    [[nodiscard]] long readings();

    FakePlatform platform;
    PrinterState printer;
    bool backendPresent = true;

    /// What the backend got for the printer.
    std::string received;

    /// The backend's answer to a request for a status record.
    std::function<void()> answer = [this] { center().deliver("readPipe", printer.record()); };

    CapturedLog log;
    Redirected output{STDOUT_FILENO, "/tmp/stdout"};
    Redirected errors{STDERR_FILENO, "/tmp/stderr"};
};

} // namespace veltrin::test
