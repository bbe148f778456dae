#include "platform/linux/SealedMemory.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
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
