#include "driver/stream/CommandRecord.h"
#include "driver/stream/StreamMaker.h"
#include "tests/support/BytesAre.h"
#include "tests/support/CaseName.h"
#include "tests/support/ExpectedOutput.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"
#include "tests/support/TcpClient.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

// The virtual printer as a device at the end of a wire.

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::Command;
using test::ProcessResult;
using test::readFile;
using test::resetRecord;
using test::TcpClient;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

const std::string cancelRecord(cancelCommand.begin(), cancelCommand.end());

/// As the printer receives it.
std::string streamOf(StreamOptions options) {
    options.identifier.reset();
    return makeStream(options);
}

constexpr std::size_t headersSize = 120 + 152;
constexpr std::size_t pageSize = 64 + 4 * (32 + 1024);

class PrinterOnAWire : public testing::Test {
  protected:
    static constexpr const char *outputFile = "/tmp/printed";
    static constexpr const char *reportFile = "/tmp/report.json";

    /// Starts a printer with these members in its scenario, and waits until it listens.
    void startPrinter(const std::string &members = "", const std::string &listen = "0",
                      const std::vector<std::string> &moreArguments = {}) {
        test::writeFile("/tmp/scenario.json",
                        R"({"description": "x")" + (members.empty() ? "" : ", " + members) + "}");
        Command command{test::hostPath(VELTRIN_PRINTER),
                        {"veltrin-printer", "--listen=" + listen, "--scenario=/tmp/scenario.json",
                         std::string("--output=") + outputFile, std::string("--report=") + reportFile}};
        command.arguments.insert(command.arguments.end(), moreArguments.begin(), moreArguments.end());
        printer.emplace(command);
        ASSERT_TRUE(printer->waitUntil([this] { return saysPort(); })) << printer->errors();
    }

    bool says(const std::string &text) {
        return printer->waitUntil([&] {
            work();
            return printer->output().find(text) != std::string::npos;
        });
    }

    TcpClient &connect() { return *clients.emplace_back(std::make_unique<TcpClient>(port)); }

    /// Works until the client's connection is over.
    void finish(TcpClient &client) {
        client.finish();
        EXPECT_TRUE(printer->waitUntil([&] {
            work();
            return client.isClosed();
        })) << printer->output();
    }

    void send(TcpClient &client, const std::string &bytes) {
        client.send(bytes);
        EXPECT_TRUE(printer->waitUntil([&] {
            work();
            return client.hasSentAll();
        })) << printer->output();
    }

    bool receives(TcpClient &client, std::size_t bytes) {
        return printer->waitUntil([&] {
            work();
            return client.received.size() >= bytes;
        });
    }

    /// The printer's end. Returns the jobs of its report.
    nlohmann::json endPrinter(int exitStatus = 0) {
        printer->send(SIGTERM);
        const ProcessResult result = printer->finish();
        EXPECT_EQ(result.exitStatus, exitStatus) << result.output << result.errors;
        const nlohmann::json report = nlohmann::json::parse(readFile(reportFile));
        EXPECT_EQ(report["uri"], "socket://127.0.0.1:" + std::to_string(port));
        return report["jobs"];
    }

    [[nodiscard]] static std::vector<std::string> outcomesOf(const nlohmann::json &jobs) {
        std::vector<std::string> outcomes;
        for (const nlohmann::json &job : jobs) {
            outcomes.push_back(job["outcome"]);
        }
        return outcomes;
    }

    std::uint16_t port = 0;
    std::optional<test::Process> printer;
    std::vector<std::unique_ptr<TcpClient>> clients;

  private:
    void work() {
        for (const auto &client : clients) {
            client->work();
        }
    }

    bool saysPort() {
        const std::string &lines = printer->output();
        const std::size_t line = lines.find("listening on ");
        const std::size_t end = lines.find('\n', line);
        if (line == std::string::npos || end == std::string::npos) {
            return false;
        }
        port = static_cast<std::uint16_t>(std::stoi(lines.substr(lines.rfind(':', end) + 1)));
        return true;
    }
};

