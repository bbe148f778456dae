#include "platform/LineOutput.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <numeric>
#include <string>
#include <thread>
#include <vector>

namespace veltrin {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// A pipe that keeps writes apart: each read gets what one write of up to PIPE_BUF bytes put in.
class LineOutputTest : public testing::Test {
  protected:
    LineOutputTest() {
        EXPECT_EQ(pipe2(ends.data(), O_DIRECT | O_NONBLOCK | O_CLOEXEC), 0);
        EXPECT_GE(fcntl(ends[1], F_SETPIPE_SZ, 1024 * 1024), 1024 * 1024);
    }

    ~LineOutputTest() override {
        close(ends[0]);
        close(ends[1]);
    }

    std::vector<std::string> writes() {
        std::vector<std::string> result;
        std::array<char, PIPE_BUF> block{};
        ssize_t got = 0;
        while ((got = read(ends[0], block.data(), block.size())) > 0) {
            result.emplace_back(block.data(), static_cast<std::size_t>(got));
        }
        return result;
    }

    std::array<int, 2> ends{};
};

TEST_F(LineOutputTest, WritesManyLinesAtOnce) {
    LineOutput output(ends[1]);
    output.add("one");
    output.add("");
    output.add("three");
    EXPECT_THAT(writes(), IsEmpty());
    output.write();
    EXPECT_THAT(writes(), ElementsAre("one\n\nthree\n"));
    output.write();
    EXPECT_THAT(writes(), IsEmpty());
    output.add("four");
    output.write();
    EXPECT_THAT(writes(), ElementsAre("four\n"));
    EXPECT_EQ(output.error(), 0);
}

TEST_F(LineOutputTest, WritesWhatIsLeftAtItsEnd) {
    { LineOutput(ends[1]).add("last words"); }
    EXPECT_THAT(writes(), ElementsAre("last words\n"));
}

TEST_F(LineOutputTest, NeverTearsALineThatAPipeTakesWhole) {
    std::string all;
    {
        LineOutput output(ends[1]);
        for (std::size_t length = 0; length < 200; ++length) {
            const std::string line(length * 7, static_cast<char>('a' + length % 26));
            output.add(line);
            all += line + '\n';
        }
    }
    const std::vector<std::string> pieces = writes();
    EXPECT_EQ(std::accumulate(pieces.begin(), pieces.end(), std::string()), all);
    EXPECT_LT(pieces.size(), 2 * all.size() / PIPE_BUF);
    for (const std::string &piece : pieces) {
        EXPECT_EQ(piece.back(), '\n');
    }
}

TEST_F(LineOutputTest, FillsAPipesBufferToTheLastByteAndNoFurther) {
    const std::string half(PIPE_BUF / 2 - 1, 'x');
    LineOutput output(ends[1]);
    output.add(half);
    output.add(half);
    output.write();
    EXPECT_THAT(writes(), ElementsAre(half + '\n' + half + '\n'));
    output.add(half);
    output.add(half + 'y');
    output.write();
    EXPECT_THAT(writes(), ElementsAre(half + '\n', half + "y\n"));
}

TEST_F(LineOutputTest, WritesALineThatIsLongerThanAPipeTakesWhole) {
    LineOutput output(ends[1]);
    const std::string line(PIPE_BUF + 500, 'x');
    output.add("before");
    output.add(line);
    output.add("behind");
    output.write();
    EXPECT_THAT(writes(), ElementsAre("before\n", std::string(PIPE_BUF, 'x'), std::string(500, 'x') + "\n",
                                      "behind\n"));
}

TEST_F(LineOutputTest, WaitsForRoomWhereWritingDoesNot) {
    constexpr std::size_t count = 20'000;
    const std::string line(99, 'x');
    std::size_t taken = 0;
    std::thread reader([this, &taken] {
        pollfd source{ends[0], POLLIN, 0};
        while (taken < count * 100 && poll(&source, 1, 20'000) > 0) {
            for (const std::string &piece : writes()) {
                taken += piece.size();
            }
        }
    });
    LineOutput output(ends[1]);
    for (std::size_t i = 0; i < count; ++i) {
        output.add(line);
    }
    output.write();
    reader.join();
    EXPECT_EQ(taken, count * 100);
    EXPECT_EQ(output.error(), 0);
}

TEST_F(LineOutputTest, KeepsTheFirstFailure) {
    const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    LineOutput output(full);
    output.write();
    EXPECT_EQ(output.error(), 0);
    output.add("a line");
    output.write();
    EXPECT_EQ(output.error(), ENOSPC);
    close(full);
    output.add("another");
    output.write();
    EXPECT_EQ(output.error(), ENOSPC);
}

} // namespace
} // namespace veltrin
