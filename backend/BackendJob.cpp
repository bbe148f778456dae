#include "backend/BackendJob.h"

#include "backend/DeviceMessage.h"
#include "backend/JobEnd.h"
#include "backend/ProgramSafety.h"
#include "backend/TonerLevels.h"
#include "ipc/ChannelVocabulary.h"
#include "platform/EndSignals.h"
#include "platform/SchedulerJob.h"
#include "platform/StandardDescriptors.h"

#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace veltrin::backend {

namespace {

using namespace std::chrono_literals;
using std::chrono::steady_clock;

/// How long a turn may last before everything else is looked at again.
constexpr auto longestTurn = 100ms;

const std::string adviceOnQueue = "Give the queue Veltrin's PPD, and print without the option \"raw\".";

} // namespace

std::string refusalOfPageData() {
    return "ERROR: The document has not come through Veltrin's filter. " + adviceOnQueue;
}

BackendJob::BackendJob(platform::Platform &thePlatform, Settings theSettings)
    : settings(std::move(theSettings)), lines(STDERR_FILENO),
      deviceLines([this](const std::string &line) { takeMessage(line); }),
      channelEnd({.platform = thePlatform,
                  .uri = settings.uri,
                  .client = {.isCancelled = endWanted,
                             .report = [this](const std::string &line) { tell("DEBUG: " + line); },
                             // Two queues with one device URI: the other's filter has a backend of its own.
                             .objectionTo = platform::objectionToPeer},
                  .observer = [this](const platform::Notification &notification) { take(notification); }}) {}

int BackendJob::run() {
    if (const auto status = claimDevice()) {
        return *status;
    }
    if (const auto status = startDevice()) {
        channelEnd.sayGoodbye();
        return *status;
    }
    lastHeard = steady_clock::now();
    channelEnd.post(channel::backendAlive);
    tell("DEBUG: listening");
    while (!device.hasEnded()) {
        turn();
        sendBlocks();
        answerRequest();
        endJob();
        endLateDevice();
    }
    endFilter();
    return finish();
}

// ---- The device

/// Returns the exit status where there is nothing to be done.
std::optional<int> BackendJob::claimDevice() {
    using Opening = BackendEnd::Opening;
    std::string problem;
    const Opening opening = channelEnd.openInTurn(
        [this] {
            if (!std::exchange(hasWaited, true)) {
                tell("INFO: Waiting for another job to leave the printer.");
            }
            return !endWanted() && !platform::isAtEnd(STDIN_FILENO);
        },
        problem);
    if (opening == Opening::impossible) {
        // The reason may name what could not be asked for, and the scheduler's log is read by many.
        if (const std::size_t at = problem.find(settings.uri); at != std::string::npos) {
            problem.replace(at, settings.uri.size(), withoutCredentials(settings.uri));
        }
        tell("ERROR: Cannot use the message bus: " + problem);
        return platform::backendFailed;
    }
    if (opening == Opening::occupied && !endWanted()) {
        tell("INFO: Still waiting for another job to leave the printer.");
        return platform::backendRetryCurrent;
    }
    if (opening == Opening::done && hasWaited) {
        tell("INFO: Printing.");
    }
    return opening == Opening::done ? std::nullopt : std::optional<int>(platform::backendOk);
}

/// The same arguments as ours, but for the name, which the scheduler makes of the device URI.
/// Returns the exit status where that has failed.
std::optional<int> BackendJob::startDevice() {
    const std::string program = settings.serverBin + "/backend/" + settings.device.scheme;
    if (const auto path = insecurePathOf(program)) {
        tell(refusalOfInsecure(*path) + " Then release the job.");
        return platform::backendHold; // the scheduler keeps a job and goes on with the queue in this case
    }
    std::vector<std::string> arguments = settings.arguments;
    arguments.front() = withoutCredentials(settings.device.device);
    const int error = device.start({program, arguments, settings.device.device});
    if (error == ENOENT) {
        tell("ERROR: There is no backend \"" + program +
             "\". Install it, or give the queue another device URI.");
    } else if (error == EACCES) {
        tell("ERROR: Only root may start \"" + program + "\". Give the backend \"" + settings.serverBin +
             "/backend/" + std::string(ownScheme) + "\" the mode 0700, so that CUPS runs it as root.");
    } else if (error != 0) {
        tell("ERROR: Cannot start \"" + program + "\": " + std::strerror(error));
    }
    // Every job of the queue would meet the same.
    return error == 0 ? std::nullopt : std::optional<int>(platform::backendStop);
}