TEST_F(PrinterOnAWire, TakesAJobByteForByteAndSendsRecords) {
    startPrinter(R"("printer": {"pagesPerMinute": 6000})", "0", {"--jobs=1"});
    EXPECT_THAT(printer->output(), HasSubstr("listening on 127.0.0.1:")) << "without an address";
    TcpClient &client = connect();
    const std::string bytes = resetRecord() + streamOf({.pages = 3});
    client.send(bytes);
    ASSERT_TRUE(receives(client, 64));
    finish(client);
    EXPECT_FALSE(client.isReset());
    EXPECT_EQ(client.received.size() % 64, 0U);
    for (std::size_t at = 0; at < client.received.size(); at += 64) {
        EXPECT_EQ(client.received.substr(at, 4), "GDIR");
    }
    const ProcessResult result = printer->finish();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errors, "");
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(bytes));
    const nlohmann::json job = nlohmann::json::parse(readFile(reportFile))["jobs"].at(0);
    EXPECT_EQ(job["outcome"], "whole");
    EXPECT_EQ(job["printed"], 3);
    EXPECT_EQ(job["bytes"], bytes.size());
    EXPECT_GE(job["replies"], 1);
}

TEST_F(PrinterOnAWire, SaysNothingToAHostThatHasNotSentTheResetRecord) {
    startPrinter();
    TcpClient &client = connect();
    send(client, streamOf({}));
    ASSERT_TRUE(says("end of job"));
    finish(client);
    EXPECT_EQ(client.received, "");
    EXPECT_THAT(outcomesOf(endPrinter()), ElementsAre("whole"));
}

TEST_F(PrinterOnAWire, HoldsTheLineWhenItsMemoryIsFull) {
    constexpr std::size_t memory = 200'000;
    startPrinter(R"("recordInterval": 0.1, "printer": {"memory": {"image": 200000}},
                    "events": [{"afterPage": 1, "do": "cover-open"}])");
    TcpClient &client = connect();
    const std::string bytes = resetRecord() + streamOf({.pages = 1000});
    client.send(bytes);
    ASSERT_TRUE(says("holds the line: no memory"));
    // From now on nothing is taken, so what can be sent is sent when the record of the full memory has come.
    const std::size_t before = client.received.size();
    ASSERT_TRUE(receives(client, before + std::size_t{3} * 64)) << "records go on";
    const std::size_t pages = memory / 4096;
    const std::size_t inPage = memory - pages * 4096; // 3392 bytes: three bands and a part of the fourth
    const std::size_t taken = 16 + headersSize + pages * pageSize + 64 + std::size_t{4} * 32 + inPage;
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(bytes.substr(0, taken)));
    // The printer's own buffer and those of the network hold no more than that.
    EXPECT_THAT(client.sent(), AllOf(Ge(taken), Le(taken + 400'000)));
    EXPECT_FALSE(client.hasSentAll());
    EXPECT_THAT(outcomesOf(endPrinter(1)), ElementsAre("broken"));
    EXPECT_EQ(nlohmann::json::parse(readFile(reportFile))["jobs"][0]["overruns"].size(), 0U);
}

TEST_F(PrinterOnAWire, GoesOnWhenItHasMemoryAgain) {
    startPrinter(R"("printer": {"memory": {"image": 200000}, "pagesPerMinute": 60000},
                    "events": [{"afterPage": 1, "do": "cover-open", "for": 3}])");
    TcpClient &client = connect();
    const std::string bytes = resetRecord() + streamOf({.pages = 100});
    client.send(bytes);
    ASSERT_TRUE(says("holds the line: no memory"));
    finish(client);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(bytes));
    const nlohmann::json jobs = endPrinter();
    EXPECT_THAT(outcomesOf(jobs), ElementsAre("whole"));
    EXPECT_EQ(jobs[0]["overruns"].size(), 0U);
}

TEST_F(PrinterOnAWire, DropsAJobThatIsCancelledInMidBandAndTakesTheNext) {
    startPrinter();
    TcpClient &client = connect();
    const std::string cut =
        resetRecord() + streamOf({}).substr(0, headersSize + 64 + 32 + 500) + cancelRecord;
    const std::string next = resetRecord() + streamOf({.pages = 2});
    send(client, cut);
    ASSERT_TRUE(says("job 1 cancelled")) << "at once";
    send(client, next);
    finish(client);
    TcpClient &other = connect();
    send(other, next);
    finish(other);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(cut + next + next));
    const nlohmann::json jobs = endPrinter();
    EXPECT_THAT(outcomesOf(jobs), ElementsAre("cancelled", "whole", "whole"));
    EXPECT_EQ(jobs[0]["printed"], 0);
    EXPECT_EQ(jobs[0]["pages"].at(0)["complete"], false);
}

