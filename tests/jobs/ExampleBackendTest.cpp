#include "platform/linux/NotificationPath.h"
#include "tests/jobs/PrinterFixture.h"
#include "tests/support/BusClient.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

// The backend of docs/examples/ at the other end of the channel from the filter.

namespace veltrin {
namespace {

using test::BusClient;
using test::Bytes;
using test::BytesAre;
using test::cancelRecord;
using test::notificationArguments;
using test::printed;
using test::ProcessResult;
using test::readFile;
using test::resetRecord;
using testing::ElementsAre;
using testing::HasSubstr;

class ExampleBackend : public test::PrinterFixture {
  protected:
    ExampleBackend() { uri = std::string("veltrin-example:") + outputFile + "?serial=1"; }

    [[nodiscard]] test::Command backendCommand() const {
        test::Command command{test::hostPath(VELTRIN_EXAMPLE_BACKEND), {uri, "7", "user", "title", "1", ""}};
        command.environment = {{"DEVICE_URI", uri},
                               {"DBUS_SYSTEM_BUS_ADDRESS", std::getenv("DBUS_SYSTEM_BUS_ADDRESS")}};
        command.input = test::Pipe();
        return command;
    }

    void startBackend(const std::string &device = outputFile) {
        uri = "veltrin-example:" + device + "?serial=1";
        printer.emplace(backendCommand());
        ASSERT_TRUE(says(*printer, "DEBUG: listening\n")) << printer->errors();
    }
};

TEST_F(ExampleBackend, TakesAOneSidedJob) {
    StreamOptions options;
    options.pages = 3;
    startBackend();
    startFilter({.stream = makeStream(options)});
    const ProcessResult result = finishFilter();
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_THAT(statusLines(result), ElementsAre("INFO: Ready"));
    EXPECT_EQ(finishBackend().exitStatus, 0);
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(resetRecord() + printed(options, 0, "1 2 3")));
}

class ExampleBackendWithBlocks : public ExampleBackend, public testing::WithParamInterface<std::uint32_t> {};

TEST_P(ExampleBackendWithBlocks, TakesATwoSidedJobOfLargeBlocks) {
    startBackend();
    const std::string expected = printTwoSidedJob(GetParam());
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(expected));
}

INSTANTIATE_TEST_SUITE_P(Sizes, ExampleBackendWithBlocks, testing::Values(65'535, 65'536, 300'000),
                         testing::PrintToStringParamName());

TEST_F(ExampleBackend, WaitsWhileAnotherJobHasThePrinter) {
    startBackend();
    expectSecondToWait(backendCommand());
}

TEST_F(ExampleBackend, AsksForAnotherTryWhereThePrinterWasBusyAllTheTime) {
    constexpr int backendRetryCurrent = 7;
    startBackend();
    test::Process second(backendCommand());
    ASSERT_TRUE(says(second, "INFO: Waiting"));
    second.closeInput(); // its filter has given up
    EXPECT_EQ(second.finish().exitStatus, backendRetryCurrent);

    test::Process third(backendCommand());
    ASSERT_TRUE(says(third, "INFO: Waiting"));
    third.send(SIGTERM);
    EXPECT_EQ(third.finish().exitStatus, 0) << "cancelled";
    printer->send(SIGTERM);
    EXPECT_EQ(finishBackend().exitStatus, 0);
}

TEST_F(ExampleBackend, TakesTheDocumentsOfAJobOneAfterTheOther) {
    startBackend();
    for (int document = 0; document < 2; ++document) {
        startFilter();
        EXPECT_EQ(finishFilter().exitStatus, 0);
    }
    EXPECT_EQ(finishBackend().exitStatus, 0);
    const std::string document = resetRecord() + printed(StreamOptions(), 0, "1");
    EXPECT_THAT(Bytes(readFile(outputFile)), BytesAre(document + document));
}

TEST_F(ExampleBackend, TakesACancelledJobToItsEnd) {
    startBackend();
    startFilter({.input = test::Pipe()});
    awaitLog("FrontendIPC readData Completed", 2);
    // As the scheduler does: to both at once.
    printer->send(SIGTERM);
    filter->send(SIGTERM);
    filter->closeInput();
    EXPECT_EQ(finishFilter().exitStatus, 1);
    EXPECT_EQ(finishBackend().exitStatus, 0);
    EXPECT_THAT(readFile(outputFile), testing::EndsWith(cancelRecord()));
}

TEST_F(ExampleBackend, EndsAtOnceWhenAJobIsCancelledThatHasNoFilterYet) {
    BusClient host(uri + ".frontend");
    startBackend();
    printer->send(SIGTERM);
    EXPECT_EQ(printer->finish().exitStatus, 0);
    ASSERT_TRUE(host.awaitReceived(2));
    std::vector<std::string> objects;
    for (const BusClient::Message &message : host.received) {
        const char *object = nullptr;
        ASSERT_GE(sd_bus_message_skip(message.get(), "s"), 0);
        ASSERT_GT(sd_bus_message_read(message.get(), "v", "s", &object), 0);
        objects.emplace_back(object);
    }
    EXPECT_THAT(objects, ElementsAre("backend-alive", "backend-byebye"));
}

TEST_F(ExampleBackend, FailsWhenTheFilterLeavesInTheMiddle) {
    startBackend();
    startFilter();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    startFilter({.input = test::Pipe()}); // of another document
    awaitLog("FrontendIPC readData Completed", 4);
    filter->send(SIGKILL);
    EXPECT_EQ(finishFilter().signal, SIGKILL);
    const ProcessResult result = finishBackend();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors, HasSubstr("ERROR: the filter left in the middle of its job\n"));
}

