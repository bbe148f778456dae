#pragma once

#include "driver/MemoryEstimate.h"
#include "ipc/FrontendIPC.h"
#include "platform/Platform.h"
#include "status/VeltrinReverseData.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace veltrin {

/// Asks the printer how it is, shows that to the user, and holds the job back until the printer can take it.
///
/// All methods that return a boolean return true on success, and at once where there is no channel; a failure
/// is logged where it is found.
class PrinterStatus {
  public:
    /// `reverseData` gets the records that are read. `ipc` is the channel to the printer; null where there is
    /// none. All three must outlive the object. `isCancelled` says whether the job is cancelled.
    PrinterStatus(VeltrinReverseData &reverseData, FrontendIPC *ipc, platform::Platform &platform,
                  std::function<bool()> isCancelled);

    /// Reads a status record and shows the status to the user. False where none could be read or the status
    /// is an error.
    [[nodiscard]] bool checkStatus();

    /// Waits until the printer listens to our port, with a status reading in each pass. Nothing else ends the
    /// wait; the result is that of the last reading.
    [[nodiscard]] bool waitForPort();

    /// Waits until the printer has room for a header and its data, in bytes.
    [[nodiscard]] bool checkHeaderSize(std::uint32_t headerSize, std::uint32_t dataSize, bool isDuplex);

    /// Writes one status line for the scheduler, unless `text` is empty: severity 0 is information, 1 a
    /// warning and 2 an error, which is repeated until the job is cancelled.
    void postCUPSStatus(std::int32_t severity, const std::string &text);

    /// Tells the user that the printer cannot be reached.
    void postCommunicationError();

  private:
    [[nodiscard]] bool isUsableStatusReply(const std::optional<std::vector<std::byte>> &reply) const;
    [[nodiscard]] bool refreshMemory();

    VeltrinReverseData &reverseData;
    FrontendIPC *ipc;
    platform::Platform &platform;
    std::function<bool()> cancelled;

    /// What the printer is thought to have free, and when it was last asked in the ordinary course of a job.
    MemoryEstimate printerMemory;
    std::optional<std::chrono::microseconds> lastCheckTime;
};

} // namespace veltrin
