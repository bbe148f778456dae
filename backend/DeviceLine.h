#pragma once

#include <optional>
#include <string>
#include <string_view>

// The lines by which backends tell of the devices that they find.

namespace veltrin::backend {

struct FoundDevice {
    std::string deviceClass; ///< "direct", "network", ...
    std::string uri;
    std::string makeAndModel;
    std::string info;
    std::string id; ///< "MFG:...;MDL:...;", empty where the device has none
    std::string location;

    bool operator==(const FoundDevice &) const = default;
};

/// Reads a line, without its end; nothing where it is not one.
[[nodiscard]] std::optional<FoundDevice> parseDeviceLine(std::string_view line);

/// Whether a device's ID names one of the printers that the filter is for.
[[nodiscard]] bool isOneOfOurs(std::string_view deviceId);

/// Whether CUPS's backend for the device hands back what the device says, without which the filter does not
/// print.
[[nodiscard]] bool hasBackChannel(std::string_view uri);

} // namespace veltrin::backend