TEST_F(ExampleBackend, FailsWhenNoFilterComes) {
    startBackend();
    EXPECT_EQ(finishBackend().exitStatus, 1);
}

TEST_F(ExampleBackend, FailsTheJobWhenItCannotWrite) {
    startBackend("/dev/full");
    startFilter();
    awaitStatusLine("ERROR: recoverable: Unable to communicate with printer");
    filter->send(SIGTERM);
    EXPECT_EQ(finishFilter().exitStatus, 1);
    const ProcessResult result = finishBackend();
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors, HasSubstr("ERROR: cannot write: No space left on device\n"));
}

TEST_F(ExampleBackend, BelievesOnlyTheBusThatAFilterHasLeft) {
    BusClient hearsBackend(uri + ".frontend");
    BusClient hearsFilter(uri + ".backend");
    startBackend();
    startFilter({.input = test::Pipe()});
    ASSERT_TRUE(hearsBackend.awaitReceived(1));
    ASSERT_TRUE(hearsFilter.awaitReceived(1));
    awaitLog("FrontendIPC readData Completed", 2);
    BusClient stranger("somebody else");
    stranger.forgeDeparture(sd_bus_message_get_sender(hearsBackend.received.front().get()),
                            sd_bus_message_get_sender(hearsFilter.received.front().get()));
    stranger.waitForBus();
    filter->write(makeStream(StreamOptions()));
    filter->closeInput();
    EXPECT_EQ(finishFilter().exitStatus, 0);
    EXPECT_EQ(finishBackend().exitStatus, 0);
}

/// Sends the backend a block in a memory file with these seals; returns the answer: "" or an error.
std::string answerToMemoryFile(BusClient &host, const std::string &backend, const std::string &name,
                               int seals) {
    host.replies.clear();
    host.call(backend, platform::notificationPath(name), [&](sd_bus_message *message) {
        const int descriptor = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        EXPECT_EQ(write(descriptor, "block", 5), 5);
        EXPECT_EQ(fcntl(descriptor, F_ADD_SEALS, seals), 0);
        EXPECT_GE(sd_bus_message_append(message, "sva{sv}", name.c_str(), "s", "writePipe", 1, "data", "h",
                                        descriptor),
                  0);
        close(descriptor);
    });
    return host.awaitReply() ? host.replies.front() : "no answer";
}

TEST_F(ExampleBackend, TakesMemoryFilesOnlyWhenTheyAreSealed) {
    const std::string name = uri + ".backend";
    BusClient host(uri + ".frontend");
    startBackend();
    ASSERT_TRUE(host.awaitReceived(1));
    const std::string backend = sd_bus_message_get_sender(host.received.front().get());
    constexpr int allSeals = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK;
    for (const int missing : {F_SEAL_WRITE, F_SEAL_GROW, F_SEAL_SHRINK}) {
        EXPECT_EQ(answerToMemoryFile(host, backend, name, allSeals & ~missing), SD_BUS_ERROR_INVALID_ARGS);
    }
    EXPECT_EQ(readFile(outputFile), "");
    EXPECT_EQ(answerToMemoryFile(host, backend, name, allSeals), "");
    EXPECT_EQ(readFile(outputFile), "block") << "the answer says that it is written";
}

TEST_F(ExampleBackend, RefusesOtherUsers) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root can be somebody else, too";
    }
    constexpr uid_t nobody = 65534;
    const std::string name = uri + ".backend";
    BusClient host(uri + ".frontend");
    startBackend();
    ASSERT_TRUE(host.awaitReceived(1));
    const std::string backend = sd_bus_message_get_sender(host.received.front().get());
    const pid_t stranger = fork();
    if (stranger == 0) {
        if (setuid(nobody) != 0) {
            _exit(EXIT_FAILURE);
        }
        BusClient client("somebody else");
        client.call(backend, platform::notificationPath(name), notificationArguments(name, "fronted-alive"));
        const bool isRefused = client.awaitReply() && client.replies.front() == SD_BUS_ERROR_ACCESS_DENIED;
        _exit(isRefused ? EXIT_SUCCESS : EXIT_FAILURE);
    }
    int status = -1;
    waitpid(stranger, &status, 0);
    EXPECT_EQ(status, EXIT_SUCCESS);
    EXPECT_TRUE(says(*printer, "DEBUG: refused "));
}

TEST_F(ExampleBackend, AnswersASecondFilterWhenTheFirstHasSaidGoodbye) {
    const std::string name = uri + ".backend";
    const std::string path = platform::notificationPath(name);
    BusClient first(uri + ".frontend");
    startBackend();
    ASSERT_TRUE(first.awaitReceived(1));
    const std::string backend = sd_bus_message_get_sender(first.received.front().get());
    first.signal(path, notificationArguments(name, "fronted-alive"));
    ASSERT_TRUE(first.awaitReceived(2));
    BusClient second(uri + ".frontend");
    second.signal(path, notificationArguments(name, "fronted-alive"));
    second.call(backend, path, notificationArguments(name, "readPipe"));
    ASSERT_TRUE(second.awaitReply());
    EXPECT_THAT(second.replies, ElementsAre(SD_BUS_ERROR_ACCESS_DENIED));
    EXPECT_EQ(second.received.size(), 0U);
    first.call(backend, path, notificationArguments(name, "frontend-byebye"));
    ASSERT_TRUE(second.awaitReceived(1));
    EXPECT_GT(sd_bus_message_is_method_call(second.received.front().get(), nullptr, nullptr), 0);
}

} // namespace
} // namespace veltrin
