#include "tests/support/PrivateTmp.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace veltrin::test {

namespace {

/// The machine's own folder is seen under this name in its private successor.
constexpr const char *outer = "/.outer";

bool fail(std::string &problem, const std::string &step) {
    problem = step + ": " + std::strerror(errno);
    return false;
}

bool enterNamespaces(std::string &problem) {
    const uid_t user = geteuid();
    const gid_t group = getegid();
    if (user == 0) {
        return unshare(CLONE_NEWNS) == 0 || fail(problem, "unshare(CLONE_NEWNS)");
    }
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) {
        return fail(problem, "unshare(CLONE_NEWUSER | CLONE_NEWNS)");
    }
    std::ofstream("/proc/self/setgroups") << "deny";
    std::ofstream("/proc/self/uid_map") << user << ' ' << user << " 1";
    std::ofstream("/proc/self/gid_map") << group << ' ' << group << " 1";
    return true;
}

bool coverFolder(const std::string &folder, const char *options, std::string &problem) {
    // Taken before the new folder covers it: a path to it, even one through a descriptor, would lead to the
    // new one.
    const int machines =
        open_tree(AT_FDCWD, folder.c_str(), OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE);
    if (machines == -1 || mount("tmpfs", folder.c_str(), "tmpfs", 0, options) != 0) {
        return fail(problem, "mount a private " + folder);
    }
    if (mkdir((folder + outer).c_str(), 0700) != 0 ||
        move_mount(machines, "", AT_FDCWD, (folder + outer).c_str(), MOVE_MOUNT_F_EMPTY_PATH) != 0) {
        return fail(problem, "keep the machine's " + folder + " in sight");
    }
    close(machines);
    return true;
}

} // namespace

bool enterPrivateFolders(std::string &problem) {
    if (!enterNamespaces(problem)) {
        return false;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return fail(problem, "make the mounts private");
    }
    return coverFolder("/tmp", "mode=1777", problem) && coverFolder("/run", "mode=0755", problem);
}

bool hideFolder(const std::string &path, std::string &problem) {
    return access(path.c_str(), F_OK) != 0 || mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0755") == 0 ||
           fail(problem, "hide " + path);
}

std::string hostPath(const std::string &path) {
    for (const std::string folder : {"/tmp", "/run"}) {
        if (path.starts_with(folder + "/")) {
            return folder + outer + path.substr(folder.size());
        }
    }
    return path;
}

} // namespace veltrin::test
