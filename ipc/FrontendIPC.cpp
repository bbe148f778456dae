#include "ipc/FrontendIPC.h"

#include "ipc/ChannelVocabulary.h"
#include "log/DebugLog.h"
#include "platform/SchedulerJob.h"

#include <chrono>
#include <exception>
#include <utility>

namespace veltrin {

namespace {

using namespace std::chrono_literals;

constexpr std::chrono::microseconds waitingTurn = 300ms;
constexpr std::chrono::microseconds commandTurn = 100ms;
constexpr std::chrono::microseconds dataTurn = 10ms;

constexpr int backendTurns = 100;
constexpr int replyTurns = 20;

// The initialiser waits under the same words as `sendData`; those who read the logs know them by heart.
constexpr const char *sendWaitsForBackend = "FrontendIPC sendData: waiting for backend alive...";
constexpr const char *readWaitsForBackend = "FrontendIPC waiting for backend alive...";

/// Runs a step of the channel and returns whether it went through. What it throws ends here, and `report`
/// logs it.
template <typename Step, typename Report>
bool goesThrough(Step step, Report report) {
    try {
        step();
        return true;
    } catch (const std::exception &exception) {
        report(exception);
        return false;
    }
}

/// The same, with the line that is logged whatever is thrown, and the reason behind it.
template <typename Step>
bool goesThrough(Step step, const char *line) {
    return goesThrough(step, [line](const std::exception &exception) {
        CPSDebugLog("%s", line);
        CPSDebugLog("FrontendIPC: %s", exception.what());
    });
}

} // namespace

FrontendIPC::FrontendIPC(const std::string &portName)
    : frontendServerName(portName + channel::frontendSuffix),
      backendServerName(portName + channel::backendSuffix) {}

std::unique_ptr<FrontendIPC> FrontendIPC::initWithPortName(const std::string &portName,
                                                           FrontendIPCDelegate *delegate, double /*timeout*/,
                                                           platform::Platform &platform,
                                                           std::function<bool()> isCancelled) {
    CPSDebugLog("FrontendIPC initWithPortName: port name is: %s", portName.c_str());
    std::unique_ptr<FrontendIPC> ipc(new FrontendIPC(portName));
    ipc->delegate = delegate;
    bool announced = false;
    goesThrough([&] { announced = ipc->announce(platform, std::move(isCancelled)); },
                [](const std::exception &exception) {
                    CPSDebugLog("FrontendIPC initWithPortName: %s", exception.what());
                });
    if (!announced) {
        return nullptr;
    }
    return ipc;
}

bool FrontendIPC::announce(platform::Platform &platform, std::function<bool()> isCancelled) {
    std::string problem;
    center = platform.makeNotificationCenter(
        {std::move(isCancelled),
         [](const std::string &line) { CPSDebugLog("FrontendIPC: %s", line.c_str()); }, nullptr,
         platform::objectionToPeer},
        problem);
    if (!center) {
        CPSDebugLog("FrontendIPC initWithPortName: no notification center: %s", problem.c_str());
        return false;
    }
    center->startObserving(
        frontendServerName, {channel::backendAlive, channel::backendByebye},
        [this](const platform::Notification &notification) { handleNotification(notification); });
    static_cast<void>(postNotificationCommand(channel::frontendAlive));
    if (!waitForBackend(sendWaitsForBackend)) {
        stop();
        return false;
    }
    return true;
}

FrontendIPC::~FrontendIPC() {
    CPSDebugLog("FrontendIPC server exit: %s", frontendServerName.c_str());
    CPSDebugLog("FrontendIPC dealloc:");
    if (center) {
        center->stopObserving();
    }
}

/// Returns false when the turns are used up, even where the backend came back in the last of them.
bool FrontendIPC::waitForBackend(const char *line) {
    int turns = 0;
    while (!isStopped && !isBackendAlive && turns < backendTurns) {
        CPSDebugLog("%s", line);
        center->turn(waitingTurn);
        ++turns;
    }
    return turns != backendTurns;
}

bool FrontendIPC::sendData(std::span<const std::byte> block) {
    Sent sent = Sent::backendLeft;
    const auto send = [&] {
        while (sent == Sent::backendLeft && waitForBackend(sendWaitsForBackend) && !isStopped) {
            sent = postNotificationSendData(block);
        }
        if (sent != Sent::backendLeft) {
            CPSDebugLog("FrontendIPC sendData: sending %d bytes to backend", static_cast<int>(block.size()));
        }
    };
    return goesThrough(send, "FrontendIPC sendData: Catch Exception!") && sent == Sent::yes;
}

bool FrontendIPC::readData(std::optional<std::vector<std::byte>> &record) {
    CPSDebugLog("FrontendIPC readData");
    record.reset();
    isDataArrived = false;
    const auto readRecord = [&] {
        Sent sent = Sent::backendLeft;
        while (sent == Sent::backendLeft && waitForBackend(readWaitsForBackend) && !isStopped) {
            sent = postNotificationCommand(channel::readPipe);
        }
        if (sent != Sent::backendLeft) {
            if (awaitReply()) {
                record = recvData;
            } else {
                CPSDebugLog("FrontendIPC readData failed!");
            }
        }
        CPSDebugLog("FrontendIPC readData Completed");
    };
    if (!goesThrough(readRecord, "FrontendIPC readData: Catch Exception!")) {
        record.reset();
    }
    return record.has_value();
}

/// Returns false when the turns are used up, even where the reply came in the last of them.
bool FrontendIPC::awaitReply() {
    int turns = 0;
    while (!isStopped && !isDataArrived && turns < replyTurns) {
        CPSDebugLog("FrontendIPC waiting data...");
        center->turn(waitingTurn);
        ++turns;
    }
    return turns != replyTurns && !isStopped && isDataArrived && !recvData.empty();
}

bool FrontendIPC::waitForDelivery() {
    bool delivered = false;
    return goesThrough([&] { delivered = center->waitForDelivery(); },
                       "FrontendIPC waitForDelivery: Catch Exception!") &&
           delivered;
}

void FrontendIPC::stop() {
    isStopped = true;
    while (postNotificationCommand(channel::frontendByebye) == Sent::backendLeft) {
    }
}

bool FrontendIPC::sendAck() const {
    return true;
}

bool FrontendIPC::eojAck() const {
    return sendAck();
}

void FrontendIPC::handleNotification(const platform::Notification &notification) {
    const auto handle = [&] {
        CPSDebugLog("FrontendIPC::handleNotification");
        handleCommand(notification);
    };
    goesThrough(handle, "FrontendIPC handleNotification: Catch Exception!");
}

void FrontendIPC::handleCommand(const platform::Notification &notification) {
    if (notification.object == channel::readPipe) {
        if (!isStopped) {
            const std::span<const std::byte> data = notification.data.value_or(std::span<const std::byte>());
            recvData.assign(data.begin(), data.end());
            isDataArrived = true;
        }
    } else if (notification.object == channel::backendAlive) {
        CPSDebugLog("FrontendIPC::handleNotification:backend-alive");
        isBackendAlive = true;
        if (delegate != nullptr && !isStopped) {
            center->performLater([this] { delegate->ipcReady(*this); });
        }
    } else if (notification.object == channel::backendByebye) {
        isBackendAlive = false;
        CPSDebugLog("FrontendIPC::handleNotification:backend-byebye");
    }
}

FrontendIPC::Sent FrontendIPC::postNotificationCommand(const std::string &command) {
    bool posted = false;
    const auto post = [&] {
        posted = center->post(backendServerName, command, std::nullopt);
        if (posted) {
            center->turnAfterPost(commandTurn);
        } else {
            center->turn(0us); // to hear of it
        }
    };
    if (!goesThrough(post, "FrontendIPC postNotificationCommand: Catch Exception!")) {
        return Sent::no;
    }
    return posted ? Sent::yes : Sent::backendLeft;
}

FrontendIPC::Sent FrontendIPC::postNotificationSendData(std::span<const std::byte> block) {
    bool posted = false;
    const auto post = [&] {
        posted = center->post(backendServerName, channel::writePipe, block);
        if (posted) {
            center->turnAfterPost(dataTurn);
        } else if (isBackendAlive) {
            center->turn(0us); // to hear of it
        }
    };
    if (!goesThrough(post, "FrontendIPC postNotificationSendData: Catch Exception!")) {
        return Sent::no;
    }
    return posted ? Sent::yes : Sent::backendLeft;
}

} // namespace veltrin
