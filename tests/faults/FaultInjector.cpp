// A library that is preloaded into a program under test. It stands between the program and the system, and
// - counts the calls of each kind that the program makes between the beginning and the end of its main(),
// - fails one of them, or all of them from one on,
// - sends a signal when a given line of the debug log has been written,
// - lets time pass at once: where the program waits, and nobody whom it may be waiting for has anything to
//   do, the rest of the wait is over. So a wait of half a minute takes none, and yet no answer comes too late
//   on a machine that is busy.
// What it did stands in its report. It is told by environment variables, see FaultInjector.h.
//
// Its own calls go around it, and it allocates nothing.

// What is there under two names, as open() and open64(), is meant by each of its own.
#undef _FILE_OFFSET_BITS

#include "tests/faults/FaultInjector.h"

#include "tests/faults/ProcessesAtRest.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>

// The real function behind one that is defined here.
#define REAL(name) static const auto real = reinterpret_cast<decltype(&(name))>(dlsym(RTLD_NEXT, #name))

// NOLINTBEGIN(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp): the names that the C library exports
extern "C" {
void *__libc_malloc(std::size_t size);
void *__libc_calloc(std::size_t count, std::size_t size);
void *__libc_realloc(void *memory, std::size_t size);
void *__libc_memalign(std::size_t alignment, std::size_t size);
int cupsTempFd(char *name, int size);
}

