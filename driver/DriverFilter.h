#pragma once

#include "driver/PageInput.h"
#include "driver/PageOutput.h"
#include "driver/PrinterStatus.h"
#include "driver/SpooledPages.h"
#include "driver/stream/BandRun.h"
#include "driver/stream/PageStream.h"
#include "filter/CUPSFilter.h"
#include "ipc/FrontendIPC.h"
#include "ipc/FrontendIPCDelegate.h"
#include "status/VeltrinReverseData.h"

#include <cstdint>
#include <memory>
#include <string>

namespace veltrin {

/// `wBandNo` of the last page header that was copied, loaded as it is stored on the wire in little-endian
/// order. Nothing reads it; it is there for a debugger.
extern std::uint32_t pageBandNumber;

/// The printer driver: the whole job from the input page stream to the printer.
///
/// Its methods are spread over a few files by subject: the job sequence (DriverFilter.cpp), page copying
/// (DriverFilterPages.cpp), spooling (DriverFilterSpool.cpp), and unspooling (DriverFilterUnspool.cpp).
///
/// All methods that return a boolean return true on success; a failure is logged where it is found.
class DriverFilter : public CUPSFilter, public FrontendIPCDelegate {
  public:
    using CUPSFilter::CUPSFilter;
    ~DriverFilter() override;

    /// Opens the channel to the printer's backend, unless the device URI's scheme is "file", and allocates
    /// the data buffer.
    [[nodiscard]] bool init() override;

    /// The whole job. True when it was printed.
    [[nodiscard]] bool run() override;

    /// Always 5.
    [[nodiscard]] std::int32_t readRetryCount() override;

  private:
    /// \name Job sequence
    /// \{
    [[nodiscard]] bool openChannel();
    [[nodiscard]] bool printJob();
    [[nodiscard]] bool preparePrinter();
    [[nodiscard]] bool readIdentifier();
    [[nodiscard]] bool printTwoSided();
    [[nodiscard]] bool awaitEndOfJob();
    /// \}

    /// \name Page copying
    /// \{
    /// Copies from where `from` stands up to and including the last band of a page, or up to the end-of-job
    /// mark, which sets `eoj` and is not written. `additionalType` is ORed into the page's type; `paperTray`
    /// replaces its tray unless it is `pagesOwnTray`.
    [[nodiscard]] bool copyPageFrom(PageInput &from, PageOutput &to, std::uint32_t additionalType,
                                    std::uint8_t paperTray, bool &eoj);

    /// Sends the page in the file `path` to the printer.
    [[nodiscard]] bool copyPageFromPath(const std::string &path, std::uint32_t additionalType,
                                        std::uint8_t paperTray);

    /// Sends the job straight from the input to the printer.
    [[nodiscard]] bool sendPages();

    [[nodiscard]] bool sendHeadersAndPages();

    /// Whether the job's name asks for a tray; `settings.priorityTray` becomes that tray if it does.
    [[nodiscard]] bool isSDCJob();

    /// What a step of copying a page has come to.
    enum class CopyStep { goesOn, pageDone, endOfJob, failed };

    [[nodiscard]] CopyStep copyBandRun(PageInput &from, PageOutput &to, const BandRun &run);
    [[nodiscard]] CopyStep copyHeader(PageInput &from, PageOutput &to, std::uint32_t additionalType,
                                      std::uint8_t paperTray);
    void patchPageHeader(StreamHeader &header, std::uint32_t additionalType, std::uint8_t paperTray);
    void overrideTrayAndMedia(PageHeader &page);
    [[nodiscard]] bool readFileHeaders(PageInput &input);
    [[nodiscard]] bool writeFileHeaders();
    [[nodiscard]] bool sendEndOfJob();
    /// \}

    /// \name Spooling
    /// \{
    /// Copies every page of the input into a temporary file of its own and selects those that make up one
    /// copy. True where the whole input was spooled up to its end-of-job mark.
    [[nodiscard]] bool spoolPages();

    [[nodiscard]] bool spoolEveryPage(PageInput &input, bool &eoj);
    void selectPagesOfOneCopy();
    /// \}

    /// \name Unspooling
    /// \{
    /// Reorders the copy for two-sided printing. Never fails: an odd number of pages or an unknown order
    /// leaves the pages as they are.
    [[nodiscard]] bool duplex(const std::string &order);

    /// Sends the pages of the copy to the printer, as often as the job's copies ask for.
    [[nodiscard]] bool unspoolPages();

    void markJobAsDuplex();
    [[nodiscard]] bool sendPlannedPages(bool headersSent);

    /// \}

    /// Where the pages are sent.
    [[nodiscard]] PageOutput printer() const { return PageOutput::toPrinter(ipc.get(), *status); }

    /// Whether the printer turns sheets itself; as long as it has not said so, it does not.
    [[nodiscard]] bool duplexInstalled() const { return DuplexInstall.valueIn(reverseData->snapshot()) != 0; }

    /// The channel to the printer's backend; null where the job goes to standard output.
    std::unique_ptr<FrontendIPC> ipc;

    /// The printer's latest status record.
    std::unique_ptr<VeltrinReverseData> reverseData;

    /// Asks for the records, shows them, and holds the job back.
    std::unique_ptr<PrinterStatus> status;

    /// What the input and the spool files are read through.
    InputMemory inputMemory;

    /// The job's headers as read from the input.
    StreamHeader fileHeader;
    StreamHeader fileHeaderEx;

    SpooledPages spooled;
};

} // namespace veltrin
