// What a backend for devices decides in the course of a job, on virtual time. The input: a byte for what is
// decided, and a script of it: of what happens at the status desk, of blocks and of how much the device takes
// of them, or what is known of a job and a device at their end.

#include "backend/JobEnd.h"
#include "backend/OutgoingBlocks.h"
#include "backend/StatusDesk.h"
#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "platform/SchedulerJob.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace veltrin::fuzz {

namespace {

using namespace std::chrono_literals;
using std::chrono::milliseconds;

/// A filter waits so long for an answer.
constexpr auto filtersPatience = 6s;

std::string_view textOf(std::span<const std::byte> bytes) {
    return {reinterpret_cast<const char *>(bytes.data()), bytes.size()};
}

void keepDesk(Input &input) {
    backend::StatusDesk desk;
    backend::Time now{1h};
    std::optional<backend::Time> asked;
    std::optional<backend::Time> recordTime;
    std::optional<backend::Time> sent = backend::Time::min();
    ReverseRecord newest{};
    while (!input.isEmpty()) {
        switch (input.byte() % 8) {
        case 0:
            now += milliseconds(input.byte() * 40);
            break;
        case 1:
            newest.dwFlag = reverseRecordTag;
            newest.bPrinterStatus = input.byte();
            desk.takeRecord(newest, now);
            recordTime = now;
            break;
        case 2:
            desk.ask(now);
            asked = now;
            break;
        case 3:
            desk.noteSending();
            sent.reset();
            break;
        case 4:
            desk.noteSent(now);
            sent = now;
            break;
        case 5:
            desk.setConnecting(input.flag());
            break;
        case 6:
            desk.hurry();
            break;
        default:
            desk.forgetRequest();
            asked.reset();
        }
        const bool isNews = recordTime && sent && asked && *recordTime >= *sent && *recordTime >= *asked;
        const auto answer = desk.takeAnswer(now);
        if (isNews && now - *asked < 5s) {
            require(answer && answer->size() == sizeof newest, "a record that is new answers who has asked");
        }
        if (!answer) {
            continue;
        }
        require(asked.has_value(), "nobody is answered who has not asked");
        require(now - *asked < filtersPatience,
                "no answer comes so late that it would be taken for the next");
        if (answer->size() == sizeof newest) {
            require(recordTime.has_value(), "a record that is shown has come");
            require(std::memcmp(answer->data(), &newest, sizeof newest) == 0, "the newest record counts");
            require(sent ? *recordTime >= *sent : *recordTime >= *asked,
                    "a record tells of what there is behind all that was sent, or that it cannot be sent");
        } else {
            require(!answer->empty() && !textOf(*answer).starts_with("GDIR"),
                    "what is no record is not taken for one, nor for no answer");
        }
        asked.reset();
        require(!desk.takeAnswer(now), "a request is answered once");
    }
}

/// What becomes of the blocks.
struct BlockLog {
    std::string written;
    std::size_t acknowledged = 0; ///< so many, in their order
    std::size_t lost = 0;
};

class TestBlock final : public platform::HeldNotification {
  public:
    TestBlock(std::size_t theNumber, std::string theBytes, BlockLog &theLog)
        : number(theNumber), bytes(std::move(theBytes)), log(theLog) {}

    TestBlock(const TestBlock &) = delete;
    TestBlock &operator=(const TestBlock &) = delete;

    ~TestBlock() override { log.lost += isAcknowledged ? 0 : 1; }

    [[nodiscard]] std::span<const std::byte> data() const override { return std::as_bytes(std::span(bytes)); }

    [[nodiscard]] ssize_t writeTo(int /*descriptor*/, std::size_t /*from*/) override { return -1; }

    void acknowledge() override {
        require(!isAcknowledged, "a block is acknowledged once");
        require(log.written.ends_with(bytes), "a block is acknowledged when it has gone out whole");
        require(number == log.acknowledged + log.lost, "blocks are acknowledged in their order");
        isAcknowledged = true;
        ++log.acknowledged;
    }

