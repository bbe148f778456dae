#include "driver/stream/ReadAhead.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace veltrin {
namespace {

class ReadAheadTest : public testing::Test {
  protected:
    ReadAheadTest() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }

    ~ReadAheadTest() override {
        close(ends[0]);
        close(ends[1]);
    }

    void write(const std::string &text) const {
        EXPECT_EQ(::write(ends[1], text.data(), text.size()), static_cast<ssize_t>(text.size()));
    }

    /// What one read of at most `size` bytes gives.
    std::string read(std::size_t size) { return readFrom(ends[0], size); }

    std::string readFrom(int fd, std::size_t size) {
        std::string text(size, '\0');
        const ssize_t got = readAhead.read(fd, text.data(), size);
        text.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
        return text;
    }

    [[nodiscard]] std::string kept(int fd) const {
        const auto bytes = readAhead.kept(fd);
        return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
    }

    int ends[2] = {-1, -1};
    ReadAhead readAhead;
};

TEST_F(ReadAheadTest, HandsOutWhatItReadInSmallerPieces) {
    write("0123456789");
    EXPECT_EQ(read(3), "012");
    EXPECT_EQ(kept(ends[0]), "3456789");
    EXPECT_EQ(read(5), "34567");
    readAhead.skip(1);
    EXPECT_EQ(read(5), "9");
    EXPECT_EQ(kept(ends[0]), "");
}

TEST_F(ReadAheadTest, GivesWhatIsThereWithoutWaitingForMore) {
    write("ab");
    EXPECT_EQ(read(10), "ab");
    write("cd");
    EXPECT_EQ(read(1), "c");
    EXPECT_EQ(read(10), "d") << "although more could be read";
}

TEST_F(ReadAheadTest, TellsTheEndAndAnErrorOnlyBehindWhatIsKept) {
    write("abc");
    close(ends[1]);
    ends[1] = -1;
    EXPECT_EQ(read(1), "a");
    EXPECT_EQ(read(10), "bc");
    char byte = 0;
    EXPECT_EQ(readAhead.read(ends[0], &byte, 1), 0);
    errno = 0;
    EXPECT_EQ(readAhead.read(-1, &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(ReadAheadTest, KeepsNothingOfOneDescriptorForAnother) {
    test::writeFile("/tmp/other", "other");
    const int other = open("/tmp/other", O_RDONLY | O_CLOEXEC);
    write("0123456789");
    EXPECT_EQ(read(1), "0");
    EXPECT_EQ(kept(other), "");
    EXPECT_EQ(readFrom(other, 2), "ot");
    EXPECT_EQ(kept(ends[0]), "");
    readAhead.forget();
    EXPECT_EQ(kept(other), "");
    EXPECT_EQ(readFrom(other, 2), "");
    close(other);
}

TEST_F(ReadAheadTest, ReadsLargePiecesStraightToWhereTheyBelong) {
    const std::string large(std::size_t{1024} * 1024, 'x');
    test::writeFile("/tmp/large", large + "behind");
    const int file = open("/tmp/large", O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(readFrom(file, large.size()) == large);
    EXPECT_EQ(kept(file), "behind");
    close(file);
}

} // namespace
} // namespace veltrin
