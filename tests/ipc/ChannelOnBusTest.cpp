#include "ipc/FrontendIPC.h"
#include "platform/linux/DBusNotificationCenter.h"
#include "platform/linux/NotificationPath.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/Files.h"
#include "tests/support/PrivateBus.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace veltrin {
namespace {

using namespace std::chrono_literals;
using platform::DBusNotificationCenter;
using platform::Notification;
using testing::Contains;
using testing::HasSubstr;
using Block = std::vector<std::byte>;

constexpr const char *port = "usb://Veltrin/C200?serial=it's%201";

/// A printer backend, a process of its own as always: announces itself, answers requests with a record, and
/// adds up the blocks it is sent.
class Backend {
  public:
    Backend() {
        process = fork();
        if (process == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL); // however the test ends
            run();
            _exit(EXIT_SUCCESS);
        }
    }

    Backend(const Backend &) = delete;
    Backend &operator=(const Backend &) = delete;

    ~Backend() {
        leave();
        munmap(shared, sizeof *shared);
    }

    /// Ends without a goodbye.
    void leave() {
        if (process > 0) {
            kill(process, SIGKILL);
            waitpid(process, nullptr, 0);
            process = -1;
        }
    }

    /// Takes no notice of the bus.
    void stall() const {
        kill(process, SIGSTOP);
        waitpid(process, nullptr, WUNTRACED);
    }

    void goOn() const { kill(process, SIGCONT); }

    [[nodiscard]] bool hearsGoodbye() const {
        for (int i = 0; i < 1000 && !shared->hasHeardGoodbye; ++i) {
            std::this_thread::sleep_for(10ms);
        }
        return shared->hasHeardGoodbye;
    }

    [[nodiscard]] std::size_t blocksTaken() const { return shared->blocks; }

    /// A sum over the sizes and bytes of all blocks in order.
    [[nodiscard]] std::uint64_t sumOfBlocks() const { return shared->sum; }

    [[nodiscard]] std::size_t peakMemory() const { return test::peakMemoryOf(process); }

    static std::uint64_t addedTo(std::uint64_t sum, std::span<const std::byte> block) {
        const std::string_view bytes(reinterpret_cast<const char *>(block.data()), block.size());
        return sum * 31 + platform::fnv1a(bytes) + block.size();
    }

    const Block record = Block(64, std::byte{0x47});

  private:
    struct Shared {
        std::atomic<bool> hasHeardGoodbye;
        std::atomic<std::size_t> blocks;
        std::atomic<std::uint64_t> sum;
    };

    void run() {
        const std::string name = std::string(port) + ".frontend";
        std::string problem;
        const auto center = DBusNotificationCenter::connect(
            {[] { return false; }, [](const std::string &line) { std::cerr << line << '\n'; }}, problem);
        if (!center) {
            std::cerr << problem << '\n';
            return;
        }
        center->startObserving(std::string(port) + ".backend", {"fronted-alive", "frontend-byebye"},
                               [&](const Notification &notification) {
                                   if (notification.object == "fronted-alive") {
                                       static_cast<void>(center->post(name, "backend-alive", std::nullopt));
                                   } else if (notification.object == "readPipe") {
                                       static_cast<void>(center->post(name, "readPipe", record));
                                   } else if (notification.object == "writePipe") {
                                       shared->sum = addedTo(shared->sum, notification.data.value());
                                       ++shared->blocks;
                                   } else if (notification.object == "frontend-byebye") {
                                       shared->hasHeardGoodbye = true;
                                   }
                               });
        static_cast<void>(center->post(name, "backend-alive", std::nullopt));
        while (true) {
            center->turn(1s);
        }
    }

    Shared *shared =
        new (mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
            Shared{};
    pid_t process = -1;
};

class ChannelOnBusTest : public testing::Test {
  protected:
    std::unique_ptr<FrontendIPC> makeChannel(const std::string &name = port) {
        return FrontendIPC::initWithPortName(name, nullptr, 0.0, *system,
                                             [this] { return isCancelled.load(); });
    }

    test::CapturedLog log;
    test::PrivateBus bus;
    std::unique_ptr<platform::Platform> system = platform::makePlatform();
    std::atomic<bool> isCancelled = false;
};

TEST_F(ChannelOnBusTest, CarriesAWholeJob) {
    const Backend backend;
    auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    std::uint64_t sum = 0;
    std::optional<Block> record;
    for (const std::size_t size : {16U, 152U, 300000U, 0U, 40U, 1024U * 1024U}) {
        const Block block(size, static_cast<std::byte>(size / 8));
        sum = Backend::addedTo(sum, block);
        EXPECT_TRUE(channel->sendData(block));
        EXPECT_TRUE(channel->readData(record));
        EXPECT_EQ(record, backend.record);
    }
    EXPECT_TRUE(channel->waitForDelivery());
    EXPECT_EQ(backend.blocksTaken(), 6U);
    EXPECT_EQ(backend.sumOfBlocks(), sum);
    EXPECT_TRUE(channel->eojAck());
    channel->stop();
    channel.reset();
    EXPECT_TRUE(backend.hearsGoodbye());
    EXPECT_THAT(log.messages(), testing::Not(Contains(HasSubstr("Exception"))));
}

TEST_F(ChannelOnBusTest, FailsAtOnceWithTheReasonWhereThereIsNoBus) {
    bus.kill();
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(makeChannel(), nullptr);
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s);
    EXPECT_THAT(log.messages(),
                Contains("FrontendIPC initWithPortName: no notification center: cannot connect "
                         "to the system bus: Connection refused"));
}

