#pragma once

#include "backend/DeviceProcess.h"
#include "backend/DeviceUri.h"
#include "backend/JobEnd.h"
#include "backend/LineSplitter.h"
#include "backend/OutgoingBlocks.h"
#include "backend/RecordSearch.h"
#include "backend/StateKeywords.h"
#include "backend/StatusDesk.h"
#include "ipc/BackendEnd.h"
#include "platform/LineOutput.h"

#include <optional>
#include <span>
#include <string>
#include <vector>

namespace veltrin::backend {

/// What the scheduler is told of page data that have not come by the channel.
[[nodiscard]] std::string refusalOfPageData();

/// One job of the scheduler's: the filter's peer on the channel, with CUPS's backend for the device as a
/// child.
///
/// Everything happens in turns of the channel, which also watch the child's descriptors and standard input.
class BackendJob {
  public:
    struct Settings {
        std::string uri; ///< the whole of it, which the channel is named after
        DeviceUri device;
        std::vector<std::string> arguments; ///< argv, as the scheduler gave it
        std::string serverBin;              ///< where CUPS has its programs
    };

    BackendJob(platform::Platform &thePlatform, Settings theSettings);

    /// Returns the exit status.
    [[nodiscard]] int run();

  private:
    [[nodiscard]] std::optional<int> claimDevice();
    [[nodiscard]] std::optional<int> startDevice();
    void turn();
    void take(const platform::Notification &notification);
    void takeBlock();
    void takeRecords(std::span<const std::byte> bytes);
    void takeMessage(const std::string &line);
    void takeStandardInput();
    void sendBlocks();
    void answerRequest();
    void endJob();
    void endLateDevice();
    void endFilter();
    [[nodiscard]] int finish();
    void tell(const std::string &line);
    void tellOfFailure(const JobEnding &ending);

    Settings settings;
    LineOutput lines;
    LineSplitter deviceLines;
    DeviceProcess device;
    BackendEnd channelEnd;
    OutgoingBlocks blocks; // answered by way of the channel, so they go first
    RecordSearch records;
    StatusDesk desk;
    std::optional<ReverseRecord> lastRecord;
    std::optional<Keywords> lastKeywords;

    bool isInputOpen = true;
    bool isFilterThere = false;
    bool hasServed = false;
    bool hasWaited = false;
    bool isCutOff = false;
    bool isBusLost = false;
    bool isOver = false; ///< nothing more will come for the device
    bool hasStrayData = false;
    Time lastHeard{};
    std::optional<Time> cancelled;
    std::optional<Time> endAsked;
};

} // namespace veltrin::backend
