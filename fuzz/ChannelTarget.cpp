// The filter's end of the channel in virtual time, against whatever may sit at the other end. The input is a
// script, byte by byte: what is delivered and when, what is lost, who leaves, and what the filter does.

#include "fuzz/Input.h"
#include "fuzz/Target.h"
#include "ipc/ChannelVocabulary.h"
#include "ipc/FrontendIPC.h"
#include "log/DebugLog.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::fuzz {

namespace {

using namespace std::chrono_literals;
using Block = test::FakeNotificationCenter::Block;

constexpr const char *port = "usb://Veltrin/C200";

/// The most that a call may wait for: its turns for the backend and for a reply, and one for each post that
/// had to be made again since somebody left meanwhile.
constexpr std::size_t mostTurns = 130;
constexpr auto mostTime = 40s;

constexpr std::size_t mostSteps = 60;

std::uintmax_t logSize() {
    std::error_code error;
    const std::uintmax_t size = std::filesystem::file_size(debugLogPath, error);
    return error ? 0 : size;
}

class Script {
  public:
    explicit Script(Input &theInput) : input(theInput) {
        center.afterPost = [this](const auto &post) { answer(post); };
    }

    void run() {
        for (int i = input.byte() % 3; i > 0; --i) {
            othersDo();
        }
        answers = input.byte();
        auto channel = begin();
        for (std::size_t step = 0; channel != nullptr && step < mostSteps && !input.isEmpty(); ++step) {
            const std::uint8_t what = input.byte();
            if (what % 4 == 0) {
                sendBlock(*channel);
            } else if (what % 4 == 1) {
                readRecord(*channel);
            } else if (what == 254) {
                stop(*channel);
            } else if (what == 250) {
                waitForDelivery(*channel);
            } else {
                othersDo();
            }
        }
        if (channel != nullptr) {
            stop(*channel);
            channel.reset();
        }
        require(center.observedName.empty(), "nobody listens behind the end of the channel");
        requireOrder();
    }

  private:
    std::unique_ptr<FrontendIPC> begin() {
        begins();
        auto channel = FrontendIPC::initWithPortName(port, nullptr, 0.0, platform, [] { return false; });
        ends(channel != nullptr);
        return channel;
    }

    void begins() {
        turnsBefore = center.turns.size();
        timeBefore = platform.fakeClock.now;
        postsBefore = center.posts.size();
        logBefore = logSize();
    }

    void ends(bool succeeded) {
        require(center.turns.size() - turnsBefore <= mostTurns, "every wait ends after its turns");
        require(platform.fakeClock.now - timeBefore <= mostTime, "every wait ends in its time");
        require(succeeded || isStopped || logSize() > logBefore, "a failure is logged");
    }

    void sendBlock(FrontendIPC &channel) {
        const auto bytes = input.bytes(input.byte());
        const Block block(bytes.begin(), bytes.end());
        begins();
        const bool sent = channel.sendData(block);
        ends(sent);
        const auto made =
            std::count_if(center.posts.begin() + static_cast<std::ptrdiff_t>(postsBefore), center.posts.end(),
                          [](const auto &post) { return post.data.has_value(); });
        require(made <= 1, "a block is posted once");
        require(!sent || (made == 1 && lastBlock() == block), "a block that was sent was posted, whole");
        require(sent || made == 0 || center.failsPosts || center.failsTurns,
                "a block that was not sent was not posted, unless the post has failed");
        require(!isStopped || (!sent && made == 0), "a channel that is stopped sends nothing");
    }

    void readRecord(FrontendIPC &channel) {
        begins();
        std::optional<Block> record = Block(3);
        const bool read = channel.readData(record);
        ends(read);
        require(read == record.has_value(), "a record is there where one was read, and only there");
        require(!read || !record->empty(), "a record has bytes");
        require(!read || std::find(delivered.begin(), delivered.end(), *record) != delivered.end(),
                "a record is one that has come, whole");
        require(!isStopped || !read, "a channel that is stopped reads nothing");
    }

