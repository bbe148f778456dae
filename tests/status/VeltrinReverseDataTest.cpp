#include "status/VeltrinReverseData.h"

#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace veltrin {
namespace {

using test::CapturedLog;
using testing::ElementsAre;
using testing::IsEmpty;

using Bytes = std::vector<std::uint8_t>;

/// A record with the given bytes at the given offsets; all others are 0.
Bytes recordWith(const std::vector<std::pair<std::size_t, std::uint8_t>> &contents) {
    Bytes record(64, 0);
    std::memcpy(record.data(), "GDIR", 4);
    for (const auto &[offset, value] : contents) {
        record.at(offset) = value;
    }
    return record;
}

class VeltrinReverseDataTest : public testing::Test {
  protected:
    [[nodiscard]] bool setData(const Bytes &bytes) { return data.setData(std::as_bytes(std::span(bytes))); }

    void store(const std::vector<std::pair<std::size_t, std::uint8_t>> &contents) {
        ASSERT_TRUE(setData(recordWith(contents)));
    }

    /// What `setData` writes to standard error for these bytes.
    std::string standardErrorFor(const Bytes &bytes) {
        testing::internal::CaptureStderr();
        EXPECT_FALSE(setData(bytes));
        return testing::internal::GetCapturedStderr();
    }