TEST_F(PrinterOnAWire, ShowsItsSheets) {
    startPrinter("", "0", {"--sheets=/tmp/sheets"});
    TcpClient &client = connect();
    StreamOptions options;
    options.fileName = "a letter";
    send(client, resetRecord() + streamOf(options));
    finish(client);
    endPrinter();
    EXPECT_THAT(readFile("/tmp/sheets/index.html"), HasSubstr("a letter"));
}

TEST_F(PrinterOnAWire, LetsASecondHostWaitForItsTurn) {
    startPrinter();
    TcpClient &first = connect();
    send(first, resetRecord() + streamOf({}).substr(0, 300));
    ASSERT_TRUE(says("command GDIC GDIREND"));
    TcpClient &second = connect();
    EXPECT_TRUE(second.isConnected());
    send(second, resetRecord() + streamOf({.pages = 2}));
    send(first, streamOf({}).substr(300));
    finish(first);
    finish(second);
    const nlohmann::json jobs = endPrinter();
    EXPECT_THAT(outcomesOf(jobs), ElementsAre("whole", "whole"));
    EXPECT_EQ(jobs[0]["pages"].size(), 1U);
    EXPECT_EQ(jobs[1]["pages"].size(), 2U);
}

TEST_F(PrinterOnAWire, BearsAHostThatGoesInMidJob) {
    startPrinter();
    send(connect(), resetRecord() + streamOf({}).substr(0, 1000));
    ASSERT_TRUE(says("> record"));
    clients.clear();
    ASSERT_TRUE(says("job 1 broken"));
    TcpClient &next = connect();
    send(next, streamOf({}));
    finish(next);
    EXPECT_THAT(outcomesOf(endPrinter(1)), ElementsAre("broken", "whole"));
}

TEST_F(PrinterOnAWire, ComesBackOnItsPortWhenItWasSwitchedOff) {
    startPrinter();
    const std::uint16_t before = port;
    TcpClient &lost = connect();
    send(lost, resetRecord() + streamOf({}).substr(0, 1000));
    ASSERT_TRUE(says("> record"));
    printer->send(SIGKILL);
    EXPECT_EQ(printer->finish().signal, SIGKILL);
    EXPECT_FALSE(TcpClient(port).isConnected());

    startPrinter("", std::to_string(before));
    EXPECT_EQ(port, before);
    TcpClient &next = connect();
    send(next, streamOf({}));
    finish(next);
    EXPECT_TRUE(lost.isClosed());
    EXPECT_THAT(outcomesOf(endPrinter()), ElementsAre("whole"));
}

TEST_F(PrinterOnAWire, CanBeReachedByIPv6) {
    const std::string ipv6Addresses = readFile("/proc/net/if_inet6");
    if (ipv6Addresses.find(std::string(31, '0') + "1 ") == std::string::npos) {
        GTEST_SKIP() << "this machine has no ::1";
    }
    startPrinter(R"("printer": {"pagesPerMinute": 6000})", "[::1]:0", {"--jobs=1"});
    EXPECT_THAT(printer->output(), HasSubstr("listening on [::1]:" + std::to_string(port) + "\n"));
    TcpClient &client = *clients.emplace_back(std::make_unique<TcpClient>(port, "::1"));
    send(client, streamOf({}));
    finish(client);
    EXPECT_EQ(printer->finish().exitStatus, 0);
    EXPECT_THAT(printer->output(), HasSubstr("< connection from [::1]:"));
    EXPECT_EQ(nlohmann::json::parse(readFile(reportFile))["uri"], "socket://[::1]:" + std::to_string(port));
}

