#include "status/VeltrinReverseData.h"
#include "tests/status/Background.h"
#include "tests/support/FakePlatform.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

namespace veltrin {
namespace {

using test::Background;

std::array<std::byte, 64> recordFilledWith(std::uint8_t value) {
    std::array<std::byte, 64> record{};
    record.fill(std::byte{value});
    record[0] = std::byte{'G'};
    record[1] = std::byte{'D'};
    record[2] = std::byte{'I'};
    record[3] = std::byte{'R'};
    return record;
}

class SharedRecordTest : public testing::Test {
  protected:
    test::FakeBundle bundle;
    VeltrinReverseData data{bundle};
};

TEST_F(SharedRecordTest, EveryAccessorWaitsForTheFirstRecord) {
    std::int32_t severity = -1;
    const std::vector<std::function<void()>> accessors = {
        [this] { EXPECT_EQ(data.port(), 0x81U); },
        [this] { EXPECT_TRUE(data.recoverFlag()); },
        [this] { EXPECT_FALSE(data.readyToReceive()); },
        [this] { EXPECT_FALSE(data.frontPanelCancel()); },
        [this] { EXPECT_EQ(data.modelInfo(), 2U); },
        [this] { EXPECT_EQ(data.marketInfo(), 0U); },
        [this] { EXPECT_EQ(data.receivingJobId(), 0x81U); },
        [this] { EXPECT_EQ(data.printingJobId(), 0x81U); },
        [this] { EXPECT_EQ(data.headerMemory(), 0x81818181U); },
        [this] { EXPECT_EQ(data.imageMemory(), 0x81818181U); },
        [this] { EXPECT_EQ(data.remainingPages(), 0x8181U); },
        [this] { EXPECT_EQ(data.statusCode(), 0x81U); },
        [this] { EXPECT_EQ(data.subStatusCode1(), 0x81U); },
        [this] { EXPECT_EQ(data.subStatusCode2(), 0x81U); },
        [this] { EXPECT_EQ(data.jobCount(), 0x81U); },
        [this] { EXPECT_EQ(data.totalMemory(), 0x810000U); },
        [this] { EXPECT_TRUE(data.duplexInstalled()); },
        [this] { EXPECT_FALSE(data.tray2Installed()); },
        [this] { EXPECT_FALSE(data.bypassPaperEmpty()); },
        [this] { EXPECT_FALSE(data.tray1PaperEmpty()); },
        [this] { EXPECT_FALSE(data.tray2PaperEmpty()); },
        [this] { EXPECT_EQ(data.bypassPaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.tray1PaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.tray2PaperSize(), 0x81U); },
        [this] { EXPECT_EQ(data.bypassPaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tray1PaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tray2PaperType(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerCStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerMStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerYStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.tonerKStatus(), 0x81U); },
        [this] { EXPECT_EQ(data.totalTextEmission(), 0x81U); },
        [this] { EXPECT_EQ(data.totalGraphicsEmission(), 0x81U); },
        [this] { EXPECT_EQ(data.totalImagesEmission(), 0x81U); },
        [this] { EXPECT_TRUE(data.USBWarning()); },
        [this] { EXPECT_FALSE(data.NetworkWarning()); },
        [this] { EXPECT_FALSE(data.WasteTonerWarning()); },
        [this] { EXPECT_FALSE(data.TransferBeltWarning()); },
        [this] { EXPECT_FALSE(data.TMACleaningWarning()); },
        [this] { EXPECT_FALSE(data.FuserWarning()); },
        [this] { EXPECT_EQ(data.paperTypeForTray(1), 0x81U); },
        [this] { EXPECT_EQ(data.paperTypeForTray(2), 0x81U); },
        [this] { EXPECT_EQ(data.paperTypeForTray(3), 0x81U); },
        [this, &severity] { EXPECT_EQ(data.statusString(severity), ""); },
    };
    std::atomic<std::size_t> answered = 0;
    std::vector<std::unique_ptr<Background>> readers;
    readers.reserve(accessors.size());
    for (const auto &accessor : accessors) {
        readers.push_back(std::make_unique<Background>([&answered, &accessor] {
            accessor();
            ++answered;
        }));
    }
    EXPECT_TRUE(readers.back()->waits());
    EXPECT_EQ(answered, 0U);
    EXPECT_FALSE(data.hasRecord());
    EXPECT_EQ(data.modelInfoString(), "");
    EXPECT_EQ(data.modelInfoDescription(), "");

    EXPECT_TRUE(data.setData(recordFilledWith(0x81)));
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
    EXPECT_EQ(answered, accessors.size());
    EXPECT_EQ(severity, 0);
}

TEST_F(SharedRecordTest, ARefusedBufferEndsNoWait) {
    const Background reader([this] { EXPECT_EQ(data.port(), 2U); });
    testing::internal::CaptureStderr();
    EXPECT_FALSE(data.setData(std::array<std::byte, 64>{}));
    testing::internal::GetCapturedStderr();
    EXPECT_TRUE(reader.waits());
    EXPECT_TRUE(data.setData(recordFilledWith(2)));
    reader.expectEnds();
}

TEST_F(SharedRecordTest, AFieldIsNeverReadHalfWritten) {
    std::atomic<bool> finished = false;
    std::atomic<int> torn = 0;
    std::atomic<int> tray2Seen = 0;
    const auto uniform = [](std::uint32_t value) { return value == (value & 0xFFU) * 0x01010101U; };
    std::vector<std::unique_ptr<Background>> readers;
    readers.reserve(3);
    for (int i = 0; i < 3; ++i) {
        readers.push_back(std::make_unique<Background>([&] {
            while (!finished) {
                torn += uniform(data.headerMemory()) && uniform(data.imageMemory()) ? 0 : 1;
                // Reads beside the lock: ThreadSanitizer watches that this is no data race.
                tray2Seen += data.tray2Installed() ? 1 : 0;
            }
        }));
    }
    // Until the readers have had their share, however the machine deals out its time.
    for (unsigned round = 0; round < 2000 || tray2Seen == 0; ++round) {
        EXPECT_TRUE(data.setData(recordFilledWith(static_cast<std::uint8_t>(round))));
    }
    finished = true;
    for (const auto &reader : readers) {
        reader->expectEnds();
    }
    EXPECT_EQ(torn, 0);
}

} // namespace
} // namespace veltrin
