#include "backend/DeviceProcess.h"

#include <gtest/gtest.h>

#include <poll.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>

namespace veltrin::backend {
namespace {

TEST(DeviceProcessTest, DoesNotOutliveItsObject) {
    std::optional<DeviceProcess> device(std::in_place);
    ASSERT_EQ(device->start({.program = "/bin/sh",
                             .arguments = {"sh", "-c", "trap '' TERM; echo $$ >&2; exec sleep 60"},
                             .deviceUri = "test:"}),
              0);
    pollfd messages = {device->messages(), POLLIN, 0};
    ASSERT_EQ(poll(&messages, 1, 20'000), 1);
    const auto bytes = device->readMessages();
    const pid_t process = std::stoi(std::string(reinterpret_cast<const char *>(bytes.data()), bytes.size()));
    ASSERT_EQ(kill(process, 0), 0);
    device.reset();
    EXPECT_EQ(kill(process, 0), -1);
    EXPECT_EQ(errno, ESRCH);
}

/// The numbers of the descriptors are those that CUPS gives a backend.
TEST(DeviceProcessTest, IsReadOnItsBackChannelAndItsStandardError) {
    DeviceProcess device;
    ASSERT_EQ(device.start({.program = "/bin/sh",
                            .arguments = {"sh", "-c", "echo record >&3; echo message >&2; exec sleep 60"},
                            .deviceUri = "test:"}),
              0);
    const auto textFrom = [](int source, const auto &read) {
        pollfd watched = {source, POLLIN, 0};
        EXPECT_EQ(poll(&watched, 1, 20'000), 1);
        const std::span<const std::byte> bytes = read();
        return std::string(reinterpret_cast<const char *>(bytes.data()), bytes.size());
    };
    EXPECT_EQ(textFrom(device.messages(), [&] { return device.readMessages(); }), "message\n");
    EXPECT_EQ(textFrom(device.backChannel(), [&] { return device.readBackChannel(); }), "record\n");
}

} // namespace
} // namespace veltrin::backend
