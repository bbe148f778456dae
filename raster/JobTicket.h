#pragma once

#include "raster/JobLayout.h"
#include "raster/JobOptions.h"
#include "raster/RasterPage.h"

#include <cstdint>
#include <optional>
#include <string>

// What a job asks for, out of four mouths: the scheduler's arguments, the job's options, the PPD with its
// defaults and with the job's choices marked in it, and the header of the first page. They know different
// things, and not all that they say is so.

namespace veltrin::raster {

/// What is chosen in the PPD; nothing where it has no such option.
struct PPDChoices {
    std::optional<std::string> collate = std::nullopt;
    std::optional<std::string> inputSlot = std::nullopt;
    std::optional<std::string> paperType = std::nullopt;
    bool manualCopies = false; ///< it asks for every copy to be rendered
};

/// Whose edge the sheets are bound on, as PMDuplexing counts.
enum class Sides : std::uint8_t { oneSided = 1, longEdge = 2, shortEdge = 3 };

/// What the renderer and the filter have to agree on, and what the headers say of the paper.
struct JobTicket {
    /// Two-sided where `sides` is and the paper allows it.
    JobLayout layout;
    Sides sides = Sides::oneSided;        ///< as asked for
    std::optional<std::string> media;     ///< the filter's own name of the paper's size
    std::optional<std::string> paperType; ///< name of the paper's type
    std::string inputSlot;                ///< name of the tray; empty where none was chosen

    bool operator==(const JobTicket &) const = default;
};

/// Copies are those of the fifth argument: not every renderer in front counts them in its header. Only where
/// the pages have been repeated already is it one: if the PPD asks for that, or if the job wants its copies
/// collated and the PPD cannot be told so.
///
/// Collation is what is chosen in the PPD; without such an option, what the job's options say. That of the
/// header is never set. Sides and size of the paper are the header's, where the defaults have gone in; the
/// size has the PPD's name there, and the filter's paper rule may know it by another.
///
/// The type of the paper is the job's: "PaperType", else "media-type" or a keyword of "media". Else it is
/// what the PPD or else the header says. The same names, as the filter will see them, decide whether this
/// paper is printed on both sides.
[[nodiscard]] JobTicket ticketFor(const std::string &copiesArgument, const JobOptions &options,
                                  const PPDChoices &choices, const RasterPage &firstPage);

} // namespace veltrin::raster