  private:
    std::size_t number;
    std::string bytes;
    BlockLog &log;
    bool isAcknowledged = false;
};

void sendBlocks(Input &input) {
    BlockLog log;
    std::string expected; // what may be written, and of it what has to be
    std::size_t added = 0;
    {
        backend::OutgoingBlocks blocks;
        const auto writer = [&](platform::HeldNotification &block, std::size_t from) {
            const auto bytes = block.data().subspan(from);
            require(!bytes.empty(), "the device is given something");
            const std::size_t taken = std::min<std::size_t>(input.byte() % 8, bytes.size());
            log.written += textOf(bytes.first(taken));
            return taken;
        };
        while (!input.isEmpty()) {
            const std::uint8_t what = input.byte();
            if (what % 4 == 0) {
                blocks.drop();
                expected = log.written;
                require(log.acknowledged + log.lost == added, "what is dropped is lost");
            } else if (what % 4 == 1) {
                const auto bytes = input.bytes(what / 4);
                expected += textOf(bytes);
                blocks.add(std::make_unique<TestBlock>(added++, std::string(textOf(bytes)), log));
            } else {
                blocks.write(writer);
            }
            require(std::string_view(expected).starts_with(log.written),
                    "bytes go out once and in their order");
            require(blocks.isEmpty() == (log.acknowledged + log.lost == added), "what is not there has gone");
        }
    }
    require(log.acknowledged + log.lost == added, "whoever sent a block gets to know what became of it");
}

void endJob(Input &input) {
    backend::JobView job{.isInputOpen = input.flag(),
                         .isFilterThere = input.flag(),
                         .hasServed = input.flag(),
                         .isCancelled = input.flag(),
                         .silence = milliseconds(input.number() % 100'000)};
    const bool isOver = backend::isJobOver(job);
    require(!isOver || !job.isInputOpen || job.isCancelled, "a job goes on while more of it may come");
    require(!isOver || !job.isFilterThere || !job.isInputOpen, "no filter is left behind that may go on");
    job.silence += 10s;
    require(!isOver || backend::isJobOver(job), "what is over stays over");
    job.isInputOpen = false;
    require(backend::isJobOver(job), "every job comes to its end");

    const auto sometime = [&input] {
        return input.flag() ? std::optional(milliseconds(input.number() % 100'000)) : std::nullopt;
    };
    backend::DeviceView device{.isOver = input.flag(),
                               .isConnecting = input.flag(),
                               .hasSpoken = input.flag(),
                               .sinceCancelled = sometime(),
                               .sinceEndAsked = sometime()};
    const auto signal = backend::endSignalFor(device);
    require(!signal || device.sinceCancelled || device.isOver, "what is in use is not ended");
    require(signal != SIGKILL || device.sinceEndAsked, "who is killed was asked first");
    require(signal != SIGTERM || !device.sinceEndAsked, "nobody is asked twice");
    if (device.sinceCancelled) {
        *device.sinceCancelled += 30s;
        require(backend::endSignalFor(device) || device.sinceEndAsked, "a cancelled job does not stay");
    }

    const backend::JobEnding ending{.exitStatus =
                                        input.flag() ? std::optional<int>(input.byte()) : std::nullopt,
                                    .isCutOff = input.flag(),
                                    .hasServed = input.flag(),
                                    .hasWaited = input.flag(),
                                    .isCancelled = input.flag()};
    if (backend::exitStatusOf(ending) == platform::backendOk && !ending.isCancelled) {
        require(ending.exitStatus == platform::backendOk && ending.hasServed && !ending.isCutOff,
                "a job that is called printed is printed");
    }
}

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin::fuzz;
    Input input(data, size);
    switch (input.byte() % 3) {
    case 0:
        keepDesk(input);
        break;
    case 1:
        sendBlocks(input);
        break;
    default:
        endJob(input);
    }
    return 0;
}
