#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

// What root may start. The scheduler looks at its own programs in the same way.

namespace veltrin::backend {

/// Whose a file or folder is, and its mode.
struct FileRights {
    uid_t owner = 0;
    mode_t mode = 0;
};

/// Whether nobody but root can change a program, or what is in its folder.
[[nodiscard]] bool isRootsAlone(const FileRights &rights);

/// The program, or its folder, where somebody else could have root run what he likes; nothing where nobody
/// can, or this process is not root's.
[[nodiscard]] std::optional<std::string> insecurePathOf(const std::string &program);

/// What people are told of such a path.
[[nodiscard]] std::string refusalOfInsecure(const std::string &path);

} // namespace veltrin::backend
