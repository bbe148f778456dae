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

constexpr const char *outerTmp = "/tmp/.outer";

bool fail(std::string &problem, const char *step) {
    problem = std::string(step) + ": " + std::strerror(errno);
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

} // namespace

bool enterPrivateTmp(std::string &problem) {
    if (!enterNamespaces(problem)) {
        return false;
    }
    if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        return fail(problem, "make the mounts private");
    }
    // Taken before the new /tmp covers it: a path to it, even one through a descriptor, would lead to the new
    // one.
    const int outer = open_tree(AT_FDCWD, "/tmp", OPEN_TREE_CLONE | OPEN_TREE_CLOEXEC | AT_RECURSIVE);
    if (outer == -1 || mount("tmpfs", "/tmp", "tmpfs", 0, "mode=1777") != 0) {
        return fail(problem, "mount a private /tmp");
    }
    if (mkdir(outerTmp, 0700) != 0 ||
        move_mount(outer, "", AT_FDCWD, outerTmp, MOVE_MOUNT_F_EMPTY_PATH) != 0) {
        return fail(problem, "keep the machine's /tmp in sight");
    }
    close(outer);
    return true;
}

bool hideFolder(const std::string &path, std::string &problem) {
    return access(path.c_str(), F_OK) != 0 || mount("tmpfs", path.c_str(), "tmpfs", 0, "mode=0755") == 0 ||
           fail(problem, "hide " + path);
}

std::string hostPath(const std::string &path) {
    return path.rfind("/tmp/", 0) == 0 ? outerTmp + path.substr(4) : path;
}

} // namespace veltrin::test