void BackendJob::turn() {
    std::array<pollfd, 4> watched = {{{isInputOpen ? STDIN_FILENO : -1, POLLIN, 0},
                                      {blocks.isEmpty() ? -1 : device.input(), POLLOUT, 0},
                                      {device.backChannel(), POLLIN, 0},
                                      {blocks.isEmpty() ? device.messages() : -1, POLLIN, 0}}};
    channelEnd.turnWatching(longestTurn, watched);
    if (watched[0].revents != 0) {
        takeStandardInput();
    }
    if (watched[2].revents != 0) {
        takeRecords(device.readBackChannel());
    }
    // While blocks flow, CUPS's backends have a message for each 8 KiB, which is not to end a turn.
    if (watched[3].fd == -1 || watched[3].revents != 0) {
        deviceLines.take(device.readMessages());
    }
    lines.write();
}

void BackendJob::takeRecords(std::span<const std::byte> bytes) {
    const auto record = records.take(bytes);
    if (!record) {
        return;
    }
    desk.takeRecord(*record, steady_clock::now());
    Keywords keywords = stateKeywords(*record);
    for (const std::string &line : stateLines(lastKeywords, keywords)) {
        lines.add(line);
    }
    for (const std::string &line : tonerLines(lastRecord, *record)) {
        lines.add(line);
    }
    lastKeywords = std::move(keywords);
    lastRecord = record;
}

void BackendJob::takeMessage(const std::string &line) {
    if (const auto isConnecting = connectingIn(line)) {
        desk.setConnecting(*isConnecting);
    }
    if (const auto message = passedOn(line)) {
        lines.add(*message);
    }
}

void BackendJob::sendBlocks() {
    if (blocks.isEmpty()) {
        return;
    }
    blocks.write(
        [this](platform::HeldNotification &block, std::size_t from) { return device.write(block, from); });
    if (blocks.isEmpty()) {
        desk.noteSent(steady_clock::now());
    } else if (device.input() == -1) {
        isCutOff = isOver = true; // it takes nothing any more
        blocks.drop();
    }
}

// ---- The filter

void BackendJob::take(const platform::Notification &notification) {
    lastHeard = steady_clock::now();
    if (!notification.object) {
        return;
    }
    const std::string &object = *notification.object;
    isFilterThere = object != channel::frontendByebye;
    if (object == channel::frontendByebye) {
        hasServed = true;
        desk.forgetRequest();
    } else if (object == channel::frontendAlive) {
        channelEnd.post(channel::backendAlive);
    } else if (object == channel::readPipe) {
        desk.ask(lastHeard);
    } else if (object == channel::writePipe) {
        takeBlock();
    }
}

void BackendJob::takeBlock() {
    auto block = channelEnd.hold();
    if (block && device.input() != -1) {
        blocks.add(std::move(block));
        desk.noteSending();
    }
}

void BackendJob::answerRequest() {
    if (const auto answer = desk.takeAnswer(steady_clock::now())) {
        channelEnd.post(channel::readPipe, *answer);
    }
}

/// Looks for its end only: page data come by the channel.
void BackendJob::takeStandardInput() {
    std::array<char, 512> block{};
    const ssize_t got = read(STDIN_FILENO, block.data(), block.size());
    if (got == 0 || (got == -1 && errno != EINTR && errno != EAGAIN)) {
        isInputOpen = false;
    } else if (got > 0 && !std::exchange(hasStrayData, true)) {
        tell(refusalOfPageData());
        isOver = true;
    }
}

// ---- The end

