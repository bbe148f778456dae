#include "tests/support/PrivateTmp.h"

#ifdef VELTRIN_ON_FOUNDATION
#include "tests/support/PrivateGdnc.h"
#endif

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>
#include <string>
#include <vector>

namespace {

/// Whether this process has all that tests need, or needs none of it. It may begin anew meanwhile.
bool isPrivate(char *const *arguments, std::string &problem) {
    if (testing::GTEST_FLAG(list_tests)) {
        return true;
    }
#ifdef VELTRIN_ON_FOUNDATION
    return veltrin::test::isInGnustepEnvironment() ||
           (veltrin::test::enterPrivateFolders(problem) && veltrin::test::enterGnustepEnvironment(arguments));
#else
    static_cast<void>(arguments);
    // What is installed on the machine would be found by programs that find nothing beside themselves.
    return veltrin::test::enterPrivateFolders(problem) &&
           veltrin::test::hideFolder(VELTRIN_INSTALLED_RESOURCES, problem);
#endif
}

} // namespace

int main(int argc, char **argv) {
    const std::vector<char *> arguments(argv, argv + argc + 1); // the tests' own are taken out of them
    testing::InitGoogleMock(&argc, argv);
    std::string problem;
    if (!isPrivate(arguments.data(), problem)) {
        std::cerr << "These tests need a /tmp and a /run of their own, which this system refuses: " << problem
                  << '\n';
        return EXIT_FAILURE;
    }
    setenv("CUPS_SERVER", veltrin::test::noScheduler, 1);
    return RUN_ALL_TESTS();
}
