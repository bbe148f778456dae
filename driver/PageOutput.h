#pragma once

#include "driver/PrinterStatus.h"
#include "driver/stream/BandRun.h"
#include "driver/stream/PageStream.h"
#include "ipc/FrontendIPC.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace veltrin {

/// What has become of a header and its data on their way out.
enum class Written { all, headerFailed, dataFailed };

/// Where a page stream goes: to the printer, or into a spooled page's file.
///
/// A failure is logged where it is found, and shown to the user until the job is cancelled.
class PageOutput {
  public:
    /// The printer: over the channel, or on standard output where `ipc` is null.
    [[nodiscard]] static PageOutput toPrinter(FrontendIPC *ipc, PrinterStatus &status);

    /// A file that is somebody else's to close.
    [[nodiscard]] static PageOutput toFile(int fd, PrinterStatus &status);

    [[nodiscard]] bool isPrinter() const;

    /// Writes exactly `size` bytes; to the channel as one block. True on success.
    [[nodiscard]] bool writeToFD(const void *buffer, std::int32_t size);

    /// Writes a header and the data that belong to it, each where its size is not 0; sizes in bytes.
    [[nodiscard]] Written writeHeaderAndData(const StreamHeader &header, std::int32_t headerSize,
                                             const std::byte *data, std::int32_t dataSize);

    /// The bands at the beginning of `stream` that are best written all together: a system call for each
    /// would cost more than the data. None for the channel, which is handed header and data one by one.
    [[nodiscard]] BandRun bandsToBatch(std::span<const std::byte> stream) const;

    /// Writes these bands, with the outcome and the reports that writing each header and each band's data
    /// would have.
    [[nodiscard]] Written writeBandRun(const BandRun &run, std::span<const std::byte> stream);

  private:
    PageOutput(int theFd, FrontendIPC *theIpc, PrinterStatus &theStatus)
        : fd(theFd), ipc(theIpc), status(theStatus) {}

    int fd;
    FrontendIPC *ipc; // in place of `fd`, where there is one
    PrinterStatus &status;
};

} // namespace veltrin
