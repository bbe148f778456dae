#include "backend/ProgramSafety.h"

#include <sys/stat.h>
#include <unistd.h>

namespace veltrin::backend {

bool isRootsAlone(const FileRights &rights) {
    constexpr mode_t forbidden = S_IWGRP | S_IWOTH | S_ISUID;
    return rights.owner == 0 && (rights.mode & forbidden) == 0;
}

std::optional<std::string> insecurePathOf(const std::string &program) {
    if (geteuid() != 0) {
        return std::nullopt;
    }
    for (const std::string &path : {program, program.substr(0, program.rfind('/'))}) {
        struct stat file {};

        // What is not there cannot be started either, and is told of as such.
        if (stat(path.c_str(), &file) == 0 && !isRootsAlone({.owner = file.st_uid, .mode = file.st_mode})) {
            return path;
        }
    }
    return std::nullopt;
}

std::string refusalOfInsecure(const std::string &path) {
    return "ERROR: \"" + path +
           "\" has insecure permissions, so that root starts nothing there. Run \"chown root " + path +
           "\" and \"chmod u-s,go-w " + path + "\".";
}

} // namespace veltrin::backend
