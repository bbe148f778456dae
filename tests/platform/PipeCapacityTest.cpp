#include "platform/PipeCapacity.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <string>

namespace veltrin::platform {
namespace {

constexpr std::size_t kibibyte = 1024;

class PipeCapacity : public testing::Test {
  protected:
    PipeCapacity() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }

    ~PipeCapacity() override {
        close(ends[0]);
        close(ends[1]);
    }

    [[nodiscard]] int capacity() const { return fcntl(ends[0], F_GETPIPE_SZ); }

    std::array<int, 2> ends{};
};

TEST_F(PipeCapacity, GrowsFromEitherEnd) {
    ASSERT_LT(capacity(), 256 * 1024);
    widenPipe(ends[1], 256 * kibibyte);
    EXPECT_EQ(capacity(), 256 * 1024);
    widenPipe(ends[0], 512 * kibibyte);
    EXPECT_EQ(capacity(), 512 * 1024);
}

TEST_F(PipeCapacity, NeverShrinks) {
    const int before = capacity();
    widenPipe(ends[1], 4096);
    EXPECT_EQ(capacity(), before);
}

TEST_F(PipeCapacity, GrowsAsFarAsTheSystemAllows) {
    const int most = std::stoi(test::readFile("/proc/sys/fs/pipe-max-size"));
    ASSERT_LT(capacity(), most);
    ASSERT_LT(most, 512 * 1024 * 1024);
    const pid_t child = fork();
    if (child == 0) {
        constexpr uid_t nobody = 65534;
        if (getuid() == 0 && setuid(nobody) != 0) { // root is allowed anything
            _exit(2);
        }
        widenPipe(ends[1], 512 * kibibyte * kibibyte);
        _exit(capacity() > most / 2 && capacity() <= most ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
}

TEST_F(PipeCapacity, IsNothingThatOtherDescriptorsHave) {
    const int file = open("/tmp/no-pipe", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_NE(file, -1);
    ASSERT_EQ(write(file, "abc", 3), 3);
    widenPipe(file, 256 * kibibyte);
    EXPECT_EQ(lseek(file, 0, SEEK_END), 3);
    close(file);
    widenPipe(file, 256 * kibibyte);
    widenPipe(-1, 256 * kibibyte);
    EXPECT_EQ(fcntl(file, F_GETFD), -1);
}

} // namespace
} // namespace veltrin::platform
