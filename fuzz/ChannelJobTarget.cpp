// A whole job over the channel, in virtual time. The input: a byte with the number of answers to requests for
// a status record, each behind a byte with its length; a line with the job's options; and the page stream.
// After those answers the printer is ready.

#include "driver/DriverFilter.h"
#include "filter/Cancellation.h"
#include "fuzz/ExpectedJob.h"
#include "fuzz/Input.h"
#include "fuzz/MemoryFile.h"
#include "fuzz/Target.h"
#include "ipc/ChannelVocabulary.h"
#include "log/DebugLog.h"
#include "status/ReverseRecord.h"
#include "status/StatusCatalogue.h"
#include "tests/support/Arguments.h"
#include "tests/support/CapturedLog.h"
#include "tests/support/FakePlatform.h"
#include "tests/support/Files.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <string>
#include <vector>

namespace veltrin::fuzz {

namespace {

using Block = test::FakeNotificationCenter::Block;
using namespace std::chrono_literals;

constexpr const char *spoolFolder = "/tmp/spool";
constexpr std::size_t mostPagesSent = 200;

constexpr std::size_t portOffset = 8;
constexpr std::size_t memoryOffset = 24;
constexpr std::size_t statusOffset = 36;
constexpr std::size_t unitOffset = 57;

Block readyRecord() {
    Block record(64);
    const std::string tag = "GDIR";
    std::transform(tag.begin(), tag.end(), record.begin(), [](char letter) { return std::byte(letter); });
    record[memoryOffset] = std::byte{0x7F};     // of the headers
    record[memoryOffset + 4] = std::byte{0x7F}; // of the bands
    return record;
}

/// Whether an answer is a record of a printer that is not at fault.
bool isGood(const Block &answer) {
    const auto at = [&answer](std::size_t offset) { return std::to_integer<std::uint8_t>(answer[offset]); };
    return answer.size() == sizeof(ReverseRecord) && std::memcmp(answer.data(), "GDIR", 4) == 0 &&
           statusText(at(statusOffset), at(statusOffset + 1), at(statusOffset + 23)).severity !=
               severityFatal;
}

void clearBits(Block &answer, std::size_t offset, std::byte mask) {
    if (offset < answer.size()) {
        answer[offset] &= ~mask;
    }
}

class Printer {
  public:
    explicit Printer(Input &input) {
        for (int count = input.byte() % 16; count > 0; --count) {
            const auto bytes = input.bytes(input.byte());
            answers.emplace_back(bytes.begin(), bytes.end());
        }
        // Nothing but the printer ends the wait for its port, not even that the job is cancelled.
        const bool areGood = std::all_of(answers.begin(), answers.end(), isGood);
        for (Block &answer : answers) {
            clearBits(answer, unitOffset, std::byte{0x80}); // the model of a job has no duplex unit
            clearBits(answer, portOffset, areGood ? std::byte{0} : std::byte{0xFF});
        }
    }

    void attend(test::FakePlatform &platform) {
        auto &center = platform.fakeNotificationCenter;
        center.afterPost = [this, &center](const auto &post) {
            if (post.object == channel::frontendAlive) {
                center.deliver(channel::backendAlive);
            } else if (post.object == channel::readPipe) {
                center.deliver(channel::readPipe, nextAnswer());
            } else if (post.data) {
                received.append(reinterpret_cast<const char *>(post.data->data()), post.data->size());
            }
        };
        platform.fakeClock.afterSleep = [&platform] {
            // An error is shown until somebody cancels the job.
            if (platform.fakeClock.sleeps.back() == 100ms) {
                gSigTerm = 1;
            }
        };
    }

    std::string received;

  private:
    Block nextAnswer() {
        if (answers.empty()) {
            return readyRecord();
        }
        Block answer = answers.front();
        answers.pop_front();
        return answer;
    }

    std::deque<Block> answers;
};

} // namespace

} // namespace veltrin::fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    using namespace veltrin;
    using namespace veltrin::fuzz;
    Input input(data, size);
    Printer printer(input);
    const std::string options = input.line();
    const std::string stream = input.remainingText();
    const JobSettings settings = settingsOf(options.substr(0, options.find('\0')));
    const auto expected = expectedJob(stream, settings, {"642135", true, false}, 0x1040, mostPagesSent);
    // A tray that the job's name asks for is filled in from a record.
    if (options.find('\0') != std::string::npos || !expected ||
        settings.jobName.value_or("").starts_with('@')) {
        return 0;
    }
    std::filesystem::create_directories(spoolFolder);
    setenv("TMPDIR", spoolFolder, 1);
    setenv("DEVICE_URI", "socket://printer.example", 1);
    setenv("LANG", "en.UTF-8", 1);
    gSigTerm = 0;
    const std::size_t descriptors = openDescriptors();
    {
        const MemoryFile source(std::as_bytes(std::span(stream)));
        const Caught errors(STDERR_FILENO);
        const Caught output(STDOUT_FILENO);
        const test::CapturedLog log;
        test::FakePlatform platform;
        platform.fakeClock.now = 1000s;
        platform.fakeBundle.infoDictionary = {{"VeltrinDuplexOrder", "642135"},
                                              {"VeltrinManualDuplex", "yes"}};
        printer.attend(platform);
        test::Arguments arguments({"queue", "1", "user", "title", "1", options, source.path()});
        auto driver = CUPSFilter::initWithArgc(std::make_unique<DriverFilter>(platform), arguments.count(),
                                               arguments.vector());
        require(driver != nullptr, "a job begins where the backend answers");
        const bool result = driver->run();
        driver.reset();

        const std::string reset = "GDIC GDIREND    ";
        const std::string cancel("GDIC CANCEL    \0", 16);
        require(output.text().empty(), "nothing goes to standard output where there is a channel");
        require(printer.received.starts_with(reset), "the printer is reset first");
        require(result == !printer.received.ends_with(cancel) || stream.find(cancel) != std::string::npos,
                "a job that fails is cancelled at the printer, and no other");
        require(!result || printer.received == reset + expected->output,
                "what goes out is what came in, but for the patched bytes and the order");
        require(result || gSigTerm == 1 || !expected->result,
                "a job fails by its stream or by the printer's word");
        require(expected->result || !result, "a stream that is not whole fails");
        const std::string logged = test::readFile(debugLogPath);
        require(result || logged.find(" ASSERT: ") != std::string::npos, "a failure is logged");
        const auto &posts = platform.fakeNotificationCenter.posts;
        require(posts.back().object == channel::frontendByebye, "the farewell is the last word");
    }
    require(openDescriptors() == descriptors, "no descriptor is left open");
    require(std::filesystem::is_empty(spoolFolder), "no spool file is left behind");
    return 0;
}
