#pragma once

#include <cstddef>

// What the fault injector (FaultInjector.cpp) is told, by environment variables. The program does not see
// them, nor do those that it starts: they are not failed.

namespace veltrin::test {

/// What calls are counted and failed together.
enum class FaultKind {
    open,          ///< open, openat, fopen, fdopen, opendir
    read,          ///< read, readv, pread
    write,         ///< write, writev, pwrite, splice
    print,         ///< what the C library writes to a stream: fwrite, fprintf
    allocation,    ///< malloc and its like; under a sanitizer operator new alone
    temporaryFile, ///< cupsTempFd
    control,       ///< fcntl, fchmod
    status,        ///< stat, fstat
    memoryFile,    ///< memfd_create
    socket,        ///< socket, connect, sendmsg, recvmsg and what asks a socket
    poll,          ///< poll, ppoll
    descriptor,    ///< pipe2, dup2
    process,       ///< fork, execv, posix_spawn
};

inline constexpr const char *faultKindNames[] = {
    "open",   "read",        "write",  "print", "allocation", "temporary-file", "control",
    "status", "memory-file", "socket", "poll",  "descriptor", "process",
};

inline constexpr std::size_t faultKinds = sizeof faultKindNames / sizeof *faultKindNames;

/// What is to fail: KIND:NUMBER:HOW, where HOW is the name of an error or "short", and ":lasting" behind it
/// where all later calls are to fail as well.
inline constexpr const char *faultVariable = "VELTRIN_FAULT";

/// A signal at a line of the debug log: LINE:SIGNAL:PROCESS, process 0 being the program itself.
inline constexpr const char *stepVariable = "VELTRIN_FAULT_STEP";

/// The processes that the program may be waiting for, with colons between them.
inline constexpr const char *peersVariable = "VELTRIN_FAULT_PEERS";

/// Lets time pass at once: TERMINATE:GIVE-UP, the seconds of waiting after which the program gets SIGTERM,
/// and those after which it is killed.
inline constexpr const char *timeVariable = "VELTRIN_FAULT_TIME";

/// The file to which the report goes: lines "hit CALL TARGET", "stepped", "terminated", "gave up", and at
/// the end of main() "count KIND NUMBER" (also for the kind "line") and "waited MICROSECONDS".
inline constexpr const char *reportVariable = "VELTRIN_FAULT_REPORT";

} // namespace veltrin::test
