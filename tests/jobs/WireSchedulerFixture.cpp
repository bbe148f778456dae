#include "tests/jobs/WireSchedulerFixture.h"

#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <unistd.h>

#include <csignal>
#include <cstddef>

namespace veltrin::test {

using testing::Contains;
using testing::Matches;

/// As installed, where the users that the bus is for can be had.
std::string WireSchedulerFixture::busConfiguration() {
    return geteuid() == 0
               ? PrivateBus::systemPolicy + ("<include>" + hostPath(VELTRIN_BUS_POLICY) + "</include>")
               : std::string(PrivateBus::openPolicy);
}

void WireSchedulerFixture::switchOn(const std::string &members) {
    writeFile("/tmp/scenario.json", R"({"description": "x", )" + members + "}");
    printer.emplace(Command{hostPath(VELTRIN_PRINTER),
                            {"veltrin-printer", "--listen=" + port, "--scenario=/tmp/scenario.json",
                             std::string("--output=") + outputFile, std::string("--report=") + reportFile}});
    const std::string listening = "listening on 127.0.0.1:";
    ASSERT_TRUE(printer->waitUntil([&] {
        const std::string &lines = printer->output();
        const std::size_t at = lines.find(listening);
        const std::size_t end = lines.find('\n', at);
        if (at == std::string::npos || end == std::string::npos) {
            return false;
        }
        port = lines.substr(at + listening.size(), end - at - listening.size());
        return true;
    })) << printer->errors();
}

std::vector<std::string> WireSchedulerFixture::switchOff() {
    printer->send(SIGTERM);
    const ProcessResult result = printer->finish();
    std::vector<std::string> outcomes;
    for (const nlohmann::json &job : jobsIn(reportFile)) {
        outcomes.push_back(job["outcome"]);
    }
    EXPECT_EQ(result.exitStatus, Matches(Contains("broken"))(outcomes) ? 1 : 0);
    return outcomes;
}

std::string WireSchedulerFixture::deviceUri() const {
    return "veltrin:socket://127.0.0.1:" + port + "/?snmp=false";
}

void WireSchedulerFixture::startScheduler(int backendMode) {
    scheduler.emplace(deviceUri(), backendMode);
    scheduler->installBackend("socket", hostPath(CUPS_SOCKET_BACKEND));
}

int WireSchedulerFixture::submit(const StreamOptions &stream, const std::vector<std::string> &options) {
    return scheduler->submit(makeStream(stream), forLp(options));
}

bool WireSchedulerFixture::hasReason(const std::string &reason) const {
    return Matches(Contains(reason))(scheduler->queueStatus().reasons);
}

} // namespace veltrin::test
