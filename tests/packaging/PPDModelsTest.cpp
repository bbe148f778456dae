// Which printers there are PPDs for, and what of each of them.

#include "Version.h"
#include "printer/BackendJob.h"
#include "printer/PrinterModel.h"
#include "status/MediaNames.h"
#include "status/VeltrinReverseData.h"
#include "tests/packaging/MadePPD.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <regex>
#include <span>
#include <string>
#include <vector>

namespace veltrin {
namespace {

using test::MadePPD;
using test::openPPDs;
using testing::ElementsAreArray;

/// The models of the status record, by their codes. The last code is for models to come.
std::map<std::uint32_t, std::string> knownModels() {
    std::map<std::uint32_t, std::string> models;
    for (std::uint32_t code = 0; modelName(code).key != "ModelUnknown"; ++code) {
        models[code] = std::string(modelDescription(code).english);
    }
    return models;
}

std::string withoutManufacturer(const std::string &model) {
    const std::string manufacturer = "Morvex ";
    return model.starts_with(manufacturer) ? model.substr(manufacturer.size()) : model;
}

TEST(PPDModels, EveryModelOfTheStatusRecordHasItsPPD) {
    std::map<std::uint32_t, std::string> described;
    for (const MadePPD &ppd : openPPDs()) {
        const auto code = static_cast<std::uint32_t>(ppd->model_number);
        EXPECT_TRUE(described.emplace(code, ppd->modelname).second) << "two PPDs for model " << code;
    }
    std::map<std::uint32_t, std::string> expected;
    for (const auto &[code, model] : knownModels()) {
        expected[code] = "Morvex " + withoutManufacturer(model);
    }
    EXPECT_EQ(described, expected);
}

TEST(PPDModels, NamesSayWhoMadeThePPD) {
    for (const MadePPD &ppd : openPPDs()) {
        const std::string model = ppd->modelname;
        EXPECT_STREQ(ppd->nickname, (model + ", Veltrin " + version).c_str());
        EXPECT_EQ(ppd.attribute("FileVersion"), version);
        EXPECT_STREQ(ppd->manufacturer, "Morvex");
        EXPECT_EQ(ppd.attribute("1284DeviceID"),
                  "MFG:Morvex;MDL:" + withoutManufacturer(model) + ";CLS:PRINTER;");
    }
}

TEST(PPDModels, WhatTheBackendDiscoversIsFoundByItsDeviceId) {
    const std::vector<MadePPD> ppds = openPPDs();
    const std::regex line(R"x(direct [^ ]+ "([^"]*)" "[^"]*" "([^"]*)" "")x");
    for (const std::string &discovered : test::linesOf(printer::discoveryLines())) {
        std::smatch match;
        ASSERT_TRUE(std::regex_match(discovered, match, line)) << discovered;
        const auto matches = std::count_if(ppds.begin(), ppds.end(), [&](const MadePPD &ppd) {
            return ppd->modelname == match[1].str() && ppd.attribute("1284DeviceID") == match[2].str();
        });
        EXPECT_EQ(matches, 1) << discovered;
    }
}

/// Whether the filter would believe in the second tray of a printer of this model that has one.
bool canHaveSecondTray(std::uint32_t model) {
    printer::PrinterSettings settings;
    settings.model = static_cast<std::uint8_t>(model);
    const ReverseRecord record = printer::PrinterModel(settings).record();
    test::FakePlatform platform;
    VeltrinReverseData data(platform.fakeBundle);
    EXPECT_TRUE(data.setData(std::as_bytes(std::span(&record, 1))));
    return data.tray2Installed();
}

TEST(PPDModels, ASecondTrayIsOfferedWhereOneCanBeInstalled) {
    for (const MadePPD &ppd : openPPDs()) {
        const bool canHave = canHaveSecondTray(static_cast<std::uint32_t>(ppd->model_number));
        const std::vector<std::string> trays = canHave ? std::vector<std::string>{"Tray1", "Tray2", "Bypass"}
                                                       : std::vector<std::string>{"Tray1", "Bypass"};
        EXPECT_THAT(ppd.choices("InputSlot"), ElementsAreArray(trays)) << ppd.path();
        EXPECT_EQ(ppd.choices("OptionTray2").empty(), !canHave) << ppd.path();
    }
}

TEST(PPDModels, OnlyAnInstalledTrayCanBeChosen) {
    int withSecondTray = 0;
    for (const MadePPD &ppd : openPPDs()) {
        for (const std::string &tray : ppd.choices("InputSlot")) {
            ppd.markDefaults();
            ppd.mark("InputSlot", tray);
            EXPECT_EQ(ppd.hasConflict(), tray == "Tray2") << ppd.path() << ": " << tray;
            if (tray == "Tray2") {
                ppd.mark("OptionTray2", "True");
                EXPECT_FALSE(ppd.hasConflict()) << ppd.path();
                ++withSecondTray;
            }
        }
    }
    EXPECT_GT(withSecondTray, 0);
}

TEST(PPDModels, TellOfTheirTonerOverTheChannelAlone) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_EQ(ppd.attribute("cupsSNMPSupplies"), "False") << ppd.path();
    }
}

TEST(PPDModels, PrintAsManyPagesAMinuteAsTheVirtualPrinter) {
    for (const MadePPD &ppd : openPPDs()) {
        EXPECT_EQ(ppd->throughput, printer::PrinterSettings{}.pagesPerMinute) << ppd.path();
    }
}

} // namespace
} // namespace veltrin
