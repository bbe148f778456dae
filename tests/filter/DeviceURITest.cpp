#include "filter/DeviceURI.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin {
namespace {

TEST(DeviceURI, SchemeIsWhatStandsBeforeTheFirstColon) {
    struct Case {
        std::string uri;
        std::string scheme;
    };

    const std::vector<Case> cases = {
        {"file:///dev/null", "file"},
        {"file:/tmp/out", "file"},
        {"file:", "file"},
        {"FILE:///dev/null", "FILE"},
        {"usb://Morvex/LX%20410N?serial=1", "usb"},
        {"socket://printer.example:9100", "socket"},
        {"a+b-c.d1:x", "a+b-c.d1"},
        {"", ""},
        {"nothing", ""},
        {":x", ""},
        {"9file:/x", ""},
        {"fi le:/x", ""},
        {"/dev/usb:1", ""},
        {"fi_le:/x", ""},
    };
    for (const Case &one : cases) {
        EXPECT_EQ(DeviceURI(one.uri).scheme(), one.scheme) << one.uri;
    }
}

TEST(DeviceURI, KeepsItsTextAsItStands) {
    const std::string text = "usb://a b/%41?x='y',\\z#q";
    EXPECT_EQ(DeviceURI(text).absoluteString(), text);
}

} // namespace
} // namespace veltrin