TEST_F(PrinterOnAWire, IsForEverybodyWhereThatIsAskedFor) {
    startPrinter("", "0.0.0.0:0");
    EXPECT_THAT(printer->output(), HasSubstr("listening on 0.0.0.0:"));
    printer->send(SIGTERM);
    EXPECT_EQ(printer->finish().exitStatus, 0);
}

TEST_F(PrinterOnAWire, SaysWhyItCannotListen) {
    startPrinter();
    const auto start = [](const std::string &listen) {
        return test::run({test::hostPath(VELTRIN_PRINTER), {"veltrin-printer", "--listen=" + listen}});
    };
    const std::string own = "127.0.0.1:" + std::to_string(port);
    const ProcessResult taken = start(own);
    EXPECT_EQ(taken.exitStatus, 1);
    EXPECT_EQ(taken.errors,
              "veltrin-printer: cannot listen on " + own +
                  ": Address already in use; end the program that does, or choose another port\n");
    const ProcessResult foreign = start("192.0.2.1:9100");
    EXPECT_EQ(foreign.exitStatus, 1);
    EXPECT_EQ(foreign.errors,
              "veltrin-printer: cannot listen on 192.0.2.1:9100: Cannot assign requested address\n");
    EXPECT_EQ(endPrinter().size(), 0U);
}

// ---- Faults of the wire

TEST_F(PrinterOnAWire, CutsTheConnectionInMidBand) {
    startPrinter(R"("events": [{"afterPage": 1, "do": "cut"}])");
    TcpClient &client = connect();
    client.send(resetRecord() + streamOf({.pages = 3}));
    ASSERT_TRUE(says("! the wire is cut"));
    finish(client);
    EXPECT_TRUE(client.isReset());
    TcpClient &next = connect();
    send(next, streamOf({}));
    finish(next);
    const nlohmann::json jobs = endPrinter(1);
    EXPECT_THAT(outcomesOf(jobs), ElementsAre("broken", "whole"));
    EXPECT_EQ(jobs[0]["bytes"], 16 + headersSize + pageSize + 64 + 32 + 512);
}

TEST_F(PrinterOnAWire, IsSwitchedOffForAWhile) {
    startPrinter(R"("events": [{"afterPage": 1, "do": "vanish", "for": 0.5}])");
    TcpClient &client = connect();
    client.send(resetRecord() + streamOf({.pages = 3}));
    ASSERT_TRUE(says("gone without a word"));
    finish(client);
    EXPECT_TRUE(client.isReset());
    ASSERT_TRUE(says("there again"));
    EXPECT_TRUE(printer->waitUntil([this] { return connect().isConnected(); }));
    finish(*clients.back());
    EXPECT_THAT(outcomesOf(endPrinter(1)), ElementsAre("broken"));
}

TEST_F(PrinterOnAWire, EndsWhenItIsSwitchedOffForGood) {
    startPrinter(R"("events": [{"afterPage": 1, "do": "vanish"}])");
    send(connect(), streamOf({.pages = 3}));
    EXPECT_EQ(printer->finish().exitStatus, 1);
}

struct RecordCase {
    const char *name;
    const char *fault;
    std::size_t size; ///< of what comes in place of the second record
    std::string begin;
};

class PrinterWithBadRecords : public PrinterOnAWire, public testing::WithParamInterface<RecordCase> {};

