#include "tests/support/PrivateTmp.h"

#include <gmock/gmock.h>

#include <cstdlib>
#include <iostream>
#include <string>

int main(int argc, char **argv) {
    testing::InitGoogleMock(&argc, argv);
    std::string problem;
    if (!testing::GTEST_FLAG(list_tests) && !veltrin::test::enterPrivateTmp(problem)) {
        std::cerr << "These tests need a /tmp of their own, which this system refuses: " << problem << '\n';
        return EXIT_FAILURE;
    }
    return RUN_ALL_TESTS();
}