namespace {

using veltrin::test::append;
using veltrin::test::areAtRest;
using veltrin::test::FaultKind;
using veltrin::test::faultKindNames;
using veltrin::test::faultKinds;

constexpr std::int64_t second = 1'000'000'000; // in nanoseconds

struct ErrorName {
    const char *name;
    int number;
};

constexpr ErrorName errorNames[] = {
    {"EACCES", EACCES}, {"ECONNRESET", ECONNRESET}, {"EINTR", EINTR},   {"EINVAL", EINVAL},
    {"EIO", EIO},       {"EMFILE", EMFILE},         {"ENOMEM", ENOMEM}, {"ENOSPC", ENOSPC},
    {"EPIPE", EPIPE},   {"ENOBUFS", ENOBUFS},       {"EAGAIN", EAGAIN},
};

/// How a call is failed.
struct Fault {
    std::size_t kind = faultKinds; ///< beyond the kinds: none
    long call = 0;                 ///< the first one that fails, from 1
    bool isLasting = false;        ///< the ones behind it fail as well
    bool isShort = false;          ///< it does half of what it is asked to
    int error = 0;                 ///< what it fails with
};

/// A signal that is sent when a line of the log is written.
struct Step {
    long line = 0; ///< from 1; 0: none
    int signal = 0;
    pid_t process = 0; ///< 0: the program itself
};

constexpr std::size_t mostPeers = 4;

Fault fault;
Step step;
pid_t peers[mostPeers];
std::size_t peerCount = 0;
bool isTimeVirtual = false;
std::int64_t waited = 0; ///< nanoseconds that were not waited through
std::int64_t terminateAfter = 0;
std::int64_t giveUpAfter = 0;
const char *reportPath = nullptr;

pid_t program = -1; ///< -1 outside of main()
long calls[faultKinds];
long lines = 0;
bool isTerminated = false;

// ---- The report

void report(const char *text) {
    const int error = errno;
    const auto file =
        static_cast<int>(syscall(SYS_openat, AT_FDCWD, reportPath, O_WRONLY | O_APPEND | O_CREAT, 0666));
    static_cast<void>(syscall(SYS_write, file, text, std::strlen(text)));
    syscall(SYS_close, file);
    errno = error;
}

void reportCounts() {
    char line[64];
    for (std::size_t kind = 0; kind < faultKinds; ++kind) {
        char *end = append(append(append(line, "count "), faultKindNames[kind]), " ");
        append(append(end, calls[kind]), "\n");
        report(line);
    }
    append(append(append(line, "count line "), lines), "\n");
    report(line);
    append(append(append(line, "waited "), waited / 1000), "\n");
    report(line);
}

/// "hit write /tmp/spool/0123": what the descriptor is open for.
void reportHit(const char *call, const char *target, int descriptor) {
    char path[64];
    char name[512] = "";
    if (target == nullptr && descriptor >= 0) {
        append(append(path, "/proc/self/fd/"), descriptor);
        const long length = syscall(SYS_readlinkat, AT_FDCWD, path, name, sizeof name - 1);
        name[length > 0 ? length : 0] = '\0';
        target = name;
    }
    char line[1024];
    char *end = append(append(append(line, "hit "), call), " ");
    std::strncpy(end, target != nullptr ? target : "", sizeof name);
    append(end + std::strlen(end), "\n");
    report(line);
}

// ---- Which call fails

/// Counts a call. Whether it is to fail; `errno` is set then.
bool strikes(FaultKind kind, const char *call, const char *target, int descriptor = -1) {
    const auto index = static_cast<std::size_t>(kind);
    if (program == -1 || syscall(SYS_getpid) != program) {
        return false;
    }
    const long number = ++calls[index];
    if (fault.kind != index || (fault.isLasting ? number < fault.call : number != fault.call)) {
        return false;
    }
    if (number == fault.call) {
        reportHit(call, target, descriptor);
    }
    errno = fault.error;
    if (fault.error == EPIPE && kind == FaultKind::write) {
        std::raise(SIGPIPE); // as the system does
        errno = EPIPE;
    }
    return true;
}

/// The same of a call that cannot do half of its work.
bool strikesWhole(FaultKind kind, const char *call, const char *target, int descriptor = -1) {
    return strikes(kind, call, target, descriptor) && !fault.isShort;
}

/// The file that the code at an address is from.
const char *fileOf(const void *address) {
    Dl_info information{};
    return dladdr(address, &information) != 0 ? information.dli_fname : "";
}

/// The same of memory that the code at an address asks for. What some libraries ask for on their own account
/// is left alone: libplist does not survive a refusal, libcups loses options without a word, and the C
/// library works for both.
bool strikesAllocation(const void *caller) {
    const char *file = program != -1 ? fileOf(caller) : "";
    for (const char *library : {"/libplist", "/libcups", "/libc.so"}) {
        if (std::strstr(file, library) != nullptr) {
            return false;
        }
    }
    return strikes(FaultKind::allocation, "allocate", file);
}

/// Half of a size, but something.
std::size_t half(std::size_t size) {
    return size > 1 ? size / 2 : size;
}

// ---- Waiting

/// Lets time pass. Returns whether a signal came in the course of it.
bool pass(std::int64_t nanoseconds) {
    waited += nanoseconds;
    if (waited >= giveUpAfter) {
        report("gave up\n");
        kill(getpid(), SIGKILL);
    }
    if (waited < terminateAfter || isTerminated) {
        return false;
    }
    isTerminated = true;
    report("terminated\n");
    kill(getpid(), SIGTERM);
    return true;
}

void sleepAMoment() {
    const timespec moment{.tv_sec = 0, .tv_nsec = 100'000};
    syscall(SYS_nanosleep, &moment, nullptr);
}

int realPoll(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    timespec copy = timeout != nullptr ? *timeout : timespec{}; // which the system writes to
    return static_cast<int>(syscall(SYS_ppoll, descriptors, count, timeout != nullptr ? &copy : nullptr, mask,
                                    mask != nullptr ? _NSIG / 8 : 0));
}

int virtualPoll(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    if (!isTimeVirtual || timeout == nullptr) {
        return realPoll(descriptors, count, timeout, mask);
    }
    const timespec atOnce{};
    while (true) {
        const bool atRest = areAtRest(peers, peerCount);
        const int result = realPoll(descriptors, count, &atOnce, mask);
        if (result != 0 || (timeout->tv_sec == 0 && timeout->tv_nsec == 0)) {
            return result;
        }
        if (atRest) {
            if (pass(timeout->tv_sec * second + timeout->tv_nsec)) {
                errno = EINTR;
                return -1;
            }
            return 0;
        }
        const timespec moment{.tv_sec = 0, .tv_nsec = 200'000};
        if (const int ready = realPoll(descriptors, count, &moment, mask); ready != 0) {
            return ready;
        }
    }
}

int interruptiblePoll(const char *call, pollfd *descriptors, nfds_t count, const timespec *timeout,
                      const sigset_t *mask) {
    if (strikes(FaultKind::poll, call, "")) {
        return -1;
    }
    return virtualPoll(descriptors, count, timeout, mask);
}

// ---- Steps

/// A line of the debug log has been written.
void countLine() {
    if (program == -1 || ++lines != step.line) {
        return;
    }
    report("stepped\n");
    const pid_t receiver = step.process != 0 ? step.process : getpid();
    kill(receiver, step.signal);
    // Everybody gets to know what has happened before the program goes on.
    while (receiver != getpid() && !areAtRest(peers, peerCount)) {
        sleepAMoment();
    }
}

// ---- What it is told

const char *variable(const char *name) {
    const char *value = std::getenv(name);
    return value != nullptr ? value : "";
}

/// Whether the text begins with a word that ends at a colon or with the text; `text` is behind it then.
bool takeWord(const char *&text, const char *word) {
    const std::size_t length = std::strlen(word);
    if (std::strncmp(text, word, length) != 0 || (text[length] != ':' && text[length] != '\0')) {
        return false;
    }
    text += length + (text[length] == ':' ? 1 : 0);
    return true;
}

long takeNumber(const char *&text) {
    char *end = nullptr;
    const long number = std::strtol(text, &end, 10);
    text = *end != '\0' ? end + 1 : end;
    return number;
}

[[noreturn]] void refuse(const char *name) {
    std::fprintf(stderr, "%s is not understood: %s\n", name, variable(name));
    std::abort();
}

/// "write:3:ENOSPC", "read:1:short", "write:3:EIO:lasting"
void readFault() {
    const char *text = variable(veltrin::test::faultVariable);
    if (*text == '\0') {
        return;
    }
    for (std::size_t kind = 0; kind < faultKinds && fault.kind == faultKinds; ++kind) {
        fault.kind = takeWord(text, faultKindNames[kind]) ? kind : faultKinds;
    }
    fault.call = takeNumber(text);
    fault.isShort = takeWord(text, "short");
    for (const ErrorName &error : errorNames) {
        fault.error = takeWord(text, error.name) ? error.number : fault.error;
    }
    fault.isLasting = takeWord(text, "lasting");
    if (fault.kind == faultKinds || fault.call < 1 || (fault.error != 0) == fault.isShort || *text != '\0') {
        refuse(veltrin::test::faultVariable);
    }
}

[[gnu::constructor]] void readVariables() {
    readFault();
    reportPath = variable(veltrin::test::reportVariable);
    const char *text = variable(veltrin::test::stepVariable);
    if (*text != '\0') {
        step.line = takeNumber(text);
        step.signal = static_cast<int>(takeNumber(text));
        step.process = static_cast<pid_t>(takeNumber(text));
    }
    text = variable(veltrin::test::peersVariable);
    while (*text != '\0' && peerCount < mostPeers) {
        peers[peerCount++] = static_cast<pid_t>(takeNumber(text));
    }
    text = variable(veltrin::test::timeVariable);
    if (*text != '\0') {
        isTimeVirtual = true;
        terminateAfter = takeNumber(text) * second;
        giveUpAfter = takeNumber(text) * second;
    }
    for (const char *name :
         {veltrin::test::faultVariable, veltrin::test::stepVariable, veltrin::test::peersVariable,
          veltrin::test::timeVariable, veltrin::test::reportVariable}) {
        unsetenv(name); // what was read stays where it is
    }
}

using Main = int (*)(int, char **, char **);
Main realMain = nullptr;

int countedMain(int argc, char **argv, char **environment) {
    program = static_cast<pid_t>(syscall(SYS_getpid));
    const int result = realMain(argc, argv, environment);
    program = -1;
    reportCounts();
    return result;
}

/// Whether the call is to fail. A short one is not, but has less to move.
bool fails(FaultKind kind, const char *call, int descriptor, std::size_t &size) {
    if (!strikes(kind, call, nullptr, descriptor)) {
        return false;
    }
    if (fault.isShort) {
        size = half(size);
    }
    return !fault.isShort;
}

/// A call for several blocks. A short one moves a part of the first.
template <typename Function>
ssize_t vectored(Function real, FaultKind kind, const char *call, int descriptor, const iovec *blocks,
                 int count) {
    if (!strikes(kind, call, nullptr, descriptor)) {
        return real(descriptor, blocks, count);
    }
    if (!fault.isShort) {
        return -1;
    }
    const iovec first{blocks[0].iov_base, half(blocks[0].iov_len)};
    return real(descriptor, &first, 1);
}

} // namespace

extern "C" {

using StartMain = int (*)(Main, int, char **, void (*)(), void (*)(), void (*)(), void *);

int __libc_start_main(Main main, int argc, char **argv, void (*init)(), void (*fini)(), void (*rtldFini)(),
                      void *stackEnd);

int __libc_start_main(Main main, int argc, char **argv, void (*init)(), void (*fini)(), void (*rtldFini)(),
                      void *stackEnd) {
    realMain = main;
    const auto real = reinterpret_cast<StartMain>(dlsym(RTLD_NEXT, "__libc_start_main"));
    return real(countedMain, argc, argv, init, fini, rtldFini, stackEnd);
}

// ---- Opening

#define OPEN_FUNCTION(name)                                                                                  \
    int name(const char *path, int flags, ...) {                                                             \
        std::va_list arguments;                                                                              \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;            \
        va_end(arguments);                                                                                   \
        if (strikesWhole(FaultKind::open, "open", path)) {                                                   \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(path, flags, mode);                                                                      \
    }
OPEN_FUNCTION(open)
OPEN_FUNCTION(open64)

#define OPENAT_FUNCTION(name)                                                                                \
    int name(int directory, const char *path, int flags, ...) {                                              \
        std::va_list arguments;                                                                              \
        va_start(arguments, flags);                                                                          \
        const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;            \
        va_end(arguments);                                                                                   \
        if (strikesWhole(FaultKind::open, "open", path)) {                                                   \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(directory, path, flags, mode);                                                           \
    }
OPENAT_FUNCTION(openat)
OPENAT_FUNCTION(openat64)

// What the fortified callers call.
int __open_2(const char *path, int flags);

int __open_2(const char *path, int flags) {
    return open(path, flags);
}

int __open64_2(const char *path, int flags);

int __open64_2(const char *path, int flags) {
    return open64(path, flags);
}

int __openat_2(int directory, const char *path, int flags);

int __openat_2(int directory, const char *path, int flags) {
    return openat(directory, path, flags);
}

int __openat64_2(int directory, const char *path, int flags);

int __openat64_2(int directory, const char *path, int flags) {
    return openat64(directory, path, flags);
}

FILE *fopen(const char *path, const char *mode) {
    if (strikesWhole(FaultKind::open, "fopen", path)) {
        return nullptr;
    }
    REAL(fopen);
    return real(path, mode);
}

FILE *fopen64(const char *path, const char *mode) {
    if (strikesWhole(FaultKind::open, "fopen", path)) {
        return nullptr;
    }
    REAL(fopen64);
    return real(path, mode);
}

FILE *fdopen(int descriptor, const char *mode) noexcept {
    if (strikes(FaultKind::open, "fdopen", nullptr, descriptor)) {
        return nullptr;
    }
    REAL(fdopen);
    return real(descriptor, mode);
}

DIR *opendir(const char *path) {
    if (strikesWhole(FaultKind::open, "opendir", path)) {
        return nullptr;
    }
    REAL(opendir);
    return real(path);
}

int cupsTempFd(char *name, int size) {
    if (strikes(FaultKind::temporaryFile, "cupsTempFd", "")) {
        return -1;
    }
    REAL(cupsTempFd);
    return real(name, size);
}

// ---- Reading and writing

ssize_t read(int descriptor, void *buffer, std::size_t size) {
    if (fails(FaultKind::read, "read", descriptor, size)) {
        return -1;
    }
    REAL(read);
    return real(descriptor, buffer, size);
}

ssize_t __read_chk(int descriptor, void *buffer, std::size_t size, std::size_t bufferSize);

ssize_t __read_chk(int descriptor, void *buffer, std::size_t size, std::size_t /*bufferSize*/) {
    return read(descriptor, buffer, size);
}

ssize_t readv(int descriptor, const iovec *blocks, int count) {
    REAL(readv);
    return vectored(real, FaultKind::read, "read", descriptor, blocks, count);
}

ssize_t write(int descriptor, const void *buffer, std::size_t size) {
    if (fails(FaultKind::write, "write", descriptor, size)) {
        return -1;
    }
    REAL(write);
    return real(descriptor, buffer, size);
}

ssize_t writev(int descriptor, const iovec *blocks, int count) {
    REAL(writev);
    return vectored(real, FaultKind::write, "write", descriptor, blocks, count);
}

#define POSITIONED_FUNCTION(kind, call, name, pointer, offset)                                               \
    ssize_t name(int descriptor, pointer buffer, std::size_t size, offset position) {                        \
        if (fails(FaultKind::kind, call, descriptor, size)) {                                                \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(descriptor, buffer, size, position);                                                     \
    }
POSITIONED_FUNCTION(read, "pread", pread, void *, off_t)
POSITIONED_FUNCTION(read, "pread", pread64, void *, off64_t)
POSITIONED_FUNCTION(write, "pwrite", pwrite, const void *, off_t)
POSITIONED_FUNCTION(write, "pwrite", pwrite64, const void *, off64_t)

ssize_t __pread64_chk(int descriptor, void *buffer, std::size_t size, off64_t position,
                      std::size_t bufferSize);

ssize_t __pread64_chk(int descriptor, void *buffer, std::size_t size, off64_t position,
                      std::size_t /*bufferSize*/) {
    return pread64(descriptor, buffer, size, position);
}

ssize_t splice(int from, off64_t *fromPosition, int to, off64_t *toPosition, std::size_t size,
               unsigned flags) {
    if (fails(FaultKind::write, "splice", to, size)) {
        return -1;
    }
    REAL(splice);
    return real(from, fromPosition, to, toPosition, size, flags);
}

std::size_t fwrite(const void *bytes, std::size_t size, std::size_t count, FILE *stream) {
    if (strikes(FaultKind::print, "fwrite", nullptr, fileno(stream))) {
        return 0;
    }
    REAL(fwrite);
    const std::size_t written = real(bytes, size, count, stream);
    if (stream != stderr && stream != stdout) {
        countLine();
    }
    return written;
}

int vfprintf(FILE *stream, const char *format, std::va_list arguments) {
    if (strikes(FaultKind::print, "fprintf", nullptr, fileno(stream))) {
        return -1;
    }
    REAL(vfprintf);
    return real(stream, format, arguments);
}

int fprintf(FILE *stream, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

[[gnu::format(printf, 3, 4)]] int __fprintf_chk(FILE *stream, int flag, const char *format, ...);

int __fprintf_chk(FILE *stream, int /*flag*/, const char *format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    const int result = vfprintf(stream, format, arguments);
    va_end(arguments);
    return result;
}

// ---- Memory

#ifndef VELTRIN_SANITIZED
void *malloc(std::size_t size) noexcept {
    return strikesAllocation(__builtin_return_address(0)) ? nullptr : __libc_malloc(size);
}

void *calloc(std::size_t count, std::size_t size) noexcept {
    return strikesAllocation(__builtin_return_address(0)) ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *memory, std::size_t size) noexcept {
    return strikesAllocation(__builtin_return_address(0)) ? nullptr : __libc_realloc(memory, size);
}

int posix_memalign(void **memory, std::size_t alignment, std::size_t size) noexcept {
    if (strikesAllocation(__builtin_return_address(0))) {
        return ENOMEM;
    }
    *memory = __libc_memalign(alignment, size);
    return *memory != nullptr ? 0 : ENOMEM;
}

void *aligned_alloc(std::size_t alignment, std::size_t size) noexcept {
    return strikesAllocation(__builtin_return_address(0)) ? nullptr : __libc_memalign(alignment, size);
}
#endif

int memfd_create(const char *name, unsigned flags) noexcept {
    if (strikes(FaultKind::memoryFile, "memfd_create", name)) {
        return -1;
    }
    REAL(memfd_create);
    return real(name, flags);
}

// ---- Settings and status of files

#define FCNTL_FUNCTION(name)                                                                                 \
    int name(int descriptor, int command, ...) {                                                             \
        std::va_list arguments;                                                                              \
        va_start(arguments, command);                                                                        \
        void *argument = va_arg(arguments, void *);                                                          \
        va_end(arguments);                                                                                   \
        if (strikes(FaultKind::control, "fcntl", nullptr, descriptor)) {                                     \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(descriptor, command, argument);                                                          \
    }
FCNTL_FUNCTION(fcntl)
FCNTL_FUNCTION(fcntl64)

#define STATUS_FUNCTION(name, type)                                                                          \
    int name(const char *path, struct type *status) noexcept {                                               \
        if (strikesWhole(FaultKind::status, "stat", path)) {                                                 \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(path, status);                                                                           \
    }
STATUS_FUNCTION(stat, stat)
STATUS_FUNCTION(lstat, stat)
STATUS_FUNCTION(stat64, stat64)
STATUS_FUNCTION(lstat64, stat64)

#define DESCRIPTOR_STATUS_FUNCTION(name, type)                                                               \
    int name(int descriptor, struct type *status) noexcept {                                                 \
        if (strikes(FaultKind::status, "fstat", nullptr, descriptor)) {                                      \
            return -1;                                                                                       \
        }                                                                                                    \
        REAL(name);                                                                                          \
        return real(descriptor, status);                                                                     \
    }
DESCRIPTOR_STATUS_FUNCTION(fstat, stat)
DESCRIPTOR_STATUS_FUNCTION(fstat64, stat64)

int fchmod(int descriptor, mode_t mode) noexcept {
    if (strikes(FaultKind::control, "fchmod", nullptr, descriptor)) {
        return -1;
    }
    REAL(fchmod);
    return real(descriptor, mode);
}

// ---- Sockets

int socket(int domain, int type, int protocol) noexcept {
    if (strikesWhole(FaultKind::socket, "socket", "")) {
        return -1;
    }
    REAL(socket);
    return real(domain, type, protocol);
}

int connect(int descriptor, const sockaddr *address, socklen_t size) {
    if (strikesWhole(FaultKind::socket, "connect", nullptr, descriptor)) {
        return -1;
    }
    REAL(connect);
    return real(descriptor, address, size);
}

int getsockopt(int descriptor, int level, int option, void *value, socklen_t *size) noexcept {
    if (strikesWhole(FaultKind::socket, "getsockopt", nullptr, descriptor)) {
        return -1;
    }
    REAL(getsockopt);
    return real(descriptor, level, option, value, size);
}

int setsockopt(int descriptor, int level, int option, const void *value, socklen_t size) noexcept {
    if (strikesWhole(FaultKind::socket, "setsockopt", nullptr, descriptor)) {
        return -1;
    }
    REAL(setsockopt);
    return real(descriptor, level, option, value, size);
}

int getsockname(int descriptor, sockaddr *address, socklen_t *size) noexcept {
    if (strikesWhole(FaultKind::socket, "getsockname", nullptr, descriptor)) {
        return -1;
    }
    REAL(getsockname);
    return real(descriptor, address, size);
}

ssize_t sendmsg(int descriptor, const msghdr *message, int flags) {
    REAL(sendmsg);
    if (!strikes(FaultKind::socket, "sendmsg", nullptr, descriptor)) {
        return real(descriptor, message, flags);
    }
    if (!fault.isShort || message->msg_iovlen == 0) {
        return -1;
    }
    iovec first{message->msg_iov[0].iov_base, half(message->msg_iov[0].iov_len)};
    msghdr shorter = *message;
    shorter.msg_iov = &first;
    shorter.msg_iovlen = 1;
    return real(descriptor, &shorter, flags);
}

ssize_t recvmsg(int descriptor, msghdr *message, int flags) {
    REAL(recvmsg);
    if (!strikes(FaultKind::socket, "recvmsg", nullptr, descriptor)) {
        return real(descriptor, message, flags);
    }
    if (!fault.isShort || message->msg_iovlen == 0) {
        return -1;
    }
    const std::size_t size = message->msg_iov[0].iov_len;
    message->msg_iov[0].iov_len = half(size);
    const ssize_t result = real(descriptor, message, flags);
    message->msg_iov[0].iov_len = size;
    return result;
}

// ---- Pipes and processes

int pipe2(int *ends, int flags) noexcept {
    if (strikesWhole(FaultKind::descriptor, "pipe2", "")) {
        return -1;
    }
    REAL(pipe2);
    return real(ends, flags);
}

int dup2(int descriptor, int other) noexcept {
    if (strikesWhole(FaultKind::descriptor, "dup2", nullptr, descriptor)) {
        return -1;
    }
    REAL(dup2);
    return real(descriptor, other);
}

pid_t fork() noexcept {
    if (strikesWhole(FaultKind::process, "fork", "")) {
        return -1;
    }
    REAL(fork);
    return real();
}

int execv(const char *path, char *const *arguments) noexcept {
    if (strikesWhole(FaultKind::process, "execv", path)) {
        return -1;
    }
    reportCounts(); // the end of this program's main(), unless that fails
    REAL(execv);
    return real(path, arguments);
}

int posix_spawn(pid_t *process, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const *arguments, char *const *environment) {
    if (strikesWhole(FaultKind::process, "posix_spawn", path)) {
        return fault.error;
    }
    REAL(posix_spawn);
    return real(process, path, actions, attributes, arguments, environment);
}

// ---- Time

int ppoll(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *mask) {
    return interruptiblePoll("ppoll", descriptors, count, timeout, mask);
}

int __ppoll_chk(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *mask,
                std::size_t size);

int __ppoll_chk(pollfd *descriptors, nfds_t count, const timespec *timeout, const sigset_t *mask,
                std::size_t /*size*/) {
    return interruptiblePoll("ppoll", descriptors, count, timeout, mask);
}

int poll(pollfd *descriptors, nfds_t count, int milliseconds) {
    const timespec timeout{.tv_sec = milliseconds / 1000, .tv_nsec = milliseconds % 1000 * 1'000'000L};
    return interruptiblePoll("poll", descriptors, count, milliseconds >= 0 ? &timeout : nullptr, nullptr);
}

int __poll_chk(pollfd *descriptors, nfds_t count, int milliseconds, std::size_t size);

int __poll_chk(pollfd *descriptors, nfds_t count, int milliseconds, std::size_t /*size*/) {
    return poll(descriptors, count, milliseconds);
}

int clock_gettime(clockid_t clock, timespec *time) noexcept {
    const auto result = static_cast<int>(syscall(SYS_clock_gettime, clock, time));
    if (result == 0 && clock != CLOCK_PROCESS_CPUTIME_ID && clock != CLOCK_THREAD_CPUTIME_ID) {
        const std::int64_t sum = time->tv_sec * second + time->tv_nsec + waited;
        *time = {.tv_sec = sum / second, .tv_nsec = sum % second};
    }
    return result;
}

int gettimeofday(timeval *time, void * /*zone*/) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *time = {.tv_sec = now.tv_sec, .tv_usec = now.tv_nsec / 1000};
    return 0;
}

std::time_t time(std::time_t *result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

int nanosleep(const timespec *duration, timespec *remaining) {
    if (!isTimeVirtual) {
        return static_cast<int>(syscall(SYS_nanosleep, duration, remaining));
    }
    pass(duration->tv_sec * second + duration->tv_nsec);
    return 0;
}

} // extern "C"

#ifdef VELTRIN_SANITIZED
// The sanitizer's own functions give the memory: only those of C++ can be failed in front of them.
void *operator new(std::size_t size) {
    if (strikesAllocation(__builtin_return_address(0))) {
        throw std::bad_alloc();
    }
    static const auto real = reinterpret_cast<void *(*)(std::size_t)>(dlsym(RTLD_NEXT, "_Znwm"));
    return real(size);
}

void *operator new[](std::size_t size) {
    if (strikesAllocation(__builtin_return_address(0))) {
        throw std::bad_alloc();
    }
    static const auto real = reinterpret_cast<void *(*)(std::size_t)>(dlsym(RTLD_NEXT, "_Znam"));
    return real(size);
}

void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    if (strikesAllocation(__builtin_return_address(0))) {
        return nullptr;
    }
    static const auto real = reinterpret_cast<void *(*)(std::size_t, const std::nothrow_t &)>(
        dlsym(RTLD_NEXT, "_ZnamRKSt9nothrow_t"));
    return real(size, std::nothrow);
}
#endif
// NOLINTEND(bugprone-reserved-identifier,cert-dcl37-c,cert-dcl51-cpp)
