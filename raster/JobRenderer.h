#pragma once

#include "raster/HeaderFields.h"
#include "raster/JobTicket.h"
#include "raster/PageEncoder.h"
#include "raster/PageStore.h"
#include "raster/RasterReader.h"
#include "raster/StreamWriter.h"

#include <cstdint>
#include <functional>
#include <string>

namespace veltrin::raster {

/// Makes the page stream of one job: reads page after page, and writes each as often as the job's layout asks
/// for.
class JobRenderer {
  public:
    /// Takes a line for the scheduler, such as "PAGE: 1 2".
    using MessageSink = std::function<void(const std::string &)>;

    /// `reader` has read the first page's header, whose ticket this is. The stream goes to `output`.
    JobRenderer(RasterReader &reader, JobTicket ticket, CompressMode compressMode, int output,
                MessageSink messages);

    /// Renders the job to its end. False where something has failed, which `problem()` tells; the stream
    /// lacks its end then, so that nobody takes it for whole.
    [[nodiscard]] bool render(const std::string &identifier, const JobIdentity &identity);

    /// What has failed, as a sentence for people.
    [[nodiscard]] const std::string &problem() const { return failure; }

  private:
    [[nodiscard]] bool renderPages();
    [[nodiscard]] bool renderPage();
    [[nodiscard]] bool writeSide(const Side &side);
    [[nodiscard]] bool writeBlankSide(const Side &side);
    [[nodiscard]] bool failWriting();
    [[nodiscard]] bool failKeeping();
    [[nodiscard]] bool fail(const std::string &sentence);

    RasterReader &reader;
    JobTicket ticket;
    RasterPage firstPage;
    JobFormat format;
    StreamWriter writer;
    MessageSink tell;
    PageEncoder encoder;

    std::uint32_t arrived = 0;      ///< pages of the document so far
    PagePlacement placement;        ///< of the last of them
    PageHeader header{};            ///< likewise
    EncodedPage encoded;            ///< likewise
    PageStore store;                ///< pages that are written again
    std::uint32_t storedBefore = 0; ///< pages that came before those in the store
    std::string failure;
};

} // namespace veltrin::raster
