#include "backend/DeviceMessage.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>
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

TEST(DeviceMessageTest, IsAboutMarkersOrNot) {
    const std::vector<std::pair<std::string, bool>> table = {
        {"ATTR: marker-levels=1,2,3", true},
        {"ATTR:marker-names=a", true},
        {"ATTR: \tmarker-types=a", true},
        {"ATTR: printer-alert=a", false},
        {"ATTR: a=marker-levels", false},
        {"INFO: marker-levels=1", false},
        {"ATTR:", false},
        {"", false},
    };
    for (const auto &[line, isAboutThem] : table) {
        EXPECT_EQ(isAboutMarkers(line), isAboutThem) << line;
    }
}

} // namespace
} // namespace veltrin::backend
