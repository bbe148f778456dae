#include "tests/support/Files.h"
#include "tests/support/PrivateTmp.h"
#include "tests/support/Process.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

// scripts/mutants in a project that has one function and one test of it.

namespace veltrin {
namespace {

using test::ProcessResult;
using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const std::filesystem::path project = "/tmp/project";

/// As GoogleTest's programs take and tell what the script asks of them.
constexpr const char *halfTest = R"(#include <cstring>
#include <iostream>
int half(int number);
int main(int argc, char **argv) {
    if (std::strcmp(argv[argc - 1], "--gtest_list_tests") == 0) {
        std::cout << "Half.\n  IsHalf\n";
        return 0;
    }
    if (half(8) != 4) {
        std::cout << "[  FAILED  ] Half.IsHalf (0 ms)\n";
        return 1;
    }
    return 0;
}
)";

constexpr const char *buildRules = R"(cmake_minimum_required(VERSION 3.25)
project(Project LANGUAGES CXX)
add_executable(half-tests Half.cpp tests/HalfTest.cpp)
set_target_properties(half-tests PROPERTIES RUNTIME_OUTPUT_DIRECTORY tests)
)";

constexpr const char *presets = R"({
  "version": 6,
  "configurePresets": [
    { "name": "development", "generator": "Ninja", "binaryDir": "${sourceDir}/build/development" }
  ],
  "buildPresets": [{ "name": "development", "configurePreset": "development" }]
}
)";

class MutantsScript : public testing::Test {
  protected:
    MutantsScript() {
        test::writeFile(project / "CMakeLists.txt", buildRules);
        test::writeFile(project / "CMakePresets.json", presets);
        test::writeFile(project / "tests/CMakeLists.txt", "# half-tests is built by the file above\n");
        test::writeFile(project / "tests/HalfTest.cpp", halfTest);
        writeHalf("number / 2");
        test::writeFile(project / "scripts/mutants", test::readFile(test::hostPath(VELTRIN_MUTANTS_SCRIPT)));
    }

    ~MutantsScript() override { std::filesystem::remove_all(project); }

    static void writeHalf(const std::string &expression) {
        test::writeFile(project / "Half.cpp",
                        "int half(int number);\nint half(int number) {\n    return " + expression + ";\n}\n");
    }

    /// A change of the function from `before` to `after`.
    static void addMutant(const std::string &name, const std::string &before, const std::string &after,
                          const std::string &tests = "Tests: half-tests Half.*\n") {
        test::writeFile(project / "tests/mutants/room" / (name + ".patch"),
                        "Something is wrong.\n\n" + tests +
                            "\ndiff --git a/Half.cpp b/Half.cpp\n--- a/Half.cpp\n+++ b/Half.cpp\n"
                            "@@ -2,3 +2,3 @@\n int half(int number) {\n-    return " +
                            before + ";\n+    return " + after + ";\n }\n");
    }

    static ProcessResult mutants(const std::vector<std::string> &arguments = {}) {
        test::Command command{"/bin/bash", {"bash", project / "scripts/mutants"}};
        command.arguments.insert(command.arguments.end(), arguments.begin(), arguments.end());
        return test::run(command, std::chrono::minutes(2));
    }
};

TEST_F(MutantsScript, EndsWellWhereEveryChangeIsNoticed) {
    addMutant("killed", "number / 2", "number / 3");

    const ProcessResult result = mutants();

    EXPECT_EQ(result.exitStatus, 0) << result.output << result.errors;
    EXPECT_THAT(result.output, HasSubstr("killed          room/killed ("));
    EXPECT_THAT(result.output, HasSubstr("half-tests: Half.IsHalf\n"));
    EXPECT_THAT(result.output, HasSubstr("\n1 of 1 killed, 0 survived, 0 do not apply, 0 do not build; "));
}

TEST_F(MutantsScript, TellsASurvivorAnOutdatedPatchAndOneThatDoesNotBuild) {
    addMutant("killed", "number / 2", "number / 3");
    addMutant("outdated", "number * 2", "number * 3");
    addMutant("survivor", "number / 2", "number >> 1");
    addMutant("unbuilt", "number / 2", "number /");

    const ProcessResult result = mutants();

    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.output, AllOf(HasSubstr("killed          room/killed ("),
                                     HasSubstr("does not apply  room/outdated ("),
                                     HasSubstr("SURVIVED        room/survivor ("),
                                     HasSubstr("does not build  room/unbuilt (")));
    EXPECT_THAT(result.output, HasSubstr("\n1 of 4 killed, 1 survived, 1 do not apply, 1 do not build; "));
}

/// The change before it is taken back, and what has been edited since the last time is there.
TEST_F(MutantsScript, JudgesTheTreeAsItIsNow) {
    addMutant("survivor", "number / 2", "number >> 1");
    EXPECT_EQ(mutants({"room"}).exitStatus, 1);
    writeHalf("(number + 1) / 2");
    addMutant("killed", "(number + 1) / 2", "(number + 2) / 2");

    EXPECT_EQ(mutants({"room/killed"}).exitStatus, 0);

    EXPECT_THAT(mutants({"room/survivor"}).output, HasSubstr("does not apply"));
    EXPECT_THAT(test::readFile(project / "Half.cpp"), HasSubstr("(number + 1) / 2"));
}

TEST_F(MutantsScript, TestsThatAreRedWithoutAChangeKillNothing) {
    writeHalf("number / 4");
    addMutant("killed", "number / 4", "number / 3");

    const ProcessResult result = mutants();

    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors, HasSubstr("these tests fail without any wrong change: half-tests Half.*"));
    EXPECT_THAT(result.output, Not(HasSubstr("killed")));
}

TEST_F(MutantsScript, ChecksWithoutABuild) {
    addMutant("fine", "number / 2", "number / 3");
    EXPECT_EQ(mutants({"--check"}).exitStatus, 0);
    addMutant("outdated", "number * 2", "number * 3");
    addMutant("untested", "number / 2", "number / 3", "");
    addMutant("other-tests", "number / 2", "number / 3", "Tests: third-tests\n");

    const ProcessResult result = mutants({"--check"});

    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_THAT(result.errors, AllOf(HasSubstr("does not apply: tests/mutants/room/outdated.patch"),
                                     HasSubstr("names no tests: tests/mutants/room/untested.patch"),
                                     HasSubstr("third-tests: tests/mutants/room/other-tests.patch"),
                                     Not(HasSubstr("fine"))));
    EXPECT_FALSE(std::filesystem::exists(project / "build"));
}

TEST_F(MutantsScript, RefusesWhatIsNeitherARoomNorAPatch) {
    addMutant("fine", "number / 2", "number / 3");

    EXPECT_EQ(mutants({"cellar"}).exitStatus, 1);
    EXPECT_EQ(mutants({"--all"}).exitStatus, 2);
}

} // namespace
} // namespace veltrin
