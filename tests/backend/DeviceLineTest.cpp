#include "backend/DeviceLine.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace veltrin::backend {
namespace {

TEST(DeviceLineTest, IsReadAsCupsReadsIt) {
    const std::vector<std::pair<std::string, FoundDevice>> table = {
        {R"(direct usb://Morvex/LX%20410N?serial=1 "Morvex LX 410N" "Morvex LX 410N USB" "MFG:Morvex;MDL:LX 410N;" "Room 1")",
         {"direct", "usb://Morvex/LX%20410N?serial=1", "Morvex LX 410N", "Morvex LX 410N USB",
          "MFG:Morvex;MDL:LX 410N;", "Room 1"}},
        {R"(network socket "Unknown" "AppSocket")", {"network", "socket", "Unknown", "AppSocket", "", ""}},
        {R"(network socket://x "a" "b" "c")", {"network", "socket://x", "a", "b", "c", ""}},
        {R"(direct x "say \"so\"" "back\\slash" "" "")",
         {"direct", "x", "say \"so\"", "back\\slash", "", ""}},
        {"direct\tx  \"a\"\t\"b\"", {"direct", "x", "a", "b", "", ""}},
        {R"(direct x "a" "b" "c" "d" "e")", {"direct", "x", "a", "b", "c", "d"}},
    };
    for (const auto &[line, device] : table) {
        EXPECT_EQ(parseDeviceLine(line), device) << line;
    }
    for (const std::string line :
         {"", "direct", "direct x", "direct x \"a\"", R"(direct x "a" "b)", "DEBUG: searching", "  "}) {
        EXPECT_EQ(parseDeviceLine(line), std::nullopt) << line;
    }
}

TEST(DeviceLineTest, IsOfAPrinterOfOursByItsId) {
    const std::vector<std::pair<std::string, bool>> table = {
        {"MFG:Morvex;MDL:LX 410N;CLS:PRINTER;", true},
        {"MFG:Morvex;MDL:LX 520N;CLS:PRINTER;", true},
        {"MANUFACTURER:Morvex;COMMAND SET:GDI;MODEL:LX 520N", true},
        {"mfg:MORVEX;mdl:lx 410n;", true},
        {"MFG:Morvex; MDL:LX 410N;", true},
        {"MFG:Morvex;MDL:Morvex LX 410N;", true},
        {"MDL:QM7-K2b;", true},
        {"", false},
        {"MFG:Morvex;", false},
        {"MFG:Morvex;MDL:LX 410;", false},
        {"MFG:Morvex;MDL:LX 410ND;", false},
        {"MFG:Other;MDL:LX 410N;", false},
        {"DES:Morvex LX 410N;", false},
        {"MFG:Morvex;MDL", false},
        {"Morvex LX 410N", false},
    };
    for (const auto &[id, isOurs] : table) {
        EXPECT_EQ(isOneOfOurs(id), isOurs) << id;
    }
}

TEST(DeviceLineTest, IsOfADeviceThatIsHeard) {
    const std::vector<std::pair<std::string, bool>> table = {
        {"usb://Morvex/LX%20410N?serial=1", true},
        {"socket://10.0.0.9", true},
        {"dnssd://Morvex%20LX._pdl-datastream._tcp.local/?uuid=1", true},
        {"dnssd://Morvex%20LX._printer._tcp.local/", false},
        {"dnssd://Morvex%20LX._ipp._tcp.local/", false},
        {"lpd://10.0.0.9/queue", false},
        {"ipp://10.0.0.9/ipp/print", false},
        {"lpd://10.0.0.9/._pdl-datastream._tcp", false},
        {"usb", false},
        {"", false},
    };
    for (const auto &[uri, isHeard] : table) {
        EXPECT_EQ(hasBackChannel(uri), isHeard) << uri;
    }
}

} // namespace
} // namespace veltrin::backend
