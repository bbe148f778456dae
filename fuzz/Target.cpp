#include "fuzz/Target.h"

#include "tests/support/PrivateTmp.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

/// Where the words of a failure go.
int errors = STDERR_FILENO;

void say(const std::string &line) {
    dprintf(errors, "%s\n", line.c_str());
}

/// The arguments are paths that were given before the machine's /tmp was out of sight.
void translatePaths(int argc, char **argv) {
    static std::vector<std::string> translated;
    translated.reserve(static_cast<std::size_t>(argc));
    for (int i = 1; i < argc; ++i) {
        translated.push_back(veltrin::test::hostPath(argv[i]));
        argv[i] = translated.back().data();
    }
}

} // namespace

/// Memory that nobody has is refused as a machine refuses it: the library that reads raster asks for as much
/// as a line is said to have.
// NOLINTNEXTLINE(bugprone-reserved-identifier,cert-dcl37-c): the sanitizer asks for it by this name.
extern "C" const char *__asan_default_options();

extern "C" const char *__asan_default_options() { // NOLINT(bugprone-reserved-identifier,cert-dcl37-c)
    return "max_allocation_size_mb=512:allocator_may_return_null=1";
}

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv) {
    errors = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
    std::string problem;
    if (!veltrin::test::enterPrivateFolders(problem)) {
        say("A target needs a /tmp and a /run of its own, which this system refuses: " + problem);
        std::exit(EXIT_FAILURE);
    }
    translatePaths(*argc, *argv);
    setenv("CUPS_SERVER", veltrin::test::noScheduler, 1);
    setenv("CUPS_SERVERROOT", "/tmp/none", 1);
    return 0;
}

namespace veltrin::fuzz {

void require(bool holds, const char *property) {
    if (!holds) {
        say(std::string("This does not hold: ") + property);
        std::abort();
    }
}

} // namespace veltrin::fuzz
