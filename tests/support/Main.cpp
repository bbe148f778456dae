#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>
#include <string>

int main(int argc, char **argv) {
    testing::InitGoogleMock(&argc, argv);
    std::string problem;
    // What is installed on the machine would be found by programs that find nothing beside themselves.
    if (!testing::GTEST_FLAG(list_tests) &&
        !(veltrin::test::enterPrivateFolders(problem) &&
          veltrin::test::hideFolder(VELTRIN_INSTALLED_RESOURCES, problem))) {
        std::cerr << "These tests need a /tmp and a /run of their own, which this system refuses: " << problem
                  << '\n';
        return EXIT_FAILURE;
    }
    setenv("CUPS_SERVER", veltrin::test::noScheduler, 1);
    return RUN_ALL_TESTS();
}