    void waitForDelivery(FrontendIPC &channel) {
        begins();
        const bool isDelivered = channel.waitForDelivery();
        ends(isDelivered || !center.failsWaits);
        require(isDelivered == (center.isDelivered && !center.failsWaits), "a lost block is told of");
    }

    void stop(FrontendIPC &channel) {
        begins();
        channel.stop();
        ends(true);
        isStopped = true;
    }

    /// What happens beside the filter.
    void othersDo() {
        const std::uint8_t what = input.byte();
        const auto delay = std::chrono::milliseconds(input.byte() * 20);
        switch (what % 12) {
        case 0:
            center.deliver(channel::backendAlive, std::nullopt, delay);
            break;
        case 1:
            center.deliver(channel::backendByebye, std::nullopt, delay);
            break;
        case 2:
            deliverRecord(delay);
            break;
        case 3:
            center.deliver(channel::readPipe, std::nullopt, delay);
            break;
        case 4:
            center.deliver(std::nullopt, Block(5), delay);
            break;
        case 5:
            center.deliver(input.line(), Block(2), delay);
            break;
        case 6:
            center.failsPosts = !center.failsPosts;
            break;
        case 7:
            center.failsTurns = !center.failsTurns;
            break;
        case 8:
            center.holdsPosts = true;
            break;
        case 9:
            center.leavesDuringPosts = 1;
            break;
        case 10:
            center.failsWaits = what > 127;
            center.isDelivered = what % 24 == 10;
            break;
        default:
            answers = input.byte();
            break;
        }
    }

    void deliverRecord(std::chrono::microseconds delay) {
        const auto bytes = input.bytes(input.byte() % 80U);
        delivered.emplace_back(bytes.begin(), bytes.end());
        center.deliver(channel::readPipe, delivered.back(), delay);
    }

    /// The backend answers as the script says at the time.
    void answer(const test::FakeNotificationCenter::Post &post) {
        if (post.object == channel::frontendAlive && (answers & 1U) == 0) {
            center.deliver(channel::backendAlive, std::nullopt, std::chrono::milliseconds(answers * 4));
        }
        if (post.object == channel::readPipe && (answers & 2U) == 0) {
            delivered.emplace_back(64, std::byte(answers));
            center.deliver(channel::readPipe, delivered.back(), std::chrono::milliseconds(answers * 8));
        }
    }

    [[nodiscard]] Block lastBlock() const {
        const auto last = std::find_if(center.posts.rbegin(), center.posts.rend(),
                                       [](const auto &post) { return post.data.has_value(); });
        return last->data.value_or(Block());
    }

    /// Every post has its place: the announcement first, the farewell last.
    void requireOrder() const {
        bool isOver = false;
        for (std::size_t i = 0; i < center.posts.size(); ++i) {
            const auto &post = center.posts[i];
            require(post.name == std::string(port) + channel::backendSuffix, "every post is for the backend");
            require(post.object != channel::frontendAlive || i == 0,
                    "the announcement comes first, and once");
            require(post.data.has_value() == (post.object == channel::writePipe), "blocks alone have data");
            const bool isFarewell = post.object == channel::frontendByebye;
            require(!isOver || isFarewell, "nothing follows the farewell");
            isOver = isOver || isFarewell;
        }
    }

    Input &input;
    test::FakePlatform platform;
    test::FakeNotificationCenter &center = platform.fakeNotificationCenter;
    std::vector<Block> delivered; ///< or still on their way
    std::uint8_t answers = 0;
    bool isStopped = false;
    std::size_t turnsBefore = 0;
    std::size_t postsBefore = 0;
    std::uintmax_t logBefore = 0;
    std::chrono::microseconds timeBefore{};
};

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    fuzz::Input input(data, size);
    const test::CapturedLog log;
    fuzz::Script(input).run();
    return 0;
}
