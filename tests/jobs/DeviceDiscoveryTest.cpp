// The backend for devices, asked for the printers that it finds.

#include "tests/jobs/DeviceFixture.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <string>

namespace veltrin {
namespace {

using test::Command;
using test::ProcessResult;

class DeviceDiscovery : public test::DeviceFixture {
  protected:
    /// A backend that finds these devices, and then does something else.
    static void installFinder(const std::string &name, const std::string &lines,
                              const std::string &then = "exit 0") {
        const std::string path = std::string(serverBin) + "/backend/" + name;
        test::writeFile(path,
                        "#!/bin/sh\ntest $# -eq 0 || exit 1\ncat <<'END'\n" + lines + "END\n" + then + "\n");
        std::filesystem::permissions(path, std::filesystem::perms(0755));
    }

    [[nodiscard]] Command discovery() const {
        Command command = backendCommand();
        command.arguments = {"veltrin"};
        return command;
    }
};

TEST_F(DeviceDiscovery, OffersThePrintersOfOursWithItsPrefix) {
    installFinder("usb", R"(direct usb://Other/P1 "Other P1" "Other P1 USB" "MFG:Other;MDL:P1;" ""
direct usb://Morvex/LX%20410N?serial=1 "Morvex LX 410N" "a \"fine\" printer" "MFG:Morvex;MDL:LX 410N;" "Room \\1"
direct usb
DEBUG: nonsense
)");
    installFinder(
        "snmp",
        R"(network socket://10.0.0.9 "Morvex LX 520N" "Morvex LX 520N 10.0.0.9" "MFG:Morvex;MDL:LX 520N;"
network lpd://10.0.0.9/lp "Morvex LX 520N" "Morvex LX 520N 10.0.0.9" "MFG:Morvex;MDL:LX 520N;"
network socket://10.0.0.8 "Morvex LX 520N" "without an ID"
)");
    // Before it would give up on those who still look.
    const ProcessResult result = test::run(discovery(), std::chrono::seconds(8));
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(
        test::linesOf(result.output),
        testing::UnorderedElementsAre(
            R"(direct veltrin:usb://Morvex/LX%20410N?serial=1 "Morvex LX 410N" "a \"fine\" printer" "MFG:Morvex;MDL:LX 410N;" "Room \\1")",
            R"(network veltrin:socket://10.0.0.9 "Morvex LX 520N" "Morvex LX 520N 10.0.0.9" "MFG:Morvex;MDL:LX 520N;" "")"));
}

TEST_F(DeviceDiscovery, FindsNothingWhereCupsHasNoBackends) {
    const ProcessResult result = test::run(discovery());
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, "");
}

constexpr const char *found =
    "network socket://x \"Morvex LX 520N\" \"x\" \"MFG:Morvex;MDL:LX 520N;\" \"\"\n";
constexpr const char *offered =
    "network veltrin:socket://x \"Morvex LX 520N\" \"x\" \"MFG:Morvex;MDL:LX 520N;\" \"\"\n";

TEST_F(DeviceDiscovery, OffersAtOnceWhatItFindsAndEndsWhenItIsToldTo) {
    installFinder("dnssd", found, "exec sleep 60");
    test::Process process(discovery());
    ASSERT_TRUE(process.waitUntil([&] { return process.output() == offered; })) << process.output();
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().exitStatus, 0);
}

TEST_F(DeviceDiscovery, OffersWhatStandsInALineWithoutAnEnd) {
    installFinder("dnssd", "", "printf '%s' '" + std::string(found, std::strlen(found) - 1) + "'");
    EXPECT_EQ(test::run(discovery()).output, offered);
}

TEST_F(DeviceDiscovery, AsksAFinderToEnd) {
    installFinder("dnssd", "",
                  "trap 'touch /tmp/device/asked; exit 0' TERM; touch /tmp/device/finder; "
                  "while :; do sleep 0.05; done");
    test::Process process(discovery());
    ASSERT_TRUE(process.waitUntil([] { return std::filesystem::exists("/tmp/device/finder"); }));
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().exitStatus, 0);
    EXPECT_TRUE(std::filesystem::exists("/tmp/device/asked"));
}

TEST_F(DeviceDiscovery, EndsWithAFinderThatWillNot) {
    installFinder("dnssd", found, "trap '' TERM; echo $$ >/tmp/device/finder; exec sleep 60");
    test::Process process(discovery());
    ASSERT_TRUE(process.waitUntil([&] {
        return process.output() == offered && std::filesystem::exists("/tmp/device/finder") &&
               test::readFile("/tmp/device/finder").ends_with("\n");
    })) << process.output();
    process.send(SIGTERM);
    EXPECT_EQ(process.finish().exitStatus, 0);
    EXPECT_EQ(kill(std::stoi(test::readFile("/tmp/device/finder")), 0), -1) << "it is still there";
}

TEST_F(DeviceDiscovery, EndsByItselfBeforeCupsWaitsNoMore) {
    installFinder("dnssd", found, "exec sleep 60");
    const ProcessResult result = test::run(discovery(), std::chrono::seconds(15));
    EXPECT_FALSE(result.timedOut);
    EXPECT_EQ(result.output, offered);
}

TEST_F(DeviceDiscovery, RunsNothingAsRootThatOthersCanChange) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root has anything to fear";
    }
    installFinder("usb", "", "touch /tmp/device/run");
    installFinder("snmp", found);
    std::filesystem::permissions(std::string(serverBin) + "/backend/usb", std::filesystem::perms(0757));
    const ProcessResult result = test::run(discovery());
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.output, offered);
    EXPECT_THAT(result.errors,
                testing::StartsWith("ERROR: \"/tmp/lib/backend/usb\" has insecure permissions"));
    EXPECT_FALSE(std::filesystem::exists("/tmp/device/run"));
}

} // namespace
} // namespace veltrin
