#pragma once

// How people and the scheduler end a program that is to finish its work in order.

namespace veltrin {

/// From now on SIGTERM and SIGINT only make `endWanted()` true, and a closed pipe is a failed write.
void catchEndSignals();

[[nodiscard]] bool endWanted();

} // namespace veltrin
