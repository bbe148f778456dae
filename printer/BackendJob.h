#pragma once

#include "platform/Platform.h"

#include <string>

// The virtual printer as a backend that CUPS starts.

namespace veltrin::printer {

/// What CUPS starts a backend for.
enum class BackendRole {
    none,      ///< a person has started the program
    discovery, ///< no arguments: list the devices
    job,       ///< job id, user, title, copies and options, and perhaps a file
};

/// Told by the arguments: a person gives a device URI or options, which are no job id.
[[nodiscard]] BackendRole backendRole(int argc, const char *const *argv);

/// The lines by which CUPS learns of the printers that can be had.
[[nodiscard]] std::string discoveryLines();

/// Takes one job, for the printer of the device URI in DEVICE_URI or, without that, in argv[0]. Returns the
/// backend's exit status: 0, 1 where the job has not been printed, or 7 where it is to be tried again at
/// once.
[[nodiscard]] int runBackendJob(int argc, const char *const *argv, platform::Platform &platform);

} // namespace veltrin::printer