    test::FakeBundle bundle;
    VeltrinReverseData data{bundle};
};

// The fields

struct Accessor {
    const char *name;
    std::function<std::uint32_t(const VeltrinReverseData &)> value;
    std::size_t offset;     // of its first byte
    std::size_t width;      // in bytes, the most significant first
    std::uint8_t lowestBit; // of the field in its last byte
    std::uint32_t largest;  // its value with all its bits set, before `unit`
    std::uint32_t unit = 1; // what one stands for
};

#define VELTRIN_ACCESSOR(name)                                                                               \
#name, [](const VeltrinReverseData &data) { return std::uint32_t{data.name()}; }

const std::vector<Accessor> accessors = {
    {VELTRIN_ACCESSOR(port), 8, 1, 0, 255},
    {VELTRIN_ACCESSOR(recoverFlag), 9, 1, 0, 1},
    {VELTRIN_ACCESSOR(readyToReceive), 9, 1, 1, 1},
    {VELTRIN_ACCESSOR(frontPanelCancel), 9, 1, 2, 1},
    {VELTRIN_ACCESSOR(marketInfo), 9, 1, 3, 7},
    {VELTRIN_ACCESSOR(modelInfo), 9, 1, 6, 3},
    {VELTRIN_ACCESSOR(receivingJobId), 10, 1, 0, 255},
    {VELTRIN_ACCESSOR(printingJobId), 11, 1, 0, 255},
    {VELTRIN_ACCESSOR(headerMemory), 24, 4, 0, 0xFFFFFFFF},
    {VELTRIN_ACCESSOR(imageMemory), 28, 4, 0, 0xFFFFFFFF},
    {VELTRIN_ACCESSOR(remainingPages), 34, 2, 0, 0xFFFF},
    {VELTRIN_ACCESSOR(statusCode), 36, 1, 0, 255},
    {VELTRIN_ACCESSOR(subStatusCode1), 37, 1, 0, 255},
    {VELTRIN_ACCESSOR(jobCount), 38, 1, 0, 255},
    {VELTRIN_ACCESSOR(totalMemory), 39, 1, 0, 255, 65536},
    {VELTRIN_ACCESSOR(bypassPaperEmpty), 43, 1, 4, 1},
    {VELTRIN_ACCESSOR(tray1PaperEmpty), 43, 1, 5, 1},
    {VELTRIN_ACCESSOR(tray2PaperEmpty), 43, 1, 6, 1},
    {VELTRIN_ACCESSOR(bypassPaperSize), 44, 1, 0, 255},
    {VELTRIN_ACCESSOR(tray1PaperSize), 45, 1, 0, 255},
    {VELTRIN_ACCESSOR(tray2PaperSize), 46, 1, 0, 255},
    {VELTRIN_ACCESSOR(bypassPaperType), 48, 1, 0, 255},
    {VELTRIN_ACCESSOR(tray1PaperType), 49, 1, 0, 255},
    {VELTRIN_ACCESSOR(tray2PaperType), 50, 1, 0, 255},
    {VELTRIN_ACCESSOR(tonerKStatus), 52, 1, 0, 255},
    {VELTRIN_ACCESSOR(tonerCStatus), 53, 1, 0, 255},
    {VELTRIN_ACCESSOR(tonerMStatus), 54, 1, 0, 255},
    {VELTRIN_ACCESSOR(tonerYStatus), 55, 1, 0, 255},
    {VELTRIN_ACCESSOR(USBWarning), 56, 1, 0, 1},
    {VELTRIN_ACCESSOR(NetworkWarning), 56, 1, 1, 1},
    {VELTRIN_ACCESSOR(WasteTonerWarning), 56, 1, 2, 1},
    {VELTRIN_ACCESSOR(TransferBeltWarning), 56, 1, 3, 1},
    {VELTRIN_ACCESSOR(TMACleaningWarning), 56, 1, 4, 1},
    {VELTRIN_ACCESSOR(FuserWarning), 56, 1, 6, 1},
    {VELTRIN_ACCESSOR(duplexInstalled), 57, 1, 7, 1},
    {VELTRIN_ACCESSOR(subStatusCode2), 59, 1, 0, 255},
    {VELTRIN_ACCESSOR(totalTextEmission), 60, 1, 0, 255},
    {VELTRIN_ACCESSOR(totalGraphicsEmission), 61, 1, 0, 255},
    {VELTRIN_ACCESSOR(totalImagesEmission), 62, 1, 0, 255},
};

#undef VELTRIN_ACCESSOR

/// What `accessor` makes of a record, worked out from its bytes.
std::uint32_t expectedValue(const Accessor &accessor, const Bytes &record) {
    std::uint32_t bytes = 0;
    for (std::size_t i = 0; i < accessor.width; ++i) {
        bytes = bytes << 8 | record[accessor.offset + i];
    }
    return ((bytes >> accessor.lowestBit) & accessor.largest) * accessor.unit;
}

TEST_F(VeltrinReverseDataTest, EveryBitOfTheRecordReachesItsOwnAccessorAndNoOther) {
    for (const std::uint8_t background : {std::uint8_t{0x00}, std::uint8_t{0xFF}}) {
        Bytes record(64, background);
        std::memcpy(record.data(), "GDIR", 4);
        for (std::size_t bit = 32; bit < std::size_t{64} * 8; ++bit) {
            Bytes changed = record;
            changed[bit / 8] = static_cast<std::uint8_t>(changed[bit / 8] ^ (1U << bit % 8));
            ASSERT_TRUE(setData(changed));
            for (const Accessor &accessor : accessors) {
                ASSERT_EQ(accessor.value(data), expectedValue(accessor, changed))
                    << accessor.name << " with bit " << bit % 8 << " of byte " << bit / 8 << " flipped";
            }
        }
    }
}

TEST_F(VeltrinReverseDataTest, MultiByteFieldsAreBigEndian) {
    store({{25, 0x01}, {28, 0x12}, {29, 0x34}, {30, 0x56}, {31, 0x78}, {34, 0x01}, {35, 0x02}, {39, 2}});
    EXPECT_EQ(data.headerMemory(), 65536U);
    EXPECT_EQ(data.imageMemory(), 0x12345678U);
    EXPECT_EQ(data.remainingPages(), 258U);
    EXPECT_EQ(data.totalMemory(), 131072U);
}

TEST_F(VeltrinReverseDataTest, TheWholeOfTheInstalledMemoryFitsItsNumber) {
    store({{39, 255}});
    EXPECT_EQ(data.totalMemory(), 16711680U);
}

TEST_F(VeltrinReverseDataTest, FrontPanelCancelIsTheReservedBitAndNotPanelCancelJob) {
    store({{9, 0x04}});
    EXPECT_TRUE(data.frontPanelCancel());
    store({{56, 0x20}});
    EXPECT_FALSE(data.frontPanelCancel());
}

TEST_F(VeltrinReverseDataTest, DuplexInstalledIsTheSignBitOfItsUnit) {
    store({{57, 0x80}});
    EXPECT_TRUE(data.duplexInstalled());
    store({{42, 0x01}, {57, 0x7F}});
    EXPECT_FALSE(data.duplexInstalled());
}

TEST_F(VeltrinReverseDataTest, Tray2InstalledNeedsTheBitAndAModelOtherThan0) {
    for (unsigned model = 0; model < 4; ++model) {
        const auto byte9 = static_cast<std::uint8_t>(model << 6);
        store({{9, byte9}, {57, 0x10}});
        EXPECT_EQ(data.tray2Installed(), model != 0) << "model " << model;
        store({{9, byte9}, {42, 0x02}, {57, 0xEF}});
        EXPECT_FALSE(data.tray2Installed()) << "model " << model;
    }
    store({{9, 0x3F}, {57, 0x10}});
    EXPECT_FALSE(data.tray2Installed()) << "the other bits of the model's byte are no model";
}

TEST_F(VeltrinReverseDataTest, PaperTypeForTrayAsksTheTrayAndIsSilentAboutUnknownOnes) {
    store({{48, 11}, {49, 22}, {50, 33}, {51, 44}});
    const CapturedLog log;
    EXPECT_EQ(data.paperTypeForTray(1), 22U);
    EXPECT_EQ(data.paperTypeForTray(2), 33U);
    EXPECT_EQ(data.paperTypeForTray(3), 11U);
    for (const std::uint32_t tray : {0U, 4U, 5U, 256U + 1U, std::numeric_limits<std::uint32_t>::max()}) {
        EXPECT_EQ(data.paperTypeForTray(tray), 0U) << "tray " << tray;
    }
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(VeltrinReverseDataTest, PaperTypeForAnUnknownTrayNeedsNoRecord) {
    EXPECT_EQ(data.paperTypeForTray(0), 0U);
    EXPECT_EQ(data.paperTypeForTray(4), 0U);
}

TEST_F(VeltrinReverseDataTest, PriorityTrayFollowsTheTargetTrayRoundTheThree) {
    const CapturedLog log;
    EXPECT_EQ(data.priorityTrayForTargetTray(1), 2U);
    EXPECT_EQ(data.priorityTrayForTargetTray(2), 3U);
    EXPECT_EQ(data.priorityTrayForTargetTray(3), 1U);
    EXPECT_THAT(log.messages(), IsEmpty());
}

TEST_F(VeltrinReverseDataTest, PriorityTrayForAnUnknownTrayIsLoggedAnd0) {
    for (const std::uint32_t tray : {0U, 4U, 256U + 1U, std::numeric_limits<std::uint32_t>::max()}) {
        const CapturedLog log;
        EXPECT_EQ(data.priorityTrayForTargetTray(tray), 0U) << "tray " << tray;
        EXPECT_THAT(
            log.messages(),
            ElementsAre("VeltrinReverseData priorityTrayForTargetTray: failed to properly map the tray "
                        "selection!"));
    }
}

// Records that arrive

TEST_F(VeltrinReverseDataTest, HasNoRecordUntilTheFirstValidOne) {
    EXPECT_FALSE(data.hasRecord());
    testing::internal::CaptureStderr();
    EXPECT_FALSE(setData(Bytes(64, 0)));
    EXPECT_FALSE(data.hasRecord());
    EXPECT_TRUE(setData(recordWith({})));
    EXPECT_TRUE(data.hasRecord());
    EXPECT_FALSE(setData(Bytes(64, 0)));
    EXPECT_TRUE(data.hasRecord());
    testing::internal::GetCapturedStderr();
}

TEST_F(VeltrinReverseDataTest, ASnapshotIsTheWholeRecordAndAllZeroBeforeTheFirst) {
    const auto bytesOf = [](const ReverseRecord &record) {
        Bytes bytes(sizeof record);
        std::memcpy(bytes.data(), &record, sizeof record);
        return bytes;
    };
    EXPECT_EQ(bytesOf(data.snapshot()), Bytes(64, 0));
    Bytes record(64, 0);
    std::iota(record.begin(), record.end(), std::uint8_t{100});
    std::memcpy(record.data(), "GDIR", 4);
    EXPECT_TRUE(setData(record));
    EXPECT_EQ(bytesOf(data.snapshot()), record);
    testing::internal::CaptureStderr();
    EXPECT_FALSE(setData(Bytes(64, 0)));
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(bytesOf(data.snapshot()), record) << "of the last valid one";
}

TEST_F(VeltrinReverseDataTest, TakesTheFieldsThatItDoesNotExamineAsTheyCome) {
    Bytes record(64, 0xFF);
    std::memcpy(record.data(), "GDIR", 4);
    EXPECT_TRUE(setData(record));
    EXPECT_EQ(data.statusCode(), 255U);
}

TEST_F(VeltrinReverseDataTest, RefusesWhatIsNoRecordAndKeepsTheOneBefore) {
    Bytes wrongTag = recordWith({{36, 9}});
    std::memcpy(wrongTag.data(), "RIDG", 4);
    Bytes lowerCase = recordWith({{36, 9}});
    lowerCase[3] = 'r';
    Bytes tooShort = recordWith({{36, 9}});
    tooShort.pop_back();
    Bytes tooLong = recordWith({{36, 9}});
    tooLong.push_back(0);

    store({{36, 7}});
    for (const Bytes &bytes : {Bytes(), Bytes{'G', 'D', 'I', 'R'}, tooShort, tooLong, wrongTag, lowerCase}) {
        const CapturedLog log;
        EXPECT_THAT(standardErrorFor(bytes),
                    testing::HasSubstr("length = " + std::to_string(bytes.size()) + ","));
        EXPECT_THAT(log.messages(),
                    ElementsAre("ReverseData dataArrived: received " + std::to_string(bytes.size()) +
                                " bytes of unexpected reverse data"));
        EXPECT_EQ(data.statusCode(), 7U);
    }
}

TEST_F(VeltrinReverseDataTest, ShowsTheRefusedBytesOnStandardError) {
    EXPECT_EQ(standardErrorFor({0x00, 0x7F, 0x80, 0xFF, 0x0A}),
              "Unexpected reverse data: {length = 5, bytes = 0x007f80ff0a}\n");
    EXPECT_EQ(standardErrorFor({}), "Unexpected reverse data: {length = 0, bytes = 0x}\n");
}

TEST_F(VeltrinReverseDataTest, ShowsNoMoreRefusedBytesThanARecordHas) {
    std::string hex;
    for (int i = 0; i < 64; ++i) {
        hex += "ab";
    }
    EXPECT_EQ(standardErrorFor(Bytes(64, 0xAB)),
              "Unexpected reverse data: {length = 64, bytes = 0x" + hex + "}\n");
    EXPECT_EQ(standardErrorFor(Bytes(1'000'000, 0xAB)),
              "Unexpected reverse data: {length = 1000000, bytes = 0x" + hex + "...}\n");
}

TEST_F(VeltrinReverseDataTest, DumpsARecordOnlyWhereItDiffersFromTheOneBefore) {
    const CapturedLog log;
    const std::string updating = "ReverseData dataArrived: updating reverse data";
    const auto dumps = [&log] {
        int rules = 0;
        for (const std::string &message : log.messages()) {
            rules += message == "----------" ? 1 : 0;
        }
        return rules / 2;
    };
    EXPECT_TRUE(setData(recordWith({{12, 1}})));
    EXPECT_EQ(log.messages().front(), updating);
    EXPECT_EQ(dumps(), 1) << "the first record differs from the empty one";
    EXPECT_TRUE(setData(recordWith({{12, 1}})));
    EXPECT_EQ(log.messages().back(), updating);
    EXPECT_EQ(dumps(), 1);
    EXPECT_TRUE(setData(recordWith({{12, 2}})));
    EXPECT_EQ(dumps(), 2) << "a reserved byte is a difference, too";
    EXPECT_TRUE(setData(recordWith({{12, 2}, {63, 1}})));
    EXPECT_EQ(dumps(), 3) << "up to the last byte";
}

// The dump

TEST_F(VeltrinReverseDataTest, DumpWritesEveryLineInItsFormat) {
    const CapturedLog log;
    store({{4, 0x01},  {5, 0x02},  {6, 0x03},  {7, 0xA4},  {8, 3},     {9, 0xAA},  {24, 0x00}, {25, 0x01},
           {26, 0x00}, {27, 0x00}, {28, 0xFF}, {29, 0xFF}, {30, 0xFF}, {31, 0xFF}, {34, 0x00}, {35, 0x07},
           {36, 0x0A}, {37, 0x0B}, {38, 5},    {39, 2},    {43, 0x20}, {44, 0x01}, {45, 0x09}, {46, 0xFE},
           {48, 0x0E}, {49, 0x00}, {50, 0x10}, {52, 1},    {53, 20},   {54, 100},  {55, 255},  {57, 0x90},
           {59, 0x0C}, {60, 6},    {61, 77},   {62, 200}});
    EXPECT_THAT(log.messages(), ElementsAre("ReverseData dataArrived: updating reverse data", //
                                            "----------",                                     //
                                            "ReverseData: port:\tUSB 2.0",                    //
                                            "ReverseData: dwVersion:\t0xa4030201",            //
                                            "ReverseData: duplexInstalled:\t1",               //
                                            "ReverseData: tray1PaperEmpty:\t1",               //
                                            "ReverseData: tray2PaperEmpty:\t0",               //
                                            "ReverseData: recoverFlag:\t\t0",                 //
                                            "ReverseData: readyToReceive:\t1",                //
                                            "ReverseData: frontPanelCancel:\t0",              //
                                            "ReverseData: modelInfo:\t\t2",                   //
                                            "ReverseData: marketInfo:\t\t5",                  //
                                            "ReverseData: headerMemory:\t00065536",           //
                                            "ReverseData: imageMemory:\t\t4294967295",        //
                                            "ReverseData: totalMemory: \t00131072",           //
                                            "ReverseData: jobCount: \t\t05",                  //
                                            "ReverseData: remainingPages:\t007",              //
                                            "ReverseData: statusCode:\t\t0x0a",               //
                                            "ReverseData: subStatusCode1: \t0x0b",            //
                                            "ReverseData: subStatusCode2:\t0x0c",             //
                                            "ReverseData: bypassPaperSize = 0x01",            //
                                            "ReverseData: tray1PaperSize = 0x09",             //
                                            "ReverseData: tray2PaperSize = 0xfe",             //
                                            "ReverseData: bypassPaperType = 0x0e",            //
                                            "ReverseData: tray1PaperType = 0x00",             //
                                            "ReverseData: tray2PaperType = 0x10",             //
                                            "ReverseData: tray2Installed = 0x01",             //
                                            "ReverseData: tonerKStatus: \t001",               //
                                            "ReverseData: tonerCStatus: \t020",               //
                                            "ReverseData: tonerMStatus: \t100",               //
                                            "ReverseData: tonerYStatus: \t255",               //
                                            "ReverseData: totalTextEmission: \t006",          //
                                            "ReverseData: totalGraphicsEmission:077",         //
                                            "ReverseData: totalImagesEmission: \t200",        //
                                            "----------"));
}

TEST_F(VeltrinReverseDataTest, DumpTellsTheFlagsApart) {
    const auto flagLine = [this](const char *name,
                                 const std::vector<std::pair<std::size_t, std::uint8_t>> &contents) {
        const CapturedLog log;
        store(contents);
        for (const std::string &message : log.messages()) {
            if (message.rfind(std::string("ReverseData: ") + name, 0) == 0) {
                return message;
            }
        }
        return std::string("no line");
    };
    EXPECT_EQ(flagLine("duplexInstalled", {{57, 0x7F}}), "ReverseData: duplexInstalled:\t0");
    EXPECT_EQ(flagLine("tray1PaperEmpty", {{43, 0xDF}}), "ReverseData: tray1PaperEmpty:\t0");
    EXPECT_EQ(flagLine("tray2PaperEmpty", {{43, 0x40}}), "ReverseData: tray2PaperEmpty:\t1");
    EXPECT_EQ(flagLine("recoverFlag", {{9, 0x01}}), "ReverseData: recoverFlag:\t\t1");
    EXPECT_EQ(flagLine("readyToReceive", {{9, 0xFD}}), "ReverseData: readyToReceive:\t0");
    EXPECT_EQ(flagLine("frontPanelCancel", {{9, 0x04}}), "ReverseData: frontPanelCancel:\t1");
    EXPECT_EQ(flagLine("tray2Installed", {{57, 0x10}}), "ReverseData: tray2Installed = 0x00");
    EXPECT_EQ(flagLine("remainingPages", {{34, 0xFF}, {35, 0xFF}}), "ReverseData: remainingPages:\t65535");
}

TEST_F(VeltrinReverseDataTest, DumpNamesThePort) {
    const std::vector<std::string> names = {"Hot Port Switching", "LPT", "USB 1.1", "USB 2.0", "Network"};
    for (unsigned port = 0; port < 256; ++port) {
        store({{8, static_cast<std::uint8_t>(port)}});
        const CapturedLog log;
        data.dump();
        const std::vector<std::string> messages = log.messages();
        ASSERT_EQ(messages.size(), 34U);
        EXPECT_EQ(messages[1], "ReverseData: port:\t" + (port < names.size() ? names[port] : "Unknown"));
    }
}

// The names

struct DetectedStatus {
    std::string text;
    std::int32_t severity;
};

class StatusStringTest : public VeltrinReverseDataTest {
  protected:
    DetectedStatus detect(std::uint8_t status, std::uint8_t subStatus1, std::uint8_t subStatus2) {
        store({{36, status}, {37, subStatus1}, {59, subStatus2}});
        DetectedStatus detected{"", -7};
        detected.text = data.statusString(detected.severity);
        return detected;
    }

    void expect(std::uint8_t status, std::uint8_t subStatus1, std::uint8_t subStatus2,
                const std::string &text, std::int32_t severity) {
        const DetectedStatus detected = detect(status, subStatus1, subStatus2);
        EXPECT_EQ(detected.text, text)
            << unsigned{status} << '/' << unsigned{subStatus1} << '/' << unsigned{subStatus2};
        EXPECT_EQ(detected.severity, severity)
            << unsigned{status} << '/' << unsigned{subStatus1} << '/' << unsigned{subStatus2};
    }
};

TEST_F(StatusStringTest, GivesTextAndSeverity) {
    expect(0, 0, 0, "Ready", 0);
    expect(1, 255, 255, "Ready", 0);
    expect(2, 0, 0, "Warming up", 0);
    expect(13, 1, 0, R"(Downloading controller firmware\U2026)", 0);
    expect(42, 3, 0, "K toner cartridge at end of life", 0);
    expect(49, 6, 3, "Service call - Laser Error - LD1 Error", 2);
    expect(255, 0, 0, "Power off or cable problem", 2);
}

TEST_F(StatusStringTest, AlwaysWritesTheSeverityEvenWithoutAText) {
    expect(8, 0, 0, "", 0);
    expect(30, 5, 0, "", 0);
    expect(57, 0, 0, "", 0);
    expect(254, 0, 0, "", 0);
    expect(49, 1, 4, "", 2);
    expect(49, 0, 1, "", 2);
    expect(49, 8, 1, "", 2);
    expect(54, 3, 0, "", 2);
}

TEST_F(StatusStringTest, NamesThePaperOfTheSecondSubStatus) {
    expect(17, 2, 9, "Paper size A4 mismatch on Tray 2", 0);
    expect(17, 9, 70, "Paper size A6 mismatch", 0);
    expect(17, 1, 2, "Paper size Unknown paper size - do not translate mismatch on Tray 1", 0);
    expect(19, 3, 0, "Paper type Plain Recycled mismatch on MP Tray", 0);
    expect(19, 4, 11, "Paper type OHP mismatch", 0);
    expect(26, 1, 255, "Paper size Custom illegal in Bypass Tray", 0);
    expect(26, 2, 1, "Paper size Letter illegal in MP  Tray", 0);
    expect(26, 3, 1, "Paper size Letter illegal in  Tray 1", 0);
    expect(26, 0, 1, "Paper size Letter illegal", 0);
    expect(37, 4, 17, "Paper type Unknown paper type - do not translate illegal in MP tray", 0);
    expect(38, 3, 254, "Paper size Any Size illegal in Bypass tray", 0);
}

TEST_F(StatusStringTest, IllegalPaperInAnUnknownTrayHasNoTextWhateverTheTablesHold) {
    bundle.strings[""] = "the text under the empty key %@";
    for (const std::uint8_t tray : {std::uint8_t{0}, std::uint8_t{5}, std::uint8_t{255}}) {
        expect(37, tray, 1, "", 0);
        expect(38, tray, 1, "", 0);
    }
    expect(8, 0, 0, "", 0);
}

TEST_F(StatusStringTest, TakesTextAndNameFromTheTranslation) {
    bundle.strings = {{"SizeMismatch2", "Papierformat %1$@ passt nicht zu Fach 2"},
                      {"gdiPaperSizeA4", "DIN A4"},
                      {"Ready", "Bereit: 100%, %@ %s"},
                      {"CoverOpen", ""}};
    expect(17, 2, 9, "Papierformat DIN A4 passt nicht zu Fach 2", 0);
    expect(0, 0, 0, "Bereit: 100%, %@ %s", 0);
    expect(33, 0, 0, "", 0);
}

TEST_F(StatusStringTest, ATranslationOfTheSharedKeyServesBothItsTexts) {
    bundle.strings["TypeMismatchUnknown"] = "Papier %@ passt nicht";
    expect(19, 9, 8, "Papier Bond passt nicht", 0);
    expect(26, 9, 8, "Papier A3 passt nicht", 0);
}

TEST_F(StatusStringTest, AHarmfulTranslationDoesNoHarm) {
    bundle.strings["SizeMismatch1"] = "%s%n%99999999d %2$@ %";
    expect(17, 1, 9, "%s%n%99999999d %2$@ %", 0);
}

TEST_F(StatusStringTest, LogsWhatItDetects) {
    store({{36, 1}});
    const CapturedLog log;
    std::int32_t severity = 0;
    EXPECT_EQ(data.statusString(severity), "Ready");
    EXPECT_THAT(log.messages(), ElementsAre("ReverseData: detected status: Ready"));
    EXPECT_EQ(data.statusString(severity), "Ready");
    EXPECT_THAT(log.messages(),
                ElementsAre("ReverseData: detected status: Ready", "ReverseData: detected status: Ready"));
}

TEST_F(StatusStringTest, LogsNothingWhereThereIsNoText) {
    const std::vector<std::uint8_t> silent = {8,  11, 12, 16, 20, 32, 36, 45, 46,
                                              47, 48, 49, 50, 51, 52, 54, 57, 254};
    for (const std::uint8_t status : silent) {
        store({{36, status}});
        const CapturedLog log;
        std::int32_t severity = 0;
        EXPECT_EQ(data.statusString(severity), "");
        EXPECT_THAT(log.messages(), IsEmpty()) << unsigned{status};
    }
}

TEST_F(VeltrinReverseDataTest, NamesOfPaperAndTraysAreTranslatedAndNeedNoRecord) {
    EXPECT_EQ(data.paperSizeString(9), "A4");
    EXPECT_EQ(data.paperSizeString(256), "Unknown paper size - do not translate");
    EXPECT_EQ(data.paperTypeString(0), "Plain Recycled");
    EXPECT_EQ(data.paperTypeString(253), "Unknown paper type - do not translate");
    EXPECT_EQ(data.paperTrayString(3), "MP Tray");
    EXPECT_EQ(data.paperTrayString(6), "Unknown paper tray - do not translate");
    bundle.strings = {
        {"gdiPaperSizeA4", "DIN A4"}, {"gdiPaperTypePlainRecycled", "Recycling"}, {"Tray3", "Fach"}};
    EXPECT_EQ(data.paperSizeString(9), "DIN A4");
    EXPECT_EQ(data.paperTypeString(0), "Recycling");
    EXPECT_EQ(data.paperTrayString(3), "Fach");
}

TEST_F(VeltrinReverseDataTest, MediaTypesAreNeverTranslated) {
    bundle.strings = {{"gdiPaperTypeThick160", "Dick"}, {"Thick160", "Dick"}, {"Plain", "Normal"}};
    EXPECT_EQ(data.mediaTypeString(13), "Thick160");
    EXPECT_EQ(data.mediaTypeString(0), "Plain");
    EXPECT_EQ(data.mediaTypeString(-1), "Plain");
}

TEST_F(VeltrinReverseDataTest, TheModelHasNoNameBeforeTheFirstRecord) {
    bundle.strings = {{"ModelQM7-K2a", "a model"}, {"", "no model"}};
    EXPECT_EQ(data.modelInfoString(), "");
    EXPECT_EQ(data.modelInfoDescription(), "");
}

TEST_F(VeltrinReverseDataTest, NamesTheModel) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"QM7-K2a", "Morvex LX 410N"},
        {"QM7-K2b", "QM7-K2b"},
        {"TM7-K2a", "Morvex LX 520N"},
        {"Unknown model - do not translate", "Unknown description - do not translate"}};
    for (std::size_t model = 0; model < names.size(); ++model) {
        store({{9, static_cast<std::uint8_t>(model << 6 | 0x3F)}});
        EXPECT_EQ(data.modelInfoString(), names[model].first);
        EXPECT_EQ(data.modelInfoDescription(), names[model].second);
    }
    bundle.strings = {{"ModelTM7-K2a", "translated"}, {"ModelTM7-K2aDesc", "translated, too"}};
    store({{9, 0x80}});
    EXPECT_EQ(data.modelInfoString(), "translated");
    EXPECT_EQ(data.modelInfoDescription(), "translated, too");
}

} // namespace
} // namespace veltrin