void BackendJob::endJob() {
    const Time now = steady_clock::now();
    if (endWanted() && !cancelled) {
        cancelled = now;
        desk.hurry(); // the filter hears of its own end only when it has its answer
    }
    if (!isOver && !channelEnd.isConnected()) {
        tell("ERROR: The message bus is lost.");
        isBusLost = isCutOff = isOver = true;
        blocks.drop(); // the device may take nothing for long, and has not got the rest of them in any case
    }
    isOver = isOver ||
             isJobOver({.isInputOpen = isInputOpen,
                        .isFilterThere = isFilterThere,
                        .hasServed = hasServed,
                        .isCancelled = cancelled.has_value(),
                        .silence = std::chrono::duration_cast<std::chrono::milliseconds>(now - lastHeard)});
    if (isOver && blocks.isEmpty()) {
        device.closeInput();
    }
}

void BackendJob::endLateDevice() {
    const Time now = steady_clock::now();
    const auto since = [now](const std::optional<Time> &time) {
        return time ? std::optional(std::chrono::duration_cast<std::chrono::milliseconds>(now - *time))
                    : std::nullopt;
    };
    const auto signal = endSignalFor({.isOver = isOver,
                                      .isConnecting = desk.isDeviceConnecting(),
                                      .hasSpoken = lastRecord.has_value(),
                                      .sinceCancelled = since(cancelled),
                                      .sinceEndAsked = since(endAsked)});
    if (!signal) {
        return;
    }
    if (!endAsked) {
        endAsked = now;
    }
    device.send(*signal);
}

/// With the device the job is lost. But the filter tells people of a printer that it cannot reach until the
/// job is cancelled, and the scheduler does nothing of what the queue's error policy says until the filter
/// has ended. So the filter is asked to, and what it still says for its end is heard. One that does not end
/// is the scheduler's to kill.
void BackendJob::endFilter() {
    const bool isLost = !isOver || isCutOff;
    const auto filter = channelEnd.hostProcess();
    if (!isLost || !isFilterThere || endWanted() || !filter || !platform::askPeerToEnd(*filter)) {
        return;
    }
    tell("DEBUG: the device is gone, and so the filter is to end");
    isCutOff = true;
    device.closeInput();
    blocks.drop();
    desk.hurry();
    while (isFilterThere) {
        turn();
        answerRequest();
    }
}

int BackendJob::finish() {
    for (auto bytes = device.readBackChannel(); !bytes.empty(); bytes = device.readBackChannel()) {
        takeRecords(bytes);
    }
    for (auto bytes = device.readMessages(); !bytes.empty(); bytes = device.readMessages()) {
        deviceLines.take(bytes);
    }
    deviceLines.finish();
    const JobEnding ending{.exitStatus = device.exitStatus(),
                           .isCutOff = isCutOff || !isOver || !blocks.isEmpty(),
                           .hasServed = hasServed,
                           .hasWaited = hasWaited,
                           .isCancelled = endWanted()};
    blocks.drop(); // before the goodbye, so that the filter knows that they are lost
    channelEnd.sayGoodbye();
    if (hasStrayData) {
        return platform::backendCancel;
    }
    tellOfFailure(ending);
    return exitStatusOf(ending);
}

/// Says what went wrong where nobody else has: a device's backend that fails says so itself.
void BackendJob::tellOfFailure(const JobEnding &ending) {
    if (ending.isCancelled || isBusLost ||
        ending.exitStatus.value_or(platform::backendOk) != platform::backendOk) {
        return;
    }
    const std::string which = "ERROR: The backend \"" + settings.device.scheme + "\" ";
    if (const auto signal = device.fatalSignal(); signal && !endAsked) {
        tell(which + "was ended by signal " + std::to_string(*signal) + ".");
    } else if (ending.isCutOff) {
        tell(which + "ended before the job did.");
    } else if (!ending.hasServed && !ending.hasWaited) {
        tell("ERROR: No filter has come to print. " + adviceOnQueue);
    }
}

void BackendJob::tell(const std::string &line) {
    lines.add(line);
    lines.write();
}

} // namespace veltrin::backend
