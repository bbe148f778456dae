#include "platform/linux/SealedMemory.h"

#include "platform/PipeCapacity.h"
#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace veltrin::platform {
namespace {

std::vector<std::byte> patternOf(std::size_t size) {
    std::vector<std::byte> bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::byte>(i * 7 + i / 251);
    }
    return bytes;
}

TEST(SealedMemoryTest, HoldsTheWholeBlock) {
    for (const std::size_t size : {std::size_t{0}, std::size_t{1}, std::size_t{4096}, std::size_t{4097},
                                   std::size_t{5} * 1024 * 1024}) {
        const std::vector<std::byte> block = patternOf(size);
        const int descriptor = makeSealedMemory(block);
        ASSERT_GE(descriptor, 0);
        const auto memory = SealedMemory::map(descriptor);
        close(descriptor);
        ASSERT_TRUE(memory);
        EXPECT_TRUE(std::ranges::equal(memory->bytes(), block)) << size;
    }
}

TEST(SealedMemoryTest, IsMappedAsLongAsItsObjectLives) {
    const auto isMapped = [] {
        return test::readFile("/proc/self/maps").find("memfd:veltrin-block") != std::string::npos;
    };
    const int descriptor = makeSealedMemory(patternOf(5000));
    auto memory = SealedMemory::map(descriptor);
    close(descriptor);
    EXPECT_TRUE(isMapped());
    memory.reset();
    EXPECT_FALSE(isMapped());
}

TEST(SealedMemoryTest, CannotBeChangedAnyMore) {
    const int descriptor = makeSealedMemory(patternOf(100));
    ASSERT_GE(descriptor, 0);
    EXPECT_EQ(pwrite(descriptor, "x", 1, 0), -1);
    EXPECT_EQ(ftruncate(descriptor, 10), -1);
    EXPECT_EQ(ftruncate(descriptor, 1000), -1);
    EXPECT_EQ(fcntl(descriptor, F_GETFD) & FD_CLOEXEC, FD_CLOEXEC);
    close(descriptor);
}

TEST(SealedMemoryTest, RefusesMemoryThatIsNotSealedInEveryWay) {
    constexpr int all = F_SEAL_WRITE | F_SEAL_GROW | F_SEAL_SHRINK;
    for (const int seals : {0, all & ~F_SEAL_WRITE, all & ~F_SEAL_GROW, all & ~F_SEAL_SHRINK}) {
        const int descriptor = memfd_create("test", MFD_CLOEXEC | MFD_ALLOW_SEALING);
        ASSERT_EQ(ftruncate(descriptor, 100), 0);
        ASSERT_EQ(fcntl(descriptor, F_ADD_SEALS, seals), 0);
        EXPECT_FALSE(SealedMemory::map(descriptor)) << seals;
        close(descriptor);
    }
}

TEST(SealedMemoryTest, RefusesOtherDescriptors) {
    std::array<int, 2> ends{};
    ASSERT_EQ(pipe(ends.data()), 0);
    const int file = open("/tmp/plain", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    const int zeros = open("/dev/zero", O_RDONLY | O_CLOEXEC);
    for (const int descriptor : {ends[0], ends[1], file, zeros, -1}) {
        EXPECT_FALSE(SealedMemory::map(descriptor));
    }
    for (const int descriptor : {ends[0], ends[1], file, zeros}) {
        close(descriptor);
    }
}

/// Sealed memory that holds this block, and a pipe.
class SealedMemoryWriting : public testing::Test {
  protected:
    SealedMemoryWriting() {
        EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK), 0);
        widenPipe(ends[1], blockSize);
    }

    ~SealedMemoryWriting() override {
        for (const int each : {ends[0], ends[1], descriptor}) {
            close(each);
        }
    }

    [[nodiscard]] std::vector<std::byte> readPipe() const {
        std::vector<std::byte> bytes(2 * blockSize);
        const ssize_t got = read(ends[0], bytes.data(), bytes.size());
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        return bytes;
    }

    static constexpr std::size_t blockSize = 300'000;
    std::vector<std::byte> block = patternOf(blockSize);
    int descriptor = makeSealedMemory(block);
    std::optional<SealedMemory> memory = SealedMemory::map(descriptor);
    std::array<int, 2> ends{};
};

TEST_F(SealedMemoryWriting, GoesIntoAPipeFromAnyByteOn) {
    for (const std::size_t from : {std::size_t{0}, std::size_t{1}, std::size_t{4095}, blockSize - 1}) {
        EXPECT_EQ(memory->writeTo(ends[1], from), static_cast<ssize_t>(blockSize - from));
        EXPECT_TRUE(std::ranges::equal(readPipe(), std::span(block).subspan(from))) << from;
    }
}

TEST_F(SealedMemoryWriting, FillsAPipeAndWaitsForNobody) {
    std::vector<std::byte> taken;
    std::size_t from = 0;
    while (from < 4 * blockSize) {
        const ssize_t moved = memory->writeTo(ends[1], from % blockSize);
        if (moved == -1) {
            ASSERT_EQ(errno, EAGAIN);
            const std::vector<std::byte> bytes = readPipe();
            ASSERT_FALSE(bytes.empty());
            taken.insert(taken.end(), bytes.begin(), bytes.end());
        } else {
            ASSERT_GT(moved, 0);
            from += static_cast<std::size_t>(moved);
        }
    }
    const std::vector<std::byte> last = readPipe();
    taken.insert(taken.end(), last.begin(), last.end());
    ASSERT_EQ(taken.size(), 4 * blockSize);
    for (std::size_t at = 0; at < taken.size(); at += blockSize) {
        EXPECT_TRUE(std::ranges::equal(std::span(taken).subspan(at, blockSize), block)) << at;
    }
}

TEST_F(SealedMemoryWriting, StaysInThePipeWhenTheMemoryIsGone) {
    EXPECT_EQ(memory->writeTo(ends[1], 0), static_cast<ssize_t>(blockSize));
    memory.reset();
    close(std::exchange(descriptor, -1));
    EXPECT_TRUE(std::ranges::equal(readPipe(), block));
}

TEST_F(SealedMemoryWriting, GoesIntoWhatIsNoPipeToo) {
    const int file = open("/tmp/written", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    EXPECT_EQ(memory->writeTo(file, 100), static_cast<ssize_t>(blockSize - 100));
    close(file);
    const std::string written = test::readFile("/tmp/written");
    EXPECT_TRUE(std::ranges::equal(std::as_bytes(std::span(written)), std::span(block).subspan(100)));
}

TEST_F(SealedMemoryWriting, SaysThatNobodyReads) {
    close(std::exchange(ends[0], -1));
    std::signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(memory->writeTo(ends[1], 0), -1);
    EXPECT_EQ(errno, EPIPE);
    std::signal(SIGPIPE, SIG_DFL);
}

TEST(SealedMemoryTest, SaysWhenThereAreNoDescriptorsLeft) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    EXPECT_EQ(makeSealedMemory(patternOf(10)), -EMFILE);
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limit), 0);
}

} // namespace
} // namespace veltrin::platform
