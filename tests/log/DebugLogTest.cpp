#include "log/DebugLog.h"

#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"
#include "tests/support/NoMemory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <string>
#include <vector>

namespace {

bool fdopenFails = false;

} // namespace

// The linker puts these between the code under test and the C library (see CMakeLists.txt).
extern "C" std::FILE *__real_fdopen(int descriptor, const char *mode);
extern "C" std::FILE *__wrap_fdopen(int descriptor, const char *mode);

extern "C" std::FILE *__wrap_fdopen(int descriptor, const char *mode) {
    if (fdopenFails) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_fdopen(descriptor, mode);
}

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using test::readFile;
using test::writeFile;
using testing::ElementsAre;

/// Seconds since the epoch of a time in the test's own time zone (set to UTC).
std::chrono::microseconds utc(int year, int month, int day, int hour, int minute, int second) {
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return std::chrono::seconds(timegm(&time));
}

class DebugLogTest : public testing::Test {
  protected:
    DebugLogTest() {
        setenv("TZ", "UTC", 1);
        tzset();
        DebugUseClock(clock);
    }

    ~DebugLogTest() override {
        DebugEnd();
        DebugUseClock(platform::systemClock());
        std::filesystem::remove(debugMarkerPath);
        std::filesystem::remove_all(debugLogPath);
    }

    void createMarker() { writeFile(debugMarkerPath, ""); }

    /// Runs `body` in a process of its own and returns what it wrote to standard error.
    template <typename Body>
    std::string standardErrorOf(Body body) {
        const std::string path = "/tmp/stderr.txt";
        const pid_t child = fork();
        if (child == 0) {
            if (std::freopen(path.c_str(), "w", stderr) == nullptr) {
                _exit(2);
            }
            body();
            std::fflush(nullptr);
            _exit(0);
        }
        int status = -1;
        waitpid(child, &status, 0);
        EXPECT_EQ(status, 0);
        return readFile(path);
    }

    std::string processId = " (" + std::to_string(getpid()) + ") ";
    test::FakeClock clock;
};

TEST_F(DebugLogTest, WritesNothingWithoutTheMarker) {
    CPSDebugLog("unheard");
    CPSDebugAssert_("unheard");
    CPSDebugLogHexDump("abc", 3);
    EXPECT_EQ(gDebugFile, nullptr);
    EXPECT_FALSE(std::filesystem::exists(debugLogPath));
}

TEST_F(DebugLogTest, ComesOnAtTheFirstCallAfterTheMarkerAppears) {
    CPSDebugLog("before");
    createMarker();
    CPSDebugLog("after");
    EXPECT_THAT(test::messagesOf(readFile(debugLogPath)), ElementsAre("after"));
}

TEST_F(DebugLogTest, StaysOnWhenTheMarkerGoes) {
    createMarker();
    CPSDebugLog("one");
    std::filesystem::remove(debugMarkerPath);
    CPSDebugLog("two");
    EXPECT_THAT(test::messagesOf(readFile(debugLogPath)), ElementsAre("one", "two"));
}

TEST_F(DebugLogTest, AppendsToWhatIsThere) {
    writeFile(debugLogPath, "an earlier job\n");
    createMarker();
    CPSDebugLog("this job");
    EXPECT_THAT(test::messagesOf(readFile(debugLogPath)), ElementsAre("an earlier job", "this job"));
}

