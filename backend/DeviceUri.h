#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace veltrin::backend {

inline constexpr std::string_view ownScheme = "veltrin";

/// What a device URI of this backend says, such as "veltrin:socket://printer.example:9100". The whole of it
/// is the channel's name all the same.
struct DeviceUri {
    std::string scheme; ///< of the device's own URI: the name of CUPS's backend for it
    std::string device; ///< the device's own URI, whole
};

/// Nothing, with `problem` set, where there is no URI of another backend behind the scheme.
[[nodiscard]] std::optional<DeviceUri> parseDeviceUri(std::string_view uri, std::string &problem);

/// The URI of this backend for a device.
[[nodiscard]] std::string uriForDevice(std::string_view device);

/// The URI without a user's name and password, as everybody may see it in the list of processes.
[[nodiscard]] std::string withoutCredentials(std::string_view uri);

} // namespace veltrin::backend
