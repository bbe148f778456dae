#pragma once

namespace veltrin::platform {

/// Opens a file at a fixed name in a directory where everybody may write (/tmp), for appending, creating it
/// if it is not there, and lets every user read and write it: filters of several users share it.
///
/// A symbolic link at that name is not followed, and anything but a regular file with no other name is
/// refused without waiting. An existing file is opened without asking for its creation, which many systems
/// refuse for another user's file in such a directory even where its mode allows the writing.
///
/// Returns a descriptor that is closed on exec, or -1 with `errno` set.
[[nodiscard]] int openSharedFileForAppending(const char *path);

} // namespace veltrin::platform
