#pragma once

// The words of the channel, once for both of its ends. A name says who listens; an object says what it is
// about; the data are a block of bytes.

namespace veltrin::channel {

/// What follows the port name (the device URI, whole) in the name that the filter listens under, and the
/// backend posts to.
inline constexpr const char *frontendSuffix = ".frontend";

/// The same of the name that the backend listens under, and the filter posts to.
inline constexpr const char *backendSuffix = ".backend";

/// The filter is there. It says so once, as soon as it listens; no data. The odd spelling is what backends
/// listen for.
inline constexpr const char *frontendAlive = "fronted-alive";

/// The filter stops, as the last that it says; no data.
inline constexpr const char *frontendByebye = "frontend-byebye";

/// The backend is ready. It says so when it comes, when it comes back, and in answer to `frontendAlive`; data
/// are not read.
inline constexpr const char *backendAlive = "backend-alive";

/// The backend goes, for good or until the next `backendAlive`; data are not read.
inline constexpr const char *backendByebye = "backend-byebye";

/// From the filter, without data: it asks for one status record. From the backend, with the record as data:
/// the answer.
inline constexpr const char *readPipe = "readPipe";

/// From the filter, with a block as data: bytes for the printer, page stream or a command record. No
/// backend says it.
inline constexpr const char *writePipe = "writePipe";

} // namespace veltrin::channel