TEST_P(PrinterWithBadRecords, SendsGoodOnesAgain) {
    startPrinter(R"("recordInterval": 0.1, "records": [{"first": 2, "last": 2, "fault": ")" +
                 std::string(GetParam().fault) + R"("}])");
    TcpClient &client = connect();
    client.send(resetRecord());
    const std::size_t size = GetParam().size;
    ASSERT_TRUE(receives(client, 64 + size + 64));
    EXPECT_EQ(client.received.substr(0, 4), "GDIR");
    EXPECT_EQ(client.received.substr(64, GetParam().begin.size()), GetParam().begin);
    const std::string third = client.received.substr(64 + size, 64);
    EXPECT_EQ(third, client.received.substr(0, 64)) << "nothing has changed";
    finish(client);
    endPrinter(1);
}

INSTANTIATE_TEST_SUITE_P(
    Faults, PrinterWithBadRecords,
    testing::Values(RecordCase{"missing", "missing", 0, "GDIR"}, RecordCase{"half", "half", 32, "GDIR"},
                    RecordCase{"garbage", "garbage", 17 + 64, "\x1b%-12345X GDI GDIGDIR"},
                    RecordCase{"wrong tag", "wrong-tag", 64, "RIDG"}),
    test::nameOfCase<RecordCase>);

TEST_F(PrinterOnAWire, TakesAWholeJobFromASlowLine) {
    startPrinter(R"("events": [{"at": 0, "do": "slow-line", "bytesPerSecond": 10000}])");
    TcpClient &client = connect();
    const std::string bytes = resetRecord() + streamOf({.pages = 2});
    client.send(bytes);
    finish(client);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(bytes));
    EXPECT_THAT(outcomesOf(endPrinter()), ElementsAre("whole"));
}

// ---- CUPS's own backend in front of it

class PrinterBehindCups : public PrinterOnAWire {
  protected:
    static constexpr const char *backChannel = "/tmp/back-channel";
    static constexpr const char *sideChannel = "/tmp/side-channel"; // which nobody uses

    ~PrinterBehindCups() override { unlink(sideChannel); }

    void SetUp() override { ASSERT_EQ(mkfifo(sideChannel, 0600), 0); }

    /// The backend as the scheduler starts it, for these bytes from a filter.
    [[nodiscard]] Command backend(const std::string &bytes) const {
        Command command{"/bin/sh",
                        {"sh", "-c",
                         "exec 3>" + std::string(backChannel) + " 4<>" + sideChannel + " " +
                             CUPS_SOCKET_BACKEND + " 1 user title 1 ''"}};
        command.environment = {{"DEVICE_URI", "socket://127.0.0.1:" + std::to_string(port) + "/?snmp=false"},
                               {"CUPS_SERVER", test::noScheduler}};
        command.input = test::Text{bytes};
        return command;
    }
};

TEST_F(PrinterBehindCups, TakesJobsByteForByteAndItsRecordsComeBack) {
    startPrinter();
    const std::string bytes = resetRecord() + streamOf({.pages = 5, .planeSizes = dealtOut(100'000)});
    for (int job = 0; job < 2; ++job) {
        const ProcessResult result = test::run(backend(bytes));
        EXPECT_EQ(result.exitStatus, 0) << result.errors;
        const std::string records = readFile(backChannel);
        EXPECT_GE(records.size(), 64U);
        EXPECT_EQ(records.size() % 64, 0U);
        EXPECT_EQ(records.substr(0, 4), "GDIR");
    }
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(bytes + bytes));
    EXPECT_THAT(outcomesOf(endPrinter()), ElementsAre("whole", "whole"));
}

TEST_F(PrinterBehindCups, DropsACancelledJob) {
    startPrinter();
    const std::string cut =
        resetRecord() + streamOf({}).substr(0, headersSize + 64 + 32 + 500) + cancelRecord;
    EXPECT_EQ(test::run(backend(cut)).exitStatus, 0);
    EXPECT_EQ(test::run(backend(resetRecord() + streamOf({}))).exitStatus, 0);
    EXPECT_THAT(outcomesOf(endPrinter()), ElementsAre("cancelled", "whole"));
}

} // namespace
} // namespace veltrin
