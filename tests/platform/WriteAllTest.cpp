#include "platform/WriteAll.h"

#include "tests/support/Files.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <thread>

namespace veltrin::platform {
namespace {

using namespace std::chrono_literals;

/// More than a pipe holds.
std::string longText() {
    std::string text;
    while (text.size() < 1'000'000) {
        text += std::to_string(text.size()) + ' ';
    }
    return text;
}

std::size_t writeText(int fd, const std::string &text) {
    errno = 0;
    return writeAll(fd, std::as_bytes(std::span(text)));
}

class WriteAllTest : public testing::Test {
  protected:
    WriteAllTest() { EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0); }

    ~WriteAllTest() override {
        close(ends[0]);
        if (ends[1] != -1) {
            close(ends[1]);
        }
    }

    void makeWriterNotWait() const { EXPECT_EQ(fcntl(ends[1], F_SETFL, O_NONBLOCK), 0); }

    void makeWriterWait() const { EXPECT_EQ(fcntl(ends[1], F_SETFL, 0), 0); }

    /// What is in the pipe up to its end, a little at a time.
    [[nodiscard]] std::string readToTheEnd() const {
        std::string text;
        std::array<char, 1000> block{};
        for (ssize_t got = 0; (got = read(ends[0], block.data(), block.size())) > 0;) {
            text.append(block.data(), static_cast<std::size_t>(got));
        }
        return text;
    }

    void closeWriter() {
        close(ends[1]);
        ends[1] = -1;
    }

    std::array<int, 2> ends{};
};

TEST_F(WriteAllTest, GoesOnWhereOnlyAPartIsTaken) {
    const std::string text = longText();
    std::string received;
    std::thread reader([&] { received = readToTheEnd(); });
    EXPECT_EQ(writeText(ends[1], text), text.size());
    closeWriter();
    reader.join();
    EXPECT_TRUE(received == text);
}

TEST_F(WriteAllTest, TellsHowMuchAFullPipeHasTaken) {
    makeWriterNotWait();
    const std::string text = longText();
    const std::size_t written = writeText(ends[1], text);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(written, static_cast<std::size_t>(fcntl(ends[1], F_GETPIPE_SZ)));
    EXPECT_EQ(writeText(ends[1], text), 0U) << "the pipe is full";
    EXPECT_EQ(errno, EAGAIN);
    closeWriter();
    EXPECT_TRUE(readToTheEnd() == text.substr(0, written));
}

std::atomic<int> interruptions{0};

extern "C" void countInterruption(int /*signal*/) {
    ++interruptions;
}

/// Whether the thread waits for something: its state follows the program's name, which stands in brackets.
bool isWaiting(pid_t thread) {
    const std::string state = test::readFile("/proc/self/task/" + std::to_string(thread) + "/stat");
    const std::size_t name = state.rfind(')');
    return name != std::string::npos && state.compare(name, 3, ") S") == 0;
}

TEST_F(WriteAllTest, GoesOnAfterASignal) {
    struct sigaction action {};

    struct sigaction before {};

    action.sa_handler = countInterruption; // without SA_RESTART: it ends a write that has written nothing
    ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
    makeWriterNotWait();
    const std::string text = longText();
    const std::size_t inThePipe = writeText(ends[1], text);
    makeWriterWait();

    std::string received;
    std::thread reader([&, writer = pthread_self(), writerId = gettid()] {
        interruptions = 0;
        for (int sent = 0; sent < 3; ++sent) {
            for (int i = 0; i < 10000 && (interruptions != sent || !isWaiting(writerId)); ++i) {
                std::this_thread::sleep_for(1ms);
            }
            pthread_kill(writer, SIGUSR1);
        }
        received = readToTheEnd();
    });
    EXPECT_EQ(writeText(ends[1], "the rest"), 8U);
    closeWriter();
    reader.join();
    EXPECT_EQ(interruptions, 3);
    EXPECT_TRUE(received == text.substr(0, inThePipe) + "the rest");
    EXPECT_EQ(sigaction(SIGUSR1, &before, nullptr), 0);
}

TEST_F(WriteAllTest, FailsWhereNobodyReadsAnyMore) {
    close(ends[0]);
    const auto before = signal(SIGPIPE, SIG_IGN);
    EXPECT_EQ(writeText(ends[1], "text"), 0U);
    EXPECT_EQ(errno, EPIPE);
    signal(SIGPIPE, before);
    ends[0] = open("/dev/null", O_RDONLY | O_CLOEXEC);
}

TEST_F(WriteAllTest, FailsOnAClosedDescriptor) {
    const int closed = ends[1];
    closeWriter();
    EXPECT_EQ(writeText(closed, "text"), 0U);
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(writeText(closed, ""), 0U);
    EXPECT_EQ(errno, 0) << "there was nothing to write";
}

} // namespace
} // namespace veltrin::platform