TEST_F(ChannelOnBusTest, FailsAtOnceWithTheReasonWhereTheNameIsNoText) {
    EXPECT_EQ(makeChannel("usb://\xFF"), nullptr);
    EXPECT_THAT(log.messages(), Contains(HasSubstr("cannot be carried by the system bus")));
}

TEST_F(ChannelOnBusTest, ABlockThatABackendDidNotTakeBeforeItLeftIsAFailure) {
    Backend backend;
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    backend.stall();
    EXPECT_TRUE(channel->sendData(Block(16)));
    backend.leave();
    EXPECT_FALSE(channel->waitForDelivery());
}

TEST_F(ChannelOnBusTest, ABackendThatWasReplacedInAPauseOfTheFilterIsNotAskedAnyMore) {
    auto backend = std::make_unique<Backend>();
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    std::optional<Block> record;
    EXPECT_TRUE(channel->readData(record));
    backend->leave();
    backend = std::make_unique<Backend>();
    std::this_thread::sleep_for(200ms); // as the filter does while the printer has no room
    EXPECT_TRUE(channel->readData(record));
    EXPECT_TRUE(channel->sendData(Block(16)));
    EXPECT_TRUE(channel->waitForDelivery());
    EXPECT_EQ(backend->blocksTaken(), 1U);
    channel->stop();
}

TEST_F(ChannelOnBusTest, ABackendThatStallsHoldsTheFilterUpUntilTheJobIsCancelled) {
    const Backend backend;
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    ASSERT_TRUE(channel->sendData(Block(16)));
    ASSERT_TRUE(channel->waitForDelivery()); // nothing is under way any more, the announcement neither
    backend.stall();
    for (int i = 0; i < 16; ++i) {
        EXPECT_TRUE(channel->sendData(Block(100000)));
    }
    std::thread cancelling([this] {
        std::this_thread::sleep_for(300ms);
        isCancelled = true;
    });
    const auto start = std::chrono::steady_clock::now();
    EXPECT_TRUE(channel->sendData(Block(16)));
    EXPECT_GE(std::chrono::steady_clock::now() - start, 250ms);
    cancelling.join();
    channel->stop();
    backend.goOn();
    EXPECT_TRUE(backend.hearsGoodbye());
    EXPECT_EQ(backend.blocksTaken(), 18U);
}

TEST_F(ChannelOnBusTest, ABusThatDiesFailsTheSend) {
    const Backend backend;
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    bus.kill();
    EXPECT_FALSE(channel->sendData(Block(16)) && channel->waitForDelivery());
    EXPECT_FALSE(channel->sendData(Block(16)));
    channel->stop(); // and its end does not hang
}

TEST_F(ChannelOnBusTest, MemoryStaysFlat) {
    constexpr std::size_t megabyte = std::size_t{1024} * 1024;
    const Backend backend;
    const auto channel = makeChannel();
    ASSERT_NE(channel, nullptr);
    const Block large(megabyte, std::byte{0x5A});
    const Block small(60000, std::byte{0x5A});
    ASSERT_TRUE(channel->sendData(large)); // what is set up once is set up now
    ASSERT_TRUE(channel->sendData(small));
    ASSERT_TRUE(channel->waitForDelivery());
    const std::size_t before = test::peakMemoryOf(getpid());
    const std::size_t backendBefore = backend.peakMemory();
    const std::size_t busBefore = bus.peakMemory();
    const std::size_t descriptorsBefore = test::namesIn("/proc/self/fd").size();
    for (int i = 0; i < 256; ++i) {
        ASSERT_TRUE(channel->sendData(large));
        ASSERT_TRUE(channel->sendData(small));
    }
    ASSERT_TRUE(channel->waitForDelivery());
    EXPECT_EQ(backend.blocksTaken(), 514U);
    // Sixteen blocks may be under way; the sanitizers keep freed memory for a while besides.
    EXPECT_LT(test::peakMemoryOf(getpid()) - before, 64 * megabyte);
    EXPECT_LT(backend.peakMemory() - backendBefore, 64 * megabyte);
    EXPECT_LT(bus.peakMemory() - busBefore, 8 * megabyte);
    // A descriptor that stays open keeps a whole block in memory that no process's figures show.
    EXPECT_EQ(test::namesIn("/proc/self/fd").size(), descriptorsBefore);
}

} // namespace
} // namespace veltrin
