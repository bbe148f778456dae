#include "backend/DeviceMessage.h"

#include "backend/StateKeywords.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace veltrin::backend {
namespace {

TEST(DeviceMessageTest, SaysOfAKeywordWhetherItComesOrGoes) {
    const std::vector<std::pair<std::string, std::optional<bool>>> table = {
        {"STATE: +connecting-to-device", true},
        {"STATE: -connecting-to-device", false},
        {"STATE:+connecting-to-device", true},
        {"STATE:\t -connecting-to-device ", false},
        {"STATE: +media-empty-error,connecting-to-device", true},
        {"STATE: -media-empty-error, connecting-to-device", false},
        {"STATE: +connecting-to-device,other", true},
        {"STATE: + connecting-to-device", true},
        {"STATE: +media-empty-error", std::nullopt},
        {"STATE: -media-empty-error", std::nullopt},
        {"STATE: +connecting-to-device-error", std::nullopt},
        {"STATE: +not-connecting-to-device", std::nullopt},
        {"STATE: connecting-to-device", true},
        {"STATE: other connecting-to-device", true},
        {"STATE: none", false},
        {"STATE:", false},
        {"STATE: +", std::nullopt},
        {"INFO: STATE: +connecting-to-device", std::nullopt},
        {"+connecting-to-device", std::nullopt},
        {"", std::nullopt},
    };
    for (const auto &[line, holds] : table) {
        EXPECT_EQ(keywordIn(line, "connecting-to-device"), holds) << line;
    }
}

TEST(DeviceMessageTest, SaysThatThereIsNoConnectionYet) {
    const std::vector<std::pair<std::string, std::optional<bool>>> table = {
        {"STATE: +connecting-to-device", true},
        {"STATE: -connecting-to-device", false},
        {"STATE: +media-empty-error", std::nullopt},
        {"DEBUG: Connecting to printer.example:9100", true},
        {"DEBUG: Connection error: Host is down", std::nullopt},
        {"DEBUG: Connected to printer.example:9100...", std::nullopt},
        {"INFO: Connecting to printer.", std::nullopt}, // in the user's language
    };
    for (const auto &[line, isConnecting] : table) {
        EXPECT_EQ(connectingIn(line), isConnecting) << line;
    }
}

TEST(DeviceMessageTest, GoesOnToTheSchedulerButForWhatTheRecordsTell) {
    const std::optional<std::string> nothing;
    const std::vector<std::pair<std::string, std::optional<std::string>>> table = {
        // Of the backend, the connection and the job.
        {"STATE: +connecting-to-device", "STATE: +connecting-to-device"},
        {"STATE: -connecting-to-device", "STATE: -connecting-to-device"},
        {"STATE: +cups-waiting-for-job-completed", "STATE: +cups-waiting-for-job-completed"},
        {"STATE: +offline-report", "STATE: +offline-report"}, // nothing can be written to it
        {"STATE: -offline-report", "STATE: -offline-report"},
        {"STATE: +com.example.own-warning", "STATE: +com.example.own-warning"},
        {"STATE:+a, b", "STATE: +a,b"},
        // Of the printer.
        {"STATE: +media-empty-warning", nothing},
        {"STATE: -media-empty-warning", nothing},
        {"STATE: -media-empty-error", nothing},
        {"STATE: -media-empty", nothing},
        {"STATE: +media-low-report", nothing},
        {"STATE: +media-jam-warning", nothing},
        {"STATE: +door-open-report", nothing},
        {"STATE: +cover-open", nothing},
        {"STATE: +interlock-open-error", nothing},
        {"STATE: +input-tray-missing-warning", nothing},
        {"STATE: +output-area-full-warning", nothing},
        {"STATE: +toner-low-report", nothing},
        {"STATE: -toner-empty-warning", nothing},
        {"STATE: +marker-supply-empty-warning", nothing},
        {"STATE: +developer-low-report", nothing},
        {"STATE: +opc-life-over-warning", nothing},
        {"STATE: +cleaner-life-almost-over-report", nothing},
        {"STATE: +fuser-over-temp", nothing},
        {"STATE: +waste-receptacle-full-warning", nothing},
        {"STATE: -subunit-life-over-error", nothing},
        {"STATE: -other-error", nothing},   // one of those that stand for a record
        {"STATE: -offline-error", nothing}, // likewise
        {"ATTR: marker-levels=1,2,3", nothing},
        {"ATTR:marker-names=a", nothing},
        {"ATTR: \tmarker-types=a", nothing},
        // Of both.
        {"STATE: +media-empty-warning,connecting-to-device", "STATE: +connecting-to-device"},
        {"STATE: -cups-remote-stopped,toner-low-report,a", "STATE: -cups-remote-stopped,a"},
        // All that there are.
        {"STATE: connecting-to-device", "STATE: +connecting-to-device"},
        {"STATE: a media-jam b", "STATE: +a,b"},
        {"STATE: none", nothing},
        {"STATE:", nothing},
        // Anything else.
        {"ATTR: printer-alert=a", "ATTR: printer-alert=a"},
        {"ATTR: a=marker-levels", "ATTR: a=marker-levels"},
        {"ATTR:", "ATTR:"},
        {"INFO: STATE: +media-empty", "INFO: STATE: +media-empty"},
        {"INFO: marker-levels=1", "INFO: marker-levels=1"},
        {"JOBSTATE: job-printing", "JOBSTATE: job-printing"},
        {" STATE: +media-empty", " STATE: +media-empty"},
        {"", ""},
    };
    for (const auto &[line, message] : table) {
        EXPECT_EQ(passedOn(line), message) << line;
    }
}

TEST(DeviceMessageTest, KeepsBackEveryKeywordThatARecordStandsFor) {
    for (const std::string_view keyword : allStateKeywords()) {
        EXPECT_EQ(passedOn("STATE: -" + std::string(keyword)), std::nullopt) << keyword;
    }
}

} // namespace
} // namespace veltrin::backend
