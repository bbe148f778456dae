// Whole jobs, from lp through a real scheduler, the filter, the channel and the backend for devices.

#include "tests/jobs/DeviceFixture.h"
#include "tests/jobs/Jobs.h"
#include "tests/jobs/PrivateScheduler.h"
#include "tests/support/BytesAre.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::Bytes;
using test::BytesAre;
using test::document;
using test::forLp;
using test::PrivateScheduler;
using test::resetRecord;
using testing::ElementsAre;
using testing::HasSubstr;

class DeviceScheduler : public test::DeviceFixture, public testing::WithParamInterface<int> {
  protected:
    void start(const std::string &device, int backendMode = PrivateScheduler::ordinaryBackend) {
        scheduler.emplace("veltrin:test:" + device, backendMode);
        scheduler->installBackend("test", test::hostPath(DEVICE_BACKEND));
    }

    int submit() { return scheduler->submit(makeStream(document()), forLp({"media=A4"})); }

    [[nodiscard]] bool hasReason(const std::string &reason) {
        const auto reasons = scheduler->queueStatus().reasons;
        return std::find(reasons.begin(), reasons.end(), reason) != reasons.end();
    }

    std::optional<PrivateScheduler> scheduler;
};

TEST_P(DeviceScheduler, AJobReachesTheDevice) {
    start("", GetParam());
    const int job = submit();
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    scheduler->expectIdleQueue();
    EXPECT_THAT(Bytes(printedByDevice()), BytesAre(resetRecord() + makeStream(document()).substr(36)))
        << scheduler->log();
    const bool isRoot = GetParam() == PrivateScheduler::rootsBackend && geteuid() == 0;
    EXPECT_THAT(test::readFile("/tmp/device/start"),
                HasSubstr("\ntest:\nside channel: open\nuser: " + std::string(isRoot ? "root" : "other")));
    EXPECT_EQ(test::readFile("/tmp/device/descriptors"), "0 1 2 3 4 ");
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none"));
    EXPECT_THAT(scheduler->queueStatus().markers,
                ElementsAre("Black toner", "Cyan toner", "Magenta toner", "Yellow toner"));
    EXPECT_THAT(scheduler->queueStatus().markerLevels, ElementsAre(80, 80, 80, 80));
}

INSTANTIATE_TEST_SUITE_P(Modes, DeviceScheduler,
                         testing::Values(PrivateScheduler::ordinaryBackend, PrivateScheduler::rootsBackend),
                         [](const auto &mode) {
                             return mode.param == PrivateScheduler::rootsBackend ? "RootsAlone" : "Ordinary";
                         });

TEST_F(DeviceScheduler, TheDocumentsOfAJobReachTheDeviceInTheirOrder) {
    start("");
    std::vector<std::string> streams;
    std::string expected;
    for (const std::uint64_t seed : {1U, 2U}) {
        StreamOptions options = document();
        options.seed = seed;
        streams.push_back(makeStream(options));
        expected += resetRecord() + streams.back().substr(36);
    }
    const int job = scheduler->submitAll(streams, forLp({"media=A4"}));
    scheduler->expectState(job, IPP_JSTATE_COMPLETED);
    scheduler->expectIdleQueue();
    EXPECT_THAT(Bytes(printedByDevice()), BytesAre(expected)) << scheduler->log();
    EXPECT_EQ(scheduler->startsOfBackend(job), 1U) << "one backend for both";
}

TEST_F(DeviceScheduler, TheQueueShowsPaperAndCoverAndIsCancelledInOrder) {
    setRecord([](ReverseRecord &record) {
        record.bPrinterStatus = 33;
        record.dwImageRemainMemory = 0; // so that the job waits
    });
    start("");
    const int job = submit();
    EXPECT_TRUE(scheduler->waitUntil([&] { return hasReason("cover-open-error"); })) << scheduler->log();
    setRecord([](ReverseRecord &record) {
        record.bPrinterStatus = 35;
        record.dwImageRemainMemory = 0;
        record.TonerYStatus = 7;
    });
    EXPECT_TRUE(scheduler->waitUntil([&] {
        return hasReason("media-empty-error") && !hasReason("cover-open-error");
    })) << scheduler->log();
    EXPECT_THAT(scheduler->queueStatus().markerLevels, ElementsAre(80, 80, 80, 7));
    scheduler->cancel(job);
    scheduler->expectState(job, IPP_JSTATE_CANCELED);
    scheduler->expectIdleQueue();
    EXPECT_TRUE(scheduler->waitUntil([] { return printedByDevice().ends_with(test::cancelRecord()); }))
        << scheduler->log();
    EXPECT_TRUE(scheduler->waitUntil([&] {
        return scheduler->log().find("backend/veltrin) exited with no errors") != std::string::npos;
    })) << scheduler->log();

    setRecord();
    scheduler->expectState(submit(), IPP_JSTATE_COMPLETED);
    EXPECT_THAT(scheduler->queueStatus().reasons, ElementsAre("none")) << "what the cancelled job has left";
}

TEST_F(DeviceScheduler, ADocumentThatNoFilterHasHandledIsDropped) {
    start("");
    const int job = scheduler->submit(makeStream(document()), {"-o", "raw"});
    scheduler->expectState(job, IPP_JSTATE_CANCELED);
    scheduler->expectIdleQueue();
    EXPECT_EQ(printedByDevice(), "");
    EXPECT_THAT(scheduler->log(), HasSubstr("The document has not come through Veltrin"));
}

} // namespace
} // namespace veltrin
