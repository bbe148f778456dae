#include "platform/SharedFile.h"

#include "tests/support/Files.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace {

/// The flags of every open(2) of the file under test, and what is done before each.
std::vector<int> recordedFlags;
std::function<void()> beforeOpen;

constexpr const char *path = "/tmp/shared";

} // namespace

// The linker puts these between the code under test and the C library (see CMakeLists.txt).
extern "C" int __real_open64(const char *name, int flags, ...);
extern "C" int __wrap_open64(const char *name, int flags, ...);

extern "C" int __wrap_open64(const char *name, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        std::va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (std::string(name) == path) {
        recordedFlags.push_back(flags);
        if (beforeOpen) {
            beforeOpen();
        }
    }
    return __real_open64(name, flags, mode);
}

namespace veltrin::platform {
namespace {

using test::readFile;
using test::writeFile;

class SharedFileTest : public testing::Test {
  protected:
    SharedFileTest() {
        recordedFlags.clear();
        umask(077);
    }

    ~SharedFileTest() override {
        beforeOpen = nullptr;
        std::filesystem::remove_all(path);
        std::filesystem::remove("/tmp/victim");
    }

    static mode_t modeOf(const char *file) {
        struct stat status {};

        EXPECT_EQ(stat(file, &status), 0);
        return status.st_mode & 07777U;
    }

    /// And that nothing of it stays open.
    static void expectRefused(int expectedError) {
        const int next = dup(STDIN_FILENO);
        close(next);
        errno = 0;
        EXPECT_EQ(openSharedFileForAppending(path), -1);
        EXPECT_EQ(errno, expectedError);
        EXPECT_EQ(fcntl(next, F_GETFD), -1);
    }
};

TEST_F(SharedFileTest, IsCreatedForEveryUserWhateverTheUmask) {
    const int fd = openSharedFileForAppending(path);
    ASSERT_NE(fd, -1);
    EXPECT_EQ(modeOf(path), 0666U);
    EXPECT_NE(fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
    close(fd);
    EXPECT_EQ(readFile(path), "");
}

TEST_F(SharedFileTest, IsAppendedToWhereItExists) {
    writeFile(path, "one\n");
    const int fd = openSharedFileForAppending(path);
    ASSERT_NE(fd, -1);
    EXPECT_EQ(write(fd, "two\n", 4), 4);
    close(fd);
    EXPECT_EQ(readFile(path), "one\ntwo\n");
    EXPECT_EQ(modeOf(path), 0666U);
}

TEST_F(SharedFileTest, IsOpenedWithoutAskingForItsCreationFirst) {
    // With fs.protected_regular the system refuses O_CREAT for another user's file in a sticky directory.
    writeFile(path, "");
    close(openSharedFileForAppending(path));
    ASSERT_EQ(recordedFlags.size(), 1U);
    EXPECT_EQ(recordedFlags[0] & O_CREAT, 0);

    recordedFlags.clear();
    std::filesystem::remove(path);
    close(openSharedFileForAppending(path));
    ASSERT_EQ(recordedFlags.size(), 2U);
    EXPECT_EQ(recordedFlags[0] & O_CREAT, 0);
    EXPECT_EQ(recordedFlags[1] & (O_CREAT | O_EXCL), O_CREAT | O_EXCL);
}

TEST_F(SharedFileTest, IsOpenedWhereAnotherProcessCreatesItMeanwhile) {
    beforeOpen = [] {
        if (recordedFlags.size() == 2) {
            writeFile(path, "theirs\n");
        }
    };
    const int fd = openSharedFileForAppending(path);
    ASSERT_NE(fd, -1);
    EXPECT_EQ(write(fd, "ours\n", 5), 5);
    close(fd);
    EXPECT_EQ(readFile(path), "theirs\nours\n");
}

TEST_F(SharedFileTest, IsNotFoundThroughASymbolicLink) {
    writeFile("/tmp/victim", "precious\n");
    chmod("/tmp/victim", 0600);
    std::filesystem::create_symlink("/tmp/victim", path);
    expectRefused(ELOOP);
    EXPECT_EQ(readFile("/tmp/victim"), "precious\n");
    EXPECT_EQ(modeOf("/tmp/victim"), 0600U);
}

TEST_F(SharedFileTest, IsNotAnotherFileUnderASecondName) {
    writeFile("/tmp/victim", "precious\n");
    chmod("/tmp/victim", 0600);
    std::filesystem::create_hard_link("/tmp/victim", path);
    expectRefused(EINVAL);
    EXPECT_EQ(modeOf("/tmp/victim"), 0600U);
}

TEST_F(SharedFileTest, IsNotCreatedThroughADanglingSymbolicLink) {
    std::filesystem::create_symlink("/tmp/victim", path);
    expectRefused(ELOOP);
    EXPECT_FALSE(std::filesystem::exists("/tmp/victim"));
}

TEST_F(SharedFileTest, RefusesWhatIsNoRegularFileWithoutWaiting) {
    ASSERT_EQ(mkfifo(path, 0666), 0);
    expectRefused(ENXIO);
    const int reader = __real_open64(path, O_RDONLY | O_NONBLOCK);
    expectRefused(EINVAL);
    close(reader);
    std::filesystem::remove(path);
    std::filesystem::create_directory(path);
    expectRefused(EISDIR);
}

} // namespace
} // namespace veltrin::platform
