#pragma once

namespace veltrin::platform {

/// Keeps the places of standard input, output and error when the process was started without one of them.
///
/// A descriptor that is closed at the start would be handed out again by the next open, and page data would
/// go into whatever that was (the debug log, a spool file). Each closed one is filled so that using it goes
/// on failing with EBADF, as a closed descriptor does: input so that it cannot be read, output and error so
/// that they cannot be written.
void reserveStandardDescriptors();

/// Closes every other descriptor, whoever has opened it.
void closeAllButStandardDescriptors();

/// Whether nothing comes by the descriptor any more; takes nothing of what does.
[[nodiscard]] bool isAtEnd(int fd);

} // namespace veltrin::platform