TEST_F(DebugLogTest, LetsEveryUserAppend) {
    umask(077);
    createMarker();
    DebugStart();

    struct stat status {};

    ASSERT_EQ(stat(debugLogPath, &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(DebugLogTest, PrefixHoldsZeroBasedMonthUnscaledMicrosecondsAndProcess) {
    struct Case {
        std::chrono::microseconds time;
        std::string prefix;
    };

    createMarker();
    const std::vector<Case> cases = {
        {utc(2026, 11, 15, 21, 33, 5) + 5000us, "10/15/2026 21:33:05.5000"},
        {utc(2026, 1, 2, 3, 4, 6) + 7us, "00/02/2026 03:04:06.0007"},
        {utc(2026, 12, 31, 23, 59, 59) + 42us, "11/31/2026 23:59:59.0042"},
        {utc(2027, 6, 9, 0, 0, 0) + 123456us, "05/09/2027 00:00:00.123456"},
        {utc(2027, 6, 9, 0, 0, 0), "05/09/2027 00:00:00.0000"},
    };
    std::string expected;
    for (const Case &one : cases) {
        clock.now = one.time;
        CPSDebugLog("x");
        expected += one.prefix + processId + "x\n";
    }
    EXPECT_EQ(readFile(debugLogPath), expected);
}

TEST_F(DebugLogTest, TakesTheSecondsFromAReadingOfTheirOwn) {
    createMarker();
    clock.now = utc(2026, 11, 15, 21, 33, 5) + 3us;
    clock.secondsBehind = 1;
    CPSDebugLog("x");
    EXPECT_EQ(readFile(debugLogPath), "10/15/2026 21:33:04.0003" + processId + "x\n");
}

TEST_F(DebugLogTest, AssertMarksItsLineAndReturns) {
    createMarker();
    clock.now = utc(2026, 11, 15, 21, 33, 5);
    CPSDebugAssert_("no %s", "paper");
    EXPECT_EQ(readFile(debugLogPath), "10/15/2026 21:33:05.0000" + processId + "ASSERT: no paper\n");
}

TEST_F(DebugLogTest, DropsOnlyThePrefixWhenTheTimeCannotBeHad) {
    createMarker();
    clock.fails = true;
    CPSDebugLog("%d pages", 3);
    CPSDebugAssert_("odd");
    EXPECT_EQ(readFile(debugLogPath), "3 pages\nASSERT: odd\n");
}

TEST_F(DebugLogTest, WritesLinesOfAnyLength) {
    createMarker();
    clock.fails = true;
    const std::string text(100000, 'x');
    CPSDebugLog("%s", "");
    CPSDebugLog("%s", text.c_str());
    EXPECT_EQ(readFile(debugLogPath), "\n" + text + "\n");
}

TEST_F(DebugLogTest, NeedsNoMemoryButForTheRestOfALongLine) {
    const std::string longText(3000, 'x');
    createMarker();
    CPSDebugLog("on");
    {
        const test::NoMemory none;
        EXPECT_THROW(static_cast<void>(std::string(100, 'x')), std::bad_alloc);
        CPSDebugAssert_("not enough %s", "memory");
        CPSDebugLog("%s", longText.c_str());
    }
    const std::vector<std::string> messages = test::messagesOf(readFile(debugLogPath));
    ASSERT_EQ(messages.size(), 3U);
    EXPECT_EQ(messages[1], "ASSERT: not enough memory");
    EXPECT_THAT(messages[2], testing::MatchesRegex("x+"));
    EXPECT_GT(messages[2].size(), 400U);
    EXPECT_LT(messages[2].size(), 3000U);
}

TEST_F(DebugLogTest, HexDumpWritesEightBytesALine) {
    struct Case {
        std::string bytes;
        std::string dump;
    };

    const std::vector<Case> cases = {
        {"", "    \n"},
        {"\x01\xab\xff", "    0x01 0xab 0xff \n"},
        {"12345678", "    0x31 0x32 0x33 0x34 0x35 0x36 0x37 0x38 \n"},
        {"123456789", "    0x31 0x32 0x33 0x34 0x35 0x36 0x37 0x38 \n    0x39 \n"},
    };
    createMarker();
    std::string expected;
    for (const Case &one : cases) {
        CPSDebugLogHexDump(one.bytes.data(), static_cast<std::uint32_t>(one.bytes.size()));
        expected += one.dump;
        EXPECT_EQ(readFile(debugLogPath), expected);
    }
}

TEST_F(DebugLogTest, EndClosesTheFileAndALaterLineOpensItAgain) {
    createMarker();
    CPSDebugLog("one");
    DebugEnd();
    EXPECT_EQ(gDebugFile, nullptr);
    CPSDebugLog("two");
    EXPECT_THAT(test::messagesOf(readFile(debugLogPath)), ElementsAre("one", "two"));
    DebugEnd();
    DebugEnd();
}

TEST_F(DebugLogTest, FallsBackToStandardErrorForGood) {
    createMarker();
    std::filesystem::create_directory(debugLogPath);
    clock.fails = true;
    const std::string output = standardErrorOf([] {
        CPSDebugLog("one");
        std::filesystem::remove(debugLogPath);
        DebugEnd();
        CPSDebugAssert_("two");
        DebugEnd();
        std::fputs("still open\n", stderr);
    });
    EXPECT_EQ(output, "DEBUG: Unable to open debug log for writing, switching to stderr: Is a directory\n"
                      "one\n"
                      "ASSERT: two\n"
                      "still open\n");
    EXPECT_FALSE(std::filesystem::exists(debugLogPath));
}

TEST_F(DebugLogTest, DoesNotFollowAPlantedSymbolicLink) {
    createMarker();
    writeFile("/tmp/victim", "precious\n");
    std::filesystem::create_symlink("/tmp/victim", debugLogPath);
    clock.fails = true;
    const std::string output = standardErrorOf([] { CPSDebugLog("one"); });
    EXPECT_EQ(output, "DEBUG: Unable to open debug log for writing, switching to stderr: "
                      "Too many levels of symbolic links\n"
                      "one\n");
    EXPECT_EQ(readFile("/tmp/victim"), "precious\n");
}

TEST_F(DebugLogTest, DoesNotWaitForTheReaderOfAPlantedPipe) {
    createMarker();
    ASSERT_EQ(mkfifo(debugLogPath, 0666), 0);
    clock.fails = true;
    const std::string output = standardErrorOf([] { CPSDebugLog("one"); });
    EXPECT_EQ(output, "DEBUG: Unable to open debug log for writing, switching to stderr: "
                      "No such device or address\n"
                      "one\n");
}

TEST_F(DebugLogTest, LeavesNoFileOpenThatThereIsNoStreamFor) {
    createMarker();
    clock.fails = true;
    const std::string output = standardErrorOf([] {
        const int next = dup(STDERR_FILENO);
        close(next);
        fdopenFails = true;
        CPSDebugLog("one");
        std::fputs(fcntl(next, F_GETFD) == -1 ? "closed\n" : "left open\n", stderr);
    });
    EXPECT_EQ(output,
              "DEBUG: Unable to open debug log for writing, switching to stderr: Cannot allocate memory\n"
              "one\n"
              "closed\n");
}

/// What is written at once stays whole among the lines of other processes; a pipe of packets shows it.
TEST_F(DebugLogTest, WritesALineAtOnce) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe2(ends.data(), O_DIRECT), 0);
    clock.fails = true;
    gDebugFile = fdopen(ends[1], "a");
    ASSERT_NE(gDebugFile, nullptr);
    std::setbuf(gDebugFile, nullptr);
    CPSDebugAssert_("number %d", 1);
    CPSDebugLog("two");
    DebugEnd();

    std::array<char, 80> packet{};
    const auto nextPacket = [&] {
        const ssize_t size = read(ends[0], packet.data(), packet.size());
        return std::string(packet.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
    };
    EXPECT_EQ(nextPacket(), "ASSERT: number 1\n");
    EXPECT_EQ(nextPacket(), "two\n");
    close(ends[0]);
}

TEST_F(DebugLogTest, LinesOfSeveralProcessesStayWhole) {
    constexpr int processes = 4;
    constexpr int linesEach = 200;
    createMarker();
    for (int p = 0; p < processes; ++p) {
        if (fork() == 0) {
            for (int i = 0; i < linesEach; ++i) {
                CPSDebugLog("process %d line %d %s", p, i, std::string(300, 'x').c_str());
            }
            _exit(0);
        }
    }
    for (int p = 0; p < processes; ++p) {
        int status = -1;
        wait(&status);
        EXPECT_EQ(status, 0);
    }
    std::vector<std::string> expected;
    for (int p = 0; p < processes; ++p) {
        for (int i = 0; i < linesEach; ++i) {
            expected.push_back("process " + std::to_string(p) + " line " + std::to_string(i) + " " +
                               std::string(300, 'x'));
        }
    }
    EXPECT_THAT(test::messagesOf(readFile(debugLogPath)), testing::UnorderedElementsAreArray(expected));
}

} // namespace
} // namespace veltrin
