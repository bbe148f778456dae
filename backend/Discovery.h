#pragma once

#include <string>

namespace veltrin::backend {

/// Has CUPS's own backends look for devices, and tells CUPS of those that are printers of ours, as they are
/// found. It is over when they are done, or when CUPS would not wait any more.
void discoverDevices(const std::string &serverBin);

} // namespace veltrin::backend
